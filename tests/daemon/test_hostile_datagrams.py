"""Datagrams whose checksum is wrong: the kernel reports them and then throws them away."""

import pytest

from scanning import GROUP, PORT, announcing, everything_so_far, is_alive, wait_for_device
from simdevice.device import ADDRESS


@pytest.mark.parametrize("to", [GROUP, ADDRESS])
@pytest.mark.parametrize("count", [1, 100])
def test_damaged_announcements_do_not_make_the_scan_deaf(device, peer, to, count):
    for number in range(count):
        peer.send_damaged(announcing(f"damaged{number}"), (to, PORT))
    peer.announce(announcing("good"))
    wait_for_device(device, "good")
    peer.send_damaged(announcing("damaged"), (to, PORT))
    assert not [uuid for uuid in everything_so_far(device, peer) if uuid.startswith("damaged")]
    assert is_alive(device)
