"""As many connections as the daemon lets in, each of which has said one byte.

The event loop watches every one of them; with Qt 4 it can watch descriptors below 1,024 only."""

import contextlib
import pathlib
import socket

import pytest

from connections import NOT_FOR_CONNECTIONS, capacity, connections
from serving import answers_soon, served
from simdevice.device import ADDRESS, HTTP_PORT
from simdevice.waiting import wait_for

COUNT = 4000


def highest_descriptor(device) -> int:
    return max(int(entry.name) for entry in pathlib.Path(f"/proc/{device.pid}/fd").iterdir())


def say_a_byte(talkers: list) -> None:
    for one in talkers:
        with contextlib.suppress(BlockingIOError, ConnectionError):  # not let in yet
            one.send(b"x")


@pytest.mark.parametrize("limit", [pytest.param(4096, id="4,096 descriptors"), pytest.param(None, id="the machine's own limit")])
def test_talking_connections_leave_the_other_sockets_their_turn(many_descriptors, start_device, peer, limit):
    device = start_device(nofile=limit)
    before = len(device.open_files())
    count = min(COUNT, capacity(device))
    with connections(peer, count) as talkers:
        say_a_byte(talkers)
        wait_for(lambda: len(device.open_files()) >= before + count, 60, "they are let in", lambda: len(device.open_files()))
        wait_for(lambda: device.unread(HTTP_PORT) == 0, 60, "what they said is read")
        assert highest_descriptor(device) < capacity(device) + NOT_FOR_CONNECTIONS
        for _ in range(10):
            answers_soon(device, peer)
    wait_for(lambda: len(device.open_files()) <= before, 60, "all are forgotten", lambda: len(device.open_files()))
    served(peer)
    answers_soon(device, peer)
    assert device.syslog.lines == []


def test_answered_requests_without_an_end_leave_descriptors_for_the_other_sockets(many_descriptors, start_device, peer):
    """Each is answered at once, and its connection stays for a while, for what may still come of it."""
    device = start_device(nofile=256)
    before = len(device.open_files())
    with contextlib.ExitStack() as stack, peer.host.inside():
        for number in range(600):
            one = stack.enter_context(socket.create_connection((ADDRESS, HTTP_PORT), 30))
            one.sendall(b"GET /rootDesc.xml HTTP/1.1\r\n")
            if number % 20 == 0:
                assert len(device.open_files()) <= 256 - 8
        answers_soon(device, peer)
    wait_for(lambda: len(device.open_files()) <= before, 60, "all are forgotten", lambda: len(device.open_files()))
    served(peer)
