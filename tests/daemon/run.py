"""Runs pytest in a sandbox: run.py [PYTEST ARGUMENT OR FILE...]. Ends with 77 where the machine allows no sandbox.

UPNPVELORN names the executable to be tested; without it that is build/upnpvelorn.
"""

import pathlib
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent.parent))

from simdevice import sandbox


def main() -> int:
    sandbox.enter(status_if_refused=77)
    import pytest
    arguments = sys.argv[1:]
    if not any(pathlib.Path(argument.split("::")[0]).exists() for argument in arguments):
        arguments.append(str(HERE))
    return pytest.main(["-p", "no:cacheprovider", f"--rootdir={HERE}",
                        "--basetemp=/run/simdevice/tmp", *arguments])


if __name__ == "__main__":
    sys.exit(main())
