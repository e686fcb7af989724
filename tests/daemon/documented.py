"""The device that the documents show."""

import pytest

from scanning import scan
from simdevice.device import Device
from simdevice.waiting import wait_for

SERIAL = "912345678"


@pytest.fixture(scope="module")
def documented(shared_lan):
    """A device that has heard its own announcement with everything in it."""
    device = Device(shared_lan)
    device.fwconfig.set(constants={"SERIALNUMBER": SERIAL})
    device.start()

    def heard() -> bool:
        scan(device, "sendAnnouncement")
        return [one["configurationMethod"] for one in scan(device, "allChilds") or []] == ["dhcp"]

    wait_for(heard, what="the device lists itself with its network", seen=lambda: scan(device, "allChilds"))
    yield device
    crashed, output = device.crashed(), device.output
    device.close()
    assert not crashed, output
