"""The kernel's namespaces and mounts, as far as the simulation needs them."""

import contextlib
import ctypes
import os

CLONE_NEWNS = 0x00020000
CLONE_NEWUTS = 0x04000000
CLONE_NEWIPC = 0x08000000
CLONE_NEWUSER = 0x10000000
CLONE_NEWPID = 0x20000000
CLONE_NEWNET = 0x40000000

MS_NOSUID = 0x2
MS_BIND = 0x1000
MS_REC = 0x4000
MS_PRIVATE = 0x40000

PR_SET_PDEATHSIG = 1

_libc = ctypes.CDLL(None, use_errno=True)


def _check(result: int, what: str) -> None:
    if result != 0:
        number = ctypes.get_errno()
        raise OSError(number, f"{what}: {os.strerror(number)}")


def unshare(flags: int) -> None:
    _check(_libc.unshare(flags), "unshare")


def setns(descriptor: int, kind: int) -> None:
    _check(_libc.setns(descriptor, kind), "setns")


def die_with_parent(signal_number: int) -> None:
    _check(_libc.prctl(PR_SET_PDEATHSIG, signal_number, 0, 0, 0), "prctl")


def mount(source: str, target: str, kind: str = "", flags: int = 0, options: str = "") -> None:
    result = _libc.mount(source.encode(), target.encode(), kind.encode() or None,
                         ctypes.c_ulong(flags), options.encode() or None)
    _check(result, f"mount {source} on {target}")


def mount_tmpfs(target: str) -> None:
    mount("tmpfs", target, "tmpfs", MS_NOSUID, "mode=755")


def bind(source: str, target: str) -> None:
    mount(source, target, flags=MS_BIND | MS_REC)


def unmount(target: str) -> None:
    _check(_libc.umount2(target.encode(), 0), f"unmount {target}")


def keep_mounts_private() -> None:
    mount("none", "/", flags=MS_REC | MS_PRIVATE)


@contextlib.contextmanager
def entered(path: str, kind: int):
    """Moves the calling thread into the namespace of the file `path`, and back again at the end."""
    name = {CLONE_NEWNET: "net", CLONE_NEWUTS: "uts"}[kind]
    back = os.open(f"/proc/thread-self/ns/{name}", os.O_RDONLY | os.O_CLOEXEC)
    try:
        there = os.open(path, os.O_RDONLY | os.O_CLOEXEC)
        try:
            setns(there, kind)
        finally:
            os.close(there)
        try:
            yield
        finally:
            setns(back, kind)
    finally:
        os.close(back)
