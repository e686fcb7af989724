"""The files and the host name that the daemon sees: its own /dev, /var, /opt and /proc, in namespaces of their own.

Run as a program it makes the room around itself and keeps it until its standard input ends.
"""

import os
import pathlib
import signal
import socket
import subprocess
import sys

if __name__ == "__main__":
    sys.path[0] = str(pathlib.Path(__file__).resolve().parent.parent)

from simdevice import namespaces as ns
from simdevice.sandbox import PYTHON

HOSTNAME_FILE = "/proc/sys/kernel/hostname"
_DEVICES = ("null", "zero", "full", "random", "urandom", "tty")
_COVERED = ("/var", "/opt")


class Room:
    """`program` stays visible even if it lies in one of the folders that the room replaces."""

    def __init__(self, netns: str, hostname: str, program: str = ""):
        self._process = subprocess.Popen(
            [PYTHON, "-E", "-s", __file__, netns, hostname, program],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, start_new_session=True, text=True)
        self._ready = False

    def wait_until_ready(self) -> None:
        if not self._ready and self._process.stdout.readline() != "ready\n":
            raise RuntimeError("the device's room could not be made")
        self._ready = True

    @property
    def pid(self) -> int:
        return self._process.pid

    def path(self, inner: str) -> pathlib.Path:
        """Where this process finds the file that the daemon knows as `inner`."""
        return pathlib.Path(f"/proc/{self.pid}/root{inner}")

    @property
    def prefix(self) -> list:
        """What to put in front of a command so that it runs in the room; it keeps the process id."""
        return ["/usr/bin/nsenter", f"--target={self.pid}", "--mount", "--uts", "--net", "--"]

    @property
    def hostname(self) -> str:
        with ns.entered(f"/proc/{self.pid}/ns/uts", ns.CLONE_NEWUTS):
            return socket.gethostname()

    def write_hostname(self, name: str) -> None:
        """Writes the host name through the kernel's file, which is what a watcher of that file notices."""
        with ns.entered(f"/proc/{self.pid}/ns/uts", ns.CLONE_NEWUTS):
            with open(self.path(HOSTNAME_FILE), "w") as file:
                file.write(name + "\n")
            socket.sethostname(name)

    def close(self) -> None:
        self._process.kill()
        self._process.wait()
        self._process.stdin.close()
        self._process.stdout.close()


def _device_files() -> None:
    staging = "/run/simdevice/dev"
    os.makedirs(staging, exist_ok=True)
    ns.mount_tmpfs(staging)
    os.mkdir(f"{staging}/shm")
    for name in _DEVICES:
        pathlib.Path(staging, name).touch()
        ns.bind(f"/dev/{name}", f"{staging}/{name}")
    for name, target in (("fd", ""), ("stdin", "/0"), ("stdout", "/1"), ("stderr", "/2")):
        os.symlink(f"/proc/self/fd{target}", f"{staging}/{name}")
    ns.bind(staging, "/dev")


def _cover(folder: str, program: str) -> None:
    """Hides `folder` behind an empty one, save the folder of `program` if that is inside."""
    keep = os.path.dirname(program) if program.startswith(folder + "/") else ""
    handle = os.open(keep, os.O_PATH) if keep else -1
    ns.mount_tmpfs(folder)
    if keep:
        os.makedirs(keep)
        ns.bind(f"/proc/self/fd/{handle}", keep)
        os.close(handle)


def _replace_hostname_file(hostname: str) -> None:
    """For an ordinary user, whom the kernel does not let write the real file: one that can be written and watched."""
    substitute = pathlib.Path("/dev/.hostname")
    substitute.write_text(hostname + "\n")
    ns.bind(str(substitute), HOSTNAME_FILE)


def furnish(netns: str, hostname: str, program: str) -> None:
    with open(netns) as file:
        ns.setns(file.fileno(), ns.CLONE_NEWNET)
    ns.unshare(ns.CLONE_NEWNS | ns.CLONE_NEWUTS)
    ns.keep_mounts_private()
    socket.sethostname(hostname)
    ns.mount("proc", "/proc", "proc")
    _device_files()
    for folder in _COVERED:
        _cover(folder, program)
    if not os.access(HOSTNAME_FILE, os.W_OK):
        _replace_hostname_file(hostname)


if __name__ == "__main__":
    for number in (signal.SIGINT, signal.SIGPIPE):
        signal.signal(number, signal.SIG_DFL)
    furnish(*sys.argv[1:])
    print("ready", flush=True)
    sys.stdin.read()
