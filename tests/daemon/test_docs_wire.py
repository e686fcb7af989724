"""docs/wire.md shows what the daemon really sends: every block in it is compared, byte by byte."""

import re

import pytest

from codeblocks import ROOT, fenced, wire_bytes
from scanning import scan
from simdevice.device import ADDRESS, HTTP_PORT
from simdevice.waiting import wait_for
from texts import AUTOIP
from wirebytes import compare_bytes

DOCUMENT = "docs/wire.md"
BLOCKS = {name: wire_bytes(block) for name, block in fenced(DOCUMENT, "wire").items()}
SENT = {name: wire_bytes(block) for name, block in fenced(DOCUMENT, "sent").items()}
BOTH_KINDS = [f"{ADDRESS}/24", f"{AUTOIP}/16"]
PEER_AUTOIP = "169.254.1.3"

_DATE = re.compile(rb"(?<=Date: |DATE: )\w{3}, \d\d \w{3} \d{4} \d\d:\d\d:(\d\d?)(?=\r)")


def expected(name: str) -> bytes:
    """The block, with the dates in it standing for any other of their form."""
    is_answer = b"\r\nEXT:" in BLOCKS[name]
    return _DATE.sub(b"{DATE1}" if is_answer else b"{DATE}", BLOCKS[name])


def notify(start_device, peer, count: int, number: int, addresses: list = None, change: bool = False) -> bytes:
    """One of the `count` announcements that a device sends, at the start or on a change of its address."""
    ssdp = peer.listen_ssdp()
    device = start_device(addresses=addresses)
    if change:
        device.connman.ipv4("10.0.0.5", "10.0.0.1", "dhcp")
    found = ssdp.wait_for(b"NOTIFY", count=count)
    assert len(found) == count
    return found[number].data


def answer(start_device, peer, search: str, from_address: str = None) -> bytes:
    if from_address:
        peer.host.add_address(f"{from_address}/16")
    start_device(addresses=BOTH_KINDS if from_address else None)
    found, = peer.search(raw=SENT[search], from_address=from_address)
    return found.data


def announcement(start_device, peer, prepare=None, interface: str = "eth0") -> bytes:
    device = start_device(daemon="off", interface=interface)
    if prepare:
        prepare(device)
    device.start()
    listener = peer.listen_announcements()
    scan(device, "sendAnnouncement")
    return listener.wait_for(b"announce")[0].data


def second_interface(device) -> None:
    device.host.add_interface("eth1", ["10.78.0.2/24"])


def only_can(device) -> None:
    """eth0 is there for the address and named like a CAN bus afterwards, so that nothing is left to be announced."""
    device.host.rename_interface("eth0", "can0")
    device.host.default_route("can0")


def page(start_device, peer, request: str, from_address: str = None, icon: bytes = None) -> bytes:
    device = start_device(addresses=BOTH_KINDS if from_address else None)
    device.set_icon(icon)
    if from_address:
        peer.host.add_address(f"{from_address}/16")
        return peer.http_raw(SENT[request], address=AUTOIP, from_address=from_address)
    return peer.http_raw(SENT[request])


CAPTURES = {
    "alive-at-first": lambda *at: notify(*at, 2, 0),
    "alive": lambda *at: notify(*at, 2, 1),
    "alive-link-local": lambda *at: notify(*at, 3, 2, BOTH_KINDS),
    "byebye": lambda *at: notify(*at, 4, 2, change=True),
    "byebye-link-local": lambda *at: notify(*at, 7, 4, BOTH_KINDS, change=True),
    "answer": lambda *at: answer(*at, "search-all"),
    "answer-link-local": lambda *at: answer(*at, "search-all", PEER_AUTOIP),
    "announcement": announcement,
    "announcement-no-interface": lambda *at: announcement(*at, only_can),
    "announcement-two-interfaces": lambda *at: announcement(*at, second_interface),
    "description": lambda *at: page(*at, "get-description"),
    "description-link-local": lambda *at: page(*at, "get-description", PEER_AUTOIP),
    "icon": lambda *at: page(*at, "get-icon", icon=bytes(3245)),
    "icon-missing": lambda *at: page(*at, "get-icon"),
    "not-found": lambda *at: page(*at, "get-with-query"),
}


@pytest.mark.parametrize("name", CAPTURES)
def test_what_the_daemon_sends(start_device, peer, name):
    captured = CAPTURES[name](start_device, peer)
    if name == "icon":
        captured = captured[:captured.index(b"\r\n\r\n") + 4]
    compare_bytes(captured, expected(name))


def test_answer_to_the_uuid(start_device, peer):
    """The running daemon never sends it, see the document; its text is that of the unit test."""
    text = (ROOT / "tests/upnp/data/uuid_answer.msg").read_bytes()
    compare_bytes(_DATE.sub(_DATE.search(BLOCKS["answer-uuid"])[0], text), BLOCKS["answer-uuid"])


@pytest.mark.parametrize("name", [name for name in SENT if name.startswith("search-answered")])
def test_searches_that_are_answered(shared_device, shared_peer, name):
    assert len(shared_peer.search(raw=SENT[name])) == 1


@pytest.mark.parametrize("name", [name for name in SENT if name.startswith("search-ignored")])
def test_searches_that_are_not_answered(shared_device, shared_peer, name):
    assert shared_peer.search(raw=SENT[name]) == []


@pytest.mark.parametrize("name", [name for name in SENT if name.startswith("silent")])
def test_requests_that_get_no_answer(shared_device, shared_peer, name):
    with shared_peer.connect() as connection:
        connection.send(SENT[name])
        wait_for(lambda: connection.in_flight() == 0 and shared_device.unread(HTTP_PORT) == 0, what="the request is read")
        shared_peer.http_raw(SENT["get-description"])
        assert connection.nothing_to_read()


def test_every_block_is_compared():
    assert set(BLOCKS) == {*CAPTURES, "answer-uuid"}
    assert {name.split("-")[0] for name in SENT} == {"search", "get", "silent"}
