"""Real programs around the daemon. They are unpacked, not installed, by scripts/neighbours.sh, which also starts these."""

import importlib.util
import pathlib
import sys

import pytest

DAEMON_TESTS = pathlib.Path(__file__).resolve().parent.parent / "daemon"
sys.path[:0] = [str(DAEMON_TESTS)]

_found = importlib.util.spec_from_file_location("daemon_fixtures", DAEMON_TESTS / "conftest.py")
_daemon = importlib.util.module_from_spec(_found)
_found.loader.exec_module(_daemon)

lan, start_device, device, peer, ssdp = (_daemon.lan, _daemon.start_device, _daemon.device, _daemon.peer, _daemon.ssdp)
pytest_sessionstart = _daemon.pytest_sessionstart

from programs import Connmand, DhcpServer, Program


@pytest.fixture
def start_program(tmp_path):
    """A function that starts a program in a device's room or on a host; see programs.Program."""
    started = []

    def start(kind: type, *arguments, **options) -> Program:
        program = kind(tmp_path, *arguments, **options)
        started.append(program)
        return program

    yield start
    for program in reversed(started):
        program.stop()


@pytest.fixture
def dhcp(lan, start_program) -> DhcpServer:
    """A DHCP server on a host of its own, 10.77.0.1."""
    return start_program(DhcpServer, lan.host(addresses=["10.77.0.1/24"]))


@pytest.fixture
def connected(start_device, start_program, dhcp):
    """A device whose address real connman has from the DHCP server, 10.77.0.40. Its daemon was there before."""
    dhcp.offer("10.77.0.40")
    made = start_device(daemon="off", interface=None, connman=False)
    made.host.add_interface("eth0", mac="00:11:22:aa:bb:cc", up=False)
    made.connmand = start_program(Connmand, made)
    made.start()
    made.connmand.wait_for_interface()
    made.host.cable_in()
    made.connmand.wait_for_state("ready", 40)
    made.connmand.wait_for_address("10.77.0.40")
    return made
