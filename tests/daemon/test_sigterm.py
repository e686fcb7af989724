"""SIGTERM: byebye without end, and the daemon lives on."""

import signal

import pytest

from simdevice.device import ADDRESS, BUS_NAME
from simdevice.waiting import wait_for
from texts import (ALIVE, ANSWER, AUTOIP, BYEBYE, BYEBYE_AUTOIP, DESCRIPTION, expect_notifies, notifies, replaced)
from wirebytes import compare_bytes

DESCRIPTION_REQUEST = b"GET /rootDesc.xml HTTP/1.1\r\n\r\n"


def still_works(device, peer) -> None:
    compare_bytes(peer.search()[0].data, ANSWER)
    compare_bytes(peer.http_raw(DESCRIPTION_REQUEST), DESCRIPTION)
    assert device.call("getUdpPort") == 1900
    assert device.running


def test_byebye_is_repeated_without_end(ssdp, device):
    expect_notifies(ssdp, replaced(ALIVE, address=""), ALIVE)
    device.terminate()
    for _ in range(3):
        for datagram in ssdp.wait_for(b"NOTIFY", count=20):
            compare_bytes(datagram.data, BYEBYE)
        ssdp.clear()
    assert device.running


def test_byebye_for_both_addresses_in_turn(start_device, ssdp):
    device = start_device(addresses=[f"{ADDRESS}/24", f"{AUTOIP}/16"])
    ssdp.wait_for(b"ssdp:alive", count=3)
    ssdp.clear()
    device.terminate()
    ssdp.wait_for(b"NOTIFY", count=20)
    for position, text in enumerate(notifies(ssdp)[:20]):
        compare_bytes(text, BYEBYE_AUTOIP if position % 2 else BYEBYE)


def test_everything_is_answered_in_between(device, peer):
    device.terminate()
    for _ in range(10):
        still_works(device, peer)
    assert device.syslog.lines == []


def test_changes_are_announced_in_between(ssdp, device):
    expect_notifies(ssdp, replaced(ALIVE, address=""), ALIVE)
    device.terminate()
    ssdp.wait_for(b"ssdp:byebye")
    device.connman.ipv4("10.0.0.5")
    alive = [datagram.data for datagram in ssdp.wait_for(b"NTS:ssdp:alive")]
    assert len(alive) == 1
    compare_bytes(alive[0], replaced(ALIVE, address="10.0.0.5"))
    ssdp.clear()
    for datagram in ssdp.wait_for(b"NOTIFY", count=20):
        compare_bytes(datagram.data, replaced(BYEBYE, address="10.0.0.5"))


def test_a_thousand_times_is_no_different(device, peer):
    for _ in range(1000):
        device.terminate()
    still_works(device, peer)


def test_a_hundred_thousand_times_is_no_different(device, peer):
    """More than the bytes that a pair of sockets holds."""
    for _ in range(100_000):
        device.terminate()
    still_works(device, peer)


def test_only_sigkill_ends_it(device, peer):
    device.terminate()
    still_works(device, peer)
    device.signal(signal.SIGKILL)
    assert device.wait_for_exit() == -signal.SIGKILL


def test_a_new_daemon_starts_after_the_killed_one(device, peer):
    device.terminate()
    still_works(device, peer)
    device.restart()
    still_works(device, peer)


@pytest.mark.parametrize("held", [
    pytest.param("/systemvariables.get", id="while the UUID is awaited"),
    pytest.param("/network.GetAll", id="while the network is asked for"),
])
def test_before_the_event_loop_sigterm_ends_the_daemon(start_device, held):
    device = start_device(daemon="off")
    device.fwconfig.behave("held", held)
    device.start(wait=False)
    wait_for(lambda: device.fwconfig.calls_of(held), what=f"{held} is called")
    device.terminate()
    assert device.wait_for_exit() == -signal.SIGTERM
    wait_for(lambda: not device.bus.owner(BUS_NAME), what="the name is free")


def test_other_signals_keep_their_meaning(start_device):
    device = start_device()
    device.signal(signal.SIGINT)
    assert device.wait_for_exit() == -signal.SIGINT
