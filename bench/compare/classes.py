"""The microbenchmarks of the classes, and JSON beside Qt's own."""

import json
import pathlib
import re
import subprocess
import tempfile

from enclosed import ROOT
from lane import SERVER_CPU, pinned
from measuring import Plan, progress
from simdevice.sandbox import PYTHON
from table import Column, Table

_QT = "Qt"
_OURS = "upnpvelorn"


def measure(plan: Plan) -> list:
    tables = []
    for name in ("upnp", "scan", "json", "registry"):
        progress(f"classes: {name}")
        runs = _run(plan, name)
        if name == "json":
            tables += [_beside_qt(runs, what, text) for what in ("reader", "writer") for text in _texts(runs, what)]
        else:
            tables.append(_all(runs, name))
    return tables


def _run(plan: Plan, name: str) -> list:
    """The repetitions of all benchmarks of one program, interleaved."""
    program = str(plan.programs / f"bench_{name}")
    alone = [PYTHON, str(ROOT / "simdevice" / "isolated.py")] if name == "registry" else []
    done = subprocess.run(
        [*pinned(SERVER_CPU), *alone, program, "--benchmark_format=json", f"--benchmark_repetitions={plan.rounds}",
         "--benchmark_enable_random_interleaving=true", f"--benchmark_min_time={0.02 if plan.quick else 0.1}"],
        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=True)
    return [run for run in json.loads(done.stdout)["benchmarks"] if run["run_type"] == "iteration"]


def _nanoseconds(run: dict) -> float:
    """Of processor time: what the benchmark measures itself, without the sending, stands in the place of the real time."""
    return run["real_time"] if run["run_name"].endswith("manual_time") else run["cpu_time"]


def _in_order(runs: list) -> list:
    return sorted(runs, key=lambda run: (run["family_index"], run["per_family_instance_index"], run["repetition_index"]))


def _all(runs: list, name: str) -> Table:
    table = Table(f"classes-{name}", f"Classes of {name}", [Column("nanoseconds", "ns", 0)])
    for run in _in_order(runs):
        table.add(run["run_name"].split("/manual_time")[0].split("/iterations:")[0], nanoseconds=_nanoseconds(run))
    return table


def _texts(runs: list, what: str) -> list:
    found = (run["run_name"].split("/")[1] for run in _in_order(runs) if run["run_name"].startswith(what + "/"))
    return list(dict.fromkeys(found))


def json_texts(programs: pathlib.Path) -> list:
    listed = subprocess.run([str(programs / "bench_json"), "--benchmark_list_tests", "--benchmark_filter=^reader/"],
                            capture_output=True, text=True, check=True).stdout
    return [name.split("/")[1] for name in listed.split()]


def instructions(program: pathlib.Path, benchmark: str) -> float:
    """Of one pass of a benchmark of bench_json, in user space: what a longer run takes more."""
    fewer, more = 5, 15
    return (_callgrind(program, benchmark, more) - _callgrind(program, benchmark, fewer)) / (more - fewer)


def _callgrind(program: pathlib.Path, benchmark: str, iterations: int) -> int:
    with tempfile.NamedTemporaryFile() as figures:
        subprocess.run(["valgrind", "--tool=callgrind", "--quiet", f"--callgrind-out-file={figures.name}", str(program),
                        f"--iterations={iterations}", f"--benchmark_filter=^{benchmark}/"],
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
        return int(re.search(r"^totals: (\d+)", pathlib.Path(figures.name).read_text(), re.M)[1])


def _beside_qt(runs: list, what: str, text: str) -> Table:
    """Qt's writer escapes other characters, so the ratio is that of the times for the same value."""
    table = Table(f"json-{what}-{text}", f"JSON {what}: {text}", [Column("nanoseconds", "ns", 0)], _QT, _OURS)
    for lane, prefix in ((_QT, f"{what}OfQt/"), (_OURS, f"{what}/")):
        for run in _in_order(runs):
            if run["run_name"] == prefix + text:
                table.add(lane, nanoseconds=_nanoseconds(run))
    return table
