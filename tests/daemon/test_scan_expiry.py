"""How long the devices on the network stay known."""

import time

import dbus
import pytest

from scanning import PORT, SERIAL, announcing, child, everything_so_far, scan, summaries, wait_for_device
from simdevice.waiting import wait_for


def test_device_is_gone_after_three_times_its_expiration_at_the_next_tick(device, peer):
    listener = peer.listen_announcements()
    listener.wait_for(seconds=15)  # The timer's: the next one is ten seconds later.
    for uuid, expiration in (("one", 1), ("zero", 0), ("negative", -5), ("twenty-two", 22), ("refreshed", 1)):
        peer.announce(announcing(uuid, expiration))
    known = everything_so_far(device, peer)
    assert {"one", "zero", "negative", "twenty-two", "refreshed"} <= set(known)
    announced = time.monotonic()
    wait_for(lambda: time.monotonic() - announced > 4.5, what="the expiration of one second is over three times")
    assert {"one", "zero", "negative"} <= set(summaries(device)), "nothing is removed before the tick"
    wait_for(lambda: time.monotonic() - announced > 7.5, what="shortly before the tick")
    peer.announce(announcing("refreshed", 1))
    listener.clear()
    listener.wait_for(SERIAL.encode(), seconds=15)
    remaining = set(everything_so_far(device, peer))
    assert remaining == {SERIAL, "twenty-two", "refreshed"}
    with pytest.raises(dbus.DBusException, match="UnknownObject"):
        child(device, "one", "rawJson")
    peer.announce(announcing("one", 1, name="again"))
    assert wait_for_device(device, "one")["name"] == "again"


def test_two_devices_see_each_other_and_an_unplugged_one_is_gone(start_device, peer):
    first = start_device(hostname="first")
    second = start_device(daemon="off", addresses=["10.77.0.4/24"], mac="00:11:22:aa:bb:cd", hostname="second")
    second.fwconfig.set(hostname="second", constants={"SERIALNUMBER": "KM_2"})
    second.host.cable_out()
    second.start()
    # An announcement of a short life comes before the device's own: the first one's life is kept.
    peer.send(announcing("KM_2", 1), (first.address, PORT))
    wait_for_device(first, "KM_2")
    second.host.cable_in()
    for device in (first, second):
        scan(device, "sendAnnouncement")
    wait_for(lambda: summaries(first)["KM_2"]["name"] == "second", what="the device's own announcement")
    seen = {uuid: wait_for_device(first, uuid) for uuid in (SERIAL, "KM_2")}
    assert {uuid: wait_for_device(second, uuid)["ipv4"] for uuid in seen} == {uuid: one["ipv4"] for uuid, one in seen.items()}
    assert seen["KM_2"]["name"] == "second"
    assert seen["KM_2"]["ipv4"] == [{"address": "10.77.0.4", "netmask": "255.255.255.0"}]

    # A changed address shows with the next announcement.
    second.host.add_address("10.77.0.5/24")
    scan(second, "configChanged")
    scan(second, "sendAnnouncement")
    wait_for(lambda: len(summaries(first)["KM_2"]["ipv4"]) == 2, what="the second address")
    second.host.cable_out()
    wait_for(lambda: "KM_2" not in summaries(first), 25, "the unplugged device is gone", lambda: summaries(first))
    assert SERIAL in summaries(first)
    second.host.cable_in()
    scan(second, "sendAnnouncement")
    assert wait_for_device(first, "KM_2")["name"] == "second"
