"""The demonstration, started as ./run starts it, in a sandbox of its own. It checks by itself what it tells of."""

import contextlib
import fcntl
import json
import os
import pathlib
import pty
import re
import select
import signal
import struct
import subprocess
import termios

import pytest

from simdevice.device import default_program
from simdevice.sandbox import PYTHON
from simdevice.waiting import wait_for

SIMDEVICE = pathlib.Path(__file__).resolve().parent.parent.parent / "simdevice"
GET_ADDRESS = ("dbus-send", "--system", "--print-reply=literal", "--dest=com.zorv.upnpvelorn", "/settings",
               "local.UpnpSettings.getAddressStr")


@pytest.fixture
def show(tmp_path):
    """A function that starts the demonstration. Its standard error is a pipe that every process in it holds."""
    started = []

    def start(*arguments: str, program: str = None, output: int = None, terminal: bool = False) -> subprocess.Popen:
        environment = {**os.environ, "UPNPVELORN": program or default_program(), "TERM": "vt100"}
        del environment["SIMDEVICE_SANDBOX"]
        with open(tmp_path / "output", "w") as file:
            process = subprocess.Popen(
                [PYTHON, str(SIMDEVICE / "show.py"), *arguments], env=environment, stdin=subprocess.DEVNULL,
                stdout=file if output is None else output, stderr=subprocess.PIPE, start_new_session=terminal,
                preexec_fn=(lambda: fcntl.ioctl(1, termios.TIOCSCTTY, 0)) if terminal else None)
        started.append(process)
        return process

    yield start
    for process in started:
        process.kill()
        process.wait()
        process.stderr.close()


@pytest.fixture
def output(tmp_path):
    return (tmp_path / "output").read_text


@pytest.fixture
def plant(show):
    """A plant that is up and has two devices."""
    process = show("--no-tour", "--devices", "2")

    def up() -> bool:
        assert process.poll() is None, process.stderr.read()
        return listed_by("kelta-1") == {"kelta-1": "10.77.0.11", "kelta-2": "10.77.0.12"}

    wait_for(up, 30, "the plant is up", lambda: order("table"))
    return process


def order(*arguments: str) -> subprocess.CompletedProcess:
    return subprocess.run([PYTHON, str(SIMDEVICE / "remote.py"), *arguments], stdin=subprocess.DEVNULL,
                          capture_output=True, text=True, timeout=30)


def listed_by(device: str) -> dict:
    lines = order("exec", device, PYTHON, str(SIMDEVICE.parent / "examples" / "list_devices.py")).stdout.splitlines()
    return {line.split()[0]: line.split()[-1] for line in lines}


def test_tour_sees_everything(show, output):
    status = show("--once").wait(150)
    assert status == 0, output()
    seen = re.findall(r"^ *[\d.]+ s  ✓ (.*)$", output(), re.MULTILINE)
    assert seen[:-1] == [
        "The PC has heard all 3 devices.",
        "gssdp-discover has found all 3 devices.",
        "upnpc has found all 3 devices.",
        "The description is that of the device that announced it.",
        "Everybody lists everybody, and itself.",
        "upnpvelorn-browse shows all 3 devices.",
        "upnpvelornctl shows all 3 devices.",
        "First farewell under the old address, then the new one.",
        "With its next announcement the others list kelta-1 at 10.77.0.99.",
        "Everybody lists kelta-4.",
        "kelta-4 has heard all others that have a cable, and lists them.",
        "Everything is right on kelta-2: 19 things were looked at."]
    assert seen[-1].startswith("Nobody else lists kelta-3 any more, ")
    assert "✗" not in output() and "\x1b" not in output()
    assert max(len(line) for line in output().splitlines()) <= 100


def test_tour_fails_with_a_daemon_that_ends(show, output):
    assert show("--once", program="/bin/false").wait(30) == 1
    assert "✗ The daemon of kelta-1 has ended with status 1." in output()
    assert "Everything was seen" not in output()


def test_tour_fails_with_a_daemon_that_is_silent(show, output, tmp_path):
    # Not in tmp_path: that is in /run, of which every sandbox has its own.
    silent = pathlib.Path(default_program()).parent / f"silent-{os.getpid()}"
    silent.write_text("#!/bin/sh\nexec sleep 1000\n")
    silent.chmod(0o755)
    try:
        assert show("--once", program=str(silent)).wait(60) == 1
    finally:
        silent.unlink()
    assert "✗ Not seen: kelta-1 says alive with http://10.77.0.11:8200/rootDesc.xml" in output()


def test_commands_on_the_hosts(plant):
    assert order("exec", "kelta-2", *GET_ADDRESS).stdout.strip() == "10.77.0.12"
    assert order("exec", "kelta-2", "uname", "-n").stdout == "kelta-2\n"
    description = order("exec", "pc", "curl", "--silent", "http://10.77.0.11:8200/rootDesc.xml")
    assert "<friendlyName>kelta-1</friendlyName>" in description.stdout
    assert order("exec", "pc", "sh", "-c", "exit 41").returncode == 41
    assert order("exec", "pc", "no-such-command").returncode == 127


def test_orders_change_the_plant(plant):
    assert order("move", "kelta-2", "10.77.0.80").returncode == 0
    assert order("exec", "kelta-2", *GET_ADDRESS).stdout.strip() == "10.77.0.80"
    wait_for(lambda: listed_by("kelta-1").get("kelta-2") == "10.77.0.80", 20, "the others list the new address")
    assert order("join").stdout == "kelta-3 is switched on, 10.77.0.13.\n"
    wait_for(lambda: listed_by("kelta-1").get("kelta-3") == "10.77.0.13", 20, "the new device is listed")
    fetch = ("exec", "pc", "curl", "--silent", "--max-time", "5", "http://10.77.0.80:8200/rootDesc.xml")
    assert order(*fetch).returncode == 0
    assert order("unplug", "kelta-2").returncode == 0
    assert "kelta-2  no cable" in order("table").stdout
    assert order(*fetch).returncode != 0
    assert order("plug", "kelta-2").returncode == 0
    assert order(*fetch).returncode == 0
    assert "kelta-2  .80 " in order("table").stdout


CANNOT_BE_CARRIED_OUT = [
    (("stop", "pc"), "there is no device 'pc' here; there are: kelta-1, kelta-2"),
    (("unplug", "kelta-9"), "there is no device 'kelta-9' here; there are: kelta-1, kelta-2"),
    (("plug", "kelta-1"), "the cable of kelta-1 is in already"),
    (("move", "kelta-1", "10.77.0.12"), "10.77.0.12 belongs to kelta-2"),
    (("move", "kelta-1", "10.78.0.1"), "'10.78.0.1' is no address of this network; take one of 10.77.0.1 to 10.77.0.254"),
    (("exec", "kelta-9", "true"), "there is no host 'kelta-9' here; there are: pc, kelta-1, kelta-2"),
    (("enter", "kelta-9"), "there is no host 'kelta-9' here; there are: pc, kelta-1, kelta-2"),
    (("start", "kelta-1"), "the daemon of kelta-1 runs already"),
]


def test_orders_that_cannot_be_carried_out(plant):
    for arguments, answer in CANNOT_BE_CARRIED_OUT:
        done = order(*arguments)
        assert (done.returncode, done.stdout, done.stderr) == (1, "", answer + "\n")


def test_a_daemon_is_stopped_and_started(plant, output):
    assert order("stop", "kelta-2").returncode == 0
    assert re.search(r"^kelta-2  ended +│$", order("table").stdout, re.MULTILINE)
    assert order("stop", "kelta-2").stderr == "the daemon of kelta-2 does not run\n"
    assert order("start", "kelta-2").returncode == 0
    wait_for(lambda: listed_by("kelta-2").get("kelta-2") == "10.77.0.12", 20, "the daemon lists itself again")
    wait_for(lambda: re.search(r"say byebye: \S+\s+\d+ times more", output()), what="what was repeated is gathered",
             seen=output)
    assert output().count("hears kelta-2 say byebye") <= 3
    assert output().count("That one has no address in it") == 1


def test_a_daemon_that_ends_by_itself(plant, output):
    assert order("exec", "kelta-2", "sh", "-c", "kill -KILL $(pidof upnpvelorn)").returncode == 0
    wait_for(lambda: "✗ The daemon of kelta-2 has ended with status -9." in output(), what="it is told of", seen=output)
    assert re.search(r"^kelta-2  ended +│$", order("table").stdout, re.MULTILINE)
    assert order("start", "kelta-2").returncode == 0


def test_the_log_of_a_device(plant):
    assert order("log", "kelta-1").stdout.startswith("The daemon of kelta-1 has written nothing.")
    call = ("dbus-send", "--system", "--dest=com.zorv.upnpvelorn", "--print-reply", "/zorvscan")
    assert order("exec", "kelta-1", "ip", "route", "del", "default").returncode == 0
    assert order("exec", "kelta-1", *call, "local.ZorvScan.setupMulticast").returncode == 0
    assert re.fullmatch(r"(join multicast failed: [^\n]+\n)+", order("log", "kelta-1").stdout)


STRANGER = """
import json, socket, sys
made = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
for uuid, ipv4 in json.loads(sys.argv[1]):
    made.sendto(json.dumps({"jsonrpc": "2.0", "method": "announce", "params": {
        "device": {"name": "x\\x1b[31m\\n", "uuid": uuid, "type": "y", "familyType": "z", "firmwareVersion": "1"},
        "netSettings": {"interface": {"ipv4": ipv4}}, "expiration": 22}}).encode(), ("239.255.77.76", 31416))
made.sendto(b"NOTIFY * HTTP/1.1\\r\\nNTS: ssdp:alive\\r\\nLOCATION: a\\x1b]0;b\\x07\\x9bc\\r\\n\\r\\n", ("239.255.255.250", 1900))
"""


def test_strangers_do_no_harm(plant, output):
    announced = [("s1", [{"netmask": "255.0.0.0"}]), ("s2", "10.0.0.1"), ("s3", [1]), ("s4", {"address": "a"}),
                 ("912345702", [{"address": "10.77.0.\x1b[31m\n"}])]
    assert order("exec", "pc", PYTHON, "-c", STRANGER, json.dumps(announced)).returncode == 0
    wait_for(lambda: "The PC hears 10.77.0.5 say alive: a?]0;b??c" in output(), what="the announcement is told of", seen=output)
    wait_for(lambda: re.search(r"^kelta-1  .11 +│ +\.11 +\?", order("table").stdout, re.MULTILINE), what="the address is no address",
             seen=lambda: order("table").stdout)
    assert plant.poll() is None
    assert output().replace("\n", "").isprintable()


def test_only_one_plant_at_a_time(plant, show):
    second = show("--no-tour")
    assert second.wait(30) == 1
    assert second.stderr.read().decode() == (
        f"A plant of yours is running already, process {plant.pid}. End that one with Ctrl-C first.\n")
    assert order("table").returncode == 0


LAST_OF_A_PLANT = """
import os, sys, time
sys.path.insert(0, sys.argv[1])
from simdevice import controlsocket
assert controlsocket.listen()
if os.fork() == 0:
    time.sleep(4)
"""


def test_the_last_of_an_earlier_plant_is_waited_for(show):
    """Its first process is gone, and the kernel still has others of it to end."""
    subprocess.run([PYTHON, "-c", LAST_OF_A_PLANT, str(SIMDEVICE.parent)], check=True)
    process = show("--no-tour", "--devices", "2")
    wait_for(lambda: order("table").returncode == 0, what="the next plant is up", seen=lambda: (process.poll(), order("table")))


ASKED_PLANT = """
import os, select, socket, sys, time
sys.path.insert(0, sys.argv[1])
from simdevice import controlsocket
assert controlsocket.listen()
listening = socket.socket(fileno=int(os.environ["SIMDEVICE_CONTROL_SOCKET"]))
print("listens", flush=True)
select.select([listening], [], [])
if sys.argv[2] != "not accepted":
    caller = listening.accept()[0]
    caller.recv(1000)
    caller.close()
    time.sleep(0.2 if sys.argv[2] == "accepted" else 60)
"""


@pytest.mark.parametrize("what, said", [
    ("not accepted", "No plant of yours is running. Start one in another terminal:  ./run\n"),
    ("accepted", "No plant of yours is running. Start one in another terminal:  ./run\n"),
    ("lives", "The plant does not answer.\n"),
])
def test_a_plant_that_ends_when_it_is_asked_does_not_run_any_more(what, said):
    with subprocess.Popen([PYTHON, "-c", ASKED_PLANT, str(SIMDEVICE.parent), what], stdout=subprocess.PIPE) as plant:
        assert plant.stdout.readline() == b"listens\n"
        try:
            assert order("table").stderr == said
        finally:
            plant.kill()


def test_nobody_reads(show):
    reading, writing = os.pipe()
    os.close(reading)
    process = show("--no-tour", "--devices", "2", output=writing)
    os.close(writing)
    assert process.wait(30) == 1
    assert process.stderr.read() == b"Nobody reads the output any more: switched off.\n"


@pytest.mark.parametrize("seconds", [0.2, 0.7, 1.2])
def test_ctrl_c_on_a_terminal(show, seconds):
    """Wherever the start has come to: no part of the plant has a last word."""
    terminal, end = pty.openpty()
    process = show("--no-tour", "--devices", "8", output=end, terminal=True)
    os.close(end)
    select.select([], [], [], seconds)
    os.write(terminal, b"\x03")
    assert process.wait(30) in (0, 128 + signal.SIGINT, -signal.SIGINT)
    assert b"Traceback" not in everything(terminal)
    assert process.stderr.read() == b""


def test_no_word_is_broken_on_80_columns(show):
    terminal, end = pty.openpty()
    fcntl.ioctl(end, termios.TIOCSWINSZ, struct.pack("HHHH", 50, 80, 0, 0))
    process = show("--no-tour", "--devices", "7", output=end, terminal=True)
    os.close(end)
    wait_for(lambda: "x x x x x x x" in order("table").stdout, 30, "the plant is up", lambda: order("table").stdout)
    os.write(terminal, b"\x03")
    assert process.wait(30) == 0
    lines = re.sub(rb"\x1b\[[0-9;]*[a-zA-Z]", b"", everything(terminal)).decode().splitlines()
    assert max(map(len, lines)) <= 79
    assert not [line for line in lines if "…" in line]
    assert "Switching on device 7 of 7" in lines
    assert any(line.endswith("\\") and len(line) > 60 for line in lines), "the command that is too long for one line"


def everything(terminal: int) -> bytes:
    """What has been written to a terminal that nobody has open any more."""
    text = b""
    with contextlib.suppress(OSError):
        while piece := os.read(terminal, 65536):
            text += piece
    os.close(terminal)
    return text


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGKILL])
def test_nothing_is_left(plant, number):
    plant.send_signal(number)
    plant.wait(30)
    # Everybody in the plant holds the pipe: it ends when the last of them is gone.
    ready, _, _ = select.select([plant.stderr], [], [], 30)
    assert ready and plant.stderr.read() == b""
    assert order("table").stderr == "No plant of yours is running. Start one in another terminal:  ./run\n"
