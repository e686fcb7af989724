"""Compares builds of the daemon: builds.py OUTPUT NAME=FOLDER... Each folder is a build folder; the first is the base."""

import pathlib
import sys

from enclosed import PROGRAMS, enter


def main() -> int:
    if len(sys.argv) < 3:
        print(__doc__, file=sys.stderr)
        return 2
    enter()

    import exact
    import machine
    from footprint import stripped_size
    from measuring import Plan, lanes, progress
    from report import grid
    from servers import Daemon

    folders = dict(argument.split("=", 1) for argument in sys.argv[2:])
    rows, base = [], None
    for name, folder in folders.items():
        program = str(pathlib.Path(folder) / "upnpvelorn")
        figures = [stripped_size(program)]
        for title, _, operate in exact.operations().values():
            progress(f"{name}: {title.lower()}")
            with lanes([Daemon(name, program)], Plan(PROGRAMS, 1, True), start=False) as all_lanes:
                figures.append(exact.instructions(all_lanes[0], operate))
        base = base or figures
        cells = [f"{figure:,.0f} ({figure / first:.3f})" for figure, first in zip(figures, base)]
        rows.append([name, *cells, f"`{machine.flags(pathlib.Path(folder))}`"])
    titles = [f"instructions: {title}" for title, _, _ in exact.operations().values()]
    text = grid(["", "stripped program, bytes", *titles, "flags"], rows)
    output = pathlib.Path(sys.argv[1])
    output.parent.mkdir(parents=True, exist_ok=True)
    output.write_text(text + "\n")
    print(text)
    return 0


if __name__ == "__main__":
    sys.exit(main())
