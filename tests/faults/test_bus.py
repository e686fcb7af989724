"""Calls that fail around the bus."""

import errno

from failing import Failing, needs_failing
from simdevice.device import BUS_NAME
from test_bus_restart import LOST, bring_back, serves, take_away

pytestmark = needs_failing


def test_a_program_that_cannot_be_started_is_tried_again(start_device, peer, tmp_path):
    failing = Failing(tmp_path)
    device = start_device(program=failing.program)
    take_away(device)
    failing.order("execv", errno.ENOMEM, times=2)
    bring_back(device)
    device.bus.wait_for_name(BUS_NAME)
    device.wait_until_ready()
    assert failing.failed == 2
    serves(device, peer)
    assert device.syslog.texts == [LOST, "starting again failed: Cannot allocate memory"]
