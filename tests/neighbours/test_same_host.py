"""Other discovery services on the device itself: nobody is in the way of anybody."""

import socket
import struct

import pytest

from programs import Program, known_user
from simdevice.device import ADDRESS
from simdevice.recorder import drain
from simdevice.waiting import wait_for
from texts import ALIVE, ANSWER, BYEBYE, expect_notifies, notifies, replaced
from wirebytes import compare_bytes

MDNS = ("224.0.0.251", 5353)
OTHERS_ALIVE = (b"NOTIFY * HTTP/1.1\r\nHOST: 239.255.255.250:1900\r\nCACHE-CONTROL: max-age=1800\r\n"
                b"LOCATION: http://10.77.0.3:80/x.xml\r\nSERVER: x\r\nNT: upnp:rootdevice\r\n"
                b"USN: uuid:other::upnp:rootdevice\r\nNTS: ssdp:alive\r\n\r\n")


@pytest.fixture
def start_minissdpd(start_program, tmp_path):
    """A function that starts it on the device and waits until it hears port 1900."""
    def start(device) -> Program:
        at = tmp_path / "minissdpd.sock"
        program = start_program(Program, device.room.prefix, ["minissdpd", "-d", "-i", "eth0", "-s", str(at),
                                                              "-p", str(tmp_path / "minissdpd.pid")])
        wait_for(at.exists, what="minissdpd listens", seen=lambda: program.output)
        return program
    return start


def works_as_ever(device, peer, ssdp) -> None:
    """Searches over the group, descriptions, and the messages of a change."""
    compare_bytes(peer.search_group()[0].data, ANSWER)
    assert peer.http_raw(b"GET /rootDesc.xml HTTP/1.1\r\n\r\n").startswith(b"HTTP/1.1 200 OK\r\n")
    ssdp.clear()
    device.connman.ipv4("10.0.0.5", "10.0.0.1", "dhcp")
    expect_notifies(ssdp, BYEBYE, replaced(ALIVE, address="10.0.0.5"))


@pytest.fixture
def peer(peer):
    """Its search_group() asks over the group only: beside another program on port 1900 a unicast may be the other's."""
    def search_group() -> list:
        with peer._udp() as asking:
            asking.sendto(peer.search_text("ssdp:all"), ("239.255.255.250", 1900))
            return wait_for(lambda: drain(asking), what="an answer")
    peer.search_group = search_group
    return peer


@pytest.mark.parametrize("first", ["minissdpd", "the daemon"])
def test_minissdpd_shares_the_port(start_device, ssdp, peer, start_minissdpd, first):
    device = start_device(daemon="off")
    if first == "the daemon":
        device.start()
    minissdpd = start_minissdpd(device)
    if first == "minissdpd":
        device.start()
    works_as_ever(device, peer, ssdp)
    peer.send(OTHERS_ALIVE, ("239.255.255.250", 1900))
    minissdpd.wait_for_output("new device discovered : uuid:other::upnp:rootdevice")
    minissdpd.wait_for_output("new device discovered : uuid:Upnp-BasicDevice-1_0-")


@pytest.mark.parametrize("first", ["minissdpd", "the daemon"])
def test_a_search_by_unicast_reaches_only_who_came_last_to_the_port(start_device, peer, start_minissdpd, first):
    """The kernel's rule. Control points search over the group."""
    device = start_device(daemon="off")
    if first == "the daemon":
        device.start()
    minissdpd = start_minissdpd(device)
    if first == "minissdpd":
        device.start()
    with peer._udp() as asking:
        asking.sendto(peer.search_text("ssdp:all"), (ADDRESS, 1900))
        if first == "minissdpd":
            assert len(wait_for(lambda: drain(asking), what="the daemon's answer")) == 1
        else:
            port = asking.getsockname()[1]
            minissdpd.wait_for_output(f"SSDP M-SEARCH from 10.77.0.3:{port} ST:ssdp:all")
            peer.search_group()
            assert drain(asking) == []


def question(name: str) -> bytes:
    labels = b"".join(bytes([len(label)]) + label.encode() for label in name.split("."))
    return struct.pack(">6H", 0, 0, 1, 0, 0, 0) + labels + b"\0" + struct.pack(">HH", 1, 1)


def test_avahi_beside_it(start_device, ssdp, peer, start_program, tmp_path):
    configuration = tmp_path / "avahi.conf"
    configuration.write_text("[server]\nhost-name=kelta\nuse-ipv6=no\nallow-interfaces=eth0\nenable-dbus=no\n")
    device = start_device()
    avahi = start_program(Program, [*device.room.prefix, *known_user(tmp_path, "avahi")], [
        "avahi-daemon", "--no-drop-root", "--no-chroot", "--no-rlimits", f"--file={configuration}"])
    avahi.wait_for_output("Server startup complete")
    with peer._udp() as asking:
        asking.sendto(question("kelta.local"), MDNS)
        answer = wait_for(lambda: drain(asking), 15, "an answer", lambda: avahi.output)[0]
    assert answer.source == (ADDRESS, 5353) and answer.data.endswith(socket.inet_aton(ADDRESS))
    works_as_ever(device, peer, ssdp)
    assert avahi.running and notifies(ssdp) == []
