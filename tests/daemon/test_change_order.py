"""In which order a change reaches the daemon's parts, seen in its system calls."""

import shutil
import subprocess

import pytest

from simdevice.device import CODESYS
from simdevice.waiting import wait_for
from texts import has_joined


def traced(device, trace, what) -> list:
    """The daemon's system calls while `what` runs, a line each."""
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
    return trace.read_text().splitlines()


def steps(lines: list) -> list:
    """What the calls are good for; several in a row for the same count once."""
    marks = {CODESYS: "rebuild", "ssdp:alive": "alive", "ssdp:byebye": "byebye",
             'IP_ADD_MEMBERSHIP, {imr_multiaddr=inet_addr("239.255.255.250")': "join SSDP",
             'IP_ADD_MEMBERSHIP, {imr_multiaddr=inet_addr("239.255.77.76")': "join scan"}
    own = [line for line in lines if "recv" not in line]  # its messages come back from the group
    found = [step for line in own for mark, step in marks.items() if mark in line]
    return [step for number, step in enumerate(found) if found[number - 1:number] != [step]]


def test_one_change_rebuilds_the_announcement_before_and_after_the_alive_message(device, peer, tmp_path):
    heard = peer.listen_ssdp()
    calls = traced(device, tmp_path / "trace", lambda: device.call("configureIp"))
    assert steps(calls) == ["rebuild", "alive", "rebuild"]
    wait_for(lambda: heard.matching(b"ssdp:alive"), what="the alive message")


def test_before_a_change_nobody_but_the_responder_is_told(device, peer, tmp_path):
    heard = peer.listen_ssdp()

    def change():
        device.connman.ipv4("10.77.0.9")
        wait_for(lambda: heard.matching(b"ssdp:alive"), what="the alive message")
        assert device.answers()
    calls = traced(device, tmp_path / "trace", change)
    assert steps(calls)[-4:] == ["byebye", "rebuild", "alive", "rebuild"]
    assert steps(calls).count("rebuild") == 2


def test_a_ready_network_without_eth0_fails_for_the_responder_before_the_scan(start_device):
    device = start_device(interface=None)
    device.syslog.clear()
    device.connman.state("ready")
    lines = wait_for(lambda: device.syslog.texts[1:] and device.syslog.texts, what="both have failed")
    assert lines[0] == "setsockopt: interface invalid"
    assert lines[1].startswith("join multicast failed: ")


def test_a_ready_network_reaches_the_responder_before_the_scan(start_device, tmp_path):
    device = start_device(interface=None)
    device.host.add_interface("eth0", ["10.77.0.2/24"])

    def ready():
        device.connman.state("ready")
        wait_for(lambda: has_joined(device), what="the SSDP group is joined")
        assert device.answers()
    # A tick of the scan may have come before.
    assert steps(traced(device, tmp_path / "trace", ready))[-2:] == ["join SSDP", "join scan"]
