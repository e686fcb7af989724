"""What somebody who watches a demonstration sees.

On a terminal: lines that stay, and below them a part that is redrawn. Elsewhere (a pipe, a file): plain lines, and
the lower part only when it has changed.
"""

import os
import re
import shutil
import sys
import textwrap
import time

WIDTH = 100
_SETTLED = 1.0     # seconds without a change after which a changed table is printed
_QUOTED = 24       # lines of another program's output
_PROGRESS = 10.0   # seconds between two printed lines of progress
_STYLES = {"bold": "1", "dim": "2", "red": "31", "green": "32"}
_ESCAPES = re.compile(r"\x1b\[[0-9;]*m")


class Screen:
    def __init__(self, stream=sys.stdout):
        stream.reconfigure(errors="replace", line_buffering=True)
        self._out = stream
        self._live = stream.isatty() and os.environ.get("TERM", "dumb") != "dumb"
        self._coloured = self._live and "NO_COLOR" not in os.environ
        self._started = time.monotonic()
        self._table, self._changed, self._printed = [], 0.0, []
        self._progress, self._progress_printed = "", 0.0
        self._drawn = []

    # Lines that stay

    def heading(self, text: str) -> None:
        self._lines(["", *(self.style("bold", line) for line in _wrapped(text, self._width))])

    def text(self, text: str) -> None:
        self._lines(_wrapped(text, self._width))

    def event(self, text: str, style: str = "") -> None:
        """Something that happened, with its time."""
        stamp = f"{time.monotonic() - self._started:6.1f} s  "
        lines = _wrapped(text, self._width - len(stamp))
        first, rest = [stamp + self.style(style, line) for line in lines[:1]], lines[1:]
        self._lines(first + [" " * len(stamp) + self.style(style, line) for line in rest])

    def good(self, text: str) -> None:
        self.event(f"✓ {text}", "green")

    def bad(self, text: str) -> None:
        self.event(f"✗ {text}", "red")

    def quote(self, text: str) -> None:
        """What another program printed or what came over the wire, word for word."""
        lines = [clean(line.expandtabs().rstrip()) for line in text.strip("\r\n").splitlines()]
        if len(lines) > _QUOTED:
            lines = [*lines[:_QUOTED - 1], f"… and {len(lines) - _QUOTED + 1} more lines"]
        folded = [piece for line in lines for piece in _folded(line, self._width - 6)]
        self._lines([self.style("dim", f"    | {line}") for line in folded])

    def blank(self) -> None:
        self._lines([""])

    def commands(self, commands: list) -> None:
        """Pairs of a command, to be copied, and what it does: beside it, or below it in a narrow window."""
        told = [pair for pair in commands if pair[1]]
        column = max(len(command) for command, _ in told) + 4
        beside = column + max(len(meaning) for _, meaning in told) <= self._width - 4
        for command, meaning in commands:
            if beside and len(command) < self._width - 4:
                self._lines([f"    {command:<{column}}{meaning}".rstrip()])
            else:
                self._lines([f"    {line}" for line in _continued(command, self._width - 4)])
                self._lines([f"        {line}" for line in _wrapped(meaning, self._width - 8)])

    # The part that is redrawn

    def table(self, lines: list) -> None:
        if lines != self._table:
            self._table, self._changed = lines, time.monotonic()
        if self._live:
            self._redraw()
        elif time.monotonic() - self._changed > _SETTLED:
            self.print_table()

    def print_table(self) -> None:
        """Leaves the table as it is now among the lines that stay."""
        if self._table != self._printed:
            self._printed = self._table
            self._lines(["", *self._table, ""])

    def progress(self, text: str = "") -> None:
        self._progress = text
        if self._live:
            self._redraw()
        elif text and time.monotonic() - self._progress_printed > _PROGRESS:
            self._progress_printed = time.monotonic()
            self.event(text)

    def style(self, name: str, text: str) -> str:
        return f"\x1b[{_STYLES[name]}m{text}\x1b[0m" if name and self._coloured else text

    @property
    def _width(self) -> int:
        return min(WIDTH, shutil.get_terminal_size((WIDTH, 24)).columns - 1) if self._live else WIDTH

    def _lines(self, lines: list) -> None:
        if self._live:
            self._erase()
        self._out.write("".join(line + "\n" for line in lines))
        if self._live:
            self._draw()

    def _redraw(self) -> None:
        if self._lower_part() != self._drawn:
            self._erase()
            self._draw()

    def _lower_part(self) -> list:
        height = shutil.get_terminal_size((WIDTH, 24)).lines - 3
        table = self._table[:height]
        if len(table) < len(self._table):
            table[-1] = f"… {len(self._table) - len(table) + 1} more rows in a higher window"
        lines = [*table, *_wrapped(self._progress, self._width)]
        return ["", *(_cut(line, self._width) for line in lines)] if lines else []

    def _draw(self) -> None:
        self._drawn = self._lower_part()
        self._out.write("".join(line + "\n" for line in self._drawn))
        self._out.flush()

    def _erase(self) -> None:
        if self._drawn:
            self._out.write(f"\x1b[{len(self._drawn)}A\x1b[J")
            self._drawn = []


def clean(text: str) -> str:
    """Texts may come from strangers: nothing in them moves the cursor, colours the screen or turns a line around."""
    return "".join(character if character.isprintable() else "?" for character in text)


def _wrapped(text: str, width: int) -> list:
    return textwrap.wrap(clean(text), width, break_long_words=False, break_on_hyphens=False)


def _folded(line: str, width: int) -> list:
    """As it is if there is room for it, else in several lines. A word that is too long for one is cut."""
    if len(line) <= width:
        return [line]
    pieces = textwrap.wrap(line, width, subsequent_indent="  ", replace_whitespace=False, break_long_words=False,
                           break_on_hyphens=False)
    return [_cut(piece, width) for piece in pieces]


def _continued(command: str, width: int) -> list:
    """A command in lines that the shell takes for one."""
    if len(command) <= width:
        return [command]
    lines = textwrap.wrap(command, width - 2, subsequent_indent="    ", break_long_words=False, break_on_hyphens=False)
    return [f"{line} \\" for line in lines[:-1]] + lines[-1:]


def _cut(line: str, width: int) -> str:
    """A line that is too long loses its colours with its end."""
    visible = _ESCAPES.sub("", line)
    return line if len(visible) <= width else visible[:width - 1] + "…"
