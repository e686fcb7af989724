"""Many connections to the description server at a time."""

import contextlib
import errno
import resource
import select
import socket

from simdevice.device import ADDRESS, HTTP_PORT
from simdevice.waiting import wait_for

AT_ONCE = 40  # connections that wait to be let in: the kernel keeps 50 for the daemon
NOT_FOR_CONNECTIONS = 44  # descriptors: what the daemon has open and what it keeps free


def capacity(device) -> int:
    """How many connections find a descriptor in the daemon for sure."""
    return resource.prlimit(device.pid, resource.RLIMIT_NOFILE)[0] - NOT_FOR_CONNECTIONS


@contextlib.contextmanager
def connections(peer, let_in: int, waiting: int = 0):
    """Nothing is sent on them. `waiting`: further ones, for which the daemon has no descriptor."""
    with contextlib.ExitStack() as stack, peer.host.inside():
        made = []
        while len(made) < let_in + waiting:
            one = stack.enter_context(socket.socket(socket.AF_INET, socket.SOCK_STREAM))
            one.setblocking(False)
            assert one.connect_ex((ADDRESS, HTTP_PORT)) in (0, errno.EINPROGRESS)
            made.append(one)
            if len(made) <= let_in and len(made) % AT_ONCE == 0:
                wait_for(lambda: all(is_connected(one) for one in made[-AT_ONCE:]), what="they are connected")
        yield made


def is_connected(one: socket.socket) -> bool:
    poll = select.poll()
    poll.register(one, select.POLLOUT)
    return bool(poll.poll(0))
