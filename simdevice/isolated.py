"""Runs one program alone on a device's network: isolated.py PROGRAM [ARGUMENT...]

The program gets eth0 (10.77.0.2/24, 00:11:22:aa:bb:cc), lo, a default route, a system bus with nobody on it, a host
name of its own, empty /var and /opt, and no /dev/log. It may change all that with ip, mount and the like. A second
host is on the same wire: `ip -n $SIMDEVICE_PEER ...`, 10.77.0.3. The exit status is the program's.
"""

import os
import pathlib
import subprocess
import sys

sys.path[0] = str(pathlib.Path(__file__).resolve().parent.parent)

from simdevice import sandbox


def main() -> int:
    if len(sys.argv) < 2:
        print(__doc__, file=sys.stderr)
        return 1
    sandbox.enter(status_if_refused=77)

    from simdevice.bus import Bus
    from simdevice.device import ADDRESS, MAC
    from simdevice.network import SUBNET, Lan
    from simdevice.room import Room

    program = os.path.abspath(sys.argv[1])
    lan = Lan()
    host = lan.host(addresses=[f"{ADDRESS}/24"], mac=MAC)
    peer = lan.host(addresses=[f"{SUBNET}.3/24"])
    room = Room(host.path, "kelta", program)
    bus = Bus("/run/simdevice")
    bus.start()
    room.wait_until_ready()
    environment = {**os.environ, "DBUS_SYSTEM_BUS_ADDRESS": bus.address, "SIMDEVICE_PEER": peer.name,
                   "PATH": sandbox.PATH}
    return sandbox.shell_status(subprocess.run([*room.prefix, program, *sys.argv[2:]], env=environment).returncode)


if __name__ == "__main__":
    sys.exit(main())
