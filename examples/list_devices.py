#!/usr/bin/env python3
"""Lists the devices that the daemon on this machine has heard of, itself among them.

    on a device:                python3 examples/list_devices.py
    in the demonstration:       ./run exec kelta-1 python3 examples/list_devices.py

Needs python3-dbus. One line for each device: name, serial number, type, firmware version, IPv4 addresses.
"""

import signal
import sys

import dbus


def devices() -> list:
    """One dictionary for each device. The empty text means: of every family, not only "Kelta"."""
    daemon = dbus.SystemBus().get_object("com.zorv.upnpvelorn", "/zorvscan", introspect=False)
    return daemon.allChilds("", dbus_interface="local.ZorvScan", signature="s")


def printable(text: str) -> str:
    """What a stranger wrote, without anything that moves the cursor, colours the screen or turns the line around."""
    return "".join(character if character.isprintable() else "?" for character in text)


def addresses(device: dict) -> list:
    """The IPv4 addresses that are there: the rest of a summary is as the device announced it, of any type."""
    ipv4 = device.get("ipv4")
    entries = [one for one in ipv4 if isinstance(one, dict)] if isinstance(ipv4, list) else []
    return [one["address"] for one in entries if isinstance(one.get("address"), str)]


def line(device: dict) -> str:
    name, serial, kind, version = (printable(device[key]) for key in ("name", "uuid", "type", "version"))
    return f"{name:<16} {serial:<12} {kind:<14} {version:<8} {printable(', '.join(addresses(device)))}"


def main() -> int:
    signal.signal(signal.SIGINT, signal.SIG_DFL)
    sys.stdout.reconfigure(errors="replace")
    try:
        found = devices()
    except dbus.DBusException as error:
        print(f"The daemon does not answer: {printable(error.get_dbus_message())}", file=sys.stderr)
        return 1
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # ignored since the bus was connected to
    for device in sorted(found, key=lambda one: one["name"]):
        print(line(device))
    return 0


if __name__ == "__main__":
    sys.exit(main())
