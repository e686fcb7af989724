"""Programs on the device that make the daemon warn as often as they like."""

import pytest

from scanning import scan
from simdevice.values import Typed

MOST_LINES = 1000  # at once; then one every five seconds
CALLS = 1500


@pytest.mark.parametrize("how", ["setupMulticast", "online"])
def test_without_a_network_no_program_fills_the_log(start_device, how):
    device = start_device(interface=None)
    stranger = device.bus.connect()
    for _ in range(CALLS):
        if how == "online":
            stranger.send_signal("/", "net.connman.Service", "PropertyChanged", "State", Typed("s", "online"), signature="sv")
            stranger.call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId")
        else:
            assert scan(device, "setupMulticast") == -2
    assert scan(device, "setupMulticast") == -2
    assert 0 < len(device.syslog.lines) < MOST_LINES + 50
    stranger.close()
