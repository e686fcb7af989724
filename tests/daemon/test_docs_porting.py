"""docs/porting.md: its checks give the outputs that stand below them, and every log line of the daemon is in its table."""

import os
import re
import shutil
import subprocess

import pytest

from codeblocks import ROOT, commands
from documented import documented  # noqa: F401, a fixture
from simdevice.waiting import wait_for
from texts import has_joined

DOCUMENT = "docs/porting.md"
COMMANDS = commands(DOCUMENT)
FOLDERS = ("core", "settings", "upnp", "scan")

_LOGGING = re.compile(r'(?:qWarning|qCritical|qFatal)\("([^"]+)"|keltalog\.msg\(Qt\w+, "([^"]+)"|^    wire\(.*?"([^"]+)"\);',
                      re.MULTILINE | re.DOTALL)


def words(text: str) -> list:
    return [line.split() for line in text.splitlines()]


@pytest.mark.parametrize("command, output", COMMANDS, ids=[command for command, _ in COMMANDS])
def test_command(documented, command, output):
    for program in re.findall(r"(?:^|\| )(\w[\w-]*)", command):
        if not shutil.which(program):
            pytest.skip(f"{program} is not installed")
    wait_for(lambda: has_joined(documented, "239.255.77.76"), 15, "the group of the announcements is joined")
    environment = {**os.environ, "DBUS_SYSTEM_BUS_ADDRESS": documented.bus.address, "LC_ALL": "C"}
    done = subprocess.run([*documented.room.prefix, "sh", "-c", command], env=environment, capture_output=True, text=True,
                          timeout=30)
    assert (words(done.stdout), done.stderr, done.returncode) == (words(output), "", 0)


def logged_texts() -> set:
    found = set()
    for folder in FOLDERS:
        for file in (ROOT / folder).rglob("*.cpp"):
            for texts in _LOGGING.findall(file.read_text()):
                found.update(text for text in texts if text)
    return found


def test_every_log_line_is_explained():
    table = (ROOT / DOCUMENT).read_text()
    texts = logged_texts()
    assert len(texts) > 15
    missing = {text for text in texts if text != "%s" and not text.endswith(" connect failed")
               and f"`{text.replace('%s', '')}`" not in table}
    assert missing == set()
    assert "connman signal connect failed" in table
    assert len([text for text in texts if re.fullmatch(r"(upnpreceiver|zorvscan) \w+ connect failed", text)]) == 5
