"""/monitor: the signal that tells of devices, and the properties that tell what the daemon has done."""

import itertools
import json
import pathlib
import re
import time
import xml.etree.ElementTree

import dbus
import pytest

from scanning import announcing, scan, summaries, wait_for_device
from simdevice.bus import PROPERTIES
from simdevice.device import BUS_NAME
from simdevice.waiting import wait_for

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
MONITOR = "/monitor"
INTERFACE = "com.zorv.upnpvelorn.Monitor"
OWN = "KM-2044817"
COUNTERS = {"SearchesAnswered", "DescriptionsServed", "IconsServed", "AnnouncementsTaken", "AnnouncementsWithoutUuid",
            "AnnouncementsUnusable", "AnnouncementsWithoutRoom"}
FOREVER = 700_000_000


def properties(device) -> dict:
    return device.call("GetAll", INTERFACE, path=MONITOR, interface=PROPERTIES)


def counted(device, name: str) -> int:
    return device.call("Get", INTERFACE, name, path=MONITOR, interface=PROPERTIES)


class Listener:
    """What the daemon has told so far."""

    def __init__(self, device):
        self._monitor = device.bus.monitor(f"type='signal',interface='{INTERFACE}'")

    def signals(self) -> list:
        """(appeared, changed, gone, more) of each."""
        found = self._monitor.signals("DevicesChanged")
        assert all((one.path, one.signature) == (MONITOR, "asasasu") for one in found)
        return [tuple(one.arguments) for one in found]

    def wait_for(self, *expected, seconds: float = 30) -> None:
        wait_for(lambda: self.signals() == list(expected), seconds, f"the signals {expected}", self.signals)

    def forget(self) -> None:
        self._monitor.clear()


@pytest.fixture
def listener(device):
    """Of a device that has heard its own announcement with everything in it, and has told of that."""
    def heard() -> bool:
        scan(device, "sendAnnouncement")
        return [one.get("configurationMethod") for one in summaries(device).values()] == ["dhcp"]

    made = Listener(device)
    wait_for(heard, what="the device lists itself with its network")
    wait_for(lambda: any(OWN in one[0] for one in made.signals()), what="it has told of itself")
    time.sleep(2)  # a signal comes within one second, and has to be delivered
    made.forget()
    return made


def test_a_device_that_comes_changes_and_goes(device, peer, listener):
    peer.announce(announcing("visitor", 3))  # it stays for nine seconds, and two signals take two
    listener.wait_for((["visitor"], [], [], 0))
    peer.announce(announcing("visitor", 3, name="another name"))
    listener.wait_for((["visitor"], [], [], 0), ([], ["visitor"], [], 0))
    listener.wait_for((["visitor"], [], [], 0), ([], ["visitor"], [], 0), ([], [], ["visitor"], 0))
    assert "visitor" not in summaries(device)


def test_the_device_tells_of_itself(start_device):
    device = start_device(daemon="off")
    listener = Listener(device)
    device.start()
    wait_for(listener.signals, what="a signal")
    assert listener.signals()[0] == ([OWN], [], [], 0)


def test_its_own_new_address_is_a_change(device, listener):
    device.host.add_address("10.77.0.99/24")
    device.call("configureIp")
    scan(device, "sendAnnouncement")
    listener.wait_for(([], [OWN], [], 0))


def test_a_mere_refresh_is_not_told(device, peer, listener):
    text = announcing("visitor")
    for again in (text, text, text.replace(b",", b" , "), json.dumps(json.loads(text), indent=2).encode(), text):
        peer.announce(again)
    peer.announce(announcing("later"))
    listener.wait_for((["later", "visitor"], [], [], 0))
    for again in (text.replace(b":", b" :"), text):
        peer.announce(again)
    peer.announce(announcing("last"))
    listener.wait_for((["later", "visitor"], [], [], 0), (["last"], [], [], 0))


def test_values_that_differ_in_anything_are_a_change(device, peer, listener):
    pairs = [('{"a":1}', '{"a":"1"}'), ('{"a":1}', '{"a":1.0}'), ('{"a":[1]}', '{"a":[1,1]}'), ('{"a":[1]}', '{"a":["1"]}'),
             ('{"a":{"b":1}}', '{"a":{"c":1}}'), ('{"a":{}}', '{"a":[]}'), ('{"a":0}', '{"a":false}'), ('{"a":1}', '{"a":1,"b":null}')]
    uuids = [f"pair-{number}" for number in range(len(pairs))]
    first, second = zip(*pairs)

    def told_after(texts: tuple, last: str) -> tuple:
        """All that appeared and all that changed."""
        listener.forget()
        for uuid, text in zip(uuids, texts):
            peer.announce(announcing(uuid, raw=text))
        peer.announce(announcing(last))
        wait_for(lambda: any(last in one[0] for one in listener.signals()), what="all are told of", seen=listener.signals)
        return tuple(sorted(uuid for one in listener.signals() for uuid in one[kind] if uuid in uuids) for kind in (0, 1))

    assert told_after(first, "a newcomer") == (sorted(uuids), [])
    assert told_after(second, "another") == ([], sorted(uuids))
    assert told_after(second, "a third") == ([], [])


def test_what_is_no_announcement_is_not_told(device, peer, listener):
    for useless in (b"junk", b'{"params":{"uuid":""}}', b'{"params":{"uuid":"x"}', announcing("y", "22 s"), announcing("z", 6.6)):
        peer.announce(useless)
    peer.announce(announcing("visitor"))
    listener.wait_for((["visitor"], [], [], 0))
    assert [counted(device, "AnnouncementsWithoutUuid"), counted(device, "AnnouncementsUnusable")] == [2, 3]


def test_uuids_are_those_of_the_summaries(device, peer, listener):
    peer.announce(announcing("a\x1b[2Jb c/\x7f"))
    peer.announce(b'{"params":{"uuid":"zero\0zero \xe9"},"x":1}'.replace(b'"x":1', b'"y":1'))
    peer.announce(b'{"params":{"uuid":"\xe9\x85","expiration":22}}')
    wait_for(listener.signals, what="a signal")
    (appeared, changed, gone, more), = listener.signals()
    assert (sorted(appeared), changed, gone, more) == (sorted(set(summaries(device)) - {OWN}), [], [], 0)


def test_many_changes_are_one_signal_a_second_and_bounded(device, peer, listener):
    beginning = time.monotonic()
    for number in range(2100):
        peer.announce(announcing(f"D{number:04}", FOREVER))
        if number % 150 == 149:
            wait_for_device(device, f"D{number:04}")
    told = wait_for(lambda: len({uuid for one in listener.signals() for uuid in one[0]}) + sum(one[3] for one in listener.signals())
                    == 2100 and listener.signals(), what="all are told of", seen=listener.signals)
    assert all(len(names) <= 100 for one in told for names in one[:3])
    assert any(one[3] for one in told)
    assert len(told) <= 2 + time.monotonic() - beginning
    assert all(changed == gone == [] for _, changed, gone, _ in told)


def test_signals_are_a_second_apart(device, peer, listener):
    beginning = time.monotonic()
    numbers = itertools.count(1)

    def has_told(count: int) -> bool:
        peer.announce(announcing(f"D{next(numbers)}"))
        return len(listener.signals()) >= count

    for count in range(1, 5):
        wait_for(lambda: has_told(count), what=f"{count} signals")
        assert len(listener.signals()) <= 1 + (time.monotonic() - beginning) / 0.9


def test_a_long_uuid_counts_only(device, peer, listener):
    peer.announce(announcing("x" * 256))
    peer.announce(announcing("y" * 255))
    listener.wait_for((["y" * 255], [], [], 1))


def test_while_nothing_changes_nothing_is_told(device, listener):
    taken = counted(device, "AnnouncementsTaken")
    wait_for(lambda: counted(device, "AnnouncementsTaken") >= taken + 2, 25, "two refreshes")
    assert listener.signals() == []


# Properties

def test_properties(device):
    found = properties(device)
    assert set(found) == {"Version", "Since", "Devices"} | COUNTERS
    version = re.search(r"^project\(upnpvelorn VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text(), re.MULTILINE)[1]
    assert found["Version"] == version
    assert abs(time.time() - found["Since"]) < 60


def test_since_does_not_move(device):
    first = counted(device, "Since")
    time.sleep(2)
    assert abs(counted(device, "Since") - first) <= 1


def test_what_is_served_is_counted(device, peer):
    assert (len(peer.search("ssdp:all")), counted(device, "SearchesAnswered")) == (1, 3)  # it closes with two more
    assert (len(peer.search("ssdp:other")), counted(device, "SearchesAnswered")) == (0, 5)
    for path in ("/rootDesc.xml", "/rootDesc.xml", "/nothing", "/icons/kelta_icon48.png"):
        peer.http_raw(f"GET {path} HTTP/1.1\r\n\r\n".encode())
    assert [counted(device, name) for name in ("DescriptionsServed", "IconsServed")] == [2, 1]
    device.set_icon(None)
    peer.http_raw(b"GET /icons/kelta_icon48.png HTTP/1.1\r\n\r\n")
    assert counted(device, "IconsServed") == 1


def test_announcements_are_counted(device, peer):
    wait_for_device(device, OWN)
    before = counted(device, "AnnouncementsTaken")
    for text in (announcing("a"), announcing("a"), announcing("a", name="b")):
        peer.announce(text)
    wait_for(lambda: counted(device, "AnnouncementsTaken") >= before + 3, what="they are counted")
    assert counted(device, "Devices") == len(summaries(device)) == 2


def test_properties_are_for_reading(device):
    for name in ("Version", "Devices"):
        with pytest.raises(dbus.DBusException):
            device.call("Set", INTERFACE, name, "x", path=MONITOR, interface=PROPERTIES, signature="ssv")
    assert device.bus.pid_of(BUS_NAME) == device.pid


def test_there_is_nothing_else(device):
    text = device.call("Introspect", path=MONITOR, interface="org.freedesktop.DBus.Introspectable")
    tree = xml.etree.ElementTree.fromstring(text)
    assert [one.get("name") for one in tree.iter("interface") if not one.get("name").startswith("org.freedesktop.")] == [INTERFACE]
    assert [one.get("name") for one in tree.iter("node")][1:] == []
    for member in ("deleteLater", "timerEvent", "version"):
        with pytest.raises(dbus.DBusException, match="Unknown"):
            device.call(member, path=MONITOR, interface=INTERFACE)
