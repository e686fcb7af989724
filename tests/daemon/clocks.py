"""Daemons whose clocks are not those of the machine."""

import itertools
import os
import pathlib

import pytest

from burdens import is_sanitized
from simdevice.device import default_program

LIBRARY = next(pathlib.Path("/usr/lib").glob("*/faketime/libfaketime.so.1"), None)

needs_clocks = [pytest.mark.skipif(LIBRARY is None, reason="the package libfaketime is not installed"),
                pytest.mark.skipif(is_sanitized(), reason="the sanitizers want to be loaded before any other library")]

_versions = itertools.count()


def _program(folder: pathlib.Path, **environment) -> pathlib.Path:
    """The daemon's program, started with further environment variables."""
    made = folder / "upnpvelorn"
    made.write_text("#!/bin/sh\n" + "".join(f'export {name}="{value}"\n' for name, value in environment.items())
                    + f'exec "{default_program()}"\n')
    made.chmod(0o755)
    return made


class WallClock:
    """The daemon's wall clock, so many seconds ahead of the real one. Its timers follow the real clock."""

    def __init__(self, folder: pathlib.Path):
        self._file = folder / "clock"
        self.set(0)
        self.program = _program(folder, LD_PRELOAD=LIBRARY, FAKETIME_TIMESTAMP_FILE=self._file, FAKETIME_NO_CACHE=1,
                                FAKETIME_DONT_FAKE_MONOTONIC=1, DONT_FAKE_MONOTONIC=1)

    def set(self, seconds: int) -> None:
        new = self._file.with_suffix(f".{next(_versions)}")
        new.write_text(f"{seconds:+d}\n")
        os.replace(new, self._file)


def hurried_program(folder: pathlib.Path, times: int) -> str:
    """A daemon all of whose clocks and timers go so many times faster."""
    return str(_program(folder, LD_PRELOAD=LIBRARY, FAKETIME=f"+0 x{times}"))
