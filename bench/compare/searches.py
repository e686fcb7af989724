"""Processor time of an answer to a search."""

from measuring import Plan, in_turn, lanes
from servers import DAEMON, FLOOR, answering_searches
from table import Column, Table

_COLUMNS = [Column("microseconds", "µs per answer", 1), Column("per_second", "answers per second", 0),
            Column("latency", "median latency, µs", 0), Column("bytes", "bytes", 0)]
_RATE = 200


def measure(plan: Plan) -> list:
    seconds = 0.7 if plan.quick else 2
    busy = Table("searches-busy", "Searches, 32 under way all the time", _COLUMNS, FLOOR, DAEMON)
    single = Table("searches-paced", f"Searches, {_RATE} a second", _COLUMNS, FLOOR, DAEMON)

    def one(lane) -> None:
        _add(busy, lane, lane.search("closed", seconds, 32))
        _add(single, lane, lane.search("paced", seconds, _RATE))

    with lanes(answering_searches(), plan) as all_lanes:
        in_turn(plan, "searches", all_lanes, one)
    return [busy, single]


def _add(table: Table, lane, seen: dict) -> None:
    answers = seen["operations"]
    if answers == 0:
        return table.add(lane.name)
    table.add(lane.name, microseconds=seen["processor"] / answers * 1e6, per_second=answers / seen["elapsed"],
              latency=seen["median_latency"] * 1e6, bytes=seen["bytes"], lost=seen["lost"], sent=seen["sent"])
