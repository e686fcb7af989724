"""Calls that fail while the daemon starts."""

import errno

from failing import Failing, needs_failing

pytestmark = needs_failing


def test_without_a_thread_it_ends_with_a_line(start_device, tmp_path):
    failing = Failing(tmp_path)
    failing.order("pthread_create", errno.EAGAIN)
    device = start_device(program=failing.program, daemon="starting")
    assert device.wait_for_exit() == 255
    assert failing.failed == 1
    assert device.syslog.texts[-1] == "no thread to be had, ending"
    assert device.syslog.lines[-1].level == 2
    device.start()
