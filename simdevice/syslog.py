"""The device's system log: the socket /dev/log and what programs write to it."""

import os
import re
import socket
import threading
from typing import NamedTuple

from simdevice.waiting import wait_for


class Line(NamedTuple):
    """One log line. `facility` and `level` are the numbers of the syslog interface (LOG_LOCAL6 >> 3 is 22)."""

    facility: int
    level: int
    ident: str
    text: str
    raw: bytes


_FORM = re.compile(rb"<(\d+)>\w{3} [ \d]\d \d\d:\d\d:\d\d ([^:\[]*)(?:\[\d+\])?: (.*)", re.DOTALL)


def parse(raw: bytes) -> Line:
    match = _FORM.fullmatch(raw)
    if not match:
        return Line(-1, -1, "", raw.decode("utf-8", "replace"), raw)
    number = int(match[1])
    return Line(number >> 3, number & 7, match[2].decode(), match[3].decode("utf-8", "replace"), raw)


class Syslog:
    """`path` is where this process sees the device's /dev/log. Exactly one of the four modes holds at a time."""

    def __init__(self, path: str):
        self._path = path
        self._lines = []
        self._socket = None
        self._reader = None

    def record(self) -> None:
        """A log that works."""
        self.absent()
        self._bind()
        self._reader = threading.Thread(target=self._read, args=(self._socket,), daemon=True)
        self._reader.start()

    def never_read(self) -> None:
        """A log service that hangs: the socket is there and fills up."""
        self.absent()
        self._bind()

    def plain_file(self) -> None:
        self.absent()
        with open(self._path, "wb"):
            pass

    def absent(self) -> None:
        if os.path.lexists(self._path):
            os.unlink(self._path)
        if self._socket:
            self._socket.shutdown(socket.SHUT_RDWR)
            if self._reader:
                self._reader.join()
            self._socket.close()
        self._socket = self._reader = None

    close = absent

    @property
    def lines(self) -> list:
        return [parse(raw) for raw in list(self._lines)]

    @property
    def texts(self) -> list:
        return [line.text for line in self.lines]

    def clear(self) -> None:
        self._lines.clear()

    def wait_for_text(self, text: str, count: int = 1, seconds: float = 10) -> None:
        """Waits until at least `count` lines have exactly this text."""
        wait_for(lambda: self.texts.count(text) >= count, seconds, f"{count} log line(s) {text!r}", lambda: self.texts)

    def _bind(self) -> None:
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.bind(self._path)
        os.chmod(self._path, 0o666)

    def _read(self, log: socket.socket) -> None:
        while raw := log.recv(65536):
            self._lines.append(raw)
