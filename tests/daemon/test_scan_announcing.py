"""The device's own announcement on the wire."""

import socket
import struct
import time

import pytest

from qtversion import as_qt_writes
from scanning import GROUP, PORT, scan, SERIAL
from simdevice.controlpoint import ANNOUNCEMENTS
from simdevice.device import ADDRESS
from simdevice.values import Typed
from simdevice.waiting import wait_for
from wirebytes import compare_bytes, compare_with_file, expected_message

ANNOUNCEMENT = "announcement.json"


def sent_up_to_now(device, listener) -> list:
    """What the device has sent to the group since the listener was cleared. A datagram of its host closes it."""
    with device.host.socket() as closing:
        closing.sendto(b"that is all", ANNOUNCEMENTS)
    listener.wait_for(b"that is all")
    return [datagram.data for datagram in listener.received[:-1]]


def next_announcement(device, listener) -> bytes:
    listener.clear()
    scan(device, "sendAnnouncement")
    return listener.wait_for()[0].data


def two_address_text() -> bytes:
    one = b'{"address":"10.77.0.2","netmask":"255.255.255.0"}'
    return expected_message(ANNOUNCEMENT).replace(one, one + b',{"address":"10.77.0.9","netmask":"255.255.255.0"}')


def test_first_announcement_goes_out_at_start(start_device, peer):
    device = start_device(daemon="off")
    listener = peer.listen_announcements()
    device.start()
    first = listener.wait_for()[0]
    assert first.source == (ADDRESS, PORT)
    # At that moment the network is not known yet: the method and the gateway come from the services afterwards.
    compare_bytes(first.data, expected_message(ANNOUNCEMENT).replace(b'"dhcp"', b'""').replace(
        b'"ipv4Address":"10.77.0.1"', b'"ipv6Address":""'))
    compare_with_file(next_announcement(device, listener), ANNOUNCEMENT)


def test_next_announcements_go_out_every_10_seconds_and_show_an_ipv4_change(start_device, peer):
    device = start_device(daemon="off")
    listener = peer.listen_announcements()
    device.start(wait=False)
    listener.wait_for(count=2, seconds=25)
    device.connman.ipv4(address="10.77.0.2", gateway="10.77.0.1", method="fixed")
    received = listener.wait_for(count=3, seconds=15)
    assert len(received) == 3
    assert received[1].time - received[0].time == pytest.approx(10, abs=1.5)
    assert received[2].time - received[1].time == pytest.approx(10, abs=0.5)
    compare_with_file(received[1].data, ANNOUNCEMENT)
    compare_bytes(received[2].data, expected_message(ANNOUNCEMENT).replace(b'"dhcp"', b'"fixed"'))


def test_sent_to_the_group_with_the_system_time_to_live(device, peer):
    with peer.host.inside():
        raw = socket.socket(socket.AF_PACKET, socket.SOCK_DGRAM, socket.htons(0x0800))
    with raw:
        raw.settimeout(10)
        scan(device, "sendAnnouncement")
        while True:
            packet = raw.recv(65536)
            if packet[9] == socket.IPPROTO_UDP and packet[16:20] == socket.inet_aton(GROUP):
                break
    assert packet[8] == 1
    assert packet[12:16] == socket.inet_aton(ADDRESS)
    header = (packet[0] & 15) * 4
    assert struct.unpack("!HH", packet[header:header + 4]) == (PORT, PORT)
    compare_with_file(packet[header + 8:], ANNOUNCEMENT)


def wait_for_other_text(device, listener) -> bytes:
    usual = expected_message(ANNOUNCEMENT)
    return wait_for(lambda: next((text for text in [next_announcement(device, listener)] if text != usual), None),
                    what="another announcement")


def report(device, monitor, *states) -> None:
    """Returns when the device has had all of these reports of connman."""
    monitor.clear()
    for state in states:
        device.connman.state(state)
    wait_for(lambda: len(monitor.signals("PropertyChanged")) == len(states), what="the bus has all signals")
    device.answers()


def test_ready_changes_nothing_and_online_refreshes_the_text_without_sending_it(device, peer):
    listener = peer.listen_announcements()
    monitor = device.bus.monitor("type='signal',interface='net.connman.Service'")
    device.host.add_address("10.77.0.9/24")
    listener.wait_for(seconds=15)  # The timer's, so there are ten seconds without another one.
    begin = time.monotonic()
    report(device, monitor, "ready", "idle", "failure", "Online", "online ")
    compare_with_file(next_announcement(device, listener), ANNOUNCEMENT)
    listener.clear()
    report(device, monitor, "online")
    assert sent_up_to_now(device, listener) == []
    assert time.monotonic() - begin < 9
    compare_bytes(next_announcement(device, listener), two_address_text())


def test_ipv4_change_refreshes_the_text(device, peer):
    listener = peer.listen_announcements()
    device.connman.ipv4(address="10.77.0.2", gateway="10.77.0.250", method="manual")
    compare_bytes(wait_for_other_text(device, listener), expected_message(ANNOUNCEMENT).replace(
        b'"dhcp"', b'"manual"').replace(b"10.77.0.1", b"10.77.0.250"))


def test_empty_ipv4_change_announces_no_gateway(device, peer):
    listener = peer.listen_announcements()
    device.connman.property_changed("IPv4", Typed("a{sv}", {}))
    compare_bytes(wait_for_other_text(device, listener), expected_message(ANNOUNCEMENT).replace(
        b'"dhcp"', b'""').replace(b'"ipv4Address":"10.77.0.1"', b'"ipv6Address":""'))


def test_host_name_change_refreshes_the_text(device, peer):
    listener = peer.listen_announcements()
    device.room.write_hostname("renamed")
    compare_bytes(wait_for_other_text(device, listener), expected_message(ANNOUNCEMENT).replace(
        b'"name":"kelta"', b'"name":"renamed"'))


def test_codesys_is_asked_for_each_time_the_text_is_built(device, peer):
    listener = peer.listen_announcements()
    device.install_codesys()
    compare_with_file(next_announcement(device, listener), ANNOUNCEMENT)
    scan(device, "configChanged")
    compare_bytes(next_announcement(device, listener), expected_message(ANNOUNCEMENT).replace(
        b'"type":"Kelta"', b'"type":"Kelta CODESYS"'))
    device.install_codesys(executable=False)
    scan(device, "configChanged")
    compare_with_file(next_announcement(device, listener), ANNOUNCEMENT)


def test_can_interfaces_and_loopback_are_never_listed(device, peer):
    listener = peer.listen_announcements()
    device.host.add_interface("can0", ["192.168.7.1/24"])
    device.host.add_interface("can1")
    scan(device, "configChanged")
    compare_with_file(next_announcement(device, listener), ANNOUNCEMENT)


def test_second_interface_repeats_the_whole_block(device, peer):
    listener = peer.listen_announcements()
    device.host.add_interface("eth1", ["192.168.7.1/16"])
    scan(device, "configChanged")
    start, block, end = split_at_block(expected_message(ANNOUNCEMENT))
    second = block.replace(b"eth0", b"eth1").replace(b"10.77.0.2", b"192.168.7.1").replace(b"255.255.255.0", b"255.255.0.0")
    compare_bytes(next_announcement(device, listener), start + block + second + end)


def split_at_block(text: bytes) -> tuple:
    begin, end = text.index(b'"name":"eth0"'), text.index(b'"services"')
    return text[:begin], text[begin:end], text[end:]


def test_ipv6_addresses_lose_their_scope(start_device, peer):
    device = start_device(ipv6=True, addresses=["10.77.0.2/24", "fe80::1/64", "fd00::7/48"])
    listener = peer.listen_announcements()
    scan(device, "configChanged")
    text = next_announcement(device, listener)
    entries = [b'{"address":"%s","prefix":%d}' % (as_qt_writes(device, address).encode(), prefix)
               for address, prefix in (("fe80::1", 64), ("fd00::7", 48))]
    orders = [b"[" + b",".join(order) + b"]" for order in (entries, entries[::-1])]
    order = orders[0] if orders[0] in text else orders[1]
    compare_bytes(text, expected_message(ANNOUNCEMENT).replace(b'"ipv6":[]', b'"ipv6":' + order))


def test_without_an_interface_net_settings_stays_open(start_device, peer):
    device = start_device(interface="can0")
    listener = peer.listen_announcements()
    start, _, end = split_at_block(expected_message(ANNOUNCEMENT))
    scan(device, "configChanged")
    compare_bytes(next_announcement(device, listener), start + end)


def test_texts_are_not_escaped(start_device, peer):
    device = start_device(daemon="off")
    device.fwconfig.set(hostname='a"b\\', zorvversion="1\\", constants={"SERIALNUMBER": 'K"1'})
    device.start()
    listener = peer.listen_announcements()
    compare_bytes(next_announcement(device, listener), expected_message(ANNOUNCEMENT).replace(
        b'"name":"kelta"', b'"name":"a"b\\"').replace(b"1.4.2", b"1\\").replace(SERIAL.encode(), b'K"1'))


def test_without_the_configuration_service_the_values_are_empty(start_device, peer):
    device = start_device(fwconfig=False)
    listener = peer.listen_announcements()
    compare_bytes(next_announcement(device, listener), expected_message(ANNOUNCEMENT).replace(
        b'"name":"kelta"', b'"name":""').replace(SERIAL.encode(), b"").replace(b"1.4.2", b"").replace(
        b'"dhcp"', b'""').replace(b'"ipv4Address":"10.77.0.1"', b'"ipv6Address":""'))


def test_nothing_comes_from_another_port_or_goes_elsewhere(device, peer):
    listener = peer.listen_announcements()
    for _ in range(5):
        scan(device, "sendAnnouncement")
    assert {datagram.source for datagram in listener.wait_for(count=5)} == {(ADDRESS, ANNOUNCEMENTS[1])}
