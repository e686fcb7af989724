"""What becomes of a new host name."""

import pytest

from simdevice import sandbox
from simdevice.room import HOSTNAME_FILE
from simdevice.waiting import wait_for
from texts import ALIVE, BYEBYE, DESCRIPTION, expect_notifies, notifies, replaced
from wirebytes import compare_bytes

DESCRIPTION_REQUEST = b"GET /rootDesc.xml HTTP/1.1\r\n\r\n"


def settled(device) -> None:
    """The daemon has seen all that was written up to now."""
    for _ in range(3):
        device.call("getUdpPort")


def expect_pairs(device, listener) -> None:
    """A byebye and an alive, or twice that: opening a file for writing may be reported as well as the write."""
    listener.wait_for(b"ssdp:alive")
    settled(device)
    got = notifies(listener)
    assert len(got) in (2, 4)
    for position, text in enumerate(got):
        compare_bytes(text, ALIVE if position % 2 else BYEBYE)
    listener.clear()


@pytest.fixture
def quiet(ssdp, device):
    expect_notifies(ssdp, replaced(ALIVE, address=""), ALIVE)
    return device


def test_a_new_host_name_is_announced_by_byebye_and_alive(quiet, ssdp, peer):
    quiet.room.write_hostname("dev1")
    expect_pairs(quiet, ssdp)
    assert quiet.call("getHostname") == b"dev1"
    assert quiet.call("strHostname") == "dev1"
    compare_bytes(peer.http_raw(DESCRIPTION_REQUEST), replaced(DESCRIPTION, hostname="dev1"))


def test_the_same_host_name_again_is_announced_as_well(quiet, ssdp):
    quiet.room.write_hostname(quiet.room.hostname)
    expect_pairs(quiet, ssdp)
    quiet.room.write_hostname(quiet.room.hostname)
    expect_pairs(quiet, ssdp)
    assert quiet.call("getHostname") == b"kelta"


def test_one_write_is_one_pair(quiet, ssdp):
    if not sandbox.is_real_root():
        pytest.skip("an ordinary user has a file in the place of the kernel's, in which a shorter name leaves a rest")
    for name in ("dev1", "dev2", "dev3"):
        quiet.host.command([*quiet.room.prefix, "sh", "-c", f"echo {name} 1<>{HOSTNAME_FILE}"])
        expect_notifies(ssdp, BYEBYE, ALIVE)
        assert quiet.call("getHostname") == name.encode()


def test_blanks_around_the_name_do_not_count(quiet, ssdp):
    quiet.room.write_hostname("  dev one\t ")
    expect_pairs(quiet, ssdp)
    assert quiet.call("getHostname") == b"dev one"


def test_a_name_that_is_not_ascii_goes_out_as_its_bytes(quiet, ssdp, peer):
    quiet.room.write_hostname("m\u00e4\u00df")
    expect_pairs(quiet, ssdp)
    assert quiet.call("getHostname") == b"m\xc3\xa4\xc3\x9f"
    compare_bytes(peer.http_raw(DESCRIPTION_REQUEST), replaced(DESCRIPTION, hostname=b"m\xc3\xa4\xc3\x9f"))


def test_a_name_with_markup_goes_into_the_description_as_it_is(quiet, ssdp, peer):
    quiet.room.write_hostname("a&b<c>")
    expect_pairs(quiet, ssdp)
    compare_bytes(peer.http_raw(DESCRIPTION_REQUEST), replaced(DESCRIPTION, hostname="a&b<c>"))


def test_an_empty_name_gives_an_empty_element(quiet, ssdp, peer):
    quiet.room.write_hostname("")
    expect_pairs(quiet, ssdp)
    assert quiet.call("getHostname") == b""
    compare_bytes(peer.http_raw(DESCRIPTION_REQUEST), replaced(DESCRIPTION, hostname=""))


def test_the_kernels_name_counts_only_after_a_change(start_device, peer):
    device = start_device(hostname="kernelname")
    assert device.call("getHostname") == b"kelta"
    device.room.write_hostname("kernelname")
    wait_for(lambda: device.call("getHostname") == b"kernelname", what="the kernel's name")


def test_many_changes_end_with_the_last_name(quiet, ssdp):
    for number in range(100):
        quiet.room.write_hostname(f"dev{number}")
    wait_for(lambda: quiet.call("getHostname") == b"dev99", what="the last name")
    settled(quiet)
    got = notifies(ssdp)
    assert len(got) % 2 == 0
    assert [text.endswith(b"NTS:ssdp:byebye\r\n\r\n") for text in got] == [True, False] * (len(got) // 2)


def test_service_asked_again_does_not_bring_the_old_name_back(quiet, ssdp):
    quiet.room.write_hostname("dev1")
    expect_pairs(quiet, ssdp)
    quiet.fwconfig.stop()
    quiet.fwconfig.start()
    ssdp.wait_for(b"ssdp:alive")
    assert quiet.call("getHostname") == b"dev1"
