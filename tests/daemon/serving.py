"""Whether the daemon serves everybody else while somebody does harm."""

import time

from texts import ANSWER, DESCRIPTION
from wirebytes import compare_bytes

GET = b"GET /rootDesc.xml HTTP/1.1\r\n\r\n"
GET_ICON = b"GET /icons/kelta_icon48.png HTTP/1.1\r\n\r\n"


def served(peer) -> None:
    compare_bytes(peer.http_raw(GET), DESCRIPTION)


def answers_within_a_second(device, peer) -> None:
    start = time.monotonic()
    compare_bytes(peer.search()[0].data, ANSWER)
    assert time.monotonic() - start < 1
    assert device.call("getUdpPort") == 1900
