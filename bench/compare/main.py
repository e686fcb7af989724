"""Compares the daemon with programs that do the same kinds of work, and with the least that this kernel allows.

Everything runs in namespaces of its own; when this program ends, in whatever way, all of it is gone.
"""

import argparse
import pathlib
import signal
import sys

from enclosed import BUILD, PROGRAMS, ROOT, enter

BENCHES = ("searches", "descriptions", "announcements", "listings", "footprint", "exact", "classes")


def main() -> int:
    options = _options()
    if options.only_judge:
        return 0
    if options.write_docs_from:
        return _write_docs(options.write_docs_from)
    enter()

    import importlib
    import lane
    import machine
    import output
    from measuring import Plan, progress

    if lane.SERVER_CPU is None:
        progress("only one processor: servers and load share it, and times are not comparable")
    plan = Plan(PROGRAMS, 2 if options.quick else options.rounds, options.quick)
    tables = []
    for name in options.bench or BENCHES:
        tables += importlib.import_module(name).measure(plan)
        output.write(options.output, machine.described(BUILD), tables)
    progress(f"written to {options.output}")
    print((options.output / "figures.md").read_text())
    return _write_docs(options.output) if options.write_docs else 0


def _write_docs(figures: pathlib.Path) -> int:
    import output
    output.write_docs(ROOT / "docs", *output.read(figures))
    return 0


def _options() -> argparse.Namespace:
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # for --help
    parser = argparse.ArgumentParser(prog="bench/run", description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("bench", nargs="*", help=f"of {', '.join(BENCHES)}; without any: all")
    parser.add_argument("--quick", action="store_true", help="2 short rounds: shows that everything works")
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--output", type=pathlib.Path, default=BUILD / "figures",
                        help="folder for tables, charts and values")
    parser.add_argument("--write-docs", action="store_true", help="put tables and charts into docs/ as well")
    parser.add_argument("--write-docs-from", type=pathlib.Path, metavar="FOLDER",
                        help="only that, with the values of an earlier run: nothing is measured")
    # For bench/run, before it installs and builds
    parser.add_argument("--only-judge", action="store_true", help=argparse.SUPPRESS)
    options = parser.parse_args()
    unknown = set(options.bench) - set(BENCHES)
    if unknown:
        parser.error(f"there is no bench {', '.join(sorted(unknown))}; there are: {', '.join(BENCHES)}")
    if options.rounds < 1:
        parser.error(f"--rounds takes a number from 1 on, not '{options.rounds}'")
    if options.write_docs and options.bench:
        parser.error("--write-docs goes with all benches: the page shows all of them")
    options.output = options.output.resolve()
    signal.signal(signal.SIGPIPE, signal.SIG_IGN)
    return options


if __name__ == "__main__":
    sys.exit(main())
