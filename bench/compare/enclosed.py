"""For the programs of this folder: where things are, and the sandbox in which they measure."""

import os
import pathlib
import signal
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
BUILD = ROOT / "build-bench"
PROGRAMS = BUILD / "bench"    # the built floors, peers and load generators
sys.path.insert(0, str(ROOT))

from simdevice import sandbox


def enter() -> None:
    """Returns only inside the sandbox."""
    sandbox.enter()
    signal.signal(signal.SIGINT, lambda *_: os._exit(130))  # the sandbox ends with this process, and all in it
