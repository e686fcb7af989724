"""Programs on the device that do harm over the bus, and a bus that goes away."""

import dbus
import pytest

from scanning import SCAN, announcing, everything_so_far, is_alive, scan, summaries, wait_for_device
from simdevice.device import BUS_NAME
from simdevice.values import Typed
from simdevice.waiting import wait_for
from texts import ANSWER, DESCRIPTION, replaced
from wirebytes import compare_bytes

GET = b"GET /rootDesc.xml HTTP/1.1\r\n\r\n"
LONGEST_BUS_CALL = 25  # seconds until the bus library gives up on an answer


def still_works(device, peer, answer: bytes = ANSWER, description: bytes = DESCRIPTION) -> None:
    compare_bytes(peer.search()[0].data, answer)
    compare_bytes(peer.http_raw(GET), description)
    assert is_alive(device)


def variants(depth: int) -> Typed:
    value = Typed("s", "x")
    for _ in range(depth):
        value = Typed("v", value)
    return value


# Calls

ARGUMENTS = [
    (Typed("s", "x" * 10_000_000),), (Typed("ay", bytes(1_000_000)),), (Typed("as", ["x" * 100] * 10_000),),
    (Typed("v", variants(30)),), (Typed("av", [variants(20)] * 10),), (Typed("a{sv}", {}),), (Typed("as", []),),
    (Typed("s", ""), Typed("v", variants(30))), (Typed("s", "IPv4"), Typed("v", Typed("s", "x" * 1_000_000))),
    (Typed("ai", list(range(100_000))),), tuple([Typed("i", 1)] * 100),
]


@pytest.mark.parametrize("member", ["getUuid", "getHttpUrl", "getPresentationUrl", "getUdpPort", "strHostname", "configureIp",
                                    "connmanPropertyChanged", "serviceAvail", "hostnameChanged", "deleteLater"])
def test_empty_huge_and_nested_arguments_to_the_settings(device, peer, member):
    for arguments in ARGUMENTS:
        signature = "".join(argument.signature for argument in arguments)
        with pytest.raises(dbus.DBusException, match="Unknown"):
            device.call(member, *[argument.value for argument in arguments], signature=signature, seconds=20)
    still_works(device, peer)
    assert device.syslog.lines == []


# The log

def test_no_program_and_no_peer_fills_the_log(device, peer):
    """A cable that is out makes the last call write a line, which shows that the log works."""
    peer.announce(announcing("good"))
    wait_for_device(device, "good")
    for number in range(300):
        for path in ("/", "/settings", SCAN, f"{SCAN}/good"):
            device.call("Introspect", path=path, interface="org.freedesktop.DBus.Introspectable")
        assert scan(device, "setupMulticast") == 0
        scan(device, "pendingDatagrams")
        for junk in (b"", b"junk" * 1000, announcing(f"bad{number}", "x")[:-20], announcing("bad", raw="null")):
            peer.announce(junk)
            peer.send(junk, (peer.device_address, 1900))
        peer.http_raw(b"GET /%d HTTP/1.1\r\n\r\n" % number)
    everything_so_far(device, peer)
    still_works(device, peer)
    assert device.syslog.lines == []
    device.host.link_down()
    assert scan(device, "setupMulticast") == -2
    wait_for(lambda: device.syslog.lines, what="a line")
    assert device.output == ""


# The configuration service

OTHER_TYPES = {
    "number": Typed("i", 5), "texts": Typed("as", ["a"]), "dictionary": Typed("a{sv}", {"a": 1}),
    "texts by name": Typed("a{ss}", {"a": "b"}), "pair": Typed("(ss)", ["a", "b"]), "bytes": Typed("ay", [0, 255]),
    "nested": variants(20), "numbers": Typed("ai", [1]), "path": Typed("o", "/"),
}


@pytest.mark.parametrize("value", OTHER_TYPES.values(), ids=OTHER_TYPES.keys())
def test_answers_of_other_types_at_the_start(start_device, peer, value):
    device = start_device(daemon="off")
    device.fwconfig.set(variables={"UUID": value}, constants={"SERIALNUMBER": value}, hostname=value, zorvversion=value,
                        network=value)
    device.start()
    assert peer.search()
    assert peer.http_raw(GET).startswith(b"HTTP/1.1 200 OK")
    assert is_alive(device)
    device.fwconfig.set(network={"dhcp": False})
    device.call("configureIp")
    assert device.call("getNetworkConfigMethod") == "static"
    assert device.call("getAddressStr") == "10.77.0.2"


def test_huge_answers(start_device, peer):
    huge = "x" * 100_000
    device = start_device(daemon="off")
    device.fwconfig.set(variables={"UUID": huge}, hostname=huge, zorvversion=huge,
                        network={"dhcp": True, "gateway": huge, huge: huge})
    device.start()
    assert len(peer.http_raw(GET)) > 300_000
    assert is_alive(device)
    device.fwconfig.set(network={"dhcp": False})
    device.call("configureIp")
    assert device.call("getNetworkConfigMethod") == "static"


@pytest.mark.parametrize("member", ["/network.GetAll", "/systemvariables.get", "/fwversion.Get", "/systemconstants.get"])
def test_service_that_dies_half_way_at_the_start(start_device, peer, member):
    device = start_device(daemon="off")
    device.fwconfig.behave("held", member)
    device.start(wait=False)
    wait_for(lambda: device.fwconfig.calls_of(member), what="the service is asked")
    device.fwconfig.stop()
    device.wait_until_ready()
    assert peer.search()
    assert is_alive(device)
    device.fwconfig.behave("normal")
    device.fwconfig.start()
    wait_for(lambda: device.call("getNetworkConfigMethod") == "dhcp", what="the service that is back is asked")


@pytest.mark.parametrize("how", ["dies", "fails"])
def test_service_that_goes_wrong_while_the_network_is_asked_for(device, peer, how):
    device.fwconfig.forget_calls()
    device.fwconfig.behave("held", "/network.GetAll")
    asking = device.bus.connect()
    answers = []
    asking.raw.call_async(BUS_NAME, "/settings", "local.UpnpSettings", "configureIp", "", (),
                          lambda *values: answers.append(values), answers.append)
    wait_for(lambda: device.fwconfig.calls_of("/network.GetAll"), what="the network is asked for")
    if how == "dies":
        device.fwconfig.stop()
    else:
        device.fwconfig.behave("failing", "/network.GetAll")
    wait_for(lambda: answers, what="configureIp replies")
    assert answers == [()]
    assert device.call("getNetworkConfigMethod") == "dhcp"
    still_works(device, peer)
    asking.close()


def test_service_that_hangs_delays_and_does_not_stop(device, peer):
    """Everything waits as long as the bus library does, and what arrived meanwhile is answered then."""
    device.fwconfig.forget_calls()
    device.fwconfig.behave("silent", "/network.GetAll")
    asking = device.bus.connect()
    asking.send_call(BUS_NAME, "/settings", "local.UpnpSettings", "configureIp")
    wait_for(lambda: device.fwconfig.calls_of("/network.GetAll"), what="the network is asked for")
    with peer.connect(seconds=LONGEST_BUS_CALL + 10) as connection:
        connection.send(GET)
        compare_bytes(connection.receive_until_close(), DESCRIPTION)
    still_works(device, peer)
    asking.close()


# The bus

def test_restarts_of_the_bus_alone_do_not_touch_the_network(device, peer):
    announcements = peer.listen_announcements()
    peer.announce(announcing("good"))
    wait_for_device(device, "good")
    files = len(device.open_files())
    for _ in range(3):
        device.bus.restart()
        compare_bytes(peer.search()[0].data, ANSWER)
        compare_bytes(peer.http_raw(GET), DESCRIPTION)
    assert device.bus.owner(BUS_NAME) == ""
    announcements.clear()
    announcements.wait_for(b"KM-2044817", seconds=15)
    compare_bytes(peer.search()[0].data, ANSWER)
    # Once a second there is one more for a moment, when the daemon looks whether the configuration service is back.
    wait_for(lambda: len(device.open_files()) <= files, what="no descriptor is left over", seen=device.open_files)
    assert device.running
    device.fwconfig.start()
    device.connman.start()
    device.bus.wait_for_name(BUS_NAME)
    device.wait_until_ready()
    assert "KM-2044817" in summaries(device)
    still_works(device, peer)
