"""A copy of what the scripts in the root consist of, in which nothing is installed, built or started."""

import json
import os
import pathlib
import shutil
import subprocess

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
_COPIED = ("run", "test", "CMakePresets.json", "scripts", "simdevice", "fuzz/run.sh", "bench/run", "bench/builds", "bench/qt4", "bench/compare",
           "packaging/try.sh")
# Notes its name and arguments. Every package is installed.
_STUB = """#!/bin/sh
echo "${0##*/} $*" >>"$CALLS"
[ "${0##*/}" != dpkg-query ] || echo "ii "
"""
_STUBS = ("apt-get", "sudo", "dpkg-query", "cmake", "ctest", "ninja", "clang++")


class Checkout:
    def __init__(self, folder: pathlib.Path):
        self.folder = folder / "checkout"
        self.qt4_kit = ""
        self.stubs = folder / "stubs"
        self._calls = folder / "calls"
        self.stubs.mkdir()
        for name in _STUBS:
            self.stub(name, _STUB)
        for name in _COPIED:
            target = self.folder / name
            target.parent.mkdir(parents=True, exist_ok=True)
            if (ROOT / name).is_dir():
                shutil.copytree(ROOT / name, target, ignore=shutil.ignore_patterns("__pycache__"))
            else:
                shutil.copy(ROOT / name, target)

    def stub(self, name: str, script: str) -> None:
        (self.stubs / name).write_text(script)
        (self.stubs / name).chmod(0o755)

    @property
    def environment(self) -> dict:
        return {**os.environ, "PATH": f"{self.stubs}:{os.environ['PATH']}", "CALLS": str(self._calls),
                "QT4_KIT": self.qt4_kit, "FUZZ_DIR": str(self.folder / "fuzzed"), "PYTHONDONTWRITEBYTECODE": "1"}

    def call(self, command: str, *before: str, **options) -> subprocess.CompletedProcess:
        """The command as typed in the checkout."""
        return subprocess.run([*before, *command.split()], cwd=self.folder, stdin=subprocess.DEVNULL, capture_output=True,
                              text=True, timeout=30, env=self.environment, **options)

    def pipe(self, command: str) -> subprocess.CompletedProcess:
        """The command as typed in a shell, with pipes."""
        return subprocess.run(["bash", "-c", command], cwd=self.folder, stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              timeout=30, env=self.environment)

    @property
    def calls(self) -> list:
        """What was called in place of what installs and builds; questions do not count."""
        lines = self._calls.read_text().splitlines() if self._calls.exists() else []
        return [line for line in lines if not line.startswith("dpkg-query ")]

    def presets(self, kind: str) -> dict:
        """By their names, hidden ones too."""
        return {preset["name"]: preset for preset in json.loads((self.folder / "CMakePresets.json").read_text())[kind]}
