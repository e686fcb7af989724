"""The examples, run against real daemons: what integrators copy has to work."""

import json
import os
import pathlib
import subprocess

import pytest
import shortlived

from simdevice.device import default_program
from simdevice.sandbox import PYTHON
from simdevice.waiting import wait_for

EXAMPLES = pathlib.Path(__file__).resolve().parent.parent.parent / "examples"
COMPILED = pathlib.Path(default_program()).parent / "examples" / "list_devices"


def announcement(name: str, serial: str, address: str, expiration: int) -> bytes:
    """What another device of the family sends."""
    return json.dumps({"jsonrpc": "2.0", "method": "announce", "params": {
        "device": {"name": name, "uuid": serial, "type": "Kelta", "familyType": "Kelta", "firmwareVersion": "2.0"},
        "netSettings": {"interface": {"name": "eth0", "ipv4": [{"address": address, "netmask": "255.255.255.0"}]}},
        "expiration": expiration}}).encode()


def on(host, command: list, bus: str = "") -> subprocess.CompletedProcess:
    return host.command(command, env=shortlived.environment(DBUS_SYSTEM_BUS_ADDRESS=bus), check=False, timeout=20)


@pytest.mark.parametrize("command", [[PYTHON, str(EXAMPLES / "list_devices.py")], [str(COMPILED)]],
                         ids=["python", "cpp"])
def test_list_devices(device, peer, command):
    if command == [str(COMPILED)] and not COMPILED.exists():
        pytest.skip("the C++ example is not built (BUILD_EXAMPLES)")
    device.fwconfig.set(constants={"SERIALNUMBER": "912345678"})
    device.restart()
    peer.announce(announcement("visitor", "0815", "10.77.0.50", 22))
    rows = [["kelta", "912345678", "Kelta", "1.4.2", "10.77.0.2"], ["visitor", "0815", "Kelta", "2.0", "10.77.0.50"]]

    def output() -> list:
        return sorted(line.split() for line in on(device.host, command, device.bus.address).stdout.splitlines())

    wait_for(lambda: output() == rows, what=f"the output {rows}", seen=output)


@pytest.mark.parametrize("command", [[PYTHON, str(EXAMPLES / "list_devices.py")], [str(COMPILED)]],
                         ids=["python", "cpp"])
def test_list_devices_says_that_the_daemon_is_missing(start_device, command):
    if command == [str(COMPILED)] and not COMPILED.exists():
        pytest.skip("the C++ example is not built (BUILD_EXAMPLES)")
    device = start_device(daemon="off")
    done = on(device.host, command, device.bus.address)
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr.startswith("The daemon does not answer: ")


def test_watch_devices(device, peer, tmp_path):
    output = tmp_path / "output"
    with open(output, "w") as file:
        watching = subprocess.Popen(["nsenter", f"--net={device.host.path}", "--", PYTHON,
                                     str(EXAMPLES / "watch_devices.py")], stdin=subprocess.DEVNULL, stdout=file,
                                    env={**os.environ, "DBUS_SYSTEM_BUS_ADDRESS": device.bus.address})

    def seen() -> list:
        return [line.split(" ", 1)[1] for line in output.read_text().splitlines()]

    try:
        wait_for(lambda: seen() == ["+ kelta 10.77.0.2"], what="the device itself", seen=seen)
        peer.announce(announcement("visitor", "0815", "10.77.0.50", 0))
        wait_for(lambda: seen()[1:] == ["+ visitor 10.77.0.50"], what="the visitor comes", seen=seen)
        # The daemon looks for what has expired every ten seconds, and whole seconds count.
        wait_for(lambda: seen()[2:] == ["- visitor 10.77.0.50"], 25, what="the visitor goes", seen=seen)
    finally:
        watching.kill()
        watching.wait()


def test_search(device, peer):
    done = on(peer.host, [PYTHON, str(EXAMPLES / "search.py")])
    assert done.stdout == "http://10.77.0.2:8200/rootDesc.xml   Kelta/1.4.2, UPnP/1.0\n"
    assert done.returncode == 0


def test_search_without_an_answer(peer):
    done = on(peer.host, [PYTHON, str(EXAMPLES / "search.py")])
    assert (done.returncode, done.stdout) == (1, "Nobody has answered.\n")
