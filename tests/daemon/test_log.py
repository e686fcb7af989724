"""The system log: what is written there, and that the daemon does not depend on it."""

import re
import socket

import pytest

from simdevice.waiting import wait_for
from texts import ANSWER, DESCRIPTION
from wirebytes import compare_bytes

NOT_READY = "setsockopt: interface invalid"
DEVICE_LOG = "/dev/log"


def still_works(device, peer) -> None:
    compare_bytes(peer.search()[0].data, ANSWER)
    compare_bytes(peer.http_raw(b"GET /rootDesc.xml HTTP/1.1\r\n\r\n"), DESCRIPTION)
    assert device.call("getUdpPort") == 1900


@pytest.fixture
def without_eth0(start_device):
    """A device on which each "ready" gives log lines."""
    return start_device(interface=None)


def test_ordinary_work_writes_nothing(device, peer):
    still_works(device, peer)
    peer.http_raw(b"GET /nothing HTTP/1.1\r\n\r\n")
    peer.http_raw(b"GET /icons/kelta_icon48.png HTTP/1.1\r\n\r\n")
    device.connman.state("ready")
    device.connman.ipv4("10.77.0.2", "10.77.0.1", "dhcp")
    device.call("configureIp")
    device.room.write_hostname("kelta")
    device.terminate()
    still_works(device, peer)
    assert device.syslog.lines == []
    assert device.output == ""


def test_form_of_a_warning(without_eth0):
    without_eth0.syslog.clear()
    without_eth0.connman.state("ready")
    without_eth0.syslog.wait_for_text(NOT_READY)
    assert re.fullmatch(rb"<180>[A-Z][a-z]{2} [ 1-3]\d [0-2]\d:[0-5]\d:[0-5]\d upnp: setsockopt: interface invalid",
                        without_eth0.syslog.lines[0].raw)
    assert {(line.facility, line.level, line.ident) for line in without_eth0.syslog.lines} == {(22, 4, "upnp")}
    assert without_eth0.output == ""


@pytest.mark.parametrize("mode", ["absent", "plain_file", "never_read"])
def test_without_a_log_that_works_the_daemon_starts_and_works(start_device, peer, mode):
    device = start_device(daemon="off")
    getattr(device.syslog, mode)()
    device.start()
    still_works(device, peer)


@pytest.mark.parametrize("mode", ["absent", "plain_file", "never_read"])
def test_a_log_that_works_only_after_the_start_gets_the_later_lines(start_device, mode):
    device = start_device(daemon="off", interface=None)
    getattr(device.syslog, mode)()
    device.start()
    device.syslog.record()
    device.connman.state("ready")
    device.syslog.wait_for_text(NOT_READY)
    assert device.syslog.texts.count(NOT_READY) == 1


@pytest.mark.parametrize("mode", ["absent", "plain_file", "never_read"])
def test_lines_that_find_no_log_are_lost_and_later_ones_are_not(without_eth0, mode):
    device = without_eth0
    device.syslog.clear()
    getattr(device.syslog, mode)()
    for _ in range(300):
        device.connman.state("ready")
    device.connman.ipv4("10.0.0.5")
    wait_for(lambda: device.call("getAddressStr") == "10.0.0.5", what="all signals have been dealt with")
    device.syslog.record()
    device.connman.state("ready")
    device.syslog.wait_for_text(NOT_READY)
    assert device.syslog.texts.count(NOT_READY) == 1


def test_a_log_that_is_never_read_does_not_stop_the_daemon(without_eth0):
    device = without_eth0
    device.syslog.never_read()
    for number in range(1, 4):
        for _ in range(500):
            device.connman.state("ready")
        device.connman.ipv4(f"10.0.0.{number}")
        wait_for(lambda: device.call("getAddressStr") == f"10.0.0.{number}", what="all signals have been dealt with")


def test_a_log_that_is_restarted_gets_the_later_lines(without_eth0):
    device = without_eth0
    for number in range(1, 4):
        device.syslog.record()
        device.syslog.clear()
        device.connman.state("ready")
        device.syslog.wait_for_text(NOT_READY)
        assert device.syslog.texts.count(NOT_READY) == 1


def test_a_log_service_that_wants_streams_gets_lines_ended_by_nul(without_eth0):
    device = without_eth0
    device.syslog.absent()
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as service:
        service.bind(str(device.room.path(DEVICE_LOG)))
        service.listen()
        service.settimeout(10)
        device.connman.state("ready")
        connection, _ = service.accept()
        with connection:
            connection.settimeout(10)
            text = b""
            while text.count(b"\0") < 2:
                device.connman.state("ready")
                text += connection.recv(65536)
            lines = [line.split(b": ", 1)[1] for line in text.split(b"\0")[:2]]
            assert NOT_READY.encode() in lines


def test_log_connection_is_kept(without_eth0):
    device = without_eth0
    count = len(device.open_files())
    for number in range(50):
        device.connman.state("ready")
    device.connman.ipv4("10.0.0.5")
    wait_for(lambda: device.call("getAddressStr") == "10.0.0.5", what="all signals have been dealt with")
    assert len(device.open_files()) == count
