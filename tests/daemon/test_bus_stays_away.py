"""The bus is away for longer than a restart takes. Waits for a minute and a half."""

import time

from simdevice.device import BUS_NAME
from simdevice.waiting import wait_for
from test_bus_restart import bring_back, bus_that_hangs_up, serves


def seconds_until(happens) -> float:
    begun = time.monotonic()
    happens()
    return time.monotonic() - begun


def test_the_daemon_looks_every_second_for_a_minute_and_then_every_ten(device, peer):
    stopped = time.monotonic()
    device.bus.stop()
    with bus_that_hangs_up(device) as wait_for_connection:
        may_miss_one = time.monotonic() - stopped > 0.5
        looks = 0
        while seconds_until(wait_for_connection) < 5:
            looks += 1
        assert looks == 60 or may_miss_one and looks == 59
        assert 5 < seconds_until(wait_for_connection) < 15
    serves(device, peer)

    # Once it is there, it is looked at every second again.
    bring_back(device, fwconfig=False)
    looked = device.bus.monitor("type='method_call',member='NameHasOwner'")
    wait_for(looked.calls, 20, "it has looked for the service")
    assert seconds_until(lambda: wait_for(lambda: len(looked.calls()) >= 3, 20, "it has looked two more times")) < 6
    device.fwconfig.start()
    device.bus.wait_for_name(BUS_NAME)
    device.wait_until_ready()
    serves(device, peer)
