"""docs/dbus.md: what it says of GLib compiles and finds the device."""

import os
import shutil
import subprocess

import pytest

from codeblocks import ROOT, fenced
from documented import SERIAL, documented  # noqa: F401, a fixture

DOCUMENT = "docs/dbus.md"
INSTALLED = "/usr/share/dbus-1/interfaces"


def flags(package: str) -> list:
    """Those of the compiler for a library of GLib."""
    if not shutil.which("pkg-config") or not shutil.which("cc"):
        pytest.skip("pkg-config or a compiler is not installed")
    done = subprocess.run(["pkg-config", "--cflags", "--libs", package], capture_output=True, text=True)
    if done.returncode != 0:
        pytest.skip(f"{package} is not installed")
    return done.stdout.split()


def generated(folder, commands: str) -> subprocess.CompletedProcess:
    """Generates code by the commands and compiles it."""
    if not shutil.which("gdbus-codegen"):
        pytest.skip("gdbus-codegen is not installed")
    options = flags("gio-unix-2.0")
    subprocess.run(["sh", "-e", "-c", commands.replace(INSTALLED, str(ROOT / "packaging/interfaces"))], check=True, cwd=folder)
    return subprocess.run(["cc", "-c", "scan.c", "-o", "scan.o", *options], cwd=folder, capture_output=True, text=True)


def test_the_program_lists_the_device(documented, tmp_path):
    options = flags("gio-2.0")
    (tmp_path / "list.c").write_text(fenced(DOCUMENT, "c")["list_serials"])
    subprocess.run(["cc", "-Wall", "-Wextra", "-Werror", "list.c", "-o", "list", *options], check=True, cwd=tmp_path)
    done = subprocess.run([tmp_path / "list"], capture_output=True, text=True, timeout=10,
                          env={**os.environ, "DBUS_SYSTEM_BUS_ADDRESS": documented.bus.address})
    assert (done.returncode, done.stdout, done.stderr) == (0, f"{SERIAL}\n", "")


def test_the_trimmed_description_makes_c_that_compiles(tmp_path):
    done = generated(tmp_path, fenced(DOCUMENT, "sh")["trimmed"])
    assert (done.returncode, done.stderr) == (0, "")
    assert "local_zorv_scan_call_all_childs_sync" in (tmp_path / "scan.h").read_text()


def test_the_whole_description_does_not(tmp_path):
    done = generated(tmp_path, f"gdbus-codegen --generate-c-code scan {INSTALLED}/local.ZorvScan.xml")
    assert done.returncode != 0 and "conflicting types" in done.stderr
