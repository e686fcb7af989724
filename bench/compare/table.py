"""What was measured: a table of lanes with a list of values, one for each round, for each column."""

import statistics
from typing import NamedTuple


class Ratio(NamedTuple):
    """Median, least and greatest of the ratios of the single rounds."""

    median: float
    least: float
    greatest: float


class Column(NamedTuple):
    key: str
    title: str
    digits: int = 1


class Table:
    """`columns`: the first one is compared: with the lane `base`, and the lane `subject` with each other one."""

    def __init__(self, name: str, title: str, columns: list, base: str = "", subject: str = ""):
        self.name = name
        self.title = title
        self.columns = columns
        self.base = base
        self.subject = subject
        self.rounds = {}

    def add(self, lane: str, **values) -> None:
        """The values of one round. A lane that failed in it has none, so that rounds stay side by side."""
        self.rounds.setdefault(lane, []).append(values)

    @property
    def lanes(self) -> list:
        return [lane for lane, rounds in self.rounds.items() if any(rounds)]

    def values(self, lane: str, key: str) -> list:
        return [values.get(key) for values in self.rounds.get(lane, [])]

    def median(self, lane: str, key: str) -> float:
        """None when there is no value."""
        present = [value for value in self.values(lane, key) if value is not None]
        return statistics.median(present) if present else None

    def ratio(self, lane: str, to: str, key: str = "") -> Ratio:
        """Of the first column if no other is named, None when the two have no round in common."""
        key = key or self.columns[0].key
        pairs = zip(self.values(lane, key), self.values(to, key))
        ratios = [value / other for value, other in pairs if value is not None and other]
        return Ratio(statistics.median(ratios), min(ratios), max(ratios)) if ratios else None

    @classmethod
    def from_json(cls, found: dict) -> "Table":
        columns = [Column(**column) for column in found["columns"]]
        made = cls(found["name"], found["title"], columns, found["base"], found["subject"])
        made.rounds = found["rounds"]
        return made

    def as_json(self) -> dict:
        return {"name": self.name, "title": self.title, "base": self.base, "subject": self.subject,
                "columns": [column._asdict() for column in self.columns], "rounds": self.rounds}
