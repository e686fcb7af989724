"""The wall clock jumps. Timers follow another clock, but how long a device stays known is measured by this one."""

import itertools
import os
import pathlib
import time

import pytest

from burdens import is_sanitized
from scanning import SERIAL, announcing, everything_so_far, is_alive, summaries, wait_for_device
from simdevice.device import default_program
from simdevice.waiting import wait_for
from texts import ANSWER, DESCRIPTION
from wirebytes import compare_bytes

LIBRARY = next(pathlib.Path("/usr/lib").glob("*/faketime/libfaketime.so.1"), None)
DAY = 24 * 60 * 60

pytestmark = [pytest.mark.skipif(LIBRARY is None, reason="the package libfaketime is not installed"),
              pytest.mark.skipif(is_sanitized(), reason="the sanitizers want to be loaded before any other library")]

_versions = itertools.count()


class Clock:
    """The daemon's wall clock, so many seconds ahead of the real one."""

    def __init__(self, folder: pathlib.Path):
        self._file = folder / "clock"
        self.set(0)
        self.program = folder / "upnpvelorn"
        self.program.write_text("#!/bin/sh\n" + "".join(f"export {name}={value}\n" for name, value in {
            "LD_PRELOAD": LIBRARY, "FAKETIME_TIMESTAMP_FILE": self._file, "FAKETIME_NO_CACHE": 1,
            "FAKETIME_DONT_FAKE_MONOTONIC": 1, "DONT_FAKE_MONOTONIC": 1}.items()) + f'exec "{default_program()}"\n')
        self.program.chmod(0o755)

    def set(self, seconds: int) -> None:
        new = self._file.with_suffix(f".{next(_versions)}")
        new.write_text(f"{seconds:+d}\n")
        os.replace(new, self._file)


@pytest.fixture
def clock(tmp_path):
    return Clock(tmp_path)


def next_tick(listener) -> None:
    """The device's announcement goes out at each look for expired devices, every ten seconds."""
    listener.clear()
    listener.wait_for(SERIAL.encode(), seconds=15)


def still_works(device, peer) -> None:
    compare_bytes(peer.search()[0].data, ANSWER)
    compare_bytes(peer.http_raw(b"GET /rootDesc.xml HTTP/1.1\r\n\r\n"), DESCRIPTION)
    assert is_alive(device)


def test_a_day_forwards_forgets_everybody_until_the_next_announcement(start_device, peer, clock):
    device = start_device(program=str(clock.program))
    listener = peer.listen_announcements()
    peer.announce(announcing("good"))
    peer.announce(announcing("lasting", DAY))
    wait_for_device(device, "good")
    wait_for_device(device, "lasting")
    clock.set(DAY)
    next_tick(listener)
    wait_for_device(device, SERIAL)
    assert set(everything_so_far(device, peer)) == {SERIAL, "lasting"}
    peer.announce(announcing("good"))
    wait_for_device(device, "good")
    still_works(device, peer)


def test_a_day_backwards_keeps_the_silent_until_the_clock_is_there_again(start_device, peer, clock):
    device = start_device(program=str(clock.program))
    listener = peer.listen_announcements()
    for uuid in ("silent", "refreshed"):
        peer.announce(announcing(uuid, 1))
        wait_for_device(device, uuid)
    clock.set(-DAY)
    peer.announce(announcing("refreshed", 1))
    refreshed = time.monotonic()
    everything_so_far(device, peer)
    wait_for(lambda: time.monotonic() - refreshed > 4, what="three seconds are over")
    next_tick(listener)
    wait_for(lambda: "refreshed" not in summaries(device), what="who announced since the jump is gone in time")
    assert "silent" in summaries(device)
    still_works(device, peer)
    clock.set(0)
    next_tick(listener)
    wait_for(lambda: "silent" not in summaries(device), what="the silent one is gone")
    still_works(device, peer)
