"""The command line, and what documents it: help, manual page and completion name every option."""

import ast
import re
import shutil
import subprocess

import pytest

from browsing import TOOL
from simdevice.sandbox import PYTHON

ROOT = TOOL.parent.parent
MANUAL = ROOT / "man" / "upnpvelorn-browse.1"
COMPLETION = TOOL.with_name("upnpvelorn-browse.bash")
OPTIONS = {"--watch", "--address", "--all", "--json", "--interface", "--timeout", "--help", "--version"}


def run(*arguments: str) -> subprocess.CompletedProcess:
    return subprocess.run([PYTHON, str(TOOL), *arguments], capture_output=True, text=True, timeout=20)


def completed(*words: str) -> set:
    """What bash offers for the last of these words."""
    script = f'. "{COMPLETION}"; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _upnpvelorn_browse; echo "${{COMPREPLY[@]}}"'
    return set(subprocess.run(["bash", "-c", script, "bash", "upnpvelorn-browse", *words], capture_output=True, text=True,
                              check=True).stdout.split())


def test_help_names_every_option():
    done = run("--help")
    assert (done.returncode, done.stderr) == (0, "")
    assert set(re.findall(r"^ +(?:-h, )?(--\w+)", done.stdout, re.MULTILINE)) == OPTIONS
    assert "check ADDRESS" in done.stdout and "exit status: 0" in done.stdout


def test_version_is_that_of_the_project():
    version = re.search(r"^project\(upnpvelorn VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text(), re.MULTILINE)[1]
    assert run("--version").stdout == f"upnpvelorn-browse {version}\n"


def test_manual_names_every_option():
    text = MANUAL.read_text()
    assert {"--" + name for name in re.findall(r"\\-(\w+)", text)} == OPTIONS


def test_manual_is_well_formed():
    if not shutil.which("mandoc"):
        pytest.skip("mandoc is not installed")
    done = subprocess.run(["mandoc", "-T", "lint", "-W", "warning", str(MANUAL)], capture_output=True, text=True)
    assert (done.stdout, done.returncode) == ("", 0)


def test_manual_names_every_json_key(device, pc):
    """Those of a device; so the page and what is printed cannot part."""
    keys = set(pc.objects("--timeout", "1")[0])
    text = MANUAL.read_text().partition(".Sh JSON")[2].partition(".Sh ENVIRONMENT")[0]
    listed = re.findall(r"^\.It Li (.*)$", text, re.MULTILINE)
    assert {word for line in listed for word in line.replace(",", " ").split()} == keys


def test_completion():
    assert completed("") == OPTIONS | {"check"}
    assert completed("--al") == {"--all"}
    assert completed("check", "") == set()
    assert completed("check", "10.77.0.2", "--t") == {"--timeout"}
    assert "lo" in completed("--interface", "")
    assert completed("--timeout", "") == set()


@pytest.mark.parametrize("arguments, sentence", [
    (["--nonsense"], "unrecognized arguments: --nonsense"),
    (["--watch", "check", "10.77.0.2"], "check, --watch and --address do not go together"),
    (["--watch", "--address", "x"], "check, --watch and --address do not go together"),
    (["--all", "check", "10.77.0.2"], "--all does not go with check"),
    (["--json", "--address", "x"], "nor --json with --address"),
    (["check"], '"check ADDRESS" is the only command, not "check"'),
    (["look", "10.77.0.2"], '"check ADDRESS" is the only command, not "look 10.77.0.2"'),
    (["check", "kelta-1"], '"kelta-1" is no IPv4 address of a device; upnpvelorn-browse --address NAME finds it'),
    (["check", "239.255.255.250"], "is no IPv4 address of a device"),
    (["check", "10.77.0.2\x1b[31m"], "is no IPv4 address of a device"),
    (["--timeout", "soon"], "invalid float value: 'soon'"),
    (["--timeout", "-1"], "--timeout is a number of seconds"),
    (["--timeout", "nan"], "--timeout is a number of seconds"),
], ids=lambda value: " ".join(value) if isinstance(value, list) else "")
def test_wrong_command_lines(arguments, sentence):
    done = run(*arguments)
    assert (done.returncode, done.stdout) == (2, "")
    assert sentence in done.stderr and "Traceback" not in done.stderr and "\x1b" not in done.stderr


def test_nothing_but_the_standard_library():
    """And a copy somewhere else works, without the repository around it."""
    done = subprocess.run([PYTHON, "-I", "-S", "-"], input=TOOL.read_bytes().replace(b"sys.argv[1:]", b"['--version']"),
                          capture_output=True, timeout=20)
    assert done.stdout.startswith(b"upnpvelorn-browse ")


def test_nothing_that_old_pythons_do_not_have():
    """Syntax of Python 3.9, the oldest that it promises."""
    ast.parse(TOOL.read_text(), feature_version=(3, 9))
