"""Runs tools/upnpvelorn-browse on a host, with or without a terminal."""

import importlib.machinery
import importlib.util
import json
import os
import pathlib
import pty
import select
import struct
import subprocess
import sys
import termios
import time
from fcntl import ioctl

from simdevice.network import Host
from simdevice.sandbox import PYTHON
from simdevice.waiting import wait_for

TOOL = pathlib.Path(os.environ.get("UPNPVELORN_BROWSE")
                    or pathlib.Path(__file__).resolve().parent.parent.parent / "tools" / "upnpvelorn-browse")


def tool():
    """The tool as a module."""
    sys.dont_write_bytecode = True
    loader = importlib.machinery.SourceFileLoader("browse", str(TOOL))
    sys.modules["browse"] = importlib.util.module_from_spec(importlib.util.spec_from_loader("browse", loader))
    loader.exec_module(sys.modules["browse"])
    return sys.modules["browse"]


class Browser:
    """`environment`: more variables for every run."""

    def __init__(self, host: Host, **environment: str):
        self.host = host
        self._environment = {"PATH": os.environ["PATH"], "LC_ALL": "C", **environment}

    def command(self, *arguments: str) -> list:
        return ["nsenter", f"--net={self.host.path}", "--", PYTHON, str(TOOL), *arguments]

    def start(self, *arguments: str, **options) -> subprocess.Popen:
        options = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "text": True, **options}
        return subprocess.Popen(self.command(*arguments), env=self._environment, **options)

    def run(self, *arguments: str, seconds: float = 30) -> subprocess.CompletedProcess:
        """Whatever happens, no traceback."""
        with self.start(*arguments) as running:
            out, err = running.communicate(timeout=seconds)
        assert "Traceback" not in err, err
        return subprocess.CompletedProcess(running.args, running.returncode, out, err)

    def wait_until_it_listens(self) -> None:
        """Whatever runs on this host, to the announcements of the devices."""
        wait_for(lambda: ":31416" in self.host.command(["ss", "-Hlun"]).stdout, what="it listens")

    def objects(self, *arguments: str) -> list:
        """What --json prints."""
        return [json.loads(line) for line in self.run("--json", *arguments).stdout.splitlines()]

    def on_terminal(self, *arguments: str, columns: int = 80, seconds: float = 30, **environment: str) -> str:
        """All that reaches the terminal."""
        ours, theirs = pty.openpty()
        ioctl(theirs, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
        running = subprocess.Popen(self.command(*arguments), stdin=theirs, stdout=theirs, stderr=theirs,
                                   env={**self._environment, "TERM": "xterm", **environment})
        os.close(theirs)
        text, end = b"", time.monotonic() + seconds
        while time.monotonic() < end and (select.select([ours], [], [], 0.1)[0] or running.poll() is None):
            try:
                text += os.read(ours, 65536) if select.select([ours], [], [], 0.1)[0] else b""
            except OSError:  # the other end is closed
                break
        os.close(ours)
        running.wait(timeout=seconds)
        return text.decode()


class Lines:
    """What a running program writes, line by line, as it comes."""

    def __init__(self, running: subprocess.Popen):
        self._running = running
        self.seen = []
        self._rest = b""

    def wait_for(self, *words: str, seconds: float = 30) -> str:
        """The first line with all of these."""
        return wait_for(lambda: next((line for line in self.read() if all(word in line for word in words)), None), seconds,
                        f"a line with {words}", lambda: self.seen)

    def read(self) -> list:
        while select.select([self._running.stdout], [], [], 0)[0] and (piece := os.read(self._running.stdout.fileno(), 65536)):
            self._rest += piece
        *whole, self._rest = self._rest.split(b"\n")
        self.seen += [line.decode() for line in whole]
        return self.seen
