"""Measuring lanes in turn, round by round."""

import contextlib
import pathlib
import sys
import time
from typing import NamedTuple

from lane import Lane, LaneError

FAILURES = (LaneError, AssertionError)  # the latter is what a deadline ends with

_begun = time.monotonic()


class Plan(NamedTuple):
    """How much is measured. `programs`: the folder of the built floors, peers and load generators."""

    programs: pathlib.Path
    rounds: int
    quick: bool


def progress(text: str) -> None:
    minutes, seconds = divmod(int(time.monotonic() - _begun), 60)
    print(f"{minutes:3}:{seconds:02}  {text}", file=sys.stderr, flush=True)


def complain(error: Exception) -> None:
    progress(f"!! {error}")


@contextlib.contextmanager
def lanes(servers: list, plan: Plan, start: bool = True):
    """Lanes for the servers that this machine has, with the servers that start."""
    made = []
    try:
        for server in servers:
            if not server.is_available(plan.programs):
                progress(f"without {server.name}: install the package {server.package}")
                continue
            made.append(Lane(server, plan.programs))
        yield surviving(made, Lane.start) if start else made
    finally:
        for lane in made:
            lane.close()


def figures(seen: dict, *others: str) -> dict:
    """Of one operation, from what a load generator has printed; `others` as they are. Empty when there was no operation."""
    count = seen["operations"]
    if count == 0:
        return {}
    found = {"microseconds": seen["processor"] / count * 1e6, "per_second": count / seen["elapsed"]}
    if "median_latency" in seen:
        found["latency"] = seen["median_latency"] * 1e6
    return {**found, **{name: seen[name] for name in ("bytes", *others)}}


def surviving(all_lanes: list, action) -> list:
    """Calls action(lane) for every lane; those for which it did not fail."""
    good = []
    for lane in all_lanes:
        try:
            action(lane)
        except FAILURES as error:
            complain(error)
        else:
            good.append(lane)
    return good


def in_turn(plan: Plan, what: str, all_lanes: list, measure) -> None:
    """Calls measure(lane) for every lane, as many times as there are rounds. One that fails is left out from then on."""
    for number in range(plan.rounds):
        progress(f"{what}: round {number + 1} of {plan.rounds}")
        all_lanes = surviving(all_lanes, measure)
