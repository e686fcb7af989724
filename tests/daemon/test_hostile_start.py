"""A configuration service that hangs while the daemon starts."""

from scanning import is_alive
from simdevice.waiting import wait_for
from texts import ANSWER, KERNEL_UUID, UUID

LONGEST_BUS_CALL = 25  # seconds until the bus library gives up on an answer


def test_start_goes_on_when_the_bus_library_gives_up(start_device, peer):
    device = start_device(daemon="off")
    device.fwconfig.behave("silent", "/systemvariables.get")
    device.start(wait=False)
    wait_for(lambda: device.fwconfig.calls_of("/systemconstants.get"), what="the daemon has asked for everything else")
    assert not device.listens(8200)
    device.wait_until_ready(LONGEST_BUS_CALL + 15)
    answer = peer.search()[0].data
    made = KERNEL_UUID.search(answer.decode())[0].encode()
    assert answer.split(b"\r\n")[3:] == ANSWER.replace(UUID.encode(), made).split(b"\r\n")[3:]
    assert is_alive(device)
    device.fwconfig.behave("normal")
    device.call("configureIp")
    assert device.call("getNetworkConfigMethod") == "dhcp"
