"""Announcements and bus messages that were made to do harm. The daemon answers, keeps its name, and loses nobody else."""

import shutil
import subprocess

import dbus
import pytest

from scanning import SCAN, SERIAL, announcing, child, everything_so_far, is_alive, scan, summaries, wait_for_device
from simdevice.device import BUS_NAME
from simdevice.values import Typed
from simdevice.waiting import wait_for

USUAL = {"uuid", "name", "version", "type", "familyType"}
IDENTITY = {"name": "other", "version": "2.0.1", "type": "Kelta CODESYS", "familyType": "Kelta"}


@pytest.fixture
def good(device, peer):
    """A device that knows a harmless other one."""
    peer.announce(announcing("good"))
    wait_for_device(device, "good")
    return device


def everybody(device, peer, *expected) -> dict:
    """All summaries but this device's own; `expected` and the harmless device must be among them."""
    known = everything_so_far(device, peer)
    known.pop(SERIAL, None)
    assert known["good"]["ipv4"] == [{"address": "10.77.0.3", "netmask": "255.255.255.0"}]
    assert {"good", *expected} <= known.keys()
    assert "good" in {summary["uuid"] for summary in scan(device, "allChilds")}
    assert is_alive(device)
    return known


NULLS = {
    "value": ('{"a":null,"ok":1}', {"ok": 1}),
    "name": ('{"name":null,"type":null,"uuid":null,"ok":1}', {"ok": 1}),
    "in-list": ('{"l":[null,1,null,"x"],"ok":1}', {"l": [1, "x"], "ok": 1}),
    "alone-in-list": ('{"l":[null],"ok":1}', {"l": [], "ok": 1}),
    "in-object": ('{"o":{"a":null,"b":2},"ok":1}', {"o": {"b": 2}, "ok": 1}),
    "alone-in-object": ('{"o":{"a":null},"ok":1}', {"o": {}, "ok": 1}),
    "in-object-in-list": ('{"l":[{"a":null},{"b":[null,3]}],"ok":1}', {"l": [{}, {"b": [3]}], "ok": 1}),
    "in-list-in-list": ('{"l":[[null],[[null,4]]],"ok":1}', {"l": [[], [[4]]], "ok": 1}),
    "addresses": ('{"ipv4":null,"ipv6":[null],"configurationMethod":null}', {"ipv6": []}),
    "empty-key": ('{"":null,"ok":1}', {"ok": 1}),
}


@pytest.mark.parametrize("raw, kept", NULLS.values(), ids=NULLS.keys())
def test_null_anywhere(good, peer, raw, kept):
    peer.announce(announcing("bad", raw=raw))
    assert everybody(good, peer, "bad")["bad"] == {**kept, **IDENTITY, "uuid": "bad"}


def test_null_in_place_of_the_identity(good, peer):
    peer.announce(b'{"params":{"x":{"uuid":"bad"},"expiration":22,'
                  b'"device":{"name":null,"type":null,"familyType":null,"firmwareVersion":null}}}')
    assert everybody(good, peer, "bad")["bad"] == {
        "uuid": "bad", "name": "", "version": "", "type": "", "familyType": ""}


def nested(kind: str, depth: int) -> str:
    opening, closing = {"lists": (["["], ["]"]), "objects": (['{"k":'], ["}"]),
                        "mixed": (["[", '{"k":'], ["]", "}"])}[kind]
    count = len(opening)
    return ("".join(opening[i % count] for i in range(depth)) + "1"
            + "".join(closing[i % count] for i in reversed(range(depth))))


@pytest.mark.parametrize("kind", ["lists", "objects", "mixed"])
def test_nesting_of_any_depth(good, peer, kind):
    depths = [*range(1, 101), 500, 1000, 3000, 4000]
    for depth in depths:
        peer.announce(announcing(f"d{depth}", raw='{"deep":%s,"list":[1,%s,2],"ok":1}' % ((nested(kind, depth),) * 2)))
        wait_for_device(good, f"d{depth}")
        assert is_alive(good)
    known = everybody(good, peer, *[f"d{depth}" for depth in depths])
    for depth in depths:
        summary = known[f"d{depth}"]
        assert summary["ok"] == 1 and summary["list"][0] == 1 and summary["list"][-1] == 2
    for depth in range(1, 15):
        assert depth_of(known[f"d{depth}"]["deep"]) == depth


def depth_of(value) -> int:
    depth = 0
    while not isinstance(value, int):
        value = value[0] if isinstance(value, list) else value["k"]
        depth += 1
    return depth


TEXTS = {
    "64000 opened lists": b"[" * 64_000,
    "64000 opened lists, params": b'{"params":{"uuid":"bad","expiration":22,"x":' + b"[" * 60_000,
    "opened objects": b'{"params":{"uuid":"bad","expiration":22,"x":' + b'{"":' * 16_000,
    "32000 nested lists": b'{"params":{"uuid":"bad","expiration":22,"x":' + b"[" * 30_000 + b"]" * 30_000 + b"}}",
    "13000 nested objects": b'{"params":{"uuid":"bad","expiration":22,"x":' + b'{"":' * 13_000 + b"1" + b"}" * 13_002,
    "closed lists": b'{"params":{"uuid":"bad"}}' + b"]" * 60_000,
    "quotes": b'{"params":{"uuid":"bad","x":' + b'"' * 60_000,
    "backslashes": b'{"params":{"uuid":"bad","x":"' + b"\\" * 60_000,
    "commas": b'{"params":{"uuid":"bad","x":[' + b"," * 60_000,
    "zero bytes": bytes(60_000),
    "bytes": bytes(range(256)) * 200,
    "zero length": b"",
    "one byte": b"{",
    "byte-order mark of UTF-32": b"\xff\xfe\0\0" + b'"params""uuid":"bad"' + b"\xff" * 1000,
    "surrogates": b'{"params":{"uuid":"bad","x":"' + b"\xed\xa0\x80" * 1000,
    "cut in an escape": b'{"params":{"uuid":"bad","expiration":22,"x":"\\u00',
    "cut behind a backslash": b'{"params":{"uuid":"bad","expiration":22,"x":"\\',
    "65507 bytes": b'{"params":{"uuid":"bad","x":"'.ljust(65_507, b"x"),
}


@pytest.mark.parametrize("text", TEXTS.values(), ids=TEXTS.keys())
def test_text_that_does_not_parse(good, peer, text):
    for _ in range(3):
        peer.announce(text)
    assert "bad" not in everybody(good, peer)


def test_datagram_of_65507_bytes_is_a_device_like_others(good, peer):
    start = announcing("bad", raw='{"x":"' + "x" * 60_000 + '"}')
    text = start.ljust(65_507)
    peer.announce(text)
    assert everybody(good, peer, "bad")["bad"]["x"] == "x" * 60_000
    assert child(good, "bad", "rawJson") == text.decode()


def test_datagram_cut_at_every_byte(good, peer):
    text = announcing("bad", raw='{"t":"\\u00e9\\ud83d\\ude00\\n\\"","ok":[1,2.5,-3e2,true,null]}')
    for size in range(len(text)):
        peer.announce(text[:size])
        if size % 50 == 0:  # No more than its socket holds
            everybody(good, peer)
    assert everybody(good, peer).keys() == {"good"}
    peer.announce(text)
    assert everybody(good, peer, "bad")["bad"]["t"] == 'é😀\n"'


CHARACTERS = {"U+FFFE": "\\ufffe", "U+FFFF": "\\uffff", "NUL": "\\u0000", "high": "\\ud83d", "low": "\\ude00",
              "wrong-order": "\\ude00\\ud83d"}


@pytest.mark.parametrize("character", CHARACTERS.values(), ids=CHARACTERS.keys())
def test_characters_that_no_bus_message_holds(good, peer, character):
    text = f'"a{character}b"'
    raw = '{%s:1,"t":%s,"l":[%s,{%s:%s}]}' % ((text,) * 5)
    everywhere = announcing("bad", raw=raw).replace(b'"name":"other"', b'"name":' + text.encode()).replace(
        b'"2.0.1"', text.encode()).replace(b'"Kelta CODESYS"', text.encode()).replace(
        b'"familyType":"Kelta"', b'"familyType":' + text.encode())
    peer.announce(everywhere)
    known = everybody(good, peer, "bad")["bad"]
    assert known == {"uuid": "bad", "name": "ab", "version": "ab", "type": "ab", "familyType": "ab", "ab": 1, "t": "ab",
                     "l": ["ab", {"ab": "ab"}]}
    assert child(good, "bad", "jsonValue", "params/expiration") == "22"
    value = child(good, "bad", "jsonValue", "params/device/name")
    assert value.startswith("a")
    assert child(good, "bad", "rawJson") == everywhere.decode()
    assert is_alive(good)


def run(*command) -> str:
    if not shutil.which(command[0]):
        pytest.skip(f"{command[0]} is not installed")
    done = subprocess.run(command, capture_output=True, text=True, timeout=30,
                          env={"LC_ALL": "C.UTF-8", "PATH": "/usr/bin:/bin"})
    assert done.returncode == 0, done.stderr
    return done.stdout


@pytest.mark.parametrize("client", ["busctl", "gdbus", "dbus-send"])
def test_every_client_can_read_the_answer(good, peer, client):
    raws = ['{"a":null}', '{"\\uffff":"\\ufffe\\u0000\\ud800"}', '{"d":[1e400,-1e400,1e-400]}',
            *['{"d":%s}' % nested(kind, depth) for kind in ("lists", "objects", "mixed") for depth in range(15, 35)],
            '{"d":%s}' % nested("lists", 1000)]
    uuids = [f"bad{number}" for number in range(len(raws))]
    for uuid, raw in zip(uuids, raws):
        peer.announce(announcing(uuid, raw=raw))
        wait_for_device(good, uuid)
    everybody(good, peer, *uuids)
    address = good.bus.address
    command = {
        "busctl": ["busctl", f"--address={address}", "call", BUS_NAME, SCAN, "local.ZorvScan", "allChilds", "s", ""],
        "gdbus": ["gdbus", "call", "--address", address, "--dest", BUS_NAME, "--object-path", SCAN,
                  "--method", "local.ZorvScan.allChilds", ""],
        "dbus-send": ["dbus-send", f"--bus={address}", "--print-reply", f"--dest={BUS_NAME}", SCAN,
                      "local.ZorvScan.allChilds", "string:"],
    }[client]
    answer = run(*command)
    for uuid in ("good", *uuids):
        assert uuid in answer
    assert is_alive(good)


@pytest.mark.parametrize("character", ["\\ufdd0", "\\ufdef", "\\ud83f\\udffe", "\\ufffe", "\\uffff"])
def test_noncharacters_keep_every_answer_readable(good, peer, character):
    """systemd's clients refuse a whole message over one of them."""
    peer.announce(announcing("bad", raw='{"t":"%s"}' % character))
    wait_for_device(good, "bad")
    busctl = ["busctl", f"--address={good.bus.address}", "call", BUS_NAME]
    assert '"bad"' in run(*busctl, SCAN, "local.ZorvScan", "allChilds", "s", "")
    assert run(*busctl, f"{SCAN}/bad", "local.ZorvDevice", "jsonValue", "s", "params/netSettings/interface/t") == 's ""\n'


def test_long_key_through_many_numbers(good, peer):
    peer.announce(announcing("A", raw='{"l":[' + "1," * 30_000 + "1]}"))
    wait_for_device(good, "A")
    for length in (20_000, 3_000_000):
        assert child(good, "A", "jsonValue", "params/netSettings/interface/l/" + "k" * length, seconds=20) == ""


def test_json_value_of_deep_values_and_long_paths(good, peer):
    for kind in ("lists", "objects"):
        peer.announce(announcing(kind, raw='{"deep":%s}' % nested(kind, 4000)))
        wait_for_device(good, kind)
        for path in ("params/netSettings/interface/deep", "params/netSettings/interface/deep/k", "/" * 1_000_000,
                     "params/netSettings/interface/deep" + "/" * 1_000_000, "params/" * 150_000, "k" * 1_000_000,
                     "params/netSettings/interface/deep/" + "k" * 1_000_000):
            assert child(good, kind, "jsonValue", path) == ""
    for levels in (4000, 500_000):
        deep = "params/netSettings/interface/deep" + "/k" * levels
        assert child(good, "objects", "jsonValue", deep) == "1"
        assert child(good, "lists", "jsonValue", deep) == ""
    assert child(good, "lists", "jsonValue", "params/expiration" + "/" * 1_000_000) == "22"
    everybody(good, peer, "lists", "objects")


def test_more_devices_than_a_message_holds(good, peer):
    count = 500
    for number in range(count):
        peer.announce(announcing(f"D{number}", raw='{"x":"' + "x" * 60_000 + '"}'))
        wait_for(lambda: knows(good, f"D{number}"), what=f"D{number}")
    peer.announce(announcing("small"))
    wait_for(lambda: knows(good, "small"), what="small")
    found = summaries(good, seconds=30)
    assert {"good", "small"} < found.keys()
    assert 100 < len(found) < count
    assert is_alive(good)
    assert child(good, f"D{count - 1}", "jsonValue", "params/device/uuid") == f"D{count - 1}"


def knows(device, uuid: str) -> bool:
    try:
        return child(device, uuid, "jsonValue", "method") == "announce"
    except dbus.DBusException as error:
        assert error.get_dbus_name() == "org.freedesktop.DBus.Error.UnknownObject"
        return False


def variants(depth: int):
    value = Typed("s", "x")
    for _ in range(depth):
        value = Typed("v", value)
    return value


ARGUMENTS = [
    (), (Typed("i", -1),), (Typed("as", ["a", "b"]),), (Typed("a{sv}", {"a": 1}),), (Typed("s", "a"), Typed("s", "b")),
    (Typed("y", 255),), (Typed("d", 1e308),), (Typed("(ss)", ["a", "b"]),), (Typed("ai", list(range(10_000))),),
    (Typed("o", "/"),), (Typed("g", "a{sv}"),), (Typed("v", Typed("s", "x")),), (Typed("av", [variants(20)]),),
    (Typed("s", "x" * 10_000_000),), (Typed("v", Typed("i", 1)), Typed("s", "State")),
    *[(Typed("s", "State"), Typed("v", value)) for value in (
        variants(25), Typed("as", []), Typed("a{sv}", {"a": variants(20)}), Typed("s", "x" * 1_000_000))],
    (Typed("s", "x" * 1_000_000), Typed("v", Typed("i", 1))),
]

SCAN_SLOTS = ["setupMulticast", "sendAnnouncement", "socketState", "allChilds", "pendingDatagrams", "configChanged",
              "connmanServicePropertyChanged", "deleteLater", "timerEvent", "noSuchMethod"]


@pytest.mark.parametrize("member", SCAN_SLOTS)
def test_arguments_of_any_type(good, peer, member):
    call_with_everything(good, SCAN, "local.ZorvScan", member)
    everybody(good, peer)


@pytest.mark.parametrize("member", ["jsonValue", "rawJson", "deleteLater"])
def test_arguments_of_any_type_to_a_device(good, peer, member):
    call_with_everything(good, f"{SCAN}/good", "local.ZorvDevice", member)
    everybody(good, peer)
    assert child(good, "good", "jsonValue", "params/device/name") == "other"


def call_with_everything(device, path: str, interface: str, member: str) -> None:
    for arguments in ARGUMENTS:
        signature = "".join(argument.signature for argument in arguments)
        try:
            device.call(member, *[argument.value for argument in arguments], path=path, interface=interface,
                        signature=signature, seconds=20)
        except dbus.DBusException as error:
            assert error.get_dbus_name() in ("org.freedesktop.DBus.Error.UnknownMethod",
                                             "org.freedesktop.DBus.Error.InvalidArgs"), signature
        assert is_alive(device)


def test_connmans_signal_with_wrong_types_from_any_sender(good, peer):
    stranger = good.bus.connect()
    values = [Typed("i", 1), Typed("as", ["online"]), Typed("as", []), Typed("a{sv}", {"State": "online"}),
              Typed("a{ss}", {"a": "b"}), Typed("(ss)", ["a", "b"]), Typed("ay", [1, 2]), Typed("o", "/"), Typed("g", "s"),
              Typed("d", 0.5), variants(25), Typed("v", Typed("s", "online")), Typed("s", "x" * 1_000_000),
              Typed("a{sv}", {"deep": variants(20)}), Typed("ai", [])]
    for connection in (None, stranger):
        for name in ("State", "IPv4", "", "x" * 100_000):
            for value in values:
                good.connman.property_changed(name, value, connection=connection)
        everybody(good, peer)
    for signature, arguments in (("", []), ("s", ["State"]), ("ss", ["State", "online"]), ("v", ["State"]),
                                 ("vs", ["State", "online"]), ("svs", ["State", "online", "x"]),
                                 ("a{sv}", [{"State": "online"}])):
        stranger.send_signal("/", "net.connman.Service", "PropertyChanged", *arguments, signature=signature)
        stranger.send_signal("/", "net.connman.Service", "PropertyChanged", *arguments, signature=signature,
                             to=good.bus.owner(BUS_NAME))
    stranger.close()
    everybody(good, peer)


def test_hostile_text_in_a_refresh(good, peer):
    for raw in ('{"a":null}', nested("lists", 4000), '{"d":%s}' % nested("objects", 60), '{"t":"\\uffff"}', '"'):
        peer.announce(announcing("good", raw=raw))
        everything_so_far(good, peer)
        assert summaries(good)["good"].keys() >= USUAL
        assert is_alive(good)
    peer.announce(announcing("good"))
    everybody(good, peer)
