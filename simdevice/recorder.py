"""Keeps every datagram that arrives at a socket."""

import select
import socket
import threading
import time
from typing import NamedTuple


class Datagram(NamedTuple):
    """`time` is that of the monotonic clock."""

    data: bytes
    source: tuple
    time: float

    @property
    def text(self) -> str:
        return self.data.decode("latin-1")


def drain(source: socket.socket) -> list:
    """All datagrams that wait at a socket which does not block."""
    found = []
    while True:
        try:
            data, sender = source.recvfrom(65536)
        except BlockingIOError:
            return found
        found.append(Datagram(data, sender, time.monotonic()))


class Recorder:
    """Reads in a thread of its own, so that nothing is lost and the times are right. Owns the socket."""

    def __init__(self, source: socket.socket):
        self._socket = source
        self._socket.setblocking(False)
        self._received = []
        self._lock = threading.Lock()
        self._end, self._wake = socket.socketpair()
        self._thread = threading.Thread(target=self._read, daemon=True)
        self._thread.start()

    @property
    def received(self) -> list:
        """Includes whatever has arrived up to now, read by the thread or not."""
        with self._lock:
            self._received += drain(self._socket)
            return list(self._received)

    def take(self) -> list:
        """What has been received, which is forgotten with that."""
        with self._lock:
            self._received += drain(self._socket)
            taken, self._received = self._received, []
            return taken

    def clear(self) -> None:
        with self._lock:
            drain(self._socket)
            self._received.clear()

    def close(self) -> None:
        self._wake.send(b".")
        self._thread.join()
        for one in (self._socket, self._end, self._wake):
            one.close()

    def _read(self) -> None:
        while True:
            ready, _, _ = select.select([self._socket, self._end], [], [])
            if self._end in ready:
                return
            with self._lock:
                self._received += drain(self._socket)
