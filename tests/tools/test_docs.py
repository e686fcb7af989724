"""docs/porting.md shows what `upnpvelorn-browse check` says of a healthy device, line by line."""

import re

from browsing import Lines
from codeblocks import ROOT
from simdevice.waiting import wait_for

DOCUMENT = ROOT / "docs" / "porting.md"


def shown(command: str) -> list:
    """The lines that stand below a command of the PC."""
    text = DOCUMENT.read_text(encoding="utf-8")
    block = re.search(rf"^    pc\$ {re.escape(command)}\n((?:    .*\n)+)", text, re.MULTILINE)
    return [masked(line[4:]) for line in block[1].splitlines()]


def masked(line: str) -> str:
    """Without times, which differ."""
    return re.sub(r"\w+, \d\d \w+ \d{4} [0-9:]+|\d{4}-\d\d-\d\d \d\d:\d\d:\d\d|\d+ m?s$", "*", line)


def test_check_of_a_healthy_device(start_device, pc):
    device = start_device(daemon="off")
    device.fwconfig.set(constants={"SERIALNUMBER": "912345678"})
    device.start()
    with pc.start("check", "10.77.0.2", "--timeout", "20") as running:
        lines = Lines(running)
        lines.wait_for("search with a blank before the method")
        device.call("configureIp")
        device.call("sendAnnouncement", path="/zorvscan", interface="local.ZorvScan")
        wait_for(lambda: lines.read() and running.poll() is not None, 20, "it ends")
        lines.read()
    assert [masked(line) for line in lines.seen] == shown("upnpvelorn-browse check 10.77.0.2")
