"""Programs that run beside the daemon on a real device and on its network."""

import ctypes
import fcntl
import os
import pathlib
import shutil
import struct
import subprocess

import dbus

from simdevice.device import Device
from simdevice.network import Host
from simdevice.values import Typed
from simdevice.waiting import wait_for

UNPACKED = pathlib.Path(os.environ.get("NEIGHBOURS", pathlib.Path(__file__).resolve().parents[2] / "build" / "neighbours"))
NETMASK = "255.255.255.0"
GATEWAY = "10.77.0.1"

_SIOCETHTOOL = 0x8946
_ETHTOOL_STXCSUM = 0x17


def executable(name: str) -> str:
    """The unpacked program, else the installed one."""
    found = shutil.which(name, path=f"{UNPACKED}/usr/sbin:{UNPACKED}/usr/bin:/usr/sbin:/usr/bin")
    assert found, f"{name} is missing: scripts/neighbours.sh gets it"
    return found


def known_user(folder: pathlib.Path, name: str) -> list:
    """The command in front of another that gives it this user and group: its package would, were it installed."""
    mounts = []
    for file, entry in (("passwd", f"{name}:x:65000:65000::/:/usr/sbin/nologin"), ("group", f"{name}:x:65000:")):
        (folder / file).write_text(pathlib.Path("/etc", file).read_text() + entry + "\n")
        mounts.append(f"mount --bind {folder}/{file} /etc/{file}")
    return ["unshare", "--mount", "sh", "-c", f'{" && ".join(mounts)} && exec "$@"', name]


def whole_checksums(host: Host) -> None:
    """Packets leave eth0 with their checksum made. DHCP clients look at the packets before the kernel would make it."""
    class Value(ctypes.Structure):
        _fields_ = [("command", ctypes.c_uint32), ("data", ctypes.c_uint32)]
    value = Value(_ETHTOOL_STXCSUM, 0)
    with host.socket() as any_socket:
        fcntl.ioctl(any_socket, _SIOCETHTOOL, struct.pack("16sP16x", b"eth0", ctypes.addressof(value)))


class Program:
    """A process and what it has written. `prefix` is the command that puts it where it runs."""

    def __init__(self, folder: pathlib.Path, prefix: list, command: list, environment: dict = None):
        self._output = folder / f"{pathlib.Path(command[0]).name}.log"
        with open(self._output, "ab") as output:
            self._process = subprocess.Popen(
                [*prefix, executable(command[0]), *command[1:]], stdin=subprocess.DEVNULL, stdout=output, stderr=output,
                env={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL": "C", **(environment or {})})

    @property
    def output(self) -> str:
        return self._output.read_text(errors="replace")

    @property
    def running(self) -> bool:
        return self._process.poll() is None

    def stop(self) -> None:
        self._process.kill()
        self._process.wait()

    def wait_for_output(self, text: str, seconds: float = 15) -> None:
        wait_for(lambda: text in self.output, seconds, f"{text!r} in the output", lambda: self.output)


class DhcpServer:
    """dnsmasq with a single address to give."""

    def __init__(self, folder: pathlib.Path, host: Host):
        self._folder = folder
        self._host = host
        self._program = None
        whole_checksums(host)

    def offer(self, address: str) -> None:
        """From now on everybody who asks gets this address."""
        self.stop()
        self._program = Program(self._folder, ["nsenter", f"--net={self._host.path}", "--"], [
            "dnsmasq", "--port=0", "--no-daemon", "--conf-file=/dev/null", "--user=root", "--group=root", "--interface=eth0",
            "--bind-interfaces", f"--dhcp-range={address},{address},{NETMASK},2m", f"--dhcp-option=3,{GATEWAY}",
            "--dhcp-authoritative", f"--dhcp-leasefile={self._folder}/leases", "--pid-file="])

    def stop(self) -> None:
        if self._program:
            self._program.stop()
            self._program = None


class Connmand(Program):
    """The network manager itself, in the device's namespaces and on its bus.

    The machine's clock, kernel modules and /etc are out of its reach.
    """

    MANAGER = ("net.connman", "/", "net.connman.Manager")
    _CONFIGURATION = ("[General]\nAllowHostnameUpdates=false\nAllowDomainnameUpdates=false\nFallbackTimeservers=\n"
                      "FallbackNameservers=\nEnableOnlineCheck=false\n")
    _CONFINED = ('mount --bind /etc /etc && mount -o remount,bind,ro /etc && '
                 'exec setpriv --bounding-set=-sys_time,-sys_module,-sys_boot "$@"')

    def __init__(self, folder: pathlib.Path, device: Device):
        self._device = device
        device.room.path("/var/lib").mkdir(exist_ok=True)
        configuration = folder / "connman.conf"
        configuration.write_text(self._CONFIGURATION)
        super().__init__(folder, [*device.room.prefix, "unshare", "--mount", "sh", "-c", self._CONFINED, "sh"],
                         ["connmand", "-n", "-r", f"--config={configuration}"],
                         {"DBUS_SYSTEM_BUS_ADDRESS": device.bus.address})
        device.bus.wait_for_name("net.connman")

    def wait_for_interface(self) -> None:
        """Until eth0 is up; connman does that."""
        wait_for(lambda: ",UP" in self._device.host.command(["ip", "link", "show", "eth0"]).stdout.split(">")[0], 15,
                 "connman has brought eth0 up", lambda: self.output)

    @property
    def service(self):
        """Path and properties of the wired service, None while there is none."""
        try:
            services = self._device.bus.call(*self.MANAGER, "GetServices") or []
        except dbus.DBusException:
            return None
        return next(((path, properties) for path, properties in services if properties["Type"] == "ethernet"), None)

    def wait_for_state(self, state: str, seconds: float = 15) -> None:
        wait_for(lambda: self.service and self.service[1].get("State") == state, seconds, f"connman's service is {state!r}",
                 lambda: (self.service, self.output[-2000:]))

    def wait_until_disconnected(self) -> None:
        """Until connman has noticed that the cable is out: the wired service is no more."""
        wait_for(lambda: self.service is None, 15, "connman has no wired service", lambda: self.service)

    def wait_for_address(self, address: str, seconds: float = 15) -> None:
        """Until the daemon has heard of this address."""
        wait_for(lambda: self._device.call("getAddressStr") == address, seconds, f"the daemon has {address!r}",
                 lambda: (self._device.call("getAddressStr"), self.service))

    def set_ipv4(self, **configuration) -> None:
        """What a user does by `connmanctl config ... --ipv4`."""
        path, _ = self.service
        self._device.bus.call("net.connman", path, "net.connman.Service", "SetProperty", "IPv4.Configuration",
                              Typed("a{sv}", configuration), signature="sv", seconds=15)
