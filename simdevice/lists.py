"""Who lists whom: every device of a plant asked over its own bus, and the answers as a table."""

import ipaddress

from simdevice.plant import Node, Plant

_MOST_WITH_NAMES = 6    # more do not fit into 80 columns
_MOST_WITH_GAPS = 30


class Lists:
    """The answers at the last look(). `answers` maps a device's name to Node.lists()."""

    def __init__(self, plant: Plant):
        self._plant = plant
        self.answers = {}

    def look(self) -> None:
        self.answers = {node.name: node.lists() for node in self._plant.nodes.values()}

    def shows(self, viewer: Node, subject: Node) -> str:
        """The address under which `viewer` lists `subject`, empty when it does not."""
        return (self.answers.get(viewer.name) or {}).get(subject.serial, "")

    def everybody_lists(self, *subjects: Node) -> bool:
        """Whether all devices with their cable in list all of `subjects` under their present addresses."""
        return all(self.shows(viewer, subject) == subject.address for viewer in self._connected() for subject in subjects)

    def nobody_else_lists(self, subject: Node) -> bool:
        """A device that does not answer does not count as one that does not list."""
        others = [viewer for viewer in self._connected() if viewer is not subject]
        return all(self.answers.get(viewer.name) is not None and not self.shows(viewer, subject) for viewer in others)

    def table(self) -> list:
        nodes = list(self._plant.nodes.values())
        return self._with_names(nodes) if len(nodes) <= _MOST_WITH_NAMES else self._with_marks(nodes)

    def _connected(self) -> list:
        return [node for node in self._plant.nodes.values() if node.plugged]

    def legend(self) -> str:
        """What the cells of the table mean."""
        if len(self._plant.nodes) <= _MOST_WITH_NAMES:
            return ".11 means that it lists the device above at 10.77.0.11, - that it does not list it."
        return ("x means that it lists the device above, o that it lists it under another address, - that it does not "
                "list it.")

    def _with_names(self, nodes: list) -> list:
        lines = ["who lists whom    │" + "".join(f"{node.name:>9}" for node in nodes),
                 "──────────────────┼" + "─" * 9 * len(nodes)]
        for viewer in nodes:
            cells = [_ending(address) for address in self._row(viewer, nodes)]
            place = _STATES.get(self._state(viewer)) or _ending(viewer.address)
            lines.append(f"{viewer.name:<9}{place:<9}│" + "".join(f"{cell:>8} " for cell in cells).rstrip())
        return lines

    def _with_marks(self, nodes: list) -> list:
        gap = " " if len(nodes) <= _MOST_WITH_GAPS else ""
        lines = ["lists     │ " + gap.join(f"{node.number // 10 or ' '}" for node in nodes).rstrip(),
                 "──────────│ " + gap.join(f"{node.number % 10}" for node in nodes)]
        for viewer in nodes:
            cells = [_mark(address, subject) for address, subject in zip(self._row(viewer, nodes), nodes)]
            lines.append(f"{viewer.name:<9}{self._state(viewer)}│ " + gap.join(cells).rstrip())
        states = "   ".join(f"{mark} {name}" for mark, name in _STATES.items() if name)
        return [*lines, "x listed   o listed under another address   - not listed", states]

    def _row(self, viewer: Node, subjects: list) -> list:
        """The addresses under which `viewer` lists `subjects`; None where it cannot be asked."""
        answered = self.answers.get(viewer.name) is not None and viewer.device.running
        return [self.shows(viewer, subject) if answered else None for subject in subjects]

    def _state(self, viewer: Node) -> str:
        if not viewer.device.running:
            return "#"
        if not viewer.plugged:
            return "!"
        return " " if self.answers.get(viewer.name) is not None else "?"


_STATES = {" ": "", "!": "no cable", "#": "ended", "?": "silent"}


def _ending(address: str) -> str:
    if not address:
        return "-" if address is not None else ""
    return "." + address.rsplit(".", 1)[1] if _is_address(address) else "?"


def _mark(address: str, subject: Node) -> str:
    if not address:
        return "-" if address is not None else " "
    return "x" if address == subject.address else "o"


def _is_address(text: str) -> bool:
    try:
        return bool(ipaddress.IPv4Address(text))
    except ValueError:
        return False
