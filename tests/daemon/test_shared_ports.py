"""Ports 1900 and 31416 beside other programs that have them. Linux has two options for sharing, and a program may set
either of them or both."""

import contextlib
import socket
import subprocess
import sys

import pytest

from scanning import GROUP, PORT, announcing, is_alive, scan, wait_for_device
from simdevice.controlpoint import SSDP
from simdevice.waiting import wait_for
from texts import ANSWER
from wirebytes import compare_bytes

REUSE_ADDRESS, REUSE_PORT = socket.SO_REUSEADDR, socket.SO_REUSEPORT
OPTIONS = [pytest.param([REUSE_ADDRESS], id="SO_REUSEADDR"), pytest.param([REUSE_PORT], id="SO_REUSEPORT"),
           pytest.param([REUSE_ADDRESS, REUSE_PORT], id="both")]
TAKEN = ["The bound address is already in use", "zorvlisten port not bound!"]


@contextlib.contextmanager
def bound_on(device, options: list):
    """A program on the device that has both ports, and listens to both groups."""
    with contextlib.ExitStack() as stack:
        made = []
        for group, port in (SSDP, (GROUP, PORT)):
            one = stack.enter_context(device.host.socket())
            for option in options:
                one.setsockopt(socket.SOL_SOCKET, option, 1)
            one.bind(("0.0.0.0", port))
            one.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP,
                           socket.inet_aton(group) + socket.inet_aton(device.address))
            one.settimeout(10)
            made.append(one)
        yield made


def answer_over_the_group(peer, seconds: float = 10) -> bytes:
    """What is sent to the device's own address goes to one of the programs only."""
    with peer.host.socket() as asking:
        asking.settimeout(seconds)
        asking.sendto(peer.search_text("ssdp:all"), SSDP)
        return asking.recv(65536)


def both_hear_the_groups(device, peer, other: list) -> None:
    compare_bytes(answer_over_the_group(peer), ANSWER)
    peer.announce(announcing("A"))
    wait_for_device(device, "A")
    for one in other:
        assert one.recv(65536)
    assert scan(device, "socketState") == 4
    assert device.syslog.lines == []
    assert is_alive(device)


@pytest.mark.parametrize("options", OPTIONS)
def test_another_program_has_them_first(start_device, peer, options):
    device = start_device(daemon="off")
    with bound_on(device, options) as other:
        device.start()
        both_hear_the_groups(device, peer, other)


@pytest.mark.parametrize("options", OPTIONS)
def test_the_daemon_has_them_first(device, peer, options):
    with bound_on(device, options) as other:
        both_hear_the_groups(device, peer, other)


def test_programs_of_both_kinds_that_share_with_each_other_and_with_the_daemon(start_device, peer):
    device = start_device(daemon="off")
    with bound_on(device, [REUSE_ADDRESS, REUSE_PORT]), bound_on(device, [REUSE_PORT]) as second:
        device.start()
        with bound_on(device, [REUSE_ADDRESS, REUSE_PORT]) as late:
            both_hear_the_groups(device, peer, second + late)


def test_a_port_that_is_not_shared_stays_the_others(start_device, peer):
    device = start_device(daemon="off")
    with bound_on(device, []):
        device.start()
        device.syslog.wait_for_text(TAKEN[1])
        assert device.syslog.texts == TAKEN
        with pytest.raises(TimeoutError):
            answer_over_the_group(peer, 1)
        assert scan(device, "socketState") == 0


STRANGER = """
import socket, sys
made = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
made.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEPORT, 1)
made.bind(("0.0.0.0", int(sys.argv[1])))
print("bound", flush=True)
sys.stdin.read()
"""


def test_the_kernel_does_not_share_with_another_user_who_sets_nothing_but_reuseport(start_device):
    device = start_device(daemon="off")
    command = ["nsenter", f"--net={device.host.path}", "--", "setpriv", "--reuid=65534", "--clear-groups", sys.executable,
               "-c", STRANGER, str(PORT)]
    with subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True) as stranger:
        assert stranger.stdout.readline() == "bound\n"
        device.start()
        device.syslog.wait_for_text(TAKEN[1])
        assert scan(device, "socketState") == 0
        stranger.stdin.close()
        stranger.wait(10)
    wait_for(lambda: scan(device, "socketState") == 4, 15, "the port is bound once it is free")
