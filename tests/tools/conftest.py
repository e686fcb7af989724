"""Fixtures for the tests of tools/: networks and devices as for the daemon's tests, and devices that are not real."""

import importlib.util
import pathlib
import sys

import pytest

DAEMON_TESTS = pathlib.Path(__file__).resolve().parent.parent / "daemon"
sys.path[:0] = [str(DAEMON_TESTS)]

_found = importlib.util.spec_from_file_location("daemon_fixtures", DAEMON_TESTS / "conftest.py")
_daemon = importlib.util.module_from_spec(_found)
_found.loader.exec_module(_daemon)

lan, shared_lan, start_device, device, peer = (_daemon.lan, _daemon.shared_lan, _daemon.start_device, _daemon.device, _daemon.peer)
pytest_sessionstart = _daemon.pytest_sessionstart

from browsing import Browser
from fakedevice import FakeDevice


@pytest.fixture
def pc(lan):
    """The PC that the tool runs on, 10.77.0.3."""
    return Browser(lan.host(addresses=["10.77.0.3/24"]))


@pytest.fixture
def fake(lan):
    """A function that makes a device, see FakeDevice."""
    made = []

    def make(number: int, **options) -> FakeDevice:
        made.append(FakeDevice(lan, number, **options))
        return made[-1]

    yield make
    for one in made:
        one.close()
