"""Orders to a plant that is running in another terminal.

    exec HOST COMMAND...    runs a command on a host of the plant: pc, kelta-1, kelta-2 ...
    enter HOST              a shell there
    table                   who lists whom at this moment
    log DEVICE              what its daemon has logged
    stop DEVICE             stops its daemon: byebye, and then its end
    start DEVICE            starts it again
    unplug DEVICE           takes its network cable out
    plug DEVICE             puts it in again
    move DEVICE ADDRESS     gives it another address
    join                    switches on one more device
"""

import os
import pathlib
import shutil
import signal
import sys
import textwrap

sys.path[0] = str(pathlib.Path(__file__).resolve().parent.parent)

from simdevice import controlsocket
from simdevice import namespaces as ns
from simdevice.sandbox import PATH, shell_status

_KINDS = {"user": ns.CLONE_NEWUSER, "pid": ns.CLONE_NEWPID, "mnt": ns.CLONE_NEWNS, "net": ns.CLONE_NEWNET,
          "uts": ns.CLONE_NEWUTS, "ipc": ns.CLONE_NEWIPC}
_ORDERS = {"table": (), "log": ("device",), "stop": ("device",), "start": ("device",), "unplug": ("device",),
           "plug": ("device",), "move": ("device", "address"), "join": ()}


def _go_inside(host: str, files: dict) -> None:
    here, folder = os.stat("."), os.getcwd()
    own = {name: os.stat(f"/proc/self/ns/{name}") for name in _KINDS}
    for name, kind in _KINDS.items():
        if not os.path.samestat(os.fstat(files[name]), own[name]):
            ns.setns(files[name], kind)
    if not _is_folder(folder, here):
        ns.setns(files["shared mnt"], ns.CLONE_NEWNS)
        print(f"({host} hides this folder behind one of its own; you see the folders of this machine instead)",
              file=sys.stderr)
    if _is_folder(folder, here):
        os.chdir(folder)
    os.environ["PS1"] = f"{host}:\\w\\$ "
    os.environ["PATH"] = PATH


def _is_folder(path: str, status: os.stat_result) -> bool:
    return os.path.isdir(path) and os.path.samestat(os.stat(path), status)


def _run(command: list) -> int:
    """A child, since only children of the calling process come into the plant's process namespace."""
    child = os.fork()
    if child == 0:
        ns.die_with_parent(signal.SIGKILL)
        try:
            os.execvp(command[0], command)
        except OSError as error:
            print(f"{command[0]}: {error.strerror}", file=sys.stderr)
            os._exit(127)
    signal.signal(signal.SIGINT, signal.SIG_IGN)
    return shell_status(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]))


def _ask(request: dict) -> tuple:
    answer = controlsocket.ask(request)
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # for what is printed from here on, and for a command that is run
    return answer


def _execute(host: str, command: list) -> int:
    reply, files = _ask({"order": "namespaces", "host": host})
    os.environ.pop("DBUS_SYSTEM_BUS_ADDRESS", None)
    os.environ.update(reply["environment"])
    _go_inside(host, dict(zip(reply["files"], files)))
    return _run(command)


def _misuse(order: str) -> str:
    if order in ("exec", "enter", *_ORDERS):
        usage = [line.strip() for line in __doc__.splitlines() if line.startswith(f"    {order} ")][0]
        return f"./run {order} is used like this:\n    {usage}"
    return f"There is no order {order!r}; there are: {', '.join(['exec', 'enter', *_ORDERS])}"


def _folded(text: str) -> str:
    """On a terminal, words are not broken."""
    if not sys.stderr.isatty():
        return text
    width = shutil.get_terminal_size().columns - 1
    return "\n".join(textwrap.fill(line, width, break_long_words=False, break_on_hyphens=False) for line in text.splitlines())


def main(arguments: list) -> int:
    order, rest = (arguments or [""])[0], arguments[1:]
    if rest[:1] in (["-h"], ["--help"]):
        print(__doc__.strip())
        return 0
    if order == "exec" and len(rest) >= 2:
        return _execute(rest[0], rest[1:])
    if order == "enter" and len(rest) == 1:
        return _execute(rest[0], ["/bin/bash", "--norc"])
    if order in _ORDERS and len(rest) == len(_ORDERS[order]):
        reply, _ = _ask({"order": order, **dict(zip(_ORDERS[order], rest))})
        print(reply["text"])
        return 0
    print(_folded(_misuse(order)), file=sys.stderr)
    return 2


if __name__ == "__main__":
    signal.signal(signal.SIGINT, signal.SIG_DFL)
    try:
        sys.exit(main(sys.argv[1:]))
    except (controlsocket.ControlError, OSError) as problem:
        sys.exit(_folded(str(problem)))
