"""What `bench/run --write-docs` and `bench/qt4 --write-docs` change in docs/, with figures that nobody has measured."""

import shutil
import sys

import pytest

from checkout import ROOT

sys.path.insert(0, str(ROOT / "bench" / "compare"))

import output
from table import Column, Table

MACHINE = {"commit": "abc", "packages": {"libc6": "1"}}


@pytest.fixture
def docs(tmp_path):
    shutil.copy(ROOT / "docs" / "performance-tables.md", tmp_path)
    return tmp_path


def table(name: str) -> Table:
    made = Table(name, name.capitalize(), [Column("microseconds", "µs", 1)], "floor", "upnpvelorn")
    made.add("floor", microseconds=2)
    made.add("upnpvelorn", microseconds=5)
    return made


def parts(docs, begin: str, end: str) -> tuple:
    """What is before, between and behind the two marks."""
    before, _, rest = (docs / "performance-tables.md").read_text().partition(begin)
    between, _, after = rest.partition(end)
    return before, between, after


def test_tables_and_charts(docs):
    before, _, after = parts(docs, output.BEGIN, output.END)
    output.write_docs(docs, MACHINE, [table("searches-busy"), table("elsewhere")])
    new_before, between, new_after = parts(docs, output.BEGIN, output.END)
    assert (new_before, new_after) == (before, after)
    assert "| upnpvelorn | 5.0 | 2.50 |  |" in between and "- commit: abc" in between
    assert [file.name for file in (docs / "performance").iterdir()] == ["searches-busy.svg"]  # the page shows no other one


def test_qt4_table(docs):
    before, _, after = parts(docs, output.BEGIN_QT4, output.END_QT4)
    output.write_docs_qt4(docs, "the table")
    assert parts(docs, output.BEGIN_QT4, output.END_QT4) == (before, "\n\nthe table\n", after)


def test_page_without_marks(docs):
    (docs / "performance-tables.md").write_text("")
    with pytest.raises(SystemExit, match="needs these two lines"):
        output.write_docs_qt4(docs, "the table")
