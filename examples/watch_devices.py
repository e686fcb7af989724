#!/usr/bin/env python3
"""Tells which devices come and go, as the daemon on this machine sees it. Ctrl-C ends it.

    on a device:                python3 examples/watch_devices.py
    in the demonstration:       ./run exec kelta-1 python3 examples/watch_devices.py
                                and in another terminal:  ./run join,  ./run unplug kelta-2

Needs python3-dbus. The daemon sends no signal when its list changes, so it is asked every second.
"""

import signal
import sys
import time

import dbus


def printable(text: str) -> str:
    """What a stranger wrote, without anything that moves the cursor, colours the screen or turns the line around."""
    return "".join(character if character.isprintable() else "?" for character in text)


def addresses(device: dict) -> list:
    """The IPv4 addresses that are there: the rest of a summary is as the device announced it, of any type."""
    ipv4 = device.get("ipv4")
    entries = [one for one in ipv4 if isinstance(one, dict)] if isinstance(ipv4, list) else []
    return [one["address"] for one in entries if isinstance(one.get("address"), str)]


def devices(bus: dbus.Bus) -> dict:
    """Serial number -> what to print of the device."""
    daemon = bus.get_object("com.zorv.upnpvelorn", "/zorvscan", introspect=False)
    found = daemon.allChilds("", dbus_interface="local.ZorvScan", signature="s")
    return {one["uuid"]: printable(" ".join([one["name"], *addresses(one)])) for one in found}


def tell(text: str) -> None:
    print(time.strftime("%H:%M:%S"), text, flush=True)


def watch(bus: dbus.Bus) -> None:
    """Returns when the bus has gone. A daemon that is away for a while is waited for."""
    before, answering = {}, True
    while bus.get_is_connected():
        try:
            now = devices(bus)
        except dbus.DBusException as error:
            if answering:
                tell(f"The daemon does not answer: {printable(error.get_dbus_message())}")
            answering = False
        else:
            for text in [f"- {before[uuid]}" for uuid in before if now.get(uuid) != before[uuid]]:
                tell(text)
            for text in [f"+ {now[uuid]}" for uuid in now if before.get(uuid) != now[uuid]]:
                tell(text)
            before, answering = now, True
        time.sleep(1)


def main() -> int:
    sys.stdout.reconfigure(errors="replace")
    try:
        bus = dbus.SystemBus()
    except dbus.DBusException as error:
        print(f"There is no system bus: {printable(error.get_dbus_message())}", file=sys.stderr)
        return 1
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # ignored since the bus was connected to
    watch(bus)
    print("The system bus has gone.", file=sys.stderr)
    return 1


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        pass
