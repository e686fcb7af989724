"""Counts what the daemon and its JSON take with Qt 4.8 beside Qt 5.

Instructions are those in user space (callgrind), so that a busy machine does not matter. The table goes to
build-bench/qt4.md.
"""

import argparse
import os
import pathlib
import re
import subprocess
import sys

from enclosed import BUILD, PROGRAMS, ROOT, enter

_BUILDS = (BUILD, ROOT / "build-qt4-bench")
_PACKAGES = ("libqt5core5a", "libdbus-1-3", "libc6", "valgrind")  # Qt 4.8 comes from no package
_JSON_FUNCTIONS = ("lexer", "reader", "writer")


def main() -> int:
    options = _options()
    enter()

    import machine
    import output
    from measuring import Plan
    from report import side_by_side

    builds = {f"Qt {_qt_version(folder)}": folder for folder in _BUILDS}
    plan = Plan(PROGRAMS, options.rounds, False)
    text = side_by_side(machine.described(BUILD, _PACKAGES), _operations(plan, builds) + _json(plan, builds))
    (BUILD / "qt4.md").write_text(text)
    print(text)
    if options.write_docs:
        output.write_docs_qt4(ROOT / "docs", text)
    return 0


def _options() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="bench/qt4", description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--write-docs", action="store_true", help="put the table into docs/performance-tables.md as well")
    return parser.parse_args()


def _qt_version(build: pathlib.Path) -> str:
    """Of the library that the daemon is loaded with."""
    libraries = subprocess.run(["ldd", str(build / "upnpvelorn")], capture_output=True, text=True, check=True).stdout
    library = re.search(r"(/\S*/libQt5?Core\.so\S*)", libraries)[1]
    return os.path.realpath(library).rpartition(".so.")[2]


def _operations(plan, builds: dict) -> list:
    import exact
    from measuring import lanes, progress
    from servers import Daemon
    from table import Table

    tables = []
    for name, (title, _, operate) in exact.operations().items():
        table = Table(f"qt-{name}", title, exact.COLUMNS, *builds)
        servers = [Daemon(version, str(folder / "upnpvelorn")) for version, folder in builds.items()]
        with lanes(servers, plan, start=False) as all_lanes:
            for number in range(plan.rounds):
                for lane in all_lanes:
                    progress(f"{title.lower()}: round {number + 1} of {plan.rounds}, {lane.name}")
                    table.add(lane.name, **exact.counted(lane, operate))
        tables.append(table)
    return tables


def _json(plan, builds: dict) -> list:
    """The same every time, so one round is enough."""
    from classes import instructions, json_texts
    from measuring import progress
    from table import Column, Table

    columns = [Column("instructions", "instructions", 0)]
    tables = []
    for function in _JSON_FUNCTIONS:
        for text in json_texts(plan.programs):
            progress(f"JSON {function}: {text}")
            table = Table(f"json-{function}-{text}", f"JSON {function}: {text}", columns, *builds)
            for version, folder in builds.items():
                table.add(version, instructions=instructions(folder / "bench" / "bench_json", f"{function}/{text}"))
            tables.append(table)
    return tables


if __name__ == "__main__":
    sys.exit(main())
