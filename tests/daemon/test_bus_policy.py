"""The bus policy that is installed with the daemon: who may be the daemon, who may read, who may change something."""

import os
import pathlib
import re
import shutil
import subprocess
import xml.etree.ElementTree

import dbus
import dbus.lowlevel
import pytest
import shortlived

from simdevice import namespaces as ns
from simdevice import sandbox
from scanning import announcing
from simdevice.bus import PROPERTIES, RESTRICTED
from simdevice.controlpoint import ControlPoint
from simdevice.device import ADDRESS, BUS_NAME, Device, default_program
from simdevice.sandbox import PYTHON
from simdevice.values import Typed, to_dbus
from simdevice.waiting import wait_for

USER, STRANGER = 64001, 64002
SERIAL = "912345678"
SETTINGS, SCAN, DEVICE, MONITOR = "/settings", "/zorvscan", f"/zorvscan/{SERIAL}", "/monitor"
OWN = {SETTINGS: "local.UpnpSettings", SCAN: "local.ZorvScan", DEVICE: "local.ZorvDevice",
       MONITOR: "com.zorv.upnpvelorn.Monitor"}
ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
BUILT = pathlib.Path(default_program())
INTROSPECTABLE, PEER = "org.freedesktop.DBus.Introspectable", "org.freedesktop.DBus.Peer"
DENIED = "org.freedesktop.DBus.Error.AccessDenied"

ARGUMENTS = {"allChilds": ("s", ("",)), "jsonValue": ("s", ("params/device/uuid",)),
             "connmanServicePropertyChanged": ("sv", ("State", Typed("s", "idle")))}
CHANGING = {"configureIp", "setupMulticast", "sendAnnouncement", "pendingDatagrams", "configChanged",
            "connmanServicePropertyChanged"}

pytestmark = pytest.mark.skipif(not sandbox.is_real_root(), reason="an ordinary user cannot be several users")


def members() -> list:
    """Path and name of every method that the daemon's own interfaces have."""
    found = []
    for path, interface in OWN.items():
        tree = xml.etree.ElementTree.parse(ROOT / "packaging" / "interfaces" / f"{interface}.xml")
        found += [(path, name) for name in dict.fromkeys(one.get("name") for one in tree.iter("method"))]
    return found


READING = [(path, member) for path, member in members() if member not in CHANGING]
WRITING = [(path, member) for path, member in members() if member in CHANGING]


def policy_file() -> pathlib.Path:
    return BUILT.parent / "packaging" / f"{BUS_NAME}.conf"


@pytest.fixture(scope="module")
def users():
    """The system's list of users, with the two among them: the bus looks up whom a policy names and who connects."""
    name, = set(re.findall(r'<policy user="(?!root)(\w+)">', policy_file().read_text()))
    substitute = pathlib.Path("/run/simdevice/passwd")
    known = [line for line in pathlib.Path("/etc/passwd").read_text().splitlines() if not line.startswith(f"{name}:")]
    added = [f"{one}:x:{number}:{number}::/:/usr/sbin/nologin" for one, number in ((name, USER), ("stranger", STRANGER))]
    substitute.write_text("\n".join([*known, *added, ""]))
    ns.bind(str(substitute), "/etc/passwd")
    yield
    ns.unmount("/etc/passwd")


def device_with(lan, policy: str) -> Device:
    # Where every user can reach it
    program = f"/run/simdevice/{BUILT.name}"
    if not os.path.exists(program):
        shutil.copy(BUILT, program)
    device = Device(lan, bus_policy=policy, user=USER, program=program)
    device.fwconfig.set(constants={"SERIALNUMBER": SERIAL})
    device.start()
    return device


@pytest.fixture(scope="module", params=[RESTRICTED, ""], ids=["restricted bus", "bus that allows all else"])
def device(request, users, shared_lan):
    made = device_with(shared_lan, f"{request.param}<include>{policy_file()}</include>")
    wait_for(lambda: made.call("allChilds", path=SCAN, interface=OWN[SCAN]), 15, "the device hears itself")
    yield made
    crashed, output = made.crashed(), made.output
    made.close()
    if crashed:
        pytest.fail(f"the daemon ended:\n{output}", pytrace=False)


@pytest.fixture
def stranger(device):
    connection = device.bus.connect(STRANGER)
    yield connection
    connection.close()


def call(connection, path: str, interface, member: str, signature: str = None, arguments=None):
    """The answer, or the name of the error."""
    if signature is None:
        signature, arguments = ARGUMENTS.get(member, ("", ()))
    message = dbus.lowlevel.MethodCallMessage(BUS_NAME, path, interface, member)
    if signature:
        kinds = [str(kind) for kind in dbus.Signature(signature)]
        message.append(*[to_dbus(kind, value) for kind, value in zip(kinds, arguments)], signature=signature)
    try:
        return connection.raw.send_message_with_reply_and_block(message, 5).get_args_list()
    except dbus.DBusException as error:
        return error.get_dbus_name()


def test_daemon_runs_without_rights(device):
    fields = dict(line.split(":\t") for line in pathlib.Path(f"/proc/{device.pid}/status").read_text().splitlines())
    assert fields["Uid"].split() == [str(USER)] * 4
    assert {fields[name] for name in ("CapInh", "CapPrm", "CapEff", "CapBnd", "CapAmb")} == {"0" * 16}


@pytest.mark.parametrize("user", [0, STRANGER])
def test_nobody_else_owns_the_name(users, shared_lan, user):
    device = Device(shared_lan, bus_policy=f"{RESTRICTED}<include>{policy_file()}</include>")
    try:
        connection = device.bus.connect(user)
        with pytest.raises(dbus.DBusException) as failure:
            connection.own(BUS_NAME)
        assert failure.value.get_dbus_name() == DENIED
        daemons = device.bus.connect(USER)
        assert daemons.own(BUS_NAME)
    finally:
        device.close()


@pytest.mark.parametrize("path, member", READING)
def test_anybody_may_read(device, stranger, path, member):
    got = call(stranger, path, OWN[path], member)
    assert isinstance(got, list) and len(got) == 1
    assert got == call(device.bus.connection, path, OWN[path], member)


@pytest.mark.parametrize("path", OWN)
@pytest.mark.parametrize("interface, member, arguments, count", [
    pytest.param(INTROSPECTABLE, "Introspect", (), 1, id="Introspect"),
    pytest.param(PEER, "Ping", (), 0, id="Ping"),
    pytest.param(PROPERTIES, "GetAll", ("",), 1, id="GetAll"),
])
def test_anybody_may_look_around(stranger, path, interface, member, arguments, count):
    got = call(stranger, path, interface, member, "s" * len(arguments), arguments)
    assert isinstance(got, list) and len(got) == count


@pytest.mark.parametrize("path, member", WRITING)
@pytest.mark.parametrize("interface", ["own", None, INTROSPECTABLE, PROPERTIES, PEER, "local.UpnpSettings", "local.ZorvScan",
                                       "local.ZorvDevice", "org.qtproject.Qt.QObject", "any.Thing"])
def test_only_root_changes_something(device, stranger, path, member, interface):
    """With whatever interface it is asked for; a call need not name one."""
    named = OWN[path] if interface == "own" else interface
    got = call(stranger, path, named, member)
    if named in (INTROSPECTABLE, PEER):
        assert got.startswith("org.freedesktop.DBus.Error.Unknown")  # let through, and nothing there has that name
    else:
        assert got == DENIED
    if interface in ("own", None):
        assert isinstance(call(device.bus.connection, path, named, member), list)


@pytest.mark.parametrize("path, member", READING)
def test_calls_without_an_interface_are_denied_even_for_reading(stranger, path, member):
    assert call(stranger, path, None, member) == DENIED


@pytest.mark.parametrize("path, interface, member", [
    (SETTINGS, OWN[SETTINGS], "addedLater"), (SCAN, OWN[SCAN], "addedLater"), (DEVICE, OWN[DEVICE], "addedLater"),
    (SETTINGS, "local.Another", "getHttpPort"), ("/another", "local.Another", "get"), (SETTINGS, PROPERTIES, "Set"),
    (SETTINGS, "org.qtproject.Qt.QObject", "deleteLater"),
])
def test_what_the_policy_does_not_name_is_closed(stranger, path, interface, member):
    assert call(stranger, path, interface, member) == DENIED


@pytest.mark.parametrize("program", [ROOT / "examples/list_devices.py", BUILT.parent / "examples/list_devices"],
                         ids=["python", "cpp"])
def test_examples_work_for_anybody(device, program):
    if not program.exists():
        pytest.skip("the C++ example is not built (BUILD_EXAMPLES)")
    reachable = shutil.copy(program, "/run/simdevice/example")
    interpreter = [PYTHON] if program.suffix == ".py" else []
    done = subprocess.run(["setpriv", f"--reuid={STRANGER}", f"--regid={STRANGER}", "--clear-groups", *interpreter, reachable],
                          env=shortlived.environment(DBUS_SYSTEM_BUS_ADDRESS=device.bus.address), capture_output=True, text=True,
                          timeout=20)
    assert (done.stderr, done.stdout.split()) == ("", ["kelta", SERIAL, "Kelta", "1.4.2", ADDRESS])


def test_anybody_is_told_of_devices(device, stranger):
    told = []
    stranger.raw.add_signal_receiver(lambda *lists: told.append([str(uuid) for uuid in lists[0]]), "DevicesChanged", OWN[MONITOR],
                                     BUS_NAME, MONITOR)
    socket = ControlPoint(device.host)
    socket.announce(announcing("visitor", 0))
    wait_for(lambda: any("visitor" in one for one in told), what="the visitor is told of", seen=lambda: told)


@pytest.mark.parametrize("name", ["Version", "Devices", "AnnouncementsTaken"])
def test_anybody_may_read_what_the_daemon_has_done(stranger, name):
    assert isinstance(call(stranger, MONITOR, PROPERTIES, "Get", "ss", (OWN[MONITOR], name)), list)
    assert call(stranger, MONITOR, PROPERTIES, "Set", "ssv", (OWN[MONITOR], name, Typed("s", "x"))) == DENIED


@pytest.mark.parametrize("words, status, text", [
    (["list"], 0, SERIAL), (["status"], 0, "Devices known"), (["show", SERIAL], 0, "daqStream:7411"),
    (["announce"], 1, "only root may change something"), (["reconfigure"], 1, "only root may change something")],
    ids=lambda value: value[0] if isinstance(value, list) else "")
def test_the_tool_works_for_anybody(device, words, status, text):
    if BUILT.name.endswith("-emulated"):
        pytest.skip("upnpvelornctl is built for another processor")
    reachable = shutil.copy(BUILT.parent / "upnpvelornctl", "/run/simdevice/upnpvelornctl")
    done = subprocess.run(["setpriv", f"--reuid={STRANGER}", f"--regid={STRANGER}", "--clear-groups", reachable, *words],
                          env=shortlived.environment(DBUS_SYSTEM_BUS_ADDRESS=device.bus.address), capture_output=True, text=True,
                          timeout=20)
    assert done.returncode == status
    assert text in (done.stderr if status else done.stdout)
    assert (done.stdout if status else done.stderr) == ""


def test_denied_calls_have_no_effect(device, stranger):
    device.fwconfig.forget_calls()
    for interface in (OWN[SETTINGS], None):
        assert call(stranger, SETTINGS, interface, "configureIp") == DENIED
    assert device.fwconfig.calls == []
    assert call(device.bus.connection, SETTINGS, OWN[SETTINGS], "configureIp") == []
    assert [one.member for one in device.fwconfig.calls] == ["GetAll"]


def test_signals_of_connman_reach_the_daemon(device, stranger):
    device.connman.ipv4("10.77.0.9", "10.77.0.1", "static")
    wait_for(lambda: device.call("getAddressStr") == "10.77.0.9", what="the address that connman signals")
    # From one who is not connman, nothing: the answer comes after the signal.
    device.connman.property_changed("IPv4", Typed("a{sv}", {"Address": "10.77.0.66"}), connection=stranger)
    assert call(stranger, SETTINGS, OWN[SETTINGS], "getAddressStr") == ["10.77.0.9"]
    device.connman.ipv4(ADDRESS, "10.77.0.1", "dhcp")
    wait_for(lambda: device.call("getAddressStr") == ADDRESS, what="the old address")


def test_answers_of_the_configuration_service_reach_the_daemon(device):
    assert device.call("getModelNr") == b"1.4.2"
    assert device.call("getSerial") == SERIAL.encode()
