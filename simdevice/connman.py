"""connman, as far as the daemon hears it: the owner of net.connman, sending PropertyChanged."""

from typing import Any

from simdevice.bus import Bus, Connection
from simdevice.values import Typed

NAME = "net.connman"
INTERFACE = "net.connman.Service"
WIRED_SERVICE = "/net/connman/service/ethernet_001122aabbcc_cable"


class Connman:
    def __init__(self, bus: Bus):
        self._bus = bus
        self._connection = None

    def start(self) -> None:
        """Also for coming back after the bus was restarted."""
        self.stop()
        self._connection = self._bus.connect()
        if not self._connection.own(NAME):
            raise RuntimeError(f"{NAME} has another owner")

    def stop(self) -> None:
        if self._connection:
            self._connection.close()
            self._connection = None

    def property_changed(self, name: str, value: Any, path: str = WIRED_SERVICE,
                         connection: Connection = None) -> None:
        """Sends PropertyChanged(s, v). `value` is a plain value or a Typed of any bus type.

        `connection` is that of another program, which does not own the name.
        """
        (connection or self._connection).send_signal(path, INTERFACE, "PropertyChanged", name, value, signature="sv")

    def state(self, state: str = "ready", path: str = WIRED_SERVICE) -> None:
        self.property_changed("State", state, path)

    def ipv4(self, address: str = None, gateway: str = None, method: str = None, path: str = WIRED_SERVICE,
             **more) -> None:
        """An IPv4 change whose dictionary has the given entries only."""
        entries = {"Address": address, "Gateway": gateway, "Method": method, **more}
        entries = {name: value for name, value in entries.items() if value is not None}
        self.property_changed("IPv4", Typed("a{sv}", entries), path)
