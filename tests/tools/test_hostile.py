"""What strangers send: nothing of it reaches the terminal as it is, breaks a row or ends the tool."""

import json
import re
import sys
import time
import unicodedata

import pytest

from browsing import Browser, tool
from fakedevice import RootDevice, with_length
from simdevice.controlpoint import ANNOUNCEMENTS, SSDP

NASTY = "a\x1b[2J\x07\r\nb\x85\x9b31m\x7f\u202e\u2066\u2028\u2029\u200b\ufeff\ud800\U000e0041c"


def announcement(**values) -> bytes:
    """Whatever it is, as JSON."""
    return json.dumps({"jsonrpc": "2.0", "method": "announce", "params": values}).encode()


def device(**values) -> dict:
    return {"name": "x", "uuid": "1", "type": "Kelta", "familyType": "Kelta", "firmwareVersion": "2", **values}


def in_rows(addresses: object = (), **values) -> dict:
    return {"device": device(), "netSettings": {"interface": {"ipv4": addresses, **values}}}


STRANGE = {
    "no address in an entry": announcement(**in_rows([{"netmask": "255.0.0.0"}])),
    "entries that are no objects": announcement(**in_rows([1, None, "x", [], {"address": 7}, {"address": "10.0.0.300"}])),
    "an address with a scope of control characters": announcement(**in_rows(ipv6=[{"address": "fe80::1%\x1b[31m"}])),
    "an object for the list": announcement(**in_rows({"address": "10.0.0.1"})),
    "an interface that is a list": announcement(device=device(), netSettings={"interface": [1]}),
    "settings that are a text": announcement(device=device(), netSettings="x"),
    "services of all kinds": announcement(device=device(), services=[1, {"type": 7}, {"type": "a", "port": "b"}, {"port": 80}]),
    "numbers where texts are": announcement(device={"name": "x", "uuid": 7, "type": None, "firmwareVersion": [1]}),
    "an expiration without sense": announcement(device=device(), expiration=1e400),
    "a negative expiration": announcement(device=device(), expiration=-5),
    "a list of parameters": b'{"method":"announce","params":[1,2]}',
    "no device": announcement(device=None),
    "no object": b'"announce"',
    "nothing": b"",
    "nested too deeply": b'{"method":"announce","params":' + b"[" * 60000,
    "nested in objects": b'{"a":' * 10000 + b"1" + b"}" * 10000,
    "a huge number": b'{"method":"announce","params":' + b"9" * 60000 + b"}",
    "not UTF-8": b'{"method":"announce","params":{"device":{"name":"\xff\xfe","uuid":"1"}}}',
    "broken, with control characters": b'"announce" "name":"a\x1b[2J","uuid":"\x9b7","netSettings" "address":"\x1b","netmask":"x"',
    "a long name": announcement(device=device(name="n" * 60000)),
    "many addresses": announcement(**in_rows([{"address": f"10.9.{one // 250}.{one % 250}"} for one in range(1500)])),
}


def is_harmless(text: str) -> bool:
    return all(one == "\n" or unicodedata.category(one) not in ("Cc", "Cf", "Cs", "Zl", "Zp") for one in text)


@pytest.fixture
def stranger(fake):
    """A host that says nothing by itself, and kelta-8 beside it."""
    fake(8)
    return fake(66, alive=None, announcement=None, answer=None)


def listed_after(pc, stranger, *datagrams: bytes, group: tuple = ANNOUNCEMENTS, options: tuple = ()):
    with pc.start("--timeout", "1", *options) as running:
        pc.wait_until_it_listens()
        while running.poll() is None:
            for data in datagrams:
                stranger.say(data, group)
            time.sleep(0.1)
        out, err = running.communicate(timeout=20)
    assert "Traceback" not in err and running.returncode == 0, err
    assert is_harmless(out) and is_harmless(err), (out, err)
    return out


def test_announcements_of_every_strange_form(pc, stranger):
    """All at once; the honest device is listed all the same, and each row is one line."""
    lines = listed_after(pc, stranger, *STRANGE.values()).splitlines()
    assert len(lines) == 3 and any(line.startswith("kelta-8 ") for line in lines), lines


@pytest.mark.parametrize("name", STRANGE)
def test_each_strange_announcement_is_read_or_dropped(name):
    """Without a network: neither the reading nor the showing of any of these fails."""
    browse = tool()
    seen = browse.Surroundings()
    seen.take(browse.Datagram(STRANGE[name], "10.77.0.66", 31416, 1, "scan", "eth0", 0.0))
    found = seen.devices()
    assert len(found) <= 1
    for one in found:
        assert is_harmless("\n".join(browse.rows([one], 80))) and is_harmless(json.dumps(one))
        assert len(one["addresses"]) <= 65 and len(one["name"] or "") <= 256


@pytest.mark.parametrize("width", [0, 60, 90])
def test_wide_and_combining_characters_stay_in_their_columns(width):
    browse = tool()
    seen = browse.Surroundings()
    for number, name in enumerate(("plain", "測定器測定器測定器", "e\u0301\u0301te\u0301")):
        data = announcement(device={"name": name, "uuid": "1"})
        seen.take(browse.Datagram(data, f"10.77.0.{number}", 31416, 1, "scan", "eth0", 0.0))
    lines = browse.rows(seen.devices(), width)
    assert len({browse.columns_of(line[:line.index("10.77") if "10.77" in line else line.index("ADDR")]) for line in lines}) == 1
    assert not width or max(map(browse.columns_of, lines)) <= width


def test_nasty_texts_in_announcements(pc, stranger):
    values = announcement(device={key: NASTY for key in ("name", "uuid", "type", "familyType", "firmwareVersion")},
                          netSettings={"interface": {"configurationMethod": NASTY}}, services=[{"type": NASTY, "port": 1}])
    lines = listed_after(pc, stranger, values).splitlines()
    assert len(lines) == 3
    assert listed_after(pc, stranger, values, options=("--json",)).count("\n") == 2


def test_nasty_texts_in_ssdp(pc, stranger):
    nasty = NASTY.replace("\r\n", "").encode("utf-8", "surrogatepass")
    notify = (b"NOTIFY * HTTP/1.1\r\nLOCATION: http://10.77.0.66:8200/" + nasty + b"\r\nSERVER: Kelta/" + nasty
              + b"\r\nUSN: uuid:" + nasty + b"::upnp:rootdevice\r\nNTS: ssdp:alive\r\n\r\n")
    assert len(listed_after(pc, stranger, notify, group=SSDP).splitlines()) == 3


@pytest.mark.parametrize("location", ["http://127.0.0.1:8200/", "http://localhost/", "file:///etc/passwd", "http://[::1/", "http://10.0.0.1:99999/",
                                      "http://10.77.0.66:8200/a\tb", "http://224.0.0.1/", "http://010.0.0.1/", "gopher://10.0.0.1/", ""])
def test_places_that_are_not_followed(location):
    assert tool().place_of(location) is None


LAUGHS = (b'<?xml version="1.0"?><!DOCTYPE l [<!ENTITY a "ha">' + b"".join(
    b'<!ENTITY %c "%s">' % (98 + at, b"&%c;" % (97 + at) * 10) for at in range(20))
    + b"]><root><device><friendlyName>&u;</friendlyName></device></root>")
DOCUMENTS = {
    "billion laughs": LAUGHS,
    "a file": b'<!DOCTYPE r [<!ENTITY f SYSTEM "file:///etc/passwd">]><root><device><friendlyName>&f;</friendlyName></device></root>',
    "no end": b"<root><device>" * 2000,
    "no XML": b"\x00\x01\x02",
    "an encoding nobody knows": b'<?xml version="1.0" encoding="klingon"?><root/>',
    "an encoding of bytes": b'<?xml version="1.0" encoding="base64"?><root/>',
    "empty": b"",
    "too large": b"<root>" + b"x" * 400_000,
    "nested deeply": b"<a>" * 20_000 + b"</a>" * 20_000,
}


@pytest.fixture(scope="module")
def read(shared_lan):
    """What is shown of hosts with these descriptions, all at once: the output, and the remarks."""
    for at, document in enumerate(DOCUMENTS.values()):
        RootDevice(shared_lan.host(addresses=[f"10.77.0.{60 + at}/24"]), document, b"Kelta/1, UPnP/1.0")
    done = Browser(shared_lan.host(addresses=["10.77.0.3/24"])).run("--timeout", "1.5")
    assert is_harmless(done.stdout) and is_harmless(done.stderr)
    return done


@pytest.mark.parametrize("name", DOCUMENTS)
def test_strange_descriptions(read, name):
    address = f"10.77.0.{60 + list(DOCUMENTS).index(name)}"
    assert [line.split()[4] for line in read.stdout.splitlines()].count(address) == 1
    assert "root:" not in read.stdout and "haha" not in read.stdout
    is_read = f"its description at http://{address}:5000/d.xml cannot be read: " not in read.stderr
    assert is_read == (name == "nested deeply")  # which is a document, of nothing


def test_nasty_texts_in_a_description(fake, pc):
    """References to characters bring control characters into XML too."""
    fake(7, announcement=None, description=lambda data: with_length(data.replace(b">kelta-7<", ">a&#x85;&#x202E;&#x2028;b<".encode())))
    done = pc.run("--timeout", "0.8")
    assert len(done.stdout.splitlines()) == 2 and is_harmless(done.stdout)


def test_nasty_texts_while_checking(fake, pc):
    """Whatever a device answers stays on its line."""
    nasty = NASTY.encode("utf-8", "surrogatepass")
    spoil = {name: (lambda data: nasty + data[:40] + nasty) for name in ("answer", "alive", "description", "icon", "not_found", "query")}
    fake(7, **spoil, announcement=lambda data: data.replace(b"dhcp", b"\xff\x1b"))
    done = pc.run("check", "10.77.0.7", "--timeout", "0.6")
    assert done.returncode == 1 and is_harmless(done.stdout) and is_harmless(done.stderr)
    assert all(re.match("[✓✗–] ", line) for line in done.stdout.splitlines())


def test_one_host_keeps_one_reader_busy():
    """However often it names another place."""
    browse = tool()
    seen = browse.Surroundings()
    for number in range(1000):
        text = (f"NOTIFY * HTTP/1.1\r\nLOCATION: http://192.0.2.1:8200/{number}\r\nSERVER: Kelta/1, UPnP/1.0\r\n"
                "USN: uuid:1::upnp:rootdevice\r\nNTS: ssdp:alive\r\n\r\n")
        seen.take(browse.Datagram(text.encode(), "192.0.2.1", 1900, 32, "ssdp", "eth0", 0.0))
    assert seen._reader.wanted.qsize() <= 1


def test_a_flood_of_devices(pc, stranger):
    """One address is believed to be a few devices only; the honest one is listed."""
    notify = ("NOTIFY * HTTP/1.1\r\nLOCATION: http://10.9.{}.{}:8200/d\r\nSERVER: Kelta/1, UPnP/1.0\r\nUSN: uuid:{}::upnp:rootdevice\r\n"
              "NTS: ssdp:alive\r\n\r\n")
    datagrams = [notify.format(one // 250, one % 250 + 1, one).encode() for one in range(300)]
    lines = listed_after(pc, stranger, *datagrams, group=SSDP).splitlines()
    assert len(lines) == 1 + 1 + 16 and any("kelta-8" in line for line in lines)
