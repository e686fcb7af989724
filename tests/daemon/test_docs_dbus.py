"""docs/dbus.md: every command in it gives the output that stands below it, and every method has one."""

import os
import re
import shutil
import subprocess

import pytest

from codeblocks import commands
from documented import SERIAL, documented  # noqa: F401, a fixture

COMMANDS = commands("docs/dbus.md")


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


def test_every_property_has_a_command_or_is_said_to_be_read_in_the_same_way(documented):
    text = documented.call("Introspect", path="/monitor", interface="org.freedesktop.DBus.Introspectable")
    shown = {command.split()[5] for command, _ in COMMANDS if command.startswith("busctl get-property com.zorv.upnpvelorn /monitor ")}
    assert shown | {"Since", "AnnouncementsTaken"} == set(re.findall(r'<property name="(\w+)"', text))
