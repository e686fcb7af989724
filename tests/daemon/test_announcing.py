"""Alive and byebye: what goes to the group, when, and the membership of the group."""

import socket
import struct

from simdevice.controlpoint import SSDP
from simdevice.device import ADDRESS, BUS_NAME
from simdevice.waiting import wait_for
from texts import (ALIVE, ALIVE_AUTOIP, ANSWER, AUTOIP, BYEBYE, BYEBYE_AUTOIP, expect_notifies, has_joined, notifies,
                   replaced)
from wirebytes import compare_bytes

IP_RECVTTL = 12  # the number that the socket module lacks
BEFORE_CONFIGURATION = replaced(ALIVE, address="")
BOTH_KINDS = [f"{ADDRESS}/24", f"{AUTOIP}/16"]
NO_INTERFACE = "setsockopt: interface invalid"
NO_ADDRESS = "setsockopt: no address"
JOIN_FAILED = "setsockopt multicast join failed"


def responder_lines(device) -> list:
    """The log lines of the search responder. The scan has others."""
    return [text for text in device.syslog.texts if text.startswith(("setsockopt", "setsocketopt"))]


def find(peer, seconds: float = 30) -> None:
    """Searches until the device answers over the group."""
    wait_for(lambda: peer.search(), seconds, "an answer to a multicast search")


def test_alive_at_the_start_before_and_after_the_configuration_is_known(ssdp, device):
    expect_notifies(ssdp, BEFORE_CONFIGURATION, ALIVE)


def test_first_alive_leaves_before_the_event_loop_runs(start_device, ssdp):
    device = start_device(daemon="off")
    device.fwconfig.behave("held", "/network.GetAll")
    device.start(wait=False)
    ssdp.wait_for(b"NOTIFY")
    wait_for(lambda: device.fwconfig.calls_of("/network.GetAll"), what="the configuration is asked for")
    expect_notifies(ssdp, BEFORE_CONFIGURATION)
    device.fwconfig.behave("normal")
    device.wait_until_ready()
    expect_notifies(ssdp, ALIVE)


def test_with_a_link_local_address_each_alive_is_followed_by_a_second_one(start_device, ssdp):
    device = start_device(addresses=BOTH_KINDS)
    expect_notifies(ssdp, BEFORE_CONFIGURATION, ALIVE, ALIVE_AUTOIP)
    device.call("configureIp")
    expect_notifies(ssdp, ALIVE, ALIVE_AUTOIP)


def test_byebye_with_the_old_address_then_alive_with_the_new_one(ssdp, device):
    expect_notifies(ssdp, BEFORE_CONFIGURATION, ALIVE)
    device.connman.ipv4("10.0.0.5", "10.0.0.1", "dhcp")
    expect_notifies(ssdp, BYEBYE, replaced(ALIVE, address="10.0.0.5"))
    device.connman.ipv4("10.0.0.6", "10.0.0.1", "dhcp")
    expect_notifies(ssdp, replaced(BYEBYE, address="10.0.0.5"), replaced(ALIVE, address="10.0.0.6"))


def test_the_second_byebye_has_a_usn_of_its_own_form(start_device, ssdp):
    device = start_device(addresses=BOTH_KINDS)
    expect_notifies(ssdp, BEFORE_CONFIGURATION, ALIVE, ALIVE_AUTOIP)
    device.connman.ipv4("10.0.0.5", "10.0.0.1", "dhcp")
    expect_notifies(ssdp, BYEBYE, BYEBYE_AUTOIP, replaced(ALIVE, address="10.0.0.5"), ALIVE_AUTOIP)
    assert b"\r\nUSN:uuid:" in BYEBYE_AUTOIP and b"\r\nUSN: uuid:Upnp-BasicDevice-1_0-" in ALIVE_AUTOIP


def test_link_local_address_gained_and_changed(ssdp, device):
    expect_notifies(ssdp, BEFORE_CONFIGURATION, ALIVE)
    device.connman.ipv4(AUTOIP)
    expect_notifies(ssdp, BYEBYE, ALIVE, ALIVE_AUTOIP)
    device.connman.ipv4("169.254.9.9")
    expect_notifies(ssdp, BYEBYE, BYEBYE_AUTOIP, ALIVE, replaced(ALIVE_AUTOIP, autoip="169.254.9.9"))


def test_announcements_carry_neither_nt_nor_ext_nor_content_length(ssdp, device):
    device.connman.ipv4("10.0.0.5")
    ssdp.wait_for(b"ssdp:byebye")
    for text in ssdp.wait_for(b"NOTIFY", count=4):
        names = [line.split(b":")[0].upper() for line in text.data.split(b"\r\n")[1:-2]]
        assert not {b"NT", b"EXT", b"CONTENT-LENGTH"} & set(names)


def test_announcements_come_from_the_search_port_with_ttl_32(start_device, peer):
    device = start_device(daemon="off", addresses=BOTH_KINDS)
    with peer.host.socket() as listening:
        index = struct.pack("4s4si", socket.inet_aton(SSDP[0]), bytes(4), 0)
        listening.bind(SSDP)
        listening.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP, index)
        listening.setsockopt(socket.IPPROTO_IP, IP_RECVTTL, 1)
        listening.settimeout(10)
        device.start()
        device.connman.ipv4("10.0.0.5")
        # Alive, alive of both kinds, byebye of both kinds, alive of both kinds
        for _ in range(7):
            data, ancillary, _, source = listening.recvmsg(65536, 100)
            assert data.startswith(b"NOTIFY")
            assert source == (ADDRESS, 1900)
            assert [struct.unpack("i", value)[0] for level, kind, value in ancillary
                    if (level, kind) == (socket.IPPROTO_IP, socket.IP_TTL)] == [32]


def test_answers_to_searches_do_not_have_the_multicast_ttl(device, peer):
    with peer.host.socket() as asking:
        asking.setsockopt(socket.IPPROTO_IP, IP_RECVTTL, 1)
        asking.settimeout(10)
        asking.sendto(peer.search_text("ssdp:all"), SSDP)
        data, ancillary, _, _ = asking.recvmsg(65536, 100)
        compare_bytes(data, ANSWER)
        assert struct.unpack("i", ancillary[0][2])[0] != 32


def test_search_port_is_shared_with_programs_that_share_it(start_device, ssdp, peer):
    device = start_device(daemon="off")
    with device.host.socket() as other:
        other.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        other.bind(("0.0.0.0", 1900))
        device.start()
        expect_notifies(ssdp, BEFORE_CONFIGURATION, ALIVE)
        compare_bytes(peer.search()[0].data, ANSWER)


# The membership

def test_the_group_is_joined_on_eth0_once(device):
    assert has_joined(device)
    for _ in range(3):
        device.connman.state("ready")
    device.connman.connection.call(BUS_NAME, "/settings", "local.UpnpSettings", "getUdpPort")
    assert has_joined(device)
    assert device.syslog.lines == []


def test_the_group_is_joined_on_eth0_among_other_interfaces(start_device, peer):
    device = start_device(daemon="off", interface=None)
    device.host.add_interface("eth1", ["10.78.0.2/24"])
    device.host.add_interface("eth0", [f"{ADDRESS}/24"])
    device.host.add_interface("eth2", ["10.79.0.2/24"])
    device.start()
    assert has_joined(device)
    find(peer)


def test_another_ready_after_the_join_logs_nothing_and_sends_nothing(ssdp, device):
    expect_notifies(ssdp, BEFORE_CONFIGURATION, ALIVE)
    device.connman.state("ready")
    device.connman.state("ready")
    device.connman.ipv4("10.0.0.5")
    expect_notifies(ssdp, BYEBYE, replaced(ALIVE, address="10.0.0.5"))
    assert device.syslog.lines == []


def test_without_eth0_one_warning_and_the_join_follows_when_the_network_is_ready(start_device, peer):
    device = start_device(interface=None)
    assert responder_lines(device) == [NO_INTERFACE]
    line = next(line for line in device.syslog.lines if line.text == NO_INTERFACE)
    assert line.raw.startswith(b"<180>") and line.ident == "upnp"
    device.connman.state("ready")
    device.syslog.wait_for_text(NO_INTERFACE, count=2)
    device.host.add_interface("eth0", [f"{ADDRESS}/24"])
    device.connman.state("ready")
    wait_for(lambda: has_joined(device), what="the group is joined")
    find(peer)
    device.connman.state("ready")
    device.connman.connection.call(BUS_NAME, "/settings", "local.UpnpSettings", "getUdpPort")
    assert responder_lines(device) == [NO_INTERFACE] * 2


def test_another_interface_does_not_stand_for_eth0(start_device):
    device = start_device(daemon="off", interface=None)
    device.host.add_interface("eth1", ["10.78.0.2/24"])
    device.start()
    assert responder_lines(device) == [NO_INTERFACE]
    assert not has_joined(device)


def test_eth0_without_an_address_one_warning_and_the_join_follows(start_device, ssdp, peer):
    device = start_device(daemon="off", interface=None)
    device.host.add_interface("eth0")
    device.start()
    assert responder_lines(device) == [NO_ADDRESS]
    assert not has_joined(device)
    device.host.add_address(f"{ADDRESS}/24")
    device.host.default_route()
    device.connman.state("ready")
    wait_for(lambda: has_joined(device), what="the group is joined")
    find(peer)
    ssdp.clear()
    device.call("configureIp")
    expect_notifies(ssdp, ALIVE)
    assert responder_lines(device) == [NO_ADDRESS]


def test_a_refused_join_is_logged_each_time_and_tried_again(start_device, ssdp, peer):
    device = start_device(daemon="off")
    device.host.sysctl("net/ipv4/igmp_max_memberships", "0")
    device.start()
    assert responder_lines(device) == [JOIN_FAILED]
    expect_notifies(ssdp, BEFORE_CONFIGURATION, ALIVE)
    device.connman.state("ready")
    device.syslog.wait_for_text(JOIN_FAILED, count=2)
    device.host.sysctl("net/ipv4/igmp_max_memberships", "20")
    device.connman.state("ready")
    wait_for(lambda: has_joined(device), what="the group is joined")
    find(peer)
    assert responder_lines(device) == [JOIN_FAILED] * 2


def test_online_does_not_make_the_responder_join(start_device):
    device = start_device(interface=None)
    device.host.add_interface("eth0", [f"{ADDRESS}/24"])
    device.connman.state("online")
    device.connman.connection.call(BUS_NAME, "/settings", "local.UpnpSettings", "getUdpPort")
    assert not has_joined(device)
    assert responder_lines(device) == [NO_INTERFACE]


def test_membership_stays_when_the_network_changes(device, peer):
    device.connman.ipv4("10.0.0.5")
    device.host.add_address("10.77.0.9/24")
    device.connman.state("ready")
    wait_for(lambda: device.call("getAddressStr") == "10.0.0.5", what="the new address")
    assert has_joined(device)
    find(peer)


def test_lost_announcements_are_not_noticed_and_later_ones_go_out(ssdp, device):
    expect_notifies(ssdp, BEFORE_CONFIGURATION, ALIVE)
    device.host.link_down()
    device.call("configureIp")
    device.host.link_up()
    device.call("configureIp")
    ssdp.wait_for(b"NOTIFY")
    assert len(notifies(ssdp)) == 1
    assert device.syslog.lines == []
