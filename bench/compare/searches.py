"""Processor time of an answer to a search."""

from measuring import Plan, figures, in_turn, lanes
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
        busy.add(lane.name, **figures(lane.search("closed", seconds, 32), "lost", "sent"))
        single.add(lane.name, **figures(lane.search("paced", seconds, _RATE), "lost", "sent"))

    with lanes(answering_searches(), plan) as all_lanes:
        in_turn(plan, "searches", all_lanes, one)
    return [busy, single]
