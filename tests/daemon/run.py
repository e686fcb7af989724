"""Runs pytest in a sandbox: run.py [PYTEST ARGUMENT OR FILE...].

Ends with 77 where the machine allows no sandbox, and when every test that was to run has been skipped.

UPNPVELORN names the executable to be tested; without it that is build/upnpvelorn.
"""

import pathlib
import signal
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent.parent))

from simdevice import sandbox


class Outcomes:
    """Counts what has become of the tests. A plugin of pytest."""

    def __init__(self):
        self.skipped = self.others = 0

    def pytest_runtest_logreport(self, report) -> None:
        if report.skipped:
            self.skipped += 1
        elif report.when == "call" or report.failed:
            self.others += 1


def main() -> int:
    # A shell ignores it for what it starts in the background, and so would every program that is started here.
    signal.signal(signal.SIGINT, signal.default_int_handler)
    sandbox.enter(status_if_refused=77)
    import pytest
    outcomes = Outcomes()
    arguments = sys.argv[1:]
    if not any(pathlib.Path(argument.split("::")[0]).exists() for argument in arguments):
        arguments.append(str(HERE))
    status = pytest.main(["-p", "no:cacheprovider", "-rs", f"--rootdir={HERE}",
                          "--basetemp=/run/simdevice/tmp", *arguments], plugins=[outcomes])
    return 77 if status == 0 and outcomes.skipped and not outcomes.others else status


if __name__ == "__main__":
    sys.exit(main())
