"""A lane: one server with a network of its own, and the side from which it is loaded.

Every lane is a pair of network namespaces joined by a virtual cable, so all servers can have the same ports at the same
time and be measured in turn. Servers run on one processor and the programs that load them on another.
"""

import itertools
import json
import math
import os
import pathlib
import signal
import subprocess

from simdevice.network import Namespace, sockets_of
from simdevice.sandbox import PATH
from simdevice.waiting import wait_for

_PATIENCE = 300     # seconds that a load generator may take
_numbers = itertools.count(1)
_cpus = sorted(os.sched_getaffinity(0))
SERVER_CPU, LOAD_CPU = (_cpus[1], _cpus[0]) if len(_cpus) > 1 else (None, None)


class LaneError(Exception):
    """A server that does not start or that has died, in words for the person who measures."""


def pinned(cpu) -> list:
    return [] if cpu is None else ["taskset", "--cpu-list", str(cpu)]


class Lane:
    """`programs` is the folder of the built floors, peers and load generators."""

    def __init__(self, server, programs: pathlib.Path):
        number = next(_numbers)
        self.server = server
        self.name = server.name
        self.programs = programs
        self.folder = pathlib.Path(f"/run/simdevice/lane{number}")
        self.folder.mkdir(parents=True)
        self.address, self.load_address = f"10.77.{number}.1", f"10.77.{number}.2"
        self.here, self.there = Namespace(f"server{number}"), Namespace(f"load{number}")
        self.here.ip(f"link add eth0 type veth peer name eth0 netns {self.there.name}")
        for namespace, address in ((self.here, self.address), (self.there, self.load_address)):
            namespace.ip("link set lo up", f"addr add {address}/24 dev eth0", "link set eth0 up", "route add default dev eth0")
        self.there.sysctl("net/ipv4/ip_local_port_range", "1024 65000")
        self.pid = None
        self._process = None
        self._version = 0

    # The server

    def start(self, wrapper: list = (), environment: dict = None, seconds: float = 20) -> None:
        """Starts the server, inside another program where `wrapper` is one, and waits until it serves."""
        self.server.prepare(self)
        everything = {"LC_ALL": "C", "TZ": "UTC", "PATH": PATH,
                      **self.server.environment(self), **(environment or {})}
        with open(self.log, "ab") as log:
            self._process = subprocess.Popen(
                [*self.server.prefix(self), *pinned(SERVER_CPU), *wrapper, *self.server.command(self)],
                stdin=subprocess.DEVNULL, stdout=log, stderr=log, env=everything, cwd=self.folder)
        try:
            wait_for(self._serves, seconds, f"{self.name} is ready", self._last_words)
        except AssertionError as error:
            self.stop()
            raise LaneError(str(error)) from None

    def _serves(self) -> bool:
        self.pid = self.server.pid(self, self._process)
        if self.pid is None:
            return False
        if not self.alive:
            raise AssertionError(f"{self.name} has ended: {self._last_words()}")
        return all(self._is_open(*port) for port in self.server.ports) and self.server.is_ready(self)

    def _is_open(self, kind: str, port: int) -> bool:
        return any(found.port == port and (kind == "udp" or found.listens) for found in sockets_of(self.pid, kind))

    @property
    def log(self) -> pathlib.Path:
        return self.folder / "log"

    def _last_words(self) -> str:
        return self.log.read_text(errors="replace")[-600:].strip() or "it has said nothing"

    @property
    def alive(self) -> bool:
        try:
            return pathlib.Path(f"/proc/{self.pid}/stat").read_text().rsplit(")", 1)[1].split()[0] not in "ZX"
        except OSError:
            return False

    def terminate(self) -> None:
        """Asks the server to end, and waits until it has."""
        os.kill(self.pid, signal.SIGTERM)
        wait_for(lambda: not self.alive, what=f"{self.name} ends after SIGTERM")

    def stop(self) -> None:
        if self.pid is not None and self.alive:
            os.kill(self.pid, signal.SIGKILL)
        if self._process is not None:
            self._process.kill()
            self._process.wait()
        if self.pid is not None:
            wait_for(lambda: not self.alive, what=f"{self.name} is gone")
        self.server.clean_up(self)
        self._process = self.pid = None

    def close(self) -> None:
        self.stop()
        self.here.close()
        self.there.close()

    # The load

    def load(self, program: str, *arguments) -> dict:
        """What a load generator prints. It runs on the other end of the cable."""
        if not self.alive:
            raise LaneError(f"{self.name} has ended: {self._last_words()}")
        command = ["nsenter", f"--net={self.there.path}", "--", *pinned(LOAD_CPU), str(self.programs / program)]
        try:
            done = subprocess.run([*command, *map(str, arguments)], capture_output=True, text=True, timeout=_PATIENCE,
                                  env={**os.environ, **self.server.environment(self)})
        except subprocess.TimeoutExpired:
            raise LaneError(f"{program} against {self.name} has not ended after {_PATIENCE} seconds") from None
        if done.returncode != 0:
            raise LaneError(f"{program} against {self.name}: {done.stderr.strip()}")
        return json.loads(done.stdout)

    def search(self, *arguments) -> dict:
        """`arguments` between the address and the process id of load_searches."""
        kind, *rest = arguments
        return self.load("load_searches", kind, self.load_address, *rest, self.pid)

    def download(self, seconds: float, connections: int) -> dict:
        return self.load("load_downloads", self.address, self.server.http_port, "/rootDesc.xml", seconds, connections, self.pid)

    def announce(self, devices: int, count: int, first: int = 0, rate: float = 0, changed: bool = False) -> dict:
        """Announcements of `devices` devices from number `first` on, in the protocol of the server.

        `changed`: every one differs from the device's last one.
        """
        version = []
        if changed:
            version = [self._version]
            self._version = (self._version + math.ceil(count / devices)) % 10
        done = self.load("load_announcements", self.server.protocol, self.load_address, first, devices, count, rate, self.pid,
                         *version)
        if done["unread"] > 0:
            raise LaneError(f"{self.name} has stopped reading")
        return done

    def list(self, count: int) -> dict:
        return self.load("load_listings", count, self.pid)
