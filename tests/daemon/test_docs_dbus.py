"""docs/dbus.md: every command in it gives the output that stands below it, and every method has one."""

import os
import re
import shutil
import subprocess

import pytest

from codeblocks import commands
from simdevice.device import Device
from simdevice.waiting import wait_for
from scanning import scan

COMMANDS = commands("docs/dbus.md")
SERIAL = "912345678"


@pytest.fixture(scope="module")
def documented(shared_lan):
    """The device of the document, once it has heard its own announcement with everything in it."""
    device = Device(shared_lan)
    device.fwconfig.set(constants={"SERIALNUMBER": SERIAL})
    device.start()

    def heard() -> bool:
        scan(device, "sendAnnouncement")
        return [one["configurationMethod"] for one in scan(device, "allChilds") or []] == ["dhcp"]

    wait_for(heard, what="the device lists itself with its network", seen=lambda: scan(device, "allChilds"))
    yield device
    crashed, output = device.crashed(), device.output
    device.close()
    assert not crashed, output


@pytest.mark.parametrize("command, output", COMMANDS, ids=[command for command, _ in COMMANDS])
def test_command(documented, command, output):
    if not shutil.which(command.split()[0]):
        pytest.skip(f"{command.split()[0]} is not installed")
    environment = {**os.environ, "DBUS_SYSTEM_BUS_ADDRESS": documented.bus.address, "LC_ALL": "C.UTF-8"}
    done = subprocess.run(["sh", "-c", command], env=environment, capture_output=True, text=True, timeout=30)
    assert (done.stdout, done.stderr, done.returncode) == (output, "", 0)


@pytest.mark.parametrize("path", ["/settings", "/zorvscan", f"/zorvscan/{SERIAL}"])
def test_every_method_has_a_command(documented, path):
    text = documented.call("Introspect", path=path, interface="org.freedesktop.DBus.Introspectable")
    own = re.search(r'<interface name="local\..*?</interface>', text, re.DOTALL)[0]
    methods = set(re.findall(r'<method name="(\w+)"', own))
    shown = {command.split()[5] for command, _ in COMMANDS if command.startswith(f"busctl call com.zorv.upnpvelorn {path} ")}
    assert shown == methods
