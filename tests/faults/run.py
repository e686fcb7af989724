#!/usr/bin/python3
"""Lets single calls of the daemon's fail, one after the other, and tells what becomes of it. See --help.

Ends with 0 when nothing stays broken, 1 when something does, 77 where the machine allows no sandbox. UPNPVELORN names the
executable to be tested; without it that is build/upnpvelorn.
"""

import argparse
import collections
import json
import os
import pathlib
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
for folder in (HERE, HERE.parent / "daemon", HERE.parent.parent):
    sys.path.insert(0, str(folder))

from simdevice import sandbox

KINDS = ("recovered", "ended", "by design", "unreached", "BAD")


def arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--phase", action="append", choices=("start", "requests", "changes", "bus"),
                        help="what the daemon does meanwhile; may be repeated; all without it")
    parser.add_argument("--function", action="append", help="of the C library; may be repeated; all without it")
    parser.add_argument("--calls", default="1-", help="from the first to the last number, such as 3-7 or 3; all without it")
    parser.add_argument("--errors", choices=("all", "usual"), default="all", help="every error of a function, or one")
    parser.add_argument("--every", type=int, default=1, help="only every so many-th point")
    parser.add_argument("--jobs", type=int, default=1, help="points tried at the same time")
    parser.add_argument("--part", help=argparse.SUPPRESS)
    return parser.parse_args()


def is_in(call: int, calls: str) -> bool:
    first, dash, last = calls.partition("-")
    return int(first) <= call <= (int(last) if last else call if dash else int(first))


def try_part(options: argparse.Namespace) -> None:
    """Writes a line of JSON for each point."""
    sandbox.enter(status_if_refused=77)
    import sweep
    if not sweep.is_possible():
        sys.exit(77)
    part, parts = map(int, options.part.split("/"))
    bench = sweep.Bench()
    for phase in options.phase or sweep.PHASES:
        points = [point for point in sweep.points_of(bench, phase, tuple(options.function or ()), options.errors)
                  if is_in(point.call, options.calls)]
        for point in points[options.every - 1::options.every][part::parts]:
            print(json.dumps([*point, *bench.run(point)]), flush=True)
    bench.close()


class Table:
    """Outcomes by phase and function."""

    def __init__(self):
        self._counts = collections.defaultdict(collections.Counter)
        self._reasons = collections.defaultdict(collections.Counter)
        self.bad = []
        self.points = 0

    def add(self, phase: str, function: str, call: int, error: str, kind: str, text: str) -> None:
        self.points += 1
        self._counts[phase, function][kind] += 1
        if kind == "BAD":
            self.bad.append(f"{phase}: {function} #{call} {error}: {text}")
        elif text:
            self._reasons[kind][text] += 1

    def write(self) -> None:
        columns = [kind for kind in KINDS if any(count[kind] for count in self._counts.values())]
        print(f"\n{'phase':8} {'function':18}" + "".join(f"{kind:>11}" for kind in columns))
        total = collections.Counter()
        for (phase, function), count in self._counts.items():
            print(f"{phase:8} {function:18}" + "".join(f"{count[kind]:11}" for kind in columns))
            total.update(count)
        print(f"{'all':8} {'':18}" + "".join(f"{total[kind]:11}" for kind in columns))
        for kind, reasons in self._reasons.items():
            for text, number in reasons.most_common():
                print(f"{kind}, {number}: {text}")
        for line in self.bad:
            print("BAD", line)


def main() -> int:
    options = arguments()
    if options.part:
        try_part(options)
        return 0
    parts = [subprocess.Popen([sandbox.PYTHON, __file__, *sys.argv[1:], f"--part={number}/{options.jobs}"],
                              stdout=subprocess.PIPE, text=True) for number in range(options.jobs)]
    table = Table()
    for line in lines_of(parts):
        table.add(*json.loads(line))
        tell(table, json.loads(line))
    table.write()
    statuses = [part.wait() for part in parts]
    return 1 if table.bad else max(statuses)


def lines_of(parts: list):
    """Whatever comes first."""
    import selectors
    with selectors.DefaultSelector() as selector:
        for part in parts:
            selector.register(part.stdout, selectors.EVENT_READ)
        while selector.get_map():
            for key, _ in selector.select():
                line = key.fileobj.readline()
                if line:
                    yield line
                else:
                    selector.unregister(key.fileobj)


def tell(table: Table, result: list) -> None:
    phase, function, call, error, kind, text = result
    if kind == "BAD":
        print("BAD", f"{phase}: {function} #{call} {error}: {text}", flush=True)
    elif table.points % 25 == 0:
        print(f"{table.points} points, now {phase}: {function} #{call} {error}", flush=True)


if __name__ == "__main__":
    sys.exit(main())
