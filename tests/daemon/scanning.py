"""What the tests of /zorvscan have in common: its methods, and other devices' announcements."""

import itertools
import json

from simdevice.device import BUS_NAME
from simdevice.waiting import wait_for

SCAN = "/zorvscan"
INTERFACE = "local.ZorvScan"
SERIAL = "KM-2044817"
GROUP = "239.255.77.76"
PORT = 31416

ETHERNET = {"name": "eth0", "type": "ethernet", "ipv4": [{"address": "10.77.0.3", "netmask": "255.255.255.0"}],
            "ipv6": [], "configurationMethod": "static"}

_closing = itertools.count(1)


def announcing(uuid: str, expiration=22, family: str = "Kelta", interface=None, name: str = "other",
               raw: str = None) -> bytes:
    """Another device's announcement. `raw` is JSON text in place of the interface object."""
    text = json.dumps({"jsonrpc": "2.0", "method": "announce", "params": {
        "apiVersion": "1.0",
        "device": {"name": name, "uuid": uuid, "type": f"{family} CODESYS", "familyType": family,
                   "firmwareVersion": "2.0.1"},
        "netSettings": {"interface": "INTERFACE" if raw is not None else ETHERNET if interface is None else interface},
        "expiration": expiration}}, separators=(",", ":"))
    return text.replace('"INTERFACE"', raw).encode() if raw is not None else text.encode()


def scan(device, member: str, *arguments, **options):
    return device.call(member, *arguments, path=SCAN, interface=INTERFACE, **options)


def summaries(device, family: str = "", seconds: float = 10) -> dict:
    """All known devices, or those of a family, by their uuid."""
    found = scan(device, "allChilds", family, signature="s", seconds=seconds) or []
    assert len({summary["uuid"] for summary in found}) == len(found)
    return {summary["uuid"]: summary for summary in found}


def wait_for_device(device, uuid: str, seconds: float = 30) -> dict:
    """The summary of a device, as soon as it is known."""
    wait_for(lambda: uuid in summaries(device), seconds, f"{uuid!r} is known", lambda: list(summaries(device)))
    return summaries(device)[uuid]


def everything_so_far(device, peer) -> dict:
    """What is known when everything that was sent up to now has been read: a new device's announcement closes it.

    The device reads them in the order in which they came, but a useless one is forgotten only in its event loop's next
    round; the second closing one has that behind it.
    """
    for _ in range(2):
        closing = f"closing-{next(_closing)}"
        peer.announce(announcing(closing, family="closing"))
        wait_for_device(device, closing)
    return {uuid: summary for uuid, summary in summaries(device).items() if not uuid.startswith("closing-")}


def child(device, uuid: str, member: str, *arguments, **options):
    """Calls a method of the object that stands for a device."""
    return device.call(member, *arguments, path=f"{SCAN}/{uuid}", interface="local.ZorvDevice", **options)


def is_alive(device) -> bool:
    """The daemon runs, in its first process, and has its name."""
    return device.running and device.bus.pid_of(BUS_NAME) == device.pid
