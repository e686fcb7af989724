"""Whether the daemon serves everybody else while somebody does harm."""

import time

from texts import ANSWER, DESCRIPTION
from wirebytes import compare_bytes

GET = b"GET /rootDesc.xml HTTP/1.1\r\n\r\n"
GET_ICON = b"GET /icons/kelta_icon48.png HTTP/1.1\r\n\r\n"


def served(peer) -> None:
    compare_bytes(peer.http_raw(GET), DESCRIPTION)


def answers_soon(device, peer) -> None:
    start = time.monotonic()
    compare_bytes(peer.search()[0].data, ANSWER)
    assert time.monotonic() - start < 5  # much longer than it takes, on a busy machine too
    assert device.call("getUdpPort") == 1900
