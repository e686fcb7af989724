"""The examples, run against real daemons: what integrators copy has to work."""

import json
import os
import pathlib
import re
import signal
import subprocess

import pytest
import shortlived

from scanning import announcing
from simdevice.device import default_program
from simdevice.sandbox import PYTHON
from simdevice.waiting import wait_for

EXAMPLES = pathlib.Path(os.environ.get("UPNPVELORN_EXAMPLES") or pathlib.Path(__file__).resolve().parent.parent.parent / "examples")
COMPILED = pathlib.Path(default_program()).parent / "examples" / "list_devices"


def announcement(name: str, serial: str, address: str, expiration: int) -> bytes:
    """What another device of the family sends."""
    return json.dumps({"jsonrpc": "2.0", "method": "announce", "params": {
        "device": {"name": name, "uuid": serial, "type": "Kelta", "familyType": "Kelta", "firmwareVersion": "2.0"},
        "netSettings": {"interface": {"name": "eth0", "ipv4": [{"address": address, "netmask": "255.255.255.0"}]}},
        "expiration": expiration}}).encode()


def on(host, command: list, bus: str = "") -> subprocess.CompletedProcess:
    return host.command(command, env=shortlived.environment(DBUS_SYSTEM_BUS_ADDRESS=bus), check=False, timeout=20)


@pytest.mark.parametrize("command", [[PYTHON, str(EXAMPLES / "list_devices.py")], [str(COMPILED)]],
                         ids=["python", "cpp"])
def test_list_devices(device, peer, command):
    if command == [str(COMPILED)] and not COMPILED.exists():
        pytest.skip("the C++ example is not built (BUILD_EXAMPLES)")
    device.fwconfig.set(constants={"SERIALNUMBER": "912345678"})
    device.restart()
    peer.announce(announcement("visitor", "0815", "10.77.0.50", 22))
    rows = [["kelta", "912345678", "Kelta", "1.4.2", "10.77.0.2"], ["visitor", "0815", "Kelta", "2.0", "10.77.0.50"]]

    def output() -> list:
        return sorted(line.split() for line in on(device.host, command, device.bus.address).stdout.splitlines())

    wait_for(lambda: output() == rows, what=f"the output {rows}", seen=output)


@pytest.mark.parametrize("command", [[PYTHON, str(EXAMPLES / "list_devices.py")], [str(COMPILED)]],
                         ids=["python", "cpp"])
def test_list_devices_says_that_the_daemon_is_missing(start_device, command):
    if command == [str(COMPILED)] and not COMPILED.exists():
        pytest.skip("the C++ example is not built (BUILD_EXAMPLES)")
    device = start_device(daemon="off")
    done = on(device.host, command, device.bus.address)
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr.startswith("The daemon does not answer: ")


# Names, types and addresses come from strangers.

# What a terminal would obey, and what parts lines or turns them around. Zero never gets as far as the bus.
CONTROLS = [*range(0x01, 0x20), *range(0x7f, 0xa0), 0x061c, 0x200e, 0x200f, *range(0x2028, 0x202f), *range(0x2066, 0x206a)]
STRANGE_INTERFACES = ["{}", '{"ipv4":[{"netmask":"255.0.0.0"}]}', '{"ipv4":"10.0.0.1"}', '{"ipv4":7}', '{"ipv4":true}',
                      '{"ipv4":{"address":"10.0.0.1"}}', '{"ipv4":["10.0.0.1",1.5,[],[[{}]],{},{"address":{"a":[]}}]}',
                      '{"ipv4":[{"address":1},{"address":["a"]},{"address":null},{"address":""}]}', '{"name":[1],"uuid":{}}',
                      '{"ipv4":[[{"address":"a"}],{"address":"10.9.9.9"}]}', "[]", '"eth0"']


@pytest.fixture
def strangers(device, peer):
    """A device that lists whatever a stranger announces of itself. Returns how many there are, itself included."""
    hostile = "".join(map(chr, CONTROLS))
    announcements = [announcing(f"s-{number}", raw=raw) for number, raw in enumerate(STRANGE_INTERFACES)]
    announcements.append(announcing("\x1b[2J\n\u202e", name=f"x{hostile}x", family=hostile,
                                    raw=json.dumps({"ipv4": [{"address": hostile}]})))
    announcements.append(b'{"jsonrpc":"2.0","method":"announce","params":{"device":{"uuid":"bare"},"expiration":22}}')
    for one in announcements:
        peer.announce(one)

    def known() -> int:
        return len(device.call("allChilds", "", path="/zorvscan", interface="local.ZorvScan"))

    wait_for(lambda: known() == len(announcements) + 1, what="all strangers are listed", seen=known)
    return known()


def harmless(text: str) -> bool:
    return not set(map(ord, text)) & set(CONTROLS) - {ord("\n")}


@pytest.mark.parametrize("command", [[PYTHON, str(EXAMPLES / "list_devices.py")], [str(COMPILED)]],
                         ids=["python", "cpp"])
@pytest.mark.parametrize("locale", ["C.UTF-8", "C"])
def test_list_devices_among_strangers(device, strangers, command, locale):
    if command == [str(COMPILED)] and not COMPILED.exists():
        pytest.skip("the C++ example is not built (BUILD_EXAMPLES)")
    done = on(device.host, ["env", f"LC_ALL={locale}", *command], device.bus.address)
    assert (done.returncode, done.stderr) == (0, "")
    assert harmless(done.stdout), repr(done.stdout)
    assert len(done.stdout.split("\n")) == strangers + 1
    assert any(line.split()[0] == f"x{'?' * len(CONTROLS)}x" for line in done.stdout.splitlines())
    assert "10.9.9.9" in done.stdout


def test_text_that_the_terminal_cannot_show(device, peer):
    peer.announce(announcing("foreign", name="\u20ac\U0001f4a9"))
    command = ["env", "PYTHONIOENCODING=ascii", PYTHON, str(EXAMPLES / "list_devices.py")]
    wait_for(lambda: "foreign" in on(device.host, command, device.bus.address).stdout, what="the device is listed")
    assert on(device.host, command, device.bus.address).stdout.splitlines()[1].split()[:2] == ["??", "foreign"]


@pytest.mark.parametrize("command", [[PYTHON, str(EXAMPLES / "list_devices.py")], [str(COMPILED)]],
                         ids=["python", "cpp"])
def test_characters_beyond_16_bits(device, peer, command):
    if command == [str(COMPILED)] and not COMPILED.exists():
        pytest.skip("the C++ example is not built (BUILD_EXAMPLES)")
    peer.announce(announcing("foreign", name="a\U0001d11eb\U0001d11e", raw="{}"))
    in_utf8 = ["env", "LC_ALL=C.UTF-8", *command]

    def names() -> set:
        return {line.split()[0] for line in on(device.host, in_utf8, device.bus.address).stdout.splitlines()}

    wait_for(lambda: names() == {"kelta", "a\U0001d11eb\U0001d11e"}, what="the device is listed under its name", seen=names)


def test_watch_devices_among_strangers(device, strangers, watch):
    watching = watch(device)
    wait_for(lambda: len(watching.lines()) >= strangers, what="all are told of", seen=watching.lines)
    assert harmless(watching.text()), repr(watching.text())
    assert len(watching.lines()) == strangers
    assert watching.process.poll() is None


def test_search_among_strangers(peer, lan):
    stranger = lan.host(addresses=["10.77.0.66/24"])
    with stranger.inside():
        listening = subprocess.Popen([PYTHON, "-c", STRANGE_ANSWERS], stdout=subprocess.PIPE)
    try:
        assert listening.stdout.readline() == b"ready\n"
        done = on(peer.host, [PYTHON, str(EXAMPLES / "search.py")])
    finally:
        listening.kill()
        listening.wait()
        listening.stdout.close()
    assert (done.returncode, done.stderr) == (0, "")
    assert harmless(done.stdout), repr(done.stdout)
    assert sorted(done.stdout.splitlines()) == ["?   ", "http://a?[31m/?   x?y"]


STRANGE_ANSWERS = """
import socket, struct
made = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
made.bind(("239.255.255.250", 1900))
member = struct.pack("4s4si", socket.inet_aton("239.255.255.250"), bytes(4), socket.if_nametoindex("eth0"))
made.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP, member)
print("ready", flush=True)
peer = made.recvfrom(2000)[1]
for answer in (b"", b"\\xff\\xfe", b"HTTP/1.1 200 OK\\r\\nLOCATION: http://a\\x1b[31m/\\xe2\\x80\\xae\\r\\nSERVER: x\\x7fy\\r\\n\\r\\n"):
    made.sendto(answer, peer)
made.recv(2000)
"""


# A sentence instead of a traceback

def on_nobodys_terminal(host, command: list, bus: str = "") -> subprocess.CompletedProcess:
    """The output is a pipe that nobody reads any more."""
    reading, writing = os.pipe()
    os.close(reading)
    try:
        return host.command(command, env=shortlived.environment(DBUS_SYSTEM_BUS_ADDRESS=bus), check=False, timeout=20,
                            capture_output=False, text=True, stdout=writing, stderr=subprocess.PIPE)
    finally:
        os.close(writing)


@pytest.mark.parametrize("program", ["list_devices.py", "watch_devices.py", "search.py"])
def test_nobody_reads(device, peer, program):
    host = peer.host if program == "search.py" else device.host
    done = on_nobodys_terminal(host, [PYTHON, str(EXAMPLES / program)], device.bus.address)
    assert (done.returncode, done.stderr) == (-signal.SIGPIPE, "")


@pytest.mark.parametrize("command, sentence", [
    ([PYTHON, str(EXAMPLES / "list_devices.py")], "The daemon does not answer: "),
    ([str(COMPILED)], "The daemon does not answer: "),
    ([PYTHON, str(EXAMPLES / "watch_devices.py")], "There is no system bus: ")], ids=["list", "cpp", "watch"])
def test_there_is_no_bus(peer, command, sentence):
    if command == [str(COMPILED)] and not COMPILED.exists():
        pytest.skip("the C++ example is not built (BUILD_EXAMPLES)")
    done = on(peer.host, command, "unix:path=/nowhere")
    assert (done.returncode, done.stdout) == (1, "")
    assert re.fullmatch(f"{sentence}[^\n]+\n", done.stderr)


def test_search_without_a_route(peer):
    peer.host.no_default_route()
    done = on(peer.host, [PYTHON, str(EXAMPLES / "search.py")])
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr == "The network cannot be searched: Network is unreachable\n"


@pytest.mark.parametrize("program, status", [("watch_devices.py", 0), ("search.py", -signal.SIGINT)])
def test_ctrl_c(device, peer, ssdp, program, status):
    host = peer.host if program == "search.py" else device.host
    started = subprocess.Popen(["nsenter", f"--net={host.path}", "--", PYTHON, str(EXAMPLES / program)],
                               stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                               env={**os.environ, "DBUS_SYSTEM_BUS_ADDRESS": device.bus.address})
    if program == "search.py":
        ssdp.wait_for(b"M-SEARCH")
    else:
        assert "+ kelta" in started.stdout.readline()
    started.send_signal(signal.SIGINT)
    _, errors = started.communicate(timeout=10)
    assert (started.returncode, errors) == (status, "")


class Watching:
    """examples/watch_devices.py on a device."""

    def __init__(self, device, folder):
        self._output, self._errors = folder / "output", folder / "errors"
        with open(self._output, "w") as output, open(self._errors, "w") as errors:
            self.process = subprocess.Popen(
                ["nsenter", f"--net={device.host.path}", "--", PYTHON, str(EXAMPLES / "watch_devices.py")],
                stdin=subprocess.DEVNULL, stdout=output, stderr=errors,
                env={**os.environ, "DBUS_SYSTEM_BUS_ADDRESS": device.bus.address})

    def text(self) -> str:
        return self._output.read_text(encoding="utf-8")

    def lines(self) -> list:
        """Without the time of day."""
        return [line.split(" ", 1)[1] for line in self.text().split("\n")[:-1]]

    def errors(self) -> str:
        return self._errors.read_text()


@pytest.fixture
def watch(tmp_path):
    started = []

    def start(device) -> Watching:
        started.append(Watching(device, tmp_path))
        return started[-1]

    yield start
    for one in started:
        one.process.kill()
        one.process.wait()


def test_watch_devices(device, peer, watch):
    seen = watch(device).lines
    wait_for(lambda: seen() == ["+ kelta 10.77.0.2"], what="the device itself", seen=seen)
    peer.announce(announcement("visitor", "0815", "10.77.0.50", 0))
    wait_for(lambda: seen()[1:] == ["+ visitor 10.77.0.50"], what="the visitor comes", seen=seen)
    # The daemon looks for what has expired every ten seconds, and whole seconds count.
    wait_for(lambda: seen()[2:] == ["- visitor 10.77.0.50"], 25, what="the visitor goes", seen=seen)


def test_watch_devices_waits_for_the_daemon_and_ends_with_the_bus(start_device, watch):
    device = start_device(daemon="off")
    watching = watch(device)
    wait_for(watching.lines, what="the daemon is missed", seen=watching.errors)
    assert watching.lines()[0].startswith("The daemon does not answer: ")
    device.start()
    wait_for(lambda: watching.lines()[1:] == ["+ kelta 10.77.0.2"], what="the device itself", seen=watching.lines)
    device.bus.stop()
    assert wait_for(lambda: watching.process.poll() is not None, what="it ends", seen=watching.errors)
    assert (watching.process.returncode, watching.errors()) == (1, "The system bus has gone.\n")


def test_search(device, peer):
    done = on(peer.host, [PYTHON, str(EXAMPLES / "search.py")])
    assert done.stdout == "http://10.77.0.2:8200/rootDesc.xml   Kelta/1.4.2, UPnP/1.0\n"
    assert done.returncode == 0


def test_search_without_an_answer(peer):
    done = on(peer.host, [PYTHON, str(EXAMPLES / "search.py")])
    assert (done.returncode, done.stdout) == (1, "Nobody has answered.\n")
