"""More connections than the daemon has descriptors for, none of which says anything."""

import contextlib
import errno
import resource
import select
import socket

import pytest

from burdens import cpu_seconds
from serving import GET_ICON, answers_within_a_second, served
from simdevice.device import ADDRESS, HTTP_PORT
from simdevice.waiting import wait_for

AT_ONCE = 40  # connections that wait to be let in: the kernel keeps 50 for the daemon


@pytest.fixture
def many_descriptors():
    """This process may have as many as the machine lets it."""
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    if hard < 3000:
        pytest.skip("the machine gives too few descriptors")
    resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))
    yield
    resource.setrlimit(resource.RLIMIT_NOFILE, (soft, hard))


@contextlib.contextmanager
def idle_connections(peer, let_in: int, waiting: int = 0):
    with contextlib.ExitStack() as stack, peer.host.inside():
        made = []
        while len(made) < let_in + waiting:
            one = stack.enter_context(socket.socket(socket.AF_INET, socket.SOCK_STREAM))
            one.setblocking(False)
            assert one.connect_ex((ADDRESS, HTTP_PORT)) in (0, errno.EINPROGRESS)
            made.append(one)
            if len(made) <= let_in and len(made) % AT_ONCE == 0:
                wait_for(lambda: all(is_connected(one) for one in made[-AT_ONCE:]), what="they are connected")
        yield made


def is_connected(one: socket.socket) -> bool:
    poll = select.poll()
    poll.register(one, select.POLLOUT)
    return bool(poll.poll(0))


def other_doors_serve(device, peer) -> float:
    """The processor time that it costs to use them for about a second and a half."""
    before = cpu_seconds(device)
    for _ in range(30):
        answers_within_a_second(device, peer)
        select.select([], [], [], 0.05)
    return cpu_seconds(device) - before


def test_two_thousand_idle_connections_and_room_for_them(many_descriptors, start_device, peer):
    device = start_device(nofile=4096)
    usual = other_doors_serve(device, peer)
    before = len(device.open_files())
    with idle_connections(peer, 2000):
        wait_for(lambda: len(device.open_files()) >= before + 2000, 30, "all are let in", lambda: len(device.open_files()))
        assert other_doors_serve(device, peer) < 3 * usual + 0.3
        served(peer)
    wait_for(lambda: len(device.open_files()) <= before, 30, "all are forgotten", lambda: len(device.open_files()))
    served(peer)


def test_two_thousand_idle_connections_and_no_room_for_them(many_descriptors, start_device, peer):
    device = start_device(nofile=1024)
    usual = other_doors_serve(device, peer)
    before = len(device.open_files())
    with idle_connections(peer, 980, 1020) as connections:
        wait_for(lambda: len(device.open_files()) > 980, 30, "they have taken what there is", lambda: len(device.open_files()))
        assert other_doors_serve(device, peer) < 3 * usual + 0.3
        assert len(device.open_files()) <= 1024 - 8
        let_in = connections[0]
        let_in.settimeout(10)
        let_in.sendall(GET_ICON)
        assert let_in.recv(1) == b"H"
        for connection in connections:
            connection.close()
        wait_for(lambda: len(device.open_files()) <= before, 30, "all are forgotten", lambda: len(device.open_files()))
        served(peer)
    assert device.syslog.lines == []
