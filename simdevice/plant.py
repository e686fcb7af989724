"""A small plant: some Kelta devices, each with everything around it, and a PC, all on one Lan."""

import ipaddress
import re
from typing import NamedTuple

import dbus

from simdevice.controlpoint import ControlPoint
from simdevice.device import HTTP_PORT, Device
from simdevice.network import SUBNET, Lan

PC = "pc"
PC_ADDRESS = f"{SUBNET}.5"
GATEWAY = f"{SUBNET}.1"
MOST_NODES = 44
_FIRST_ADDRESS = 10
_PREFIX = 24


class PlantError(Exception):
    """An order that cannot be carried out, in words for the person who gave it."""


class Heard(NamedTuple):
    """An SSDP announcement that reached the PC."""

    name: str
    kind: str       # "alive" or "byebye"
    location: str
    text: str
    time: float


class Node:
    """One device of the plant, known by its host name "kelta-1", "kelta-2" and so on."""

    def __init__(self, lan: Lan, number: int):
        self.number = number
        self.name = f"kelta-{number}"
        self.serial = f"9123457{number:02d}"
        self.uuid = f"9a1b0c7e-52f4-4d0b-8c6e-2f7d10a4b3{number:02x}"
        self.mac = f"00:11:22:aa:bb:{number:02x}"
        self.address = f"{SUBNET}.{_FIRST_ADDRESS + number}"
        self.plugged = True
        self.device = Device(lan, addresses=[f"{self.address}/{_PREFIX}"], mac=self.mac, hostname=self.name)
        self.device.fwconfig.set(variables={"UUID": self.uuid}, constants={"SERIALNUMBER": self.serial},
                                 hostname=self.name, network={"dhcp": True, "gateway": GATEWAY})
        self.device.start(wait=False)

    @property
    def description_url(self) -> str:
        return f"http://{self.address}:{HTTP_PORT}/rootDesc.xml"

    def lists(self) -> dict:
        """Whom the device lists at /zorvscan: serial number -> the address it gives. None when it does not answer."""
        try:
            found = self.device.call("allChilds", "", path="/zorvscan", interface="local.ZorvScan", seconds=2)
        except dbus.DBusException:
            return None
        return {entry["uuid"]: _address(entry) for entry in found or []}


def _address(entry: dict) -> str:
    """The first IPv4 address in the summary of a device, which may be a stranger's with anything in it."""
    ipv4 = entry.get("ipv4")
    entries = [one for one in ipv4 if isinstance(one, dict)] if isinstance(ipv4, list) else []
    return next((one["address"] for one in entries if isinstance(one.get("address"), str)), "")


class Plant:
    def __init__(self):
        self.lan = Lan()
        self.nodes = {}
        self.pc = ControlPoint(self.lan.host(addresses=[f"{PC_ADDRESS}/{_PREFIX}"], mac="02:77:00:00:00:05"))
        self._ssdp = self.pc.listen_ssdp()

    def add(self) -> Node:
        """Puts one more device on the Lan and switches it on; it may still be starting when this returns."""
        if len(self.nodes) >= MOST_NODES:
            raise PlantError(f"the plant is full: {MOST_NODES} devices")
        node = Node(self.lan, len(self.nodes) + 1)
        self.nodes[node.name] = node
        return node

    def node(self, name: str) -> Node:
        if name not in self.nodes:
            raise PlantError(f"there is no device {name!r} here; there are: {', '.join(self.nodes)}")
        return self.nodes[name]

    def unplug(self, name: str) -> Node:
        node = self.node(name)
        if not node.plugged:
            raise PlantError(f"the cable of {name} is out already")
        node.device.host.cable_out()
        node.device.connman.state("idle")
        node.plugged = False
        return node

    def plug(self, name: str) -> Node:
        node = self.node(name)
        if node.plugged:
            raise PlantError(f"the cable of {name} is in already")
        node.device.host.cable_in()
        node.device.connman.state("ready")
        node.device.connman.state("online")
        node.plugged = True
        return node

    def move(self, name: str, address: str) -> Node:
        """Gives eth0 another address, and has connman say so."""
        node = self.node(name)
        self._check_free(address)
        host = node.device.host
        host.sysctl("net/ipv4/conf/eth0/promote_secondaries", "1")
        host.add_address(f"{address}/{_PREFIX}")
        host.remove_address(f"{node.address}/{_PREFIX}")
        node.device.connman.ipv4(address=address, gateway=GATEWAY, method="dhcp")
        node.address = address
        return node

    def stop(self, name: str) -> Node:
        node = self.node(name)
        if not node.device.running:
            raise PlantError(f"the daemon of {name} does not run")
        node.device.shut_down()
        return node

    def start(self, name: str) -> Node:
        """The daemon may still be starting when this returns."""
        node = self.node(name)
        if node.device.running:
            raise PlantError(f"the daemon of {name} runs already")
        node.device.wait_until_forgotten()
        node.device.start(wait=False)
        return node

    def heard(self) -> list:
        """The SSDP announcements that reached the PC since the last call."""
        found = [self._understand(datagram) for datagram in self._ssdp.take()]
        return [heard for heard in found if heard is not None]

    def crashed(self) -> list:
        return [node for node in self.nodes.values() if node.device.crashed()]

    def wait_until_ready(self) -> None:
        for node in self.nodes.values():
            node.device.wait_until_ready()

    def _check_free(self, address: str) -> None:
        try:
            inside = ipaddress.IPv4Address(address) in list(ipaddress.IPv4Network(f"{SUBNET}.0/{_PREFIX}").hosts())
        except ValueError:
            inside = False
        if not inside:
            raise PlantError(f"{address!r} is no address of this network; take one of {SUBNET}.1 to {SUBNET}.254")
        users = {node.address: node.name for node in self.nodes.values()}
        users.update({PC_ADDRESS: "the PC", GATEWAY: "the gateway"})
        if address in users:
            raise PlantError(f"{address} belongs to {users[address]}")

    def _understand(self, datagram) -> Heard:
        """None for what is no announcement, such as a search."""
        kind = re.search(r"^NTS: *ssdp:(alive|byebye)\r$", datagram.text, re.MULTILINE)
        if not datagram.text.startswith("NOTIFY ") or not kind:
            return None
        location = re.search(r"^LOCATION: *(.*)\r$", datagram.text, re.MULTILINE)
        names = [node.name for node in self.nodes.values() if node.uuid in datagram.text]
        return Heard(names[0] if names else datagram.source[0], kind[1], location[1] if location else "",
                     datagram.text, datagram.time)
