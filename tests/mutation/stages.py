"""Which tests a mutant meets, in which order: those that are quick and near first."""

import pathlib
import re

# The black-box tests of what a folder does. The others come later.
_CONCERNED = {
    "core": "startup log command_line sigterm bus_restart bus_lost_at_start hurried hostile_log hostile_start hostile_bus shared_ports change_order",
    "settings": "startup network_change hostname registry change_order bus_interface announcing description search hostile_bus docs_dbus",
    "upnp": "search description announcing hostname network_change docs_wire control_points hostile_datagrams hostile_lines hostile_icon "
            "hostile_search_datagrams hostile_idle hostile_talkers sigterm shared_ports log monitor",
    "scan": "registry scan_announcing scan_expiry scan_hostile scan_recovery hostile_flood hostile_clock hostile_datagrams network_change docs_dbus "
            "shared_ports log monitor",
    "json": "registry scan_announcing scan_hostile docs_dbus",
    "monitor": "monitor registry docs_dbus bus_policy bus_interface hostile_flood",
}
_CONCERNED_FAULTS = {"core": "start bus", "settings": "hostname start", "upnp": "icon start", "scan": "start", "json": "", "monitor": ""}
# Whose unit tests a folder's code is in, apart from its own
_USERS = {"core": ("settings", "upnp", "scan"), "settings": ("upnp", "scan"), "upnp": (), "scan": (), "json": ("scan",), "monitor": ()}

# What no unit test is linked with, and the black-box tests of it
IN_THE_DAEMON_ALONE = {
    "core/main.cpp": "startup log change_order sigterm bus_restart bus_interface bus_lost_at_start hostile_start network_change monitor",
    "core/commandline.cpp": "command_line",
}

NAMES = ("unit tests of the folder", "unit tests", "fuzz seeds", "black-box tests that concern it", "black-box tests", "sanitizers")


def of(file: str, tests: list, durations: dict) -> list:
    """A list of lists of tests, one for each stage without sanitizers."""
    folder = file.split("/")[0]
    stem = pathlib.Path(file).stem
    near = {f"daemon.{name}" for name in IN_THE_DAEMON_ALONE.get(file, _CONCERNED[folder]).split()}
    near |= {f"faults.{name}" for name in _CONCERNED_FAULTS[folder].split()}

    def quick_first(test) -> tuple:
        return not _is_of(stem, test.name), durations.get(test.name, 1000)

    has_unit_tests = file not in IN_THE_DAEMON_ALONE
    unit = [test for test in tests if test.name.startswith("tst_") and has_unit_tests]
    chosen = [
        [test for test in unit if test.folder == folder],
        [test for test in unit if test.folder in _USERS[folder]],
        [test for test in tests if test.name.startswith("fuzz.") and folder != "core"],
        [test for test in tests if test.name in near],
        [test for test in tests if re.match(r"(daemon|faults)\.", test.name) and test.name not in near],
    ]
    return [sorted(stage, key=quick_first) for stage in chosen]


def _is_of(stem: str, test: str) -> bool:
    return test == f"tst_{stem}" or test.startswith(f"tst_{stem}_")
