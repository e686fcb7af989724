#!/usr/bin/python3
"""Installs the packages in the booted system that this runs in, and checks that the daemon is there, works, is as
confined as the service file promises, and comes and goes as it should: booted.py PACKAGE.deb...

packaging/try.sh makes that system. It is changed for good.
"""

import contextlib
import os
import pathlib
import subprocess
import sys
import time

sys.path[0] = str(pathlib.Path(__file__).resolve().parent.parent)

import dbus

from simdevice.bus import Connection
from simdevice.connman import Connman
from simdevice.controlpoint import ControlPoint
from simdevice.device import BUS_NAME, CODESYS, ICON, png
from simdevice.fwconfig import FwConfig
from simdevice.network import Namespace
from simdevice.waiting import wait_for

BUS_ADDRESS = "unix:path=/run/dbus/system_bus_socket"
SERVICE = "upnpvelorn.service"
ADDRESS, ADDRESS6, PC_ADDRESS = "10.77.0.2", "fd00:77::2", "10.77.0.3"
NOBODY = 65534
AS_NOBODY = ["setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}", "--clear-groups"]

# The services around the daemon run as root here.
POLICY = """<busconfig>
  <policy user="root"><allow own="com.zorv.fwconfig"/><allow own="net.connman"/></policy>
  <policy context="default"><allow send_destination="com.zorv.fwconfig"/></policy>
</busconfig>"""


class Pc(Namespace):
    """A second host, on the other end of eth0."""

    def __init__(self):
        os.makedirs("/run/netns", exist_ok=True)
        super().__init__("pc")
        run("ip", "link", "add", "eth0", "type", "veth", "peer", "name", "eth0", "netns", self.name)
        self.ip("link set lo up", f"addr add {PC_ADDRESS}/24 dev eth0", "link set eth0 up", "route add default dev eth0")
        run("ip", "addr", "add", f"{ADDRESS}/24", "dev", "eth0")
        run("ip", "addr", "add", f"{ADDRESS6}/64", "dev", "eth0", "nodad")
        run("ip", "link", "set", "eth0", "up")
        run("ip", "route", "add", "default", "dev", "eth0")

    def addresses(self) -> list:
        return [f"{PC_ADDRESS}/24"]


class SystemBus:
    """What Connman wants of a bus."""

    @staticmethod
    def connect() -> Connection:
        return Connection(BUS_ADDRESS)


def run(*command: str) -> str:
    done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True)
    if done.returncode != 0:
        raise RuntimeError(f"{' '.join(command)}: status {done.returncode}\n{done.stdout}{done.stderr}")
    return done.stdout


def state(name: str) -> str:
    return run("systemctl", "show", SERVICE, "--value", "--property", name).strip()


def states(*names: str) -> list:
    return [state(name) for name in names]


def expect(what: str, got, wanted) -> None:
    if got != wanted:
        journal = run("journalctl", "--no-pager", "--unit", SERVICE, "--lines", "30")
        raise AssertionError(f"{what}: {got!r} instead of {wanted!r}\n{journal}")
    print(f"  {what}: {got}", flush=True)


@contextlib.contextmanager
def connected(user: int = 0):
    """A connection to the bus as another user."""
    os.seteuid(user)
    try:
        connection = SystemBus.connect()
    finally:
        os.seteuid(0)
    yield connection
    connection.close()


def ask(member: str, user: int = 0, path: str = "/settings", interface: str = "local.UpnpSettings", **options):
    """What the daemon answers, or the name of the error."""
    with connected(user) as connection:
        try:
            return connection.call(BUS_NAME, path, interface, member, **options)
        except dbus.DBusException as error:
            return error.get_dbus_name().rpartition(".")[2]


def wait_until_ready() -> None:
    wait_for(lambda: ask("getHttpPort") == 8200, 20, "the daemon answers")


class Trial:
    def __init__(self):
        # systemd-nspawn lets nobody write there; the host name is this system's own.
        run("mount", "--options", "remount,bind,rw", "/proc/sys")
        pathlib.Path("/etc/dbus-1/system.d/around.conf").write_text(POLICY)
        run("systemctl", "reload", "dbus")
        self.pc = Pc()
        self.peer = ControlPoint(self.pc, ADDRESS)
        self.heard = self.peer.listen_ssdp()
        self.scan = self.peer.listen_announcements()
        self.fwconfig = FwConfig(BUS_ADDRESS)
        self.fwconfig.set(constants={"SERIALNUMBER": "912345678"})
        pathlib.Path("/proc/sys/kernel/hostname").write_text("kelta\n")  # as the configuration service has it
        self.fwconfig.start()
        self.connman = Connman(SystemBus)
        self.connman.start()
        icon = pathlib.Path(ICON)
        icon.parent.mkdir(parents=True)
        icon.write_bytes(png())

    def install(self, packages: list) -> None:
        run("dpkg", "--install", *packages)
        expect("after the installation", states("ActiveState", "Result", "NRestarts"), ["active", "success", "0"])
        wait_until_ready()

    def confined(self) -> None:
        status = pathlib.Path(f"/proc/{state('MainPID')}/status").read_text()
        fields = dict(line.split(":\t", 1) for line in status.splitlines())
        expect("user", run("id", "--name", "--user", fields["Uid"].split()[0]).strip(), "upnpvelorn")
        expect("capabilities", {fields[name] for name in ("CapInh", "CapPrm", "CapEff", "CapBnd", "CapAmb")}, {"0" * 16})
        expect("system call filter", fields["Seccomp"], "2")
        limits = pathlib.Path(f"/proc/{state('MainPID')}/limits").read_text()
        expect("open files", [line.split()[3] for line in limits.splitlines() if "open files" in line], ["4096"])
        verdict = run("systemd-analyze", "security", "--no-pager", SERVICE).splitlines()[-1]
        print(f"  {verdict.strip('→ ')}")

    def found(self) -> None:
        expect("found by a search", [b"Kelta/1.4.2" in answer.data for answer in self.peer.search("upnp:rootdevice")], [True])
        expect("description", b"912345678" in self.peer.http_raw(b"GET /rootDesc.xml HTTP/1.1\r\n\r\n"), True)
        expect("icon", self.peer.http_raw(b"GET /icons/kelta_icon48.png HTTP/1.1\r\n\r\n").endswith(png()), True)
        wait_for(lambda: ask("allChilds", path="/zorvscan", interface="local.ZorvScan"), 15, "it hears itself")

    def browsed(self) -> None:
        """By the tool, on the device itself, and as nobody: it needs no rights."""
        command = [*AS_NOBODY, "upnpvelorn-browse"]
        expect("its address by its serial number", run(*command, "--address", "912345678", "--timeout", "3"), f"{ADDRESS}\n")
        run(*command, "check", ADDRESS, "--timeout", "0")
        print("  nothing wrong with it")

    def controlled(self) -> None:
        """By the tool of the device, as nobody."""
        row = run(*AS_NOBODY, "upnpvelornctl", "list", "--json")
        expect("nobody lists it", '"serial": "912345678"' in row and f'"address": "{ADDRESS}"' in row, True)
        expect("nobody sees its status", "912345678" in run(*AS_NOBODY, "upnpvelornctl", "status"), True)
        lines = run(*AS_NOBODY, "upnpvelornctl", "check").splitlines()
        expect("nobody has it checked", [line for line in lines if not line.startswith("✓")], [])
        denied = subprocess.run([*AS_NOBODY, "upnpvelornctl", "announce"], capture_output=True, text=True)
        expect("nobody has it announced", [denied.returncode, "only root" in denied.stderr], [1, True])
        expect("root has it announced", run("upnpvelornctl", "announce").startswith("Announced: "), True)

    def asked(self) -> None:
        expect("nobody asks for the address", ask("getAddressStr", NOBODY), ADDRESS)
        expect("nobody has it configured", ask("configureIp", NOBODY), "AccessDenied")
        expect("root has it configured", ask("configureIp"), None)

    def follows(self) -> None:
        self.connman.ipv4("10.77.0.9", "10.77.0.1", "static")
        wait_for(lambda: ask("getAddressStr") == "10.77.0.9", what="the address that connman signals")
        ask("configureIp")
        pathlib.Path("/proc/sys/kernel/hostname").write_text("renamed\n")
        wait_for(lambda: ask("strHostname") == "renamed", what="a new host name")
        expect("IPv6 address announced", ADDRESS6.encode() in self.announced(), True)
        expect("CODESYS announced", b"codesys" in self.announced().lower(), False)
        program = pathlib.Path(CODESYS)
        program.parent.mkdir(parents=True)
        program.touch(mode=0o755)
        ask("configureIp")
        expect("CODESYS announced", b"codesys" in self.announced().lower(), True)

    def announced(self) -> bytes:
        self.scan.clear()
        ask("sendAnnouncement", path="/zorvscan", interface="local.ZorvScan")
        return self.scan.wait_for()[0].data

    def survives_the_bus(self) -> None:
        before = state("MainPID")
        self.connman.stop()
        self.fwconfig.stop()
        run("systemctl", "restart", "dbus")
        self.fwconfig.start()
        self.connman.start()
        wait_until_ready()
        expect("the bus restarted", [state("MainPID") == before, *states("ActiveState", "NRestarts")], [True, "active", "0"])

    def is_updated(self, packages: list) -> None:
        before = state("MainPID")
        run("dpkg", "--install", *packages)
        wait_until_ready()
        expect("installed again", [state("MainPID") == before, *states("ActiveState", "NRestarts")], [False, "active", "0"])

    def comes_back(self) -> None:
        os.kill(int(state("MainPID")), 9)
        wait_for(lambda: state("NRestarts") == "1", what="it is started again")
        wait_until_ready()
        expect("killed", states("ActiveState", "NRestarts"), ["active", "1"])

    def stops(self) -> None:
        self.heard.clear()
        begun = time.monotonic()
        run("systemctl", "stop", SERVICE)
        took = time.monotonic() - begun
        goodbyes = self.heard.matching(b"ssdp:byebye")
        expect("stopped", states("ActiveState", "Result"), ["inactive", "success"])
        expect("said byebye", bool(goodbyes), True)
        print(f"  {len(goodbyes)} times in {goodbyes[-1].time - goodbyes[0].time:.3f} s; the stop took {took:.3f} s")
        expect("nothing came after it", self.heard.received[-1] == goodbyes[-1], True)

    def purges(self) -> None:
        run("systemctl", "start", SERVICE)
        wait_until_ready()
        run("dpkg", "--purge", "upnpvelorn", "upnpvelorn-examples", "upnpvelorn-tools")
        with connected() as connection:
            expect("the name's owner", connection.raw.name_has_owner(BUS_NAME), False)
        left = run("find", "/usr", "/etc", "/lib/systemd", "/var/lib", "-xdev", "-name", "*upnpvelorn*")
        expect("files left", [name for name in left.split() if "/dpkg/" not in name], [])


def main() -> None:
    packages = sys.argv[1:]
    trial = Trial()
    for name, step in {
            "Installed": lambda: trial.install(packages), "Confined": trial.confined, "Found": trial.found,
            "Browsed": trial.browsed, "Controlled": trial.controlled, "Asked": trial.asked,
            "Follows the network": trial.follows, "Survives the bus": trial.survives_the_bus,
            "Is updated": lambda: trial.is_updated(packages), "Comes back": trial.comes_back, "Stops": trial.stops,
            "Is purged": trial.purges}.items():
        print(name, flush=True)
        step()
    print("Everything is as it should be.")


if __name__ == "__main__":
    main()
