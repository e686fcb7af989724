"""A copy of the sources with a build of its own, in which one mutant at a time is compiled and tested."""

import dataclasses
import json
import os
import pathlib
import re
import resource
import shlex
import shutil
import signal
import subprocess
import tempfile
import threading
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
FOLDERS = ("core", "settings", "upnp", "scan", "json", "monitor")

_MEMORY = 6 << 30
_FILE_SIZE = 1 << 30
_PROCESSOR_TIME = 400  # seconds
_COMPILE_TIME = 180
# Tests of what no mutant is in, or of what is built anew.
_UNCONCERNED = re.compile(r"^(platform|packaging|scripts|mutation|jsongrammar|tools|soak)|^daemon\.(simdevice|run|docs_glib|wireshark|bus_policy|docs_porting)$")
_ALONE = ["unshare", "--net", "--pid", "--fork", "--kill-child"]
_WITH_LOOPBACK = ["sh", "-c", 'ip link set lo up; "$@"; exit $?', "sh"]


@dataclasses.dataclass(frozen=True)
class Test:
    name: str
    command: tuple
    environment: tuple
    time_limit: float
    folder: str


class BuildError(Exception):
    pass


class Tree:
    """The folder holds `source`, `build` and what was measured of the tests without a mutant."""

    def __init__(self, folder: pathlib.Path, sanitizers: bool = False):
        self.folder = folder
        self.source = folder / "source"
        self.build = folder / "build"
        self._options = ["-DSANITIZE=ON", "-DCMAKE_CXX_FLAGS=-O1 -w -fvisibility-inlines-hidden"] if sanitizers else [
            "-DCMAKE_CXX_FLAGS=-O0 -w -fvisibility-inlines-hidden"]
        self._has_limited_memory = not sanitizers  # the address sanitizer reserves terabytes
        self._saved = {}
        self._optimised = {}
        self.durations = {}

    # Making it

    def prepare(self, processes: int) -> None:
        self._copy_sources()
        linker = ["-DCMAKE_%s_LINKER_FLAGS=-fuse-ld=%s" % (kind, linker) for linker in ("mold", "lld") if shutil.which(linker)
                  for kind in ("EXE", "SHARED")][:2]
        _run(["cmake", "-G", "Ninja", "-S", self.source, "-B", self.build, "-DCMAKE_BUILD_TYPE=", "-DBUILD_EXAMPLES=ON",
              "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON", "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON",
              f"-DCMAKE_PROJECT_INCLUDE={self.source}/tests/mutation/shared.cmake", *linker, *self._options], self.folder / "build.log")
        _run(["cmake", "--build", self.build, f"-j{processes}"], self.folder / "build.log")
        self._read_build()
        self.tests = self._listed_tests()

    def _copy_sources(self) -> None:
        """Only what has changed is written, so that no more is compiled."""
        names = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=ROOT, check=True, capture_output=True, text=True).stdout.splitlines()
        wanted = {name for name in names if (ROOT / name).is_file()}
        for name in wanted:
            target = self.source / name
            if not target.exists() or target.read_bytes() != (ROOT / name).read_bytes():
                target.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(ROOT / name, target)
        for path in self.source.rglob("*"):
            if path.is_file() and str(path.relative_to(self.source)) not in wanted and "__pycache__" not in path.parts:
                path.unlink()

    def _read_build(self) -> None:
        commands = [entry["command"] for entry in json.loads((self.build / "compile_commands.json").read_text())]
        self._commands = {re.search(r" -o (\S+)", command)[1]: command for command in commands}
        self._users = {}  # objects by source and header
        object_name = ""
        for line in self._ninja("-t", "deps").splitlines():
            if line and not line.startswith(" "):
                object_name = line.split(":")[0]
            elif line.strip().startswith(str(self.source)):
                self._users.setdefault(line.strip(), []).append(object_name)

    def _ninja(self, *arguments: str) -> str:
        return subprocess.run(["ninja", "-C", self.build, *arguments], check=True, capture_output=True, text=True).stdout

    def _listed_tests(self) -> list:
        listing = json.loads(subprocess.run(["ctest", "--show-only=json-v1"], cwd=self.build, check=True, capture_output=True, text=True).stdout)
        tests = []
        for entry in listing["tests"]:
            if _UNCONCERNED.search(entry["name"]) or "command" not in entry:
                continue
            properties = {item["name"]: item["value"] for item in entry.get("properties", [])}
            folder = pathlib.Path(properties["WORKING_DIRECTORY"]).name
            tests.append(Test(entry["name"], tuple(entry["command"]), tuple(properties.get("ENVIRONMENT", ())),
                              float(properties.get("TIMEOUT", 300)), folder))
        return tests

    # One mutant

    def apply(self, mutant) -> str:
        """Returns "built", "not compiled" or "same": the code is what it was. To be followed by restore()."""
        path = self.source / mutant.file
        self._save(path)
        path.write_text(mutant.applied(path.read_text()))
        objects = [name for name in self._users.get(str(path), []) if name in self._commands]
        if not objects:
            raise BuildError(f"nothing is compiled from {mutant.file}")
        changed = False
        outputs = []
        for name in objects:
            self._save(self.build / name)
            if not self._shell(self._commands[name], _COMPILE_TIME):
                return "not compiled"
            if (self.build / name).read_bytes() != self._saved[self.build / name]:
                changed = True
                outputs += [output for output in self._linked_from(name) if output not in outputs]
        if not changed:
            return "same"
        for output in outputs:
            if output.endswith(".a"):  # the programs would go on with what they have
                raise BuildError(f"{mutant.file} is in the static library {output}: shared.cmake has to make it a shared one")
            self._save(self.build / output)
            if not self._shell(self._ninja("-t", "commands", output).splitlines()[-1], _COMPILE_TIME):
                return "not compiled"
        return "built"

    def is_same_when_optimised(self, mutant) -> bool:
        """Whether the compiler makes the same of it: then there is nothing to notice. While the mutant is applied."""
        path = self.source / mutant.file
        objects = [name for name in self._users.get(str(path), []) if name in self._commands and "/tests/" not in self._commands[name].split(" -c ")[-1]]
        if not path.suffix == ".cpp" or len(objects) != 1:
            return False
        changed = path.read_text()
        if path not in self._optimised:
            path.write_bytes(self._saved[path])
            self._optimised[path] = self._optimised_object(objects[0])
            path.write_text(changed)
        return self._optimised[path] == self._optimised_object(objects[0])

    def _optimised_object(self, name: str) -> bytes:
        target = self.folder / "optimised.o"
        target.unlink(missing_ok=True)
        command = self._commands[name].replace(f"-o {name}", f"-O2 -o {shlex.quote(str(target))}")
        self._shell(command, _COMPILE_TIME)
        return target.read_bytes() if target.exists() else b""

    def restore(self) -> None:
        for path, content in self._saved.items():
            if path.read_bytes() != content:
                _replace(path, content)
        self._saved.clear()

    def _save(self, path: pathlib.Path) -> None:
        if path not in self._saved:
            self._saved[path] = path.read_bytes()
            if path.suffix != ".cpp" and path.suffix != ".h":  # the linker may write into the file of a running program
                mode = path.stat().st_mode
                _replace(path, self._saved[path])
                path.chmod(mode)

    def _linked_from(self, name: str) -> list:
        query = self._ninja("-t", "query", name)
        return [line.strip() for line in query.split("outputs:")[1].splitlines() if line.strip() and not line.strip() == "all"]

    def _shell(self, command: str, time_limit: float) -> bool:
        return self._spawn(["sh", "-c", command], self.build, {}, time_limit)[0] == 0

    # Its tests

    def failure(self, test: Test, given_up: threading.Event = None, log: pathlib.Path = None) -> str:
        """"" for a test that passes, or that was skipped, else why not. Ends early when it is given up."""
        environment = dict(item.split("=", 1) for item in test.environment)
        command = list(test.command)
        if not test.command[0].endswith(("python3", "sh")):
            command = [*_ALONE, *([] if os.geteuid() == 0 else ["--map-root-user"]), *_WITH_LOOPBACK, *command]
        limit = min(test.time_limit, 10 + 3 * self.durations.get(test.name, test.time_limit))
        started = time.monotonic()
        status, output = self._spawn(command, self.build, environment, limit, given_up)
        if log:
            log.write_bytes(output)
        if status in (0, 77):
            self.durations.setdefault(test.name, time.monotonic() - started)
            return ""
        return "no end" if status is None else f"status {status}"

    def _spawn(self, command: list, folder: pathlib.Path, environment: dict, time_limit: float, given_up: threading.Event = None) -> tuple:
        """The status, None after the time limit, and the last of the output."""
        # A test that is ended leaves its files behind, which are not to be found by the next one.
        with tempfile.TemporaryDirectory() as files, tempfile.TemporaryFile() as output:
            process = subprocess.Popen(command, cwd=folder, env={**os.environ, **environment, "TMPDIR": files}, stdin=subprocess.DEVNULL, stdout=output,
                                       stderr=subprocess.STDOUT, start_new_session=True, preexec_fn=self._limit)
            try:
                status = _wait(process, time_limit, given_up)
            finally:
                try:
                    os.killpg(process.pid, signal.SIGKILL)
                except ProcessLookupError:
                    pass
                process.wait()
            output.seek(max(0, output.seek(0, os.SEEK_END) - 20000))
            return status, output.read()

    def _limit(self) -> None:
        if self._has_limited_memory:
            resource.setrlimit(resource.RLIMIT_AS, (_MEMORY, _MEMORY))
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
        resource.setrlimit(resource.RLIMIT_FSIZE, (_FILE_SIZE, _FILE_SIZE))
        resource.setrlimit(resource.RLIMIT_CPU, (_PROCESSOR_TIME, _PROCESSOR_TIME))


def _wait(process: subprocess.Popen, time_limit: float, given_up: threading.Event):
    """The status; None when it is given up or the time is over."""
    end = time.monotonic() + time_limit
    while time.monotonic() < end and not (given_up and given_up.is_set()):
        try:
            return process.wait(0.1 if given_up else time_limit)
        except subprocess.TimeoutExpired:
            pass
    return None


def _replace(path: pathlib.Path, content: bytes) -> None:
    mode = path.stat().st_mode if path.exists() else 0o644
    path.unlink(missing_ok=True)
    path.write_bytes(content)
    path.chmod(mode)


def _run(command: list, log: pathlib.Path) -> None:
    log.parent.mkdir(parents=True, exist_ok=True)
    with open(log, "ab") as file:
        if subprocess.run([str(item) for item in command], stdout=file, stderr=subprocess.STDOUT).returncode != 0:
            raise BuildError(f"what is not changed does not build: see {log}")
