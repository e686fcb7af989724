"""The wall clock jumps. Timers follow another clock, but how long a device stays known is measured by this one."""

import datetime
import time

import pytest

from clocks import WallClock, needs_clocks
from scanning import SERIAL, announcing, everything_so_far, is_alive, summaries, wait_for_device
from serving import GET
from simdevice.device import ADDRESS
from simdevice.waiting import wait_for
from texts import ANSWER, DESCRIPTION
from wirebytes import compare_bytes, date_in

DAY = 24 * 60 * 60

pytestmark = needs_clocks


@pytest.fixture
def clock(tmp_path):
    return WallClock(tmp_path)


def next_tick(listener) -> None:
    """The device's announcement goes out at each look for expired devices, every ten seconds."""
    listener.clear()
    listener.wait_for(SERIAL.encode(), seconds=15)


def still_works(device, peer) -> None:
    compare_bytes(peer.search()[0].data, ANSWER)
    compare_bytes(peer.http_raw(b"GET /rootDesc.xml HTTP/1.1\r\n\r\n"), DESCRIPTION)
    assert is_alive(device)


def test_dates_follow_the_clock_wherever_it_goes(start_device, peer, clock):
    device = start_device(program=str(clock.program))
    ssdp = peer.listen_ssdp()

    def alive() -> bytes:
        ssdp.clear()
        device.connman.ipv4(ADDRESS)
        return ssdp.wait_for(b"ssdp:alive")[0].data

    for ahead in (0, DAY, -DAY, 0):
        clock.set(ahead)
        for message in (lambda: peer.search()[0].data, lambda: peer.http_raw(GET), alive):
            earliest = datetime.datetime.now().replace(microsecond=0)
            date = date_in(message()) - datetime.timedelta(seconds=ahead)
            assert earliest <= date <= datetime.datetime.now()


def test_a_day_forwards_forgets_everybody_until_the_next_announcement(start_device, peer, clock):
    device = start_device(program=str(clock.program))
    listener = peer.listen_announcements()
    peer.announce(announcing("good"))
    peer.announce(announcing("lasting", DAY))
    wait_for_device(device, "good")
    wait_for_device(device, "lasting")
    clock.set(DAY)
    next_tick(listener)
    wait_for_device(device, SERIAL)
    assert set(everything_so_far(device, peer)) == {SERIAL, "lasting"}
    peer.announce(announcing("good"))
    wait_for_device(device, "good")
    still_works(device, peer)


def test_a_day_backwards_keeps_the_silent_until_the_clock_is_there_again(start_device, peer, clock):
    device = start_device(program=str(clock.program))
    listener = peer.listen_announcements()
    for uuid in ("silent", "refreshed"):
        peer.announce(announcing(uuid, 1))
        wait_for_device(device, uuid)
    clock.set(-DAY)
    peer.announce(announcing("refreshed", 1))
    refreshed = time.monotonic()
    everything_so_far(device, peer)
    wait_for(lambda: time.monotonic() - refreshed > 4, what="three seconds are over")
    next_tick(listener)
    wait_for(lambda: "refreshed" not in summaries(device), what="who announced since the jump is gone in time")
    assert "silent" in summaries(device)
    still_works(device, peer)
    clock.set(0)
    next_tick(listener)
    wait_for(lambda: "silent" not in summaries(device), what="the silent one is gone")
    still_works(device, peer)
