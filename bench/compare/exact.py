"""What an operation takes that can be counted: instructions, system calls and heap allocations."""

import pathlib
import re
import signal
import struct
import subprocess

from lane import Lane, LaneError
from measuring import Plan, complain, lanes, progress
from servers import DAEMON, FLOOR, answering_searches, hearing_announcements, serving_descriptions
from simdevice.waiting import wait_for
from table import Column, Table

COLUMNS = [Column("instructions", "instructions", 0), Column("system_calls", "system calls", 1),
           Column("allocations", "heap allocations", 1)]
_KNOWN = 100
_SLOW_START = 90  # seconds, under valgrind


def measure(plan: Plan) -> list:
    tables = []
    for name, (title, servers, operate) in operations().items():
        table = Table(f"exact-{name}", title, COLUMNS, FLOOR, DAEMON)
        with lanes(servers, plan, start=False) as all_lanes:
            for lane in all_lanes:
                progress(f"counting: {title.lower()}, {lane.name}")
                table.add(lane.name, **_counted(lane, operate))
        tables.append(table)
    return tables


def operations() -> dict:
    """name -> (title, servers, operate(lane, count) -> how many were done); one operation at a time, so that each is
    handled on its own."""
    return {"search": ("Search", answering_searches(), _search), "description": ("GET", serving_descriptions(), _download),
            "announcement": (f"Known announcement, {_KNOWN} known", hearing_announcements(), _announce)}


def _search(lane: Lane, count: int) -> int:
    return lane.search("paced", count / 100, 100)["operations"]


def _download(lane: Lane, count: int) -> int:
    return lane.download(count / 200, 1)["operations"]


def _announce(lane: Lane, count: int) -> int:
    return lane.announce(_KNOWN, max(count, _KNOWN), rate=200)["operations"]


def _counted(lane: Lane, operate) -> dict:
    found = {}
    for name, count in (("instructions", instructions), ("system_calls", _system_calls), ("allocations", _allocations)):
        try:
            found[name] = count(lane, operate)
        except LaneError as error:
            complain(error)
        finally:
            lane.stop()
    return {name: value for name, value in found.items() if value is not None}


def instructions(lane: Lane, operate) -> float:
    """Of an operation, in user space, by callgrind."""
    for old in lane.folder.glob("callgrind.*"):
        old.unlink()
    lane.start(["valgrind", "--tool=callgrind", "--quiet", f"--callgrind-out-file={lane.folder}/callgrind.%p",
                f"--vgdb-prefix={lane.folder}/vgdb"], seconds=_SLOW_START)
    operate(lane, 200)
    _dump(lane)
    done = operate(lane, 400)
    return _dump(lane) / done if done else None


def _dump(lane: Lane) -> int:
    """Instructions since the dump before."""
    def dumps() -> list:
        return [file for file in lane.folder.glob("callgrind.*.*") if re.search(r"^totals: \d+", file.read_text(), re.M)]
    before = set(dumps())
    subprocess.run(["vgdb", f"--vgdb-prefix={lane.folder}/vgdb", f"--pid={lane.pid}", "dump"], check=True,
                   capture_output=True, timeout=60)
    wait_for(lambda: len(set(dumps()) - before) == 1, 30, "callgrind has written its figures")
    new, = set(dumps()) - before
    return int(re.findall(r"^totals: (\d+)", new.read_text(), re.M)[-1])


def _system_calls(lane: Lane, operate) -> float:
    lane.start()
    operate(lane, 50)
    report = lane.folder / "strace"
    tracer = subprocess.Popen(["strace", "-f", "-c", "-o", str(report), "-p", str(lane.pid)], stderr=subprocess.PIPE,
                              stdout=subprocess.DEVNULL, text=True)
    with tracer:
        if "attached" not in tracer.stderr.readline():
            raise LaneError(f"strace cannot attach to {lane.name}")
        done = operate(lane, 200)
        tracer.send_signal(signal.SIGINT)
        tracer.communicate()
    found = re.search(r"^100\.00\s.*?(\d+)(?:\s+\d+)?\s+total$", report.read_text(), re.M)
    return int(found[1]) / done if found and done else None


def _allocations(lane: Lane, operate) -> float:
    counter = pathlib.Path(lane.folder / "allocations")
    counter.write_bytes(bytes(8))
    lane.start(environment={"LD_PRELOAD": str(lane.programs / "libcountallocations.so"), "ALLOCATION_COUNT": str(counter)})
    operate(lane, 200)

    def counted() -> int:
        return struct.unpack("L", counter.read_bytes())[0]
    before = counted()
    done = operate(lane, 400)
    return (counted() - before) / done if done else None
