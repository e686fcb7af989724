"""What an operation takes that can be counted: instructions, system calls and heap allocations."""

import pathlib
import re
import signal
import struct
import subprocess

from lane import Lane, LaneError
from measuring import FAILURES, Plan, complain, lanes, progress
from servers import DAEMON, FLOOR, answering_searches, hearing_announcements, listing_devices, serving_descriptions
from simdevice.waiting import wait_for
from table import Column, Table

COLUMNS = [Column("instructions", "instructions", 0), Column("system_calls", "system calls", 1),
           Column("allocations", "heap allocations", 1)]
_KNOWN = 100
_SLOW_START = 90  # seconds, under valgrind
_TOTAL = r"^totals: (\d+)"


def measure(plan: Plan) -> list:
    tables = []
    for name, (title, servers, operate) in operations().items():
        table = Table(f"exact-{name}", title, COLUMNS, FLOOR, DAEMON)
        with lanes(servers, plan, start=False) as all_lanes:
            for lane in all_lanes:
                progress(f"counting: {title.lower()}, {lane.name}")
                table.add(lane.name, **counted(lane, operate))
        tables.append(table)
    return tables


def operations() -> dict:
    """name -> (title, servers, operate(lane, count) -> how many were done); one operation at a time, so that each is
    handled on its own."""
    return {"search": ("Search", answering_searches(), _search), "description": ("GET", serving_descriptions(), _download),
            "announcement": (f"Known announcement, {_KNOWN} known", hearing_announcements(), _announce),
            "change": (f"Changed announcement, {_KNOWN} known", listing_devices(), _announce_changes)}


def _search(lane: Lane, count: int) -> int:
    return lane.search("paced", count / 100, 100)["operations"]


def _download(lane: Lane, count: int) -> int:
    return lane.download(count / 200, 1)["operations"]


def _announce(lane: Lane, count: int) -> int:
    return lane.announce(_KNOWN, max(count, _KNOWN), rate=200)["operations"]


def _announce_changes(lane: Lane, count: int) -> int:
    return lane.announce(_KNOWN, max(count, _KNOWN), rate=200, changed=True)["operations"]


def counted(lane: Lane, operate) -> dict:
    """A value for each of COLUMNS, those left out that could not be had."""
    found = {}
    for name, count in (("instructions", instructions), ("system_calls", _system_calls), ("allocations", _allocations)):
        try:
            found[name] = count(lane, operate)
        except FAILURES as error:
            complain(error)
        finally:
            lane.stop()
    return {name: value for name, value in found.items() if value is not None}


def instructions(lane: Lane, operate) -> float:
    """Of an operation, in user space, by callgrind."""
    if lane.server.is_background:
        return _instructions_by_ending(lane, operate)
    _start_counted(lane)
    operate(lane, 200)
    _dump(lane)
    done = operate(lane, 400)
    return _dump(lane) / done if done else None


def _start_counted(lane: Lane) -> None:
    for old in lane.folder.glob("callgrind.*"):
        old.unlink()
    lane.start(["valgrind", "--tool=callgrind", "--quiet", f"--callgrind-out-file={lane.folder}/callgrind.%p",
                f"--vgdb-prefix={lane.folder}/vgdb"], seconds=_SLOW_START)


def _instructions_by_ending(lane: Lane, operate) -> float:
    """Of a program that takes no orders for callgrind once it is in the background: by what a longer life takes more."""
    lives = []
    for count in (200, 600):
        _start_counted(lane)
        done = operate(lane, count)
        figures = lane.folder / f"callgrind.{lane.pid}"
        lane.terminate()
        lives.append((done, int(re.search(_TOTAL, figures.read_text(), re.M)[1])))
        lane.stop()
    (fewer, first), (more, second) = lives
    return (second - first) / (more - fewer) if more > fewer else None


def _dump(lane: Lane) -> int:
    """Instructions since the dump before."""
    before = set(_dumps(lane))
    order = ["vgdb", f"--vgdb-prefix={lane.folder}/vgdb", f"--pid={lane.pid}", "dump"]
    done = subprocess.run(order, capture_output=True, text=True, timeout=60)
    if done.returncode != 0:
        raise LaneError(f"callgrind does not write its figures of {lane.name}: {done.stderr.strip()}")
    wait_for(lambda: len(set(_dumps(lane)) - before) == 1, 30, "callgrind has written its figures")
    new, = set(_dumps(lane)) - before
    return int(re.findall(_TOTAL, new.read_text(), re.M)[-1])


def _dumps(lane: Lane) -> list:
    """The complete ones: the total is written last."""
    return [file for file in lane.folder.glob("callgrind.*.*") if re.search(_TOTAL, file.read_text(), re.M)]


def _system_calls(lane: Lane, operate) -> float:
    lane.start()
    operate(lane, 50)
    report = lane.folder / "strace"
    tracer = subprocess.Popen(["strace", "-f", "-c", "-U", "calls,name", "-o", str(report), "-p", str(lane.pid)],
                              stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    with tracer:
        if "attached" not in tracer.stderr.readline():
            raise LaneError(f"strace cannot attach to {lane.name}")
        done = operate(lane, 200)
        tracer.send_signal(signal.SIGINT)
        tracer.communicate()
    found = re.search(r"^\s*(\d+)\s+total$", report.read_text(), re.M)
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
