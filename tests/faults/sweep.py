"""Lets every call of the daemon's fail once and looks at what becomes of it.

A point is one call: in a phase (what the daemon does meanwhile), of a function, the n-th one, with an error. Each point
gets a daemon of its own, whose time goes a hundred times faster. After the failure every service of the daemon is tried until
all of them are as ever, or five minutes of the daemon's time have passed.
"""

import contextlib
import errno
import pathlib
import tempfile
import time
from typing import Callable, NamedTuple

import dbus

import clocks
import failing
from burdens import cpu_seconds, is_sanitized
from scanning import announcing, summaries
from serving import GET, GET_ICON
from simdevice.controlpoint import SSDP, ControlPoint
from simdevice.device import ADDRESS, BUS_NAME, Device, png
from simdevice.network import SUBNET, Lan
from simdevice.waiting import wait_for
from texts import ANSWER, DESCRIPTION, icon_answer
from wirebytes import compare_bytes

TIMES = 100
LONGEST_RECOVERY = 300 / TIMES + 1  # seconds: three of the longest timer, and one for this machine
PHASES = ("start", "requests", "changes", "bus")

# What can happen to each function; the first is the usual one.
ERRORS = {
    "socket": ("EMFILE", "ENOBUFS"), "socketpair": ("EMFILE",), "bind": ("ENOMEM", "EADDRINUSE"),
    "listen": ("ENOBUFS", "EADDRINUSE"), "connect": ("ENOMEM", "EAGAIN"), "accept": ("EMFILE", "ECONNABORTED"),
    "accept4": ("EMFILE", "ECONNABORTED", "ENOMEM"), "setsockopt": ("ENOBUFS",), "getsockopt": ("ENOBUFS",),
    "getsockname": ("ENOBUFS",), "getpeername": ("ENOTCONN",), "send": ("ENOBUFS", "EAGAIN", "EPIPE"),
    "sendto": ("ENOBUFS", "ENETUNREACH"), "sendmsg": ("ENOBUFS", "EAGAIN", "EPIPE"),
    "recv": ("ENOMEM", "EAGAIN", "ECONNRESET"), "recvfrom": ("ENOMEM", "EAGAIN"),
    "recvmsg": ("ENOMEM", "EAGAIN", "ECONNRESET"), "shutdown": ("ENOTCONN",), "open": ("EMFILE", "EACCES"),
    "fopen": ("EMFILE",), "opendir": ("EMFILE",), "readlink": ("EIO",), "access": ("EACCES",),
    "read": ("EIO", "EINTR"), "write": ("EIO", "EAGAIN"), "writev": ("EIO",), "stat": ("EIO",), "lseek": ("EIO",),
    "mmap": ("ENOMEM",), "sendfile": ("EIO", "EAGAIN"), "fcntl": ("ENOMEM",), "ioctl": ("ENOMEM",),
    "dup2": ("EMFILE",), "dup3": ("EMFILE",), "pipe": ("EMFILE",), "pipe2": ("EMFILE",), "eventfd": ("EMFILE",),
    "epoll_create1": ("EMFILE",), "epoll_ctl": ("ENOSPC", "ENOMEM"), "epoll_wait": ("EINTR",),
    "inotify_init": ("EMFILE",), "inotify_add_watch": ("ENOSPC",), "poll": ("ENOMEM", "EINTR"), "select": ("EINTR", "ENOMEM"),
    "getifaddrs": ("ENOMEM",), "if_nametoindex": ("ENODEV",), "if_indextoname": ("ENXIO",), "getrlimit": ("EFAULT",),
    "setrlimit": ("EPERM",), "sigaction": ("EINVAL",), "execv": ("ENOMEM",), "execve": ("ENOMEM",),
    "getrandom": ("EAGAIN",), "pthread_create": ("EAGAIN",),
}


class Point(NamedTuple):
    phase: str
    function: str
    call: int
    error: str

    def __str__(self) -> str:
        return f"{self.phase}: {self.function} #{self.call} {self.error}"


class Outcome(NamedTuple):
    """`kind` is recovered, ended, by design, BAD or, for a call that never came, unreached."""

    kind: str
    text: str = ""


FIRST_LOCATION = b"LOCATION:http://:8200/"  # before the daemon has read its address

# What stays as it is after one failure, and why: function, error, service that stays broken, reason. None stands for any.
BY_DESIGN = (
    ("bind", "EADDRINUSE", None, "a port that another program has taken is left to it"),
    ("listen", "EADDRINUSE", None, "a port that another program has taken is left to it"),
    ("eventfd", None, "descriptors", "the event loop takes a pipe instead, which has two ends"),
    ("sigaction", None, "SIGTERM", "without the handler SIGTERM ends the daemon, which is what it asks for"),
)


class Broken(Exception):
    """A service that is not as ever."""


class Bench:
    """A network with one device, whose daemon is started again for every point, and a control point."""

    def __init__(self):
        self._folder = tempfile.TemporaryDirectory(dir="/run/simdevice")
        self.failing = failing.Failing(pathlib.Path(self._folder.name), TIMES)
        self.lan = Lan()
        self.device = Device(self.lan, program=self.failing.program)
        self.peer = ControlPoint(self.lan.host(addresses=[f"{SUBNET}.3/24"]))
        self.ssdp = self.peer.listen_ssdp()
        self.announced = self.peer.listen_announcements()
        self._names = 0
        self._others = 0
        self._descriptors = None

    def close(self) -> None:
        self.peer.close()
        self.device.close()
        self.lan.close()

    # One point

    def run(self, point: Point) -> Outcome:
        self._prepare()
        if point.phase == "start":
            self._order(point)
        with contextlib.suppress(AssertionError):
            self.device.start()
        if point.phase != "start":
            if not self._descriptors:
                self._descriptors = self._calm_descriptors()
            self._order(point)
            with contextlib.suppress(AssertionError, OSError, dbus.DBusException, Broken):
                getattr(self, f"_{point.phase}")()
        reached = self.failing.failed > 0
        self.failing.nothing()
        outcome = self._judge(point) if reached else Outcome("unreached")
        self._end()
        return outcome

    def count(self, phase: str) -> dict:
        """How often each function is called in a phase without failures."""
        self._prepare()
        if phase == "start":
            self.failing.forget_calls()
        self.device.start()
        if not self._descriptors:
            self._descriptors = self._calm_descriptors()
        if phase != "start":
            self.failing.forget_calls()
            getattr(self, f"_{phase}")()
        calls = self.failing.calls
        self._end()
        return {name: number for name, number in calls.items() if number}

    def _order(self, point: Point) -> None:
        self.failing.order(point.function, getattr(errno, point.error), point.call)

    def _prepare(self) -> None:
        device = self.device
        if not device.bus.running:
            device.bus.start()
        if not device.fwconfig.running:
            device.fwconfig.start()
        device.connman.start()
        wait_for(lambda: not device.bus.owner(BUS_NAME), what="the bus has forgotten the daemon before")
        device.set_icon(png())
        device.room.write_hostname("kelta")
        device.syslog.clear()
        self.failing.nothing()

    def _end(self) -> None:
        if self.device.running:
            self.device.stop()
        elif self.device.crashed():
            self.device.wait_for_exit()

    def _calm_descriptors(self) -> int:
        time.sleep(0.2)
        return len(self._own_files())

    def _own_files(self) -> list:
        return [file for file in self.device.open_files() if "faketime" not in file]

    def _judge(self, point: Point) -> Outcome:
        broken = self._broken_services()
        if not self.device.running and "SIGTERM" not in broken:
            lines = [line.text for line in self.device.syslog.lines if line.level <= 2]
            return Outcome("ended", lines[-1]) if lines else Outcome(
                "BAD", f"ended with {self.device.exit_status} without a line, {broken}, log {self._seen()}")
        if not broken:
            return Outcome("recovered")
        reasons = [self._reason(point, service) for service in broken]
        if all(reasons):
            return Outcome("by design", "; ".join(dict.fromkeys(reasons)))
        return Outcome("BAD", f"{', '.join(f'{service} ({why})' for service, why in broken.items())}; log {self._seen()}")

    def _seen(self) -> str:
        return f"{self.device.syslog.texts} {self.device.output[-300:]!r}"

    @staticmethod
    def _reason(point: Point, service: str) -> str:
        for function, error, shut, reason in BY_DESIGN:
            if function == point.function and error in (None, point.error) and shut in (None, service):
                return reason
        return ""

    # The phases

    def _requests(self) -> None:
        for service in (self.search, self.description, self.icon, self.large_icon, self.split_request, self.listing):
            with contextlib.suppress(AssertionError, OSError, dbus.DBusException, Broken):
                service()

    def _changes(self) -> None:
        self.device.connman.state("ready")
        self.device.connman.state("online")
        for step in (self.connman, self.host_name, self._service_again):
            with contextlib.suppress(AssertionError, OSError, dbus.DBusException, Broken):
                step()

    def _service_again(self) -> None:
        """Not while the daemon starts again: then it would find no identity, as after any start without the service."""
        self.device.wait_until_ready(3)
        self.device.fwconfig.forget_calls()
        self.device.fwconfig.start()
        wait_for(lambda: self.device.fwconfig.calls_of("/network.GetAll"), 2, "the network is asked for again")
        self.device.answers()

    def _bus(self) -> None:
        device = self.device
        device.bus.stop()
        with contextlib.suppress(AssertionError):  # the line may be what is lost
            wait_for(lambda: device.syslog.texts, 0.5, "the loss is logged")
        device.bus.start()
        device.connman.start()
        device.fwconfig.start()
        device.bus.wait_for_name(BUS_NAME, 3)
        device.wait_until_ready(3)

    # The services

    def _broken_services(self) -> dict:
        """Tries all until they are as ever. Returns what is wrong in the end."""
        self.ssdp.clear()
        deadline = time.monotonic() + LONGEST_RECOVERY
        left = {"bus name": self.bus_name, "search": self.search, "description": self.description, "icon": self.icon,
                "list": self.listing, "own announcement": self.own_announcement, "connman": self.connman,
                "host name": self.host_name, "alive": self.alive, "idle": self.idle, "descriptors": self.descriptors}
        while True:
            broken = {name: why for name, service in left.items() if (why := self._why_broken(service)) is not None}
            if not self.device.running:
                return broken
            if not broken:
                break
            if time.monotonic() > deadline:
                return broken
            left = {name: left[name] for name in broken}
            time.sleep(0.05)
        why = self._why_broken(self.term)
        return {} if why is None else {"SIGTERM": why}

    def _why_broken(self, service: Callable) -> str:
        if not self.device.running:
            return "the daemon has ended"
        try:
            service()
        except (AssertionError, OSError, dbus.DBusException, Broken) as why:
            return (str(why).splitlines() or [type(why).__name__])[0][:200]
        return None

    def bus_name(self) -> None:
        if self.device.bus.pid_of(BUS_NAME) != self.device.pid:
            raise Broken("not owned")
        if not self.device.answers(0.5):
            raise Broken("no answer")

    def search(self) -> None:
        for to in (SSDP, (ADDRESS, SSDP[1])):
            with self.peer._udp() as asking:
                asking.setblocking(True)
                asking.settimeout(0.3)
                asking.sendto(self.peer.search_text("ssdp:all"), to)
                compare_bytes(asking.recv(4096), ANSWER)

    def description(self) -> None:
        compare_bytes(self.peer.http_raw(GET, seconds=0.5), DESCRIPTION)

    def icon(self) -> None:
        compare_bytes(self.peer.http_raw(GET_ICON, seconds=0.5), icon_answer(png()))

    def large_icon(self) -> None:
        large = bytes(range(256)) * 4 * 1024 * 4
        self.device.set_icon(large)
        try:
            compare_bytes(self.peer.http_raw(GET_ICON, seconds=1), icon_answer(large))
        finally:
            self.device.set_icon(png())

    def split_request(self) -> None:
        with self.peer.connect(seconds=0.5) as connection:
            time.sleep(0.02)
            connection.send(GET[:8])
            time.sleep(0.02)
            connection.send(GET[8:])
            compare_bytes(connection.receive_until_close(), DESCRIPTION)

    def listing(self) -> None:
        self._others += 1
        uuid = f"other-{self._others}"
        self.peer.announce(announcing(uuid, 1000))
        wait_for(lambda: {uuid, "KM-2044817"} <= set(summaries(self.device, seconds=0.5)), 0.5, f"{uuid} is listed")

    def own_announcement(self) -> None:
        self.announced.clear()
        heard = self.announced.wait_for(b'"uuid":"KM-2044817"', seconds=0.5)[0].data
        if b'"name":"eth0"' not in heard or b'"address":"10.77.0.2"' not in heard:
            raise Broken(f"announces {heard!r}")

    def connman(self) -> None:
        before = len(self.ssdp.matching(b"ssdp:byebye"))
        self.device.connman.ipv4(ADDRESS, "10.77.0.1", "dhcp")
        wait_for(lambda: len(self.ssdp.matching(b"ssdp:byebye")) > before, 0.5, "byebye over connman's change")

    def host_name(self) -> None:
        self._names += 1
        for name in (f"name{self._names}", "kelta"):
            self.device.room.write_hostname(name)
            wait_for(lambda: self.device.call("getHostname", seconds=0.5) == name.encode(), 0.5, f"it is called {name}")

    def alive(self) -> None:
        """By the timer, unlike those after a byebye, which connman and the host name cause, and the first of a start."""
        heard = wait_for(self._alive_of_timer, 100 / TIMES + 0.5, "alive", lambda: self.ssdp.received)
        if b"LOCATION:http://10.77.0.2:8200/" not in heard:
            raise Broken(f"says {heard!r}")

    def _alive_of_timer(self) -> bytes:
        notifies = [datagram for datagram in self.ssdp.received if datagram.data.startswith(b"NOTIFY")]
        last_byebye = 0
        for datagram in notifies:
            if b"ssdp:byebye" in datagram.data:
                last_byebye = datagram.time
            elif datagram.time - last_byebye > 0.2 and FIRST_LOCATION not in datagram.data:
                return datagram.data
        return b""

    def idle(self) -> None:
        before, begin = cpu_seconds(self.device), time.monotonic()
        time.sleep(0.15)
        if cpu_seconds(self.device) - before > 0.5 * (time.monotonic() - begin):
            raise Broken("uses the processor")

    def descriptors(self) -> None:
        files = self._own_files()
        log = 1 if self.device.syslog.texts else 0
        if self._descriptors and len(files) > self._descriptors + log:
            raise Broken(f"{len(files)} instead of {self._descriptors}: {sorted(files)}")

    def term(self) -> None:
        self.ssdp.clear()
        self.device.terminate()
        self.ssdp.wait_for(b"ssdp:byebye", count=5, seconds=2)
        if not self.device.running:
            raise Broken("SIGTERM ends it")


def is_possible() -> bool:
    """Whether the libraries are there and can be preloaded."""
    return failing.preloaded_file().exists() and clocks.LIBRARY is not None and not is_sanitized()


def points_of(bench: Bench, phase: str, functions: tuple = (), errors: str = "all") -> list:
    """All points of a phase, some more than are called without failures: what follows a failure may fail as well."""
    calls = bench.count(phase)
    points = []
    for function, number in calls.items():
        if functions and function not in functions:
            continue
        for error in ERRORS[function][:None if errors == "all" else 1]:
            points += [Point(phase, function, call, error) for call in range(1, number + 1)]
    return points
