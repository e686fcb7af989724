"""Processor time of a GET of the description."""

from measuring import Plan, figures, in_turn, lanes
from servers import DAEMON, FLOOR, serving_descriptions
from table import Column, Table

_COLUMNS = [Column("microseconds", "µs per GET", 1), Column("per_second", "GETs per second", 0),
            Column("latency", "median latency, µs", 0), Column("bytes", "bytes", 0)]


def measure(plan: Plan) -> list:
    seconds = 0.5 if plan.quick else 1.5
    tables = {connections: Table(f"descriptions-{connections}", f"Descriptions, {connections} connection(s) at a time",
                                 _COLUMNS, FLOOR, DAEMON) for connections in (1, 32)}

    def one(lane) -> None:
        for connections, table in tables.items():
            table.add(lane.name, **figures(lane.download(seconds, connections), "failed"))

    with lanes(serving_descriptions(), plan) as all_lanes:
        in_turn(plan, "descriptions", all_lanes, one)
    return list(tables.values())
