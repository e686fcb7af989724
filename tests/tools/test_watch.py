"""--watch: who comes, changes and leaves."""

import json
import re
import subprocess

import pytest

from browsing import Browser, Lines
from clocks import LIBRARY
from simdevice.controlpoint import ANNOUNCEMENTS
from texts import BYEBYE


@pytest.fixture
def watching(pc):
    """A function that starts it, and returns its lines."""
    started = []

    def start(*arguments: str) -> Lines:
        started.append(pc.start("--watch", *arguments))
        return Lines(started[-1])

    yield start
    for one in started:
        one.kill()
        assert "Traceback" not in one.communicate()[1]


def test_a_real_device_comes_moves_and_leaves(start_device, watching):
    device = start_device()
    lines = watching()
    assert re.fullmatch(r"\d\d:\d\d:\d\d came    kelta  KM-2044817  Kelta  1\.4\.2  10\.77\.0\.2", lines.wait_for("came"))
    device.host.add_address("10.77.0.99/24")
    device.connman.ipv4(address="10.77.0.99", gateway="10.77.0.1", method="dhcp")
    assert "addresses 10.77.0.2 → 10.77.0.99" in lines.wait_for("changed")
    device.terminate()
    assert "kelta" in lines.wait_for("left")
    assert [line.split()[1] for line in lines.seen] == ["came", "changed", "left"]


def test_another_firmware(fake, watching):
    device = fake(7, announcement=None)
    lines = watching()
    lines.wait_for("came", "kelta-7")
    text = device.announcement_text()
    device.say(text, ANNOUNCEMENTS)
    device.say(text.replace(b"1.4.2", b"1.5.0"), ANNOUNCEMENTS)
    assert "firmware 1.4.2 → 1.5.0" in lines.wait_for("changed")


def test_as_json(fake, watching):
    leaving = fake(7, announcement=None, alive=None)
    lines = watching("--json")
    came = json.loads(lines.wait_for('"name": "kelta-7"'))
    assert (came["event"], came["serial"], came["address"]) == ("came", "9000007", "10.77.0.7")
    leaving.say(leaving.text(BYEBYE))
    assert json.loads(lines.wait_for('"left"'))["serial"] == "9000007"


def test_two_serial_numbers_are_told_once(fake, pc):
    fake(7, serial="4711")
    fake(8, serial="4711")
    done = pc.run("--watch", "--timeout", "1.5")
    assert done.returncode == 0
    assert done.stderr.count("2 devices have the serial number 4711") == 1


def test_silence_is_noticed(fake, pc):
    """Nobody says byebye. The tool's clocks go sixty times faster."""
    if LIBRARY is None:
        pytest.skip("the package libfaketime is not installed")
    device = fake(7)
    with Browser(pc.host, LD_PRELOAD=str(LIBRARY), FAKETIME="+0 x60").start("--watch") as running:
        lines = Lines(running)
        lines.wait_for("came", "kelta-7")
        device.host.cable_out()
        lines.wait_for("left", "kelta-7")
        running.kill()


def test_a_network_that_goes_away(pc):
    """Said again and again, and then the search goes on. The tool's clocks go sixty times faster."""
    if LIBRARY is None:
        pytest.skip("the package libfaketime is not installed")
    with Browser(pc.host, LD_PRELOAD=str(LIBRARY), FAKETIME="+0 x60").start("--watch", stdout=subprocess.DEVNULL,
                                                                            stderr=subprocess.PIPE) as running:
        pc.wait_until_it_listens()
        pc.host.link_down()
        running.stdout = running.stderr
        said = Lines(running).wait_for("Nobody can be asked")
        running.kill()
    assert "Nobody can be asked (eth0: Network is unreachable). Is the network there, and a route?" in said
