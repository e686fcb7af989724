"""The network state: addresses of eth0, the configuration service's answer, and what connman says."""

import pytest

from qtversion import as_qt_writes
from simdevice.connman import INTERFACE, WIRED_SERVICE
from simdevice.device import ADDRESS, BUS_NAME
from simdevice.values import Typed
from simdevice.waiting import wait_for
from texts import ALIVE, AUTOIP, BYEBYE, expect_notifies, notifies, replaced

OTHER_SERVICE = "/net/connman/service/wifi_deadbeef_managed_none"
NOT_READY = "setsockopt: interface invalid"
NEW = {"address": "10.0.0.5", "gateway": "10.0.0.1", "method": "manual"}
ALIVE_AT_START = [replaced(ALIVE, address=""), ALIVE]


def state_of(device) -> tuple:
    return tuple(device.call(name) for name in ("getAddressStr", "getAutoipAddressStr", "getNetworkConfigMethod"))


def settled(device, connection=None) -> None:
    """Everything that connman (or the given connection) sent so far has been dealt with."""
    (connection or device.connman.connection).call(BUS_NAME, "/settings", "local.UpnpSettings", "getUdpPort")


def alive(address: str) -> bytes:
    return replaced(ALIVE, address=address)


def byebye(address: str) -> bytes:
    return replaced(BYEBYE, address=address)


# connman: State

def test_ready_is_noticed_every_time_and_every_other_state_ignored(start_device):
    """Without eth0 the search responder writes one line each time the network becomes ready."""
    device = start_device(interface=None)
    device.syslog.clear()
    for state in ("idle", "association", "configuration", "online", "disconnect", "failure", "Ready", "READY",
                  " ready", "ready ", "readyx", ""):
        device.connman.state(state)
    for value in (Typed("i", 1), Typed("as", ["a", "ready"]), Typed("a{sv}", {"ready": "ready"}), Typed("b", True),
                  Typed("(ss)", ["ready", "ready"])):
        device.connman.property_changed("State", value)
    device.connman.property_changed("state", "ready")
    device.connman.property_changed("Strength", "ready")
    settled(device)
    assert device.syslog.texts.count(NOT_READY) == 0
    device.connman.state("ready")
    device.connman.state("ready")
    device.connman.state("ready", path=OTHER_SERVICE)
    settled(device)
    assert device.syslog.texts.count(NOT_READY) == 3


def test_states_and_other_properties_send_nothing(ssdp, device):
    expect_notifies(ssdp, *ALIVE_AT_START)
    for state in ("online", "ready", "idle"):
        device.connman.state(state)
    address = Typed("a{sv}", {"Address": "10.0.0.9"})
    for name in ("IPv6", "ipv4", "IPv4.Configuration", "IPv4 ", "", "Ethernet", "Proxy"):
        device.connman.property_changed(name, address)
    settled(device)
    assert notifies(ssdp) == []
    assert state_of(device) == (ADDRESS, "", "dhcp")
    assert device.syslog.lines == []


# connman: IPv4

def test_ipv4_replaces_address_and_method(ssdp, device):
    expect_notifies(ssdp, *ALIVE_AT_START)
    device.connman.ipv4(**NEW)
    expect_notifies(ssdp, BYEBYE, alive("10.0.0.5"))
    assert state_of(device) == ("10.0.0.5", "", "manual")
    assert device.syslog.lines == []


def test_the_last_service_to_report_wins_wired_or_not(ssdp, device):
    expect_notifies(ssdp, *ALIVE_AT_START)
    device.connman.ipv4(**NEW)
    device.connman.ipv4("10.0.9.9", "10.0.9.1", "dhcp", path=OTHER_SERVICE)
    device.connman.ipv4("10.0.8.8", path="/")
    expect_notifies(ssdp, BYEBYE, alive("10.0.0.5"), byebye("10.0.0.5"), alive("10.0.9.9"), byebye("10.0.9.9"),
                    alive("10.0.8.8"))
    assert state_of(device) == ("10.0.8.8", "", "")


def test_the_same_ipv4_again_still_sends_byebye_and_alive(ssdp, device):
    expect_notifies(ssdp, *ALIVE_AT_START)
    device.connman.ipv4(ADDRESS, "10.77.0.1", "dhcp")
    expect_notifies(ssdp, BYEBYE, ALIVE)


def test_an_empty_dictionary_clears_address_and_method(ssdp, device):
    expect_notifies(ssdp, *ALIVE_AT_START)
    device.connman.ipv4()
    expect_notifies(ssdp, BYEBYE, alive(""))
    assert state_of(device) == ("", "", "")


def test_a_link_local_address_leaves_the_regular_one_as_it_is(ssdp, device):
    device.connman.ipv4("169.254.3.4", method="auto")
    settled(device)
    assert state_of(device) == (ADDRESS, "169.254.3.4", "auto")
    device.connman.ipv4(**NEW)
    settled(device)
    assert state_of(device) == ("10.0.0.5", "169.254.3.4", "manual")


@pytest.mark.parametrize("value", [
    pytest.param(Typed("a{ss}", {"Address": "10.0.0.5", "Method": "dhcp", "Gateway": "10.0.0.1"}), id="texts only"),
    pytest.param(Typed("ai", [1, 2, 3]), id="list of numbers"),
    pytest.param(Typed("as", ["Address", "10.0.0.5"]), id="list of texts"),
    pytest.param(Typed("av", [Typed("s", "Address")]), id="list of values"),
    pytest.param(Typed("a{iv}", {1: Typed("s", "10.0.0.5")}), id="numbers as keys"),
    pytest.param(Typed("aa{sv}", [{"Address": "10.0.0.5"}]), id="list of dictionaries"),
    pytest.param(Typed("(ss)", ["Address", "10.0.0.5"]), id="pair"),
    pytest.param(Typed("(a{sv})", [{"Address": "10.0.0.5"}]), id="dictionary in a structure"),
    pytest.param(Typed("s", "10.0.0.5"), id="text"),
    pytest.param(Typed("i", 5), id="number"),
    pytest.param(Typed("b", True), id="boolean"),
    pytest.param(Typed("ay", [10, 0, 0, 5]), id="bytes"),
    pytest.param(Typed("o", "/net/connman"), id="object path"),
    pytest.param(Typed("a{sv}", {}), id="nothing in it"),
    pytest.param(Typed("a{sv}", {"address": "10.0.0.5", "Netmask": "255.0.0.0"}), id="other keys"),
    pytest.param(Typed("a{sv}", {"Address": Typed("ai", [10]), "Method": Typed("(ii)", [1, 2])}), id="wrong values"),
    pytest.param(Typed("a{sv}", {"Address": Typed("a{sv}", {"Address": "10.0.0.5"})}), id="a dictionary as address"),
])
def test_values_without_the_wanted_texts_clear_address_and_method(ssdp, device, value):
    expect_notifies(ssdp, *ALIVE_AT_START)
    device.connman.property_changed("IPv4", value)
    expect_notifies(ssdp, BYEBYE, alive(""))
    assert state_of(device) == ("", "", "")
    device.connman.ipv4(**NEW)
    expect_notifies(ssdp, byebye(""), alive("10.0.0.5"))
    assert device.syslog.lines == []


@pytest.mark.parametrize("text, address, autoip", [
    pytest.param("10.0.0.5", "10.0.0.5", "", id="address"),
    pytest.param("010.001.1.1", "10.1.1.1", "", id="leading zeros are decimal"),
    pytest.param("255.255.255.255", "255.255.255.255", "", id="largest"),
    pytest.param("10.5", "", "", id="two parts"),
    pytest.param("10.0.0.0.5", "", "", id="five parts"),
    pytest.param("10.0.0.256", "", "", id="part too large"),
    pytest.param("0x10.1.1.1", "", "", id="hexadecimal"),
    pytest.param("kelta.local", "", "", id="name"),
    pytest.param("10.0.0.5/24", "", "", id="with a prefix length"),
    pytest.param("2001:db8::5", "2001:db8::5", "", id="IPv6"),
    pytest.param("169.254.3.4", ADDRESS, "169.254.3.4", id="link-local"),
    pytest.param("169.254", ADDRESS, "", id="only the beginning of a link-local address"),
    pytest.param("169.2540.1.1", ADDRESS, "", id="begins like a link-local address"),
    pytest.param("169.25.4.1", "169.25.4.1", "", id="nearly link-local"),
    pytest.param("1169.254.1.1", "", "", id="link-local in the middle"),
])
def test_text_of_the_address(device, text, address, autoip):
    device.connman.ipv4(text, method="manual")
    settled(device)
    assert state_of(device) == (as_qt_writes(device, address), autoip, "manual")


@pytest.mark.parametrize("value, text", [
    pytest.param("dhcp", "dhcp", id="dhcp"),
    pytest.param("off", "off", id="off"),
    pytest.param("m\u00e4nuell \U0001f600", "m\u00e4nuell \U0001f600", id="any text"),
    pytest.param(Typed("i", 5), "5", id="number"),
    pytest.param(Typed("b", False), "false", id="boolean"),
    pytest.param(Typed("ai", [1]), "", id="list"),
])
def test_text_of_the_method(device, value, text):
    device.connman.property_changed("IPv4", Typed("a{sv}", {"Address": "10.0.0.5", "Method": value}))
    settled(device)
    assert state_of(device) == ("10.0.0.5", "", text)


@pytest.mark.parametrize("arguments, signature", [
    pytest.param(["IPv4"], "s", id="no value"),
    pytest.param([], "", id="nothing"),
    pytest.param(["IPv4", Typed("a{sv}", {"Address": "10.0.0.5"}), "more"], "svs", id="one more"),
    pytest.param([Typed("s", "IPv4"), Typed("a{sv}", {"Address": "10.0.0.5"})], "vv", id="name in a variant"),
    pytest.param([4, Typed("a{sv}", {"Address": "10.0.0.5"})], "iv", id="number as name"),
    pytest.param(["IPv4", "10.0.0.5"], "ss", id="text not in a variant"),
    pytest.param(["IPv4", {"Address": "10.0.0.5"}], "sa{sv}", id="dictionary not in a variant"),
    pytest.param(["IPv4", {"a": "b"}], "sa{ss}", id="dictionary of texts not in a variant"),
    pytest.param(["IPv4", [1]], "sai", id="list of numbers not in a variant"),
    pytest.param(["IPv4", ["a", "b"]], "s(ss)", id="pair not in a variant"),
    pytest.param(["other", ["x"]], "sav", id="list of values not in a variant"),
])
def test_property_changed_of_another_form_does_no_harm(device, arguments, signature):
    device.connman.connection.send_signal(WIRED_SERVICE, INTERFACE, "PropertyChanged", *arguments, signature=signature)
    settled(device)
    assert state_of(device) == (ADDRESS, "", "dhcp")
    device.connman.ipv4(**NEW)
    settled(device)
    assert state_of(device) == ("10.0.0.5", "", "manual")
    assert device.syslog.lines == []


@pytest.mark.parametrize("value, signature", [
    pytest.param({"a": "b"}, "sa{sv}", id="dictionary"),
    pytest.param({"a": "b"}, "sa{ss}", id="dictionary of texts"),
    pytest.param([1], "sai", id="list of numbers"),
    pytest.param(["a", "b"], "s(ss)", id="pair"),
    pytest.param(["x"], "sav", id="list of values"),
])
def test_a_strangers_property_changed_of_another_form_does_no_harm(device, value, signature):
    stranger = device.bus.connect()
    stranger.send_signal(WIRED_SERVICE, INTERFACE, "PropertyChanged", "IPv4", value, signature=signature)
    settled(device, stranger)
    assert state_of(device) == (ADDRESS, "", "dhcp")
    stranger.close()


def test_nested_variants_do_no_harm(device):
    nested = Typed("v", Typed("v", Typed("a{sv}", {"Address": "10.0.0.9"})))
    for name in ("IPv4", "State"):
        device.connman.property_changed(name, nested)
    device.connman.property_changed("IPv4", Typed("a{sv}", {"Address": nested, "Method": nested}))
    device.connman.ipv4(**NEW)
    settled(device)
    assert state_of(device) == ("10.0.0.5", "", "manual")
    assert device.syslog.lines == []


def test_other_members_and_interfaces_are_ignored(ssdp, device):
    expect_notifies(ssdp, *ALIVE_AT_START)
    value = Typed("a{sv}", {"Address": "10.0.0.9"})
    for interface, member in ((INTERFACE, "PropertiesChanged"), ("net.connman.Technology", "PropertyChanged"),
                              ("net.connman.Manager", "PropertyChanged")):
        device.connman.connection.send_signal(WIRED_SERVICE, interface, member, "IPv4", value, signature="sv")
    settled(device)
    assert notifies(ssdp) == []
    assert state_of(device) == (ADDRESS, "", "dhcp")


@pytest.mark.parametrize("directly", [pytest.param(False, id="to all"), pytest.param(True, id="to the daemon")])
def test_a_program_that_is_not_connman_is_not_heard(ssdp, device, directly):
    expect_notifies(ssdp, *ALIVE_AT_START)
    stranger = device.bus.connect()
    to = device.bus.owner(BUS_NAME) if directly else None
    stranger.send_signal(WIRED_SERVICE, INTERFACE, "PropertyChanged", "IPv4",
                         Typed("a{sv}", {"Address": "10.6.6.6"}), signature="sv", to=to)
    settled(device, stranger)
    assert state_of(device) == (ADDRESS, "", "dhcp")
    assert notifies(ssdp) == []
    device.connman.ipv4(**NEW)
    expect_notifies(ssdp, BYEBYE, alive("10.0.0.5"))
    stranger.close()


def test_connman_is_heard_again_after_it_was_restarted(ssdp, device):
    expect_notifies(ssdp, *ALIVE_AT_START)
    device.connman.stop()
    device.connman.start()
    settled(device)
    assert notifies(ssdp) == []
    device.connman.ipv4(**NEW)
    expect_notifies(ssdp, BYEBYE, alive("10.0.0.5"))


def test_connman_is_heard_when_it_comes_after_the_daemon(start_device, ssdp):
    device = start_device(connman=False)
    expect_notifies(ssdp, *ALIVE_AT_START)
    device.connman.start()
    device.connman.ipv4(**NEW)
    expect_notifies(ssdp, BYEBYE, alive("10.0.0.5"))


def test_many_changes_are_announced_one_by_one(ssdp, device):
    expect_notifies(ssdp, *ALIVE_AT_START)
    addresses = [f"10.0.{number}.5" for number in range(50)]
    for address in addresses:
        device.connman.ipv4(address)
    expected = []
    for old, new in zip([ADDRESS, *addresses], addresses):
        expected += [byebye(old), alive(new)]
    expect_notifies(ssdp, *expected)


# The configuration service

def test_configuration_service_coming_back_is_asked_and_alive_sent_without_byebye(ssdp, device):
    expect_notifies(ssdp, *ALIVE_AT_START)
    device.fwconfig.stop()
    device.fwconfig.set(network={"dhcp": False, "gateway": "10.77.0.1"})
    device.fwconfig.start()
    expect_notifies(ssdp, ALIVE)
    assert state_of(device) == (ADDRESS, "", "static")
    assert [(call.path, call.member) for call in device.fwconfig.calls] == [("/network", "GetAll")]


def test_configuration_service_coming_late_is_asked_for_the_network_only(start_device, ssdp):
    device = start_device(fwconfig=False)
    ssdp.wait_for(b"NOTIFY", count=2)
    device.host.add_address("10.77.0.9/24")
    ssdp.clear()
    device.fwconfig.start()
    announced = ssdp.wait_for(b"ssdp:alive")[0].data
    assert b"\r\nLOCATION:http://10.77.0.9:8200/" in announced and b"\r\nSERVER: Kelta/, UPnP/1.0\r\n" in announced
    assert state_of(device) == ("10.77.0.9", "", "dhcp")
    assert [(call.path, call.member) for call in device.fwconfig.calls] == [("/network", "GetAll")]


def test_the_going_of_the_services_is_ignored(ssdp, device):
    expect_notifies(ssdp, *ALIVE_AT_START)
    device.fwconfig.stop()
    device.connman.stop()
    other = device.bus.connect()
    assert other.own("com.zorv.fwconfig2") and other.own("com.zorv")
    settled(device, other)
    assert notifies(ssdp) == []
    assert state_of(device) == (ADDRESS, "", "dhcp")
    other.close()


@pytest.mark.parametrize("network, method", [
    pytest.param({"dhcp": True, "gateway": "10.0.0.1"}, "dhcp", id="dhcp"),
    pytest.param({"dhcp": False, "gateway": "10.0.0.1"}, "static", id="static"),
    pytest.param({"dhcp": False}, "static", id="no gateway"),
    pytest.param({"dhcp": True, "gateway": "nonsense"}, "dhcp", id="gateway that is no address"),
    pytest.param({"dhcp": True, "gateway": Typed("ai", [1])}, "dhcp", id="gateway of another type"),
    pytest.param({"gateway": "10.0.0.1"}, "before", id="no dhcp"),
    pytest.param(Typed("a{sv}", {}), "before", id="empty"),
    pytest.param({"DHCP": False, "other": "x"}, "before", id="other keys"),
    pytest.param({"dhcp": Typed("i", 1)}, "dhcp", id="one"),
    pytest.param({"dhcp": Typed("i", 0)}, "static", id="zero"),
    pytest.param({"dhcp": "true"}, "dhcp", id="text true"),
    pytest.param({"dhcp": "false"}, "static", id="text false"),
    pytest.param({"dhcp": ""}, "static", id="empty text"),
    pytest.param({"dhcp": Typed("ai", [1])}, "static", id="list"),
    pytest.param(Typed("a{ss}", {"dhcp": "true"}), "before", id="dictionary of texts"),
    pytest.param(Typed("i", 5), "before", id="number"),
    pytest.param(Typed("as", ["dhcp"]), "before", id="texts"),
    pytest.param(Typed("(sv)", ["dhcp", Typed("b", True)]), "before", id="pair"),
    pytest.param(Typed("av", [Typed("b", True)]), "before", id="list of values"),
    pytest.param("error", "before", id="error"),
])
def test_method_from_the_answer_of_the_configuration_service(ssdp, device, network, method):
    device.connman.ipv4("10.0.0.5", method="before")
    settled(device)
    ssdp.clear()
    if network == "error":
        device.fwconfig.behave("failing", "/network.GetAll")
    else:
        device.fwconfig.set(network=network)
    device.call("configureIp")
    expect_notifies(ssdp, ALIVE)
    assert state_of(device) == (ADDRESS, "", method)
    assert device.syslog.lines == []


# The addresses of eth0

@pytest.mark.parametrize("addresses, regular, link_local", [
    pytest.param([f"{ADDRESS}/24"], ADDRESS, "", id="one"),
    pytest.param([f"{AUTOIP}/16"], AUTOIP, "", id="only a link-local one"),
    pytest.param(["2001:db8::2/64"], "2001:db8::2", "", id="only an IPv6 one"),
    pytest.param([f"{ADDRESS}/24", f"{AUTOIP}/16"], ADDRESS, AUTOIP, id="one of each kind"),
    pytest.param([f"{AUTOIP}/16", f"{ADDRESS}/24"], ADDRESS, AUTOIP, id="the other way round"),
    pytest.param([f"{ADDRESS}/24", "10.78.0.4/24", "10.77.0.9/24"], "10.77.0.9", "", id="last regular one wins"),
    pytest.param(["169.254.9.9/16", f"{ADDRESS}/24", f"{AUTOIP}/16"], ADDRESS, AUTOIP, id="last link-local one wins"),
    pytest.param([f"{AUTOIP}/16", "169.254.9.9/16"], "", "169.254.9.9", id="two link-local ones and no other"),
    pytest.param([f"{ADDRESS}/24", "2001:db8::2/64"], ADDRESS, "", id="IPv6 beside a regular one"),
    pytest.param([f"{AUTOIP}/16", "2001:db8::2/64"], "", AUTOIP, id="IPv6 beside a link-local one"),
    pytest.param(["2001:db8::2/64", "fe80::2/64"], "", "", id="IPv6 ones only"),
    pytest.param(["169.253.1.1/16", "169.255.1.1/16"], "169.255.1.1", "", id="nearly link-local"),
])
def test_addresses_of_eth0(start_device, addresses, regular, link_local):
    device = start_device(addresses=addresses, ipv6=True)
    assert sorted(device.host.addresses()) == sorted(addresses)
    assert state_of(device) == (as_qt_writes(device, regular), link_local, "dhcp")


def test_addresses_of_other_interfaces_do_not_count(start_device):
    device = start_device(daemon="off")
    device.host.add_interface("eth1", ["10.78.0.2/24", "169.254.9.9/16"])
    device.start()
    assert state_of(device) == (ADDRESS, "", "dhcp")


def test_eth0_without_addresses_leaves_them_as_they_were(ssdp, device):
    expect_notifies(ssdp, *ALIVE_AT_START)
    device.host.remove_address(f"{ADDRESS}/24")
    device.call("configureIp")
    assert state_of(device) == (ADDRESS, "", "dhcp")
    device.host.add_address("10.77.0.9/24")
    device.host.default_route()
    ssdp.clear()
    device.call("configureIp")
    expect_notifies(ssdp, alive("10.77.0.9"))


def test_without_eth0_the_addresses_stay_and_the_answer_still_counts(device):
    device.fwconfig.set(network={"dhcp": False})
    device.host.remove_interface("eth0")
    device.call("configureIp")
    assert state_of(device) == (ADDRESS, "", "static")


def test_an_only_link_local_address_counts_as_regular_and_the_earlier_link_local_one_stays(start_device):
    device = start_device(addresses=[f"{ADDRESS}/24", "169.254.9.9/16"])
    device.host.remove_address(f"{ADDRESS}/24")
    device.host.remove_address("169.254.9.9/16")
    device.host.add_address(f"{AUTOIP}/16")
    device.call("configureIp")
    assert state_of(device) == (AUTOIP, "169.254.9.9", "dhcp")


def test_nobody_asks_the_interface_by_himself(ssdp, device):
    expect_notifies(ssdp, *ALIVE_AT_START)
    device.host.add_address("10.77.0.9/24")
    device.connman.state("ready")
    settled(device)
    assert state_of(device) == (ADDRESS, "", "dhcp")
    device.call("configureIp")
    expect_notifies(ssdp, alive("10.77.0.9"))
    assert state_of(device) == ("10.77.0.9", "", "dhcp")
