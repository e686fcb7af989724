"""The devices that announce themselves, as programs on this device see them."""

import os
import shutil
import xml.etree.ElementTree

import pytest

from scanning import (ETHERNET, GROUP, PORT, SCAN, SERIAL, announcing, child, everything_so_far, is_alive, scan,
                      summaries, wait_for_device)
from simdevice.device import default_program
from simdevice.waiting import wait_for
from wirebytes import expected_message

OWN_ADDRESSES = [{"address": "10.77.0.2", "netmask": "255.255.255.0"}]


def introspect(device, path: str) -> xml.etree.ElementTree.Element:
    text = device.call("Introspect", path=path, interface="org.freedesktop.DBus.Introspectable")
    return xml.etree.ElementTree.fromstring(text[text.index("<node"):])


def methods_of(node, interface: str) -> list:
    found = [one for one in node.findall("interface") if one.get("name") == interface]
    assert len(found) == 1, [one.get("name") for one in node.findall("interface")]
    return [(method.get("name"), [(arg.get("direction", "in"), arg.get("type"), arg.get("name", ""))
                                  for arg in method.findall("arg")])
            for method in found[0].findall("method")]


def test_own_announcement_is_known_too(device):
    scan(device, "sendAnnouncement")
    own = wait_for_device(device, SERIAL)
    assert own["uuid"] == SERIAL and own["name"] == "kelta" and own["version"] == "1.4.2"
    assert own["type"] == own["familyType"] == "Kelta"
    assert own["ipv4"] == OWN_ADDRESSES and own["ipv6"] == []


def test_each_summary_has_the_device_name_and_not_the_interface_name(device, peer):
    peer.announce(announcing("A", name="hall 4"))
    assert wait_for_device(device, "A") == {
        "uuid": "A", "name": "hall 4", "version": "2.0.1", "type": "Kelta CODESYS", "familyType": "Kelta",
        "ipv4": [{"address": "10.77.0.3", "netmask": "255.255.255.0"}], "ipv6": [], "configurationMethod": "static"}


def test_everything_in_the_interface_object_comes_along(device, peer):
    more = {**ETHERNET, "uuid": "x", "version": 1, "familyType": [1], "speed": 1000, "load": 0.5, "up": True,
            "note": "é", "list": [1, "two", [3]], "object": {"a": {"b": 1}}, "": "empty", "large": 2 ** 62}
    peer.announce(announcing("A", interface=more))
    got = wait_for_device(device, "A")
    assert got == {**more, "uuid": "A", "name": "other", "version": "2.0.1", "type": "Kelta CODESYS",
                   "familyType": "Kelta"}


@pytest.mark.parametrize("interface", ["{}", "[]", '"eth0"', "5", "null", "[{\"ipv4\":[]}]"])
def test_interface_that_is_no_object(device, peer, interface):
    peer.announce(announcing("A", raw=interface))
    assert wait_for_device(device, "A") == {
        "uuid": "A", "name": "other", "version": "2.0.1", "type": "Kelta CODESYS", "familyType": "Kelta"}


def test_all_childs_of_the_empty_type_lists_every_device_and_without_a_type_those_of_kelta(device, peer):
    scan(device, "sendAnnouncement")
    for uuid, family in (("k", "Kelta"), ("o", "Other"), ("l", "kelta"), ("n", "")):
        peer.announce(announcing(uuid, family=family))
    assert set(everything_so_far(device, peer)) == {SERIAL, "k", "o", "l", "n"}
    assert {summary["uuid"] for summary in scan(device, "allChilds")} == {SERIAL, "k"}
    assert set(summaries(device, "Kelta")) == {SERIAL, "k"}
    assert set(summaries(device, "Other")) == {"o"}
    assert set(summaries(device, "kelta")) == {"l"}
    assert set(summaries(device, "Kelta CODESYS")) == set()
    assert set(summaries(device, "Kel")) == set()


def test_no_device_gives_an_empty_list(start_device):
    device = start_device(fwconfig=False)  # Without a serial number it does not know itself.
    for arguments, signature in (((), ""), (("",), "s"), (("Kelta",), "s")):
        assert scan(device, "allChilds", *arguments, signature=signature) == []


def test_json_value_and_raw_json_of_a_device(device, peer):
    text = announcing("A")
    peer.announce(text)
    wait_for_device(device, "A")
    assert child(device, "A", "rawJson") == text.decode()
    for path, value in (("params/device/name", "other"), ("params/expiration", "22"), ("method", "announce"),
                        ("params/device", ""), ("params/netSettings/interface/ipv4/address", ""), ("no/such/path", ""),
                        ("params/device/name/more", "other"), ("params/expiration" + "/x" * 5000, "22"), ("", ""), ("/", "")):
        assert child(device, "A", "jsonValue", path) == value, path


def test_own_raw_json_is_the_text_on_the_wire(start_device):
    device = start_device(daemon="off")
    device.fwconfig.set(constants={"SERIALNUMBER": "KM_1"})
    device.start()
    scan(device, "sendAnnouncement")
    expected = expected_message("announcement.json").replace(SERIAL.encode(), b"KM_1").decode()
    wait_for_device(device, "KM_1")
    wait_for(lambda: child(device, "KM_1", "rawJson") == expected, what="the text of the announcement")


def test_same_uuid_with_different_content_replaces_the_text(device, peer):
    peer.announce(announcing("A", name="old"))
    wait_for_device(device, "A")
    assert child(device, "A", "jsonValue", "params/device/name") == "old"
    text = announcing("A", name="new", family="Other")
    peer.announce(text)
    wait_for(lambda: summaries(device)["A"]["name"] == "new", what="the new name")
    assert child(device, "A", "rawJson") == text.decode()
    assert child(device, "A", "jsonValue", "params/device/familyType") == "Other"
    assert set(everything_so_far(device, peer)) - {SERIAL} == {"A"}


def test_refreshed_text_that_does_not_parse_keeps_the_entry_without_values(device, peer):
    peer.announce(announcing("A"))
    wait_for_device(device, "A")
    broken = announcing("A")[:-1]
    peer.announce(broken)
    wait_for(lambda: child(device, "A", "rawJson") == broken.decode(), what="the broken text")
    assert child(device, "A", "jsonValue", "params/device/name") == ""
    assert summaries(device)["A"] == {"uuid": "A", "name": "", "version": "", "type": "", "familyType": ""}


def test_interfaces_on_the_bus_do_not_depend_on_the_name_of_the_executable(start_device, peer, tmp_path):
    renamed = tmp_path / "another-name"
    shutil.copy(default_program(), renamed)
    os.chmod(renamed, 0o755)
    device = start_device(program=str(renamed))
    peer.announce(announcing("A"))
    wait_for_device(device, "A")
    check_interfaces(device)


def test_interfaces_on_the_bus(device, peer):
    peer.announce(announcing("A"))
    wait_for_device(device, "A")
    check_interfaces(device)


def check_interfaces(device) -> None:
    node = introspect(device, SCAN)
    methods = methods_of(node, "local.ZorvScan")
    assert [name for name, _ in methods] == [
        "setupMulticast", "sendAnnouncement", "socketState", "allChilds", "allChilds", "pendingDatagrams",
        "configChanged", "connmanServicePropertyChanged"]
    signatures = [["".join(kind for way, kind, _ in arguments if way == wanted) for wanted in ("in", "out")]
                  for _, arguments in methods]
    assert signatures == [["", "i"], ["", ""], ["", "i"], ["s", "av"], ["", "av"], ["", ""], ["", ""], ["sv", ""]]
    assert [name for way, _, name in methods[3][1] if way == "in"] == ["type"]
    assert [name for way, _, name in methods[7][1] if way == "in"] == ["name", "map"]
    assert "A" in [one.get("name") for one in node.findall("node")]
    methods = methods_of(introspect(device, f"{SCAN}/A"), "local.ZorvDevice")
    assert methods == [("jsonValue", [("out", "s", ""), ("in", "s", "path")]), ("rawJson", [("out", "s", "")])]


def test_socket_is_bound(device):
    assert scan(device, "socketState") == 4
    assert PORT in device.udp_ports()
    assert GROUP in device.host.command(["ip", "maddr", "show", "dev", "eth0"]).stdout


def test_two_setups_more_receive_every_datagram_once(device, peer):
    assert [scan(device, "setupMulticast") for _ in range(2)] == [0, 0]
    for number in range(20):
        peer.announce(announcing(f"D{number}"))
    assert set(everything_so_far(device, peer)) - {SERIAL} == {f"D{number}" for number in range(20)}
    assert device.syslog.texts == []


@pytest.mark.parametrize("text", [
    announcing("A", 6.6), announcing("A", "soon"), announcing("A", None), announcing("A", []), announcing("A", {}),
    announcing("A", 2 ** 31), announcing("A", True), b'{"params":{"uuid":"A"}}', announcing("A")[:-1],
    announcing("A") + b"}", b'{"uuid":"A","expiration":22}', b'"params":{"uuid":"A","expiration":22}',
    b'{"params":{"uuid":"","expiration":22}}', b"",
], ids=["fraction", "word", "null", "list", "object", "beyond-int", "true", "missing", "cut", "too-long", "without-params",
        "params-first", "empty-uuid", "empty"])
def test_unusable_announcement_vanishes(device, peer, text):
    peer.announce(text)
    assert set(everything_so_far(device, peer)) - {SERIAL} == set()


@pytest.mark.parametrize("expiration", [22.0, "22", 2147483647, 0, -1], ids=str)
def test_whole_number_of_any_form_is_an_expiration(device, peer, expiration):
    peer.announce(announcing("A", expiration))
    assert "A" in everything_so_far(device, peer)


UUIDS = {"slash": "a/b", "slashes": "///", "blanks": " a b ", "apostrophe": "'", "markup": "<a & b>", "dot": "a.b",
         "latin1": "é", "delete": "\x7f\x01\t", "long": "u" * 60_000, "slash-first": "/zorvscan"}


@pytest.mark.parametrize("uuid", UUIDS.values(), ids=UUIDS.keys())
def test_unusual_uuid(device, peer, uuid):
    text = b'{"params":{"uuid":"%s","expiration":22,"device":{"name":"n"}}}' % uuid.encode("latin-1")
    peer.announce(text)
    known = everything_so_far(device, peer)
    assert known[uuid]["uuid"] == uuid
    introspect(device, SCAN)
    peer.announce(announcing("next"))
    wait_for_device(device, "next")
    assert child(device, "next", "jsonValue", "params/device/name") == "other"
    assert is_alive(device)


def test_uuid_ends_at_an_escaped_quote(device, peer):
    peer.announce(announcing('a"b'))
    assert "a\\" in everything_so_far(device, peer)


def test_uuid_in_utf8_is_read_byte_by_byte(device, peer):
    peer.announce(announcing("é€").replace(b"\\u00e9\\u20ac", "é€".encode()))
    assert "é€".encode().decode("latin-1") in everything_so_far(device, peer)


def test_zero_byte_in_a_uuid_is_left_out_of_the_summary(device, peer):
    peer.announce(b'{"params":{"uuid":"a\0b","expiration":22}}')
    assert everything_so_far(device, peer)["ab"] == {"uuid": "ab", "name": "", "version": "", "type": "", "familyType": ""}
