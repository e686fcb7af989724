"""The system bus is restarted while the daemon is starting."""

import pathlib
import re
import select

import pytest

from serving import GET
from simdevice.device import BUS_NAME
from simdevice.waiting import wait_for
from test_bus_restart import LOST
from texts import ANSWER, DESCRIPTION
from wirebytes import compare_bytes

NOT_SUBSCRIBED = "connman signal connect failed"


def has_subscribed_to_connman(device) -> bool:
    rules = device.bus.call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus.Debug.Stats", "GetAllMatchRules")
    return any("interface='net.connman.Service'" in rule for rules_of_one in rules.values() for rule in rules_of_one)


def is_waiting(device) -> bool:
    """Whether the daemon's main thread sleeps all through a fifth of a second."""
    seen = set()
    for _ in range(20):
        status = pathlib.Path(f"/proc/{device.pid}/status").read_text()
        seen.add((re.search(r"^State:\s+(\S)", status, re.M)[1], re.search(r"^voluntary_ctxt_switches:\s+(\d+)", status, re.M)[1]))
        select.select([], [], [], 0.01)
    return len(seen) == 1 and seen.pop()[0] == "S"


def restart_bus_while_it_asks(device, member: str) -> None:
    """Starts the daemon, and the bus again while the configuration service owes it an answer."""
    device.fwconfig.behave("held", member)
    device.start(wait=False)
    wait_for(lambda: device.fwconfig.calls_of(member), what=f"{member} is asked for")
    if member == "/systemvariables.get":
        wait_for(lambda: has_subscribed_to_connman(device) and is_waiting(device), what="it has nothing left but to wait")
    device.bus.stop()
    device.fwconfig.behave("normal")
    device.bus.start()
    device.fwconfig.start()


@pytest.mark.parametrize("member", ["/systemvariables.get", "/network.GetAll"])
def test_it_comes_back_with_its_name_and_its_identity(start_device, peer, member):
    device = start_device(daemon="off")
    restart_bus_while_it_asks(device, member)
    device.bus.wait_for_name(BUS_NAME)
    device.wait_until_ready()
    assert device.bus.pid_of(BUS_NAME) == device.pid
    compare_bytes(peer.search()[0].data, ANSWER)
    compare_bytes(peer.http_raw(GET), DESCRIPTION)
    assert device.syslog.texts.count(LOST) == 1


@pytest.mark.parametrize("member", ["/fwversion.Get", "/systemconstants.get"])
def test_before_connman_is_subscribed_to_it_ends_with_a_line(start_device, member):
    device = start_device(daemon="off")
    restart_bus_while_it_asks(device, member)
    device.wait_for_exit()
    assert [line.text for line in device.syslog.lines if line.level <= 2] == [NOT_SUBSCRIBED]
    assert "pending" not in device.output
    device.start()
