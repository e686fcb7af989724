"""The other end of the wire: a host that searches, listens, fetches descriptions and announces itself."""

import fcntl
import select
import socket
import struct
import termios

from simdevice.device import ADDRESS, HTTP_PORT
from simdevice.network import Host
from simdevice.recorder import Recorder, drain
from simdevice.waiting import wait_for

SSDP = ("239.255.255.250", 1900)
ANNOUNCEMENTS = ("239.255.77.76", 31416)


class Listener(Recorder):
    """Records every datagram that reaches a group, from the moment it was made."""

    def __init__(self, host: Host, group: tuple):
        with host.inside():
            made = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
            made.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            made.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4 << 20)
            made.bind(group)
            index = socket.if_nametoindex("eth0")
            member = struct.pack("4s4si", socket.inet_aton(group[0]), bytes(4), index)
            made.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP, member)
        super().__init__(made)

    def matching(self, content: bytes) -> list:
        return [datagram for datagram in self.received if content in datagram.data]

    def wait_for(self, content: bytes = b"", count: int = 1, seconds: float = 30) -> list:
        """Waits for at least `count` datagrams that contain `content`; returns all of these."""
        wait_for(lambda: len(self.matching(content)) >= count, seconds,
                 f"{count} datagram(s) with {content!r}", lambda: self.received)
        return self.matching(content)


class HttpConnection:
    """A TCP connection to the device, used segment by segment."""

    def __init__(self, host: Host, address: str, port: int, from_address: str = None, seconds: float = 10):
        with host.inside():
            self.socket = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        self.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self.socket.settimeout(seconds)
        if from_address:
            self.socket.bind((from_address, 0))
        self.socket.connect((address, port))

    def send(self, data: bytes) -> None:
        """One segment each, as long as the other side keeps up."""
        self.socket.sendall(data)

    def receive(self, count: int) -> bytes:
        """Exactly `count` bytes, fewer only when the other side closes."""
        data = b""
        while len(data) < count and (piece := self.socket.recv(count - len(data))):
            data += piece
        return data

    def receive_until_close(self) -> bytes:
        data = b""
        while piece := self.socket.recv(65536):
            data += piece
        return data

    def nothing_to_read(self) -> bool:
        """True when the other side has neither sent nor closed up to now."""
        return not select.select([self.socket], [], [], 0)[0]

    def in_flight(self) -> int:
        """Bytes that were sent and have not arrived yet."""
        return struct.unpack("i", fcntl.ioctl(self.socket, termios.TIOCOUTQ, bytes(4)))[0]

    def half_close(self) -> None:
        self.socket.shutdown(socket.SHUT_WR)

    def reset(self) -> None:
        """Ends the connection with a RST."""
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self.socket.close()

    def close(self) -> None:
        self.socket.close()

    def __enter__(self) -> "HttpConnection":
        return self

    def __exit__(self, *_exception) -> None:
        self.close()


def damaged_datagram(source: str, to: tuple, data: bytes) -> bytes:
    """A UDP header and data, as for a raw socket, whose checksum is wrong."""
    size = 8 + len(data)
    port = to[1]
    covered = (socket.inet_aton(source) + socket.inet_aton(to[0]) + struct.pack(">BBH", 0, socket.IPPROTO_UDP, size)
               + struct.pack(">HHHH", port, port, size, 0) + data + bytes(size % 2))
    total = sum(struct.unpack(f">{len(covered) // 2}H", covered))
    while total >> 16:
        total = (total & 0xffff) + (total >> 16)
    right = ~total & 0xffff
    return struct.pack(">HHHH", port, port, size, right ^ 0x5555 or 1) + data


class ControlPoint:
    """`device_address` is where search() sends its closing question and http_raw() connects to."""

    def __init__(self, host: Host, device_address: str = ADDRESS):
        self.host = host
        self.device_address = device_address
        self._open = []

    @property
    def address(self) -> str:
        return self.host.address

    def listen_ssdp(self) -> Listener:
        return self.listen(SSDP)

    def listen_announcements(self) -> Listener:
        return self.listen(ANNOUNCEMENTS)

    def search(self, st: str = "ssdp:all", raw: bytes = None, to: tuple = SSDP, from_address: str = None,
               from_port: int = 0) -> list:
        """Sends one search and returns all answers to it, an empty list too, as datagrams.

        No waiting for silence: two further searches that are surely answered follow, and the device answers in order.
        Two, since the first may overtake: while an address is still being resolved, or on another processor.
        """
        with self._udp(from_address, from_port) as asking, self._udp() as closing:
            asking.sendto(raw if raw is not None else self.search_text(st), to)
            for _ in range(2):
                closing.sendto(self.search_text("ssdp:all"), (self.device_address, SSDP[1]))
                wait_for(lambda: drain(closing), what=f"{self.device_address} answers searches")
            return drain(asking)

    @staticmethod
    def search_text(st: str) -> bytes:
        return ("M-SEARCH * HTTP/1.1\r\nHOST: 239.255.255.250:1900\r\nMAN: \"ssdp:discover\"\r\nMX: 1\r\n"
                f"ST: {st}\r\n\r\n").encode()

    def send(self, data: bytes, to: tuple, from_address: str = None, from_port: int = 0) -> None:
        """One datagram to anybody."""
        with self._udp(from_address, from_port) as sender:
            sender.sendto(data, to)

    def send_damaged(self, data: bytes, to: tuple) -> None:
        """One datagram whose checksum is wrong. It must fit into one packet."""
        with self.host.inside():
            sender = socket.socket(socket.AF_INET, socket.SOCK_RAW, socket.IPPROTO_UDP)
        with sender:
            sender.sendto(damaged_datagram(self.address, to, data), (to[0], 0))

    def announce(self, data: bytes, from_address: str = None) -> None:
        """Multicasts an announcement as another device would."""
        self.send(data, ANNOUNCEMENTS, from_address)

    def connect(self, address: str = None, port: int = HTTP_PORT, from_address: str = None,
                seconds: float = 10) -> HttpConnection:
        return HttpConnection(self.host, address or self.device_address, port, from_address, seconds)

    def http_raw(self, request: bytes, **where) -> bytes:
        """Sends `request` and returns everything up to the end of the connection."""
        with self.connect(**where) as connection:
            connection.send(request)
            return connection.receive_until_close()

    def close(self) -> None:
        for listener in self._open:
            listener.close()
        self._open.clear()

    def listen(self, group: tuple) -> Listener:
        listener = Listener(self.host, group)
        self._open.append(listener)
        return listener

    def _udp(self, from_address: str = None, from_port: int = 0) -> socket.socket:
        with self.host.inside():
            made = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        if from_port:  # for a chosen one it may be set; two sockets whose ports the kernel chooses could get the same
            made.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        made.bind((from_address or "0.0.0.0", from_port))
        if from_address:
            made.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF, socket.inet_aton(from_address))
        made.setblocking(False)
        return made
