"""What programs on the device see of /settings on the bus."""

import os
import shutil
import xml.etree.ElementTree

import dbus
import dbus.lowlevel
import pytest

from simdevice.bus import PROPERTIES
from simdevice.device import BUS_NAME, default_program
from simdevice.values import Typed, to_dbus
from simdevice.waiting import wait_for
from texts import ADDRESS, ALIVE, expect_notifies, replaced

SETTINGS = (BUS_NAME, "/settings", "local.UpnpSettings")
INTROSPECTABLE = "org.freedesktop.DBus.Introspectable"

VALUES = {
    "getManufacturer": b"Zorv",
    "getUrl": b"http://www.zorv.example",
    "getModelName": b"Kelta",
    "getModelNameLower": b"kelta",
    "getModelDescription": b"Zorv Kelta industrial measurement",
    "getModelUrl": b"http://www.zorv.example/kelta",
    "getModelNr": b"1.4.2",
    "getSerial": b"KM-2044817",
    "getHostname": b"kelta",
    "strHostname": "kelta",
    "getMulticastUrl": b"239.255.255.250:1900",
    "getServerHeader": b"Kelta/1.4.2, UPnP/1.0",
    "getAddressStr": ADDRESS,
    "getMulticastAddressStr": "239.255.255.250",
    "getAutoipAddressStr": "",
    "getUdpPort": 1900,
    "getHttpPort": 8200,
    "getNetworkConfigMethod": "dhcp",
    "getMacAddress": "0x001122AABBCC",
}
FORMS = {bytes: "ay", str: "s", int: "q"}
# These take or give addresses, which have no form on the bus: they may be listed or not.
WITHOUT_FORM = {"getUuid", "getPresentationUrl", "getHttpUrl", "getAddress", "getMulticastAddress", "getAutoipAddress",
                "getGateway"}


def introspect(device, path: str = "/settings") -> xml.etree.ElementTree.Element:
    return xml.etree.ElementTree.fromstring(device.call("Introspect", path=path, interface=INTROSPECTABLE))


def own_interfaces(device) -> list:
    return [one for one in introspect(device).iter("interface")
            if not one.get("name").startswith("org.freedesktop.DBus.")]


def test_methods_and_their_forms(shared_device):
    interface, = own_interfaces(shared_device)
    assert interface.get("name") == "local.UpnpSettings"
    methods = {}
    for method in interface.iter("method"):
        arguments = [(one.get("direction", "in"), one.get("type")) for one in method.iter("arg")]
        methods[method.get("name")] = arguments
    expected = {name: [("out", FORMS[type(value)])] for name, value in VALUES.items()} | {"configureIp": []}
    assert {name: form for name, form in methods.items() if name not in WITHOUT_FORM} == expected


def test_neither_signals_nor_properties(shared_device):
    interface, = own_interfaces(shared_device)
    assert list(interface.iter("signal")) == []
    assert list(interface.iter("property")) == []


def test_no_child_objects(shared_device):
    assert list(introspect(shared_device).iter("node"))[1:] == []


@pytest.mark.parametrize("name", [
    pytest.param("upnpvelorn-2", id="another name"), pytest.param("a.b.c", id="dots"), pytest.param("9", id="digit"),
])
@pytest.mark.parametrize("place", [shutil.copy, os.symlink])
def test_interface_name_does_not_depend_on_the_name_of_the_executable(start_device, tmp_path, name, place):
    place(default_program(), tmp_path / name)
    device = start_device(program=str(tmp_path / name))
    assert [one.get("name") for one in own_interfaces(device)] == ["local.UpnpSettings"]
    assert device.call("getUdpPort") == 1900


def raw_call(device, member: str, signature: str = "", arguments=()):
    message = dbus.lowlevel.MethodCallMessage(*SETTINGS, member)
    if signature:
        kinds = [str(kind) for kind in dbus.Signature(signature)]
        message.append(*[to_dbus(kind, value) for kind, value in zip(kinds, arguments)], signature=signature)
    return device.bus.connection.raw.send_message_with_reply_and_block(message, 5)


@pytest.mark.parametrize("member", VALUES)
def test_value_of(shared_device, member):
    assert shared_device.call(member) == VALUES[member]
    assert raw_call(shared_device, member).get_signature() == FORMS[type(VALUES[member])]


def test_configure_ip_replies_with_nothing(shared_device):
    assert raw_call(shared_device, "configureIp").get_signature() == ""


@pytest.mark.parametrize("member, signature, arguments", [
    pytest.param("hostnameChanged", "", (), id="hostnameChanged"),
    pytest.param("serviceAvail", "s", ("com.zorv.fwconfig",), id="serviceAvail"),
    pytest.param("connmanPropertyChanged", "sv", ("State", Typed("s", "ready")), id="connmanPropertyChanged"),
    pytest.param("aboutToChange", "", (), id="the signal aboutToChange"),
    pytest.param("changed", "", (), id="the signal changed"),
    pytest.param("networkReady", "", (), id="the signal networkReady"),
    pytest.param("deleteLater", "", (), id="deleteLater"),
    pytest.param("quit", "", (), id="quit"),
    pytest.param("getudpport", "", (), id="a getter in another case"),
    pytest.param("getUdpPort", "s", ("x",), id="a getter with an argument"),
    pytest.param("configureIp", "s", ("eth0",), id="configureIp with an argument"),
])
def test_is_no_method(shared_device, member, signature, arguments):
    before = len(shared_device.fwconfig.calls)
    with pytest.raises(dbus.DBusException) as failure:
        raw_call(shared_device, member, signature, arguments)
    assert failure.value.get_dbus_name() == "org.freedesktop.DBus.Error.UnknownMethod"
    assert len(shared_device.fwconfig.calls) == before
    assert shared_device.call("getUdpPort") == 1900


def test_methods_are_found_without_an_interface_too(shared_device):
    message = dbus.lowlevel.MethodCallMessage(BUS_NAME, "/settings", None, "getHttpPort")
    reply = shared_device.bus.connection.raw.send_message_with_reply_and_block(message, 5)
    assert reply.get_args_list() == [8200]


def test_other_paths_and_interfaces_have_nothing(shared_device):
    for path, interface in (("/", SETTINGS[2]), ("/settings/eth0", SETTINGS[2]), ("/settings", "local.ZorvScan"),
                            ("/settings", "local.upnpvelorn.UpnpSettings")):
        with pytest.raises(dbus.DBusException, match="Unknown"):
            shared_device.call("getUdpPort", path=path, interface=interface)


ARGUMENTS = [
    ("s", ("",)), ("s", ("169.254.1.2",)), ("i", (5,)), ("u", (0xffffffff,)), ("v", (Typed("s", "10.0.0.1"),)),
    ("v", (Typed("a{sv}", {"a": Typed("v", Typed("i", 1))}),)), ("ay", (b"\x0a\0\0\1",)), ("a{sv}", ({"a": "b"},)),
    ("a{ss}", ({"a": "b"},)), ("(ss)", (("a", "b"),)), ("ai", ([1, 2],)), ("av", (["a", 1],)), ("o", ("/",)),
    ("g", ("a{sv}",)), ("b", (True,)), ("d", (1.5,)), ("sv", ("IPv4", Typed("a{ss}", {"Address": "10.0.0.5"}))),
    ("sa{sv}", ("IPv4", {"Address": "10.0.0.5"})), ("ssss", ("a", "b", "c", "d")), ("aaaaai", ([[[[[1]]]]],)),
]


def test_no_arguments_to_any_slot_do_harm(device):
    members = [*VALUES, *WITHOUT_FORM, "configureIp", "hostnameChanged", "connmanPropertyChanged", "serviceAvail"]
    for member in members:
        for signature, arguments in [("", ()), *ARGUMENTS]:
            try:
                raw_call(device, member, signature, arguments)
            except dbus.DBusException as error:
                assert error.get_dbus_name().startswith("org.freedesktop.DBus.Error.Unknown"), (member, signature)
    assert {name: device.call(name) for name in VALUES} == VALUES
    assert device.syslog.lines == []


@pytest.mark.parametrize("member, arguments", [("Get", ()), ("Set", (Typed("v", Typed("q", 1)),))])
def test_getters_are_no_properties(shared_device, member, arguments):
    with pytest.raises(dbus.DBusException):
        shared_device.call(member, SETTINGS[2], "getUdpPort", *arguments, interface=PROPERTIES)
    assert shared_device.call("getUdpPort") == 1900


# configureIp

def test_configure_ip_sends_a_fresh_alive_and_no_byebye(ssdp, device):
    expect_notifies(ssdp, replaced(ALIVE, address=""), ALIVE)
    device.host.add_address("10.77.0.9/24")
    device.call("configureIp")
    expect_notifies(ssdp, replaced(ALIVE, address="10.77.0.9"))
    device.call("configureIp")
    device.call("configureIp")
    expect_notifies(ssdp, *[replaced(ALIVE, address="10.77.0.9")] * 2)


def test_configure_ip_replies_only_after_its_own_question_was_answered(device):
    monitor = device.bus.monitor("type='method_return'")
    device.fwconfig.forget_calls()
    device.fwconfig.behave("held", "/network.GetAll")
    asking = device.bus.connect()
    answers = []
    asking.raw.call_async(*SETTINGS, "configureIp", "", (), lambda *values: answers.append(values), answers.append)
    wait_for(lambda: device.fwconfig.calls_of("/network.GetAll"), what="the network is asked for")
    device.fwconfig.behave("normal")
    wait_for(lambda: answers, what="configureIp replies")
    assert answers == [()]
    senders = {device.bus.owner("com.zorv.fwconfig"): "service", device.bus.owner(BUS_NAME): "daemon"}
    assert [senders[one.sender] for one in monitor.messages if one.sender in senders] == ["service", "daemon"]
    asking.close()


def test_changes_of_the_settings_are_not_told_on_the_bus(device):
    monitor = device.bus.monitor("type='signal'")
    daemon = device.bus.owner(BUS_NAME)
    device.connman.ipv4("10.0.0.5")
    device.connman.state("ready")
    device.call("configureIp")
    wait_for(lambda: len(monitor.signals("PropertyChanged")) == 2, what="connman's signals")
    assert {signal.path for signal in monitor.signals() if signal.sender == daemon} <= {"/monitor"}


# The log

def test_introspection_writes_no_log_lines(start_device):
    """Without eth0 each "ready" gives a line, which shows that the log works."""
    device = start_device(interface=None)
    device.syslog.clear()
    for _ in range(200):
        introspect(device)
    device.connman.state("ready")
    device.syslog.wait_for_text("setsockopt: interface invalid")
    assert device.syslog.texts[0] == "setsockopt: interface invalid"
