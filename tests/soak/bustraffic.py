"""What programs on the device do, good and hostile, all from one thread: the bus library wants it so."""

import time

import dbus

from goodtraffic import GOOD_UUIDS
from scanning import SCAN, SERIAL, announcing, child, scan
from simdevice.device import BUS_NAME
from simdevice.values import Typed
from worker import Question, Tally

LISTING_SECONDS = 15
CALL_SECONDS = 10
EXPIRING_AFTER = 3  # seconds: three times the second that it announces
TICK = 10           # seconds between two looks for expired devices

_INTROSPECTABLE = "org.freedesktop.DBus.Introspectable"
_SETTINGS_MEMBERS = ["getUuid", "getHostname", "getUdpPort", "getHttpUrl", "hostnameChanged", "connmanPropertyChanged",
                     "serviceAvail", "deleteLater", "noSuchMethod"]
_SCAN_MEMBERS = ["setupMulticast", "sendAnnouncement", "socketState", "pendingDatagrams", "configChanged",
                 "connmanServicePropertyChanged", "deleteLater", "timerEvent"]


def _nested_variant(depth: int) -> Typed:
    value = Typed("s", "x")
    for _ in range(depth):
        value = Typed("v", value)
    return value


_WRONG_ARGUMENTS = [
    (Typed("i", -1),), (Typed("as", ["a"] * 1000),), (Typed("a{sv}", {"a": 1}),), (Typed("s", "x" * 500_000),),
    (Typed("(ss)", ["a", "b"]),), (Typed("v", _nested_variant(20)),), (Typed("s", "State"), Typed("v", _nested_variant(20))),
    (Typed("a{ss}", {"a": "b"}),), (Typed("ay", [0, 255]),), (Typed("o", "/"),),
]
_SIGNALS = [
    ("", []), ("s", ["State"]), ("ss", ["State", "online"]), ("vs", ["State", "online"]), ("a{sv}", [{"State": "online"}]),
    ("sv", ["State", Typed("a{ss}", {"a": "b"})]), ("sv", ["IPv4", Typed("ai", [1])]), ("sv", ["IPv4", Typed("(ss)", ["a", "b"])]),
    ("sv", ["IPv4", _nested_variant(20)]), ("sv", ["State", Typed("s", "online")]), ("sv", ["x" * 100_000, 1]), ("aai", [[[1]]]),
]


class BusTraffic:
    def __init__(self, device, peer, tally: Tally, random):
        self._device = device
        self._peer = peer
        self._tally = tally
        self._random = random
        self._next = {}
        self._stranger = device.bus.connect()
        self._known = []
        self._expiring = {}  # uuid -> when it was announced first and last
        self._expiring_number = 0

    def step(self) -> None:
        """Does whatever is due."""
        for action, period in ((self._list, 1), (self._json_values, 0.2), (self._introspect, 0.2), (self._wrong_calls, 0.2),
                               (self._signals, 0.2), (self._good_settings, 0.5), (self._service, 7), (self._expire, 5)):
            if time.monotonic() >= self._next.get(action.__name__, 0):
                self._next[action.__name__] = time.monotonic() + period
                action()

    def finish(self) -> None:
        """The configuration service is back, and everything that has to expire has done so."""
        if not self._device.fwconfig.running:
            self._device.fwconfig.start()
        self._device.fwconfig.behave("normal")
        deadline = time.monotonic() + 40
        while self._expiring and time.monotonic() < deadline:
            self._check_expired()
            time.sleep(0.2)
        self._stranger.close()

    @property
    def devices_known(self) -> int:
        return len(self._known)

    def _list(self) -> None:
        with Question(self._tally, "listing", LISTING_SECONDS):
            found = scan(self._device, "allChilds", "", signature="s", seconds=LISTING_SECONDS)
            self._known = [summary["uuid"] for summary in found]
            missing = {SERIAL, *GOOD_UUIDS} - set(self._known)
            assert not missing, f"without {missing}"
            assert self._device.bus.pid_of(BUS_NAME) == self._device.pid, "the bus name is lost"

    def _json_values(self) -> None:
        with Question(self._tally, "value of a good device", CALL_SECONDS):
            uuid = self._random.choice(GOOD_UUIDS)
            assert child(self._device, uuid, "jsonValue", "params/device/uuid", seconds=CALL_SECONDS) == uuid
        for _ in range(10):
            uuid = self._random.choice(self._known or ["none"])
            path = self._random.choice(["params/device/name", "/" * 5000, "params/netSettings/interface/deep" + "/k" * 100, ""])
            self._hostile_call(f"{SCAN}/{uuid}", "local.ZorvDevice", "jsonValue", Typed("s", path))

    def _introspect(self) -> None:
        for path in ("/", "/settings", SCAN, f"{SCAN}/lasting_1"):
            self._hostile_call(path, _INTROSPECTABLE, "Introspect")

    def _wrong_calls(self) -> None:
        for _ in range(5):
            arguments = self._random.choice(_WRONG_ARGUMENTS)
            self._hostile_call("/settings", "local.UpnpSettings", self._random.choice(_SETTINGS_MEMBERS), *arguments)
            self._hostile_call(SCAN, "local.ZorvScan", self._random.choice(_SCAN_MEMBERS), *arguments)
            self._hostile_call(SCAN, "local.ZorvScan", self._random.choice(_SCAN_MEMBERS[:5]))

    def _signals(self) -> None:
        for signature, arguments in self._random.sample(_SIGNALS, 4):
            self._stranger.send_signal("/", "net.connman.Service", "PropertyChanged", *arguments, signature=signature)
            self._tally.add("wrong signals")
        # Connman itself, with what changes no address
        name = self._random.choice(["State", "IPv6", ""])
        value = self._random.choice([Typed("i", 1), Typed("a{ss}", {"a": "b"}), Typed("s", "ready"), _nested_variant(20)])
        self._device.connman.property_changed(name, value)

    def _good_settings(self) -> None:
        with Question(self._tally, "value of the settings", CALL_SECONDS):
            assert self._device.call("getAddressStr", seconds=CALL_SECONDS) == "10.77.0.2"

    def _service(self) -> None:
        service = self._device.fwconfig
        if not service.running:
            service.start()
            service.behave("normal")
            return
        kind = self._random.randrange(4)
        if kind == 0:
            service.stop()
        elif kind == 1:
            service.behave("failing")
        elif kind == 2:
            service.behave("slow", seconds=0.5)
        else:
            service.behave("normal")
        self._tally.add("changes of the configuration service")
        self._hostile_call("/settings", "local.UpnpSettings", "configureIp")

    def _expire(self) -> None:
        """One more device that lives for three seconds; those of before must be gone in time, and not too early."""
        self._check_expired()
        self._expiring_number += 1
        uuid = f"expiring_{self._expiring_number}"
        first = time.monotonic()
        self._announce(uuid)
        self._expiring[uuid] = (first, time.monotonic())

    def _announce(self, uuid: str) -> None:
        """Again and again until it is known: the device's kernel may have had no room for it."""
        deadline = time.monotonic() + CALL_SECONDS
        while time.monotonic() < deadline:
            self._peer.announce(announcing(uuid, 1))
            for _ in range(20):
                if self._is_there(uuid):
                    return
                time.sleep(0.01)
        self._tally.fail("expiry", f"{uuid} never known")

    def _check_expired(self) -> None:
        for uuid, (first, last) in list(self._expiring.items()):
            asked = time.monotonic()
            there = self._is_there(uuid)
            if not there:
                if time.monotonic() - first < EXPIRING_AFTER:
                    self._tally.fail("expiry", f"{uuid} gone before its time")
                self._tally.add("devices expired on time")
                self._tally.took("expiry", time.monotonic() - last)
                del self._expiring[uuid]
            elif asked - last > EXPIRING_AFTER + 1 + TICK + CALL_SECONDS:
                self._tally.fail("expiry", f"{uuid} still there after {asked - last:.1f} s")
                del self._expiring[uuid]

    def _is_there(self, uuid: str) -> bool:
        try:
            child(self._device, uuid, "jsonValue", "method", seconds=CALL_SECONDS)
            return True
        except dbus.DBusException as error:
            if error.get_dbus_name() == "org.freedesktop.DBus.Error.UnknownObject":
                return False
            raise

    def _hostile_call(self, path: str, interface: str, member: str, *arguments) -> None:
        """Whatever the answer is, there must be one."""
        self._tally.add("hostile calls")
        try:
            signature = "".join(argument.signature for argument in arguments)
            self._device.bus.call(BUS_NAME, path, interface, member, *[one.value for one in arguments], signature=signature,
                                  seconds=CALL_SECONDS)
        except dbus.DBusException as error:
            if error.get_dbus_name() == "org.freedesktop.DBus.Error.NoReply":
                self._tally.fail("hostile calls", f"{path} {member}: {error}")
        except (ValueError, TypeError):
            pass  # a path that no message can have
