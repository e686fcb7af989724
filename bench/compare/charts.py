"""Charts of the tables, as SVG."""

import math
from xml.sax.saxutils import escape

from report import ratio_text
from table import Table

_WIDTH, _LEFT, _RIGHT, _TOP, _ROW = 760, 170, 150, 46, 26
_SUBJECT, _OTHER, _FLOOR, _TEXT, _LINE = "#1f6fb4", "#9aa5b1", "#d6dbe0", "#222222", "#555555"
_SERIES = ("#9aa5b1", "#1f6fb4", "#c0712b", "#5b8c5a", "#8a5a9e")


def charts(tables: list) -> dict:
    """File name -> text."""
    made = {f"{table.name}.svg": _bars(table) for table in tables
            if table.base in table.lanes and table.subject in table.lanes and not table.name.startswith("json-")}
    known = [table for table in tables if table.name.startswith("known-")]
    if len(known) > 1:
        made["known-growth.svg"] = _growth(known)
    json_tables = [table for table in tables if table.name.startswith("json-")]
    if json_tables:
        made["json.svg"] = _json(json_tables)
    return made


def _svg(height: int, title: str, parts: list) -> str:
    return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {_WIDTH} {height}" font-family="sans-serif" font-size="13">\n'
            f'<rect width="{_WIDTH}" height="{height}" fill="white"/>\n' + _text(12, 22, title, "start", "bold") + "\n"
            + "\n".join(parts) + "\n</svg>\n")


def _text(x: float, y: float, text: str, anchor: str = "start", weight: str = "normal", colour: str = _TEXT) -> str:
    return (f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" font-weight="{weight}" fill="{colour}">{escape(text)}</text>')


def _line(x1: float, y1: float, x2: float, y2: float, colour: str = _LINE) -> str:
    return f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" stroke="{colour}"/>'


def _bar_rows(rows: list, title: str) -> str:
    """`rows` of (label, Ratio or None, colour). The line at 1 is what is compared with."""
    present = [ratio for _, ratio, _ in rows if ratio]
    scale = (_WIDTH - _LEFT - _RIGHT) / max([ratio.greatest for ratio in present] + [1])
    parts = []
    for number, (label, ratio, colour) in enumerate(rows):
        y = _TOP + number * _ROW
        parts.append(_text(_LEFT - 8, y + 14, label, "end"))
        if not ratio:
            continue
        parts.append(f'<rect x="{_LEFT}" y="{y + 2}" width="{ratio.median * scale:.1f}" height="{_ROW - 9}" fill="{colour}"/>')
        parts.append(_line(_LEFT + ratio.least * scale, y + 10.5, _LEFT + ratio.greatest * scale, y + 10.5))
        parts.append(_text(_WIDTH - 12, y + 14, ratio_text(ratio), "end"))
    bottom = _TOP + len(rows) * _ROW
    parts.append(_line(_LEFT + scale, _TOP - 4, _LEFT + scale, bottom))
    return _svg(bottom + 12, title, parts)


def _bars(table: Table) -> str:
    def colour(lane: str) -> str:
        return _SUBJECT if lane == table.subject else _FLOOR if lane == table.base else _OTHER
    rows = [(lane, table.ratio(lane, table.base), colour(lane)) for lane in table.lanes]
    return _bar_rows(rows, f"{table.title}: {table.columns[0].title}, {table.base} = 1")


def _json(tables: list) -> str:
    rows = [(table.title.removeprefix("JSON "), table.ratio(table.subject, table.base), _SUBJECT) for table in tables]
    return _bar_rows(rows, f"JSON: time of {tables[0].subject}, Qt = 1")


def _growth(tables: list) -> str:
    """Time of an announcement over the number of known devices, both logarithmic."""
    sizes = [int(table.name.split("-")[1]) for table in tables]
    lanes = list(dict.fromkeys(lane for table in tables for lane in table.lanes))
    values = [[(size, table.median(lane, "microseconds")) for size, table in zip(sizes, tables)] for lane in lanes]
    points = [[(size, value) for size, value in series if value] for series in values]
    every = [value for series in points for _, value in series]
    low, high = math.floor(math.log10(min(every))), math.ceil(math.log10(max(every)))
    bottom, left, right = 330, 70, _WIDTH - _RIGHT

    def x(size: float) -> float:
        span = math.log10(sizes[-1] / sizes[0])
        return left + (right - left) * math.log10(size / sizes[0]) / span

    def y(value: float) -> float:
        return bottom - (bottom - _TOP) * (math.log10(value) - low) / max(high - low, 1)

    parts = [_text(x(size), bottom + 20, f"{size:,}", "middle") for size in sizes]
    for power in range(low, high + 1):
        height = y(10 ** power)
        parts += [_line(left, height, right, height, _FLOOR), _text(left - 8, height + 4, f"{10 ** power:g}", "end")]
    for lane, series, colour in zip(lanes, points, _SERIES):
        path = " ".join(f"{x(size):.1f},{y(value):.1f}" for size, value in series)
        parts.append(f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="2"/>')
    for lane, end, colour in _labels(lanes, points, y):
        parts.append(_text(x(end[0]) + 8, end[1], lane, colour=colour))
    return _svg(bottom + 34, "Known announcements: µs of processor time each, by the number of known devices", parts)


def _labels(lanes: list, points: list, y) -> list:
    """Each at the end of its line, none over another."""
    ends = sorted(((lane, series[-1], colour) for lane, series, colour in zip(lanes, points, _SERIES) if series),
                  key=lambda end: y(end[1][1]))
    placed, last = [], 0
    for lane, (size, value), colour in ends:
        last = max(y(value) + 4, last + 15)
        placed.append((lane, (size, last), colour))
    return placed
