#!/usr/bin/env python3
"""Tells which devices come and go, as the daemon on this machine sees it. Ctrl-C ends it.

    on a device:                python3 examples/watch_devices.py
    in the demonstration:       ./run exec kelta-1 python3 examples/watch_devices.py
                                and in another terminal:  ./run join,  ./run unplug kelta-2

Needs python3-dbus. The daemon sends no signal when its list changes, so it is asked every second.
"""

import time

import dbus


def devices(bus: dbus.Bus) -> dict:
    """Serial number -> what to print of the device. None while the daemon does not answer."""
    try:
        daemon = bus.get_object("com.zorv.upnpvelorn", "/zorvscan", introspect=False)
        found = daemon.allChilds("", dbus_interface="local.ZorvScan", signature="s")
    except dbus.DBusException:
        return None
    return {one["uuid"]: " ".join([one["name"], *(ip["address"] for ip in one.get("ipv4", []))]) for one in found}


def main() -> None:
    bus, before = dbus.SystemBus(), {}
    while True:
        now = devices(bus)
        if now is not None:
            for text in [f"- {before[uuid]}" for uuid in before if now.get(uuid) != before[uuid]]:
                print(time.strftime("%H:%M:%S"), text, flush=True)
            for text in [f"+ {now[uuid]}" for uuid in now if before.get(uuid) != now[uuid]]:
                print(time.strftime("%H:%M:%S"), text, flush=True)
            before = now
        time.sleep(1)


if __name__ == "__main__":
    try:
        main()
    except KeyboardInterrupt:
        pass
