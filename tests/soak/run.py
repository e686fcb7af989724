#!/usr/bin/python3
"""The soak run: good and hostile traffic on all sockets of one device, in a sandbox. See --help.

Ends with 0 when everything held, 1 when not, 77 where the machine allows no sandbox. UPNPVELORN names the executable to
be tested; without it that is build/upnpvelorn.
"""

import argparse
import os
import pathlib
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
for folder in (HERE.parent / "daemon", HERE.parent.parent):
    sys.path.insert(0, str(folder))

from simdevice import sandbox


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--minutes", type=float, default=30)
    parser.add_argument("--seed", type=int, default=int(time.time()), help="repeats the random choices of a run")
    options = parser.parse_args()
    # The address sanitizer keeps freed memory for a while; here it must not.
    given = os.environ.get("ASAN_OPTIONS", "")
    os.environ["ASAN_OPTIONS"] = ":".join(filter(None, [given, "quarantine_size_mb=1"]))
    sandbox.enter(status_if_refused=77)
    import soak
    return soak.run(options.minutes * 60, options.seed)


if __name__ == "__main__":
    sys.exit(main())
