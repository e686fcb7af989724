"""Clients that ask for the icon and go away, or do not stop asking; and icons that are none."""

import contextlib
import os
import threading

import pytest

from serving import GET_ICON, answers_soon, served
from simdevice.device import ICON
from simdevice.waiting import wait_for
from texts import DESCRIPTION, ICON_MISSING, icon_answer
from wirebytes import compare_bytes

CLIENTS = 40
ABORTED_BY_EACH = 250


@pytest.mark.parametrize("ending", ["reset", "close"])
def test_icon_given_up_ten_thousand_times(device, peer, ending):
    icon = bytes(range(256)) * 400
    device.set_icon(icon)
    served(peer)
    before = len(device.open_files())
    failures = []

    def client() -> None:
        try:
            for _ in range(ABORTED_BY_EACH):
                connection = peer.connect(seconds=30)
                with contextlib.suppress(ConnectionResetError, BrokenPipeError):
                    connection.send(GET_ICON)
                    getattr(connection, ending)()
                connection.close()
        except Exception as failure:
            failures.append(failure)

    clients = [threading.Thread(target=client) for _ in range(CLIENTS)]
    for one in clients:
        one.start()
    for one in clients:
        one.join()
    assert failures == []
    answers_soon(device, peer)
    wait_for(lambda: len(device.open_files()) <= before, what="the descriptors are given back", seen=device.open_files)
    compare_bytes(peer.http_raw(GET_ICON), icon_answer(icon))
    assert device.syslog.lines == []


LARGE = bytes(range(256)) * 4 * 1024 * 4
FIRST_LINE, _, REST = GET_ICON.partition(b"\n")
FIRST_LINE += b"\n"


@pytest.mark.parametrize("fields", [
    pytest.param(b"X: " + b"a" * 100_000 + b"\r\n", id="100 kB"),
    pytest.param(b"X: " + b"a" * 3_000_000 + b"\r\n", id="3 MB"),
    pytest.param((b"X: " + b"a" * 500 + b"\r\n") * 1000, id="many lines"),
])
def test_a_large_request_gets_the_whole_icon(device, peer, fields):
    device.set_icon(LARGE)
    before = len(device.open_files())
    with peer.connect() as connection:
        sender = threading.Thread(target=connection.send, args=(FIRST_LINE + fields + b"\r\n",))
        sender.start()
        compare_bytes(connection.receive_until_close(), icon_answer(LARGE))
        sender.join()
    wait_for(lambda: len(device.open_files()) <= before, what="the descriptors are given back", seen=device.open_files)


@pytest.mark.parametrize("icon", [pytest.param(LARGE, id="large icon"), pytest.param(b"icon" * 50_000, id="small icon")])
def test_header_lines_that_come_late_do_not_cut_the_icon(device, peer, icon):
    device.set_icon(icon)
    with peer.connect() as connection:
        connection.send(FIRST_LINE)
        begun = connection.receive(1)
        for line in range(20):
            connection.send(b"X-%d: late\r\n" % line)
        connection.send(b"\r\n")
        compare_bytes(begun + connection.receive_until_close(), icon_answer(icon))


def test_header_lines_that_come_late_do_not_reset_the_connection(device, peer):
    with peer.connect() as connection:
        connection.send(b"GET /rootDesc.xml HTTP/1.1\r\n")
        compare_bytes(connection.receive_until_close(), DESCRIPTION)
        for _ in range(10):
            connection.send(b"X: late\r\n")
        wait_for(lambda: connection.in_flight() == 0, what="the device has taken them")


def test_a_client_that_never_stops_is_left_after_a_while(device, peer):
    before = len(device.open_files())
    with peer.connect() as connection, contextlib.suppress(ConnectionResetError, BrokenPipeError):
        connection.send(FIRST_LINE)
        connection.receive_until_close()
        while True:
            connection.send(b"X: more\r\n" * 1000)
    wait_for(lambda: len(device.open_files()) <= before, what="the descriptors are given back", seen=device.open_files)
    answers_soon(device, peer)


def test_a_client_that_leaves_its_connection_open_is_left_after_a_while(device, peer):
    before = len(device.open_files())
    with peer.connect() as connection:
        connection.send(FIRST_LINE)
        connection.receive_until_close()
        wait_for(lambda: len(device.open_files()) <= before, what="the descriptors are given back",
                 seen=device.open_files)


def make_folder(path) -> None:
    path.mkdir()


@pytest.mark.parametrize("make", [pytest.param(os.mkfifo, id="a pipe"), pytest.param(make_folder, id="a folder")])
def test_what_is_no_file_is_no_icon(device, peer, make):
    device.set_icon(None)
    make(device.room.path(ICON))
    compare_bytes(peer.http_raw(GET_ICON), ICON_MISSING)
    answers_soon(device, peer)
    served(peer)
