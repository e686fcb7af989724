"""The list: who is shown, how, and what is said when something is in the way."""

import concurrent.futures
import contextlib
import itertools
import json
import re
import signal
import socket
import threading

import pytest

from browsing import Browser
from fakedevice import FakeDevice, RootDevice, addresses_of
from scanning import announcing
from simdevice import sandbox
from simdevice.controlpoint import ANNOUNCEMENTS, SSDP
from texts import ALIVE, BYEBYE, UUID

HEAD = ["NAME", "SERIAL", "TYPE", "FIRMWARE", "ADDRESSES", "CONFIGURED", "SERVICES"]
SERVICES = ["http:80", "scpi:55000", "daqStream:7411"]
KEYS = {"kelta", "name", "serial", "type", "family", "firmware", "manufacturer", "address", "addresses", "interface", "configured",
        "gateway", "services", "uuid", "description", "announced", "answered", "problems"}
LONG = "x" * 200

# Who stands on the network of the tests that only look: number, and what is special.
POPULATION = {7: {"link_local": True}, 8: {"serial": "4711", "name": "twin"}, 9: {"serial": "4711", "name": "twin"}, 30: {}, 100: {},
              11: {"http": False, "announcement": None},
              12: {"answer": None, "alive": None, "announcement": lambda data: data.replace(b'},"services"', b'},"name":"eth1"}},"services"')},
              13: {"link_local": True, "announcement": None}, 14: {"name": LONG}}
RUNS = {"plain": [], "json": ["--json"], "all": ["--json", "--all"], "by name": ["--address", "kelta-7"], "by serial": ["--address", "9000007"],
        "nobody": ["--address", "kelta-77"], "several": ["--address", "twin"], "seen on eth1": ["--json", "--interface", "eth1"],
        "seen on 10.77.0.4": ["--json", "--interface", "10.77.0.4"], "seen on eth2": ["--json", "--interface", "eth2"]}
TERMINALS = {"40": {"columns": 40}, "80": {"columns": 80}, "100": {"columns": 100}, "NO_COLOR": {"NO_COLOR": "1"}, "dumb": {"TERM": "dumb"}}


def words(text: str) -> list:
    return [line.split() for line in text.splitlines()]


@pytest.fixture(scope="module")
def listed(shared_lan):
    """What came out of each of RUNS and TERMINALS. The PC has eth1 on the same network and eth2 on another one."""
    host = shared_lan.host(addresses=["10.77.0.3/24"])
    host.add_interface("eth1", ["10.77.0.4/24"])
    host.ip("link add eth2 type veth peer name far", "link set far up", "addr add 10.99.0.1/24 dev eth2", "link set eth2 up")
    shared = shared_lan.host(addresses=addresses_of(*POPULATION))
    devices = [FakeDevice(shared_lan, number, host=shared, **planted) for number, planted in POPULATION.items()]
    RootDevice(shared_lan.host(addresses=["10.77.0.50/24"]))
    pc = Browser(host)
    with concurrent.futures.ThreadPoolExecutor(16) as pool:
        runs = {name: pool.submit(pc.run, *arguments, "--timeout", "2") for name, arguments in RUNS.items()}
        runs.update({name: pool.submit(pc.on_terminal, "--timeout", "2", **options) for name, options in TERMINALS.items()})
    for one in devices:
        one.close()
    return {name: one.result() for name, one in runs.items()}


def objects(done) -> dict:
    """By the last number of the address."""
    return {int(one["address"].split(".")[-1]): one for one in map(json.loads, done.stdout.splitlines())}


def row(done, word: str) -> list:
    """The cells of the one row with this word."""
    found, = [line for line in words(done.stdout) if word in line]
    return found


def told(done, word: str) -> str:
    """The one remark about it."""
    found, = [line for line in done.stderr.splitlines() if word in line]
    return found


def test_a_row_has_everything(listed):
    assert words(listed["plain"].stdout)[0] == HEAD
    assert row(listed["plain"], "kelta-7") == ["kelta-7", "9000007", "Kelta", "1.4.2", "10.77.0.7,", "169.254.0.7", "(link-local)", "dhcp",
                                               *SERVICES]
    assert listed["plain"].returncode == 0


def test_rows_are_aligned(listed):
    lines = listed["plain"].stdout.splitlines()
    assert {line[lines[0].index("ADDRESSES"):][:6] for line in lines[1:]} == {"10.77."}


def test_sorted_by_name_with_numbers_as_numbers(listed):
    names = [line[0] for line in words(listed["plain"].stdout)]
    assert names == ["NAME", "-", "kelta-7", "kelta-12", "kelta-13", "kelta-30", "kelta-100", "twin", "twin", LONG]


def test_whole_values_and_no_control_sequences_without_a_terminal(listed):
    assert LONG in listed["plain"].stdout
    assert "\x1b" not in listed["plain"].stdout + listed["plain"].stderr


def test_json(listed):
    found = objects(listed["json"])
    assert set(found) == set(POPULATION)
    assert all(set(one) == KEYS for one in found.values())
    assert found[7] == {
        "kelta": True, "name": "kelta-7", "serial": "9000007", "type": "Kelta", "family": "Kelta", "firmware": "1.4.2",
        "manufacturer": "Zorv", "address": "10.77.0.7", "addresses": [{"address": "10.77.0.7", "link_local": False},
                                                                      {"address": "169.254.0.7", "link_local": True}],
        "interface": found[7]["interface"], "configured": "dhcp", "gateway": "10.77.0.1",
        "services": [{"type": "http", "port": 80}, {"type": "scpi", "port": 55000}, {"type": "daqStream", "port": 7411}],
        "uuid": found[7]["uuid"], "description": "http://10.77.0.7:8200/rootDesc.xml", "announced": True, "answered": True,
        "problems": []}


def test_link_local_address_without_announcements(listed):
    """The two UUIDs of one device, told apart by a 0, make one row."""
    assert [one["address"] for one in objects(listed["json"])[13]["addresses"]] == ["10.77.0.13", "169.254.0.13"]


def test_all(listed):
    found = objects(listed["all"])
    assert set(found) == {*POPULATION, 50}
    assert {key: found[50][key] for key in ("kelta", "name", "serial", "type", "firmware", "manufacturer", "address", "uuid")} == {
        "kelta": False, "name": "Gate & way", "serial": "s-1", "type": "G 1", "firmware": "7", "manufacturer": "Others",
        "address": "10.77.0.50", "uuid": "9-9"}


def test_unreachable_description(listed):
    assert row(listed["plain"], "10.77.0.11") == ["-", "-", "-", "1.4.2", "10.77.0.11", "-", "-"]
    assert told(listed["plain"], "10.77.0.11:8200") == (
        "upnpvelorn-browse: 10.77.0.11: its description at http://10.77.0.11:8200/rootDesc.xml cannot be read: Connection refused. Is there "
        "a way to it, and is TCP port 8200 let through? Try: upnpvelorn-browse check 10.77.0.11")


def test_an_announcement_that_is_no_json(listed):
    """A device with two interfaces: what is whole in it is shown, and what is wrong."""
    assert row(listed["plain"], "kelta-12") == ["kelta-12", "9000012", "Kelta", "1.4.2", "10.77.0.12", "dhcp", "-"]
    assert "its announcement is no valid JSON, so other devices do not list it" in told(listed["plain"], "kelta-12")


def test_two_devices_with_one_serial_number(listed):
    assert told(listed["plain"], "4711") == ("upnpvelorn-browse: 2 devices have the serial number 4711: 10.77.0.8, 10.77.0.9. Others list "
                                             "only one of them; give each a number of its own.")


@pytest.mark.parametrize("run", ["seen on eth1", "seen on 10.77.0.4"])
def test_interface(listed, run):
    assert {one["interface"] for one in objects(listed[run]).values()} == {"eth1"}


def test_interface_of_another_network(listed):
    assert objects(listed["seen on eth2"]) == {}


@pytest.mark.parametrize("run", ["by name", "by serial"])
def test_address(listed, run):
    assert (listed[run].stdout, listed[run].stderr, listed[run].returncode) == ("10.77.0.7\n", "", 0)


def test_address_of_nobody(listed):
    assert (listed["nobody"].stdout, listed["nobody"].returncode) == ("", 1)
    assert listed["nobody"].stderr == ("upnpvelorn-browse: Nobody called kelta-77 was heard in 2 s. See who is there: upnpvelorn-browse\n")


def test_address_of_several(listed):
    assert (listed["several"].stdout, listed["several"].returncode) == ("", 1)
    assert listed["several"].stderr == ("upnpvelorn-browse: 2 devices are called twin: 10.77.0.8 (serial number 4711), 10.77.0.9 (serial "
                                        "number 4711). Use the serial number, or one of the addresses.\n")


@pytest.mark.parametrize("columns", ["40", "80", "100"])
def test_a_terminal_is_not_exceeded(listed, columns):
    shown = re.sub(r"\x1b\[[0-9;]*[mK]", "", listed[columns]).replace("\r\n", "\n").split("\n")
    table = [line.rpartition("\r")[2] for line in shown]
    table = table[next(at for at, line in enumerate(table) if line.startswith("NAME")):][:10]
    assert max(map(len, table)) <= int(columns)
    assert any(line.startswith("kelta-7 ") for line in table) and all("…" in line for line in table if line.startswith("xx"))


def test_colours(listed):
    assert "\x1b[1mNAME" in listed["80"]
    assert "NAME" in listed["NO_COLOR"] and "\x1b[1m" not in listed["NO_COLOR"]
    assert "NAME" in listed["dumb"] and "\x1b" not in listed["dumb"]


def second_device(start_device):
    device = start_device(daemon="off", addresses=["10.77.0.12/24"], mac="00:11:22:aa:bb:12")
    device.fwconfig.set(constants={"SERIALNUMBER": "4711"}, hostname="kelta-2", network={"dhcp": False, "gateway": "10.77.0.1"},
                        variables={"UUID": UUID[:-1] + "6"})
    device.install_codesys()
    device.start()
    return device


def test_real_devices_one_row_each(start_device, pc):
    """The list is complete and ends when everybody has announced himself."""
    first = start_device(addresses=["10.77.0.2/24", "169.254.1.2/16"])
    second = second_device(start_device)
    with pc.start() as running:
        pc.wait_until_it_listens()
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


def test_nobody(pc):
    done = pc.run("--timeout", "0.3")
    assert (done.stdout, done.returncode) == ("", 1)
    assert "Nobody was heard in 0.3 s. Are there devices in this network" in done.stderr


class Announcing(threading.Thread):
    """Somebody who announces himself again and again, from several ports: the kernel may choose a receiver by them. Each time
    the next announcement waits until the socket has heard the one before, or for as long as the socket waits."""

    def __init__(self, host, hearing: socket.socket):
        super().__init__()
        self.sent = self.heard = 0
        self._host, self._hearing = host, hearing
        self._ends = threading.Event()

    def run(self) -> None:
        with contextlib.ExitStack() as stack:
            sockets = itertools.cycle([stack.enter_context(self._host.socket()) for _ in range(8)])
            while not self._ends.wait(0.002):
                next(sockets).sendto(announcing("9000007"), ANNOUNCEMENTS)
                self.sent += 1
                with contextlib.suppress(TimeoutError):
                    self.heard += self._hearing.recv(65536) == announcing("9000007")

    def end(self) -> None:
        self._ends.set()
        self.join()


def test_what_another_program_hears_on_another_network_stays_with_it(lan, pc):
    pc.host.ip("link add eth2 type veth peer name far", "link set far up", "addr add 10.99.0.1/24 dev eth2", "link set eth2 up")
    with pc.host.socket() as other:
        for option in (socket.SO_REUSEADDR, socket.SO_REUSEPORT):
            other.setsockopt(socket.SOL_SOCKET, option, 1)
        other.bind(ANNOUNCEMENTS)
        other.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP,
                         socket.inet_aton(ANNOUNCEMENTS[0]) + socket.inet_aton("10.77.0.3"))
        other.settimeout(5)
        somebody = Announcing(lan.host(addresses=["10.77.0.7/24"]), other)
        somebody.start()
        found = [pc.objects("--interface", "eth2", "--timeout", "0.2") for _ in range(3)]
        somebody.end()
    assert found == [[], [], []]
    assert somebody.heard == somebody.sent > 0


@pytest.mark.parametrize("option", [socket.SO_REUSEADDR, socket.SO_REUSEPORT])
def test_a_port_that_another_program_shares(fake, pc, option):
    fake(7)
    with pc.host.socket() as other:
        other.setsockopt(socket.SOL_SOCKET, option, 1)
        other.bind(("0.0.0.0", ANNOUNCEMENTS[1]))
        done = pc.run("--timeout", "1")
    assert done.stderr == ""
    assert words(done.stdout)[1][0] == "kelta-7"


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


@pytest.mark.parametrize("port", [SSDP[1], ANNOUNCEMENTS[1]])
def test_a_port_that_is_not_shared(fake, pc, port):
    fake(7)
    with pc.host.socket() as other:
        other.bind(("0.0.0.0", port))
        done = pc.run("--timeout", "1")
    assert f"UDP port {port}: Address already in use. See which program has it: ss -lunp 'sport = :{port}'" in done.stderr
    assert words(done.stdout)[1][0] == "kelta-7"


@pytest.mark.parametrize("user", [None, 65534], ids=["root", "nobody"])
def test_beside_the_daemon(start_device, user):
    """On the device itself, whoever the daemon runs as; and what is sent to the daemon's port still reaches the daemon."""
    if user and not sandbox.is_real_root():
        pytest.skip("an ordinary user cannot be several users")
    device = start_device(user=user)
    here = Browser(device.host)
    running = here.start("--timeout", "1.5")
    found = [here.objects("--timeout", "0.6") for _ in range(2)]
    assert [[one["address"] for one in each] for each in found] == [["10.77.0.2"]] * 2
    assert here.run("check", "10.77.0.2", "--timeout", "0").returncode == 0
    assert running.communicate(timeout=20)[1] == ""


def test_byebye(fake, pc):
    """Whoever said byebye is not listed, whatever came before."""
    leaving = fake(7, alive=None, announcement=None, answer=None)
    fake(8)
    with pc.start("--json", "--timeout", "1") as running:
        pc.wait_until_it_listens()
        for text in (ALIVE, ALIVE, BYEBYE):
            leaving.say(leaving.text(text))
        out, _ = running.communicate(timeout=30)
    assert [json.loads(line)["name"] for line in out.splitlines()] == ["kelta-8"]


def test_interface_that_is_not_there(pc):
    done = pc.run("--interface", "eth9")
    assert (done.returncode, done.stdout) == (2, "")
    assert done.stderr == "upnpvelorn-browse: No interface eth9 is up, connected and has an IPv4 address; these are: eth0.\n"


def test_the_reader_goes_away(fake, pc):
    fake(7)
    with pc.start("--json", "--timeout", "1") as running:
        running.stdout.close()
        assert running.wait(timeout=10) == 141
        assert running.stderr.read() == ""


def test_an_output_that_takes_nothing(fake, pc):
    fake(7)
    with open("/dev/full", "w") as full, pc.start("--json", "--timeout", "0.6", stdout=full) as running:
        _, err = running.communicate(timeout=10)
    assert (err, running.returncode) == (
        "upnpvelorn-browse: No space left on device. That is this machine's trouble, not a device's.\n", 1)


def test_a_closed_output(pc):
    done = pc.host.command(["sh", "-c", '"$@" >&-', "sh", *pc.command("--timeout", "0.1")], check=False)
    assert done.returncode == 1
    assert done.stderr.startswith("upnpvelorn-browse: Nobody was heard")


def test_interrupted(pc):
    with pc.start() as running:
        pc.wait_until_it_listens()
        running.send_signal(signal.SIGINT)
        assert running.wait(timeout=10) == 130
        assert (running.stdout.read(), running.stderr.read()) == ("", "")
