#!/usr/bin/python3
"""Runs a program of a cross build in QEMU's user-mode emulation: emulated.py EMULATOR [OPTION...] PROGRAM [ARGUMENT...]

QEMU 7.2 lets waitid(P_PIDFD) through to the kernel but knows no clone(CLONE_PIDFD). Qt 5 concludes from the first that it
has the second; its QProcess then takes -1 for the process id of what it did not start, and the kill() in its destructor
ends every process of the user. A filter makes the kernel say of waitid(P_PIDFD) what one without it says; Qt then does
without both. Where the kernel takes no filter, nothing is run.
"""

import ctypes
import errno
import os
import platform
import sys

WAITID = {"x86_64": 247, "aarch64": 95}  # number of the system call
P_PIDFD = 3
PR_SET_SECCOMP, SECCOMP_MODE_FILTER, PR_SET_NO_NEW_PRIVS = 22, 2, 38
LOAD, JUMP_IF_EQUAL, RETURN = 0x20, 0x15, 0x06
ALLOW, FAIL = 0x7fff0000, 0x00050000
NUMBER, FIRST_ARGUMENT = 0, 16  # offsets in struct seccomp_data


class Instruction(ctypes.Structure):
    _fields_ = [("code", ctypes.c_ushort), ("jt", ctypes.c_ubyte), ("jf", ctypes.c_ubyte), ("k", ctypes.c_uint)]


class Filter(ctypes.Structure):
    _fields_ = [("length", ctypes.c_ushort), ("instructions", ctypes.POINTER(Instruction))]


def refuse_pidfd() -> None:
    instructions = (Instruction * 6)(
        (LOAD, 0, 0, NUMBER),
        (JUMP_IF_EQUAL, 0, 3, WAITID[platform.machine()]),
        (LOAD, 0, 0, FIRST_ARGUMENT),
        (JUMP_IF_EQUAL, 0, 1, P_PIDFD),
        (RETURN, 0, 0, FAIL | errno.EINVAL),
        (RETURN, 0, 0, ALLOW))
    program = Filter(len(instructions), instructions)
    prctl = ctypes.CDLL(None, use_errno=True).prctl
    if prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 or prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, ctypes.byref(program)) != 0:
        sys.exit(f"no filter of system calls: {os.strerror(ctypes.get_errno())}")


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    refuse_pidfd()
    os.execv(sys.argv[1], sys.argv[1:])
