"""Programs on a PC find a device whose address comes from connman and a DHCP server."""

import re
import subprocess

import pytest

from programs import Program, executable
from simdevice.waiting import wait_for

ADDRESS = "10.77.0.40"
LOCATION = f"http://{ADDRESS}:8200/rootDesc.xml"
USN = "uuid:Upnp-BasicDevice-1_0-9a1b0c7e-52f4-4d0b-8c6e-2f7d10a4b3c5::upnp:rootdevice"


def said_by(peer, name: str, *arguments: str) -> str:
    done = peer.host.command([executable(name), *arguments], check=False, stderr=subprocess.STDOUT, capture_output=False,
                             stdout=subprocess.PIPE, timeout=60)
    return done.stdout


@pytest.mark.parametrize("target", ["ssdp:all", "upnp:rootdevice"])
def test_gssdp_discover(connected, peer, target):
    text = said_by(peer, "gssdp-discover", "--interface=eth0", "--timeout=3", "--rescan-interval=0", f"--target={target}")
    assert re.search(rf"resource available\s+USN:\s+{re.escape(USN)}\s+Location: {re.escape(LOCATION)}", text), text


def test_upnpc(connected, peer):
    text = said_by(peer, "upnpc", "-m", "eth0", "-l")
    assert f"desc: {LOCATION}\n st: upnp:rootdevice\n" in text, text


def test_nmap_looks_for_everybody(connected, peer):
    """It searches over the group and reads the description; what it takes for the web server is the run-together line."""
    text = said_by(peer, "nmap", "-n", "-e", "eth0", "--script", "broadcast-upnp-info")
    for line in ("Server: Kelta/1.4.2, UPnP/1.0", f"Location: {LOCATION}", "Name: kelta", "Manufacturer: Zorv",
                 "Model Name: Kelta", "Model Version: 1.4.2"):
        assert re.search(rf"^\|_?\s+{re.escape(line)}$", text, re.MULTILINE), text
    assert re.search(r"Webserver: Kelta/1\.4\.2, UPnP/1\.0Date: ", text), text


def test_nmap_looks_at_the_device(connected, peer):
    text = said_by(peer, "nmap", "-n", "-Pn", "-sU", "-p", "1900", "--script", "upnp-info", ADDRESS)
    assert re.search(r"^1900/udp open\s+upnp$", text, re.MULTILINE), text
    assert f"Location: {LOCATION}" in text, text


def test_minissdpd_on_the_pc_remembers_it(connected, peer, start_program, tmp_path):
    """It takes what it hears: so it takes ST where UPnP has NT, and the farewell too."""
    socket = tmp_path / "minissdpd.sock"
    hearing = start_program(Program, ["nsenter", f"--net={peer.host.path}", "--"],
                            ["minissdpd", "-d", "-i", "eth0", "-s", str(socket), "-p", str(tmp_path / "minissdpd.pid")])
    wait_for(socket.exists, what="minissdpd listens", seen=lambda: hearing.output)
    connected.call("configureIp")
    hearing.wait_for_output(f"new device discovered : {USN}")
    connected.connmand.set_ipv4(Method="manual", Address="10.77.0.60", Netmask="255.255.255.0", Gateway="10.77.0.1")
    hearing.wait_for_output(f"remove device : {USN}")
