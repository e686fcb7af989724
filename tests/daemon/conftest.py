"""Fixtures for tests of the running daemon. Every test has its own network, bus and device."""

import resource

import pytest

from simdevice import sandbox
from simdevice.controlpoint import ControlPoint
from simdevice.device import Device
from simdevice.network import SUBNET, Lan

PEER_ADDRESS = f"{SUBNET}.3"


def pytest_sessionstart(session):
    if not sandbox.inside():
        pytest.exit("These tests change networks and mounts: start them with tests/daemon/run.py", 1)


@pytest.fixture
def lan():
    made = Lan()
    yield made
    made.close()


@pytest.fixture
def start_device(lan):
    """A function that makes a device and starts its daemon.

    Takes the options of simdevice.device.Device, and daemon: "ready" (the usual), "starting" (do not wait for it)
    or "off" (do not start it). The test fails at its end if a daemon ended that it has not waited for.
    """
    made = []

    def start(daemon: str = "ready", **options) -> Device:
        device = Device(lan, **options)
        made.append(device)
        if daemon != "off":
            device.start(wait=daemon == "ready")
        return device

    yield start
    crashed = [f"the daemon ended with status {device.exit_status}:\n{device.output}"
               for device in made if device.crashed()]
    for device in made:
        device.close()
    if crashed:
        pytest.fail("\n".join(crashed), pytrace=False)


@pytest.fixture
def device(start_device):
    return start_device()


@pytest.fixture
def peer(lan):
    """A control point on a host of its own."""
    made = ControlPoint(lan.host(addresses=[f"{PEER_ADDRESS}/24"]))
    yield made
    made.close()


@pytest.fixture(scope="module")
def shared_lan():
    made = Lan()
    yield made
    made.close()


@pytest.fixture(scope="module")
def shared_device(shared_lan):
    """One device for all tests of a file that leave nothing behind."""
    device = Device(shared_lan)
    device.start()
    yield device
    crashed, output = device.crashed(), device.output
    device.close()
    if crashed:
        pytest.fail(f"the daemon ended:\n{output}", pytrace=False)


@pytest.fixture(scope="module")
def shared_peer(shared_lan):
    made = ControlPoint(shared_lan.host(addresses=[f"{PEER_ADDRESS}/24"]))
    yield made
    made.close()


@pytest.fixture
def ssdp(peer):
    """What the peer hears on the group for searches and announcements. Name it before `device` to hear all."""
    return peer.listen_ssdp()


@pytest.fixture
def many_descriptors():
    """This process may have as many as the machine lets it."""
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    if hard < 5000:
        pytest.skip("the machine gives too few descriptors")
    resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))
    yield
    resource.setrlimit(resource.RLIMIT_NOFILE, (soft, hard))
