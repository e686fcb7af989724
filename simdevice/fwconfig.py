"""The maker's configuration service (com.zorv.fwconfig), seen from a test: values, behaviour, recorded calls."""

import json
import pathlib
import subprocess
from typing import NamedTuple

from simdevice.sandbox import PYTHON
from simdevice.values import to_json

SERIAL_NUMBER = "SERIALNUMBER"


class Call(NamedTuple):
    """A call that the service got."""

    path: str
    interface: str
    member: str
    arguments: list


class FwConfig:
    """Starts and orders about the process of fwconfigservice.py.

    Members are named "/path.member" here: "/systemvariables.get", "/fwversion.Get", "/network.GetAll".
    A value is a plain one or a Typed for any other bus type.
    """

    def __init__(self, address: str):
        self._address = address
        self._process = None
        self._values = {
            "systemvariables": {"UUID": "9a1b0c7e-52f4-4d0b-8c6e-2f7d10a4b3c5"},
            "systemconstants": {SERIAL_NUMBER: "KM-2044817"},
            "hostname": "kelta", "zorvversion": "1.4.2",
            "network": {"dhcp": True, "gateway": "10.77.0.1"},
        }
        self._behaviours = {}
        self._last_calls = []

    def start(self) -> None:
        self.start_without_waiting()
        self.wait_until_ready()

    def start_without_waiting(self) -> None:
        self.stop()
        self._process = subprocess.Popen(
            [PYTHON, "-E", "-s", str(pathlib.Path(__file__).with_name("fwconfigservice.py")), self._address],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, start_new_session=True, text=True, bufsize=1)
        self._process.stdin.write(json.dumps({"values": to_json(self._values), "behaviours": self._behaviours}) + "\n")

    def wait_until_ready(self) -> None:
        if self._process.stdout.readline() != "ready\n":
            raise RuntimeError("the configuration service did not start")
        self._process.stdout.readline()

    @property
    def running(self) -> bool:
        return self._process is not None

    def stop(self) -> None:
        """The name disappears from the bus. Values, behaviour and recorded calls are kept for the next start()."""
        if self._process is None:
            return
        self._last_calls = self.calls
        self._process.stdin.close()
        self._process.kill()
        self._process.wait()
        self._process.stdout.close()
        self._process = None

    @property
    def calls(self) -> list:
        """Every call since the last start or forget_calls(), in the order of arrival."""
        if self._process is None:
            return self._last_calls
        return [Call(*call) for call in self._order({})]

    def calls_of(self, member: str) -> list:
        return [call for call in self.calls if f"{call.path}.{call.member}" == member]

    def forget_calls(self) -> None:
        self._last_calls = []
        self._order({"forget": True})

    def set(self, variables: dict = None, constants: dict = None, **values) -> None:
        """Replaces values; those not named stay.

        variables, constants: dictionaries name -> value, each replaced as a whole. hostname, zorvversion: None means
        that there is no such property. network: the answer to GetAll, a dictionary or a Typed.
        """
        unknown = values.keys() - {"hostname", "zorvversion", "network"}
        if unknown:
            raise TypeError(f"no such values: {unknown}")
        if variables is not None:
            values["systemvariables"] = variables
        if constants is not None:
            values["systemconstants"] = constants
        self._values.update(values)
        self._order({"values": to_json(values)})

    def behave(self, how: str = "normal", *members: str, seconds: float = 0,
               error: str = "org.freedesktop.DBus.Error.Failed") -> None:
        """Normal, slow (answers after `seconds`), silent (never answers), failing (with the bus error `error`) or held
        (answers when the behaviour changes).

        Without members it holds for all, and takes the place of everything said before.
        """
        behaviour = {"normal": {}, "slow": {"seconds": seconds}, "silent": {"silent": True}, "held": {"held": True},
                     "failing": {"error": error}}[how]
        if members:
            self._behaviours.update(dict.fromkeys(members, behaviour))
        else:
            self._behaviours = {"": behaviour}
        self._order({"behaviours": self._behaviours})

    def _order(self, order: dict) -> list:
        if self._process is None:
            return []
        self._process.stdin.write(json.dumps(order) + "\n")
        return json.loads(self._process.stdout.readline())
