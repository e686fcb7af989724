"""On what was measured, and with which versions."""

import datetime
import os
import pathlib
import platform
import re
import subprocess

from servers import version_of

_PACKAGES = ("libqt5core5a", "libdbus-1-3", "libc6", "minidlna", "minissdpd", "libupnp-dev", "libgssdp-1.6-dev",
             "libgupnp-1.6-dev", "avahi-daemon", "valgrind")


def described(build: pathlib.Path, packages: tuple = _PACKAGES) -> dict:
    """Names and values, in the order in which they are to be read. `build`: the build folder that was measured."""
    return {
        "date": datetime.date.today().isoformat(),
        "processor": _processor(),
        "processors": os.cpu_count(),
        "kernel": platform.release(),
        "system": _system(),
        "commit": _commit(),
        "compiler": _first_line(["c++", "--version"]),
        "compiler flags": flags(build),
        "packages": {package: version for package in packages if (version := version_of(package))},
    }


def flags(build: pathlib.Path) -> str:
    cache = (build / "CMakeCache.txt").read_text()

    def value(name: str) -> str:
        found = re.search(rf"^{name}:\w+=(.*)$", cache, re.M)
        return found[1] if found else ""
    kind = value("CMAKE_BUILD_TYPE")
    interprocedural = "-flto" if value("CMAKE_INTERPROCEDURAL_OPTIMIZATION") == "ON" else ""
    return " ".join(filter(None, [value("CMAKE_CXX_FLAGS"), value(f"CMAKE_CXX_FLAGS_{kind.upper()}"), interprocedural,
                                  value("CMAKE_EXE_LINKER_FLAGS")]))


def _processor() -> str:
    found = re.search(r"^model name\s*:\s*(.*)$", pathlib.Path("/proc/cpuinfo").read_text(), re.M)
    return found[1] if found else platform.machine()


def _system() -> str:
    found = re.search(r'^PRETTY_NAME="(.*)"$', pathlib.Path("/etc/os-release").read_text(), re.M)
    return found[1] if found else ""


def _commit() -> str:
    here = pathlib.Path(__file__).parent
    done = subprocess.run(["git", "-c", "safe.directory=*", "describe", "--always", "--dirty"], cwd=here,
                          capture_output=True, text=True)
    return done.stdout.strip()


def _first_line(command: list) -> str:
    return subprocess.run(command, capture_output=True, text=True).stdout.splitlines()[0]
