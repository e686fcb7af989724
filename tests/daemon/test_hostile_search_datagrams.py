"""Searches whose checksum is wrong: the kernel reports them and then throws them away."""

import pytest

from simdevice.controlpoint import SSDP
from simdevice.device import ADDRESS
from texts import ANSWER, DESCRIPTION, has_joined
from wirebytes import compare_bytes


@pytest.mark.parametrize("to", [SSDP[0], ADDRESS])
@pytest.mark.parametrize("count", [1, 100])
def test_damaged_searches_do_not_make_the_device_deaf(device, peer, to, count):
    assert has_joined(device)
    compare_bytes(peer.search()[0].data, ANSWER)
    for _ in range(2):
        for _ in range(count):
            peer.send_damaged(peer.search_text("ssdp:all"), (to, SSDP[1]))
        compare_bytes(peer.search()[0].data, ANSWER)
    compare_bytes(peer.http_raw(b"GET /rootDesc.xml HTTP/1.1\r\n\r\n"), DESCRIPTION)
