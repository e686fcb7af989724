"""The bus is away for longer than a restart takes. Waits for a minute."""

import time

from simdevice.device import BUS_NAME
from test_bus_restart import bring_back, bus_that_hangs_up, serves, take_away


def test_the_daemon_looks_every_second_for_a_minute_and_then_every_ten(device, peer):
    take_away(device)
    with bus_that_hangs_up(device) as wait_for_connection:
        looks, waited = 0, 0
        while waited < 5:
            begun = time.monotonic()
            wait_for_connection()
            looks, waited = looks + 1, time.monotonic() - begun
    assert 59 <= looks - 1 <= 60  # without the one that came late; the first may have met no socket
    assert waited < 15
    serves(device, peer)
    bring_back(device)
    device.bus.wait_for_name(BUS_NAME, 20)
    device.wait_until_ready()
    serves(device, peer)
