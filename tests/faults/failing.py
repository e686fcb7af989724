"""A daemon of which chosen calls of the C library fail."""

import mmap
import os
import pathlib
import re
import struct

import pytest

from burdens import is_sanitized
from clocks import LIBRARY as CLOCK
from simdevice.device import default_program

HERE = pathlib.Path(__file__).resolve().parent

# What the daemon, Qt and libdbus call. The order of the table in the file, which the library finds by name.
FUNCTIONS = tuple(dict.fromkeys(
    match[2] or match[1] for match in
    re.finditer(r'^FAILING(?:_AS)?\((\w+)(?:, "(\w+)")?', (HERE / "failing.cpp").read_text(), re.MULTILINE)))

_ORDER = struct.Struct("24siiii")
_COUNT = struct.Struct("i")
_FUNCTION = struct.Struct("24si")
_SEQUENCE = _ORDER.size + _COUNT.size + 64 * _FUNCTION.size
_LONGEST_SEQUENCE = 16384
_SIZE = _SEQUENCE + _COUNT.size + _LONGEST_SEQUENCE


def preloaded_file() -> pathlib.Path:
    """Where the build of the tested daemon has put it."""
    return pathlib.Path(os.environ.get("FAILING_LIBRARY")
                        or pathlib.Path(default_program()).parent / "tests" / "faults" / "libfailing.so")


needs_failing = [pytest.mark.skipif(not preloaded_file().exists(), reason="the library that lets calls fail is not built"),
                 pytest.mark.skipif(is_sanitized(), reason="the sanitizers want to be loaded before any other library")]


class Failing:
    """The orders for one daemon, and what it has called.

    `program` is the daemon's program with the library; with `times`, its clocks and timers go so many times faster.
    """

    def __init__(self, folder: pathlib.Path, times: int = 1):
        self._file = folder / "failing"
        self._file.write_bytes(bytes(_SIZE))
        with open(self._file, "r+b") as file:
            self._map = mmap.mmap(file.fileno(), _SIZE)
        for number, name in enumerate(FUNCTIONS):
            _FUNCTION.pack_into(self._map, self._place(number), name.encode(), 0)
        _COUNT.pack_into(self._map, _ORDER.size, len(FUNCTIONS))
        self.program = str(folder / "upnpvelorn-failing")
        self._write_program(times)

    def _write_program(self, times: int) -> None:
        preloaded = [str(preloaded_file())]
        lines = ["#!/bin/sh", f'export FAILING="{self._file}"']
        if times != 1:
            preloaded.append(str(CLOCK))
            lines.append(f'export FAKETIME="+0 x{times}"')
        lines += [f'export LD_PRELOAD="{" ".join(preloaded)}"', f'exec "{default_program()}"']
        pathlib.Path(self.program).write_text("\n".join(lines) + "\n")
        os.chmod(self.program, 0o755)

    @staticmethod
    def _place(number: int) -> int:
        return _ORDER.size + _COUNT.size + number * _FUNCTION.size

    def order(self, function: str, error: int, call: int = 1, times: int = 1) -> None:
        """The call-th call of `function` from now on fails with `error`, and times - 1 further ones after it."""
        self.nothing()
        _ORDER.pack_into(self._map, 0, function.encode(), 0, times, error, 0)
        struct.pack_into("i", self._map, 24, call)

    def nothing(self) -> None:
        """No call fails any more."""
        struct.pack_into("i", self._map, 24, 0)

    @property
    def failed(self) -> int:
        """How many calls have failed since the last order."""
        return _ORDER.unpack_from(self._map, 0)[4]

    @property
    def calls(self) -> dict:
        """The number of calls of each function since forget_calls()."""
        return {name: _FUNCTION.unpack_from(self._map, self._place(number))[1]
                for number, name in enumerate(FUNCTIONS)}

    @property
    def sequence(self) -> list:
        """The names of the functions that were called since forget_calls(), one for each call."""
        count = min(_COUNT.unpack_from(self._map, _SEQUENCE)[0], _LONGEST_SEQUENCE)
        begin = _SEQUENCE + _COUNT.size
        return [FUNCTIONS[number] for number in self._map[begin:begin + count]]

    def forget_calls(self) -> None:
        _COUNT.pack_into(self._map, _SEQUENCE, 0)
        for number in range(len(FUNCTIONS)):
            struct.pack_into("i", self._map, self._place(number) + 24, 0)
