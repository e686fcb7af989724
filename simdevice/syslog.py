"""The device's system log: the socket /dev/log and what programs write to it."""

import os
import re
import socket
from typing import NamedTuple

from simdevice.recorder import Recorder
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
        self._earlier = []
        self._recorder = None
        self._unread = None

    def record(self) -> None:
        """A log that works."""
        self.absent()
        self._recorder = Recorder(self._bind())

    def never_read(self) -> None:
        """A log service that hangs: the socket is there and fills up."""
        self.absent()
        self._unread = self._bind()

    def plain_file(self) -> None:
        self.absent()
        with open(self._path, "wb"):
            pass

    def absent(self) -> None:
        if os.path.lexists(self._path):
            os.unlink(self._path)
        if self._recorder:
            self._earlier += self._recorder.received
            self._recorder.close()
        if self._unread:
            self._unread.close()
        self._recorder = self._unread = None

    close = absent

    @property
    def lines(self) -> list:
        """Everything logged since the beginning or clear(), over all changes of the mode."""
        now = self._recorder.received if self._recorder else []
        return [parse(datagram.data) for datagram in self._earlier + now]

    @property
    def texts(self) -> list:
        return [line.text for line in self.lines]

    def clear(self) -> None:
        self._earlier.clear()
        if self._recorder:
            self._recorder.clear()

    def wait_for_text(self, text: str, count: int = 1, seconds: float = 30) -> None:
        """Waits until at least `count` lines have exactly this text."""
        wait_for(lambda: self.texts.count(text) >= count, seconds, f"{count} log line(s) {text!r}", lambda: self.texts)

    def _bind(self) -> socket.socket:
        made = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        made.bind(self._path)
        os.chmod(self._path, 0o666)
        return made
