"""Which of the changes are tried."""

import pathlib
import random
import re
import subprocess

import operators
from tree import FOLDERS, ROOT

GENERATED = ("json/jsongrammar.cpp", "json/jsongrammar_p.h")


def files(root: pathlib.Path = ROOT) -> list:
    found = {str(path.relative_to(root)) for folder in FOLDERS for kind in ("*.cpp", "*.h") for path in (root / folder).rglob(kind)}
    return sorted(found - set(GENERATED))


def every(root: pathlib.Path = ROOT) -> list:
    return [mutant for name in files(root) for mutant in operators.mutants(name, (root / name).read_text())]


def sample(mutants: list, seed: int, count: int) -> list:
    """In an order of its own, so that the first ones are a sample as well. The same for the same seed and sources."""
    return random.Random(seed).sample(mutants, min(count, len(mutants)))


def of_lines(mutants: list, ranges: list) -> list:
    """ranges: (file, first line, last line)"""
    return [mutant for mutant in mutants
            if any(mutant.file == file and first <= mutant.line <= last for file, first, last in ranges)]


def parsed_lines(text: str) -> tuple:
    """FILE:FROM-TO, FILE:LINE or FILE"""
    match = re.fullmatch(r"([^:]+)(?::(\d+)(?:-(\d+))?)?", text)
    if not match:
        raise ValueError(f"not FILE:FROM-TO: {text}")
    file, first, last = match.groups()
    return (file, int(first), int(last or first)) if first else (file, 1, 1 << 30)


def changed_lines(revisions: str, root: pathlib.Path = ROOT) -> list:
    """Of A..B, or of A up to what stands in the folder now. B must be what stands there."""
    first, dots, last = revisions.partition("..")
    if last and subprocess.run(["git", "diff", "--quiet", last, "--", *FOLDERS], cwd=root).returncode:
        raise ValueError(f"the sources are not those of {last}")
    diff = subprocess.run(["git", "diff", "-U0", "--no-color", first, *([last] if last else []), "--", *FOLDERS], cwd=root, check=True,
                          capture_output=True, text=True).stdout
    return parsed_diff(diff)


def parsed_diff(diff: str) -> list:
    ranges = []
    file = ""
    for line in diff.splitlines():
        if line.startswith("+++ b/"):
            file = line[6:]
        match = re.match(r"@@ -\S+ \+(\d+)(?:,(\d+))? @@", line)
        if match:
            first, count = int(match[1]), int(match[2] or 1)
            if count:
                ranges.append((file, first, first + count - 1))
    return ranges


class Equivalents:
    """The changes that were looked at and that nobody could notice.

    Each in the form of a diff without numbers, and behind it why:

        FILE
        -the line as it is
        +the line as it would be
         why nobody could see the difference
    """

    def __init__(self, text: str):
        self.reasons = {}
        self._used = set()
        file, old, new, reason = "", [], [], []
        for line in [*text.splitlines(), ""]:
            if line.startswith("#"):
                continue
            if line.startswith("-"):
                old.append(line[1:].strip())
            elif line.startswith("+"):
                new.append(line[1:].strip())
            elif line.startswith(" "):
                reason.append(line.strip())
            else:
                self._add(file, old, new, reason)
                old, new, reason = [], [], []
                file = line.strip() or file

    def _add(self, file: str, old: list, new: list, reason: list) -> None:
        if not old and not new:
            return
        if not reason or not file:
            raise ValueError(f"no reason or no file: {old}")
        self.reasons[file, "\n".join(old), "\n".join(new).strip()] = " ".join(reason)

    def reason(self, mutant) -> str:
        key = (mutant.file, mutant.old_lines, mutant.new_lines)
        self._used.add(key)
        return self.reasons.get(key, "")

    def outdated(self, mutants: list) -> list:
        """Those that no mutant is any more."""
        there = {(mutant.file, mutant.old_lines, mutant.new_lines) for mutant in mutants}
        return [key for key in self.reasons if key not in there]
