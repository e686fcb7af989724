"""--version and --help end at once and touch nothing; with everything else the daemon starts."""

import os
import pathlib
import re
import shutil
import subprocess

import pytest

from simdevice.device import BUS_NAME

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
VERSION = re.search(r"project\(upnpvelorn VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text())[1]


def ask(device, *arguments: str, before: tuple = ()) -> subprocess.CompletedProcess:
    """Runs the daemon's program on the device and waits for its end."""
    options = f"{os.environ.get('ASAN_OPTIONS', '')}:detect_leaks=0"  # leaks cannot be looked for under strace
    return subprocess.run([*device.room.prefix, *before, device.program, *arguments], stdin=subprocess.DEVNULL,
                          capture_output=True, text=True, timeout=10,
                          env={"PATH": "/usr/bin:/bin", "DBUS_SYSTEM_BUS_ADDRESS": device.bus.address,
                               "ASAN_OPTIONS": options})


HELP = """\
Usage: upnpvelorn [--help | --version]
Makes a Zorv Kelta measurement device findable on its network.

  --help     prints this and ends
  --version  prints the version and ends

With anything else on the command line, or nothing, the daemon starts and runs
in the foreground. There are no further options. See upnpvelorn(8).
"""


def test_version(start_device):
    done = ask(start_device(daemon="off"), "--version")
    assert (done.returncode, done.stdout, done.stderr) == (0, f"upnpvelorn {VERSION}\n", "")


def test_help(start_device):
    done = ask(start_device(daemon="off"), "--help")
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout == HELP
    assert max(len(line) for line in done.stdout.splitlines()) < 80


def test_the_version_is_that_of_the_package_and_the_change_log():
    assert re.match(r"upnpvelorn \((.*?)\)", (ROOT / "debian/changelog").read_text())[1] == VERSION
    assert re.search(r"^## (\S+)", (ROOT / "CHANGELOG.md").read_text(), re.MULTILINE)[1] == VERSION


@pytest.mark.parametrize("question", ["--version", "--help"])
def test_a_question_opens_no_socket(start_device, question):
    if not shutil.which("strace"):
        pytest.skip("strace is not installed")
    device = start_device(daemon="off")
    done = ask(device, question, before=("strace", "-f", "-e", "trace=write,socket,connect,bind"))
    assert done.returncode == 0 and "write(1, " in done.stderr
    assert not re.search(r"\b(socket|connect|bind)\(", done.stderr), done.stderr
    assert not device.syslog.lines


def test_a_question_is_answered_while_the_daemon_runs(device):
    assert ask(device, "--version").returncode == 0
    assert device.bus.pid_of(BUS_NAME) == device.pid
    assert not device.syslog.lines


@pytest.mark.parametrize("arguments", [
    ["-d"], ["--version", "--foo"], ["--help", "--version"], ["--version", ""], ["--versio"], ["--version "], ["-h"], [""]], ids=str)
def test_everything_else_starts_the_daemon(start_device, arguments):
    device = start_device(daemon="off")
    device.start(arguments=arguments)
    assert device.bus.pid_of(BUS_NAME) == device.pid
    assert (device.output, device.syslog.lines) == ("", [])
