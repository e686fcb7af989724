"""More connections than the daemon has descriptors for, none of which says anything."""

import select

from burdens import cpu_seconds
from connections import capacity, connections
from serving import GET_ICON, answers_soon, served
from simdevice.waiting import wait_for


def other_sockets_serve(device, peer) -> float:
    """The processor time that it costs to use them for about a second and a half."""
    before = cpu_seconds(device)
    for _ in range(30):
        answers_soon(device, peer)
        select.select([], [], [], 0.05)
    return cpu_seconds(device) - before


def test_two_thousand_idle_connections_and_room_for_them(many_descriptors, start_device, peer):
    device = start_device(nofile=4096)
    count = min(2000, capacity(device))
    usual = other_sockets_serve(device, peer)
    before = len(device.open_files())
    with connections(peer, count):
        wait_for(lambda: len(device.open_files()) >= before + count, 30, "all are let in", lambda: len(device.open_files()))
        assert other_sockets_serve(device, peer) < 3 * usual + 0.3
        served(peer)
    wait_for(lambda: len(device.open_files()) <= before, 30, "all are forgotten", lambda: len(device.open_files()))
    served(peer)


def test_two_thousand_idle_connections_and_no_room_for_them(many_descriptors, start_device, peer):
    device = start_device(nofile=1024)
    usual = other_sockets_serve(device, peer)
    before = len(device.open_files())
    with connections(peer, 980, 1020) as idle:
        wait_for(lambda: len(device.open_files()) > 980, 30, "they have taken what there is", lambda: len(device.open_files()))
        assert other_sockets_serve(device, peer) < 3 * usual + 0.3
        assert len(device.open_files()) <= 1024 - 8
        let_in = idle[0]
        let_in.settimeout(10)
        let_in.sendall(GET_ICON)
        assert let_in.recv(1) == b"H"
        for connection in idle:
            connection.close()
        wait_for(lambda: len(device.open_files()) <= before, 30, "all are forgotten", lambda: len(device.open_files()))
        served(peer)
    assert device.syslog.lines == []
