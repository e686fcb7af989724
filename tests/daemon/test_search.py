"""Which searches are answered, how, and to whom."""

import contextlib
import datetime
import signal
import socket
import time

import pytest

from simdevice.controlpoint import SSDP
from simdevice.device import ADDRESS, default_program
from simdevice.waiting import wait_for
from texts import ANSWER, ANSWER_AUTOIP, AUTOIP, UUID, replaced
from wirebytes import compare_bytes

LINK_LOCAL_PEER = "169.254.7.7"
ETH_P_IP = 0x0800
BOTH_KINDS = [f"{ADDRESS}/24", f"{AUTOIP}/16"]
URN = b"urn:schemas-upnp-org:device:Basic:1"


def search(st: bytes) -> bytes:
    return (b'M-SEARCH * HTTP/1.1\r\nHOST: 239.255.255.250:1900\r\nMAN: "ssdp:discover"\r\nMX: 1\r\n'
            b"ST: " + st + b"\r\n\r\n")


def the_answer(peer, raw: bytes, **options) -> bytes:
    answers = peer.search(raw=raw, **options)
    assert len(answers) == 1, answers
    assert answers[0].source == (peer.device_address, 1900)
    return answers[0].data


ANSWERED = [
    pytest.param(search(b"ssdp:all"), id="ssdp:all"),
    pytest.param(search(b"upnp:rootdevice"), id="root device"),
    pytest.param(search(UUID.encode()), id="bare UUID"),
    pytest.param(search(b"uuid:" + UUID.encode()), id="UUID with the usual prefix"),
    pytest.param(search(b"uuid:Upnp-BasicDevice-1_0-" + UUID.encode()), id="prefixed UUID gets the root device answer"),
    pytest.param(search(b"uuid:Upnp-BasicDevice-1_0-" + UUID.encode() + b"::upnp:rootdevice"), id="whole USN"),
    pytest.param(search(UUID.encode() + b"0"), id="link-local UUID, asked for by an ordinary peer"),
    pytest.param(b"M-SEARCH * HTTP/1.1\r\nST: ssdp:all\r\n\r\n", id="neither MAN nor MX nor HOST"),
    pytest.param(b"M-SEARCH * HTTP/1.1\r\nST:ssdp:all", id="no line end"),
    pytest.param(b"M-SEARCHssdp:all", id="nothing but the words"),
    pytest.param(b"M-SEARCH\0\0\0ssdp:all\0", id="NULs"),
    pytest.param(b"M-SEARCH \x80\xff\xfe\xe9 upnp:rootdevice \xff", id="8-bit bytes"),
    pytest.param(b"M-SEARCH * HTTP/1.1\nST: ssdp:all\n\n", id="line feeds only"),
    pytest.param(b"M-SEARCH /other HTTP/9.9\r\nST: ssdp:all\r\n\r\n", id="another target and version"),
    pytest.param(search(URN)[:-2] + b"User-Agent: upnp:rootdevice\r\n\r\n", id="root device in another header"),
    pytest.param(search(URN) + b"body with ssdp:all", id="ssdp:all in the body"),
    pytest.param(search(URN).replace(b"ssdp:discover", b"ssdp:alligator"), id="ssdp:all within a word"),
    pytest.param(b"M-SEARCH * HTTP/1.1\r\nX: " + b"x" * 60_000 + b"\r\nST: ssdp:all\r\n\r\n", id="60 kB"),
]

NOT_ANSWERED = [
    pytest.param(search(URN), id="URN of the basic device"),
    pytest.param(search(b"urn:schemas-upnp-org:service:ContentDirectory:1"), id="URN of a service"),
    pytest.param(search(b""), id="empty search target"),
    pytest.param(search(b"ssdp:ALL"), id="SSDP:all in other case"),
    pytest.param(search(b"upnp:RootDevice"), id="root device in other case"),
    pytest.param(search(UUID.upper().encode()), id="UUID in upper case"),
    pytest.param(search(UUID[:-1].encode()), id="UUID cut short"),
    pytest.param(search(b"00000000-52f4-4d0b-8c6e-2f7d10a4b3c5"), id="UUID of another device"),
    pytest.param(search(b"ssdp:al\0l"), id="NUL within the words"),
    pytest.param(search(b"ssdp:all").replace(b"M-SEARCH", b"m-search"), id="method in lower case"),
    pytest.param(b" " + search(b"ssdp:all"), id="leading blank"),
    pytest.param(b"\r\n" + search(b"ssdp:all"), id="leading line end"),
    pytest.param(b"\0" + search(b"ssdp:all"), id="leading NUL"),
    pytest.param(b"M-SEARC", id="method cut short"),
    pytest.param(b"M-SEARCH", id="method only"),
    pytest.param(b"", id="no bytes"),
    pytest.param(b"NOTIFY * HTTP/1.1\r\nNT: upnp:rootdevice\r\nNTS: ssdp:alive\r\n\r\n", id="another device's alive"),
    pytest.param(b"NOTIFY * HTTP/1.1\r\nNT: ssdp:all\r\nX: M-SEARCH\r\n\r\n", id="NOTIFY that mentions a search"),
    pytest.param(b"HTTP/1.1 200 OK\r\nST: ssdp:all\r\n\r\n", id="answer of another device"),
    pytest.param(b"x" * 60_000 + b"M-SEARCH ssdp:all", id="60 kB of something else"),
]


@pytest.mark.parametrize("to", [pytest.param(SSDP, id="multicast"), pytest.param((ADDRESS, 1900), id="unicast")])
@pytest.mark.parametrize("raw", ANSWERED)
def test_is_answered_once_with_the_root_device(shared_device, shared_peer, raw, to):
    compare_bytes(the_answer(shared_peer, raw, to=to), ANSWER)
    assert shared_device.syslog.lines == []


@pytest.mark.parametrize("raw", NOT_ANSWERED)
def test_is_not_answered(shared_device, shared_peer, raw):
    assert shared_peer.search(raw=raw) == []
    assert shared_peer.search(raw=raw, to=(ADDRESS, 1900)) == []
    assert shared_device.syslog.lines == []


def test_answer_goes_to_the_asking_port_only(shared_device, shared_peer):
    listener = shared_peer.listen_ssdp()
    compare_bytes(the_answer(shared_peer, search(b"ssdp:all"), from_port=50_123), ANSWER)
    compare_bytes(the_answer(shared_peer, search(b"ssdp:all"), from_port=1900, from_address="10.77.0.3"), ANSWER)
    assert not [datagram for datagram in listener.received if datagram.data.startswith(b"HTTP")]


def test_two_devices_answer_each_for_itself(start_device, peer):
    start_device()
    other = start_device(addresses=["10.77.0.4/24"], mac="00:11:22:aa:bb:cd")
    with peer.host.socket() as asking:
        asking.settimeout(10)
        asking.sendto(search(b"ssdp:all"), SSDP)
        found = {source: data for data, source in (asking.recvfrom(65536) for _ in range(2))}
    compare_bytes(found[(ADDRESS, 1900)], ANSWER)
    compare_bytes(found[(other.address, 1900)], replaced(ANSWER, address=other.address))


def ports_of_answers(wire: socket.socket) -> list:
    """Where the answers went that a packet socket saw, in their order."""
    ports = []
    with contextlib.suppress(BlockingIOError):
        while packet := wire.recv(65536):
            udp = packet[4 * (packet[0] & 15):]
            if packet[9] == socket.IPPROTO_UDP and udp[:2] == (1900).to_bytes(2, "big") and udp[8:].startswith(b"HTTP"):
                ports.append(int.from_bytes(udp[2:4], "big"))
    return ports


def test_a_burst_is_answered_in_the_order_of_arrival_each_to_its_own_port(device, peer):
    with peer.host.inside():
        wire = socket.socket(socket.AF_PACKET, socket.SOCK_DGRAM, socket.htons(ETH_P_IP))
    wire.setblocking(False)
    with wire, contextlib.ExitStack() as stack:
        asking = [stack.enter_context(peer.host.socket()) for _ in range(20)]
        device.signal(signal.SIGSTOP)
        for number, one in enumerate(asking):
            one.setblocking(False)
            one.sendto(search(b"ssdp:all" if number % 2 else UUID.encode()), SSDP)
        device.signal(signal.SIGCONT)
        peer.search()
        for one in asking:
            data, source = one.recvfrom(65536)
            assert source == (ADDRESS, 1900)
            compare_bytes(data, ANSWER)
            with pytest.raises(BlockingIOError):
                one.recv(65536)
        assert ports_of_answers(wire)[:20] == [one.getsockname()[1] for one in asking]


# Peers with a link-local address

@pytest.fixture
def link_local_peer(peer):
    peer.host.add_address(f"{LINK_LOCAL_PEER}/16")
    return peer


def test_a_link_local_peer_gets_the_link_local_identity(start_device, link_local_peer):
    start_device(addresses=BOTH_KINDS)
    link_local_peer.device_address = AUTOIP
    for st in (b"ssdp:all", UUID.encode() + b"0"):
        compare_bytes(the_answer(link_local_peer, search(st), from_address=LINK_LOCAL_PEER), ANSWER_AUTOIP)
    assert link_local_peer.search(raw=search(UUID.encode()), from_address=LINK_LOCAL_PEER) == []


def test_an_ordinary_peer_gets_the_regular_identity_of_a_device_that_has_both(start_device, peer):
    start_device(addresses=BOTH_KINDS)
    compare_bytes(the_answer(peer, search(b"ssdp:all")), ANSWER)


def test_a_device_without_a_link_local_address_gives_everybody_the_regular_identity(device, link_local_peer):
    compare_bytes(the_answer(link_local_peer, search(b"ssdp:all"), from_address=LINK_LOCAL_PEER), ANSWER)
    compare_bytes(the_answer(link_local_peer, search(UUID.encode()), from_address=LINK_LOCAL_PEER), ANSWER)


def test_answers_follow_the_address(device, peer):
    device.connman.ipv4("10.0.0.5", "10.0.0.1", "manual")
    wait_for(lambda: device.call("getAddressStr") == "10.0.0.5", what="the new address")
    compare_bytes(the_answer(peer, search(b"ssdp:all")), replaced(ANSWER, address="10.0.0.5"))


def test_with_an_empty_uuid_every_search_is_answered(start_device, peer, tmp_path):
    device = start_device(daemon="off")
    device.fwconfig.set(variables={})
    (tmp_path / "empty").touch()
    device.host.command([*device.room.prefix, "mount", "--bind", str(tmp_path / "empty"),
                         "/proc/sys/kernel/random/uuid"])
    device.start()
    expected = replaced(ANSWER, uuid="")
    compare_bytes(the_answer(peer, search(URN)), expected)
    compare_bytes(the_answer(peer, b"M-SEARCH"), expected)
    assert peer.search(raw=b"m-search") == []
    assert [call.arguments for call in device.fwconfig.calls_of("/systemvariables.set")] == [["UUID", ""]]


# The date

def in_time_zone(tmp_path, zone: str) -> str:
    """A program that is the daemon in another time zone."""
    script = tmp_path / "upnpvelorn"
    script.write_text(f"#!/bin/sh\nTZ={zone} exec {default_program()}\n")
    script.chmod(0o755)
    return str(script)


def date_of(answer: bytes) -> str:
    return answer.split(b"\r\nDATE: ")[1].split(b"\r\n")[0].decode()


def dates_between(first: int, last: int) -> list:
    texts = []
    for second in range(first, last + 1):
        moment = datetime.datetime(1970, 1, 1) + datetime.timedelta(seconds=second)
        texts.append(f"{moment:%a, %d %b %Y %H:%M}:{moment.second}")
    return texts


@pytest.mark.parametrize("hours", [pytest.param(5, id="east"), pytest.param(-9, id="west")])
def test_date_is_local_time_with_seconds_that_have_no_leading_zero(start_device, peer, tmp_path, hours):
    """The zone is shifted by some seconds as well, so that the local minute has just begun when the device starts."""
    seconds = hours * 3600 - int(time.time()) % 60
    zone = f"LOCAL{'-' if seconds > 0 else '+'}{datetime.timedelta(seconds=abs(seconds))}"
    start_device(program=in_time_zone(tmp_path, zone))
    before = int(time.time())
    answer = the_answer(peer, search(b"ssdp:all"))
    compare_bytes(answer, ANSWER)
    assert date_of(answer) in dates_between(before + seconds, int(time.time()) + seconds)
