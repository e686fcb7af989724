"""upnpvelornctl monitor: who comes, changes and leaves."""

import signal

import pytest

from browsing import Lines
from controlling import Ctl, runs_here
from scanning import announcing, wait_for_device
from simdevice.waiting import wait_for

pytestmark = runs_here

OWN = "KM-2044817"


@pytest.fixture
def monitor(device):
    """A running one, which has told of the device itself."""
    wait_for_device(device, OWN)
    running = Ctl(device).start("monitor", text=False)
    lines = Lines(running)
    lines.running = running
    lines.wait_for("came", "kelta", OWN)
    yield lines
    running.kill()
    running.communicate()


def test_who_comes_changes_and_leaves(peer, monitor):
    peer.announce(announcing("visitor", 3, name="guest"))
    line = monitor.wait_for("came", "guest")
    assert line.split()[1:] == ["came", "guest", "visitor", "Kelta", "CODESYS", "2.0.1", "10.77.0.3", "static"]
    peer.announce(announcing("visitor", 3, name="host"))
    assert monitor.wait_for("changed", "host").split(None, 3)[3] == "name guest → host"
    peer.announce(announcing("visitor", 3, name="host", raw='{"configurationMethod":"static","ipv4":[{"address":"10.77.0.3"}],"x":1}'))
    monitor.wait_for("changed", 'another value that only "show" has')
    monitor.wait_for("left", "host")
    assert len([line for line in monitor.read() if "guest" in line or "host" in line]) == 4


def test_a_daemon_that_is_started_again(device, peer, monitor):
    peer.announce(announcing("visitor"))
    monitor.wait_for("came", "visitor")
    device.restart()
    monitor.wait_for("left", "visitor")
    peer.announce(announcing("another"))
    monitor.wait_for("came", "another")
    monitor.running.send_signal(signal.SIGINT)
    errors = monitor.running.communicate(timeout=10)[1].decode()
    assert errors == "upnpvelornctl: The daemon has ended. Waiting for it.\n"


def test_it_waits_for_a_daemon_that_is_not_there(start_device):
    device = start_device(daemon="off")
    running = Ctl(device).start("monitor", text=False)
    lines = Lines(running)
    wait_for(lambda: b"Waiting for it" in running.stderr.peek(), what="it says that it waits")
    device.start()
    lines.wait_for("came", "kelta")
    running.kill()
    running.communicate()


def test_the_bus_goes(device, monitor):
    device.bus.stop()
    assert monitor.running.wait(timeout=10) == 1
    assert monitor.running.stderr.read().decode().endswith("upnpvelornctl: The system bus has gone.\n")


def test_ctrl_c(monitor):
    monitor.running.send_signal(signal.SIGINT)
    out, errors = monitor.running.communicate(timeout=10)
    assert (monitor.running.returncode, errors) == (130, b"")


def test_many_are_told_of_without_a_flood(device, peer, monitor):
    for number in range(500):
        peer.announce(announcing(f"D{number:03}"))
        if number % 100 == 99:
            wait_for_device(device, f"D{number:03}")
    wait_for(lambda: sum(" came " in line for line in monitor.read()) == 501, what="all are told of")


def test_a_reader_who_goes(device, peer):
    wait_for_device(device, OWN)
    running = Ctl(device).start("monitor", text=False)
    Lines(running).wait_for("came", OWN)
    running.stdout.close()
    peer.announce(announcing("visitor"))
    assert running.wait(timeout=10) in (-13, 141)
    assert running.stderr.read() == b""
    running.stderr.close()
