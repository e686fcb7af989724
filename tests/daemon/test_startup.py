"""How the daemon starts: whom it asks, in which order, and what becomes of it when somebody does not answer."""

import contextlib
import re
import shutil
import socket

import dbus
import pytest

from simdevice.bus import PROPERTIES
from simdevice.device import BUS_NAME, HTTP_PORT
from simdevice.values import Typed
from simdevice.waiting import wait_for
from texts import ALIVE, ANSWER, DESCRIPTION, KERNEL_UUID, UUID, expect_notifies, notifies, replaced
from wirebytes import compare_bytes

VARIABLES, VERSION, CONSTANTS = (f"com.zorv.fwconfig.{name}"
                                 for name in ("systemvariables", "fwversion", "systemconstants"))
NO_ADDRESS = replaced(ALIVE, address="")
GET_UUID = "/systemvariables.get"
KERNEL_UUID_FILE = "/proc/sys/kernel/random/uuid"


def uuid_of(peer) -> str:
    """The UUID that the device announces."""
    return re.search(r"\r\nUSN: uuid:Upnp-BasicDevice-1_0-(.*)::upnp:rootdevice\r\n", peer.search()[0].text)[1]


def written_variables(device) -> list:
    return [(call.member, call.arguments) for call in device.fwconfig.calls
            if call.path == "/systemvariables" and call.member != "get"]


def replace_kernel_uuid_file(device, path) -> None:
    device.host.command([*device.room.prefix, "mount", "--bind", str(path), KERNEL_UUID_FILE])


# The bus name

def refused(device) -> None:
    line = wait_for(lambda: device.syslog.lines, what="a log line")[0]
    assert re.fullmatch(rb"<178>[A-Z][a-z]{2} [ \d]\d \d\d:\d\d:\d\d upnp: registering dbus connection failed\.",
                        line.raw)
    assert len(device.syslog.lines) == 1


def test_a_second_instance_opens_no_socket_but_those_of_bus_and_log(device, tmp_path):
    if not shutil.which("strace"):
        pytest.skip("strace is not installed")
    trace, traced = tmp_path / "trace", tmp_path / "upnpvelorn"
    traced.write_text(f'#!/bin/sh\nexport ASAN_OPTIONS=detect_leaks=0\n'
                      f'exec strace -f -e trace=socket,socketpair -o "{trace}" "{device.program}"\n')
    traced.chmod(0o755)
    device.program = str(traced)
    assert device.start_another().wait(30) == 255
    calls = [line for line in trace.read_text().splitlines() if "socket" in line]
    assert calls and not [line for line in calls if "AF_UNIX" not in line]


def test_a_second_instance_logs_one_critical_line_and_ends_with_255(ssdp, device, peer):
    announcements = peer.listen_announcements()
    expect_notifies(ssdp, NO_ADDRESS, ALIVE)
    before = len(device.fwconfig.calls)
    assert device.start_another().wait(15) == 255
    refused(device)
    assert len(device.fwconfig.calls) == before
    compare_bytes(peer.search()[0].data, ANSWER)
    assert not notifies(ssdp)
    assert not announcements.received


def test_a_refused_instance_opens_no_socket_but_those_of_bus_and_log(start_device):
    device = start_device(daemon="off")
    owner = device.bus.connect()
    assert owner.own(BUS_NAME)
    device.start(wait=False)
    sockets = set()

    def ended() -> bool:
        with contextlib.suppress(OSError):
            sockets.update(entry for entry in device.open_files() if entry.startswith("socket:"))
        assert not device.udp_ports() and not device.listens(HTTP_PORT)
        return not device.running

    wait_for(ended, what="the daemon ends")
    assert device.wait_for_exit() == 255
    assert len(sockets) <= 2
    refused(device)
    owner.close()


def test_without_a_bus_the_daemon_ends_with_255(start_device, ssdp, peer):
    device = start_device(daemon="starting", bus=False)
    assert device.wait_for_exit() == 255
    refused(device)
    assert not ssdp.received


def test_the_name_is_owned_before_the_objects_and_sockets_exist(start_device):
    device = start_device(daemon="off")
    device.fwconfig.behave("held", GET_UUID)
    device.start(wait=False)
    device.bus.wait_for_name(BUS_NAME)
    wait_for(lambda: device.fwconfig.calls_of("/systemconstants.get"), what="the settings are being made")
    assert device.bus.pid_of(BUS_NAME) == device.pid
    for path in ("/settings", "/zorvscan"):
        with pytest.raises(dbus.DBusException, match="UnknownObject|NoReply"):
            device.call("Introspect", path=path, interface="org.freedesktop.DBus.Introspectable", seconds=0.3)
    assert not device.udp_ports() and not device.listens(HTTP_PORT)
    device.fwconfig.behave("normal")
    device.wait_until_ready()


# The questions to the configuration service

def asked(set_and_save: tuple = ()) -> list:
    return [
        ("/systemvariables", VARIABLES, "get", ["UUID"]),
        ("/fwversion", PROPERTIES, "Get", [VERSION, "hostname"]),
        ("/fwversion", PROPERTIES, "Get", [VERSION, "zorvversion"]),
        ("/systemconstants", CONSTANTS, "get", ["SERIALNUMBER"]),
        *(("/systemvariables", VARIABLES, member, arguments) for member, arguments in set_and_save),
        ("/network", PROPERTIES, "GetAll", ["com.zorv.fwconfig.network", "local.NetworkInterface"]),
    ]


def test_questions_come_once_each_and_in_their_order(device):
    assert device.fwconfig.calls == asked()


def test_an_empty_stored_uuid_is_replaced_by_the_kernels_and_saved_once(start_device, peer):
    device = start_device(daemon="off")
    device.fwconfig.set(variables={"UUID": ""})
    device.start()
    uuid = uuid_of(peer)
    assert KERNEL_UUID.fullmatch(uuid)
    assert device.fwconfig.calls == asked((("set", ["UUID", uuid]), ("save", [])))
    device.fwconfig.forget_calls()
    device.restart()
    assert uuid_of(peer) == uuid
    assert device.fwconfig.calls == asked()


def test_a_stored_uuid_is_never_rewritten(start_device, peer):
    device = start_device(daemon="off")
    device.fwconfig.set(variables={"UUID": "abc"})
    device.start()
    assert uuid_of(peer) == "abc"
    device.restart()
    assert uuid_of(peer) == "abc"
    assert written_variables(device) == []


def test_uuid_is_awaited_only_after_the_subscription_to_connman(start_device, ssdp):
    device = start_device(daemon="off")
    monitor = device.bus.monitor()
    device.fwconfig.behave("held", GET_UUID)
    device.start(wait=False)

    def subscribed() -> bool:
        return any("'net.connman.Service'" in call.arguments[0] and "'PropertyChanged'" in call.arguments[0]
                   for call in monitor.calls("AddMatch"))

    wait_for(subscribed, what="the subscription to connman", seen=lambda: monitor.calls("AddMatch"))
    assert device.fwconfig.calls == asked()[:4]
    assert not ssdp.received
    device.fwconfig.behave("normal")
    device.wait_until_ready()
    assert device.fwconfig.calls == asked()
    expect_notifies(ssdp, NO_ADDRESS, ALIVE)


def test_host_name_is_awaited_before_the_version_is_asked_for(start_device):
    device = start_device(daemon="off")
    device.fwconfig.behave("held", "/fwversion.Get")
    device.start(wait=False)
    wait_for(lambda: device.fwconfig.calls_of("/fwversion.Get"), what="the first property is asked for")
    device.bus.call("com.zorv.fwconfig", "/systemconstants", CONSTANTS, "get", "test")
    assert device.fwconfig.calls == [*asked()[:2], ("/systemconstants", CONSTANTS, "get", ["test"])]
    device.fwconfig.behave("normal")
    device.wait_until_ready()


@pytest.mark.parametrize("stored, announced", [
    pytest.param(" abc ", b" abc ", id="blanks are kept"),
    pytest.param("\u00e9", b"\xe9", id="Latin-1"),
    pytest.param("ABC-\u20ac", b"ABC-?", id="not in Latin-1"),
])
def test_text_of_the_stored_uuid(start_device, peer, stored, announced):
    device = start_device(daemon="off")
    device.fwconfig.set(variables={"UUID": stored})
    device.start()
    compare_bytes(peer.search()[0].data, replaced(ANSWER, uuid=announced))
    assert written_variables(device) == []


@pytest.mark.parametrize("how", [
    pytest.param({"how": "failing"}, id="error"),
    pytest.param({"value": Typed("i", 5)}, id="number"),
    pytest.param({"value": Typed("as", ["abc"])}, id="list"),
])
def test_an_invalid_answer_for_the_uuid_counts_as_none(start_device, peer, how):
    device = start_device(daemon="off")
    if "value" in how:
        device.fwconfig.set(variables={"UUID": how["value"]})
    else:
        device.fwconfig.behave(how["how"], GET_UUID)
    device.start()
    uuid = uuid_of(peer)
    assert KERNEL_UUID.fullmatch(uuid)
    assert written_variables(device) == [("set", ["UUID", uuid]), ("save", [])]


def test_failing_set_and_save_are_not_noticed(start_device, peer):
    device = start_device(daemon="off")
    device.fwconfig.set(variables={})
    device.fwconfig.behave("failing", "/systemvariables.set", "/systemvariables.save")
    device.start()
    uuid = uuid_of(peer)
    assert written_variables(device) == [("set", ["UUID", uuid]), ("save", [])]
    assert device.syslog.lines == []


def test_set_and_save_are_not_waited_for(start_device, peer):
    device = start_device(daemon="off")
    device.fwconfig.set(variables={})
    device.fwconfig.behave("held", "/systemvariables.set", "/systemvariables.save")
    device.start()
    assert KERNEL_UUID.fullmatch(uuid_of(peer))


def test_white_space_around_the_kernels_uuid_is_removed(start_device, peer, tmp_path):
    device = start_device(daemon="off")
    device.fwconfig.set(variables={})
    (tmp_path / "uuid").write_bytes(b" \t1234 5678 \r\n\n")
    replace_kernel_uuid_file(device, tmp_path / "uuid")
    device.start()
    assert uuid_of(peer) == "1234 5678"
    assert written_variables(device) == [("set", ["UUID", "1234 5678"]), ("save", [])]


def test_kernels_uuid_file_unreadable_leaves_the_uuid_empty_and_sends_nothing(start_device, peer, tmp_path):
    device = start_device(daemon="off", addresses=["10.77.0.2/24", "169.254.1.2/16"])
    device.fwconfig.set(variables={})
    with socket.socket(socket.AF_UNIX) as unopenable:
        unopenable.bind(str(tmp_path / "uuid"))
        replace_kernel_uuid_file(device, tmp_path / "uuid")
        device.start()
    assert uuid_of(peer) == ""
    peer.host.add_address("169.254.7.7/16")
    assert b"-1_0-0::upnp:rootdevice" in peer.search(from_address="169.254.7.7")[0].data
    assert device.fwconfig.calls == asked()
    assert device.syslog.lines == []


# Services that are not there, fail or answer something else

def test_without_the_configuration_service_the_identity_is_empty(start_device, ssdp, peer):
    device = start_device(daemon="off", fwconfig=False)
    monitor = device.bus.monitor()
    device.start()
    uuid = uuid_of(peer)
    assert KERNEL_UUID.fullmatch(uuid)
    expected = replaced(ALIVE, uuid=uuid, version="")
    assert b"\r\nSERVER: Kelta/, UPnP/1.0\r\n" in expected
    expect_notifies(ssdp, replaced(expected, address=""), expected)
    assert [device.call(name) for name in ("getModelNr", "getSerial", "getHostname", "strHostname",
                                           "getNetworkConfigMethod", "getServerHeader")] == [
        b"", b"", b"", "", "", b"Kelta/, UPnP/1.0"]
    wait_for(lambda: monitor.calls("save"), what="the new UUID is saved")
    assert [(call.member, call.arguments) for call in monitor.calls()
            if call.path == "/systemvariables"] == [("get", ["UUID"]), ("set", ["UUID", uuid]), ("save", [])]
    assert device.syslog.lines == []


def test_a_service_that_is_not_there_is_asked_for_nothing_but_the_uuid(start_device):
    """A call to a name that nobody has would let a bus start the service."""
    device = start_device(daemon="off", fwconfig=False)
    monitor = device.bus.monitor("type='method_call'")
    device.start()
    driver = "org.freedesktop.DBus"
    asked = [(call.path, call.member) for call in monitor.calls() if (call.path or "").startswith(("/fwversion", "/systemconstants"))]
    assert asked == []
    assert [call.member for call in monitor.calls("get") if call.interface != driver] == ["get"]


def test_without_the_configuration_service_each_start_makes_a_uuid(start_device, peer):
    device = start_device(fwconfig=False)
    first = uuid_of(peer)
    device.restart()
    assert uuid_of(peer) != first


def test_without_connman_the_daemon_starts_as_usual(start_device, ssdp):
    device = start_device(connman=False)
    expect_notifies(ssdp, NO_ADDRESS, ALIVE)
    assert device.syslog.lines == []


@pytest.mark.parametrize("failing, changes", [
    pytest.param(["/fwversion.Get"], {"hostname": "", "version": ""}, id="firmware version"),
    pytest.param(["/systemconstants.get"], {"serial": ""}, id="system constants"),
    pytest.param(["/network.GetAll"], {}, id="network"),
    pytest.param(["/fwversion.Get", "/systemconstants.get", "/network.GetAll"],
                 {"hostname": "", "version": "", "serial": ""}, id="all but the variables"),
])
def test_failing_answers_leave_their_fields_empty(start_device, peer, failing, changes):
    device = start_device(daemon="off")
    device.fwconfig.behave("failing", *failing)
    device.start()
    assert device.fwconfig.calls == asked()
    compare_bytes(peer.http_raw(b"GET /rootDesc.xml HTTP/1.1\r\n\r\n"), replaced(DESCRIPTION, **changes))
    assert device.call("getNetworkConfigMethod") == ("" if "/network.GetAll" in failing else "dhcp")
    assert device.syslog.lines == []


@pytest.mark.parametrize("value, text", [
    pytest.param(Typed("i", 7), b"7", id="number"),
    pytest.param(Typed("x", -(1 << 40)), b"-1099511627776", id="large number"),
    pytest.param(Typed("b", True), b"true", id="boolean"),
    pytest.param(Typed("d", 2.5), b"2.5", id="fraction"),
    pytest.param(Typed("ai", [1, 2]), b"", id="list of numbers"),
    pytest.param(Typed("a{sv}", {"a": "b"}), b"", id="dictionary"),
    pytest.param(Typed("(ss)", ["a", "b"]), b"", id="structure"),
    pytest.param(None, b"", id="no such property"),
    pytest.param("", b"", id="empty"),
    pytest.param("1.5 beta", b"1.5 beta", id="text"),
])
def test_version_of_any_type_is_taken_as_its_text(start_device, peer, value, text):
    device = start_device(daemon="off")
    device.fwconfig.set(zorvversion=value)
    device.start()
    assert device.call("getModelNr") == text
    compare_bytes(peer.search()[0].data, replaced(ANSWER, version=text))
    assert device.call("getHostname") == b"kelta"


def test_host_name_comes_from_the_service_not_from_the_kernel(start_device):
    device = start_device(daemon="off", hostname="kernelname")
    device.fwconfig.set(hostname="servicename")
    device.start()
    assert device.call("getHostname") == b"servicename"
    assert device.call("strHostname") == "servicename"


# Sockets

def test_all_ports_are_bound(device):
    assert device.udp_ports() == {1900, 31416}
    assert device.listens(HTTP_PORT)


def test_without_eth0_all_ports_are_bound_and_the_address_is_empty(start_device):
    device = start_device(interface=None)
    assert device.udp_ports() == {1900, 31416}
    assert device.listens(HTTP_PORT)
    assert device.call("getMacAddress") == "0x"
    assert device.call("getAddressStr") == ""
    assert device.call("getServerHeader") == b"Kelta/1.4.2, UPnP/1.0"


def test_hardware_address_is_that_of_eth0_only(start_device):
    device = start_device(daemon="off", mac="0a:0b:0c:0d:0e:0f")
    device.host.add_interface("eth1", mac="02:02:02:02:02:02")
    device.start()
    assert device.call("getMacAddress") == "0x0A0B0C0D0E0F"


def test_http_port_in_use_is_not_noticed(start_device, ssdp, peer):
    device = start_device(daemon="off")
    with device.host.socket(socket.SOCK_STREAM) as other:
        other.bind(("0.0.0.0", HTTP_PORT))
        other.listen()
        device.start()
        expect_notifies(ssdp, NO_ADDRESS, ALIVE)
        compare_bytes(peer.search()[0].data, ANSWER)
        assert device.syslog.lines == []


def test_search_port_in_use_is_not_noticed_and_announcements_still_go_out(start_device, ssdp):
    device = start_device(daemon="off")
    with device.host.socket() as other:
        other.bind(("0.0.0.0", 1900))
        device.start()
        expect_notifies(ssdp, NO_ADDRESS, ALIVE)
        assert device.answers()


def test_uuid_is_the_same_everywhere(device, peer):
    assert uuid_of(peer) == UUID
    assert f"<UDN>uuid:Upnp-BasicDevice-1_0-{UUID}</UDN>".encode() in peer.http_raw(b"GET /rootDesc.xml\r\n")
