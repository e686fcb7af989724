"""The demonstration, started as ./run starts it, in a sandbox of its own. It checks by itself what it tells of."""

import os
import pathlib
import select
import signal
import subprocess

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

    def start(*arguments: str, program: str = None) -> subprocess.Popen:
        environment = {**os.environ, "UPNPVELORN": program or default_program()}
        del environment["SIMDEVICE_SANDBOX"]
        with open(tmp_path / "output", "w") as output:
            process = subprocess.Popen([PYTHON, str(SIMDEVICE / "show.py"), *arguments], env=environment,
                                       stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.PIPE)
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
    seen = [line.split("✓ ", 1)[1] for line in output().splitlines() if "✓" in line]
    assert seen[:-1] == [
        "The PC has heard all 3 devices.",
        "gssdp-discover has found all 3 devices.",
        "upnpc has found all 3 devices.",
        "The description is that of the device that announced it.",
        "Everybody lists everybody, and itself.",
        "First farewell under the old address, then the new one.",
        "With its next announcement the others list kelta-1 at 10.77.0.99.",
        "Everybody lists kelta-4.",
        "kelta-4 has heard all others that have a cable, and lists them."]
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


@pytest.mark.parametrize("arguments, answer", [
    (("unplug", "kelta-9"), "there is no 'kelta-9' here; there are: kelta-1, kelta-2"),
    (("plug", "kelta-1"), "the cable of kelta-1 is in already"),
    (("move", "kelta-1", "10.77.0.12"), "10.77.0.12 belongs to kelta-2"),
    (("move", "kelta-1", "10.78.0.1"), "'10.78.0.1' is no address of this network; take one of 10.77.0.1 to 10.77.0.254"),
    (("exec", "kelta-9", "true"), "there is no 'kelta-9' here; there are: kelta-1, kelta-2"),
])
def test_orders_that_cannot_be_carried_out(plant, arguments, answer):
    done = order(*arguments)
    assert (done.returncode, done.stderr) == (1, answer + "\n")


def test_only_one_plant_at_a_time(plant, show):
    second = show("--no-tour")
    assert second.wait(10) == 1
    assert second.stderr.read() == b"A plant of yours is running already. End that one with Ctrl-C first.\n"
    assert order("table").returncode == 0


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGKILL])
def test_nothing_is_left(plant, number):
    plant.send_signal(number)
    plant.wait(10)
    # Everybody in the plant holds the pipe: it ends when the last of them is gone.
    ready, _, _ = select.select([plant.stderr], [], [], 10)
    assert ready and plant.stderr.read() == b""
    assert order("table").stderr == "No plant of yours is running. Start one in another terminal:  ./run\n"
