"""In which order a change reaches the daemon's parts, by the calls that they make. Where there is strace,
tests/daemon/test_change_order.py says it more exactly."""

from failing import Failing, needs_failing

pytestmark = needs_failing


def steps(calls: list) -> list:
    """What the calls are good for; several in a row for the same count once."""
    uses = {"access": "rebuild",  # it looks whether there is a CODESYS program
            "sendmsg": "send", "sendto": "send"}
    found = [uses[call] for call in calls if call in uses]
    return [step for number, step in enumerate(found) if found[number - 1:number] != [step]]


def test_one_change_rebuilds_the_announcement_before_and_after_the_alive_message(start_device, ssdp, tmp_path):
    failing = Failing(tmp_path)
    device = start_device(program=failing.program)
    ssdp.wait_for(b"ssdp:alive", count=2)
    failing.forget_calls()
    device.connman.ipv4("10.77.0.9")
    ssdp.wait_for(b"ssdp:alive", count=3)
    assert device.call("getAddressStr") == "10.77.0.9"
    byebye, *change, answer = steps(failing.sequence)
    assert (byebye, answer) == ("send", "send")
    assert change == ["rebuild", "send", "rebuild"]
