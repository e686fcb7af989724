"""In which order a change reaches the daemon's parts, seen in its system calls."""

import shutil
import subprocess

import pytest

from simdevice.device import CODESYS
from simdevice.waiting import wait_for


def traced(device, trace, what) -> list:
    """What the daemon looks up and sends while `what` runs: "rebuild" for an announcement, "alive" for a message."""
    if not shutil.which("strace"):
        pytest.skip("strace is not installed")
    tracer = subprocess.Popen(["strace", "-f", "-s", "600", "-o", str(trace), "-p", str(device.pid)],
                              stderr=subprocess.PIPE, text=True)
    try:
        if "attached" not in tracer.stderr.readline():
            pytest.skip("this machine does not let the daemon be traced")
        what()
    finally:
        tracer.terminate()
        tracer.communicate()
    found = []
    for line in trace.read_text().splitlines():
        if CODESYS in line and found[-1:] != ["rebuild"]:
            found.append("rebuild")
        elif "ssdp:alive" in line and "send" in line:
            found.append("alive")
    return found


def test_one_change_rebuilds_the_announcement_before_and_after_the_alive_message(device, peer, tmp_path):
    heard = peer.listen_ssdp()
    assert traced(device, tmp_path / "trace", lambda: device.call("configureIp")) == ["rebuild", "alive", "rebuild"]
    wait_for(lambda: heard.matching(b"ssdp:alive"), what="the alive message")
