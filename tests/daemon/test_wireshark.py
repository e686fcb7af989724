"""The dissector in wireshark/, run by tshark over what the daemon sends, and over what strangers might."""

import json
import shutil
import socket
import struct
import subprocess

import pytest

from codeblocks import ROOT
from qtversion import as_qt_writes
from scanning import scan
from simdevice.device import ADDRESS
from simdevice.waiting import wait_for

pytestmark = pytest.mark.skipif(not shutil.which("tshark"), reason="tshark is not installed")

DISSECTOR = ROOT / "wireshark" / "kelta.lua"
SEEDS = ROOT / "fuzz" / "seeds" / "announcement"
GROUP, PORT = "239.255.77.76", 31416
RAW_IPV4 = 228  # the link type of packets that begin with the IP header


def packet(payload: bytes) -> bytes:
    udp = struct.pack(">HHHH", PORT, PORT, 8 + len(payload), 0) + payload
    return struct.pack(">BBHHHBBH4s4s", 0x45, 0, 20 + len(udp), 0, 0, 1, socket.IPPROTO_UDP, 0,
                       socket.inet_aton(ADDRESS), socket.inet_aton(GROUP)) + udp


@pytest.fixture
def dissect(tmp_path):
    """A function: what tshark says of each datagram, its info column and its fields by name, each a list of texts.

    `kept` is how many bytes of each packet the capture holds, all when None.
    """
    def run(*payloads: bytes, kept: int = None) -> list:
        capture = tmp_path / "capture.pcap"
        with open(capture, "wb") as file:
            file.write(struct.pack("<IHHiIII", 0xa1b2c3d4, 2, 4, 0, 0, 262144, RAW_IPV4))
            for number, payload in enumerate(payloads):
                whole = packet(payload)
                file.write(struct.pack("<IIII", number, 0, len(whole[:kept]), len(whole)) + whole[:kept])
        done = subprocess.run(["tshark", "-n", "-X", f"lua_script:{DISSECTOR}", "-r", str(capture), "-T", "ek"],
                              capture_output=True, text=True, timeout=120, env={"HOME": str(tmp_path), "PATH": "/usr/bin"})
        assert done.returncode == 0, done.stderr
        assert "Lua" not in done.stderr, done.stderr
        assert "Lua Error" not in done.stdout, done.stdout[done.stdout.index("Lua Error"):][:300]
        found = [json.loads(line)["layers"] for line in done.stdout.splitlines() if '"layers"' in line]
        assert len(found) == len(payloads)
        return [values(layers) for layers in found]

    def values(layers: dict) -> dict:
        named = {}
        pick(layers["kelta"], named)
        return named

    def pick(layer, named: dict) -> None:
        for one in layer if isinstance(layer, list) else [layer]:
            for name, value in one.items():
                if name.startswith("kelta_kelta_"):
                    named[name[len("kelta_kelta_"):]] = value if isinstance(value, list) else [value]
                elif name == "_ws_expert":
                    pick(value, named)

    return run


@pytest.fixture
def info(tmp_path):
    """A function: the line in the packet list for each datagram of the last dissect()."""
    def run() -> list:
        done = subprocess.run(["tshark", "-n", "-X", f"lua_script:{DISSECTOR}", "-r", str(tmp_path / "capture.pcap"),
                               "-T", "fields", "-e", "_ws.col.Protocol", "-e", "_ws.col.Info"],
                              capture_output=True, text=True, timeout=120, check=True,
                              env={"HOME": str(tmp_path), "PATH": "/usr/bin"})
        return done.stdout.splitlines()
    return run


def sent_by(device, peer) -> bytes:
    """An announcement of the device as it is on the wire, once it knows its network."""
    listener = peer.listen_announcements()

    def found():
        listener.clear()
        scan(device, "sendAnnouncement")
        text = listener.wait_for(b"announce")[0].data
        return text if b'"configurationMethod":""' not in text else None

    return wait_for(found, what="an announcement with the network in it")


def test_announcement(device, peer, dissect, info):
    found, = dissect(sent_by(device, peer))
    text = found.pop("text")
    assert found == {
        "jsonrpc": ["2.0"], "method": ["announce"], "api_version": ["1.0"], "name": ["kelta"], "uuid": ["KM-2044817"],
        "type": ["Kelta"], "family": ["Kelta"], "firmware": ["1.4.2"], "interface": ["eth0"],
        "interface_type": ["ethernet"], "ipv4": [ADDRESS], "netmask": ["255.255.255.0"], "configuration": ["dhcp"],
        "gateway": ["10.77.0.1"], "service": ["http", "scpi", "daqStream"], "service_port": ["80", "55000", "7411"],
        "expiration": ["22"], "forgotten": ["66"]}
    assert text
    assert info() == ["Kelta\tannounce kelta KM-2044817 (Kelta 1.4.2) 10.77.0.2, counts 22 s"]


def test_codesys_and_several_addresses(start_device, peer, dissect):
    device = start_device(addresses=[f"{ADDRESS}/24", "169.254.1.2/16"], ipv6=True)
    device.host.add_address("fd00::2/64")
    device.install_codesys()
    device.call("configureIp")
    found, = dissect(sent_by(device, peer))
    assert found["type"] == ["Kelta CODESYS"] and found["family"] == ["Kelta"]
    assert found["ipv4"] == [ADDRESS, "169.254.1.2"]
    assert (found["ipv6"], found["prefix"]) == ([as_qt_writes(device, "fd00::2")], ["64"])
    assert "invalid" not in found


def test_no_interface(start_device, peer, dissect, info):
    device = start_device(daemon="off")
    device.host.rename_interface("eth0", "can0")
    device.host.default_route("can0")
    device.start()
    found, = dissect(sent_by(device, peer))
    assert found["uuid"] == ["KM-2044817"] and found["service"] == ["http", "scpi", "daqStream"]
    assert found["expiration"] == ["22"] and "interface" not in found
    assert {"invalid", "interfaces"} <= found.keys()
    assert info() == ["Kelta\tannounce kelta KM-2044817 (Kelta 1.4.2), counts 22 s [no interface] [not valid JSON]"]


def test_several_interfaces(start_device, peer, dissect, info):
    device = start_device(daemon="off")
    for number in (1, 2):
        device.host.add_interface(f"eth{number}", [f"10.7{number + 7}.0.2/24"])
    device.start()
    found, = dissect(sent_by(device, peer))
    assert found["interface"] == ["eth0", "eth1", "eth2"]
    assert found["ipv4"] == [ADDRESS, "10.78.0.2", "10.79.0.2"]
    assert found["gateway"] == ["10.77.0.1"] * 3
    assert found["name"] == ["kelta"] and found["service_port"] == ["80", "55000", "7411"]
    assert {"invalid", "interfaces"} <= found.keys()
    assert info()[0].endswith("10.77.0.2 10.78.0.2 10.79.0.2, counts 22 s [3 interfaces] [not valid JSON]")


def test_every_beginning_of_an_announcement(device, peer, dissect):
    text = sent_by(device, peer)
    found = dissect(*[text[:length] for length in range(1, len(text))])
    assert all("foreign" in one for one in found[:3])
    assert all("invalid" in one for one in found[3:])
    assert found[-1]["expiration"] == ["22"]


def test_captured_in_part(device, peer, dissect):
    text = sent_by(device, peer)
    found, = dissect(text, kept=28 + text.index(b'"netSettings"'))
    assert {"cut", "invalid"} <= found.keys()
    assert found["uuid"] == ["KM-2044817"]


def test_what_is_no_announcement(dissect, info):
    found = dissect(b"M-SEARCH * HTTP/1.1\r\n\r\n", b"\0\xff\xfe", b"[1]", b" ")
    assert [one.keys() for one in found] == [{"foreign"}] * 4
    assert info() == [f"Kelta\tno announcement, {size} bytes" for size in (23, 3, 3, 1)]


@pytest.mark.parametrize("text, problem", [
    (b'{"a":1,}', True), (b'{"a" 1}', True), (b'{a:1}', True), (b'{"a":[1,2}', True), (b'{"a":1}}', True),
    (b'{"a":1} x', True), (b'{"a":"x', True), (b'{"a":+1}', True), (b'{"a":nul}', True), (b'{,}', True), (b'{"a":}', True),
    (b'{"a":[1 2]}', True), (b'{}{}', True),
    (b'{}', False), (b' {"a":[],"b":{},"c":[{},[]],"d":-1.5e3,"e":null,"f":true,"g":"\\u00e9\\"\\\\"}\n', False)])
def test_what_counts_as_json(dissect, text, problem):
    found, = dissect(text)
    assert ("invalid" in found) is problem


def test_values_of_other_types_and_forms(dissect):
    found, = dissect(b'{"method":1,"params":{"device":{"name":"a\\u00e9\\u0000\\ud800\\ud83d\\ude00","uuid":null},'
                     b'"netSettings":{"interface":{"name":"x","ipv4":[{"address":"300.1.1.1"},{"address":"host.example"}]}},'
                     b'"expiration":6.6}}')
    assert found["method"] == ["1"] and found["uuid"] == ["null"]
    assert found["name"] == ["aé??\U0001f600"]
    assert found["address"] == ["300.1.1.1", "host.example"] and "ipv4" not in found
    assert found["expiration"] == ["6.6"] and "invalid" not in found


def test_hostile_texts_are_read_to_their_end(dissect):
    seeds = [file.read_bytes() for file in sorted(SEEDS.iterdir())]
    assert len(seeds) > 40
    hostile = [b'{"a":' + b"[" * 60000, b"{" * 60000, b'{"a":[' + b"[" * 20000 + b"1," * 20000, b'{"' + b"\\" * 60000,
               b'{"ipv4":[' + b'{"address":"1.2.3.4"},' * 2500, b"{" + b"}" * 60000, bytes(range(256)) * 100]
    dissect(*[seed for seed in seeds if 0 < len(seed) < 65000], *hostile)
