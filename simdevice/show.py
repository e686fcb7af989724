"""The demonstration: a plant of real daemons, a tour of what they do, and then the plant to play with.

    show.py [--devices N] [--once | --no-tour]

    --devices N   how many devices there are at the beginning, 2 to 40; 3 when not said
    --once        end after the tour: with status 0 if everything in it was really seen, with 1 if something was not
    --no-tour     only switch the plant on
"""

import _signal

if __name__ == "__main__":  # Ctrl-C ends without a word until there is something to switch off, and loading takes a while
    _signal.signal(_signal.SIGINT, _signal.SIG_DFL)

import argparse
import os
import pathlib
import shutil
import signal
import sys
import time

sys.path[0] = str(pathlib.Path(__file__).resolve().parent.parent)

from simdevice import controlsocket, sandbox
from simdevice.lists import Lists
from simdevice.plant import PC, Plant, PlantError
from simdevice.reports import Reports
from simdevice.screen import Screen, clean
from simdevice.tour import NotSeen, Tour
from simdevice.waiting import dispatch

_LOOK = 0.5     # seconds between two looks at the devices' lists
_PAUSE = 0.03
_MOST_LINES, _LONGEST_LINE = 100, 500   # of a log that is asked for


class Show:
    """Keeps the screen up to date and serves the control socket while something is waited for."""

    def __init__(self):
        self.screen = Screen()
        self.plant = Plant()
        self.lists = Lists(self.plant)
        self.heard = []
        self.in_tour = False
        self.reporting = True
        self.with_table = False
        self._control = controlsocket.ControlSocket(self._answer)
        self._looked = 0.0
        self._known_crashed = set()
        self._reports = Reports(self.screen.event, self.screen.text)

    def turn(self) -> None:
        dispatch()
        for heard in self.plant.heard():
            self.heard.append(heard)
            if self.reporting:
                self._reports.add(heard)
        self._reports.gather()
        if time.monotonic() - self._looked > _LOOK:
            self.look()
        if self.with_table:
            self.screen.table(self.lists.table())
        self._control.serve()
        time.sleep(_PAUSE)

    def look(self) -> None:
        crashed = [node for node in self.plant.crashed() if node.device.pid not in self._known_crashed]
        for node in crashed:
            self._known_crashed.add(node.device.pid)
            self.screen.bad(f"The daemon of {node.name} has ended with status {node.device.exit_status}.")
            self.screen.quote(node.device.output)
        if crashed and self.in_tour:
            raise NotSeen("all daemons running")
        self.lists.look()
        self._looked = time.monotonic()

    def add(self, count: int) -> list:
        """Puts devices on the network, which takes a while where there are many."""
        nodes = []
        for number in range(count):
            self.screen.progress(f"Switching on device {number + 1} of {count}")
            nodes.append(self.plant.add())
        self.screen.progress()
        return nodes

    def until(self, condition, seconds: float, what: str):
        """The first true value of `condition`, or NotSeen(what) after `seconds`."""
        deadline = time.monotonic() + seconds
        while not (value := condition()):
            if time.monotonic() > deadline:
                raise NotSeen(f"{what} (waited {seconds:g} seconds)")
            self.turn()
        return value

    def stay(self) -> None:
        """Until somebody ends it."""
        self.in_tour, self.reporting, self.with_table = False, True, True
        while True:
            self.turn()
            self.heard.clear()

    # Orders from other terminals

    def _answer(self, request: dict) -> tuple:
        try:
            if request["order"] == "namespaces":
                return self._inside(request["host"])
            if request["order"] == "table":
                self.lists.look()
                return {"text": "\n".join(self.lists.table())}, []
            if request["order"] == "log":
                return {"text": self._log(request["device"])}, []
            if self.in_tour:
                raise PlantError("The tour is still going on; please wait until it is over.")
            return {"text": self._carry_out(request)}, []
        except PlantError as error:
            return {"error": str(error)}, []

    def _inside(self, host: str) -> tuple:
        paths = {name: f"/proc/self/ns/{name}" for name in ("user", "pid", "mnt", "net", "uts", "ipc")}
        paths["shared mnt"] = paths["mnt"]
        environment = {}
        if host == PC:
            paths["net"] = self.plant.pc.host.path
        else:
            device = self._device(host)
            paths.update({name: f"/proc/{device.room.pid}/ns/{name}" for name in ("mnt", "net", "uts")})
            environment["DBUS_SYSTEM_BUS_ADDRESS"] = device.bus.address
        return {"environment": environment, "files": list(paths)}, list(paths.values())

    def _device(self, host: str):
        if host not in self.plant.nodes:
            raise PlantError(f"there is no host {host!r} here; there are: {', '.join([PC, *self.plant.nodes])}")
        return self.plant.nodes[host].device

    def _log(self, name: str) -> str:
        device = self.plant.node(name).device
        lines = [clean(text)[:_LONGEST_LINE] for text in [*device.syslog.texts, *device.output.splitlines()]]
        return "\n".join(lines[-_MOST_LINES:]) or (f"The daemon of {name} has written nothing. One whose network is there "
                                                   "does not.")

    def _carry_out(self, request: dict) -> str:
        order = request["order"]
        if order == "join":
            node = self.plant.add()
            return self._done(f"{node.name} is switched on, {node.address}.")
        if order == "stop":
            node = self.plant.stop(request["device"])
            return self._done(f"{node.name}: the daemon has said byebye and is stopped. The others forget it 66 to 77 seconds "
                              "after they last heard it.")
        if order == "start":
            node = self.plant.start(request["device"])
            return self._done(f"{node.name}: the daemon is started.")
        if order == "unplug":
            node = self.plant.unplug(request["device"])
            return self._done(f"{node.name}: cable out. The others forget it 66 to 77 seconds after they last heard it.")
        if order == "plug":
            node = self.plant.plug(request["device"])
            return self._done(f"{node.name}: cable in. It is back in the lists within 10 seconds.")
        if order == "move":
            node = self.plant.move(request["device"], request["address"])
            return self._done(f"{node.name} has the address {node.address} now.")
        raise PlantError(f"no such order: {order}")

    def _done(self, text: str) -> str:
        self.screen.event(text)
        return text


INTRODUCTION = """\
A plant of {count} measurement devices and one PC on the same network. Every device runs the real daemon with a \
system bus, a configuration service and a network manager of its own. All of it lives in namespaces inside this \
machine: nothing goes out, and all of it is gone when this program ends."""

ON_THE_HOSTS = [
    ("./run exec kelta-1 python3 examples/list_devices.py", "the devices that kelta-1 knows"),
    ("./run exec pc python3 examples/search.py", "search from the PC"),
    ("./run exec pc curl -s {url}", ""),
    ("./run exec kelta-1 {ask_address}", ""),
    ("./run enter kelta-1", "a shell on a device, or: ./run enter pc"),
]

ON_THE_PLANT = [
    ("./run unplug kelta-2", "take its cable out"),
    ("./run plug kelta-2", "put it in again"),
    ("./run stop kelta-2", "stop its daemon"),
    ("./run start kelta-2", "start it again"),
    ("./run log kelta-2", "what its daemon has logged"),
    ("./run move kelta-1 10.77.0.77", "give it another address"),
    ("./run join", "switch on one more device"),
]

ASK_ADDRESS = "busctl call com.zorv.upnpvelorn /settings local.UpnpSettings getAddressStr"
ASK_ADDRESS_WITHOUT_SYSTEMD = ("dbus-send --system --print-reply --dest=com.zorv.upnpvelorn /settings "
                               "local.UpnpSettings.getAddressStr")


def arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="run", usage=__doc__.split("\n\n", 1)[1].replace("show.py", "./run", 1))
    parser.add_argument("--devices", type=int, default=3)
    parser.add_argument("--once", action="store_true")
    parser.add_argument("--no-tour", dest="tour", action="store_false")
    return parser.parse_args()  # ./run has judged them, before it installs anything


def show_next(show: Show) -> None:
    first = next(iter(show.plant.nodes.values()))
    show.screen.heading("The plant stays up")
    ask = ASK_ADDRESS if shutil.which("busctl") else ASK_ADDRESS_WITHOUT_SYSTEMD
    known = {"url": first.description_url, "ask_address": ask}
    show.screen.text("To try in another terminal, in this folder (Ctrl-C here ends everything):")
    for commands in (ON_THE_HOSTS, ON_THE_PLANT):
        show.screen.blank()
        show.screen.commands([(command.format(**known), meaning) for command, meaning in commands])
    show.screen.blank()
    show.screen.text("Below: who lists whom. A row is a device's own list, asked over its system bus (allChilds): "
                     f"{show.lists.legend()} Announcements that reach the PC are reported.")


def run_tour(show: Show, count: int) -> bool:
    show.in_tour, show.reporting = True, False
    try:
        Tour(show, count).run()
        return True
    except (NotSeen, AssertionError) as problem:
        show.screen.progress()
        show.screen.print_table()
        show.screen.bad(f"Not seen: {problem}")
        return False


def run(chosen: argparse.Namespace) -> int:
    show = Show()
    show.screen.text(INTRODUCTION.format(count=chosen.devices))
    if chosen.tour:
        seen = run_tour(show, chosen.devices)
        if chosen.once:
            return 0 if seen else 1
    else:
        show.add(chosen.devices)
    show_next(show)
    show.stay()


def end(*_signal) -> None:
    raise KeyboardInterrupt


def main() -> int:
    chosen = arguments()
    if not sandbox.inside() and not chosen.once and not controlsocket.listen():
        sys.exit(controlsocket.running_already() or "Another plant of yours has just ended; start this one again.")
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, end)  # SIGINT too: whoever starts this in the background has it ignored
    try:
        sandbox.enter()
        return run(chosen)
    except KeyboardInterrupt:
        say_last("\nSwitched off.")
        return 130 if chosen.once else 0
    except BrokenPipeError:
        say_last("")
        print("Nobody reads the output any more: switched off.", file=sys.stderr)
        return 1


def say_last(text: str) -> None:
    """To whoever still reads. Nothing is left for the interpreter to write at its end."""
    try:
        print(text, end="\n" if text else "", flush=True)
    except OSError:
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())


if __name__ == "__main__":
    sys.exit(main())
