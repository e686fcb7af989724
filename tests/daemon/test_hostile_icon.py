"""Clients that ask for the icon and go away."""

import contextlib
import threading

import pytest

from serving import GET_ICON, answers_within_a_second, served
from simdevice.waiting import wait_for
from texts import icon_answer
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
    answers_within_a_second(device, peer)
    wait_for(lambda: len(device.open_files()) <= before, what="the descriptors are given back", seen=device.open_files)
    compare_bytes(peer.http_raw(GET_ICON), icon_answer(icon))
    assert device.syslog.lines == []
