"""The check of a release: the versions of this checkout, and the record of a small repository whose suites are short."""

import importlib.util
import os
import pathlib
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
TOLD_BY_CTEST = "100% tests passed, 0 tests failed out of 133"


def loaded():
    described = importlib.util.spec_from_file_location("release", ROOT / "scripts/release.py")
    module = importlib.util.module_from_spec(described)
    described.loader.exec_module(module)
    return module


class Repository:
    """`suites`: commands by their names."""

    def __init__(self, folder: pathlib.Path, monkeypatch, **suites: str):
        self.release, self.folder = loaded(), folder / "checkout"
        self.folder.mkdir()
        for name, value in {"ROOT": self.folder, "CACHE": folder / "cache", "SUITES": suites}.items():
            monkeypatch.setattr(self.release, name, value)
        self.git("init", "--quiet")
        self.commit("CMakeLists.txt", "project(upnpvelorn VERSION 2.3.4 LANGUAGES CXX\n")

    def git(self, *arguments: str) -> None:
        subprocess.run(["git", "-c", "user.name=tests", "-c", "user.email=tests@zorv.example", *arguments], cwd=self.folder, check=True,
                       stdout=subprocess.DEVNULL)

    def commit(self, file: str, text: str) -> None:
        (self.folder / file).write_text(text)
        self.git("add", "--all")
        self.git("commit", "--quiet", "--message", file)

    @property
    def commits(self) -> list:
        return self.release.output_of("git", "log", "--reverse", "--format=%H").splitlines()

    @property
    def results(self) -> list:
        return [(run.suite, run.result) for run in self.release.recorded()]


@pytest.fixture
def repository(tmp_path, monkeypatch):
    return lambda **suites: Repository(tmp_path, monkeypatch, **suites)


def test_the_version_is_the_same_everywhere():
    """The date in CHANGELOG.md comes with the release, and what is built may not be built here."""
    release = loaded()
    named = {place: found for place, found in release.named_versions().items() if not place.startswith(("build/", "CHANGELOG"))}
    assert len(named) >= 5 and set(named.values()) == {release.version()}
    assert f"## {release.version()} (" in (ROOT / "CHANGELOG.md").read_text()


def test_every_suite_can_be_executed():
    for command in loaded().SUITES.values():
        assert (ROOT / command.split()[0]).is_file()
        assert os.access(ROOT / command.split()[0], os.X_OK), command


def test_what_is_run_is_written_down(repository):
    here = repository(good=f"echo building; echo '{TOLD_BY_CTEST}'; echo bye", bad="echo oops; exit 3")
    assert not here.release.run_suites([])
    assert here.results == [("good", f"passed: {TOLD_BY_CTEST}"), ("bad", "FAILED with status 3")]
    assert here.release.run_suites(["bad"]) is False
    assert len(here.results) == 3


def test_each_fuzzer_is_written_down(repository):
    here = repository(fuzzers="echo 'one  7 inputs  nothing found'; echo 'other  8 inputs  nothing found'")
    assert here.release.run_suites([])
    assert here.results == [("fuzzers", "passed: one 7 inputs nothing found; other 8 inputs nothing found")]


def test_the_last_run_counts(repository):
    here = repository(once="test ! -e ../failed || exit 0; touch ../failed; exit 1")
    assert [here.release.run_suites([]), here.release.run_suites([])] == [False, True]
    assert here.results == [("once", "FAILED with status 1"), ("once", "passed")]
    assert here.release.run_suites([]) and len(here.results) == 2


def test_a_run_counts_for_its_commit_only(repository):
    here = repository(good="true")
    assert here.release.run_suites([]) and here.release.check_record()
    here.commit("releases/note", "more about it")
    assert here.release.check_record()
    here.commit("main.cpp", "int main() {}")
    assert not here.release.check_record()


def test_a_review_of_the_mutation_sample_counts_for_the_same_sample(repository):
    here = repository(mutation="test -f tests/mutation/equivalents.txt && cat built; echo {seed} > built; test -f tests/mutation/equivalents.txt")
    assert not here.release.run_suites([])
    (here.folder / "tests/mutation").mkdir(parents=True)
    here.commit("tests/mutation/equivalents.txt", "reviewed")
    assert here.release.run_suites([])
    seeds = [path.read_text() for path in here.release.CACHE.glob("*/built")]
    assert len(seeds) == 1 and (here.release.CACHE / f"{here.commits[-1][:12]}-mutation.log").read_text() == seeds[0]
    here.commit("main.cpp", "int main() {}")
    assert not here.release.check_record()


def test_what_is_not_committed_is_not_tested(repository, capsys):
    here = repository(good="true")
    (here.folder / "new.cpp").write_text("")
    assert not here.release.run_suites([])
    assert here.results == [] and "Commit or remove: new.cpp" in capsys.readouterr().out


def test_a_commit_of_nobody_is_none(repository):
    here = repository(good="true")
    (here.folder / "releases").mkdir()
    here.commit("releases/2.3.4.md", "| suite | command | commit | begun | minutes | result |\n|---|---|---|---|---|---|\n"
                                     "| good | `true` | 0123456789ab | 2026-11-21 10:00 UTC | 1 | passed |\n")
    assert not here.release.check_record()


def test_nobody_reads_on():
    done = subprocess.run(["bash", "-c", f"{ROOT}/scripts/release.py --help | head -n 1; for i in 1 2 3; do {ROOT}/scripts/release.py list; done | true"],
                          capture_output=True, text=True, timeout=30)
    assert done.stdout and done.stderr == ""


@pytest.mark.parametrize("line, told", [
    (TOLD_BY_CTEST + "\n", TOLD_BY_CTEST),
    ("\x1b[32m99% tests passed, 1 tests failed out of 9\x1b[0m\n", "99% tests passed, 1 tests failed out of 9"),
    ("==== 12 passed, 1 skipped in 3.21s ====\n", "12 passed, 1 skipped in 3.21s"),
    ("Everything is as it should be.\n", "Everything is as it should be."),
    ("progress 1\rprogress 2\rverdict: everything held\n", "verdict: everything held"),
    ("all          400      390           8         2   99.5 %\n", "all 400 390 8 2 99.5 %"),
    ("reader            10000000 inputs  cov: 1 ft: 2  nothing found\n", "reader 10000000 inputs cov: 1 ft: 2 nothing found"),
    ("all is well, says nobody\n", ""),
    ("Building\n", ""),
])
def test_what_tells_how_it_went(line, told):
    assert loaded().telling(line) == told
