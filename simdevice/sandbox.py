"""A closed room for everything that the simulation starts.

`enter()` runs the calling script again in namespaces of its own (mounts, network, processes, host name, IPC).
The first process in there only waits for the script. When it ends, in whatever way, the kernel ends all others,
and networks, mounts and buses are gone with them.
"""

import errno
import os
import signal
import socket
import sys

from simdevice import namespaces as ns

PYTHON = "/usr/bin/python3"
PATH = "/usr/sbin:/usr/bin:/sbin:/bin"
_MARK = "SIMDEVICE_SANDBOX"
_FORWARDED = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)
_SENT_BY_TERMINAL = 0x80  # si_code SI_KERNEL: the whole process group has the signal already

_HELP = """\
{script} needs namespaces of its own, and this machine does not give them: {reason}
Any one of these helps:
  - run it as root;
  - allow namespaces to ordinary users, as root:
      sysctl -w user.max_user_namespaces=15000
      sysctl -w kernel.unprivileged_userns_clone=1                  (where that setting exists)
      sysctl -w kernel.apparmor_restrict_unprivileged_userns=0      (where AppArmor restricts them)
  - in a container: start it with the right to make namespaces and to mount (for instance --privileged).
"""


def enter(status_if_refused: int = 1) -> None:
    """Returns only inside the sandbox. Outside, it runs the script in one and exits with the script's status.

    Signals that reach the script in the sandbox before it has come here wait until then.
    """
    if inside():
        signal.pthread_sigmask(signal.SIG_UNBLOCK, {*_FORWARDED, signal.SIGCHLD})
        return
    try:
        _unshare()
        status = _run_init()
    except OSError as error:
        _refuse(str(error), status_if_refused)
    sys.exit(status)


def inside() -> bool:
    """The mark counts only together with the namespaces it was made for."""
    return os.environ.get(_MARK) == _identity()


def is_real_root() -> bool:
    """False for an ordinary user who is root only in a user namespace."""
    with open("/proc/self/uid_map") as file:
        return file.read().split() == ["0", "0", str(0xffffffff)]


def shell_status(code: int) -> int:
    """What a shell makes of a child's exit code, which is negative after a signal."""
    return code if code >= 0 else 128 - code


def _identity() -> str:
    return "-".join(str(os.stat(f"/proc/self/ns/{name}").st_ino) for name in ("pid", "net", "mnt", "uts"))


def _refuse(reason: str, status: int) -> None:
    sys.stderr.write(_HELP.format(script=os.path.basename(sys.argv[0]), reason=reason))
    sys.exit(status)


def _unshare() -> None:
    kinds = ns.CLONE_NEWNS | ns.CLONE_NEWNET | ns.CLONE_NEWPID | ns.CLONE_NEWUTS | ns.CLONE_NEWIPC
    user, group = os.geteuid(), os.getegid()
    if user == 0:
        try:
            return ns.unshare(kinds)
        except OSError as error:
            if error.errno != errno.EPERM:
                raise
    ns.unshare(kinds | ns.CLONE_NEWUSER)
    for name, text in (("setgroups", "deny"), ("uid_map", f"0 {user} 1"), ("gid_map", f"0 {group} 1")):
        with open(f"/proc/self/{name}", "w") as file:
            file.write(text)


def _run_init() -> int:
    signal.pthread_sigmask(signal.SIG_BLOCK, {*_FORWARDED, signal.SIGCHLD})
    problem, problem_end = os.pipe()
    init = os.fork()
    if init == 0:
        os.close(problem)
        _init(problem_end)
    os.close(problem_end)
    with os.fdopen(problem) as file:
        text = file.read()
    if text:
        os.waitpid(init, 0)
        raise OSError(errno.EPERM, text)
    return _wait(init)


def _init(problem: int) -> None:
    """Process number 1 of the sandbox."""
    try:
        ns.die_with_parent(signal.SIGKILL)
        _furnish()
    except OSError as error:
        os.write(problem, str(error).encode())
        os._exit(1)
    early = signal.sigpending() & set(_FORWARDED)
    if early:  # nobody would hand them on to a script that was not there yet
        os._exit(128 + min(early))
    script = os.fork()
    if script == 0:
        os.environ[_MARK] = _identity()
        os.environ["PATH"] = PATH
        os.execv(PYTHON, [PYTHON, *sys.argv])
    os.close(problem)
    os._exit(_wait(script))


def _furnish() -> None:
    ns.keep_mounts_private()
    ns.mount("proc", "/proc", "proc")
    ns.mount_tmpfs("/run")
    os.mkdir("/run/netns")
    os.mkdir("/run/simdevice")
    socket.sethostname("simdevice")


def _wait(child: int) -> int:
    """Waits for `child`, hands signals on to it and buries whoever else dies. Returns its status as a shell would."""
    while True:
        try:
            pid, status = os.waitpid(-1, os.WNOHANG)
        except ChildProcessError:
            return 1
        if pid == child:
            return shell_status(os.waitstatus_to_exitcode(status))
        if pid == 0:
            info = signal.sigwaitinfo({*_FORWARDED, signal.SIGCHLD})
            if info.si_signo != signal.SIGCHLD and info.si_code != _SENT_BY_TERMINAL:
                os.kill(child, info.si_signo)
