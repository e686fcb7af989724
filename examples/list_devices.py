#!/usr/bin/env python3
"""Lists the devices that the daemon on this machine has heard of, itself among them.

    on a device:                python3 examples/list_devices.py
    in the demonstration:       ./run exec kelta-1 python3 examples/list_devices.py

Needs python3-dbus. One line for each device: name, serial number, type, firmware version, IPv4 addresses.
"""

import sys

import dbus


def devices() -> list:
    """One dictionary for each device. The empty text means: of every family, not only "Kelta"."""
    daemon = dbus.SystemBus().get_object("com.zorv.upnpvelorn", "/zorvscan", introspect=False)
    return daemon.allChilds("", dbus_interface="local.ZorvScan", signature="s")


def main() -> int:
    try:
        found = devices()
    except dbus.DBusException as error:
        print(f"The daemon does not answer: {error.get_dbus_message()}", file=sys.stderr)
        return 1
    for device in sorted(found, key=lambda one: one["name"]):
        addresses = ", ".join(one["address"] for one in device.get("ipv4", []))
        print(f"{device['name']:<16} {device['uuid']:<12} {device['type']:<14} {device['version']:<8} {addresses}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
