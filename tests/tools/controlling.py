"""Runs upnpvelornctl on a device, with or without a terminal."""

import os
import pathlib

import pytest

import shortlived
from browsing import Browser
from simdevice.device import Device, default_program

PROGRAM = pathlib.Path(os.environ.get("UPNPVELORNCTL") or pathlib.Path(default_program()).parent / "upnpvelornctl")

# An emulated daemon has its tool beside it, but nothing that runs it.
runs_here = pytest.mark.skipif(default_program().endswith("-emulated"), reason="upnpvelornctl is built for another processor")


class Ctl(Browser):
    """`environment`: more variables for every run."""

    def __init__(self, device: Device, **environment: str):
        leaks = shortlived.environment()["LSAN_OPTIONS"]
        super().__init__(device.host, **{"DBUS_SYSTEM_BUS_ADDRESS": device.bus.address, "LSAN_OPTIONS": leaks, **environment})
        self._prefix = device.room.prefix

    def command(self, *arguments: str) -> list:
        return [*self._prefix, str(PROGRAM), *arguments]
