"""What the daemon costs the device: memory and processor time."""

import os
import pathlib
import resource

from simdevice.device import default_program

MEGABYTE = 1 << 20


def resident(device) -> int:
    """Bytes of memory that the daemon holds."""
    pages = int(pathlib.Path(f"/proc/{device.pid}/statm").read_text().split()[1])
    return pages * resource.getpagesize()


def cpu_seconds(device) -> float:
    fields = pathlib.Path(f"/proc/{device.pid}/stat").read_text().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def is_sanitized() -> bool:
    """Whether the daemon was built with the address sanitizer, which needs several times the memory."""
    return b"__asan_init" in pathlib.Path(default_program()).read_bytes()


def small_quarantine(monkeypatch) -> None:
    """The address sanitizer keeps freed memory for a while; devices started from now on do not."""
    options = os.environ.get("ASAN_OPTIONS", "")
    monkeypatch.setenv("ASAN_OPTIONS", ":".join(filter(None, [options, "quarantine_size_mb=1"])))
