"""Processor time of listing the known devices over D-Bus."""

from measuring import Plan, in_turn, lanes, progress, surviving
from servers import DAEMON, FLOOR, listing_devices
from table import Column, Table

_COLUMNS = [Column("milliseconds", "ms per listing", 2), Column("latency", "latency, ms", 2), Column("devices", "devices", 0),
            Column("bytes", "bytes", 0)]
_WARM_CALLS = 3


def measure(plan: Plan) -> list:
    tables = []
    with lanes(listing_devices(), plan) as all_lanes:
        known = 0
        for size in (100, 1000) if plan.quick else (100, 1000, 10000):
            progress(f"listings: {size} devices")
            all_lanes = surviving(all_lanes, lambda lane: lane.announce(size - known, size - known, first=known))
            known = size
            first = Table(f"listing-{size}", f"Listing {size} devices, all changed since the last listing", _COLUMNS, FLOOR, DAEMON)
            again = Table(f"listing-again-{size}", f"Listing {size} devices again", _COLUMNS, FLOOR, DAEMON)
            in_turn(plan, f"listings, {size} devices", all_lanes, lambda lane: _list(first, again, lane, size))
            tables += [first, again]
    return tables


def _list(first: Table, again: Table, lane, size: int) -> None:
    lane.announce(size, size, changed=True)
    _add(first, lane, lane.list(1))
    _add(again, lane, lane.list(_WARM_CALLS))


def _add(table: Table, lane, seen: dict) -> None:
    table.add(lane.name, milliseconds=seen["processor"] / seen["operations"] * 1e3, latency=seen["median_latency"] * 1e3,
              devices=seen["devices"], bytes=seen["bytes"])
