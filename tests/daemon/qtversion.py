"""What the daemon's version of Qt makes of an address."""

import pathlib


def has_qt4(device) -> bool:
    return "/libQtCore.so.4" in pathlib.Path(f"/proc/{device.pid}/maps").read_text()


def as_qt_writes(device, address: str) -> str:
    """Qt 4 writes IPv6 addresses in upper case."""
    return address.upper() if has_qt4(device) else address
