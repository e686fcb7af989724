"""What the simulated device says on the wire while nobody has changed it: the texts of data/, by name."""

import re
import socket

from wirebytes import compare_bytes, expected_message

ADDRESS = "10.77.0.2"
AUTOIP = "169.254.1.2"
UUID = "9a1b0c7e-52f4-4d0b-8c6e-2f7d10a4b3c5"
KERNEL_UUID = re.compile(r"[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}")

ALIVE = expected_message("alive.msg")
ALIVE_AUTOIP = expected_message("alive_autoip.msg")
BYEBYE = expected_message("byebye.msg")
BYEBYE_AUTOIP = expected_message("byebye_autoip.msg")
ANSWER = expected_message("answer.msg")
ANSWER_AUTOIP = expected_message("answer_autoip.msg")
DESCRIPTION = expected_message("description.msg")
DESCRIPTION_AUTOIP = expected_message("description_autoip.msg")
NOT_FOUND = expected_message("not_found.msg")
ICON_MISSING = expected_message("icon_missing.msg")


def replaced(text: bytes, **values) -> bytes:
    """`text` of a device that differs: address, uuid, version, autoip, hostname. For a description, the length too."""
    usual = {"address": ADDRESS, "uuid": UUID, "version": "1.4.2", "autoip": AUTOIP,
             "hostname": "<friendlyName>kelta<", "serial": "KM-2044817"}
    for name, value in values.items():
        old = usual[name].encode()
        if old not in text:
            raise KeyError(f"no {name} in {text!r}")
        value = value if isinstance(value, bytes) else value.encode()
        text = text.replace(old, b"<friendlyName>%s<" % value if name == "hostname" else value)
    head, end, body = text.partition(b"\r\n\r\n")
    if body:
        head = re.sub(rb"(?<=\r\nContent-Length: )\d+", b"%d" % len(body), head)
    return head + end + body


def icon_answer(icon: bytes) -> bytes:
    return expected_message("icon.msg", LENGTH=str(len(icon))) + icon


def notifies(listener) -> list:
    """The announcements among what a listener heard up to now."""
    return [datagram.data for datagram in listener.received if datagram.data.startswith(b"NOTIFY")]


def expect_notifies(listener, *expected: bytes) -> None:
    """Waits for as many announcements as expected; there must be exactly these. Forgets them."""
    listener.wait_for(b"NOTIFY", count=len(expected))
    got = notifies(listener)
    for one, other in zip(got, expected):
        compare_bytes(one, other)
    assert len(got) == len(expected), got
    listener.clear()


def has_joined(device, group: str = "239.255.255.250") -> bool:
    """Whether somebody on the device is a member of the group on eth0, as the kernel sees it."""
    with open(f"/proc/{device.room.pid}/net/igmp") as file:
        interfaces = re.split(r"\n(?=\d)", file.read())
    number = socket.inet_aton(group)[::-1].hex().upper()
    return any(re.search(rf"^\t+{number}\s+1 ", text, re.MULTILINE) for text in interfaces
               if re.match(r"\d+\s+eth0\s*:", text))
