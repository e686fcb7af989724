"""Arguments are judged before anything is installed, built or started."""

import os
import pathlib
import re
import subprocess
import tempfile

import pytest

from checkout import ROOT, Checkout

PRESETS = "release, debug, asan, qt4, qt4-asan, coverage, fuzz, armhf, qt4-armhf, arm64"
NO_KIT = " needs a Qt 4.8: set the environment variable QT4_KIT to its folder, the one that has bin/qmake"
NUMBER = "./run: --devices takes a number from 2 to 40, not "


@pytest.fixture
def checkout():
    """Not in pytest's folder, into which only its owner can look."""
    with tempfile.TemporaryDirectory() as folder:
        os.chmod(folder, 0o755)
        yield Checkout(pathlib.Path(folder))


@pytest.mark.parametrize("command", [
    "./run --help", "./run -h", "./run --no-tour --help", "./run exec --help", "./run move -h", "./test --help", "./test asan -h",
    "fuzz/run.sh --help", "fuzz/run.sh reader -h", "bench/run --help", "bench/run searches -h", "bench/builds --help", "bench/qt4 --help",
    "packaging/try.sh --help", "scripts/neighbours.sh --help", "scripts/sysroot.sh --help", "scripts/release.py --help"])
def test_help(checkout, command):
    done = checkout.call(command)
    assert (done.returncode, done.stderr) == (0, "")
    assert len(done.stdout.splitlines()) >= 2 and not done.stdout.startswith("#") and "set -e" not in done.stdout
    assert not checkout.calls


@pytest.mark.parametrize("program", ["tests/faults/run.py", "tests/mutation/run.py", "tests/soak/run.py"])
def test_help_of_the_long_runs(program):
    done = subprocess.run([ROOT / program, "--help"], capture_output=True, text=True, timeout=30)
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout.startswith("usage: run.py [-h] ")


@pytest.mark.parametrize("document", ["README.md", "CONTRIBUTING.md", *(f"docs/{path.name}" for path in (ROOT / "docs").glob("*.md"))])
def test_what_a_document_tells_to_type_can_be_executed(document):
    typed = re.findall(r"^ {4}(?:\w+=\S+ )*([\w./-]+)", (ROOT / document).read_text(), re.MULTILINE)
    programs = [ROOT / first for first in typed if "/" in first and (ROOT / first).is_file()]
    assert [str(program) for program in programs if not os.access(program, os.X_OK)] == []


@pytest.mark.parametrize("command, sentence", [
    ("./run --devices 41", NUMBER + "'41'"),
    ("./run --devices 1", NUMBER + "'1'"),
    ("./run --devices -3", NUMBER + "'-3'"),
    ("./run --devices=x", NUMBER + "'x'"),
    ("./run --devices 0x10", NUMBER + "'0x10'"),
    ("./run --once --devices", NUMBER + "''"),
    ("./run --frob", "./run: there is no option '--frob'; there are: --devices 2..40, --once, --no-tour, --help"),
    ("./run --once 12", "./run: there is no option '12'; there are: --devices 2..40, --once, --no-tour, --help"),
    ("./run --no-tour --once", "./run: --once ends after the tour, and --no-tour leaves it out"),
    ("./run frob", "There is no order 'frob'; there are: exec, enter, table, log, stop, start, unplug, plug, move, join"),
    ("./run stop", "./run stop is used like this:\n    stop DEVICE             stops its daemon: byebye, and then its end"),
    ("./run exec pc", "./run exec is used like this:\n    exec HOST COMMAND...    runs a command on a host of the plant: pc, kelta-1, "
     "kelta-2 ..."),
    ("./test nix", f"./test: there is no 'nix'; there are: {PRESETS}, tidy, neighbours"),
    ("./test asan bench", f"./test: there is no 'bench'; there are: {PRESETS}, tidy, neighbours"),
    ("./test -R tst_ssdp", "./test: there is no option '-R'; those of ctest come behind \"--\":  ./test -- -R tst_ssdp"),
    ("./test qt4", "./test: qt4" + NO_KIT),
    ("./test release qt4-armhf", "./test: qt4-armhf" + NO_KIT),
    ("bench/qt4", "bench/qt4: this" + NO_KIT),
    ("fuzz/run.sh reeder", "fuzz/run.sh: there is no fuzzer 'reeder'; there are: search, request, announcement, reader, writer"),
    ("fuzz/run.sh -t x", "fuzz/run.sh: -t takes a number from 1 to 999999999, not 'x'"),
    ("fuzz/run.sh -t", "fuzz/run.sh: -t takes a number from 1 to 999999999, not ''"),
    ("fuzz/run.sh -n 0 reader", "fuzz/run.sh: -n takes a number from 1 to 999999999, not '0'"),
    ("fuzz/run.sh -x", "fuzz/run.sh: there is no option '-x'; there are: -n INPUTS, -t SECONDS, --help"),
    ("bench/builds x", "bench/builds: takes no arguments"),
    ("packaging/try.sh x", "packaging/try.sh: takes no arguments"),
    ("scripts/sysroot.sh armhf", "scripts/sysroot.sh: takes an architecture (armhf, arm64) and a folder")])
def test_faults(checkout, command, sentence):
    done = checkout.call(command)
    assert (done.returncode, done.stdout, done.stderr) == (2, "", sentence + "\n")
    assert not checkout.calls


@pytest.mark.parametrize("command, last", [
    ("bench/run serches", "there is no bench serches; there are: searches, descriptions, announcements, listings, footprint, "
     "exact, classes"),
    ("bench/run --rounds x", "argument --rounds: invalid int value: 'x'"),
    ("bench/run --rounds 0", "--rounds takes a number from 1 on, not '0'"),
    ("bench/run --write-docs searches", "--write-docs goes with all benches: the page shows all of them")])
def test_faults_of_benches(checkout, command, last):
    done = checkout.call(command)
    assert (done.returncode, done.stdout) == (2, "")
    assert done.stderr.splitlines()[-1] == f"bench/run: error: {last}"
    assert not checkout.calls


@pytest.mark.parametrize("command, machine", [("qt4", b"\x28\0"), ("qt4-asan", b"\x28\0"), ("qt4-armhf", b"\x3e\0")])
def test_a_kit_for_another_processor(checkout, tmp_path, command, machine):
    qmake = tmp_path / "bin" / "qmake"
    qmake.parent.mkdir()
    qmake.write_text(f"#!/bin/sh\necho {tmp_path}\n")
    qmake.chmod(0o755)
    (tmp_path / "libQtCore.so.4").write_bytes(b"\x7fELF" + bytes(14) + machine)
    checkout.qt4_kit = str(tmp_path)
    done = checkout.call(f"./test {command}")
    assert (done.returncode, done.stdout) == (2, "")
    assert done.stderr == f"./test: {command} needs a Qt 4.8 for another processor than that in QT4_KIT, {tmp_path}\n"
    assert not checkout.calls


def test_every_preset_with_tests_can_be_tested(checkout):
    assert checkout.presets("testPresets").keys() - {"base"} == set(PRESETS.split(", "))


@pytest.mark.parametrize("command, announced, options", [
    ("fuzz/run.sh -t 5 reader", "== fuzz_reader: 5 seconds, ", ["-runs=-1", "-max_total_time=5"]),
    ("fuzz/run.sh -n 7 reader", "== fuzz_reader: 7 inputs, ", ["-runs=7", "-max_total_time=0"]),
    ("fuzz/run.sh -n 7 -t 5 reader", "== fuzz_reader: 7 inputs, 5 seconds, ", ["-runs=7", "-max_total_time=5"]),
    ("fuzz/run.sh reader", "== fuzz_reader: 10000000 inputs, ", ["-runs=10000000", "-max_total_time=0"])])
def test_fuzzing_announces_what_it_does(checkout, command, announced, options):
    program = checkout.folder / "build-fuzz/fuzz/fuzz_reader"
    program.parent.mkdir(parents=True)
    program.write_text('#!/bin/sh\nprintf "%s\\n" "$@" >"$CALLS.options"\necho "Done 1 runs in 0 second(s)"\n')
    program.chmod(0o755)
    done = checkout.call(command)
    assert done.returncode == 0, done.stderr
    assert announced in done.stdout
    given = pathlib.Path(checkout.environment["CALLS"] + ".options").read_text().splitlines()
    assert set(options) <= set(given)


@pytest.mark.parametrize("command", ["./run", "./run --once", "./test", "./test tidy", "./test asan", "fuzz/run.sh", "bench/run"])
def test_a_folder_that_cannot_be_written_to(checkout, command):
    checkout.folder.chmod(0o555)
    other_user = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"] if os.geteuid() == 0 else []
    done = checkout.call(command, *other_user)
    checkout.folder.chmod(0o755)
    assert (done.returncode, done.stdout) == (2, "")
    assert re.fullmatch(r"\S+: cannot write into \S+, where it builds\. Take a copy of this folder that is yours\.\n", done.stderr)
    assert not checkout.calls


@pytest.mark.parametrize("command", ["./run --help | true", "./test --help | true", "fuzz/run.sh --help | true",
                                     "bench/run --help | true", "./run move --help | true", "./test | head -n 1"])
def test_nobody_reads(checkout, command):
    checkout.stub("cmake", "#!/bin/sh\nyes | head -n 50000\n")
    done = checkout.pipe(command)
    assert "Traceback" not in done.stderr and len(done.stderr.splitlines()) <= 1
