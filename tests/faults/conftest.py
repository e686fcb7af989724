"""Fixtures for tests of a daemon of which single calls fail: those of the running daemon."""

import importlib.util
import pathlib
import sys

DAEMON_TESTS = pathlib.Path(__file__).resolve().parent.parent / "daemon"
sys.path[:0] = [str(DAEMON_TESTS)]

_found = importlib.util.spec_from_file_location("daemon_fixtures", DAEMON_TESTS / "conftest.py")
_daemon = importlib.util.module_from_spec(_found)
_found.loader.exec_module(_daemon)

lan, start_device, device, peer, ssdp = (_daemon.lan, _daemon.start_device, _daemon.device, _daemon.peer, _daemon.ssdp)
pytest_sessionstart = _daemon.pytest_sessionstart
