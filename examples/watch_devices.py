#!/usr/bin/env python3
"""Tells which devices come and go, as the daemon on this machine sees it. Ctrl-C ends it.

    on a device:                python3 examples/watch_devices.py
    in the demonstration:       ./run exec kelta-1 python3 examples/watch_devices.py
                                and in another terminal:  ./run join,  ./run unplug kelta-2

Needs python3-dbus and python3-gi. The daemon's signal says when its list has changed; only then it is asked.
"""

import signal
import sys
import time

import dbus
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

DAEMON = "com.zorv.upnpvelorn"


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
    daemon = bus.get_object(DAEMON, "/zorvscan", introspect=False)
    found = daemon.allChilds("", dbus_interface="local.ZorvScan", signature="s")
    return {one["uuid"]: printable(" ".join([one["name"], *addresses(one)])) for one in found}


def tell(text: str) -> None:
    print(time.strftime("%H:%M:%S"), text, flush=True)


class Watch:
    """Tells what has changed in the list since it was looked at last. A daemon that is away for a while is waited for."""

    def __init__(self, bus: dbus.Bus):
        self._bus, self._before, self._missed = bus, {}, False
        # Which devices the signal names does not matter here: all are asked for, so it may say that there were more.
        bus.add_signal_receiver(lambda *_uuids: self.look(), "DevicesChanged", f"{DAEMON}.Monitor", DAEMON, "/monitor")
        bus.watch_name_owner(DAEMON, self._owned)

    def _owned(self, _owner: str) -> None:
        if not self.look():
            GLib.timeout_add_seconds(1, lambda: not self.look())  # it has its name a moment before its objects

    def look(self) -> bool:
        """False while the daemon does not answer."""
        try:
            now = devices(self._bus)
        except dbus.DBusException as error:
            if not self._missed and self._bus.get_is_connected():
                tell(f"The daemon does not answer: {printable(error.get_dbus_message())}")
            self._missed = True
            return not self._bus.get_is_connected()
        for text in [f"- {text}" for uuid, text in self._before.items() if now.get(uuid) != text]:
            tell(text)
        for text in [f"+ {text}" for uuid, text in now.items() if self._before.get(uuid) != text]:
            tell(text)
        self._before, self._missed = now, False
        return True


def main() -> int:
    sys.stdout.reconfigure(errors="replace")
    try:
        bus = dbus.SystemBus(mainloop=DBusGMainLoop())
    except dbus.DBusException as error:
        print(f"There is no system bus: {printable(error.get_dbus_message())}", file=sys.stderr)
        return 1
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # ignored since the bus was connected to
    bus.set_exit_on_disconnect(False)
    ended = GLib.MainLoop()
    bus.call_on_disconnection(lambda _bus: ended.quit())
    Watch(bus)
    ended.run()
    print("The system bus has gone.", file=sys.stderr)
    return 1


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        pass
