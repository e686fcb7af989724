"""One Kelta device on the Lan: host, bus, services, log, files, and the daemon running among them."""

import contextlib
import itertools
import os
import pathlib
import resource
import signal
import struct
import subprocess
import time
import zlib

import dbus

from simdevice.bus import Bus
from simdevice.connman import Connman
from simdevice.fwconfig import FwConfig
from simdevice.network import SUBNET, Lan, sockets_of
from simdevice.room import Room
from simdevice.sandbox import PATH
from simdevice.syslog import Syslog
from simdevice.waiting import wait_for

ADDRESS = f"{SUBNET}.2"
MAC = "00:11:22:aa:bb:cc"
BUS_NAME = "com.zorv.upnpvelorn"
HTTP_PORT = 8200
ICON = "/var/www/icons/kelta_icon48.png"
CODESYS = "/opt/codesys/bin/codesyscontrol.bin"

_PASSED_ON = ("ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS", "ASAN_SYMBOLIZER_PATH", "LLVM_PROFILE_FILE",
              "GCOV_PREFIX", "GCOV_PREFIX_STRIP")
_NOT_THERE_YET = ("org.freedesktop.DBus.Error.UnknownObject", "org.freedesktop.DBus.Error.ServiceUnknown",
                  "org.freedesktop.DBus.Error.NameHasNoOwner", "org.freedesktop.DBus.Error.NoReply")
_FAREWELL = 0.05    # seconds

_numbers = itertools.count(1)


def default_program() -> str:
    here = pathlib.Path(__file__).resolve().parent.parent
    return os.path.abspath(os.environ.get("UPNPVELORN") or here / "build" / "upnpvelorn")


def png(size: int = 48) -> bytes:
    """A square picture of one colour."""
    def chunk(kind: bytes, data: bytes) -> bytes:
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))
    header = struct.pack(">IIBBBBB", size, size, 8, 2, 0, 0, 0)
    pixels = zlib.compress((b"\0" + bytes((0, 96, 160)) * size) * size)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", pixels) + chunk(b"IEND", b"")


class Device:
    """Everything is there after the constructor, save the daemon: that is started by start().

    addresses, mac, interface, ipv6: as for network.Host; `interface` None means no eth0.
    bus, fwconfig, connman: whether that part is there from the beginning. Each can come later with its start().
    nofile: the daemon's limit of open files. program: another executable than the built one.
    bus_policy: as for bus.Bus. user: the number of the user that the daemon runs as, without any rights.
    """

    def __init__(self, lan: Lan, addresses: list = None, mac: str = MAC, interface: str = "eth0", ipv6: bool = False,
                 hostname: str = "kelta", bus: bool = True, fwconfig: bool = True, connman: bool = True,
                 nofile: int = None, program: str = None, bus_policy: str = "", user: int = None):
        self.program = program or default_program()
        self._nofile = nofile
        self._user = user
        self._folder = pathlib.Path(f"/run/simdevice/device{next(_numbers)}")
        self._process = None
        self._output = self._folder / "output"
        self.host = lan.host(addresses=addresses or [f"{ADDRESS}/24"], mac=mac, interface=interface, ipv6=ipv6)
        self.room = Room(self.host.path, hostname, self.program)
        self.bus = Bus(str(self._folder), bus_policy)
        self.fwconfig = FwConfig(self.bus.address)
        self.connman = Connman(self.bus)
        if bus:
            self.bus.start()
            if fwconfig:
                self.fwconfig.start_without_waiting()
            if connman:
                self.connman.start()
        self.room.wait_until_ready()
        self.syslog = Syslog(str(self.room.path("/dev/log")))
        self.syslog.record()
        self.set_icon(png())
        if self.fwconfig.running:
            self.fwconfig.wait_until_ready()

    def close(self) -> None:
        self._kill()
        self.connman.stop()
        self.fwconfig.stop()
        self.bus.stop()
        self.syslog.close()
        self.room.close()

    # The daemon

    def start(self, wait: bool = True, arguments: list = ()) -> None:
        """Starts the daemon and, unless told otherwise, waits until it is in its event loop."""
        self._process = self._launch(arguments)
        if wait:
            self.wait_until_ready()

    def start_another(self) -> subprocess.Popen:
        """Starts the daemon a second time. The caller waits for its end."""
        return self._launch()

    def _launch(self, arguments: list = ()) -> subprocess.Popen:
        limits = [] if self._nofile is None else ["/usr/bin/prlimit", f"--nofile={self._nofile}", "--"]
        if self._user is not None:
            limits += ["/usr/bin/setpriv", f"--reuid={self._user}", f"--regid={self._user}", "--clear-groups",
                       "--inh-caps=-all", "--bounding-set=-all", "--no-new-privs", "--"]
        environment = {"LC_ALL": "C", "PATH": PATH,
                       "DBUS_SYSTEM_BUS_ADDRESS": self.bus.address}
        environment.update({name: os.environ[name] for name in _PASSED_ON if name in os.environ})
        self._folder.mkdir(exist_ok=True)
        with open(self._output, "ab") as output:
            return subprocess.Popen([*self.room.prefix, *limits, self.program, *arguments], env=environment,
                                    start_new_session=True, stdin=subprocess.DEVNULL, stdout=output, stderr=output)

    @property
    def pid(self) -> int:
        return self._process.pid

    @property
    def running(self) -> bool:
        return self._process is not None and self._process.poll() is None

    @property
    def exit_status(self):
        """None while it runs, the negative signal number when a signal ended it."""
        return self._process.poll()

    @property
    def output(self) -> str:
        """What the daemon wrote to its standard output and standard error."""
        return self._output.read_text(errors="replace") if self._output.exists() else ""

    def wait_until_ready(self, seconds: float = 30, http: bool = True) -> None:
        def ready() -> bool:
            if not self.running:
                raise AssertionError(f"the daemon ended with status {self.exit_status}:\n{self.output}")
            return self.answers() and (not http or self.listens(HTTP_PORT)) and self._all_threads_sleep()
        wait_for(ready, seconds, "the daemon is ready", lambda: self.output)

    def _all_threads_sleep(self) -> bool:
        """False while one has not run yet: with Qt 4 the one that watches files opens a pipe when it does."""
        states = []
        for task in pathlib.Path(f"/proc/{self.pid}/task").iterdir():
            with contextlib.suppress(FileNotFoundError, ProcessLookupError):  # it has ended in the meantime
                states.append((task / "stat").read_text().rpartition(")")[2].split()[0])
        return set(states) == {"S"}

    def answers(self, seconds: float = 5) -> bool:
        """Whether the daemon's event loop runs: /settings answers only from there."""
        try:
            self.bus.call(BUS_NAME, "/settings", "local.UpnpSettings", "getUdpPort", seconds=seconds)
        except dbus.DBusException as error:
            return error.get_dbus_name() not in _NOT_THERE_YET
        return True

    def call(self, member: str, *arguments, path: str = "/settings", interface: str = "local.UpnpSettings",
             **options):
        """Calls a method of the daemon over the bus."""
        return self.bus.call(BUS_NAME, path, interface, member, *arguments, **options)

    def wait_for_exit(self) -> int:
        """For a daemon that is expected to end by itself. Returns its status and forgets it."""
        wait_for(lambda: not self.running, what="the daemon ends", seen=lambda: self.output)
        process, self._process = self._process, None
        return process.returncode

    def crashed(self) -> bool:
        """Whether the daemon ended without being told to."""
        return self._process is not None and self._process.poll() is not None

    def terminate(self) -> None:
        """Sends SIGTERM, which the daemon is not expected to die of."""
        self.signal(signal.SIGTERM)

    def shut_down(self) -> None:
        """Ends the daemon as its service file does: SIGTERM, for its farewell, and SIGKILL a moment later."""
        self.terminate()
        time.sleep(_FAREWELL)
        self._kill()

    def signal(self, number: int) -> None:
        os.kill(self.pid, number)

    def stop(self) -> None:
        """Ends the daemon as the service manager does in the end, with SIGKILL. It must have lived until then."""
        if self.crashed():
            raise AssertionError(f"the daemon had ended with status {self.exit_status}:\n{self.output}")
        self._kill()

    def _kill(self) -> None:
        if self._process is not None:
            self._process.kill()
            self._process.wait()
            self._process = None

    def restart(self) -> None:
        self.stop()
        self.wait_until_forgotten()
        self.start()

    def wait_until_forgotten(self) -> None:
        """Before the next start, whose bus name has to be free."""
        wait_for(lambda: not self.bus.owner(BUS_NAME), what="the bus forgets the old daemon")

    def limit_open_files(self, number: int) -> None:
        """Changes the limit of the running daemon."""
        _, hard = resource.prlimit(self.pid, resource.RLIMIT_NOFILE)
        resource.prlimit(self.pid, resource.RLIMIT_NOFILE, (number, hard))

    def open_files(self) -> list:
        """What the daemon's descriptors lead to."""
        found = []
        for entry in pathlib.Path(f"/proc/{self.pid}/fd").iterdir():
            with contextlib.suppress(FileNotFoundError):  # closed in the meantime
                found.append(os.readlink(entry))
        return found

    def listens(self, port: int) -> bool:
        return any(found.listens for found in sockets_of(self.room.pid, "tcp") if found.port == port)

    def udp_ports(self) -> set:
        return {found.port for found in sockets_of(self.room.pid, "udp")}

    def unread(self, port: int, kind: str = "tcp") -> int:
        """Bytes that have arrived at a UDP port, or on the connections of a TCP port, and that the daemon has not read yet."""
        return sum(found.unread for found in sockets_of(self.room.pid, kind) if found.port == port and not found.listens)

    # What is around it

    @property
    def address(self) -> str:
        return self.host.address

    def set_icon(self, content: bytes = None) -> None:
        """None takes the file away."""
        file = self.room.path(ICON)
        file.parent.mkdir(parents=True, exist_ok=True)
        if content is None:
            file.unlink(missing_ok=True)
        else:
            file.write_bytes(content)

    def install_codesys(self, executable: bool = True) -> None:
        file = self.room.path(CODESYS)
        file.parent.mkdir(parents=True, exist_ok=True)
        file.touch()
        file.chmod(0o755 if executable else 0o644)

    def remove_codesys(self) -> None:
        self.room.path(CODESYS).unlink(missing_ok=True)
