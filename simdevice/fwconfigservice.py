"""The process that plays the maker's configuration service on the bus.

Started by simdevice.fwconfig, which orders it about with one JSON object per line on the standard input; each order
gets one line on the standard output. When the input ends, so does the service.
"""

import json
import pathlib
import signal
import sys

sys.path[0] = str(pathlib.Path(__file__).resolve().parent.parent)

import dbus.lowlevel
from gi.repository import GLib

from simdevice.bus import PROPERTIES, Connection
from simdevice.values import Typed, from_dbus, from_json, to_dbus, typed

NAME = "com.zorv.fwconfig"

_METHODS = {
    "/systemvariables": {"get": ("s", "s"), "set": ("ss", ""), "save": ("", "")},
    "/systemconstants": {"get": ("s", "s")},
}
_PROPERTIES = {"hostname": "s", "zorvversion": "s"}


class CallError(Exception):
    def __init__(self, name: str, text: str):
        super().__init__(text)
        self.name = name


class Service:
    def __init__(self, address: str):
        self.values = {}
        self.behaviours = {}
        self.calls = []
        self._held = []
        connection = Connection(address)
        self._bus = connection.raw
        self._bus.add_message_filter(self._filter)
        if not connection.own(NAME):
            sys.exit(f"{NAME} has another owner")

    def order(self, line: str):
        """Carries out one order; returns what is to be written as its answer."""
        order = json.loads(line)
        if "values" in order:
            self.values.update(from_json(order["values"]))
        if "behaviours" in order:
            self.behaviours = order["behaviours"]
            held, self._held = self._held, []
            for question in held:
                self._treat(*question)
        if "forget" in order:
            self.calls.clear()
        return self.calls

    def _filter(self, _connection, message):
        if message.get_type() != 1:
            return dbus.lowlevel.HANDLER_RESULT_NOT_YET_HANDLED
        path, interface, member = message.get_path(), message.get_interface(), message.get_member()
        arguments = [from_dbus(value) for value in message.get_args_list()]
        self.calls.append([path, interface, member, arguments])
        self._treat(message, path, interface, member, arguments)
        return dbus.lowlevel.HANDLER_RESULT_HANDLED

    def _treat(self, message, path: str, interface: str, member: str, arguments: list) -> None:
        how = self.behaviours.get(f"{path}.{member}", self.behaviours.get("", {}))
        if "error" in how:
            self._send(dbus.lowlevel.ErrorMessage(message, how["error"], "switched to failing"))
        elif "seconds" in how:
            GLib.timeout_add(int(how["seconds"] * 1000), self._answer, message, path, interface, member, arguments)
        elif "held" in how:
            self._held.append((message, path, interface, member, arguments))
        elif "silent" not in how:
            self._answer(message, path, interface, member, arguments)

    def _answer(self, message, path: str, interface: str, member: str, arguments: list) -> bool:
        try:
            result = self._result(path, interface, member, arguments, str(message.get_signature()))
            reply = dbus.lowlevel.MethodReturnMessage(message)
            if result is not None:
                reply.append(to_dbus(*result), signature=result.signature)
        except CallError as error:
            reply = dbus.lowlevel.ErrorMessage(message, error.name, str(error))
        self._send(reply)
        return False

    def _send(self, reply) -> None:
        self._bus.send_message(reply)

    def _result(self, path: str, interface: str, member: str, arguments: list, signature: str) -> Typed:
        if path not in ("/systemvariables", "/fwversion", "/systemconstants", "/network"):
            raise CallError("org.freedesktop.DBus.Error.UnknownObject", f"no object {path}")
        if member == "Introspect":
            return Typed("s", introspection(path))
        if path == "/network" and (interface, member, signature) == (PROPERTIES, "GetAll", "ss"):
            return self._network(arguments)
        if path == "/fwversion" and interface == PROPERTIES:
            return self._firmware(member, arguments, signature)
        known = _METHODS.get(path, {}).get(member)
        if known is None or known[0] != signature or interface not in (None, NAME + path.replace("/", ".")):
            raise CallError("org.freedesktop.DBus.Error.UnknownMethod", f"no {interface}.{member}({signature}) at {path}")
        return getattr(self, f"_{member}")(path[1:], *arguments)

    def _network(self, arguments: list) -> Typed:
        if arguments != ["com.zorv.fwconfig.network", "local.NetworkInterface"]:
            raise CallError("org.freedesktop.DBus.Error.InvalidArgs", f"no properties for {arguments}")
        return typed(self.values["network"])

    def _firmware(self, member: str, arguments: list, signature: str) -> Typed:
        if arguments[:1] != [NAME + ".fwversion"]:
            raise CallError("org.freedesktop.DBus.Error.UnknownInterface", f"no such interface: {arguments}")
        present = {name: self.values[name] for name in _PROPERTIES if self.values[name] is not None}
        if (member, signature) == ("GetAll", "s"):
            return Typed("a{sv}", present)
        if (member, signature) == ("Get", "ss") and arguments[1] in present:
            return Typed("v", present[arguments[1]])
        raise CallError("org.freedesktop.DBus.Error.UnknownProperty", f"no such property: {arguments}")

    def _get(self, table: str, name: str) -> Typed:
        return typed(self.values[table].get(name, ""))

    def _set(self, table: str, name: str, value: str) -> None:
        self.values[table][name] = value

    def _save(self, _table: str) -> None:
        pass


def introspection(path: str) -> str:
    if path == "/network":
        body = (f'<interface name="{PROPERTIES}"><method name="GetAll"><arg type="s" direction="in"/>'
                '<arg type="s" direction="in"/><arg type="a{sv}" direction="out"/></method></interface>')
    else:
        members = "".join(f'<property name="{name}" type="{kind}" access="read"/>'
                          for name, kind in (_PROPERTIES.items() if path == "/fwversion" else ()))
        for name, (taken, given) in _METHODS.get(path, {}).items():
            arguments = "".join(f'<arg type="{kind}" direction="in"/>' for kind in taken)
            arguments += "".join(f'<arg type="{kind}" direction="out"/>' for kind in given)
            members += f'<method name="{name}">{arguments}</method>'
        body = f'<interface name="{NAME}{path.replace("/", ".")}">{members}</interface>'
    return f"<node>{body}</node>"


def main() -> None:
    signal.signal(signal.SIGINT, signal.SIG_DFL)
    service = Service(sys.argv[1])
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # ends with whoever reads; ignored since the bus was connected to
    loop = GLib.MainLoop()

    def read(_source, _condition) -> bool:
        line = sys.stdin.readline()
        if not line:
            loop.quit()
            return False
        print(json.dumps(service.order(line)), flush=True)
        return True

    print("ready", flush=True)
    GLib.io_add_watch(0, GLib.IO_IN | GLib.IO_HUP, read)
    loop.run()


if __name__ == "__main__":
    main()
