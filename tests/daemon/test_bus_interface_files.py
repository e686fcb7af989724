"""The interface descriptions that are installed for other programs: they say what the objects say of themselves."""

import pathlib
import xml.etree.ElementTree

import pytest

from simdevice.waiting import wait_for

FILES = pathlib.Path(__file__).resolve().parent.parent.parent / "packaging" / "interfaces"
SERIAL = "912345678"
OBJECTS = {"local.UpnpSettings": "/settings", "local.ZorvScan": "/zorvscan", "local.ZorvDevice": f"/zorvscan/{SERIAL}",
           "com.zorv.upnpvelorn.Monitor": "/monitor"}


def described(text: str) -> list:
    """Every interface of its own with all members in their order, each with its arguments in theirs."""
    found = []
    for interface in xml.etree.ElementTree.fromstring(text).iter("interface"):
        if not interface.get("name").startswith("org.freedesktop.DBus."):
            found.append((interface.get("name"), [
                (member.tag, dict(member.attrib), [(one.tag, dict(one.attrib)) for one in member]) for member in interface]))
    return found


@pytest.fixture(scope="module")
def device(shared_device):
    shared_device.fwconfig.set(constants={"SERIALNUMBER": SERIAL})
    shared_device.restart()
    wait_for(lambda: shared_device.call("allChilds", path="/zorvscan", interface="local.ZorvScan"), 15,
             "the device hears itself")
    return shared_device


def test_every_object_has_its_file():
    assert sorted(file.name for file in FILES.iterdir()) == sorted(f"{name}.xml" for name in OBJECTS)


@pytest.mark.parametrize("name", OBJECTS)
def test_file_says_what_the_object_says(device, name):
    live = device.call("Introspect", path=OBJECTS[name], interface="org.freedesktop.DBus.Introspectable")
    assert described((FILES / f"{name}.xml").read_text()) == described(live)
    assert [one for one, _ in described(live)] == [name]
