"""The device's system bus: a private dbus-daemon with the limits of the usual one, and no restrictions but those asked for."""

import contextlib
import os
import pathlib
import subprocess
from typing import Any, NamedTuple

import dbus
import dbus.bus
import dbus.lowlevel
from dbus.mainloop.glib import DBusGMainLoop

from simdevice.values import from_dbus, to_dbus, typed
from simdevice.waiting import dispatch, wait_for

DRIVER = ("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus")
PROPERTIES = "org.freedesktop.DBus.Properties"

_CONFIGURATION = """\
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path={socket}</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*" eavesdrop="true"/>
    <allow receive_sender="*" eavesdrop="true"/>
  </policy>
{policy}
</busconfig>
"""

# What a system bus allows by itself: to talk to the bus, to send signals and to answer. Everything else is up to the
# policies of the services, of which only root's are here.
RESTRICTED = """\
  <policy context="default">
    <deny own="*"/>
    <deny send_type="method_call"/>
    <allow send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus"/>
    <allow send_destination="com.zorv.fwconfig"/>
  </policy>
  <policy user="root">
    <allow own="com.zorv.fwconfig"/>
    <allow own="net.connman"/>
    <allow send_destination="org.freedesktop.DBus"/>
  </policy>
"""


class Message(NamedTuple):
    """One message seen on the bus. `kind` is call, return, error or signal."""

    kind: str
    sender: str
    path: str
    interface: str
    member: str
    signature: str
    arguments: list


class Connection:
    """A program's connection to the bus."""

    def __init__(self, address: str):
        self.raw = dbus.bus.BusConnection(address, mainloop=DBusGMainLoop())
        self.raw.set_exit_on_disconnect(False)
        self.name = self.raw.get_unique_name()

    def call(self, service: str, path: str, interface: str, member: str, *arguments, signature: str = None,
             seconds: float = 20) -> Any:
        """Calls and waits. Returns the plain value, a list when there are several, None when there is none.

        Argument types: `signature`, else what the Python values suggest. Errors are dbus.DBusException.
        """
        message = dbus.lowlevel.MethodCallMessage(service, path, interface, member)
        _append(message, signature, arguments)
        reply = self.raw.send_message_with_reply_and_block(message, seconds)
        values = [from_dbus(value) for value in reply.get_args_list()]
        return values if len(values) > 1 else values[0] if values else None

    def send_call(self, service: str, path: str, interface: str, member: str, *arguments) -> None:
        """Calls without waiting for an answer."""
        message = dbus.lowlevel.MethodCallMessage(service, path, interface, member)
        message.set_no_reply(True)
        _append(message, None, arguments)
        self.raw.send_message(message)
        self.raw.flush()

    def send_signal(self, path: str, interface: str, member: str, *arguments, signature: str = None,
                    to: str = None) -> None:
        message = dbus.lowlevel.SignalMessage(path, interface, member)
        if to:
            message.set_destination(to)
        _append(message, signature, arguments)
        self.raw.send_message(message)
        self.raw.flush()

    def own(self, name: str) -> bool:
        """Whether the name is ours now; never waits in the queue for it."""
        return self.raw.request_name(name, dbus.bus.NAME_FLAG_DO_NOT_QUEUE) in (
            dbus.bus.REQUEST_NAME_REPLY_PRIMARY_OWNER, dbus.bus.REQUEST_NAME_REPLY_ALREADY_OWNER)

    def release(self, name: str) -> None:
        self.raw.release_name(name)

    def close(self) -> None:
        self.raw.close()


class Monitor:
    """Records what goes over the bus and matches one of `rules` (no rules: everything)."""

    _KINDS = {1: "call", 2: "return", 3: "error", 4: "signal"}

    def __init__(self, address: str, rules: list):
        self._messages = []
        self._connection = Connection(address)
        self._connection.raw.add_message_filter(self._record)
        self._connection.call(DRIVER[0], DRIVER[1], "org.freedesktop.DBus.Monitoring", "BecomeMonitor",
                              rules, 0, signature="asu")

    @property
    def messages(self) -> list:
        dispatch()
        return list(self._messages)

    def signals(self, member: str = None) -> list:
        return [m for m in self.messages if m.kind == "signal" and member in (None, m.member)]

    def calls(self, member: str = None) -> list:
        return [m for m in self.messages if m.kind == "call" and member in (None, m.member)]

    def clear(self) -> None:
        dispatch()
        self._messages.clear()

    def close(self) -> None:
        self._connection.close()

    def _record(self, _connection, message):
        self._messages.append(Message(
            self._KINDS.get(message.get_type(), "?"), message.get_sender(), message.get_path(),
            message.get_interface(), message.get_member(), str(message.get_signature()),
            [from_dbus(value) for value in message.get_args_list()]))
        return dbus.lowlevel.HANDLER_RESULT_HANDLED


@contextlib.contextmanager
def _acting_as(user: int):
    """The bus learns from the kernel who connects."""
    if user is None:
        yield
        return
    own = os.geteuid()
    os.seteuid(user)
    try:
        yield
    finally:
        os.seteuid(own)


class Bus:
    """The bus daemon. It keeps its address when it is stopped and started again.

    policy: further elements of the bus's configuration, such as RESTRICTED, and <include> for a service's policy.
    """

    def __init__(self, folder: str, policy: str = ""):
        self._policy = policy
        self._folder = pathlib.Path(folder)
        self._folder.mkdir(parents=True, exist_ok=True)
        self._socket = self._folder / "system_bus_socket"
        self.address = f"unix:path={self._socket}"
        self._process = None
        self._connection = None
        self._monitors = []

    def start(self) -> None:
        configuration = self._folder / "system.conf"
        configuration.write_text(_CONFIGURATION.format(socket=self._socket, policy=self._policy))
        self._socket.unlink(missing_ok=True)
        ready, ready_end = os.pipe()
        with open(self._folder / "bus.log", "ab") as log:
            self._process = subprocess.Popen(
                ["dbus-daemon", f"--config-file={configuration}", "--nofork", "--nopidfile", "--nosyslog",
                 f"--print-address={ready_end}"],
                pass_fds=[ready_end], start_new_session=True, stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        os.close(ready_end)
        with os.fdopen(ready) as file:
            if not file.readline():
                raise RuntimeError("dbus-daemon does not start:\n" + (self._folder / "bus.log").read_text())

    @property
    def running(self) -> bool:
        return self._process is not None

    @property
    def pid(self) -> int:
        return self._process.pid

    def stop(self) -> None:
        if self._process is None:
            return
        for monitor in self._monitors:
            monitor.close()
        self._monitors.clear()
        if self._connection:
            self._connection.close()
            self._connection = None
        self._process.kill()
        self._process.wait()
        self._process = None

    def restart(self) -> None:
        """Everybody loses the connection and every name is free again."""
        self.stop()
        self.start()

    def connect(self, user: int = None) -> Connection:
        """A further connection, as of another program; of another user, if that is given."""
        with _acting_as(user):
            return Connection(self.address)

    def monitor(self, *rules: str) -> Monitor:
        made = Monitor(self.address, list(rules))
        self._monitors.append(made)
        return made

    @property
    def connection(self) -> Connection:
        if self._connection is None:
            self._connection = self.connect()
        return self._connection

    def call(self, service: str, path: str, interface: str, member: str, *arguments, **options) -> Any:
        """Connection.call() over a connection of the bus's own."""
        return self.connection.call(service, path, interface, member, *arguments, **options)

    def owner(self, name: str) -> str:
        """The unique name of the owner, empty when there is none."""
        try:
            return self.call(*DRIVER, "GetNameOwner", name)
        except dbus.DBusException:
            return ""

    def pid_of(self, name: str) -> int:
        return self.call(*DRIVER, "GetConnectionUnixProcessID", name)

    def wait_for_name(self, name: str, seconds: float = 30) -> str:
        return wait_for(lambda: self.owner(name), seconds, f"{name} has an owner on the bus")


def _append(message, signature: str, arguments: tuple) -> None:
    pairs = ([typed(value) for value in arguments] if signature is None else
             list(zip(map(str, dbus.Signature(signature)), arguments)))
    if len(pairs) != len(arguments):
        raise ValueError(f"{len(arguments)} values for the signature {signature!r}")
    if pairs:
        message.append(*[to_dbus(kind, value) for kind, value in pairs],
                       signature="".join(kind for kind, _ in pairs))
