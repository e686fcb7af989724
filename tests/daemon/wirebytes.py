"""Comparing what was on the wire with what should have been, byte by byte."""

import datetime
import pathlib
import re

DATA = pathlib.Path(__file__).resolve().parent / "data"

_DAY = b"(?:Mon|Tue|Wed|Thu|Fri|Sat|Sun)"
_MONTH = b"(?:Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec)"
_DATE = _DAY + rb", (?:0[1-9]|[12]\d|3[01]) " + _MONTH + rb" \d{4} (?:[01]\d|2[0-3]):[0-5]\d:"
_DATES = {
    b"{DATE}": _DATE + rb"[0-5]\d",
    b"{DATE1}": _DATE + rb"(?:[1-5]\d|\d)",
}


def compare_bytes(got: bytes, expected: bytes) -> None:
    """Fails with both texts line by line and the first difference. {DATE} in `expected` stands for any date as in
    announcements, {DATE1} for one whose seconds below ten have one digit, as in answers to searches."""
    filled = _with_dates_of(got, expected)
    if got != filled:
        raise AssertionError(_report(got, filled))


def compare_with_file(got: bytes, name: str, **values: str) -> None:
    """compare_bytes() with data/`name`. Each {NAME} in the file is replaced by the value of that name."""
    compare_bytes(got, expected_message(name, **values))


def expected_message(name: str, **values: str) -> bytes:
    text = (DATA / name).read_bytes()
    for key, value in values.items():
        placeholder = b"{%s}" % key.encode()
        if placeholder not in text:
            raise KeyError(f"no {placeholder.decode()} in {name}")
        text = text.replace(placeholder, value if isinstance(value, bytes) else value.encode())
    return text


def date_in(message: bytes) -> datetime.datetime:
    """The local time of a message."""
    return datetime.datetime.strptime(re.search(_DATE + rb"\d{1,2}", message)[0].decode(), "%a, %d %b %Y %H:%M:%S")


def visible(data: bytes) -> str:
    """A text of one line per wire line, with everything that does not print made visible."""
    lines = data.split(b"\n")
    shown = [repr(line + b"\n")[2:-1] for line in lines[:-1]]
    return "\n".join(shown + ([repr(lines[-1])[2:-1]] if lines[-1] else []))


def _with_dates_of(got: bytes, expected: bytes) -> bytes:
    """`expected` with the dates that `got` has in the same places, as far as they have the right form."""
    filled = b""
    for piece in re.split(rb"(\{DATE1?\})", expected):
        form = _DATES.get(piece)
        match = re.compile(form).match(got, len(filled)) if form else None
        filled += match[0] if match else piece
    return filled


def _report(got: bytes, expected: bytes) -> str:
    at = next((i for i, (a, b) in enumerate(zip(got, expected)) if a != b), min(len(got), len(expected)))
    line = expected[:at].count(b"\n") + 1
    column = at - (expected[:at].rfind(b"\n") + 1) + 1
    return (f"first difference at byte {at}, line {line}, column {column}: "
            f"{got[at:at + 20]!r} instead of {expected[at:at + 20]!r}\n"
            f"--- got, {len(got)} bytes\n{visible(got)}\n--- expected, {len(expected)} bytes\n{visible(expected)}")
