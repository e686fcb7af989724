"""The wire: a network with hosts on it, each in a network namespace of its own."""

import contextlib
import fcntl
import itertools
import json
import pathlib
import socket
import struct
import subprocess
from typing import NamedTuple

from simdevice import namespaces as ns
from simdevice.waiting import wait_for

SUBNET = "10.77.0"
_SIOCGIFFLAGS = 0x8913
_IFF_RUNNING = 0x40
_LISTENING = "0A"

_numbers = itertools.count(1)


def _batch(namespace: str, *lines: str) -> None:
    done = subprocess.run(["ip", "-n", namespace, "-batch", "-"], input="\n".join(lines) + "\n",
                          capture_output=True, text=True)
    if done.returncode != 0:
        raise RuntimeError(f"ip in {namespace}: {done.stderr.strip()}\n" + "\n".join(lines))


def is_running(name: str) -> bool:
    """Whether the interface `name` of the calling thread's namespace is up and has a carrier."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        try:
            answer = fcntl.ioctl(probe, _SIOCGIFFLAGS, struct.pack("16sh14x", name.encode(), 0))
        except OSError:
            return False
    return bool(struct.unpack("16sh14x", answer)[1] & _IFF_RUNNING)


class Socket(NamedTuple):
    port: int
    listens: bool   # of TCP only
    unread: int     # bytes that have arrived and that its program has not read yet


def sockets_of(pid: int, kind: str) -> list:
    """The sockets, "tcp" or "udp", in the network namespace of a process."""
    lines = pathlib.Path(f"/proc/{pid}/net/{kind}").read_text().splitlines()[1:]
    fields = [line.split() for line in lines]
    return [Socket(int(field[1].split(":")[1], 16), field[3] == _LISTENING, int(field[4].split(":")[1], 16)) for field in fields]


class Namespace:
    """A network namespace with a name that `ip netns` knows."""

    def __init__(self, name: str, ipv6: bool = False):
        self.name = name
        self.path = f"/run/netns/{name}"
        subprocess.run(["ip", "netns", "add", name], check=True)
        if not ipv6:
            self.sysctl("net/ipv6/conf/all/disable_ipv6", "1")
            self.sysctl("net/ipv6/conf/default/disable_ipv6", "1")
        self._switch_syn_cookies_off()

    def _switch_syn_cookies_off(self) -> None:
        """With them, where many connect at once, a late packet makes a connection of one that both sides have closed, and
        nobody ever closes that again."""
        with contextlib.suppress(FileNotFoundError):  # not every kernel has them
            self.sysctl("net/ipv4/tcp_syncookies", "0")

    def close(self) -> None:
        subprocess.run(["ip", "netns", "del", self.name], check=True)

    def inside(self):
        """A context in which the calling thread makes its sockets in this namespace."""
        return ns.entered(self.path, ns.CLONE_NEWNET)

    def sysctl(self, name: str, value: str) -> None:
        with self.inside(), open(f"/proc/sys/{name}", "w") as file:
            file.write(value)

    def ip(self, *lines: str) -> None:
        """Runs lines such as "link set eth0 down" of the ip command, in one go."""
        _batch(self.name, *lines)

    def command(self, arguments: list, **options) -> subprocess.CompletedProcess:
        """Runs a program in this namespace; `options` as for subprocess.run()."""
        options = {"check": True, "capture_output": True, "text": True, **options}
        return subprocess.run(["nsenter", f"--net={self.path}", "--", *arguments], **options)


class Lan(Namespace):
    """One broadcast domain. Multicast reaches every port at once; nothing leads out of it."""

    def __init__(self):
        super().__init__(f"lan{next(_numbers)}")
        self.hosts = []
        self.ip("link add br0 type bridge mcast_snooping 0 stp_state 0 forward_delay 0", "link set br0 up")

    def host(self, **options) -> "Host":
        return Host(self, **options)

    def close(self) -> None:
        for host in self.hosts:
            host.close()
        self.hosts.clear()
        super().close()


class Host(Namespace):
    """A host on a Lan, with one wired interface.

    `addresses` are "address/prefix" texts in the order in which eth0 gets them. With `ipv6`, eth0 may have IPv6
    addresses but gets none by itself. `interface` None leaves the host without any but lo.
    """

    def __init__(self, lan: Lan, addresses=None, mac: str = None, interface: str = "eth0", ipv6: bool = False,
                 up: bool = True):
        number = next(_numbers)
        super().__init__(f"host{number}", ipv6)
        lan.hosts.append(self)
        self.lan = lan
        self._ports = {}
        self._default_mac = mac or f"02:77:00:00:{number >> 8 & 255:02x}:{number & 255:02x}"
        if ipv6:
            self.sysctl("net/ipv6/conf/default/accept_dad", "0")
            self.sysctl("net/ipv6/conf/default/addr_gen_mode", "1")
        self.ip("link set lo up")
        if interface:
            self.add_interface(interface, addresses or [f"{SUBNET}.{number % 150 + 100}/24"], self._default_mac, up)

    def add_interface(self, name: str, addresses=(), mac: str = None, up: bool = True) -> None:
        """Plugs a further interface into the Lan. The first one that is up gets the default route."""
        port = f"port{next(_numbers)}"
        hardware = f"address {mac}" if mac else ""
        self.lan.ip(f"link add {port} type veth peer name {name} {hardware} netns {self.name}",
                    f"link set {port} master br0")
        self._ports[name] = port
        if addresses:
            self.ip(*[f"addr add {address} dev {name}" for address in addresses])
        if up:
            self.link_up(name)

    def remove_interface(self, name: str = "eth0") -> None:
        self.ip(f"link del {name}")
        del self._ports[name]

    def rename_interface(self, old: str, new: str) -> None:
        """The kernel wants the interface down for that; it is up again afterwards."""
        self.ip(f"link set {old} down", f"link set {old} name {new}")
        self._ports[new] = self._ports.pop(old)
        self.link_up(new)

    def add_address(self, address: str) -> None:
        self.ip(f"addr add {address} dev eth0")

    def remove_address(self, address: str) -> None:
        """The default route may go with the last address; see default_route()."""
        self.ip(f"addr del {address} dev eth0")

    @property
    def address(self) -> str:
        """The first address of eth0."""
        return self.addresses()[0].split("/")[0]

    def addresses(self, name: str = "eth0") -> list:
        """What the interface has, as "address/prefix" texts in the kernel's order."""
        found = json.loads(self.command(["ip", "-j", "addr", "show", "dev", name]).stdout)
        return [f"{entry['local']}/{entry['prefixlen']}" for entry in found[0]["addr_info"]]

    def default_route(self, name: str = "eth0") -> None:
        self.ip(f"route replace default dev {name}")

    def no_default_route(self) -> None:
        self.ip("route del default")

    def link_up(self, name: str = "eth0") -> None:
        """Also gives the host its default route again, without which multicast has no way out, and plugs the cable in."""
        self.ip(f"link set {name} up")
        if name == "eth0" or len(self._ports) == 1:
            self.default_route(name)
        self.cable_in(name)

    def link_down(self) -> None:
        self.ip("link set eth0 down")

    def cable_out(self) -> None:
        """Takes the carrier away; the interface stays up and keeps its addresses."""
        self.lan.ip(f"link set {self._ports['eth0']} down")
        with self.inside():
            wait_for(lambda: not is_running("eth0"), what=f"eth0 of {self.name} without carrier")

    def cable_in(self, name: str = "eth0") -> None:
        """Returns when the interface has a carrier: until then the kernel drops what is sent, without an error."""
        self.lan.ip(f"link set {self._ports[name]} up")
        with self.inside():
            wait_for(lambda: is_running(name), what=f"{name} of {self.name} has a carrier")
        with self.lan.inside():
            wait_for(lambda: is_running(self._ports[name]), what=f"the Lan's side of {name} is up")

    @contextlib.contextmanager
    def socket(self, kind: int = socket.SOCK_DGRAM):
        with self.inside():
            made = socket.socket(socket.AF_INET, kind)
        with made:
            yield made
