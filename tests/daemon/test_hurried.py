"""What takes the daemon a minute or an hour, with a daemon whose time goes faster."""

import datetime

import pytest

from clocks import hurried_program, needs_clocks
from scanning import announcing, is_alive, wait_for_device
from simdevice.device import BUS_NAME
from simdevice.waiting import wait_for
from test_bus_restart import GET, bring_back, serves, take_away
from test_hostile_flood import FOREVER, LARGE, MOST_BYTES, WARNING, all_read, large
from texts import has_joined

pytestmark = needs_clocks
TIMEOUT = 90  # seconds; short waits are not hurried, so on a busy machine a daemon's time goes slower


def test_it_waits_a_minute_for_the_configuration_service_and_then_comes_back_without(start_device, peer, tmp_path):
    device = start_device(program=hurried_program(tmp_path, 20))
    take_away(device)
    bring_back(device, fwconfig=False)
    device.bus.wait_for_name(BUS_NAME, TIMEOUT)
    # It looks every second, each time with a connection of its own, and the bus counts these: ":1.<number>".
    assert 60 <= int(device.bus.owner(BUS_NAME).split(".")[1]) <= 70
    device.wait_until_ready()
    # What the service alone knows, serial number and version, is empty; the host's name and address are not.
    assert len(peer.search("ssdp:all")) == 1
    assert b"<serialNumber></serialNumber>" in peer.http_raw(GET)
    assert device.call("getServerHeader") == b"Kelta/, UPnP/1.0"
    assert is_alive(device)


def test_it_joins_the_group_of_searches_with_its_timer(start_device, peer, tmp_path):
    device = start_device(program=hurried_program(tmp_path, 100), interface=None)
    device.syslog.wait_for_text("setsockopt: interface invalid", count=2, seconds=TIMEOUT)
    device.host.add_interface("eth0", ["10.77.0.2/24"])
    wait_for(lambda: has_joined(device), TIMEOUT, what="it has joined")
    assert len(peer.search("ssdp:all")) == 1
    joined = len(device.syslog.texts)
    peer.listen_ssdp().wait_for(b"ssdp:alive", count=2, seconds=TIMEOUT)
    assert len(device.syslog.texts) == joined


@pytest.mark.parametrize("announcements", [2, 9])
def test_a_bus_that_stays_away_for_a_while_is_found_again(start_device, peer, tmp_path, announcements):
    device = start_device(program=hurried_program(tmp_path, 20))
    take_away(device)
    peer.listen_announcements().wait_for(b"KM-2044817", count=announcements, seconds=TIMEOUT)  # ten seconds of its time each
    serves(device, peer)
    bring_back(device)
    device.bus.wait_for_name(BUS_NAME, TIMEOUT)
    device.wait_until_ready()
    serves(device, peer)


def only_says_byebye(device, peer) -> None:
    """For twenty seconds of the daemon's time, in which it would have looked for the bus twenty times."""
    heard, announced = peer.listen_ssdp(), peer.listen_announcements()
    announced.wait_for(b"KM-2044817", count=3, seconds=TIMEOUT)
    heard.clear()
    heard.wait_for(b"ssdp:byebye", count=20, seconds=TIMEOUT)
    assert not device.bus.owner(BUS_NAME)
    serves(device, peer)


def test_after_sigterm_a_restarted_bus_does_not_end_the_byebyes(start_device, ssdp, peer, tmp_path):
    device = start_device(program=hurried_program(tmp_path, 20))
    device.terminate()
    ssdp.wait_for(b"ssdp:byebye")
    device.bus.stop()
    bring_back(device)
    only_says_byebye(device, peer)
    assert device.syslog.texts == []


def test_sigterm_while_the_bus_is_lost_does_not_end_the_byebyes_either(start_device, ssdp, peer, tmp_path):
    device = start_device(program=hurried_program(tmp_path, 20))
    take_away(device)
    device.terminate()
    ssdp.wait_for(b"ssdp:byebye")
    bring_back(device)
    only_says_byebye(device, peer)


def logged_at(line) -> datetime.datetime:
    return datetime.datetime.strptime(line.raw[line.raw.index(b">") + 1:][:15].decode(), "%b %d %H:%M:%S")


def test_a_full_registry_is_a_warning_an_hour(start_device, peer, tmp_path):
    device = start_device(program=hurried_program(tmp_path, 600))
    peer.announce(announcing("good", FOREVER))
    wait_for_device(device, "good")
    for number in range(MOST_BYTES // LARGE + 50):
        peer.announce(large(f"D{number}"))
        all_read(device, peer, FOREVER)
    strangers = iter(range(1_000_000))

    def warned_twice() -> bool:
        peer.announce(large(f"S{next(strangers)}"))
        all_read(device, peer, FOREVER)
        return device.syslog.texts.count(WARNING) >= 2

    wait_for(warned_twice, 30, "the second warning", lambda: device.syslog.lines)
    first, second = device.syslog.lines
    assert 3600 <= (logged_at(second) - logged_at(first)).seconds < 5400
    assert is_alive(device)
