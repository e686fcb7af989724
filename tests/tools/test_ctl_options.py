"""The command line of upnpvelornctl, and what documents it: help, manual page and completion name every command and option."""

import os
import re
import shutil
import stat
import subprocess

import pytest

from browsing import TOOL
from controlling import PROGRAM, Ctl, runs_here

pytestmark = runs_here

ROOT = TOOL.parent.parent
MANUAL = ROOT / "man" / "upnpvelornctl.1"
COMPLETION = TOOL.parent / "ctl" / "upnpvelornctl.bash"
COMMANDS = {"status", "list", "show", "monitor", "check", "announce", "reconfigure"}
OPTIONS = {"--family", "--json", "--help", "--version"}


def run(*arguments: str) -> subprocess.CompletedProcess:
    """Without a bus: none is needed for this."""
    return subprocess.run([PROGRAM, *arguments], capture_output=True, text=True, timeout=20,
                          env={"DBUS_SYSTEM_BUS_ADDRESS": "unix:path=/nowhere"})


def test_help_names_every_command_and_option():
    done = run("--help")
    assert (done.returncode, done.stderr) == (0, "")
    assert set(re.findall(r"^  (\w+) ", done.stdout, re.MULTILINE)) == COMMANDS
    assert set(re.findall(r"--\w+", done.stdout)) == OPTIONS
    assert "exit status: 0" in done.stdout
    assert all(len(line) <= 120 for line in done.stdout.splitlines())


@pytest.mark.parametrize("command", sorted(COMMANDS))
def test_help_of_a_command(command):
    done = run(command, "--help")
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout.startswith(f"Usage: upnpvelornctl {command}")
    assert set(re.findall(r"--\w+", done.stdout)) == ({"--family", "--json"} if command == "list" else set())


def test_version_is_that_of_the_project():
    version = re.search(r"^project\(upnpvelorn VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text(), re.MULTILINE)[1]
    assert run("--version").stdout == f"upnpvelornctl {version}\n"


@pytest.mark.parametrize("arguments, sentence", [
    ([], "a command is missing; the commands are: status, list, show, monitor, check, announce, reconfigure"),
    (["look"], "there is no command look; the commands are: status"),
    (["list", "--nonsense"], "there is no option --nonsense"),
    (["list", "a\x1b[31m"], "what is \"a\ufffd[31m\" for?"),
    (["show"], "show needs the uuid of a device"),
    (["status", "--json"], "--json goes with the command list"),
], ids=lambda value: " ".join(value) if isinstance(value, list) else "")
def test_wrong_command_lines(arguments, sentence):
    done = run(*arguments)
    assert (done.returncode, done.stdout) == (2, "")
    assert done.stderr.startswith(f"upnpvelornctl: {sentence}") and done.stderr.endswith(". See: upnpvelornctl --help\n")


def test_manual_names_every_command_and_option():
    text = MANUAL.read_text()
    assert {"--" + name for name in re.findall(r"\\-(\w+)", text)} == OPTIONS
    assert set(re.findall(r"^\.It Cm (\w+)", text, re.MULTILINE)) == COMMANDS


def test_manual_is_well_formed():
    if not shutil.which("mandoc"):
        pytest.skip("mandoc is not installed")
    done = subprocess.run(["mandoc", "-T", "lint", "-W", "warning", str(MANUAL)], capture_output=True, text=True)
    assert (done.stdout, done.returncode) == ("", 0)


def test_manual_names_every_json_key(device):
    keys = set(re.findall(r'"(\w+)": ', Ctl(device).run("list", "--json").stdout))
    text = MANUAL.read_text().partition(".Sh JSON")[2].partition(".Sh ENVIRONMENT")[0]
    listed = re.findall(r"^\.It Li (.*)$", text, re.MULTILINE)
    assert {word for line in listed for word in line.replace(",", " ").split()} | {"link_local"} == keys


def completed(*words: str, path: str = os.environ["PATH"]) -> set:
    """What bash offers for the last of these words."""
    script = f'. "{COMPLETION}"; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _upnpvelornctl; echo "${{COMPREPLY[@]}}"'
    return set(subprocess.run(["bash", "-c", script, "bash", "upnpvelornctl", *words], capture_output=True, text=True, check=True,
                              env={**os.environ, "PATH": path}).stdout.split())


def test_completion(tmp_path):
    assert completed("") == COMMANDS | {"--help", "--version"}
    assert completed("st") == {"status"}
    assert completed("list", "--") == {"--family", "--json", "--help"}
    assert completed("list", "--family", "") == set()
    assert completed("status", "") == {"--help"}
    known = tmp_path / "upnpvelornctl"
    known.write_text("""#!/bin/sh\necho '{"name": "a", "serial": "KM-1"}'\necho '{"name": "b", "serial": "\\u001b[31m"}'\n""")
    known.chmod(known.stat().st_mode | stat.S_IXUSR)
    assert completed("show", "", path=f"{tmp_path}:{os.environ['PATH']}") == {"--help", "KM-1"}
