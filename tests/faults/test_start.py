"""Calls that fail while the daemon starts."""

import errno

import pytest

from clocks import needs_clocks
from failing import Failing, needs_failing
from serving import GET
from simdevice.waiting import wait_for
from texts import ANSWER, DESCRIPTION, has_joined
from wirebytes import compare_bytes

pytestmark = [*needs_failing, *needs_clocks]


def test_without_a_thread_it_ends_with_a_line(start_device, tmp_path):
    failing = Failing(tmp_path)
    failing.order("pthread_create", errno.EAGAIN)
    device = start_device(program=failing.program, daemon="starting")
    assert device.wait_for_exit() == 255
    assert failing.failed == 1
    assert device.syslog.texts[-1] == "cannot create a thread, ending"
    assert device.syslog.lines[-1].level == 2
    device.start()


def is_found(device, peer) -> bool:
    """Whether everything that concerns a port or an interface is as after a start without failures."""
    wait_for(lambda: device.listens(8200) and has_joined(device) and has_joined(device, "239.255.77.76"),
             what="port and groups", seen=lambda: device.syslog.texts)
    compare_bytes(peer.search()[0].data, ANSWER)
    compare_bytes(peer.http_raw(GET), DESCRIPTION)
    assert device.call("getMacAddress") == "0x001122AABBCC"
    heard = peer.listen_announcements().wait_for(b'"name":"eth0"')
    assert b'"address":"10.77.0.2"' in heard[0].data


@pytest.mark.parametrize("function, error", [
    ("socket", errno.EMFILE), ("bind", errno.ENOMEM), ("listen", errno.ENOBUFS), ("getifaddrs", errno.ENOMEM),
    ("setsockopt", errno.ENOBUFS),
])
def test_each_call_for_a_port_or_an_interface_may_fail_once(start_device, peer, tmp_path, function, error):
    failing = Failing(tmp_path, times=50)
    device = start_device(program=failing.program)
    device.stop()
    for call in range(2 if function == "socket" else 1, 100):  # the first socket is that of the bus
        failing.order(function, error, call)
        device.start(wait=False)
        is_found(device, peer)
        device.stop()
        if not failing.failed:
            return
    raise AssertionError("the calls never end")
