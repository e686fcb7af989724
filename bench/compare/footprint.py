"""What a resident program takes: memory, start, and the processor while nothing happens."""

import os
import pathlib
import re
import subprocess
import tempfile
import time

from lane import LOAD_CPU, Lane, pinned
from measuring import FAILURES, Plan, complain, lanes, progress, surviving
from servers import DAEMON, MDNS, Minissdpd, resident
from table import Column, Table

_COLUMNS = [Column("private", "private memory, KiB", 0), Column("pss", "PSS, KiB", 0), Column("rss", "RSS, KiB", 0),
            Column("threads", "threads", 0), Column("program", "program, KiB", 0), Column("libraries", "libraries, KiB", 0),
            Column("start", "start to first alive, ms", 1), Column("idle", "idle, ms a minute", 2),
            Column("wakeups", "wake-ups a minute", 0)]


def measure(plan: Plan) -> list:
    table = Table("footprint", "Resident", _COLUMNS, "bare Qt program", DAEMON)
    starts = {}
    with lanes(resident(), plan, start=False) as all_lanes:
        for number in range(plan.rounds):
            progress(f"footprint: start {number + 1} of {plan.rounds}")
            for lane in all_lanes:
                starts.setdefault(lane.name, []).append(_start_time(lane))
        progress(f"footprint: at rest for {_rest(plan)} seconds")
        for lane, idle in _at_rest(all_lanes, plan):
            memory = _memory(lane.pid)
            fixed = {**idle, **memory, **_sizes(lane), "threads": len(os.listdir(f"/proc/{lane.pid}/task"))}
            for start in starts[lane.name]:
                table.add(lane.name, start=start, **fixed)
    return [table]


def _start_time(lane) -> float:
    """Milliseconds from the program's first instruction to its first "ssdp:alive". None where it sends none."""
    if lane.server.ports == [MDNS] or isinstance(lane.server, Minissdpd):
        return None
    stamp = lane.folder / "stamp"
    listener = subprocess.Popen(
        ["nsenter", f"--net={lane.there.path}", "--", *pinned(LOAD_CPU), str(lane.programs / "load_firstalive"),
         lane.load_address, lane.address, "15"], stdout=subprocess.PIPE, text=True)
    with listener:
        listener.stdout.readline()
        try:
            lane.start(wrapper=[str(lane.programs / "stamp"), str(stamp)])
            heard = float(listener.stdout.readline())
        except FAILURES as error:
            complain(error)
            listener.kill()
            return None
        finally:
            lane.stop()
    return (heard - float(stamp.read_text())) * 1e3 if heard > 0 else None


def _rest(plan: Plan) -> int:
    return 20 if plan.quick else 60


def _at_rest(all_lanes: list, plan: Plan) -> list:
    """The lanes with processor time and wake-ups of each. The start is over before."""
    started = surviving(all_lanes, Lane.start)
    time.sleep(15)  # the second announcement, ten seconds after the start, is the first with everything in it
    before = {lane: (_processor(lane.pid), _wakeups(lane.pid)) for lane in started}
    seconds = _rest(plan)
    time.sleep(seconds)
    seen = []
    for lane in started:
        processor, wakeups = before[lane]
        seen.append((lane, {"idle": (_processor(lane.pid) - processor) * 1e3 * 60 / seconds,
                            "wakeups": (_wakeups(lane.pid) - wakeups) * 60 / seconds}))
    return seen


def _processor(pid: int) -> float:
    """The process's own clock, as clock_getcpuclockid(3) names it."""
    return time.clock_gettime(~pid << 3 | 2)


def _wakeups(pid: int) -> int:
    found = 0
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        found += int(re.search(r"^voluntary_ctxt_switches:\s+(\d+)", (task / "status").read_text(), re.M)[1])
    return found


def _memory(pid: int) -> dict:
    text = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text()
    kib = {name: int(number) for name, number in re.findall(r"^(\w+):\s+(\d+) kB", text, re.M)}
    return {"rss": kib["Rss"], "pss": kib["Pss"], "private": kib["Private_Dirty"]}


def _sizes(lane) -> dict:
    """KiB of the stripped program, and of the libraries that it is linked with."""
    program = os.path.realpath(lane.server.program(lane))
    listed = subprocess.run(["ldd", program], capture_output=True, text=True).stdout
    libraries = {os.path.realpath(path) for path in re.findall(r"(/\S+) \(0x", listed)}
    return {"program": stripped_size(program) / 1024, "libraries": sum(map(os.path.getsize, libraries)) / 1024}


def stripped_size(program: str) -> int:
    with tempfile.NamedTemporaryFile() as stripped:
        subprocess.run(["strip", "-o", stripped.name, program], check=True)
        return os.path.getsize(stripped.name)
