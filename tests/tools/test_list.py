"""The list: who is shown, how, and what is said when something is in the way."""

import json
import os
import re
import signal
import socket
import subprocess
import threading

import pytest

from browsing import Lines
from fakedevice import ANNOUNCEMENT, dated
from simdevice.controlpoint import ANNOUNCEMENTS, SSDP
from simdevice.waiting import wait_for
from texts import ALIVE, BYEBYE, UUID

HEAD = ["NAME", "SERIAL", "TYPE", "FIRMWARE", "ADDRESSES", "CONFIGURED", "SERVICES"]
SERVICES = ["http:80", "scpi:55000", "daqStream:7411"]
KEYS = {"kelta", "name", "serial", "type", "family", "firmware", "manufacturer", "address", "addresses", "interface", "configured",
        "gateway", "services", "uuid", "description", "announced", "answered", "problems"}


def words(text: str) -> list:
    return [line.split() for line in text.splitlines()]


def second_device(start_device):
    device = start_device(daemon="off", addresses=["10.77.0.12/24"], mac="00:11:22:aa:bb:12")
    device.fwconfig.set(constants={"SERIALNUMBER": "4711"}, hostname="kelta-2", network={"dhcp": False, "gateway": "10.77.0.1"},
                        variables={"UUID": UUID[:-1] + "6"})
    device.install_codesys()
    device.start()
    return device


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
        address = host.addresses()[0].split("/")[0]
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


def test_real_devices_one_row_each(start_device, pc):
    """The list is complete and ends when everybody has announced himself."""
    first = start_device(addresses=["10.77.0.2/24", "169.254.1.2/16"])
    second = second_device(start_device)
    with pc.start() as running:
        pc.objects("--timeout", "1")
        for device in (first, second):
            device.call("configureIp")
            device.call("sendAnnouncement", path="/zorvscan", interface="local.ZorvScan")
        out, err = running.communicate(timeout=20)
    assert words(out) == [
        HEAD, ["kelta", "KM-2044817", "Kelta", "1.4.2", "10.77.0.2,", "169.254.1.2", "(link-local)", "dhcp", *SERVICES],
        ["kelta-2", "4711", "Kelta", "CODESYS", "1.4.2", "10.77.0.12", "static", *SERVICES]]
    assert len({line.index(cell) for line, cell in zip(out.splitlines(), ("ADDR", "10.77", "10.77"))}) == 1, "aligned"
    assert (err, running.returncode) == ("", 0)


def test_json_of_a_real_device(start_device, pc):
    start_device()
    found, = pc.objects("--timeout", "1")
    assert found == {
        "kelta": True, "name": "kelta", "serial": "KM-2044817", "type": "Kelta", "family": "Kelta", "firmware": "1.4.2",
        "manufacturer": "Zorv", "address": "10.77.0.2", "addresses": [{"address": "10.77.0.2", "link_local": False}],
        "interface": "eth0", "configured": None, "gateway": None, "services": [], "uuid": UUID,
        "description": "http://10.77.0.2:8200/rootDesc.xml", "announced": False, "answered": True, "problems": []}


def test_json_with_an_announcement(fake, pc):
    fake(7, link_local=True)
    found, = pc.objects("--timeout", "1")
    assert set(found) == KEYS
    assert (found["configured"], found["gateway"], found["announced"]) == ("dhcp", "10.77.0.1", True)
    assert found["services"] == [{"type": "http", "port": 80}, {"type": "scpi", "port": 55000}, {"type": "daqStream", "port": 7411}]
    assert found["addresses"] == [{"address": "10.77.0.7", "link_local": False}, {"address": "169.254.0.7", "link_local": True}]


def test_sorted_by_name_with_numbers_as_numbers(fake, pc):
    for number in (30, 7, 100):
        fake(number)
    assert [one["name"] for one in pc.objects("--timeout", "1")] == ["kelta-7", "kelta-30", "kelta-100"]


def test_link_local_address_without_announcements(fake, pc):
    """The two UUIDs of one device, told apart by a 0, make one row."""
    fake(7, link_local=True, announcement=None)
    found, = pc.objects("--timeout", "1")
    assert [one["address"] for one in found["addresses"]] == ["10.77.0.7", "169.254.0.7"]


def test_nobody(pc):
    done = pc.run("--timeout", "0.3")
    assert (done.stdout, done.returncode) == ("", 1)
    assert "Nobody was heard in 0.3 s. Are there devices in this network" in done.stderr


def test_no_network(pc):
    pc.host.link_down()
    done = pc.run("--timeout", "0.3")
    assert (done.stdout, done.returncode) == ("", 1)
    assert done.stderr == ("upnpvelorn-browse: No network interface is up, connected and has an IPv4 address: put the cable in, then look "
                           "with \"ip address\".\n")


def test_without_a_route_multicast_works_all_the_same(fake, pc):
    pc.host.no_default_route()
    fake(7)
    assert [one["name"] for one in pc.objects("--timeout", "1")] == ["kelta-7"]


def test_searches_that_cannot_be_sent(fake, pc):
    """Announcements are heard all the same."""
    pc.host.ip("route add prohibit 239.255.255.250")
    fake(7)
    done = pc.run("--timeout", "1")
    assert words(done.stdout)[1][0] == "kelta-7"
    assert "Nobody can be asked (eth0: Permission denied). Is the network there, and a route?" in done.stderr


@pytest.mark.parametrize("port", [SSDP[1], ANNOUNCEMENTS[1]])
def test_a_port_that_is_not_shared(fake, pc, port):
    fake(7)
    with pc.host.socket() as other:
        other.bind(("0.0.0.0", port))
        done = pc.run("--timeout", "1")
    assert f"UDP port {port}: Address already in use. See which program has it: ss -lunp 'sport = :{port}'" in done.stderr
    assert words(done.stdout)[1][0] == "kelta-7"


def test_beside_the_daemon(device):
    """On the device itself; and what is sent to the daemon's port still reaches the daemon."""
    from browsing import Browser
    here = Browser(device.host)
    running = here.start("--timeout", "3")
    found = [here.objects("--timeout", "1") for _ in range(2)]
    assert [[one["address"] for one in each] for each in found] == [["10.77.0.2"]] * 2
    assert here.run("check", "10.77.0.2", "--timeout", "0").returncode == 0
    assert running.communicate(timeout=20)[1] == ""


def test_unreachable_description(fake, pc):
    fake(7, http=False, announcement=None)
    done = pc.run("--timeout", "1")
    assert words(done.stdout)[1] == ["-", "-", "-", "1.4.2", "10.77.0.7", "-", "-"]
    assert done.stderr == (
        "upnpvelorn-browse: 10.77.0.7: its description at http://10.77.0.7:8200/rootDesc.xml cannot be read: Connection refused. Is there "
        "a way to it, and is TCP port 8200 let through? Try: upnpvelorn-browse check 10.77.0.7\n")


def test_an_announcement_that_is_no_json(fake, pc):
    """A device with two interfaces: what is whole in it is shown, and what is wrong."""
    fake(7, answer=None, alive=None, announcement=lambda data: data.replace(b'},"services"', b'},"name":"eth1"}},"services"'))
    done = pc.run("--timeout", "1")
    assert words(done.stdout)[1] == ["kelta-7", "9000007", "Kelta", "1.4.2", "10.77.0.7", "dhcp", "-"]
    assert "kelta-7: its announcement is no valid JSON, so other devices do not list it" in done.stderr


def test_byebye(fake, pc):
    """Whoever said byebye is not listed, whatever came before."""
    leaving = fake(7, alive=None, announcement=None, answer=None)
    fake(8)
    with pc.start("--json", "--timeout", "1.5") as running:
        for text in (ALIVE, ALIVE, BYEBYE) * 5:
            leaving.say(leaving.text(text))
            threading.Event().wait(0.1)
        out, _ = running.communicate(timeout=10)
    assert [json.loads(line)["name"] for line in out.splitlines()] == ["kelta-8"]


def test_two_devices_with_one_serial_number(fake, pc):
    fake(7, serial="4711")
    fake(8, serial="4711")
    done = pc.run("--timeout", "1")
    assert [row[:2] for row in words(done.stdout)[1:]] == [["kelta-7", "4711"], ["kelta-8", "4711"]]
    assert done.stderr == ("upnpvelorn-browse: 2 devices have the serial number 4711: 10.77.0.7, 10.77.0.8. Others list only one of them; "
                           "give each a number of its own.\n")


def test_all(fake, pc, lan):
    other = RootDevice(lan.host(addresses=["10.77.0.50/24"]))
    fake(7)
    assert [one["name"] for one in pc.objects("--timeout", "1")] == ["kelta-7"]
    kelta, found = pc.objects("--timeout", "1", "--all")
    assert (kelta["kelta"], found["kelta"], other.answer[:8]) == (True, False, b"HTTP/1.1")
    assert {key: found[key] for key in ("name", "serial", "type", "firmware", "manufacturer", "address", "uuid")} == {
        "name": "Gate & way", "serial": "s-1", "type": "G 1", "firmware": "7", "manufacturer": "Others", "address": "10.77.0.50",
        "uuid": "9-9"}


def test_interface(fake, pc, lan):
    """By name or address; what is on another one is not heard."""
    fake(7)
    pc.host.add_interface("eth1", ["10.77.0.4/24"])
    assert pc.objects("--timeout", "1", "--interface", "eth1")[0]["interface"] == "eth1"
    assert pc.objects("--timeout", "1", "--interface", "10.77.0.4")[0]["interface"] == "eth1"
    pc.host.ip("link add eth2 type veth peer name far", "link set far up", "addr add 10.99.0.1/24 dev eth2", "link set eth2 up")
    assert pc.objects("--timeout", "0.6", "--interface", "eth2") == []
    done = pc.run("--interface", "eth9")
    assert (done.returncode, done.stdout) == (2, "")
    assert "No interface eth9 is up, connected and has an IPv4 address; these are: eth0, eth1, eth2." in done.stderr


@pytest.mark.parametrize("wanted", ["kelta-7", "9000007"])
def test_address(fake, pc, wanted):
    fake(7, link_local=True)
    done = pc.run("--address", wanted, "--timeout", "1")
    assert (done.stdout, done.stderr, done.returncode) == ("10.77.0.7\n", "", 0)


def test_address_of_nobody(fake, pc):
    fake(7)
    done = pc.run("--address", "kelta-77", "--timeout", "0.6")
    assert (done.stdout, done.returncode) == ("", 1)
    assert done.stderr == ("upnpvelorn-browse: Nobody called kelta-77 was heard in 0.6 s. See who is there: upnpvelorn-browse\n")


def test_address_of_several(fake, pc):
    fake(7, name="twin")
    fake(8, name="twin")
    done = pc.run("--address", "twin", "--timeout", "0.8")
    assert (done.stdout, done.returncode) == ("", 1)
    assert done.stderr == ("upnpvelorn-browse: 2 devices are called twin: 10.77.0.7 (serial number 9000007), 10.77.0.8 (serial number "
                           "9000008). Use the serial number, or one of the addresses.\n")


def test_a_terminal_is_not_exceeded(fake, pc):
    fake(7, link_local=True)
    fake(8, name="x" * 60)
    for columns in (40, 80, 100):
        shown = re.sub(r"\x1b\[[0-9;]*[mK]", "", pc.on_terminal("--timeout", "1", columns=columns))
        table = [line for line in shown.replace("\r\n", "\n").split("\n") if "kelta-7" in line or "NAME" in line or "xxx" in line]
        table = [line.rpartition("\r")[2] for line in table]
        assert len(table) == 3
        assert max(map(len, table)) <= columns and "…" in "".join(table)


def test_colours_on_a_terminal_only(fake, pc):
    fake(7)
    assert "\x1b[1mNAME" in pc.on_terminal("--timeout", "0.8")
    plain = pc.on_terminal("--timeout", "0.8", NO_COLOR="1")
    assert "NAME" in plain and "\x1b[1m" not in plain
    assert "\x1b" not in pc.on_terminal("--timeout", "0.8", TERM="dumb")


def test_whole_values_without_a_terminal(fake, pc):
    fake(7, name="x" * 200)
    done = pc.run("--timeout", "0.8")
    assert words(done.stdout)[1][0] == "x" * 200
    assert "\x1b" not in done.stdout + done.stderr


def test_the_reader_goes_away(fake, pc):
    fake(7)
    with pc.start("--json", "--timeout", "1") as running:
        running.stdout.close()
        assert running.wait(timeout=10) == 141
        assert running.stderr.read() == ""


def test_interrupted(pc):
    with pc.start() as running:
        wait_for(lambda: b"browse" in open(f"/proc/{running.pid}/cmdline", "rb").read().split(b"\0")[1], what="Python runs")
        wait_for(lambda: any("socket" in os.readlink(f"/proc/{running.pid}/fd/{one}") for one in os.listdir(f"/proc/{running.pid}/fd")),
                 what="it listens")
        running.send_signal(signal.SIGINT)
        assert running.wait(timeout=10) == 130
        assert (running.stdout.read(), running.stderr.read()) == ("", "")
