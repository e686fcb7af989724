"""The demonstration: a plant of real daemons, a tour of what they do, and then the plant to play with.

    show.py [--devices N] [--once | --no-tour]

    --devices N   how many devices there are at the beginning, 2 to 40; 3 when not said
    --once        end after the tour: with status 0 if everything in it was really seen, with 1 if something was not
    --no-tour     only switch the plant on
"""

import argparse
import pathlib
import shutil
import signal
import sys
import time

sys.path[0] = str(pathlib.Path(__file__).resolve().parent.parent)

from simdevice import door, sandbox
from simdevice.lists import Lists
from simdevice.plant import PC, Plant, PlantError
from simdevice.screen import Screen
from simdevice.tour import NotSeen, Tour
from simdevice.waiting import dispatch

_LOOK = 0.5     # seconds between two looks at the devices' lists
_PAUSE = 0.03


class Show:
    """Keeps the screen up to date and serves the door while something is waited for."""

    def __init__(self):
        self.screen = Screen()
        self.plant = Plant()
        self.lists = Lists(self.plant)
        self.heard = []
        self.in_tour = False
        self.reporting = True
        self.with_table = False
        self._door = door.Door(self._answer)
        self._looked = 0.0
        self._known_crashed = []

    def turn(self) -> None:
        dispatch()
        for heard in self.plant.heard():
            self.heard.append(heard)
            if self.reporting:
                self.screen.event(f"The PC hears {heard.name} say {heard.kind}: {heard.location}")
        if time.monotonic() - self._looked > _LOOK:
            self.look()
        if self.with_table:
            self.screen.table(self.lists.table())
        self._door.serve()
        time.sleep(_PAUSE)

    def look(self) -> None:
        crashed = [node for node in self.plant.crashed() if node.name not in self._known_crashed]
        for node in crashed:
            self._known_crashed.append(node.name)
            self.screen.bad(f"The daemon of {node.name} has ended with status {node.device.exit_status}.")
            self.screen.quote(node.device.output)
        if crashed and self.in_tour:
            raise NotSeen("all daemons running")
        self.lists.look()
        self._looked = time.monotonic()

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
            device = self.plant.node(host).device
            paths.update({name: f"/proc/{device.room.pid}/ns/{name}" for name in ("mnt", "net", "uts")})
            environment["DBUS_SYSTEM_BUS_ADDRESS"] = device.bus.address
        return {"environment": environment, "files": list(paths)}, list(paths.values())

    def _carry_out(self, request: dict) -> str:
        order = request["order"]
        if order == "join":
            node = self.plant.add()
            return self._done(f"{node.name} is switched on, {node.address}.")
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

NEXT = """\
To try in another terminal, in this folder (Ctrl-C here ends everything):

    ./run exec kelta-1 python3 examples/list_devices.py      the devices that kelta-1 knows
    ./run exec pc python3 examples/search.py                 search from the PC
    ./run exec pc curl -s {url}
    ./run exec kelta-1 {ask_address}
    ./run enter kelta-1                                      a shell on a device, or: ./run enter pc

    ./run unplug kelta-2        ./run plug kelta-2           take its cable out, put it in again
    ./run move kelta-1 10.77.0.77                            give it another address
    ./run join                                               switch on one more device

"""

ASK_ADDRESS = "busctl call com.zorv.upnpvelorn /settings local.UpnpSettings getAddressStr"
ASK_ADDRESS_WITHOUT_SYSTEMD = ("dbus-send --system --print-reply --dest=com.zorv.upnpvelorn \\\n"
                               "        /settings local.UpnpSettings.getAddressStr")


def arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="run", usage=__doc__.split("\n\n", 1)[1].replace("show.py", "./run", 1))
    parser.add_argument("--devices", type=int, default=3)
    parser.add_argument("--once", action="store_true")
    parser.add_argument("--no-tour", dest="tour", action="store_false")
    chosen = parser.parse_args()
    if not 2 <= chosen.devices <= 40:
        parser.error("--devices takes a number from 2 to 40")
    if chosen.once and not chosen.tour:
        parser.error("--once is for the tour")
    return chosen


def show_next(show: Show) -> None:
    first = next(iter(show.plant.nodes.values()))
    show.screen.heading("The plant stays up")
    ask = ASK_ADDRESS if shutil.which("busctl") else ASK_ADDRESS_WITHOUT_SYSTEMD
    show.screen.plain(*NEXT.format(url=first.description_url, ask_address=ask).splitlines())
    show.screen.plain("Below: who lists whom. A row is a device's own list, asked over its system bus (allChilds).",
                      ".11 = listed at 10.77.0.11, - = not listed. Announcements that reach the PC are reported.")


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
        for _ in range(chosen.devices):
            show.plant.add()
    show_next(show)
    show.stay()


def end(*_signal) -> None:
    raise KeyboardInterrupt


def main() -> int:
    chosen = arguments()
    if not sandbox.inside() and not chosen.once and not door.build():
        sys.exit("A plant of yours is running already. End that one with Ctrl-C first.")
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, end)  # SIGINT too: whoever starts this in the background has it ignored
    sandbox.enter()
    try:
        return run(chosen)
    except KeyboardInterrupt:
        print("\nSwitched off.")
        return 130 if chosen.once else 0


if __name__ == "__main__":
    sys.exit(main())
