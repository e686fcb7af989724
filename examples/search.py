#!/usr/bin/env python3
"""Searches the network for UPnP root devices and prints where their descriptions are.

    anywhere on the network:    python3 examples/search.py
    in the demonstration:       ./run exec pc python3 examples/search.py

Needs nothing but Python. One line for each answer: location, then what the device says of itself. Ends with 1 if
nobody has answered within three seconds.
"""

import signal
import socket
import sys
import time

GROUP = ("239.255.255.250", 1900)
SECONDS = 3
SEARCH = ("M-SEARCH * HTTP/1.1\r\n"
          "HOST: 239.255.255.250:1900\r\n"
          "MAN: \"ssdp:discover\"\r\n"
          "MX: 1\r\n"
          "ST: upnp:rootdevice\r\n\r\n")


def headers(answer: bytes) -> dict:
    pairs = [line.partition(":") for line in answer.decode("utf-8", "replace").splitlines()[1:]]
    return {name.strip().upper(): value.strip() for name, _, value in pairs}


def printable(text: str) -> str:
    """What a stranger wrote, without anything that moves the cursor, colours the screen or turns the line around."""
    return "".join(character if character.isprintable() else "?" for character in text)


def search() -> list:
    """One line for each that has answered. Without a route or a network, OSError."""
    found = set()
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as connection:
        connection.sendto(SEARCH.encode(), GROUP)
        end = time.monotonic() + SECONDS
        while (left := end - time.monotonic()) > 0:
            connection.settimeout(left)
            try:
                answer = headers(connection.recv(65536))
            except TimeoutError:
                break
            found.add(printable(f"{answer.get('LOCATION', '?')}   {answer.get('SERVER', '')}"))
    return sorted(found)


def main() -> int:
    for number in (signal.SIGINT, signal.SIGPIPE):
        signal.signal(number, signal.SIG_DFL)
    sys.stdout.reconfigure(errors="replace")
    try:
        found = search()
    except OSError as error:
        print(f"The network cannot be searched: {error.strerror}", file=sys.stderr)
        return 1
    print("\n".join(found) or "Nobody has answered.")
    return 0 if found else 1


if __name__ == "__main__":
    sys.exit(main())
