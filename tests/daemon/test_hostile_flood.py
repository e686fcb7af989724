"""Floods of announcements: the registry has bounds, and devices that are known go on being refreshed."""

import dbus
import pytest

from burdens import MEGABYTE, cpu_seconds, is_sanitized, resident, small_quarantine
from scanning import SERIAL, announcing, child, is_alive, wait_for_device
from simdevice.bus import PROPERTIES
from simdevice.waiting import wait_for
from texts import ANSWER
from wirebytes import compare_bytes

MOST_DEVICES = 20_000
MOST_BYTES = 32 * MEGABYTE
WARNING = "zorvscan: too many devices announce themselves, further ones are ignored"
FOREVER = 700_000_000
NOT_READ_YET = 100  # small datagrams that the socket holds without losing one
LARGE = 60_000


def knows(device, uuid: str) -> bool:
    try:
        return child(device, uuid, "jsonValue", "method", seconds=30) == "announce"
    except dbus.DBusException as error:
        assert error.get_dbus_name() == "org.freedesktop.DBus.Error.UnknownObject"
        return False


def large(uuid: str, expiration=FOREVER, size: int = LARGE) -> bytes:
    return announcing(uuid, expiration, raw='{"x":"' + "x" * size + '"}')


def refused(device) -> int:
    """How many announcements found no room, as the device itself counts them."""
    return device.call("Get", "com.zorv.upnpvelorn.Monitor", "AnnouncementsWithoutRoom", path="/monitor", interface=PROPERTIES)


def all_read(device, peer, expiration=22) -> None:
    """A known device's refreshed text shows that everything before it has been read."""
    all_read.number += 1
    peer.announce(announcing("good", expiration, name=f"good {all_read.number}"))
    wait_for(lambda: child(device, "good", "jsonValue", "params/device/name", seconds=30) == f"good {all_read.number}",
             30, "the known device is refreshed")


all_read.number = 0


@pytest.fixture(autouse=True)
def freed_at_once(monkeypatch):
    small_quarantine(monkeypatch)


@pytest.fixture
def good(device, peer):
    peer.announce(announcing("good"))
    wait_for_device(device, "good")
    return device


def test_number_of_devices_is_bounded(good, peer):
    wait_for_device(good, SERIAL)  # The device hears itself; "good" and "short" are the other two.
    for number in range(MOST_DEVICES - 3):
        peer.announce(announcing(f"D{number}", FOREVER))
        if number % NOT_READ_YET == 0:
            all_read(good, peer)
    assert refused(good) == 0
    # It stays for nine seconds, time enough for what follows. The flood takes longer than that on a busy machine.
    peer.announce(announcing("short", 3))
    peer.announce(announcing("late"))
    all_read(good, peer)
    assert knows(good, "short") and not knows(good, "late")
    assert refused(good) == 1
    assert knows(good, "D0") and knows(good, "D19000")
    assert good.syslog.texts == [WARNING]
    compare_bytes(peer.search()[0].data, ANSWER)

    def place_is_free() -> bool:
        peer.announce(announcing("after"))
        all_read(good, peer)
        return knows(good, "after")

    wait_for(place_is_free, 30, "a device that has gone leaves its place")
    assert not knows(good, "short")
    assert good.syslog.texts == [WARNING]
    assert is_alive(good)


def fill(good, peer, uuid: str) -> None:
    """Takes all the room that is left, to the byte: by newcomers, and then by a known device's text."""
    size = 3000
    peer.announce(large(uuid, size=size))
    for newcomer in (40_000, 10_000, 2_500, 600, 150):
        for number in range(9):
            peer.announce(large(f"F{newcomer}-{number}", size=newcomer))
        all_read(good, peer)
    for step in (256, 32, 4, 1):
        while True:
            peer.announce(large(uuid, size=size + step))
            all_read(good, peer)
            if len(child(good, uuid, "rawJson")) != len(large(uuid, size=size + step)):
                break
            size += step


def test_bytes_of_all_announcements_are_bounded(good, peer):
    before = resident(good)
    count = MOST_BYTES // LARGE
    for number in range(count + 50):
        peer.announce(large(f"D{number}"))
        all_read(good, peer)
    assert knows(good, "D0") and knows(good, "D500") and not knows(good, f"D{count + 40}")
    assert good.syslog.texts == [WARNING]
    assert resident(good) - before < (200 if is_sanitized() else 60) * MEGABYTE

    # Known ones: a usual text is always taken, a longer one only where there is room for it.
    peer.announce(large("D1", size=1000))
    all_read(good, peer)
    assert len(child(good, "D1", "rawJson")) < 2000
    fill(good, peer, "D1")
    peer.announce(large("D2", size=LARGE + 1))
    all_read(good, peer)
    assert child(good, "D2", "rawJson") == large("D2").decode()
    assert good.syslog.texts == [WARNING]
    assert is_alive(good)


@pytest.mark.parametrize("junk", [
    pytest.param(b'{"params":{"uuid":"%s","x":"' + b"x" * LARGE, id="cut off"),
    pytest.param(b'{"params":{"uuid":"%s","expiration":"soon","x":"' + b"x" * LARGE + b'"}}', id="no expiration"),
])
def test_junk_keeps_no_new_device_out(good, peer, junk):
    before = resident(good)
    for number in range(2 * MOST_BYTES // LARGE):
        peer.announce(junk.replace(b"%s", b"J%d" % number))
        if number % 2 == 0:
            all_read(good, peer)
    peer.announce(large("new"))
    wait_for(lambda: knows(good, "new"), what="the new device is known")
    assert resident(good) - before < (200 if is_sanitized() else 20) * MEGABYTE
    assert good.syslog.texts == []


def test_text_that_does_not_parse_is_not_parsed_for_every_look_up(good, peer):
    def cost_of_looking_up(text: bytes) -> float:
        peer.announce(text)
        wait_for(lambda: child(good, "good", "jsonValue", "params") == "" and
                 len(child(good, "good", "rawJson")) == len(text), what="the text is there")
        before = cpu_seconds(good)
        for _ in range(500):
            assert child(good, "good", "jsonValue", "params/device/name") == ""
        return cpu_seconds(good) - before

    usual = cost_of_looking_up(b'{"params":{"uuid":"good","x":[]]')
    assert cost_of_looking_up(b'{"params":{"uuid":"good","x":[' + b"1," * 30_000 + b"]]") < 2 * usual + 0.1


def test_values_of_many_large_devices_keep_memory_bounded(good, peer):
    if is_sanitized():
        pytest.skip("a parsed value takes too much more memory here")
    before = resident(good)
    raw = '{"l":[' + "1," * 28_000 + "1]}"
    for number in range(400):
        peer.announce(announcing(f"D{number}", FOREVER, raw=raw))
        wait_for(lambda: knows(good, f"D{number}"), what=f"D{number}")
    for number in range(400):
        assert child(good, f"D{number}", "jsonValue", "params/device/name") == "other"
    # 24 MB of text, of which 4 MB are kept parsed, in forty times the memory
    assert resident(good) - before < 250 * MEGABYTE
    assert is_alive(good)
