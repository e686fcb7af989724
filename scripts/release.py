#!/usr/bin/env python3
"""Is this commit ready to be released? Ends with 0 when it is, with 1 when something is missing, and says what to do then.

  scripts/release.py               everything below but "run"
  scripts/release.py versions      CMake, debian/changelog, CHANGELOG.md, the programs and the manual pages name the same version
  scripts/release.py record        releases/<version>.md has a good run of every suite, with nothing changed since
  scripts/release.py packages      the Debian packages come out bit for bit the same in two folders
  scripts/release.py run           runs what the record lacks, and writes it down
  scripts/release.py run soak tidy  these, whether the record has them or not; several commands may do so at the same time
  scripts/release.py list          shows the suites

"run" tests a clone of the commit, in ~/.cache/upnpvelorn-release, so work in this folder can go on. It takes hours and shows
what the suites print. qt4 and qt4-asan need QT4_KIT, qt4-armhf needs QT4_ARMHF_KIT: folders with a Qt 4.8, see CONTRIBUTING.md.
"""

import argparse
import collections
import datetime
import fcntl
import filecmp
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
CACHE = pathlib.Path(os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache") / "upnpvelorn-release"
RECORDS = "releases"
# What may change after the runs: the record of them, and the review of what no test of the mutation sample noticed.
LATER = (RECORDS, "tests/mutation/equivalents.txt")
OTHERS = [".", *(f":(exclude){path}" for path in LATER)]

# What is run in the order in which it is worth while: the first build is used by those behind it.
SUITES = {
    "release": "./test",
    "tidy": "./test tidy",
    "asan": "./test asan",
    "qt4": "./test qt4",
    "qt4-asan": "./test qt4-asan",
    "armhf": "./test armhf",
    "arm64": "./test arm64",
    "qt4-armhf": "./test qt4-armhf",
    "neighbours": "./test neighbours",
    "packaging": "packaging/try.sh",
    "soak": "tests/soak/run.py --minutes 30",
    "faults": "tests/faults/run.py",
    "fuzzers": "fuzz/run.sh -n 10000000 -t 600",
    "mutation": "tests/mutation/run.py --jobs 3 --sample 400 --at-least 97 --in-each-folder 94 --seed {seed}",
}
NEED_BUILD = ("soak", "faults")  # they take the daemon in build/

# What says how it went, the last of these lines; of the fuzzers each has its own.
TELLING = re.compile(r"\d+% tests passed.*|=+ (.*\d+ passed.*) =+|Everything .*|verdict: .*|all \d.*|\w+ \d+ inputs .*")
# Colours, progress that overwrites itself, and whatever else a program prints that is no text.
NO_TEXT = re.compile(r"\x1b\[[0-9;?]*[A-Za-z]|[^\x20-\x7e\u00a0-\uffff]")

Run = collections.namedtuple("Run", "suite command commit begun minutes result")


def output_of(*command: str, folder: pathlib.Path = None) -> str:
    return subprocess.run(command, cwd=folder or ROOT, check=True, capture_output=True, text=True).stdout.strip()


def is_as_in(commit: str) -> bool:
    """Whether HEAD differs from that commit in nothing that the runs depend on."""
    compared = subprocess.run(["git", "diff", "--quiet", commit, "HEAD", "--", *OTHERS], cwd=ROOT, stderr=subprocess.DEVNULL)
    return compared.returncode == 0


def uncommitted() -> str:
    """Files, with commas between them."""
    lines = output_of("git", "status", "--porcelain", "--", ".", f":(exclude){RECORDS}").splitlines()
    return ", ".join(line.split(maxsplit=1)[1] for line in lines)


def say(is_right: bool, text: str, remedy: str) -> bool:
    print(f"{'ok' if is_right else 'MISSING':8} {text}" + ("" if is_right else f". {remedy}"), flush=True)
    return is_right


# Versions

def version() -> str:
    """That of CMake, which the daemon and upnpvelornctl are built with."""
    return re.search(r"^project\(upnpvelorn VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text(), re.MULTILINE)[1]


def named_versions() -> dict:
    """The version that each place names, None for none."""
    def found(file: str, pattern: str) -> str | None:
        match = re.search(pattern, (ROOT / file).read_text(), re.MULTILINE)
        return match and match[1]

    def said_by(*program: str) -> str | None:
        try:
            return re.fullmatch(r"\S+ (\S+)", output_of(*program, "--version"))[1]
        except (OSError, subprocess.CalledProcessError, TypeError):
            return None

    return {
        "debian/changelog": found("debian/changelog", r"\Aupnpvelorn \((\S+)\)"),
        "CHANGELOG.md, with a date": found("CHANGELOG.md", r"^## (\d\S*) \(\d{4}-\d{2}-\d{2}\)$"),
        **{f"man/{page.name}": found(f"man/{page.name}", r"^\.Os upnpvelorn (\S+)$") for page in sorted((ROOT / "man").iterdir())},
        "build/upnpvelorn --version": said_by(str(ROOT / "build/upnpvelorn")),
        "build/upnpvelornctl --version": said_by(str(ROOT / "build/upnpvelornctl")),
        "tools/upnpvelorn-browse --version": said_by(sys.executable, str(ROOT / "tools/upnpvelorn-browse")),
    }


def check_versions() -> bool:
    right = version()
    return all([say(named == right, f"{place}: {named or 'no version'}",
                    f"CMakeLists.txt says {right}" + ("; build with ./test" if place.startswith("build/") and not named else ""))
                for place, named in named_versions().items()])


# The record

def record_file() -> pathlib.Path:
    return ROOT / RECORDS / f"{version()}.md"


def recorded() -> list:
    """All runs, the oldest first."""
    lines = record_file().read_text().splitlines() if record_file().exists() else []
    rows = [[cell.strip() for cell in line.strip("|").split("|")] for line in lines if line.startswith("| ")]
    return [Run(*row) for row in rows[1:]]


def latest() -> dict:
    """The last run of each suite that tells something of HEAD."""
    return {run.suite: run for run in recorded() if is_as_in(run.commit)}


def is_good(run: Run | None) -> bool:
    return run is not None and run.result.startswith("passed")


def check_record() -> bool:
    changed = uncommitted()
    is_committed = say(not changed, "everything is committed", f"Commit or remove: {changed}")
    runs = latest()
    rest = [say(is_good(runs.get(suite)), f"{suite}: {describe(runs.get(suite))}", f"scripts/release.py run {suite}") for suite in SUITES]
    return all([is_committed, *rest])


def describe(run: Run | None) -> str:
    return f"{run.result}, {run.begun}" if run else "not run with this commit"


def write_down(run: Run) -> None:
    """Beside others that write, too."""
    path = record_file()
    path.parent.mkdir(exist_ok=True)
    with path.open("a") as file:
        fcntl.flock(file, fcntl.LOCK_EX)
        if os.fstat(file.fileno()).st_size == 0:
            file.write(f"# What was run for {version()}\n\nWritten by `scripts/release.py run`. A later run of a suite replaces an earlier one.\n\n"
                       "| suite | command | commit | begun | minutes | result |\n|---|---|---|---|---|---|\n")
        file.write("| " + " | ".join(cell.replace("|", "/") for cell in run) + " |\n")


# Running

def clone() -> pathlib.Path:
    """Of this very commit. What was built in it, or in that of a commit that differs in nothing else, is used again."""
    commit = output_of("git", "rev-parse", "HEAD")
    CACHE.mkdir(parents=True, exist_ok=True)
    with (CACHE / "lock").open("w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        made = [path for path in CACHE.iterdir() if re.fullmatch("[0-9a-f]{12}", path.name) and is_as_in(path.name)]
        folder = made[0] if made else CACHE / commit[:12]
        if not made:
            output_of("git", "clone", "--quiet", str(ROOT), str(folder))
        output_of("git", "fetch", "--quiet", str(ROOT), commit, folder=folder)
        output_of("git", "checkout", "--quiet", "--detach", commit, folder=folder)
    return folder


def environment_for(suite: str) -> dict:
    kit = os.environ.get("QT4_ARMHF_KIT" if suite == "qt4-armhf" else "QT4_KIT", "")
    return {**os.environ, "QT4_KIT": kit, "LC_ALL": "C.UTF-8"}


def run(suite: str, folder: pathlib.Path) -> Run:
    """Shows what it prints, and keeps that in a file beside the clone."""
    commit = output_of("git", "rev-parse", "HEAD", folder=folder)
    command = SUITES[suite].format(seed=int(folder.name[:7], 16))  # the same after a review
    begun, start = datetime.datetime.now(datetime.timezone.utc), time.monotonic()
    log = CACHE / f"{commit[:12]}-{suite}.log"
    print(f"== {suite}: {command}; its output is kept in {log}", flush=True)
    told = []
    with log.open("w") as file, subprocess.Popen(command, shell=True, cwd=folder, env=environment_for(suite), text=True, errors="replace",
                                                 stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT) as running:
        for line in running.stdout:
            file.write(line)
            sys.stdout.write(line)
            if text := telling(line):
                told = [*told, text] if " inputs " in text else [text]
    result = "passed" if running.returncode == 0 else f"FAILED with status {running.returncode}"
    return Run(suite, f"`{command}`", commit[:12], f"{begun:%Y-%m-%d %H:%M} UTC", f"{(time.monotonic() - start) / 60:.0f}",
               ": ".join(filter(None, [result, "; ".join(told)])))


def telling(line: str) -> str:
    """What the line says of how it went, "" for nothing."""
    text = " ".join(NO_TEXT.sub("", line.rstrip().rpartition("\r")[2].replace("\t", " ")).split())
    match = TELLING.fullmatch(text)
    return (match[1] or text)[:120] if match else ""


def run_suites(names: list) -> bool:
    if changed := uncommitted():
        return say(False, "everything is committed", f"Only a commit is tested. Commit or remove: {changed}")
    runs, folder = latest(), clone()
    for suite in names or [name for name in SUITES if not is_good(runs.get(name))]:
        if suite in NEED_BUILD and not (folder / "build/upnpvelorn").exists():
            say(False, f"{suite} needs the daemon", "Run first: scripts/release.py run release")
            return False
        done = run(suite, folder)
        write_down(done)
        say(is_good(done), f"{suite}: {done.result}", f"Its output: {CACHE}")
    return check_record()


# Packages

def built_packages(folder: pathlib.Path) -> dict:
    """The Debian packages of HEAD, by their names."""
    source = folder / "upnpvelorn"
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    output_of("git", "clone", "--quiet", str(ROOT), str(source))
    with (folder / "build.log").open("w") as log:
        subprocess.run(["dpkg-buildpackage", "-us", "-uc", "-b"], cwd=source, check=True, stdout=log, stderr=subprocess.STDOUT)
    return {package.name: package for package in sorted(folder.glob("*.deb"))}


def check_packages() -> bool:
    try:
        one, other = (built_packages(CACHE / name) for name in ("packages", "packages-in-a-folder-with-a-longer-name"))
    except (OSError, subprocess.CalledProcessError) as error:
        return say(False, "Debian packages", f"They cannot be built: {error}. See build.log in {CACHE}/packages*, and try packaging/try.sh")
    same = all([say(name in other and filecmp.cmp(package, other[name], shallow=False), f"{name}, the same from two folders",
                    f"Compare: diffoscope {package} {other.get(name)}") for name, package in one.items()])
    return same and bool(one)


def list_suites() -> bool:
    for suite, command in SUITES.items():
        print(f"{suite:12} {command.format(seed='<of the commit>')}")
    return True


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("what", nargs="?", choices=("versions", "record", "packages", "run", "list"))
    parser.add_argument("suites", nargs="*", metavar="SUITE")
    options = parser.parse_args()
    if unknown := [name for name in options.suites if name not in SUITES or options.what != "run"]:
        parser.error(f"there is no {' '.join(unknown)}; \"run\" takes: {', '.join(SUITES)}")
    if options.what == "run":
        return 0 if run_suites(options.suites) else 1
    checks = {"versions": check_versions, "record": check_record, "packages": check_packages, "list": list_suites}
    wanted = [checks[options.what]] if options.what else [check_versions, check_record, check_packages]
    is_ready = all([check() for check in wanted])
    if not options.what:
        print(f"Ready: git tag -s v{version()}" if is_ready else "Not ready.")
    return 0 if is_ready else 1


if __name__ == "__main__":
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # as "release.py | head" is used to
    sys.exit(main())
