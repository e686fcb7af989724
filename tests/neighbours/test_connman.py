"""The daemon follows the network manager itself, which follows a DHCP server, a cable and a user."""

import re

from scanning import scan
from simdevice.waiting import wait_for
from texts import has_joined


def story(ssdp) -> list:
    """What was heard up to now: ("alive", "10.77.0.40"), ("byebye", ...); "" stands for no address."""
    form = re.compile(r"\r\nLOCATION:http://([^:]*):8200/.*\r\nNTS:ssdp:(\w+)\r\n", re.DOTALL)
    found = [form.search(datagram.text) for datagram in ssdp.received if datagram.data.startswith(b"NOTIFY")]
    return [(match[2], match[1]) for match in found]


def wait_for_alive(ssdp, address: str, seconds: float = 15) -> list:
    """Until the last thing heard is an alive message of `address`. Returns all that was heard."""
    wait_for(lambda: story(ssdp)[-1:] == [("alive", address)], seconds, f"{address} is alive", lambda: story(ssdp))
    return story(ssdp)


def change(heard: list) -> list:
    """What was heard from the first byebye on. Every 100 seconds there are alive messages without one."""
    return heard[heard.index(next(one for one in heard if one[0] == "byebye")):]


def found_at(device, peer, address: str) -> None:
    """A search over the group is answered from the address, the description is there, and the announcement has it."""
    peer.device_address = address
    answer = wait_for(lambda: peer.search(), what="an answer to a search")[0]
    assert answer.source == (address, 1900)
    assert f"\r\nLOCATION: http://{address}:8200/rootDesc.xml\r\n" in answer.text
    assert f"<URLBase>http://{address}/</URLBase>".encode() in peer.http_raw(b"GET /rootDesc.xml HTTP/1.1\r\n\r\n")
    listener = peer.listen_announcements()
    scan(device, "sendAnnouncement")
    assert f'"address":"{address}"'.encode() in listener.wait_for(b'"announce"')[0].data


def own_log(device) -> list:
    return [line.text for line in device.syslog.lines if line.ident == "upnp"]


def test_address_from_the_dhcp_server(ssdp, peer, connected):
    heard = wait_for_alive(ssdp, "10.77.0.40")
    assert {address for kind, address in heard if kind == "alive"} == {"10.77.0.40"}
    assert connected.call("getNetworkConfigMethod") == "dhcp"
    found_at(connected, peer, "10.77.0.40")
    assert has_joined(connected) and has_joined(connected, "239.255.77.76")


def test_another_address_after_the_cable_was_out(ssdp, peer, connected, dhcp):
    wait_for_alive(ssdp, "10.77.0.40")
    ssdp.clear()
    connected.host.cable_out()
    connected.connmand.wait_until_disconnected()
    dhcp.offer("10.77.0.41")
    connected.host.cable_in()
    connected.connmand.wait_for_address("10.77.0.41", 40)
    heard = wait_for_alive(ssdp, "10.77.0.41")
    assert change(heard)[:2] == [("byebye", "10.77.0.40"), ("alive", "10.77.0.41")]
    assert ("alive", "10.77.0.40") not in change(heard)
    found_at(connected, peer, "10.77.0.41")


def test_the_same_address_after_the_cable_was_out(ssdp, peer, connected):
    """connman says neither that the address is gone nor that it is back. The device can be found again all the same."""
    wait_for_alive(ssdp, "10.77.0.40")
    ssdp.clear()
    connected.host.cable_out()
    connected.connmand.wait_until_disconnected()
    assert connected.call("getAddressStr") == "10.77.0.40"
    connected.host.cable_in()
    connected.connmand.wait_for_state("ready", 40)
    found_at(connected, peer, "10.77.0.40")
    assert {kind for kind, _ in story(ssdp)} <= {"alive"}


def test_address_given_by_the_user_and_dhcp_again(ssdp, peer, connected):
    """connman may take the old address away before the daemon says byebye for it, which then does not reach anybody."""
    wait_for_alive(ssdp, "10.77.0.40")
    ssdp.clear()
    connected.connmand.set_ipv4(Method="manual", Address="10.77.0.60", Netmask="255.255.255.0", Gateway="10.77.0.1")
    connected.connmand.wait_for_address("10.77.0.60")
    heard = wait_for_alive(ssdp, "10.77.0.60")
    assert ("alive", "10.77.0.40") not in change(heard)
    assert {address for kind, address in heard if kind == "byebye"} <= {"10.77.0.40", "", "10.77.0.60"}
    assert connected.call("getNetworkConfigMethod") == "manual"
    found_at(connected, peer, "10.77.0.60")
    ssdp.clear()
    connected.connmand.set_ipv4(Method="dhcp")
    connected.connmand.wait_for_address("10.77.0.40", 40)
    wait_for_alive(ssdp, "10.77.0.40")
    found_at(connected, peer, "10.77.0.40")


def test_log_of_a_device_that_starts_without_a_network(connected, peer):
    """The warnings end with the network's arrival."""
    expected = {"setsockopt: no address", "join multicast failed: Unknown error"}
    assert set(own_log(connected)) <= expected
    found_at(connected, peer, "10.77.0.40")
    wait_for(lambda: has_joined(connected, "239.255.77.76"), 15, "the group of the announcements is joined")
    connected.syslog.clear()
    peer.listen_announcements().wait_for(b'"announce"', count=2, seconds=25)
    assert own_log(connected) == []


def test_without_a_dhcp_server_the_link_local_address_and_dhcp_again(ssdp, peer, connected, dhcp):
    """connman takes a link-local address when nobody answers, which takes about 45 seconds, and asks again later."""
    wait_for_alive(ssdp, "10.77.0.40")
    dhcp.stop()
    connected.host.cable_out()
    connected.connmand.wait_until_disconnected()
    ssdp.clear()
    connected.host.cable_in()
    wait_for(lambda: connected.call("getAutoipAddressStr"), 90, "a link-local address", lambda: connected.connmand.service)
    autoip = connected.call("getAutoipAddressStr")
    assert [f"{autoip}/16"] == [address for address in connected.host.addresses() if ":" not in address]
    heard = wait_for_alive(ssdp, autoip)
    # The earlier address stays the regular one: it is said alive first, and the link-local one has a UUID of its own.
    assert change(heard)[:3] == [("byebye", "10.77.0.40"), ("alive", "10.77.0.40"), ("alive", autoip)]
    peer.host.add_address("169.254.1.3/16")
    peer.device_address = autoip
    answer, = peer.search(from_address="169.254.1.3")
    assert f"\r\nLOCATION: http://{autoip}:8200/rootDesc.xml\r\n" in answer.text and "c50::upnp:" in answer.text
    peer.host.remove_address("169.254.1.3/16")
    ssdp.clear()
    dhcp.offer("10.77.0.42")
    connected.connmand.wait_for_address("10.77.0.42", 90)
    heard = wait_for_alive(ssdp, autoip)
    assert change(heard)[:2] == [("byebye", "10.77.0.40"), ("byebye", autoip)]
    # The link-local address stays known until the daemon starts anew, and is said alive with the regular one.
    assert heard[-2:] == [("alive", "10.77.0.42"), ("alive", autoip)]
    found_at(connected, peer, "10.77.0.42")
