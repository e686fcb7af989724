"""upnpvelornctl check: a healthy device, and faults that it finds."""

import contextlib
import re
import subprocess

import pytest

from controlling import Ctl, runs_here
from scanning import scan, wait_for_device
from simdevice.sandbox import PYTHON

pytestmark = runs_here

NAMES = ["bus name com.zorv.upnpvelorn", "configuration service", "connman", "object /settings", "serial number", "firmware version",
         "host name", "UDP port 1900", "UDP port 31416", "TCP port 8200", "group 239.255.255.250", "group 239.255.77.76",
         "network interface eth0", "address of the daemon", "MAC address", "description", "icon", "list of devices", "announcement"]


def check(device) -> tuple:
    """Status, and mark and text of each line by its name."""
    done = Ctl(device).run("check")
    return result(done.returncode, done.stdout, done.stderr)


def check_without_waiting(device) -> tuple:
    """The same, with a daemon that is told to announce itself again and again."""
    with Ctl(device).start("check") as running:
        while True:
            scan(device, "sendAnnouncement")
            with contextlib.suppress(subprocess.TimeoutExpired):
                output, errors = running.communicate(timeout=0.2)
                return result(running.returncode, output, errors)


def result(status: int, output: str, errors: str) -> tuple:
    assert errors == ""
    lines = [re.fullmatch(r"([✓✗–]) ([^:]+): (.*)", line) for line in output.splitlines()]
    return status, {found[2]: (found[1], found[3]) for found in lines}


def wrong(lines: dict) -> set:
    return {name for name, (mark, _) in lines.items() if mark == "✗"}


def test_healthy(device):
    wait_for_device(device, "KM-2044817")
    status, lines = check(device)
    assert (status, list(lines), {mark for mark, _ in lines.values()}) == (0, NAMES, {"✓"})
    assert lines["address of the daemon"] == ("✓", "10.77.0.2")
    assert lines["icon"] == ("✓", "a PNG of 48 x 48 pixels")


def test_no_daemon(start_device):
    status, lines = check(start_device(daemon="off"))
    assert status == 1
    assert wrong(lines) == {"bus name com.zorv.upnpvelorn", "UDP port 1900", "UDP port 31416", "TCP port 8200",
                            "group 239.255.255.250", "group 239.255.77.76", "description", "icon"}
    assert lines["bus name com.zorv.upnpvelorn"][1].startswith("has no owner on the bus; the daemon has it")
    assert lines["UDP port 1900"][1].startswith("no socket is bound to it; the daemon has it")
    assert lines["description"][1].startswith("not served: Connection refused; the daemon serves it")
    assert lines["announcement"][0] == "–"


def fault_no_service(start_device):
    return start_device(fwconfig=False)


def fault_no_icon(start_device):
    device = start_device()
    device.set_icon(None)
    return device


def fault_other_icon(start_device):
    device = start_device()
    device.set_icon(b"GIF89a" + bytes(100))
    return device


def fault_other_address(start_device):
    device = start_device()
    device.host.command(["ip", "address", "del", "10.77.0.2/24", "dev", "eth0"])
    device.host.add_address("10.77.0.99/24")
    device.host.command(["ip", "route", "replace", "default", "dev", "eth0"])
    return device


def fault_new_name(start_device):
    device = start_device()
    subprocess.run([*device.room.prefix, "hostname", "another"], check=True)  # the daemon is told of writes to the file only
    return device


def fault_port_taken(start_device):
    device = start_device(daemon="off")
    with device.host.inside():
        taken = subprocess.Popen([PYTHON, "-c", "import socket; s = socket.create_server(('127.0.0.1', 8200)); print(flush=True); s.accept()"],
                                 stdout=subprocess.PIPE)
    taken.stdout.readline()
    device.start(wait=False)
    device.wait_until_ready(http=False)
    device.taken = taken
    return device


def fault_no_multicast_route(start_device):
    device = start_device(daemon="off")
    device.host.no_default_route()
    device.start()
    return device


FAULTS = [
    (fault_no_service, {"configuration service", "serial number", "firmware version", "host name"}, "serial number", "none; a healthy device has one"),
    (fault_no_icon, {"icon"}, "icon", "not found; a healthy device has a PNG of 48 x 48 pixels at /var/www/icons/kelta_icon48.png"),
    (fault_other_icon, {"icon"}, "icon", "no PNG; "),
    (fault_other_address, {"address of the daemon"}, "address of the daemon",
     "10.77.0.2; eth0 has 10.77.0.99; tell the daemon: upnpvelornctl reconfigure"),
    (fault_new_name, {"host name"}, "host name", "kelta; the kernel has another"),
    (fault_port_taken, {"TCP port 8200"}, "TCP port 8200", "127.0.0.1 of "),
    (fault_no_multicast_route, {"group 239.255.77.76", "announcement", "list of devices"}, "announcement",
     "cannot be listened for: No such device; there has to be a route for multicast"),
]


@pytest.mark.parametrize("plant, expected, name, text", FAULTS, ids=[one[0].__name__[6:] for one in FAULTS])
def test_fault(start_device, plant, expected, name, text):
    device = plant(start_device)
    if "list of devices" not in expected and "serial number" not in expected:
        wait_for_device(device, "KM-2044817")
    try:
        status, lines = check_without_waiting(device)
    finally:
        if hasattr(device, "taken"):
            device.taken.kill()
            device.taken.communicate()
    assert status == 1
    assert lines[name][1].startswith(text), lines[name]
    assert expected <= wrong(lines) <= expected | {"description", "icon", "list of devices", "announcement"}, lines


def test_progress_on_a_terminal(device):
    shown = Ctl(device).on_terminal("check")
    assert "\x1b[32m✓\x1b[0m bus name" in shown
    assert "Waiting for the device's announcement, 0 of at most 11 s" in shown
    plain = Ctl(device).on_terminal("check", NO_COLOR="1")
    assert "\r✓" in plain or "\n✓ bus name" in plain or plain.startswith("✓")


def test_without_connman_nothing_is_wrong(start_device):
    device = start_device(connman=False)
    device.call("configureIp")
    wait_for_device(device, "KM-2044817")
    status, lines = check_without_waiting(device)
    assert (status, lines["connman"][0]) == (0, "–")
