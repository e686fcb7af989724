"""What peers on the network do to bring the device down. Nothing of it needs an answer."""

import contextlib
import socket
import struct
import time

from scanning import GROUP, PORT, announcing
from simdevice.controlpoint import SSDP, ControlPoint, damaged_datagram
from simdevice.device import ADDRESS, HTTP_PORT
from worker import Tally

IDLE_CONNECTIONS = 150
FLOOD = 6000           # new devices
FLOOD_RATE = 1000      # a second
FLOOD_PERIOD = 60      # seconds
ENDLESS_LINE = 8 << 20  # bytes

_ICON_REQUEST = b"GET /icons/kelta_icon48.png HTTP/1.1\r\n\r\n"
_REQUESTS = [
    b"", b"GET /rootD", b"GET /rootDesc.xml HTTP/1.1\r\n\r\n", _ICON_REQUEST, b"HEAD / HTTP/1.1\r\n" * 50, b"\0" * 5000,
    b"GET \0\xff\xfe /\r\n", bytes(range(256)) * 20, b"GET /" + b"x" * 100_000 + b" HTTP/1.1\r\n", b"\n" * 5000,
    b"POST /rootDesc.xml HTTP/1.1\r\nContent-Length: 99999999999\r\n\r\n", b"GET", b"GET \r\n", b" \r\r\n \n",
]


def _nested(opening: str, closing: str, depth: int) -> str:
    return '{"deep":' + opening * depth + "1" + closing * depth + "}"


_INTERFACES = [
    "null", '{"a":null,"l":[null,[null]]}', "[1,2,3]", '"text"', "-1e999", '{"t":"\\uffff\\u0000\\ud800"}',
    _nested("[", "]", 30), _nested("[", "]", 4000), _nested('{"k":', "}", 30), _nested('{"k":', "}", 4000),
    '{"x":"' + "x" * 20_000 + '"}', '{"l":[' + "1," * 5000 + "1]}", '{"":{"":{"":[]}}}', '{"uuid":5,"name":null}',
]
_JUNK = [
    b"", b"{", b"[" * 60_000, b'{"params":{"uuid":"junk","x":' + b"[" * 50_000, b'{"params":{"uuid":"junk","x":"' + b"\\" * 9000,
    bytes(60_000), bytes(range(256)) * 20, b'{"params":{"uuid":"junk","expiration":22,"x":"\\u00', b'"params""uuid":"junk"',
    b'{"params":{"uuid":"junk"}}' + b"]" * 9000, b'"params"', b'{"params":{"expiration":"x","uuid":"junk"}}',
]
# Few enough to stay for ever
_LASTING = [(f"lasting_{number}", expiration) for number, expiration in
            enumerate([2147483647, -2147483648, 715827883, 86400, 100000])]
_ODD_UUIDS = ["a/b", "\\u0041", " ", "\u00e9", "..", "x" * 5000, "\\\"", "Kelta", "zorvscan", "%s%n"]


class HostileTraffic:
    def __init__(self, device_address: str, own_address: str, tally: Tally):
        self._device_address = device_address
        self._own_address = own_address
        self._tally = tally
        self._idle = []
        self._number = 0

    @property
    def plan(self) -> list:
        """(what, every so many seconds)"""
        return [(self.searches, 0.1), (self.announcements, 0.1), (self.flood, FLOOD_PERIOD), (self.damaged_datagrams, 0.2),
                (self.requests, 0.03), (self.aborted_icons, 0.1), (self.idle_connections, 0.5), (self.endless_lines, 3)]

    def close(self) -> None:
        for connection in self._idle:
            connection.close()

    def searches(self, random) -> None:
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            for _ in range(15):
                sender.sendto(self._search(random), random.choice([SSDP, (self._device_address, SSDP[1])]))
                self._tally.add("hostile searches")

    def _search(self, random) -> bytes:
        text = bytearray(ControlPoint.search_text(random.choice(["ssdp:all", "x" * 1000, "", "uuid:", "\0"])))
        kind = random.randrange(6)
        if kind == 0:
            return bytes(text[:random.randrange(len(text))])
        if kind == 1:
            return random.randbytes(random.choice([1, 100, 1400, 20_000]))
        if kind == 2:
            return bytes(text) * random.randrange(1, 20)
        for _ in range(random.randrange(1, 20)):
            text[random.randrange(len(text))] = random.randrange(256)
        return bytes(text)

    def announcements(self, random) -> None:
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            for _ in range(8):
                sender.sendto(self._announcement(random), (GROUP, PORT))
                self._tally.add("hostile announcements")

    def _announcement(self, random) -> bytes:
        kind = random.randrange(10)
        if kind == 0:
            return random.choice(_JUNK)
        if kind == 1:
            uuid, expiration = random.choice(_LASTING)
            return announcing(uuid, expiration, raw=random.choice(_INTERFACES))
        if kind == 2:
            return announcing(random.choice(_ODD_UUIDS), random.choice([1, 2, 0, -5]), raw=random.choice(_INTERFACES))
        self._number += 1
        text = announcing(f"new_{self._number}", random.choice([1, 2, 3]), random.choice(["Kelta", "other", ""]),
                          raw=random.choice(_INTERFACES[:6]))
        if kind == 3:
            return text[:random.randrange(len(text))]
        if kind == 4:
            changed = bytearray(text)
            changed[random.randrange(len(changed))] = random.randrange(256)
            return bytes(changed)
        return text

    def flood(self, random) -> None:
        run = random.getrandbits(64)
        start = time.monotonic()
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            for number in range(FLOOD):
                sender.sendto(announcing(f"flood_{run}_{number}", 1, "flood"), (GROUP, PORT))
                self._tally.add("announcements in floods of new devices")
                time.sleep(max(0, start + number / FLOOD_RATE - time.monotonic()))

    def damaged_datagrams(self, _random) -> None:
        with socket.socket(socket.AF_INET, socket.SOCK_RAW, socket.IPPROTO_UDP) as sender:
            for to, text in ((SSDP, ControlPoint.search_text("ssdp:all")), ((GROUP, PORT), announcing("damaged", 1))):
                sender.sendto(damaged_datagram(self._own_address, to, text), (to[0], 0))
                self._tally.add("damaged datagrams")

    def requests(self, random) -> None:
        with contextlib.suppress(OSError), self._connect() as connection:
            connection.sendall(random.choice(_REQUESTS))
            self._tally.add("hostile requests")
            if random.randrange(2):
                _reset(connection)

    def aborted_icons(self, random) -> None:
        with contextlib.suppress(OSError), self._connect() as connection:
            connection.sendall(_ICON_REQUEST)
            connection.recv(random.choice([1, 1000, 200_000]))
            self._tally.add("aborted icon downloads")
            if random.randrange(2):
                _reset(connection)

    def idle_connections(self, random) -> None:
        for _ in range(10):
            if len(self._idle) >= IDLE_CONNECTIONS:
                self._idle.pop(random.randrange(len(self._idle))).close()
            self._idle.append(self._connect())
            self._tally.add("idle connections")
            if random.randrange(2):
                with contextlib.suppress(OSError):
                    self._idle[-1].sendall(b"GET /" + b"x" * random.choice([0, 10, 3000]))

    def endless_lines(self, random) -> None:
        piece = random.choice([b"x", b"\0", b"\xff", b" "]) * 65536
        with contextlib.suppress(OSError), self._connect() as connection:
            connection.sendall(random.choice([b"GET /", b"", b"HEAD /\n"]))
            connection.settimeout(2)
            for _ in range(ENDLESS_LINE // len(piece)):
                connection.sendall(piece)
                self._tally.add("bytes of endless lines", len(piece))
            _reset(connection)

    def _connect(self) -> socket.socket:
        made = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        made.settimeout(10)
        made.connect((ADDRESS, HTTP_PORT))
        return made


def _reset(connection: socket.socket) -> None:
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()
