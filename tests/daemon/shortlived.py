"""Environment for programs that use the bus through Qt and end at once."""

import os
import pathlib

_SUPPRESSIONS = pathlib.Path("/run/simdevice/leaks")


def environment(**variables: str) -> dict:
    """This one with the variables. Qt's bus thread may leave an object of its own behind when the program ends while it
    comes up, so the leak sanitizer is told to pass over what QtDBus allocated."""
    _SUPPRESSIONS.write_text("leak:libQt5DBus.so\n", encoding="ascii")
    _SUPPRESSIONS.chmod(0o644)
    options = [os.environ.get("LSAN_OPTIONS"), f"suppressions={_SUPPRESSIONS}", "print_suppressions=0"]
    return {**os.environ, "LSAN_OPTIONS": ":".join(filter(None, options)), **variables}
