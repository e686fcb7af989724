"""Measuring lanes in turn, round by round."""

import contextlib
import pathlib
import sys
import time
from typing import NamedTuple

from lane import Lane, LaneError

_begun = time.monotonic()


class Plan(NamedTuple):
    """How much is measured. `programs`: the folder of the built floors, peers and load generators."""

    programs: pathlib.Path
    rounds: int
    quick: bool


def progress(text: str) -> None:
    minutes, seconds = divmod(int(time.monotonic() - _begun), 60)
    print(f"{minutes:3}:{seconds:02}  {text}", file=sys.stderr, flush=True)


def complain(error: LaneError) -> None:
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
        yield [lane for lane in made if not start or _starts(lane)]
    finally:
        for lane in made:
            lane.close()


def _starts(lane: Lane) -> bool:
    try:
        lane.start()
    except LaneError as error:
        complain(error)
        return False
    return True


def in_turn(plan: Plan, what: str, all_lanes: list, measure) -> None:
    """Calls measure(lane) for every lane, as many times as there are rounds. One that fails is left out from then on."""
    failed = set()
    for number in range(plan.rounds):
        progress(f"{what}: round {number + 1} of {plan.rounds}")
        for lane in all_lanes:
            if lane in failed:
                continue
            try:
                measure(lane)
            except LaneError as error:
                complain(error)
                failed.add(lane)
