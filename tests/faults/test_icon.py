"""Calls that fail around the icon."""

import errno

import pytest

from failing import Failing, needs_failing
from serving import GET_ICON, served
from texts import icon_answer
from wirebytes import compare_bytes

pytestmark = needs_failing

ICON = bytes(range(256)) * 4


@pytest.mark.parametrize("function", ["send", "write"])
@pytest.mark.parametrize("call", range(1, 5))
def test_a_full_socket_does_not_change_the_order(start_device, peer, tmp_path, function, call):
    failing = Failing(tmp_path)
    device = start_device(program=failing.program)
    device.set_icon(ICON)
    served(peer)
    failing.order(function, errno.EAGAIN, call)
    compare_bytes(peer.http_raw(GET_ICON), icon_answer(ICON))
