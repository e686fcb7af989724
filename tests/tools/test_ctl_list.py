"""upnpvelornctl: who the device is, who is there, and what only root may do."""

import json
import os
import re
import time

import pytest

from controlling import Ctl, runs_here
from scanning import announcing, child, scan, summaries, wait_for_device
from simdevice.waiting import wait_for

pytestmark = runs_here

SERIAL = "912345678"
# What a terminal would obey, and what parts lines or turns them around
CONTROLS = [*range(0x01, 0x20), *range(0x7f, 0xa0), 0x061c, 0x200e, 0x200f, *range(0x2028, 0x202f), *range(0x2066, 0x206a)]
STRANGE = ["{}", '{"ipv4":[{"netmask":"255.0.0.0"}]}', '{"ipv4":"10.0.0.1"}', '{"ipv4":7}', '{"ipv4":{"address":"10.0.0.1"}}',
           '{"ipv4":["10.0.0.1",1.5,[],[[{}]],{},{"address":{"a":[]}}]}', '{"ipv4":[[{"address":"a"}],{"address":"10.9.9.9"}]}', "[]"]


@pytest.fixture
def kelta(start_device):
    """A device that has heard its own announcement with everything in it."""
    device = start_device(daemon="off")
    device.fwconfig.set(constants={"SERIALNUMBER": SERIAL})
    device.start()

    def heard() -> bool:
        scan(device, "sendAnnouncement")
        return [one.get("configurationMethod") for one in summaries(device).values()] == ["dhcp"]

    wait_for(heard, what="the device lists itself with its network")
    return device


@pytest.fixture
def ctl(kelta):
    return Ctl(kelta)


def fields(text: str) -> dict:
    return dict(re.split(r"  +", line, maxsplit=1) for line in text.splitlines())


def harmless(text: str) -> bool:
    return not any(ord(character) in CONTROLS for character in text if character != "\n")


def test_status(ctl, peer):
    peer.search("ssdp:all")
    peer.http_raw(b"GET /rootDesc.xml HTTP/1.1\r\n\r\n")
    peer.announce(b"junk")
    peer.announce(announcing("other", "never"))
    done = ctl.run("status")
    assert (done.returncode, done.stderr) == (0, "")
    found = fields(done.stdout)
    assert abs(time.time() - time.mktime(time.strptime(found.pop("Running since")[:19], "%Y-%m-%d %H:%M:%S"))) < 60
    assert int(found.pop("Announcements taken")) >= 1
    assert found == {
        "Name": "kelta", "Serial number": SERIAL, "Model": "Zorv Kelta industrial measurement", "Firmware": "1.4.2",
        "Address": "10.77.0.2 (dhcp)", "Link-local address": "-", "MAC address": "00:11:22:AA:BB:CC",
        "Daemon": "upnpvelorn 1.0.0", "Devices known": "1", "Searches answered": "3", "Descriptions served": "1",
        "Icons served": "0", "Refused, no uuid": "1", "Refused, unusable": "1", "Refused, no room": "0"}


def test_status_without_the_configuration_service(start_device):
    found = fields(Ctl(start_device(fwconfig=False)).run("status").stdout)
    sentence = "none: the configuration service did not answer when the daemon started"
    assert [found[name] for name in ("Serial number", "Firmware")] == [sentence] * 2


def test_list(kelta, ctl, peer):
    peer.announce(announcing("KM-10", name="kelta-10"))
    peer.announce(announcing("KM-2", name="kelta-2", family="Other"))
    wait_for_device(kelta, "KM-10")
    wait_for_device(kelta, "KM-2")
    done = ctl.run("list")
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout.splitlines() == [
        "NAME      SERIAL     TYPE           FIRMWARE  ADDRESSES  CONFIGURED",
        "kelta     912345678  Kelta          1.4.2     10.77.0.2  dhcp",
        "kelta-2   KM-2       Other CODESYS  2.0.1     10.77.0.3  static",
        "kelta-10  KM-10      Kelta CODESYS  2.0.1     10.77.0.3  static"]
    assert [line.split()[0] for line in ctl.run("list", "--family", "Other").stdout.splitlines()] == ["NAME", "kelta-2"]


def test_nobody_of_a_family(ctl):
    done = ctl.run("list", "--family", "Oth\x1ber")
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr == "upnpvelornctl: No device of the family Oth\ufffder has been heard of; without --family all are listed.\n"


def test_list_for_programs(kelta, ctl, peer):
    peer.announce(announcing("\x1b[31m\u202e", name="a\nb"))
    wait_for(lambda: len(summaries(kelta)) == 2, what="the stranger is known")
    done = ctl.run("list", "--json")
    assert (done.returncode, done.stderr) == (0, "")
    assert all(" " <= character <= "~" for character in done.stdout.replace("\n", ""))
    assert sorted(map(json.loads, done.stdout.splitlines()), key=lambda one: one["name"])[1] == {
        "name": "kelta", "serial": SERIAL, "type": "Kelta", "family": "Kelta", "firmware": "1.4.2", "address": "10.77.0.2",
        "addresses": [{"address": "10.77.0.2", "link_local": False}], "configured": "dhcp"}
    assert {one["name"] for one in map(json.loads, done.stdout.splitlines())} == {"kelta", "a\nb"}


def test_show(ctl):
    done = ctl.run("show", SERIAL)
    assert (done.returncode, done.stderr) == (0, "")
    assert fields(done.stdout) == {
        "Name": "kelta", "Serial number": SERIAL, "Type": "Kelta", "Family": "Kelta", "Firmware": "1.4.2",
        "Addresses": "10.77.0.2", "Configured": "dhcp", "Gateway": "10.77.0.1",
        "Services": "http:80 scpi:55000 daqStream:7411", "Expiration": "22 s, forgotten after three times that"}


def test_show_a_device_without_an_object_of_its_own(kelta, ctl, peer):
    peer.announce(announcing("KM-10", name="kelta-10"))
    wait_for_device(kelta, "KM-10")
    found = fields(ctl.run("show", "KM-10").stdout)
    assert (found["Name"], found["Addresses"]) == ("kelta-10", "10.77.0.3")


def test_show_nobody(ctl):
    done = ctl.run("show", "nobody")
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr == "upnpvelornctl: No device with the uuid nobody has been heard of. See who is there: upnpvelornctl list\n"


def test_strangers_do_no_harm(kelta, ctl, peer):
    hostile = "".join(map(chr, CONTROLS))
    announcements = [announcing(f"s{number}", raw=raw) for number, raw in enumerate(STRANGE)]
    announcements.append(announcing("hostile", name=f"x{hostile}x", family=hostile,
                                    raw=json.dumps({"ipv4": [{"address": hostile}], "configurationMethod": hostile})))
    announcements.append(b'{"params":{"uuid":"bare","device":{"name":"\x9b2J\\u001b"},"services":[7,{"type":"\\u001b[2J","port":[]}],'
                         b'"expiration":22,"netSettings":{"defaultGateway":{"ipv4Address":"\\u202e\\u0007"}}}}')
    for one in announcements:
        peer.announce(one)
    wait_for(lambda: len(summaries(kelta)) == len(announcements) + 1, what="all are known")
    for words in (["list"], ["show", "hostile"], ["show", "bare"], ["show", "s3"], ["list", "--json"]):
        done = ctl.run(*words)
        assert (done.returncode, done.stderr) == (0, "")
        assert harmless(done.stdout), repr(done.stdout)
    assert len(ctl.run("list").stdout.splitlines()) == len(announcements) + 2
    assert "10.9.9.9" in ctl.run("list").stdout


def test_on_a_terminal(ctl):
    shown = ctl.on_terminal("list", columns=40)
    head, row = shown.splitlines()
    assert head.startswith("\x1b[1mNAME") and head.endswith("\x1b[0m")
    assert len(row) <= 40 and row.startswith("kelta") and "…" in head
    assert "\x1b" not in ctl.on_terminal("list", NO_COLOR="1")
    assert "\x1b" not in ctl.on_terminal("list", TERM="dumb")
    assert "\x1b[1mName" in ctl.on_terminal("status")


# What only root may do

def test_announce(kelta, ctl, peer):
    hearing = peer.listen_announcements()
    done = ctl.run("announce")
    assert (done.returncode, done.stdout, done.stderr) == (0, "Announced: kelta, 10.77.0.2\n", "")
    hearing.wait_for(SERIAL.encode(), seconds=2)


def test_reconfigure(kelta, ctl, peer):
    kelta.host.command(["ip", "address", "del", "10.77.0.2/24", "dev", "eth0"])
    kelta.host.add_address("10.77.0.99/24")
    kelta.host.command(["ip", "route", "replace", "default", "dev", "eth0"])
    ssdp, hearing = peer.listen_ssdp(), peer.listen_announcements()
    done = ctl.run("reconfigure")
    assert (done.returncode, done.stdout, done.stderr) == (0, "Read again and announced: kelta, 10.77.0.99\n", "")
    ssdp.wait_for(b"LOCATION:http://10.77.0.99:8200/rootDesc.xml", seconds=2)
    hearing.wait_for(b'"address":"10.77.0.99"', seconds=2)
    assert child(kelta, SERIAL, "jsonValue", "params/device/name") == "kelta"


# What is in the way

@pytest.mark.parametrize("command", ["status", "list", "announce", "reconfigure"])
def test_no_daemon(start_device, command):
    done = Ctl(start_device(daemon="off")).run(command)
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr == ("upnpvelornctl: com.zorv.upnpvelorn has no owner on the bus: the daemon does not run. Look with: systemctl "
                           "status upnpvelorn, and what it has logged: journalctl -t upnp\n")


@pytest.mark.parametrize("command", ["status", "list", "monitor", "check", "announce"])
def test_no_bus(device, command):
    done = Ctl(device, DBUS_SYSTEM_BUS_ADDRESS="unix:path=/nowhere").run(command)
    assert (done.returncode, done.stdout) == (1, "")
    assert re.fullmatch(r"upnpvelornctl: There is no system bus: [^\n]+\. Is it running\? Look with: ls -l \S+\n", done.stderr)


def test_nobody_reads(ctl):
    reading, writing = os.pipe()
    os.close(reading)
    running = ctl.start("list", stdout=writing)
    os.close(writing)
    assert running.communicate(timeout=20)[1] == ""
    assert running.returncode in (-13, 141)
