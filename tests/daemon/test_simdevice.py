"""The simulated device itself: what it plays must be true before it can prove anything about the daemon."""

import errno
import os
import pathlib
import select
import socket
import subprocess
import time

import dbus
import pytest

from simdevice import sandbox
from simdevice.bus import PROPERTIES
from simdevice.controlpoint import ANNOUNCEMENTS, SSDP
from simdevice.device import CODESYS, ICON, png
from simdevice.network import is_running
from simdevice.room import HOSTNAME_FILE
from simdevice.values import Typed
from simdevice.waiting import wait_for
from wirebytes import compare_bytes, visible

SERVICE = "com.zorv.fwconfig"
VARIABLES = (SERVICE, "/systemvariables", "com.zorv.fwconfig.systemvariables")
CONSTANTS = (SERVICE, "/systemconstants", "com.zorv.fwconfig.systemconstants")
NETWORK = (SERVICE, "/network", PROPERTIES, "GetAll", "com.zorv.fwconfig.network", "local.NetworkInterface")
FIRMWARE = (SERVICE, "/fwversion", PROPERTIES)


@pytest.fixture
def bare(start_device):
    """A device whose daemon is not started."""
    return start_device(daemon="off")


def in_room(device, *command) -> str:
    return subprocess.run([*device.room.prefix, *command], check=True, capture_output=True, text=True).stdout


# The network

def test_nothing_but_lo_in_the_sandbox():
    assert [name for _, name in socket.if_nameindex()] == ["lo"]


def test_eth0_has_the_address_and_hardware_address(bare):
    assert bare.host.addresses() == ["10.77.0.2/24"]
    assert "00:11:22:aa:bb:cc" in bare.host.command(["ip", "link", "show", "eth0"]).stdout


def test_closed_connections_stay_closed_on_a_busy_machine(bare, peer):
    """SYN cookies would let a late packet bring one back (test_hostile_idle.py failed with them)."""
    for host in (bare.host, peer.host):
        assert host.command(["cat", "/proc/sys/net/ipv4/tcp_syncookies"], check=False).stdout in ("0\n", "")


def test_addresses_keep_their_order(start_device):
    device = start_device(daemon="off", addresses=["169.254.3.4/16", "10.77.0.2/24"])
    device.host.add_address("10.77.0.9/24")
    assert device.host.addresses() == ["169.254.3.4/16", "10.77.0.2/24", "10.77.0.9/24"]
    device.host.remove_address("169.254.3.4/16")
    assert device.host.addresses() == ["10.77.0.2/24", "10.77.0.9/24"]


def test_ipv6_only_as_given(start_device):
    device = start_device(daemon="off", ipv6=True, addresses=["fe80::2/64"])
    assert device.host.addresses() == ["fe80::2/64"]
    assert "tentative" not in device.host.command(["ip", "-6", "addr"]).stdout


def test_a_device_without_eth0_can_get_it_later(start_device):
    device = start_device(daemon="off", interface=None)
    with device.host.inside():
        assert [name for _, name in socket.if_nameindex()] == ["lo"]
    device.host.add_interface("can0")
    device.host.add_interface("eth0", ["10.77.0.2/24"])
    device.host.rename_interface("can0", "eth1")
    with device.host.inside():
        assert sorted(name for _, name in socket.if_nameindex()) == ["eth0", "eth1", "lo"]
    device.host.remove_interface("eth0")
    with device.host.inside():
        assert sorted(name for _, name in socket.if_nameindex()) == ["eth1", "lo"]


@pytest.mark.parametrize("group", [SSDP, ANNOUNCEMENTS])
def test_multicast_reaches_the_peer_and_back(bare, peer, group):
    listener = peer.listen(group)
    with bare.host.socket() as sender:
        sender.sendto(b"from the device", group)
    assert listener.wait_for(b"from the device")[0].source[0] == "10.77.0.2"
    peer.send(b"from the peer", group)
    assert listener.wait_for(b"from the peer")[0].source[0] == "10.77.0.3"


def test_two_lans_do_not_hear_each_other(lan, peer):
    from simdevice.network import Lan
    other = Lan()
    try:
        listener = peer.listen_ssdp()
        with other.host().socket() as stranger:
            stranger.sendto(b"stranger", SSDP)
        peer.send(b"own", SSDP)
        listener.wait_for(b"own")
        assert not listener.matching(b"stranger")
    finally:
        other.close()


def test_cable_out_and_in(bare, peer):
    listener = peer.listen_ssdp()
    with bare.host.socket() as sender:
        bare.host.cable_out()
        with bare.host.inside():
            assert not is_running("eth0")
        assert bare.host.addresses() == ["10.77.0.2/24"]
        sender.sendto(b"lost", SSDP)
        bare.host.cable_in()
        sender.sendto(b"heard", SSDP)
    listener.wait_for(b"heard")
    assert not listener.matching(b"lost")


def test_link_down_takes_the_way_out_and_up_gives_it_back(bare, peer):
    listener = peer.listen_ssdp()
    with bare.host.socket() as sender:
        bare.host.link_down()
        with pytest.raises(OSError) as failure:
            sender.sendto(b"lost", SSDP)
        assert failure.value.errno == errno.ENETUNREACH
        bare.host.link_up()
        sender.sendto(b"heard", SSDP)
    listener.wait_for(b"heard")


def test_a_search_asks_from_a_port_of_its_own(device, peer):
    peer.host.sysctl("net/ipv4/ip_local_port_range", "40000 40003")
    assert [len(peer.search()) for _ in range(30)] == [1] * 30


def test_a_link_local_peer_is_seen_as_such(start_device, peer):
    device = start_device(daemon="off", addresses=["10.77.0.2/24", "169.254.1.2/16"])
    peer.host.add_address("169.254.7.7/16")
    with device.host.socket() as receiver:
        receiver.bind(("", 1900))
        receiver.settimeout(5)
        peer.send(b"hello", ("169.254.1.2", 1900), from_address="169.254.7.7", from_port=5000)
        assert receiver.recvfrom(100) == (b"hello", ("169.254.7.7", 5000))


# The bus and the configuration service

def test_bus_keeps_its_address_over_a_restart(bare):
    bare.bus.wait_for_name(SERVICE)
    address = bare.bus.address
    bare.bus.restart()
    assert bare.bus.address == address
    assert bare.bus.owner(SERVICE) == ""
    bare.fwconfig.start()
    bare.connman.start()
    assert bare.bus.owner(SERVICE) and bare.bus.owner("net.connman")


def test_monitor_sees_calls_and_signals(bare):
    monitor = bare.bus.monitor()
    bare.bus.call(*CONSTANTS, "get", "SERIALNUMBER")
    bare.connman.state("idle")
    wait_for(lambda: monitor.signals("PropertyChanged"), what="the signal is seen")
    assert monitor.calls("get")[0].arguments == ["SERIALNUMBER"]
    assert monitor.signals("PropertyChanged")[0].arguments == ["State", "idle"]


def test_variables_are_kept_and_unknown_ones_empty(bare):
    bare.fwconfig.set(variables={"UUID": "abc"})
    assert bare.bus.call(*VARIABLES, "get", "UUID") == "abc"
    assert bare.bus.call(*VARIABLES, "get", "other") == ""
    assert bare.bus.call(*VARIABLES, "set", "UUID", "def") is None
    assert bare.bus.call(*VARIABLES, "save") is None
    assert bare.bus.call(*VARIABLES, "get", "UUID") == "def"
    assert [(call.member, call.arguments) for call in bare.fwconfig.calls] == [
        ("get", ["UUID"]), ("get", ["other"]), ("set", ["UUID", "def"]), ("save", []), ("get", ["UUID"])]


def test_serial_number_and_firmware_version(bare):
    bare.fwconfig.set(constants={"SERIALNUMBER": "77"}, hostname="dev1", zorvversion="2.0")
    assert bare.bus.call(*CONSTANTS, "get", "SERIALNUMBER") == "77"
    assert bare.bus.call(*FIRMWARE, "Get", "com.zorv.fwconfig.fwversion", "hostname") == "dev1"
    assert bare.bus.call(*FIRMWARE, "GetAll", "com.zorv.fwconfig.fwversion") == {
        "hostname": "dev1", "zorvversion": "2.0"}
    bare.fwconfig.set(hostname=None)
    with pytest.raises(dbus.DBusException, match="UnknownProperty"):
        bare.bus.call(*FIRMWARE, "Get", "com.zorv.fwconfig.fwversion", "hostname")


def test_network_answers_get_all_with_two_arguments_only(bare):
    assert bare.bus.call(*NETWORK) == {"dhcp": True, "gateway": "10.77.0.1"}
    with pytest.raises(dbus.DBusException, match="UnknownMethod"):
        bare.bus.call(*NETWORK[:4], "com.zorv.fwconfig.network")
    with pytest.raises(dbus.DBusException, match="InvalidArgs"):
        bare.bus.call(*NETWORK[:5], "another")


@pytest.mark.parametrize("value, signature", [
    ({"dhcp": False, "gateway": "10.0.0.1"}, "a{sv}"), (Typed("a{ss}", {"gateway": "10.0.0.1"}), "a{ss}"),
    (Typed("i", 5), "i"), (Typed("as", []), "as"), (Typed("(sv)", ["a", Typed("a{sv}", {})]), "(sv)"),
    ({"dhcp": Typed("as", ["x"]), "gateway": Typed("y", 7)}, "a{sv}"), (Typed("a{sv}", {}), "a{sv}"),
])
def test_any_value_can_be_answered(bare, value, signature):
    monitor = bare.bus.monitor("type='method_return'")
    bare.fwconfig.set(network=value)
    bare.bus.call(*NETWORK)
    wait_for(lambda: signature in [m.signature for m in monitor.messages], what=f"an answer of {signature}",
             seen=lambda: monitor.messages)


def test_version_of_another_type(bare):
    bare.fwconfig.set(zorvversion=Typed("i", 7), constants={"SERIALNUMBER": Typed("i", 5)})
    assert bare.bus.call(*FIRMWARE, "Get", "com.zorv.fwconfig.fwversion", "zorvversion") == 7
    assert bare.bus.call(*CONSTANTS, "get", "SERIALNUMBER") == 5


def test_behaviour_can_be_switched(bare):
    bare.fwconfig.behave("failing", "/network.GetAll", error="com.zorv.Error.Broken")
    with pytest.raises(dbus.DBusException, match="com.zorv.Error.Broken"):
        bare.bus.call(*NETWORK)
    assert bare.bus.call(*CONSTANTS, "get", "SERIALNUMBER")
    bare.fwconfig.behave("silent")
    with pytest.raises(dbus.DBusException, match="NoReply"):
        bare.bus.call(*CONSTANTS, "get", "SERIALNUMBER", seconds=0.2)
    bare.fwconfig.behave("slow", seconds=0.3)
    before = time.monotonic()
    assert bare.bus.call(*NETWORK)
    assert time.monotonic() - before >= 0.29
    bare.fwconfig.behave("normal")
    assert bare.bus.call(*NETWORK)


def test_held_answers_come_when_the_behaviour_changes(bare):
    monitor = bare.bus.monitor("type='method_return'")
    caller = bare.bus.connect()
    bare.fwconfig.behave("held", "/systemconstants.get")
    caller.raw.call_async(*CONSTANTS, "get", "s", ["SERIALNUMBER"], None, None)
    wait_for(lambda: bare.fwconfig.calls_of("/systemconstants.get"), what="the call arrives")
    bare.bus.call(*VARIABLES, "get", "UUID")
    assert ["KM-2044817"] not in [m.arguments for m in monitor.messages]
    bare.fwconfig.behave("normal")
    wait_for(lambda: ["KM-2044817"] in [m.arguments for m in monitor.messages], what="the answer")
    caller.close()


def test_service_goes_and_comes_back(bare):
    bare.bus.call(*VARIABLES, "get", "UUID")
    bare.fwconfig.set(variables={"UUID": "kept"})
    bare.fwconfig.stop()
    wait_for(lambda: not bare.bus.owner(SERVICE), what="the name is free")
    assert len(bare.fwconfig.calls_of("/systemvariables.get")) == 1
    bare.fwconfig.start()
    assert bare.bus.call(*VARIABLES, "get", "UUID") == "kept"


def test_introspection_names_the_interface(bare):
    for path in ("/systemvariables", "/fwversion", "/systemconstants"):
        text = bare.bus.call(SERVICE, path, "org.freedesktop.DBus.Introspectable", "Introspect")
        assert f'<interface name="com.zorv.fwconfig.{path[1:]}">' in text


@pytest.mark.parametrize("value, signature", [
    (Typed("a{sv}", {"Address": "10.0.0.5"}), "a{sv}"), (Typed("a{ss}", {"Address": "10.0.0.5"}), "a{ss}"),
    (Typed("ai", [1]), "ai"), (Typed("(ss)", ["a", "b"]), "(ss)"), (Typed("s", "x"), "s"), (Typed("b", True), "b"),
    (Typed("v", Typed("s", "inner")), "v"), (Typed("a{sv}", {}), "a{sv}"), (Typed("y", 1), "y"),
])
def test_connman_sends_any_type(bare, value, signature):
    received = []

    def record(_connection, message):
        if message.get_member() == "PropertyChanged":
            received.append(message.get_args_list())
        return dbus.lowlevel.HANDLER_RESULT_NOT_YET_HANDLED

    listener = bare.bus.connect()
    listener.raw.add_match_string("interface='net.connman.Service'")
    listener.raw.add_message_filter(record)
    bare.connman.property_changed("IPv4", value)
    wait_for(lambda: received, what="the signal arrives")
    inner = received[0][1]
    assert inner.variant_level == (2 if signature == "v" else 1)
    assert _signature_of(inner) == ("s" if signature == "v" else signature)
    listener.close()


def _signature_of(value) -> str:
    basic = {dbus.String: "s", dbus.Boolean: "b", dbus.Byte: "y", dbus.Int32: "i"}
    if isinstance(value, dbus.Dictionary):
        return f"a{{{value.signature}}}"
    if isinstance(value, dbus.Array):
        return f"a{value.signature}"
    if isinstance(value, tuple):
        return "(" + "".join(_signature_of(item) for item in value) + ")"
    return basic[type(value)]


def test_a_stranger_can_send_connmans_signal(bare):
    monitor = bare.bus.monitor()
    stranger = bare.bus.connect()
    bare.connman.property_changed("State", "ready", connection=stranger)
    bare.connman.state("ready")
    wait_for(lambda: len(monitor.signals("PropertyChanged")) == 2, what="both signals arrive")
    senders = [signal.sender for signal in monitor.signals("PropertyChanged")]
    assert senders == [stranger.name, bare.bus.owner("net.connman")]
    stranger.close()


# Files, host name and log

def test_host_name_is_private_and_its_file_can_be_watched(bare):
    outside = socket.gethostname()
    assert in_room(bare, "hostname").strip() == bare.room.hostname == "kelta"
    bare.room.write_hostname("dev1")
    assert in_room(bare, "hostname").strip() == "dev1"
    assert in_room(bare, "cat", HOSTNAME_FILE) == "dev1\n"
    assert socket.gethostname() == outside


def test_devices_do_not_share_the_host_name_file(start_device):
    first = start_device(daemon="off", hostname="first")
    second = start_device(daemon="off", hostname="second", addresses=["10.77.0.4/24"], mac="00:11:22:aa:bb:cd")
    first.room.write_hostname("changed")
    assert first.room.hostname == "changed"
    assert in_room(second, "cat", HOSTNAME_FILE) == "second\n"
    files = [device.room.path(HOSTNAME_FILE).stat() for device in (first, second)]
    assert (files[0].st_dev, files[0].st_ino) != (files[1].st_dev, files[1].st_ino)


def test_files_of_the_device(bare):
    assert in_room(bare, "sh", "-c", "ls /dev | sort | tr '\\n' ' '").split() == [
        "fd", "full", "log", "null", "random", "shm", "stderr", "stdin", "stdout", "tty", "urandom", "zero"]
    assert bare.room.path(ICON).read_bytes() == png()
    bare.set_icon(b"x" * 3_000_000)
    assert in_room(bare, "stat", "-c", "%s", ICON) == "3000000\n"
    bare.set_icon(None)
    assert not bare.room.path(ICON).exists()
    bare.install_codesys()
    assert in_room(bare, "stat", "-c", "%A", CODESYS) == "-rwxr-xr-x\n"
    bare.remove_codesys()
    assert in_room(bare, "ls", os.path.dirname(CODESYS)) == ""


def test_log_records_lines(bare):
    in_room(bare, "/usr/bin/logger", "--socket-errors=on", "--rfc3164", "-t", "upnp", "-p", "local6.crit", "one: two")
    wait_for(lambda: bare.syslog.lines, what="the line arrives")
    line = bare.syslog.lines[0]
    assert (line.facility, line.level) == (22, 2)
    assert "one: two" in line.text


def log_write(bare, text: bytes = b"<180>Nov 21 00:00:00 upnp: hello") -> None:
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
        sender.setblocking(False)
        sender.connect(str(bare.room.path("/dev/log")))
        sender.send(text)


def test_log_modes(bare):
    log_write(bare)
    bare.syslog.wait_for_text("hello")
    assert bare.syslog.lines[0][:4] == (22, 4, "upnp", "hello")
    bare.syslog.never_read()
    with pytest.raises(BlockingIOError):
        for _ in range(10_000):
            log_write(bare)
    bare.syslog.plain_file()
    with pytest.raises(ConnectionRefusedError):
        log_write(bare)
    bare.syslog.absent()
    with pytest.raises(FileNotFoundError):
        log_write(bare)
    bare.syslog.record()
    log_write(bare)
    bare.syslog.wait_for_text("hello", count=2)


# What stands for the daemon here only has to end, or to be ended

def test_a_daemon_that_ends_by_itself_is_noticed(start_device):
    device = start_device(daemon="off", program="/bin/true")
    with pytest.raises(AssertionError, match="ended with status 0"):
        device.start()
    assert device.crashed()
    with pytest.raises(AssertionError, match="ended with status 0"):
        device.stop()
    assert device.wait_for_exit() == 0


def test_daemon_gets_a_small_environment(start_device):
    device = start_device(daemon="off", program="/usr/bin/env")
    device.start(wait=False)
    device.wait_for_exit()
    names = {line.split("=")[0] for line in device.output.splitlines()}
    assert {"LC_ALL", "PATH", "DBUS_SYSTEM_BUS_ADDRESS"} <= names
    assert not {name for name in names if name.startswith(("SIMDEVICE", "HOME", "USER", "UPNP"))}


# The sandbox and the byte comparison

def sandboxed(*arguments) -> subprocess.Popen:
    """The mark of another sandbox in its environment must not deceive it."""
    script = pathlib.Path(__file__).with_name("sandboxed.py")
    return subprocess.Popen([sandbox.PYTHON, str(script), *arguments], stdout=subprocess.PIPE, text=True,
                            env={**os.environ, "SIMDEVICE_SANDBOX": "1-2-3-4"})


def test_sandbox_hands_on_status_and_signals():
    assert sandboxed("41").wait(10) == 41
    process = sandboxed()
    assert process.stdout.readline() == "up\n"
    process.terminate()
    assert process.wait(10) == 9


def test_killing_the_outer_script_ends_everything_inside():
    process = sandboxed()
    assert process.stdout.readline() == "up\n"
    process.kill()
    process.wait()
    # Everybody inside holds the pipe: it ends when the last of them is gone.
    ready, _, _ = select.select([process.stdout], [], [], 10)
    assert ready and process.stdout.read() == ""


def test_compare_bytes_points_at_the_first_difference():
    compare_bytes(b"DATE: Sat, 07 Mar 2026 09:05:07\r\n", b"DATE: {DATE}\r\n")
    compare_bytes(b"DATE: Sat, 07 Mar 2026 09:05:7\r\n", b"DATE: {DATE1}\r\n")
    for wrong in (b"DATE: Sat, 07 Mar 2026 09:05:7\r\n", b"DATE: Sat, 7 Mar 2026 09:05:07\r\n"):
        with pytest.raises(AssertionError):
            compare_bytes(wrong, b"DATE: {DATE}\r\n")
    with pytest.raises(AssertionError):
        compare_bytes(b"DATE: Sat, 07 Mar 2026 09:05:07\r\n", b"DATE: {DATE1}\r\n")
    with pytest.raises(AssertionError, match="byte 6, line 2, column 3"):
        compare_bytes(b"ab\r\ncd\tX", b"ab\r\ncd X")
    assert visible(b"a\tb\r\nc") == "a\\tb\\r\\nc".replace("\\nc", "\\n\nc")
