"""Processor time of taking in announcements: of new devices, and of known ones among more and more others."""

from measuring import Plan, figures, in_turn, lanes, progress, surviving
from servers import DAEMON, FLOOR, hearing_announcements
from table import Column, Table

SIZES = (10, 100, 1000, 10000)
_MOST = {"avahi-daemon": 1000}  # each of its announcements is compared with all others: more would take hours
_SECONDS = 3
_LEARNING = [Column("microseconds", "µs per new device", 1), Column("lost", "lost", 0), Column("bytes", "bytes", 0)]
_KNOWN = [Column("microseconds", "µs per announcement", 1), Column("per_second", "announcements per second", 0),
          Column("lost", "lost", 0), Column("bytes", "bytes", 0)]


def measure(plan: Plan) -> list:
    sizes = [size for size in SIZES if not plan.quick or size <= 1000]
    tables = []
    with lanes(hearing_announcements(), plan) as all_lanes:
        known = 0
        for size in sizes:
            all_lanes = [lane for lane in all_lanes if size <= _MOST.get(lane.name, size)]
            learning = Table(f"learning-{size}", f"Announcements of new devices, {known} to {size} known", _LEARNING, FLOOR,
                             DAEMON)
            all_lanes = surviving(all_lanes, lambda lane: _learn(learning, lane, known, size))
            table = Table(f"known-{size}", f"Announcements of known devices, {size} known", _KNOWN, FLOOR, DAEMON)
            changed = Table(f"changed-{size}", f"Changed announcements of known devices, {size} known", _KNOWN, FLOOR, DAEMON)

            def one(lane) -> None:
                most = min(_number_for(learning, lane), 5000 if plan.quick else 20000)
                _refresh(table, lane, size, max(size, most))
                if lane.server.protocol == "scan":
                    _refresh(changed, lane, size, max(size, most), changed=True)
            in_turn(plan, f"announcements, {size} known", all_lanes, one)
            tables += [learning, table, changed]
            known = size
    return tables


def _learn(table: Table, lane, known: int, size: int) -> None:
    """Only once: a device is new only once."""
    progress(f"announcements, up to {size} new: {lane.name}")
    table.add(lane.name, **figures(lane.announce(size - known, size - known, first=known), "lost"))


def _number_for(learning: Table, lane) -> int:
    """How many the lane takes in some seconds, by what learning took."""
    return int(_SECONDS * 1e6 / max(learning.median(lane.name, "microseconds"), 1))


def _refresh(table: Table, lane, size: int, count: int, changed: bool = False) -> None:
    table.add(lane.name, **figures(lane.announce(size, count, changed=changed), "lost"))
