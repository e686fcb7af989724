"""Clients of the description server whose lines have no end."""

import contextlib
import pathlib

import pytest

from burdens import MEGABYTE, resident, small_quarantine
from serving import GET, answers_soon, served
from simdevice.waiting import wait_for
from texts import DESCRIPTION, NOT_FOUND
from wirebytes import compare_bytes

MOST_GROWTH = 15 * MEGABYTE


@pytest.fixture(autouse=True)
def freed_at_once(monkeypatch):
    small_quarantine(monkeypatch)


def unread(device, connection) -> int:
    """Bytes of a connection that the daemon has not yet taken from the kernel."""
    port = connection.socket.getsockname()[1]
    lines = pathlib.Path(f"/proc/{device.room.pid}/net/tcp").read_text().splitlines()[1:]
    queue, = [fields[4] for fields in map(str.split, lines) if int(fields[2].split(":")[1], 16) == port]
    return int(queue.split(":")[1], 16)


@pytest.mark.parametrize("beginning", [b"", b"GET /", b"HEAD / HTTP/1.1\r\n"])
def test_two_hundred_megabytes_without_a_line_end(device, peer, beginning):
    piece = b"x" * MEGABYTE
    with peer.connect(seconds=30) as connection:
        connection.send(beginning)
        for _ in range(5):
            connection.send(piece)
        served(peer)
        before = resident(device)
        for number in range(200):
            connection.send(piece)
            if number % 50 == 0:
                answers_soon(device, peer)
        served(peer)
        assert resident(device) - before < MOST_GROWTH
        connection.send(b"\n")
        if beginning == b"GET /":
            compare_bytes(connection.receive_until_close(), NOT_FOUND)
        else:
            wait_for(lambda: not unread(device, connection), what="the line has been read")
            served(peer)
            assert connection.nothing_to_read()
            connection.send(GET)
            compare_bytes(connection.receive_until_close(), DESCRIPTION)
    answers_soon(device, peer)


def test_lines_of_many_connections_together_are_bounded(device, peer):
    served(peer)
    before = resident(device)
    with contextlib.ExitStack() as stack:
        for _ in range(200):
            connection = stack.enter_context(peer.connect(seconds=30))
            connection.send(b"GET /" + b"x" * MEGABYTE)
        answers_soon(device, peer)
        served(peer)
        assert resident(device) - before < 100 * MEGABYTE
    served(peer)


def test_line_of_a_mebibyte_byte_by_byte(device, peer):
    """Only who has read all of it knows the path, which comes last."""
    line = b"GET" + b" " * MEGABYTE + b"/rootDesc.xml\r\n"
    with peer.connect(seconds=30) as connection:
        sent = 0
        while sent < len(line):
            size = 1 if sent % 65536 < 8192 else 512
            connection.send(line[sent:sent + size])
            sent += size
        compare_bytes(connection.receive_until_close(), DESCRIPTION)
    answers_soon(device, peer)
