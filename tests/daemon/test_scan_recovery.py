"""The scan finds its way into the network by itself, however late that comes."""

import socket

from scanning import GROUP, PORT, SERIAL, announcing, is_alive, scan, wait_for_device
from simdevice.waiting import wait_for
from wirebytes import compare_with_file

TAKEN = ["The bound address is already in use", "zorvlisten port not bound!"]
TICK = 15  # seconds, within which there is one for sure


def is_member(device) -> bool:
    return GROUP in device.host.command(["ip", "maddr", "show"]).stdout


def test_port_taken_and_free_again(start_device, peer):
    device = start_device(daemon="off")
    listener = peer.listen_announcements()
    with device.host.socket() as other:
        other.bind(("0.0.0.0", PORT))
        device.start()
        device.syslog.wait_for_text(TAKEN[1])
        assert [text for text in device.syslog.texts if text in TAKEN] == TAKEN
        assert scan(device, "socketState") == 0
        assert scan(device, "setupMulticast") == -1
        device.syslog.wait_for_text(TAKEN[1], 2)
        assert listener.wait_for(SERIAL.encode())[0].source[1] != PORT
        listener.clear()
        scan(device, "sendAnnouncement")
        compare_with_file(listener.wait_for()[0].data, "announcement.json")
        # The timer tries again, and announces.
        device.syslog.wait_for_text(TAKEN[1], 3, seconds=TICK)
        listener.wait_for(SERIAL.encode(), 2)
        assert not is_member(device)
    wait_for(lambda: scan(device, "socketState") == 4, TICK, "the port is bound")
    wait_for(lambda: is_member(device), what="the group is joined")
    listener.clear()
    scan(device, "sendAnnouncement")
    assert listener.wait_for(SERIAL.encode())[0].source[1] == PORT
    peer.announce(announcing("A"))
    wait_for_device(device, "A")
    assert [text for text in device.syslog.texts if text in TAKEN] == TAKEN * 3
    assert is_alive(device)


def joins_failed(device) -> int:
    return len([text for text in device.syslog.texts if text.startswith("join multicast failed: ")])


def test_network_that_comes_up_later_without_any_signal(start_device, peer):
    down = start_device(daemon="off")
    down.host.link_down()
    without = start_device(daemon="off", interface=None)
    for device in (down, without):
        device.start()
        wait_for(lambda: joins_failed(device) == 1, what="the first failure", seen=lambda: device.syslog.texts)
        assert scan(device, "setupMulticast") == -2
        wait_for(lambda: joins_failed(device) == 2, what="the second failure")
        # A datagram that is there before the group is joined
        with device.host.inside(), socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as local:
            local.sendto(announcing("early"), ("127.0.0.1", PORT))
    for device in (down, without):
        wait_for(lambda: joins_failed(device) >= 3, TICK, "the timer tries again")
        assert not is_member(device)
    down.host.link_up()
    without.host.add_interface("eth0", ["10.77.0.8/24"])
    for device in (down, without):
        wait_for(lambda: is_member(device), TICK, "the group is joined")
    listener = peer.listen_announcements()
    peer.announce(announcing("A"))
    for device in (down, without):
        wait_for_device(device, "A")
        wait_for_device(device, "early")
        listener.clear()
        scan(device, "sendAnnouncement")
        assert listener.wait_for(SERIAL.encode())[0].source == (device.address, PORT)
        assert scan(device, "setupMulticast") == 0
        assert is_alive(device)
