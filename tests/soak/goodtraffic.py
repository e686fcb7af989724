"""What well-behaved peers do. Every question must be answered, completely and in time."""

import pathlib
import select
import socket
import time

from scanning import GROUP, PORT, announcing
from simdevice.controlpoint import SSDP, ControlPoint
from simdevice.device import ADDRESS, HTTP_PORT
from texts import ANSWER, DESCRIPTION, icon_answer
from wirebytes import compare_bytes
from worker import Question, Tally

SEARCH_SECONDS = 5
HTTP_SECONDS = 10
SLOW_SECONDS = 60
GOOD_UUIDS = [f"good_{number}" for number in range(5)]

_REQUEST = b"GET /rootDesc.xml HTTP/1.1\r\n"
_ICON_REQUEST = b"GET /icons/kelta_icon48.png HTTP/1.1\r\n\r\n"
_ASK_AGAIN = 0.5


class GoodTraffic:
    def __init__(self, device, icon: bytes, tally: Tally):
        self._snmp = pathlib.Path(f"/proc/{device.room.pid}/net/snmp")
        self._icon = icon
        self._tally = tally

    @property
    def plan(self) -> list:
        """(what, every so many seconds)"""
        return [(self.search, 0.1), (self.description, 0.2), (self.byte_by_byte, 1), (self.slow_icon_reader, 2),
                (self.announce, 5)]

    def search(self, _random) -> None:
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as asking, Question(self._tally, "search", SEARCH_SECONDS):
            asking.bind(("0.0.0.0", 0))
            lost = self._lost()
            asking.sendto(ControlPoint.search_text("ssdp:all"), SSDP)
            deadline = time.monotonic() + SEARCH_SECONDS
            while not select.select([asking], [], [], _ASK_AGAIN)[0]:
                if time.monotonic() > deadline:
                    raise AssertionError("no answer")
                # Like any control point; but only where the device's kernel has thrown datagrams away unread.
                if self._lost() > lost:
                    lost = self._lost()
                    self._tally.add("search, asked again after the kernel had no room")
                    asking.sendto(ControlPoint.search_text("ssdp:all"), SSDP)
            compare_bytes(asking.recv(65536), ANSWER)

    def description(self, _random) -> None:
        with Question(self._tally, "description", HTTP_SECONDS), self._connect() as connection:
            connection.sendall(_REQUEST + b"\r\n")
            compare_bytes(_everything(connection), DESCRIPTION)

    def byte_by_byte(self, random) -> None:
        with Question(self._tally, "description byte by byte", SLOW_SECONDS), self._connect() as connection:
            for byte in _REQUEST:
                connection.sendall(bytes([byte]))
                time.sleep(random.uniform(0, 0.1))
            compare_bytes(_everything(connection), DESCRIPTION)

    def slow_icon_reader(self, random) -> None:
        with Question(self._tally, "icon with pauses", SLOW_SECONDS), self._connect(buffer=65536) as connection:
            connection.sendall(_ICON_REQUEST)
            got = b""
            pause = len(self._icon) // 10
            while piece := connection.recv(65536):
                if len(got) // pause != (len(got) + len(piece)) // pause:
                    time.sleep(random.uniform(0, 0.5))
                got += piece
            compare_bytes(got, icon_answer(self._icon))

    def announce(self, _random) -> None:
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            for uuid in GOOD_UUIDS:
                sender.sendto(announcing(uuid), (GROUP, PORT))
                self._tally.add("announcements of good devices")

    def _connect(self, buffer: int = None) -> socket.socket:
        made = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        made.settimeout(HTTP_SECONDS)
        if buffer:
            made.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, buffer)
        made.connect((ADDRESS, HTTP_PORT))
        return made

    def _lost(self) -> int:
        """Datagrams for which the device's sockets had no room."""
        names, values = [line.split() for line in self._snmp.read_text().splitlines() if line.startswith("Udp:")]
        return int(values[names.index("RcvbufErrors")])


def _everything(connection: socket.socket) -> bytes:
    data = b""
    while piece := connection.recv(65536):
        data += piece
    return data
