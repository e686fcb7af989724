"""The control socket of a running plant: orders from another terminal.

The plant listens on a socket that has no file, only a name in the network outside the sandbox: it is gone with the
plant, however that ends. Over it come orders ("unplug kelta-2"), and out go the namespaces of a host, as open files
that whoever asked can enter. Only the user who started the plant is served.
"""

import array
import contextlib
import errno
import json
import os
import socket
import struct
import sys
import time

_VARIABLE = "SIMDEVICE_CONTROL_SOCKET"
_ENDING = 2     # seconds that an earlier plant may need until its first process is gone
_DYING = 30     # and the last: a busy kernel takes its time for so many networks
_MOST = 65536
_MOST_FILES = 16
_NO_PLANT = "No plant of yours is running. Start one in another terminal:  ./run"


class ControlError(Exception):
    """In words for the person at the other terminal."""


def listen() -> bool:
    """To be called before the sandbox is entered. False when a plant of this user listens there already."""
    made = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    if not _comes_true(lambda: _bound(made)):
        made.close()
        return False
    made.listen()
    made.set_inheritable(True)
    os.environ[_VARIABLE] = str(made.detach())
    return True


def _bound(made: socket.socket) -> bool:
    try:
        made.bind(_name())
    except OSError as error:
        if error.errno != errno.EADDRINUSE:
            raise
        return False
    return True


class ControlSocket:
    """The plant's side, inside the sandbox. `answer` takes a request and returns the reply and files to go with it."""

    def __init__(self, answer):
        self._answer = answer
        self._socket = None
        if _VARIABLE in os.environ:
            number = int(os.environ.pop(_VARIABLE))
            os.set_inheritable(number, False)
            self._socket = socket.socket(fileno=number)
            self._socket.setblocking(False)

    def serve(self) -> None:
        """Answers those who are waiting."""
        while self._socket:
            try:
                caller, _ = self._socket.accept()
            except BlockingIOError:
                return
            with caller, contextlib.suppress(OSError, ValueError):
                caller.settimeout(1)
                if _peer(caller) == os.geteuid():
                    self._serve(caller)

    def _serve(self, caller: socket.socket) -> None:
        reply, paths = self._answer(json.loads(caller.recv(_MOST)))
        files = [os.open(path, os.O_RDONLY | os.O_CLOEXEC) for path in paths]
        try:
            socket.send_fds(caller, [json.dumps(reply).encode()], files)
        finally:
            for file in files:
                os.close(file)


def running_already() -> str:
    """A sentence for whoever wants to start a second plant of the same user. Empty when there is none."""
    if _comes_true(lambda: not _holder()) or not (process := _holder()):
        return ""
    return f"A plant of yours is running already, process {process}. End that one with Ctrl-C first."


def _comes_true(condition) -> bool:
    """As soon as an earlier plant that is about to end is gone."""
    begun = time.monotonic()
    while not condition():
        if time.monotonic() - begun > (_ENDING if _lives(_holder()) else _DYING):
            return False
        time.sleep(0.25)
    return True


def _lives(process: int) -> bool:
    try:
        os.kill(process, 0)
    except ProcessLookupError:
        return False
    except PermissionError:
        pass
    return True


def _holder() -> int:
    """The process that listens; 0 when there is none."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as connection:
        try:
            connection.connect(_name())
        except OSError:
            return 0
        return _credentials(connection)[0]


def ask(request: dict) -> tuple:
    """Asks the running plant. Returns its reply and the open files that came with it."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as connection:
        connection.settimeout(30)
        try:
            connection.connect(_name())
        except ConnectionRefusedError:
            raise ControlError(_NO_PLANT) from None
        if _peer(connection) != os.geteuid():
            raise ControlError("Another user has taken the plant's name.")
        try:
            connection.send(json.dumps(request).encode())
            data, files = _receive(connection)
        except OSError:
            data = b""
    if not data:
        raise ControlError(_NO_PLANT if _comes_true(lambda: not _holder()) else "The plant does not answer.")
    reply = json.loads(data)
    if "error" in reply:
        raise ControlError(reply["error"])
    return reply, files


def _receive(connection: socket.socket) -> tuple:
    data, files = b"", array.array("i")
    while True:
        piece, found, _, _ = socket.recv_fds(connection, _MOST, _MOST_FILES, socket.MSG_CMSG_CLOEXEC)
        files.extend(found)
        if not piece:
            return data, list(files)
        data += piece


def _name() -> str:
    return f"\0upnpvelorn-plant-{os.geteuid()}"


def _peer(connection: socket.socket) -> int:
    """The user at the other end, as a number of this process's user namespace."""
    return _credentials(connection)[1]


def _credentials(connection: socket.socket) -> tuple:
    """Process, user and group at the other end."""
    return struct.unpack("3i", connection.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, struct.calcsize("3i")))


if __name__ == "__main__":
    sys.exit(running_already() or 0)
