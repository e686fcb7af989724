"""Control points that others have written find the device."""

import re
import shutil
import subprocess

import pytest

from texts import ADDRESS, UUID

LOCATION = f"http://{ADDRESS}:8200/rootDesc.xml"


def run(peer, *command) -> str:
    if not shutil.which(command[0]):
        pytest.skip(f"{command[0]} is not installed")
    done = peer.host.command([*command], check=False, stderr=subprocess.STDOUT, capture_output=False,
                             stdout=subprocess.PIPE)
    return done.stdout


@pytest.mark.parametrize("target", ["ssdp:all", "upnp:rootdevice"])
def test_gssdp_discover_finds_the_device(device, peer, target):
    text = run(peer, "gssdp-discover", "--interface=eth0", "--timeout=3", "--rescan-interval=0", f"--target={target}")
    usn = re.escape(f"uuid:Upnp-BasicDevice-1_0-{UUID}::upnp:rootdevice")
    assert re.search(rf"resource available\s+USN:\s+{usn}\s+Location: {re.escape(LOCATION)}", text), text


def test_upnpc_lists_the_description(device, peer):
    text = run(peer, "upnpc", "-m", "eth0", "-l")
    assert f"desc: {LOCATION}\n st: upnp:rootdevice\n" in text, text
