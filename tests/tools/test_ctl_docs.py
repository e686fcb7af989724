"""README.md and docs/porting.md show what the two tools print: of the plant of ./run, and of a healthy device."""

import re
import time

import pytest

from browsing import TOOL, Browser, Lines
from codeblocks import ROOT
from controlling import Ctl, runs_here
from scanning import scan, summaries
from simdevice.plant import PC_ADDRESS, Node
from simdevice.waiting import wait_for

pytestmark = runs_here


def shown(document: str, prompt: str) -> list:
    """The lines that stand below a prompt with its command, in an indented block or between fences."""
    lines = (ROOT / document).read_text(encoding="utf-8").splitlines()
    begin = next(at for at, line in enumerate(lines) if line.strip() == prompt) + 1
    indent = lines[begin - 1][:-len(prompt)]
    found = []
    for line in lines[begin:]:
        if not line.startswith(indent) or not line.strip() or line == "```" or re.match(r"[\w-]+\$ ", line[len(indent):]):
            break
        found.append(line[len(indent):])
    return found


def masked(line: str) -> str:
    """Without what differs: times, process numbers, counts, and the user, who need not be root."""
    line = re.sub(r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d, .*|\d\d:\d\d:\d\d|process \d+", "*", line)
    line = re.sub(r"^((?:Searches|Descriptions|Icons|Announcements|Refused)\D*)\d+$", r"\1*", line)
    return re.sub(r"user \w+", "user *", line)


@pytest.fixture
def plant(lan):
    """Three devices that list each other with everything in it, and the PC."""
    nodes = [Node(lan, number) for number in (1, 2, 3)]
    for node in nodes:
        node.device.wait_until_ready()

    def complete() -> bool:
        for node in nodes:
            scan(node.device, "sendAnnouncement")
        return all([one.get("configurationMethod") for one in summaries(node.device).values()] == ["dhcp"] * 3 for node in nodes)

    wait_for(complete, 20, "everybody lists everybody")
    yield nodes
    for node in nodes:
        node.device.close()


def test_browse_in_readme(plant, lan):
    pc = Browser(lan.host(addresses=[f"{PC_ADDRESS}/24"]))
    with pc.start() as running:
        while running.poll() is None:
            for node in plant:
                scan(node.device, "sendAnnouncement")
        assert running.stdout.read().splitlines() == shown("README.md", f"pc$ {TOOL.name}")


@pytest.mark.parametrize("command", ["list", "status", "show 912345702"])
def test_ctl_in_readme(plant, command):
    done = Ctl(plant[0].device).run(*command.split())
    assert list(map(masked, done.stdout.splitlines())) == list(map(masked, shown("README.md", f"kelta-1$ upnpvelornctl {command}")))


def test_monitor_in_readme(plant):
    expected = list(map(masked, shown("README.md", "kelta-1$ upnpvelornctl monitor")))
    time.sleep(2)  # by then the daemon has told of everything that changed before
    with Ctl(plant[0].device).start("monitor", text=False) as running:
        lines = Lines(running)
        wait_for(lambda: len(lines.read()) == 3, what="everybody has come", seen=lines.read)
        moving = plant[1].device
        moving.host.command(["ip", "address", "del", "10.77.0.12/24", "dev", "eth0"])
        moving.host.add_address("10.77.0.77/24")
        moving.host.command(["ip", "route", "replace", "default", "dev", "eth0"])
        moving.call("configureIp")
        scan(moving, "sendAnnouncement")
        lines.wait_for("changed", "kelta-2")
        running.kill()
    assert list(map(masked, lines.seen)) == expected


def test_check_in_porting(start_device):
    device = start_device(daemon="off")
    device.fwconfig.set(constants={"SERIALNUMBER": "912345678"})
    device.start()
    wait_for(lambda: summaries(device), 15, "it lists itself")
    done = Ctl(device).run("check")
    assert list(map(masked, done.stdout.splitlines())) == list(map(masked, shown("docs/porting.md", "kelta$ upnpvelornctl check")))
