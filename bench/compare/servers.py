"""The servers that are compared: how each is started, and when it is ready."""

import os
import pathlib
import shutil
import socket
import subprocess

import dbus

from simdevice.bus import Bus
from simdevice.device import BUS_NAME, default_program
from simdevice.fwconfig import FwConfig
from simdevice.room import Room

SSDP, SCAN, MDNS, HTTP = ("udp", 1900), ("udp", 31416), ("udp", 5353), ("tcp", 8200)
UUID = "11112222-3333-4444-5555-666677778888"


class Server:
    """A program that runs on the lane's network and needs nothing else. Others override what differs."""

    package = ""            # the Debian package that it comes with; floors and the daemon have none
    protocol = "scan"       # of the announcements that it hears
    http_port = 8200
    ports = []
    is_background = False   # whether the process that was started ends, and another one serves

    def __init__(self, name: str):
        self.name = name

    def program(self, lane) -> str:
        raise NotImplementedError

    def arguments(self, lane) -> list:
        return []

    def command(self, lane) -> list:
        return [self.program(lane), *self.arguments(lane)]

    def is_available(self, programs: pathlib.Path) -> bool:
        return True

    def prepare(self, lane) -> None:
        pass

    def environment(self, lane) -> dict:
        return {}

    def prefix(self, lane) -> list:
        return ["ip", "netns", "exec", lane.here.name]

    def pid(self, lane, process) -> int:
        return process.pid

    def is_ready(self, lane) -> bool:
        return True

    def clean_up(self, lane) -> None:
        pass


class OnBus(Server):
    """A program that also uses the system bus."""

    _bus = None

    def prepare(self, lane) -> None:
        self._bus = Bus(str(lane.folder / "bus"))
        self._bus.start()

    def environment(self, lane) -> dict:
        return {"DBUS_SYSTEM_BUS_ADDRESS": self._bus.address} if self._bus else {}

    def is_ready(self, lane) -> bool:
        return bool(self._bus.owner(BUS_NAME))

    def clean_up(self, lane) -> None:
        if self._bus:
            self._bus.stop()


class Daemon(OnBus):
    """The daemon, among the services of a device."""

    ports = [SSDP, SCAN, HTTP]
    _fwconfig = None
    _room = None

    def __init__(self, name: str = "upnpvelorn", program: str = None):
        super().__init__(name)
        self._program = program or default_program()

    def program(self, lane) -> str:
        return self._program

    def prepare(self, lane) -> None:
        super().prepare(lane)
        self._fwconfig = FwConfig(self._bus.address)
        self._fwconfig.start()
        self._room = Room(lane.here.path, "kelta", self._program)
        self._room.wait_until_ready()

    def prefix(self, lane) -> list:
        return self._room.prefix

    def is_ready(self, lane) -> bool:
        """Its event loop answers: everything of the start is done."""
        try:
            return self._bus.call(BUS_NAME, "/settings", "local.UpnpSettings", "getAddressStr") == lane.address
        except dbus.DBusException:
            return False

    def clean_up(self, lane) -> None:
        if self._room:
            self._room.close()
        if self._fwconfig:
            self._fwconfig.stop()
        self._room = self._fwconfig = None
        super().clean_up(lane)


class Floor(Server):
    """One of the programs in floors/."""

    def __init__(self, name: str, program: str, ports: list):
        super().__init__(name)
        self._program = program
        self.ports = ports

    def program(self, lane) -> str:
        return str(lane.programs / self._program)

    def arguments(self, lane) -> list:
        return [lane.address]


class DescriptionFloor(Floor):
    def arguments(self, lane) -> list:
        return ["8200", str(_description_file(lane))]


class FloorOnBus(OnBus, Floor):
    pass


class Built(Server):
    """One of the programs in peers/, built when the library is there."""

    def __init__(self, name: str, program: str, package: str, ports: list):
        super().__init__(name)
        self._program = program
        self.package = package
        self.ports = ports

    protocol = "ssdp"

    def program(self, lane) -> str:
        return str(lane.programs / self._program)

    def is_available(self, programs: pathlib.Path) -> bool:
        return (programs / self._program).exists()


class GssdpDevice(Built):
    def arguments(self, lane) -> list:
        return [f"http://{lane.address}:8200/rootDesc.xml"]


class GupnpDevice(Built):
    def arguments(self, lane) -> list:
        return [str(_description_file(lane).parent), "rootDesc.xml"]


class UpnpDevice(Built):
    http_port = 49200

    def arguments(self, lane) -> list:
        return [str(_description_file(lane).parent), f"http://{lane.address}:{self.http_port}/rootDesc.xml"]


class Installed(Server):
    """A daemon of the distribution."""

    def __init__(self, name: str, package: str, ports: list):
        super().__init__(name)
        self.package = package
        self.ports = ports

    def program(self, lane) -> str:
        return shutil.which(self.name) or self.name

    def is_available(self, programs: pathlib.Path) -> bool:
        return shutil.which(self.name) is not None


class Minidlna(Installed):
    def prepare(self, lane) -> None:
        for name in ("media", "db", "logs"):
            (lane.folder / name).mkdir(exist_ok=True)
        (lane.folder / "pid").unlink(missing_ok=True)
        (lane.folder / "conf").write_text(
            f"port=8200\nnetwork_interface=eth0\nmedia_dir={lane.folder}/media\ndb_dir={lane.folder}/db\n"
            f"log_dir={lane.folder}/logs\nfriendly_name=kelta\ninotify=no\nnotify_interval=100\nmodel_name=Kelta\n"
            f"serial=KM-2044817\nuuid={UUID}\n")

    def arguments(self, lane) -> list:
        return ["-S", "-f", f"{lane.folder}/conf", "-P", f"{lane.folder}/pid"]


class Minissdpd(Installed):
    """Remembers announcements, and answers searches for a service if a program has registered one (`with_service`)."""

    protocol = "ssdp"
    is_background = True
    _registration = None

    def __init__(self, with_service: bool):
        super().__init__("minissdpd", "minissdpd", [SSDP])
        self._with_service = with_service

    def prepare(self, lane) -> None:
        for name in ("pid", "socket"):
            (lane.folder / name).unlink(missing_ok=True)

    def arguments(self, lane) -> list:
        return ["-i", "eth0", "-s", f"{lane.folder}/socket", "-p", f"{lane.folder}/pid"]

    def pid(self, lane, process) -> int:
        file = lane.folder / "pid"
        text = file.read_text().strip() if file.exists() else ""
        return int(text) if text else None

    def is_ready(self, lane) -> bool:
        if self._with_service and self._registration is None:
            self._register(lane)
        return True

    def _register(self, lane) -> None:
        texts = ("upnp:rootdevice", f"uuid:{UUID}::upnp:rootdevice", "Kelta/1.4.2, UPnP/1.0",
                 f"http://{lane.address}:8200/rootDesc.xml")
        request = b"\4" + b"".join(bytes([len(text)]) + text.encode() for text in texts)
        self._registration = socket.socket(socket.AF_UNIX)
        self._registration.connect(f"{lane.folder}/socket")
        self._registration.sendall(request)

    def clean_up(self, lane) -> None:
        if self._registration:
            self._registration.close()
        self._registration = None


class Avahi(Installed):
    """Without its D-Bus side: what it keeps is measured. Its limits are lifted, so that it keeps all of it."""

    protocol = "mdns"

    def prepare(self, lane) -> None:
        os.makedirs("/run/avahi-daemon", exist_ok=True)
        for name in ("pid", "socket"):
            pathlib.Path("/run/avahi-daemon", name).unlink(missing_ok=True)
        (lane.folder / "conf").write_text(
            "[server]\nhost-name=kelta\nuse-ipv6=no\nallow-interfaces=eth0\nenable-dbus=no\ncache-entries-max=100000\n"
            "ratelimit-interval-usec=0\nratelimit-burst=0\n[wide-area]\nenable-wide-area=no\n"
            "[publish]\npublish-hinfo=no\npublish-workstation=no\n")

    def arguments(self, lane) -> list:
        return ["-f", f"{lane.folder}/conf", "--no-drop-root", "--no-chroot", "--no-rlimits"]


def _description_file(lane) -> pathlib.Path:
    """The daemon's description, without the URLBase: the libraries resolve addresses themselves."""
    file = lane.folder / "web" / "rootDesc.xml"
    file.parent.mkdir(exist_ok=True)
    text = pathlib.Path(__file__).with_name("rootdesc.xml").read_text().strip()
    file.write_text(text.replace("@ADDRESS@", lane.address))
    return file


DAEMON = "upnpvelorn"
FLOOR = "floor"


def answering_searches() -> list:
    return [Floor(FLOOR, "floor_search", [SSDP]), Floor("floor, batched", "floor_search_batched", [SSDP]), Daemon(),
            Minidlna("minidlnad", "minidlna", [SSDP, HTTP]), Minissdpd(with_service=True),
            UpnpDevice("libupnp", "peer_upnp_device", "libupnp-dev", [SSDP, ("tcp", 49200)]),
            GssdpDevice("gssdp", "peer_gssdp_device", "libgssdp-1.6-dev", [SSDP])]


def serving_descriptions() -> list:
    return [DescriptionFloor(FLOOR, "floor_description", [HTTP]), Daemon(),
            Minidlna("minidlnad", "minidlna", [SSDP, HTTP]),
            UpnpDevice("libupnp", "peer_upnp_device", "libupnp-dev", [SSDP, ("tcp", 49200)]),
            GupnpDevice("gupnp", "peer_gupnp_device", "libgupnp-1.6-dev", [SSDP, HTTP])]


def hearing_announcements() -> list:
    return [FloorOnBus(FLOOR, "floor_registry", [SCAN]), Daemon(), Minissdpd(with_service=False),
            Built("gssdp browser", "peer_gssdp_browser", "libgssdp-1.6-dev", [SSDP]),
            Avahi("avahi-daemon", "avahi-daemon", [MDNS])]


def listing_devices() -> list:
    return [FloorOnBus(FLOOR, "floor_registry", [SCAN]), Daemon()]


def resident() -> list:
    return [FloorOnBus("bare Qt program", "floor_qt", [SSDP, SCAN, HTTP]), Daemon(),
            Minidlna("minidlnad", "minidlna", [SSDP, HTTP]), Minissdpd(with_service=False),
            UpnpDevice("libupnp", "peer_upnp_device", "libupnp-dev", [SSDP, ("tcp", 49200)]),
            GupnpDevice("gupnp", "peer_gupnp_device", "libgupnp-1.6-dev", [SSDP, HTTP]),
            Avahi("avahi-daemon", "avahi-daemon", [MDNS])]


def version_of(package: str) -> str:
    """Empty when the package is not installed."""
    done = subprocess.run(["dpkg-query", "--show", "--showformat=${Version}", package], capture_output=True, text=True)
    return done.stdout.strip() if done.returncode == 0 else ""
