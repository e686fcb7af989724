"""Who lists whom: every device of a plant asked over its own bus, and the answers as a table."""

from simdevice.plant import Node, Plant

_MOST_WITH_NAMES = 8


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

    def _with_names(self, nodes: list) -> list:
        lines = ["who lists whom    │" + "".join(f"{node.name:>9}" for node in nodes),
                 "──────────────────┼" + "─" * 9 * len(nodes)]
        for viewer in nodes:
            cells = [_ending(self.shows(viewer, subject)) or "-" for subject in nodes]
            place = _ending(viewer.address) if viewer.plugged else "no cable"
            lines.append(f"{viewer.name:<9}{place:<9}│" + "".join(f"{cell:>8} " for cell in cells))
        return lines

    def _with_marks(self, nodes: list) -> list:
        lines = ["lists     │ " + "".join(f"{node.number // 10 or ' '} " for node in nodes),
                 "──────────│ " + "".join(f"{node.number % 10} " for node in nodes)]
        for viewer in nodes:
            cells = [_mark(self.shows(viewer, subject), subject) for subject in nodes]
            lines.append(f"{viewer.name:<9}{' ' if viewer.plugged else '!'}│ " + " ".join(cells))
        return [*lines, "x listed   o listed under an earlier address   - not listed   ! cable out"]


def _ending(address: str) -> str:
    return "." + address.rsplit(".", 1)[1] if "." in address else address


def _mark(address: str, subject: Node) -> str:
    return "-" if not address else "x" if address == subject.address else "o"
