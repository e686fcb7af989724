"""The system bus is restarted under the daemon."""

import contextlib
import os
import pathlib
import signal
import socket

from simdevice.bus import DRIVER
from simdevice.device import BUS_NAME
from simdevice.waiting import wait_for
from texts import DESCRIPTION, notifies
from wirebytes import compare_bytes

GET = b"GET /rootDesc.xml HTTP/1.1\r\n\r\n"
LOST = "system bus lost, starting again once it is back"


def bring_back(device, fwconfig: bool = True) -> None:
    device.bus.start()
    if fwconfig:
        device.fwconfig.start()


def take_away(device) -> None:
    device.bus.stop()
    device.syslog.wait_for_text(LOST)


@contextlib.contextmanager
def bus_that_hangs_up(device):
    """Something listens where the bus was, and closes what connects. Gives a function that waits for the next to connect."""
    path = device.bus.address.removeprefix("unix:path=")
    os.unlink(path)
    with socket.socket(socket.AF_UNIX) as listening:
        listening.bind(path)
        listening.listen()
        listening.settimeout(20)
        yield lambda: listening.accept()[0].close()


def command_line(pid: int) -> bytes:
    return pathlib.Path(f"/proc/{pid}/cmdline").read_bytes()


def serves(device, peer) -> None:
    assert len(peer.search("ssdp:all")) == 1
    compare_bytes(peer.http_raw(GET), DESCRIPTION)


def test_without_a_bus_everything_else_goes_on(device, peer):
    take_away(device)
    serves(device, peer)
    assert device.running


def test_a_bus_that_hangs_up_is_tried_again(device, peer):
    take_away(device)
    with bus_that_hangs_up(device) as wait_for_connection:
        for _ in range(3):
            wait_for_connection()
    serves(device, peer)
    bring_back(device)
    device.bus.wait_for_name(BUS_NAME)
    assert device.syslog.texts == [LOST]


def test_the_daemon_comes_back_to_a_restarted_bus(device, peer):
    pid = device.pid
    files = len(device.open_files())
    called = command_line(pid)
    take_away(device)
    bring_back(device)
    device.bus.wait_for_name(BUS_NAME)
    device.wait_until_ready()
    assert device.bus.pid_of(BUS_NAME) == pid
    assert command_line(pid) == called
    assert device.call("getServerHeader") == b"Kelta/1.4.2, UPnP/1.0"
    serves(device, peer)
    wait_for(lambda: len(device.open_files()) <= files, what="no descriptor is left over", seen=device.open_files)
    assert device.syslog.texts == [LOST]


def test_it_waits_for_the_configuration_service_and_so_keeps_its_identity(device, peer):
    take_away(device)
    bring_back(device, fwconfig=False)
    looks = device.bus.monitor("type='method_call',member='NameHasOwner'")
    wait_for(lambda: len(looks.calls()) >= 2, what="it has looked for the service twice", seen=looks.calls)
    connections = len(device.bus.call(*DRIVER, "ListNames"))
    wait_for(lambda: len(looks.calls()) >= 4, what="it has looked for it two more times", seen=looks.calls)
    assert len(device.bus.call(*DRIVER, "ListNames")) <= connections + 1  # one, while it looks
    serves(device, peer)
    assert not device.bus.owner(BUS_NAME)
    device.fwconfig.start()
    device.bus.wait_for_name(BUS_NAME)
    device.wait_until_ready()
    serves(device, peer)
    assert not device.fwconfig.calls_of("/systemvariables.set")


def test_a_bus_that_goes_again_and_again(device, peer):
    for _ in range(3):
        device.syslog.clear()
        take_away(device)
        bring_back(device)
        device.bus.wait_for_name(BUS_NAME)
        device.wait_until_ready()
    serves(device, peer)


def test_sigterm_while_it_looks_for_the_bus_is_a_farewell_and_no_new_start(device, peer, ssdp):
    def is_waiting_for_the_bus() -> bool:
        peer.send(peer.search_text("ssdp:other"), (device.address, 1900))
        return device.unread(1900, "udp") > 10_000

    take_away(device)
    device.signal(signal.SIGSTOP)  # its next look comes after the bus is there
    bring_back(device)
    os.kill(device.bus.pid, signal.SIGSTOP)
    device.signal(signal.SIGCONT)
    wait_for(is_waiting_for_the_bus, what="what it does not read adds up")
    ssdp.clear()
    device.terminate()
    os.kill(device.bus.pid, signal.SIGCONT)
    ssdp.wait_for(b"ssdp:byebye")
    assert all(b"ssdp:byebye" in text for text in notifies(ssdp))
    assert not device.bus.owner(BUS_NAME)
    assert device.syslog.texts == [LOST]
