"""What the demonstration shows, step by step. Each step waits until it has really seen what it tells of."""

import os
import pathlib
import re
import subprocess
import tempfile
import time
import xml.etree.ElementTree

from simdevice.controlpoint import ANNOUNCEMENTS, SSDP
from simdevice.device import default_program
from simdevice.plant import PC_ADDRESS, Node
from simdevice.sandbox import PYTHON

EXPIRATION = 66   # seconds: three times the 22 that every announcement says
TICK = 10         # seconds between two announcements of a device, and between its looks at what has expired
SLACK = 10        # seconds granted to a slow machine

# What the demonstration calls by name though it is not installed
TOOLS = {"upnpvelorn-browse": [PYTHON, str(pathlib.Path(__file__).resolve().parent.parent / "tools" / "upnpvelorn-browse")],
         "upnpvelornctl": [str(pathlib.Path(default_program()).parent / "upnpvelornctl")]}


class NotSeen(Exception):
    """Something that should have happened did not."""


class Tour:
    def __init__(self, show, count: int):
        self._show = show
        self._screen = show.screen
        self._plant = show.plant
        self._lists = show.lists
        self._count = count
        self._announcements = self._plant.pc.listen_announcements()
        self._last = {}

    def run(self) -> None:
        begun = time.monotonic()
        self._switch_on()
        self._search()
        self._describe(self._nodes[0])
        self._see_each_other()
        self._show_tools(self._nodes[0])
        gone = self._nodes[-1]
        self._unplug(gone)
        self._move(self._nodes[0], "10.77.0.99")
        self._join()
        self._check(self._nodes[1])
        self._forget(gone)
        self._screen.heading(f"Everything was seen, in {time.monotonic() - begun:.0f} seconds.")

    @property
    def _nodes(self) -> list:
        return list(self._plant.nodes.values())

    # 1

    def _switch_on(self) -> None:
        self._screen.heading("1. The devices are switched on")
        self._screen.text(f"The PC ({PC_ADDRESS}) listens to {SSDP[0]}, the multicast group of UPnP discovery. Each "
                          "device says that it is there, and where its description is. It does so twice: the first time "
                          "leaves before it has read its own address.")
        first = self._add()
        heard = self._wait_for_alive(first)
        self._screen.event("The first announcement with an address, word for word:")
        self._screen.quote(heard.text)
        self._add_others()
        for node in self._nodes:
            self._wait_for_alive(node)
        self._screen.good(f"The PC has heard all {self._count} devices.")

    def _add(self) -> Node:
        node = self._plant.add()
        self._screen.event(f"{node.name} is switched on: {node.address}, {node.mac}, serial number {node.serial}")
        return node

    def _add_others(self) -> None:
        if self._count <= 8:
            for _ in range(self._count - 1):
                self._add()
        else:
            nodes = self._show.add(self._count - 1)
            self._screen.event(f"{nodes[0].name} to {nodes[-1].name} are switched on: {nodes[0].address} to "
                               f"{nodes[-1].address}")

    def _wait_for_alive(self, node: Node):
        return self._show.until(lambda: self._heard(node, "alive", node.description_url), 15,
                                f"{node.name} says alive with {node.description_url}")

    def _heard(self, node: Node, kind: str, location: str, after: float = 0):
        matching = [one for one in self._show.heard
                    if (one.name, one.kind, one.location) == (node.name, kind, location) and one.time > after]
        return matching[0] if matching else None

    # 2

    def _search(self) -> None:
        self._screen.heading("2. Real control points search")
        self._screen.text("Two programs that know nothing of Kelta devices run on the PC. First, from gupnp-tools:")
        found = self._on_pc(["gssdp-discover", "--interface=eth0", "--timeout=3"])
        self._check_found(re.findall(r"Location: *(\S+)", found), "gssdp-discover")
        self._screen.text("The second, from miniupnpc, looks for Internet gateways and lists what else answers. "
                          "A Kelta is no gateway, so it ends with a complaint; the list is what counts.")
        found = self._on_pc(["upnpc", "-l"])
        self._check_found(re.findall(r"desc: *(\S+)", found), "upnpc")

    def _check_found(self, locations: list, program: str) -> None:
        missing = [node.name for node in self._nodes if node.description_url not in locations]
        if missing:
            raise NotSeen(f"{program} finds {', '.join(missing)}")
        self._screen.good(f"{program} has found all {len(self._nodes)} devices.")

    def _on_pc(self, command: list, quote: bool = True) -> str:
        """What a program prints that runs on the PC."""
        return self._run("the PC", ["nsenter", f"--net={self._plant.pc.host.path}", "--"], command, {}, quote)

    def _on_device(self, node: Node, command: list) -> str:
        return self._run(node.name, node.device.room.prefix, command, {"DBUS_SYSTEM_BUS_ADDRESS": node.device.bus.address})

    def _run(self, where: str, prefix: list, command: list, environment: dict, quote: bool = True) -> str:
        self._screen.event(f"On {where}:  " + " ".join(command))
        with tempfile.TemporaryFile("w+") as output, tempfile.TemporaryFile("w+") as errors:
            process = subprocess.Popen([*prefix, *TOOLS.get(command[0], command[:1]), *command[1:]], stdin=subprocess.DEVNULL,
                                       stdout=output, stderr=errors, env={**os.environ, **environment})
            self._show.until(lambda: process.poll() is not None, 60, f"{command[0]} ends")
            output.seek(0)
            errors.seek(0)
            text = output.read()
            if quote:
                self._screen.quote(f"{text.rstrip()}\n{errors.read()}")
        return text

    # 3

    def _describe(self, node: Node) -> None:
        self._screen.heading("3. The PC reads a description")
        text = self._on_pc(["curl", "--silent", "--max-time", "5", node.description_url], quote=False)
        values = self._description(text)
        names = ("deviceType", "friendlyName", "manufacturer", "modelName", "modelNumber", "serialNumber", "UDN",
                 "presentationURL")
        self._screen.quote("\n".join(f"<{name}>{values.get(name, '')}</{name}>" for name in names))
        expected = {"friendlyName": node.name, "serialNumber": node.serial, "presentationURL": f"http://{node.address}/",
                    "UDN": f"uuid:Upnp-BasicDevice-1_0-{node.uuid}"}
        wrong = {name: values.get(name) for name in expected if values.get(name) != expected[name]}
        if wrong:
            raise NotSeen(f"the description of {node.name}; instead: {wrong}")
        self._screen.good("The description is that of the device that announced it.")

    @staticmethod
    def _description(text: str) -> dict:
        try:
            device = xml.etree.ElementTree.fromstring(text)[-1]
        except (xml.etree.ElementTree.ParseError, IndexError) as error:
            raise NotSeen(f"a description that can be read: {error}\n{text}") from None
        return {element.tag.split("}")[-1]: element.text for element in device}

    # 4

    def _see_each_other(self) -> None:
        self._screen.heading("4. The devices see each other")
        self._screen.text(f"Every {TICK} seconds each device announces itself to its own kind as well (group "
                          f"{ANNOUNCEMENTS[0]}, port {ANNOUNCEMENTS[1]}) and keeps a list of those it hears. A row "
                          f"below is one device's list, asked over its system bus: {self._lists.legend()}")
        self._show.with_table = True
        self._show.until(lambda: self._lists.everybody_lists(*self._nodes), 2 * TICK + SLACK, "everybody lists everybody")
        self._screen.table(self._lists.table())
        self._screen.print_table()
        self._screen.good("Everybody lists everybody, and itself.")

    # 5

    def _show_tools(self, node: Node) -> None:
        self._screen.heading("5. People see them")
        self._screen.text("Two tools come with the daemon. The first needs none: it runs on any PC with Python, searches, and "
                          "listens to both protocols.")
        self._check_shown(self._on_pc(["upnpvelorn-browse"]), "upnpvelorn-browse")
        self._screen.text("The second runs on a device and asks its daemon.")
        self._check_shown(self._on_device(node, ["upnpvelornctl", "list"]), "upnpvelornctl")

    def _check_shown(self, text: str, program: str) -> None:
        rows = [line.split() for line in text.splitlines()]
        missing = [node.name for node in self._nodes if not any({node.name, node.serial, node.address} <= set(row) for row in rows)]
        if missing:
            raise NotSeen(f"{', '.join(missing)} in what {program} prints")
        self._screen.good(f"{program} shows all {len(self._nodes)} devices.")

    # 6

    def _unplug(self, node: Node) -> None:
        self._screen.heading(f"6. {node.name} loses its network cable")
        self._show.until(lambda: self._last_announcement(node), TICK + SLACK, f"{node.name} announces itself")
        self._plant.unplug(node.name)
        self._screen.event(f"The cable of {node.name} is out.")
        self._screen.text(f"Nobody is told. Each announcement says how long it counts; the others forget the device "
                          f"after three times that, {EXPIRATION} seconds, when their next {TICK} seconds are over. "
                          "Meanwhile:")

    def _last_announcement(self, node: Node) -> float:
        """When the PC last heard `node` announce itself, 0 for never."""
        for datagram in self._announcements.take():
            for one in self._nodes:
                if f'"uuid":"{one.serial}"'.encode() in datagram.data:
                    self._last[one.name] = datagram.time
        return self._last.get(node.name, 0)

    # 7

    def _move(self, node: Node, address: str) -> None:
        self._screen.heading(f"7. {node.name} gets another address")
        old_url, before = node.description_url, time.monotonic()
        self._plant.move(node.name, address)
        self._screen.event(f"The network manager of {node.name} signals the new address {address}.")
        bye = self._show.until(lambda: self._heard(node, "byebye", old_url, before), TICK, f"{node.name} says byebye "
                               f"with {old_url}")
        self._screen.event(f"The PC hears {node.name} say byebye: {bye.location}")
        alive = self._show.until(lambda: self._heard(node, "alive", node.description_url, before), TICK,
                                 f"{node.name} says alive with {node.description_url}")
        self._screen.event(f"The PC hears {node.name} say alive:  {alive.location}")
        if self._show.heard.index(bye) > self._show.heard.index(alive):
            raise NotSeen("byebye before alive")
        self._screen.good("First farewell under the old address, then the new one.")
        self._show.until(lambda: self._lists.everybody_lists(node), 2 * TICK + SLACK,
                         f"everybody lists {node.name} at {address}")
        self._screen.good(f"With its next announcement the others list {node.name} at {address}.")

    # 8

    def _join(self) -> None:
        self._screen.heading("8. A device joins")
        node = self._add()
        self._wait_for_alive(node)
        others = [one for one in self._nodes if one.plugged]
        self._show.until(lambda: self._lists.everybody_lists(node), TICK + SLACK, f"everybody lists {node.name}")
        self._screen.good(f"Everybody lists {node.name}.")
        self._show.until(lambda: self._lists.everybody_lists(*others), 2 * TICK + SLACK,
                         f"{node.name} lists {', '.join(one.name for one in others)}")
        self._screen.good(f"{node.name} has heard all others that have a cable, and lists them.")

    # 9

    def _check(self, node: Node) -> None:
        self._screen.heading(f"9. Is {node.name} as it should be?")
        self._screen.text("The same tool looks at what the daemon needs around it and does. (upnpvelorn-browse check asks everything "
                          "that can be asked from outside, which takes longer.)")
        lines = self._on_device(node, ["upnpvelornctl", "check"]).splitlines()
        if not lines or not all(line.startswith("✓") for line in lines):
            raise NotSeen(f"nothing but ✓ in what upnpvelornctl check prints on {node.name}")
        self._screen.good(f"Everything is right on {node.name}: {len(lines)} things were looked at.")

    # 10

    def _forget(self, node: Node) -> None:
        self._screen.heading(f"10. {node.name} is forgotten")
        last = self._last_announcement(node)

        def silent() -> float:
            return time.monotonic() - last

        def forgotten() -> bool:
            self._screen.progress(f"{node.name} was heard last {silent():.0f} seconds ago; it is forgotten between "
                                  f"{EXPIRATION} and {EXPIRATION + TICK + 1} seconds.")
            return self._lists.nobody_else_lists(node)

        self._show.until(lambda: silent() > EXPIRATION - 2 or forgotten(), EXPIRATION + SLACK, "time passing")
        if self._lists.nobody_else_lists(node):
            raise NotSeen(f"{node.name} in the lists for {EXPIRATION} seconds; it is missing after {silent():.0f}")
        self._show.until(forgotten, TICK + SLACK, f"the others forget {node.name}")
        self._screen.progress()
        self._screen.table(self._lists.table())
        self._screen.print_table()
        self._screen.good(f"Nobody else lists {node.name} any more, {silent():.0f} seconds after it was heard last.")
