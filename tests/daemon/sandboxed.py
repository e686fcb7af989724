"""A script in a sandbox, for test_simdevice.py: sandboxed.py STATUS ends with it, sandboxed.py waits for SIGTERM."""

import pathlib
import signal
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent.parent))

from simdevice import sandbox

sandbox.enter()
if len(sys.argv) > 1:
    sys.exit(int(sys.argv[1]))
signal.signal(signal.SIGTERM, lambda *_: sys.exit(9))
subprocess.Popen(["sleep", "1000"])
print("up", flush=True)
while True:
    signal.pause()
