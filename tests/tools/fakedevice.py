"""A device made of texts. It says what a real one says, save for what a test has planted in it."""

import contextlib
import datetime
import re
import select
import socket
import threading
import time
from typing import Callable

import texts
from simdevice.controlpoint import ANNOUNCEMENTS, SSDP
from simdevice.device import HTTP_PORT, ICON, png
from simdevice.network import SUBNET, Host, Lan

SECONDS_BETWEEN = 0.2  # of alive and announcement, which a real device sends much less often

# Cut from a capture.
ANNOUNCEMENT = (
    b' \t {"jsonrpc":"2.0","method": "announce","params":{"apiVersion":"1.0","device":{"name":"kelta","uuid":"KM-2044817",'
    b'"type":"Kelta","familyType":"Kelta","firmwareVersion":"1.4.2"},"netSettings":{"interface": {"name":"eth0",'
    b'"type":"ethernet","ipv4":[{"address":"10.77.0.2","netmask":"255.255.255.0"}],"ipv6":[],"configurationMethod":"dhcp"},'
    b'"defaultGateway":{"ipv4Address":"10.77.0.1"}},"services":[{"type":"http","port":80},{"type":"scpi","port":55000},'
    b'{"type":"daqStream","port":7411}],"expiration":22}}')


def real_rule(search: bytes, uuid: bytes) -> bool:
    """Which searches are answered."""
    return search.startswith(b"M-SEARCH") and any(one in search for one in (b"ssdp:all", b"upnp:rootdevice", uuid))


class FakeDevice:
    """10.77.0.`number`, with a serial number and a UUID of its own unless they are given; its name is kelta-`number`.

    What can be planted: alive, alive_autoip, answer, announcement, description, icon, not_found are functions from the right
    bytes to those that are sent, or None for silence. rule: which searches are answered. get: which request lines, None for
    the real ones. ttls: of alive and announcement. delay: of answers to those who grant five seconds. copies, port: of answers.
    copy_delay: of all answers but the first. member: whether it joins the group of searches. link_local: whether it has a
    second address, 169.254.0.`number`. host: one that it shares with others and that has its addresses, instead of one of its
    own.
    """

    def __init__(self, lan: Lan, number: int, serial: str = "", uuid: str = "", name: str = "", rule: Callable = real_rule,
                 served: Callable = None, ttls: tuple = (32, 1), delay: float = 0, copies: int = 1,
                 copy_delay: float = 0, port: int = SSDP[1], member: bool = True, link_local: bool = False, http: bool = True,
                 host: Host = None, **changes):
        self.address, self.autoip = f"{SUBNET}.{number}", f"169.254.0.{number}" if link_local else ""
        self.name, self.serial = name or f"kelta-{number}", serial or f"9000{number:03}"
        self.uuid = uuid or f"4b1c9d3e-7a52-4f0e-9c1d-2f6f3a7b8{number:03x}"
        self._rule, self._served, self._changes = rule, served, changes
        self._delay, self._copies, self._copy_delay = delay, copies, copy_delay
        self.host = host or lan.host(addresses=addresses_of(number))
        self._ssdp = self._udp(self.address, SSDP[1], ttls[0])
        self._scan = self._udp(self.address, ANNOUNCEMENTS[1], ttls[1])
        self._group = self._member() if member else None
        self._answering = self._ssdp if port == SSDP[1] else self._udp(self.address, port, 1)
        self._http = self._listen() if http else None
        self._left_open = []
        self._end, self._wake = socket.socketpair()
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()

    def close(self) -> None:
        self._wake.send(b".")
        self._thread.join()
        for one in filter(None, (self._ssdp, self._scan, self._group, self._answering, self._http, self._end, self._wake, *self._left_open)):
            one.close()

    def say(self, data: bytes, group: tuple = SSDP) -> None:
        """Something else, from this device."""
        (self._ssdp if group == SSDP else self._scan).sendto(data, group)

    def message(self, name: str, right: bytes) -> bytes:
        change = self._changes.get(name, lambda same: same)
        return change(right) if change else b""

    def text(self, template: bytes, **more) -> bytes:
        """One of texts.py, of this device, now."""
        values = {"address": self.address, "uuid": self.uuid, "version": "1.4.2", **more}
        if b"friendlyName" in template:
            values.update(hostname=self.name, serial=self.serial)
        values = {key: value for key, value in values.items() if value != "1.4.2" and (key != "address" or texts.ADDRESS.encode() in template)}
        return dated(texts.replaced(template, **values))

    def announcement_text(self) -> bytes:
        right = ANNOUNCEMENT.replace(b'"kelta"', f'"{self.name}"'.encode()).replace(b"KM-2044817", self.serial.encode())
        right = right.replace(texts.ADDRESS.encode(), self.address.encode())
        if self.autoip:
            right = right.replace(b'}],"ipv6"', f'}},{{"address":"{self.autoip}","netmask":"255.255.0.0"}}],"ipv6"'.encode())
        return right

    def alives(self) -> list:
        found = [self.message("alive", self.text(texts.ALIVE))]
        if self.autoip:
            found.append(self.message("alive_autoip", self.text(texts.ALIVE_AUTOIP, autoip=self.autoip)))
        return found

    def _udp(self, address: str, port: int, ttl: int) -> socket.socket:
        with self.host.inside():
            made = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        made.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        made.bind((address, port))
        made.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_TTL, ttl)
        made.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_LOOP, 0)
        return made

    def _member(self) -> socket.socket:
        made = self._udp(*SSDP, 1)
        made.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP, socket.inet_aton(SSDP[0]) + socket.inet_aton(self.address))
        return made

    def _listen(self) -> socket.socket:
        with self.host.inside():
            return socket.create_server((self.address, HTTP_PORT))

    def _run(self) -> None:
        sockets = [one for one in (self._ssdp, self._group, self._http, self._end) if one]
        due = 0
        while True:
            if time.monotonic() >= due:
                due = time.monotonic() + SECONDS_BETWEEN
                for data in filter(None, self.alives()):
                    self.say(data)
                if data := self.message("announcement", self.announcement_text()):
                    self.say(data, ANNOUNCEMENTS)
            ready = select.select(sockets, [], [], max(due - time.monotonic(), 0))[0]
            if self._end in ready:
                return
            for one in ready:
                self._serve() if one is self._http else self._receive(one)

    def _receive(self, source: socket.socket) -> None:
        data, sender = source.recvfrom(65536)
        if self._rule(data, self.uuid.encode()):
            autoip = self.autoip and sender[0].startswith("169.254")
            text = self.text(texts.ANSWER_AUTOIP, autoip=self.autoip) if autoip else self.text(texts.ANSWER)
            answer = self.message("answer_autoip" if autoip else "answer", text)
            for copy in range(self._copies if answer else 0):
                self._answer(answer, sender, (self._delay if b"MX: 5" in data else 0) + (self._copy_delay if copy else 0))

    def _answer(self, answer: bytes, receiver: tuple, delay: float) -> None:
        if delay:
            threading.Timer(delay, self._answer, (answer, receiver, 0)).start()
        elif self._answering.fileno() >= 0:
            self._answering.sendto(answer, receiver)

    def _serve(self) -> None:
        connection, _ = self._http.accept()
        connection.settimeout(1)
        with contextlib.suppress(OSError):
            line = connection.makefile("rb").readline().split()
            page = self._page(line[1].decode()) if line[:1] == [b"GET"] else self._served(line) if self._served else None
            if page is None:
                self._left_open.append(connection)
                return
            connection.sendall(page)
        connection.close()

    def _page(self, path: str) -> bytes:
        if path == "/rootDesc.xml":
            return self.message("description", self.text(texts.DESCRIPTION))
        if "/var/www" + path == ICON:
            return self.message("icon", dated(texts.icon_answer(png())))
        return self.message("not_found", texts.NOT_FOUND) if not path.endswith("?x") else self.message("query", texts.NOT_FOUND)


def addresses_of(*numbers: int) -> list:
    """Those of a host that is shared by these fake devices."""
    return [f"{SUBNET}.{number}/24" for number in numbers] + [f"169.254.0.{number}/16" for number in numbers]


def with_length(text: bytes) -> bytes:
    """With the Content-Length that its body has."""
    head, end, body = text.partition(b"\r\n\r\n")
    return re.sub(rb"(?<=Content-Length: )\d+", b"%d" % len(body), head) + end + body


def dated(text: bytes, moment: datetime.datetime = None) -> bytes:
    """With the time instead of {DATE} and {DATE1}."""
    moment = moment or datetime.datetime.now()
    date = f"{moment:%a, %d %b %Y %H:%M:}"
    return text.replace(b"{DATE1}", f"{date}{moment.second}".encode()).replace(b"{DATE}", f"{date}{moment.second:02}".encode())


def redated(text: bytes, date: str) -> bytes:
    """With another text where the date is."""
    return re.sub(rb"(?<=DATE: )[^\r]*", date.encode(), text)


class RootDevice:
    """Somebody else's UPnP root device, that answers every search with its description on any port and in any form."""

    DOCUMENT = (b'<?xml version="1.0"?><root xmlns="urn:schemas-upnp-org:device-1-0"><device><friendlyName>Gate &amp; way</friendlyName>'
                b"<manufacturer>Others</manufacturer><modelName>G 1</modelName><modelNumber>7</modelNumber><serialNumber>s-1"
                b"</serialNumber><deviceList><device><serialNumber>inner</serialNumber></device></deviceList></device></root>")

    def __init__(self, host, document: bytes = DOCUMENT, server: bytes = b"Linux UPnP/1.1 Gate/2", status: bytes = b"200 OK"):
        self._page = b"HTTP/1.1 " + status + b"\r\n\r\n" + document
        with host.inside():
            self._ssdp = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
            self._ssdp.bind(SSDP)
            self._ssdp.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP, socket.inet_aton(SSDP[0]) + bytes(4))
            self._http = socket.create_server(("0.0.0.0", 5000))
        address = host.address
        self.answer = (b"HTTP/1.1 200 OK\r\nLocation:http://%s:5000/d.xml\r\nServer: %s\r\nUSN: uuid:9-9::upnp:rootdevice\r\n\r\n"
                       % (address.encode(), server))
        threading.Thread(target=self._answer, daemon=True).start()
        threading.Thread(target=self._serve, daemon=True).start()

    def _answer(self) -> None:
        while True:
            _, sender = self._ssdp.recvfrom(65536)
            self._ssdp.sendto(self.answer, sender)

    def _serve(self) -> None:
        while True:
            connection, _ = self._http.accept()
            connection.recv(4096)
            connection.sendall(self._page)
            connection.close()
