"""Writes what was measured: every value as JSON, tables as Markdown, charts as SVG."""

import json
import pathlib

from charts import charts
from report import markdown
from table import Table

BEGIN = "<!-- figures: begin (written by bench/run --write-docs) -->"
END = "<!-- figures: end -->"
BEGIN_QT4 = "<!-- Qt 4.8: begin (written by bench/qt4 --write-docs) -->"
END_QT4 = "<!-- Qt 4.8: end -->"


def write(folder: pathlib.Path, machine: dict, tables: list) -> None:
    folder.mkdir(parents=True, exist_ok=True)
    everything = {"machine": machine, "tables": [table.as_json() for table in tables]}
    (folder / "figures.json").write_text(json.dumps(everything, indent=1, ensure_ascii=False) + "\n")
    (folder / "figures.md").write_text(markdown(machine, tables))
    for name, text in charts(tables).items():
        (folder / name).write_text(text)


def read(folder: pathlib.Path) -> tuple:
    """Machine and tables of an earlier run."""
    everything = json.loads((folder / "figures.json").read_text())
    return everything["machine"], [Table.from_json(table) for table in everything["tables"]]


def write_docs(docs: pathlib.Path, machine: dict, tables: list) -> None:
    """Replaces the block between the two marks of docs/performance-tables.md, and the charts that the page shows."""
    _replace(docs, BEGIN, END, markdown(machine, tables))
    folder = docs / "performance"
    folder.mkdir(exist_ok=True)
    shown = (docs / "performance-tables.md").read_text()
    for name, text in charts(tables).items():
        if f"performance/{name}" in shown:
            (folder / name).write_text(text)


def write_docs_qt4(docs: pathlib.Path, text: str) -> None:
    """The same for the block with Qt 4.8."""
    _replace(docs, BEGIN_QT4, END_QT4, text)


def _replace(docs: pathlib.Path, begin: str, end: str, text: str) -> None:
    page = docs / "performance-tables.md"
    before, found, rest = page.read_text().partition(begin)
    _, found_end, after = rest.partition(end)
    if not found or not found_end:
        raise SystemExit(f"{page} needs these two lines, between which the tables go:\n{begin}\n{end}")
    page.write_text(f"{before}{begin}\n\n{text}\n{end}{after}")
