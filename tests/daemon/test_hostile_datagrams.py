"""Datagrams in numbers, and such whose checksum is wrong: the kernel reports them and then throws them away."""

import contextlib
import threading

import pytest

from scanning import GROUP, PORT, announcing, everything_so_far, is_alive, wait_for_device
from simdevice.controlpoint import SSDP
from simdevice.device import ADDRESS
from simdevice.waiting import wait_for
from texts import ANSWER, DESCRIPTION
from wirebytes import compare_bytes


@pytest.mark.parametrize("to", [GROUP, ADDRESS])
@pytest.mark.parametrize("count", [1, 100])
def test_damaged_announcements_do_not_make_the_scan_deaf(device, peer, to, count):
    for number in range(count):
        peer.send_damaged(announcing(f"damaged{number}"), (to, PORT))
    peer.announce(announcing("good"))
    wait_for_device(device, "good")
    peer.send_damaged(announcing("damaged"), (to, PORT))
    assert not [uuid for uuid in everything_so_far(device, peer) if uuid.startswith("damaged")]
    assert is_alive(device)


@contextlib.contextmanager
def flood(peer, data: bytes, to: tuple):
    """Sends as fast as it can. Gives a list whose only entry is how many have been sent."""
    ending = threading.Event()
    sent = [0]

    def send() -> None:
        with peer.host.socket() as sender:
            while not ending.is_set():
                sender.sendto(data, to)
                sent[0] += 1

    threads = [threading.Thread(target=send) for _ in range(2)]
    for thread in threads:
        thread.start()
    try:
        yield sent
    finally:
        ending.set()
        for thread in threads:
            thread.join()


@pytest.mark.parametrize("data, port", [
    pytest.param(b"M-SEARCH * HTTP/1.1\r\nST: other\r\n\r\n", SSDP[1], id="searches"),
    pytest.param(announcing("flood"), PORT, id="announcements"),
    pytest.param(b"junk", PORT, id="junk"),
])
def test_a_flood_leaves_the_other_sockets_their_turn(device, peer, data, port):
    with flood(peer, data, (ADDRESS, port)) as sent:
        for _ in range(20):
            before = sent[0]
            wait_for(lambda: sent[0] > before + 100, what="the flood goes on")
            compare_bytes(peer.http_raw(b"GET /rootDesc.xml HTTP/1.1\r\n\r\n"), DESCRIPTION)
            assert device.call("getUdpPort") == 1900
    compare_bytes(peer.search()[0].data, ANSWER)
    peer.announce(announcing("good"))
    wait_for_device(device, "good")
