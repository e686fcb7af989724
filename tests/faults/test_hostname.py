"""Calls that fail around the file with the host name."""

import contextlib
import errno
import pathlib

import pytest

from clocks import needs_clocks
from failing import Failing, needs_failing
from simdevice.waiting import wait_for
from texts import DESCRIPTION, replaced
from serving import GET
from wirebytes import compare_bytes

pytestmark = [*needs_failing, *needs_clocks]


def is_called(device, name: bytes) -> bool:
    return device.call("getHostname") == name


@pytest.mark.parametrize("function, error", [
    pytest.param("inotify_init", errno.EMFILE, id="no descriptor"),
    pytest.param("inotify_add_watch", errno.ENOSPC, id="no watch"),
])
def test_a_watch_that_was_refused_is_set_up_later(start_device, peer, tmp_path, function, error):
    failing = Failing(tmp_path, times=20)
    failing.order(function, error, times=2)
    device = start_device(program=failing.program)
    device.room.write_hostname("first")
    wait_for(lambda: is_called(device, b"first"), what="the change that nobody saw is found")
    assert failing.failed == 2
    wait_for(lambda: has_watch(device), what="the kernel watches the file")
    device.room.write_hostname("second")
    wait_for(lambda: is_called(device, b"second"), what="the next one is seen")
    compare_bytes(peer.http_raw(GET), replaced(DESCRIPTION, hostname="second"))


def test_a_file_that_cannot_be_read_three_times_leaves_the_name(start_device, tmp_path):
    failing = Failing(tmp_path)
    device = start_device(program=failing.program)
    failing.order("open", errno.EIO, times=1000)
    device.room.write_hostname("new")
    wait_for(lambda: failing.failed >= 3, what="the file could not be read")
    for _ in range(3):
        assert device.call("getHostname") == b"kelta"
    assert failing.failed in (3, 6)  # one write may be reported twice
    failing.nothing()
    device.room.write_hostname("newer")
    wait_for(lambda: is_called(device, b"newer"), what="the next change is followed")


def has_watch(device) -> bool:
    for entry in pathlib.Path(f"/proc/{device.pid}/fdinfo").iterdir():
        with contextlib.suppress(FileNotFoundError):  # closed in the meantime
            if "inotify wd:" in entry.read_text():
                return True
    return False


def test_a_watch_that_is_set_up_later_makes_up_no_change(start_device, ssdp, tmp_path):
    failing = Failing(tmp_path, times=20)
    failing.order("inotify_add_watch", errno.ENOSPC)
    device = start_device(program=failing.program)
    wait_for(lambda: has_watch(device), what="the file is watched")
    assert failing.failed == 1
    device.call("getUdpPort")
    assert device.call("getHostname") == b"kelta"
    assert not [datagram for datagram in ssdp.received if b"ssdp:byebye" in datagram.data]


@pytest.mark.parametrize("function", ["open", "read"])
@pytest.mark.parametrize("call", range(1, 4))
def test_a_file_that_cannot_be_read_at_once_is_read_again(start_device, tmp_path, function, call):
    failing = Failing(tmp_path)
    device = start_device(program=failing.program)
    failing.order(function, errno.EIO, call)
    device.room.write_hostname("new")
    wait_for(lambda: is_called(device, b"new"), what="the new name", seen=lambda: device.call("getHostname"))


def test_a_file_that_cannot_be_opened_changes_nothing(start_device, ssdp, tmp_path):
    failing = Failing(tmp_path)
    device = start_device(program=failing.program)
    failing.order("open", errno.EACCES, times=1000)
    ssdp.clear()
    device.room.write_hostname("new")
    wait_for(lambda: failing.failed >= 3, what="it has tried", seen=lambda: failing.failed)
    device.call("getUdpPort")
    assert device.call("getHostname") == b"kelta"
    assert ssdp.received == []
