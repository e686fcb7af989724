#!/usr/bin/python3
"""Changes single places of the product and looks whether a test notices.

  run.py --seed 1 --sample 400           a random sample, the same for the same seed
  run.py --lines scan/siphash.cpp:10-20  every change of these lines; may be repeated, and be a whole file
  run.py --change main                   every change of the lines that differ from a revision; A..B as well
  run.py --seed 1 --sample 400 --report  what is known of it, without trying anything

A change that does not compile, or of which the compiler makes the same code, does not count. Each of the others meets the
unit tests of its folder, those of its users, the fuzzers' seeds, the black-box tests that concern it, and with --thorough the
remaining ones and the sanitizers, until one fails; with --quick no black-box tests. A test that fails beside others is run once more.
What was found out is kept in build-mutation/, so a run that was broken off goes on, and one without --quick takes up what is
left. equivalents.txt has the changes that nobody can notice, each with a reason.

Ends with 0 when every change was noticed, or as many as --at-least and --in-each-folder say, else with 1.
"""

import argparse
import collections
import concurrent.futures
import difflib
import hashlib
import json
import pathlib
import queue
import sys
import threading
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))

import selection
import stages
from tree import FOLDERS, ROOT, BuildError, Tree

WORK = ROOT / "build-mutation"
_LAST_UNIT_STAGE, _LAST_NEAR_STAGE, _LAST_TEST_STAGE, _SANITIZERS = 2, 3, 4, 5  # in stages.NAMES
_UNIT_TESTS_AT_ONCE = 3  # of one mutant
_BLACK_BOX_TESTS_AT_ONCE = 6  # they wait most of the time


def arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--sample", type=int, help="how many, chosen by the seed; of --lines and --change as well")
    parser.add_argument("--lines", action="append", default=[], metavar="FILE:FROM-TO")
    parser.add_argument("--change", metavar="REVISION[..REVISION]")
    parser.add_argument("--quick", action="store_true", help="unit tests and seeds alone")
    parser.add_argument("--thorough", action="store_true", help="all black-box tests and the sanitizers for what is left")
    parser.add_argument("--jobs", type=int, default=1, help="mutants at the same time, each in a build of its own")
    parser.add_argument("--again", action="store_true", help="tries once more what nobody has noticed")
    parser.add_argument("--at-least", type=float, default=100, metavar="PERCENT", help="of the changes have to be noticed")
    parser.add_argument("--in-each-folder", type=float, metavar="PERCENT", help="the same of each folder; as --at-least without it")
    parser.add_argument("--report", action="store_true", help="tries nothing")
    parser.add_argument("--list", action="store_true", help="shows the changes and tries nothing")
    options = parser.parse_args()
    if options.in_each_folder is None:
        options.in_each_folder = options.at_least
    return options


def chosen(options: argparse.Namespace, mutants: list) -> list:
    ranges = [selection.parsed_lines(text) for text in options.lines]
    if options.change:
        ranges += selection.changed_lines(options.change)
    if options.lines or options.change:
        mutants = selection.of_lines(mutants, ranges)
    elif options.sample is None:
        sys.exit("run.py: --sample, --lines or --change says what to try; see --help")
    return selection.sample(mutants, options.seed, options.sample) if options.sample is not None else mutants


def last_stage(options: argparse.Namespace) -> int:
    return _SANITIZERS if options.thorough else _LAST_UNIT_STAGE if options.quick else _LAST_NEAR_STAGE


def key_of(mutant) -> str:
    text = "\0".join((mutant.file, str(mutant.line), str(mutant.begin), mutant.old_lines, mutant.new_lines))
    return hashlib.sha1(text.encode()).hexdigest()


def shown(mutant) -> str:
    old, new = mutant.old_lines.split("\n"), mutant.new_lines.split("\n")
    lines = list(difflib.unified_diff(old, new, lineterm="", n=0))[3:]
    return f"{mutant.file}:{mutant.line} ({mutant.kind})\n" + "".join(f"    {line}\n" for line in lines)


class Known:
    """What was found out, a line of JSON for each mutant; the last one counts."""

    def __init__(self, path: pathlib.Path):
        self._path = path
        self._lock = threading.Lock()
        self._found = {}
        if path.exists():
            for line in path.read_text().splitlines():
                entry = json.loads(line)
                self._found[entry["key"]] = entry

    def get(self, mutant) -> dict:
        return self._found.get(key_of(mutant), {})

    def put(self, mutant, outcome: str, by: str, depth: int) -> None:
        entry = {"key": key_of(mutant), "outcome": outcome, "by": by, "depth": depth}
        with self._lock:
            self._found[entry["key"]] = entry
            with open(self._path, "a") as file:
                file.write(json.dumps(entry) + "\n")


class Runner:
    def __init__(self, options: argparse.Namespace, known: Known):
        self._options = options
        self._known = known
        self._trees = queue.Queue()
        self._sanitized = None
        self._lock = threading.Lock()
        self._begun = time.monotonic()
        self._done = 0

    def prepare(self) -> None:
        for number in range(self._options.jobs):
            tree = Tree(WORK / f"tree{number}")
            print(f"building {tree.build.relative_to(ROOT)}", flush=True)
            tree.prepare(self._options.jobs)
            self._measure(tree, tree.tests, number)
            self._trees.put(tree)

    def _measure(self, tree: Tree, tests: list, number: int) -> None:
        """How long each test takes, and that it passes: what fails without a change shows nothing. Once for all trees."""
        file = WORK / ("durations-sanitizers.json" if number < 0 else "durations.json")
        tree.durations = json.loads(file.read_text()) if file.exists() else {}
        # A test that has changed is measured anew by removing the file.
        new = [test for test in tests if test.name not in tree.durations]
        if new:
            print(f"measuring {len(new)} tests without a change", flush=True)
        with concurrent.futures.ThreadPoolExecutor(_BLACK_BOX_TESTS_AT_ONCE) as pool:
            failed = [test for test, why in zip(new, pool.map(tree.failure, new)) if why]
        # A second time alone, since they may have disturbed one another.
        failed = [test for test in failed if tree.failure(test, log=tree.folder / f"{test.name}.log")]
        if failed:
            print("fails without a change, left out: " + ", ".join(test.name for test in failed), flush=True)
            tree.tests = [test for test in tree.tests if test not in failed]
        file.write_text(json.dumps(tree.durations, indent=1))

    def run(self, mutants: list) -> None:
        self._total = len(mutants)
        with concurrent.futures.ThreadPoolExecutor(self._options.jobs) as pool:
            list(pool.map(self._try, mutants))

    def _try(self, mutant) -> None:
        tree = self._trees.get()
        try:
            outcome, by, depth = self._outcome(tree, mutant)
        finally:
            tree.restore()
            self._trees.put(tree)
        self._known.put(mutant, outcome, by, depth)
        with self._lock:
            self._done += 1
            left = (time.monotonic() - self._begun) / self._done * (self._total - self._done)
            print(f"[{self._done}/{self._total}, {left / 60:.0f} min] {outcome} {by}: {mutant.file}:{mutant.line}", flush=True)

    def _outcome(self, tree: Tree, mutant) -> tuple:
        built = tree.apply(mutant)
        if built != "built":
            return built, "", 0
        last = last_stage(self._options)
        done = -1 if self._options.again else self._known.get(mutant).get("depth", -1)
        for depth, tests in enumerate(stages.of(mutant.file, tree.tests, tree.durations)):
            if done < depth <= last:
                by = _first_failing(tree, tests, has_daemon=depth > _LAST_UNIT_STAGE)
                if by:
                    return "killed", by, depth
            if depth == _LAST_UNIT_STAGE and tree.is_same_when_optimised(mutant):
                return "same", "", depth
        by = self._with_sanitizers(mutant) if last == _SANITIZERS else ""
        return ("killed" if by else "survived"), by, last

    def _with_sanitizers(self, mutant) -> str:
        with self._lock:
            if not self._sanitized:
                self._sanitized = Tree(WORK / "sanitizers", sanitizers=True)
                self._sanitized.prepare(self._options.jobs)
                self._sanitized.tests = [test for test in self._sanitized.tests if test.name.startswith(("tst_", "fuzz."))]
                self._measure(self._sanitized, self._sanitized.tests, -1)
            try:
                if self._sanitized.apply(mutant) != "built":
                    return ""
                for tests in stages.of(mutant.file, self._sanitized.tests, self._sanitized.durations)[:_LAST_UNIT_STAGE + 1]:
                    by = _first_failing(self._sanitized, tests)
                    if by:
                        return f"{by} with sanitizers"
                return ""
            finally:
                self._sanitized.restore()


def _first_failing(tree: Tree, tests: list, has_daemon: bool = False) -> str:
    """The nearest unit test alone, the others some at the same time, since most of them wait. Of those, one that fails is run
    again alone, as it may have failed over the others."""
    if tests and not has_daemon:
        why = tree.failure(tests[0])
        if why:
            return f"{tests[0].name} ({why})"
        tests = tests[1:]
    waiting = collections.deque(tests)
    given_up = threading.Event()
    at_once = _BLACK_BOX_TESTS_AT_ONCE if has_daemon else _UNIT_TESTS_AT_ONCE
    with concurrent.futures.ThreadPoolExecutor(at_once) as pool:
        running = {}
        while waiting or running:
            while waiting and len(running) < at_once:
                test = waiting.popleft()
                running[pool.submit(tree.failure, test, given_up)] = test
            done, _ = concurrent.futures.wait(running, return_when=concurrent.futures.FIRST_COMPLETED)
            for future in done:
                test = running.pop(future)
                why = future.result()
                if why and tree.failure(test):
                    given_up.set()
                    return f"{test.name} ({why})"
    return ""


class Table:
    def __init__(self):
        self._counts = collections.defaultdict(collections.Counter)
        self.survivors = []

    def add(self, mutant, outcome: str) -> None:
        self._counts[mutant.file.split("/")[0]][outcome] += 1
        if outcome == "survived":
            self.survivors.append(mutant)

    def is_enough(self, at_least: float, in_each_folder: float) -> bool:
        """In percent. What has not been tried is not enough."""
        total = sum(self._counts.values(), collections.Counter())
        return (not total["untried"] and _score(total) >= at_least
                and all(_score(count) >= in_each_folder for count in self._counts.values()))

    def text(self) -> str:
        lines = [f"{'folder':10}{'mutants':>9}{'killed':>9}{'equivalent':>12}{'survived':>10}{'score':>9}   not counted"]
        total = collections.Counter()
        for folder in [folder for folder in FOLDERS if folder in self._counts]:
            total += self._counts[folder]
            lines.append(_row(folder, self._counts[folder]))
        lines.append(_row("all", total))
        return "\n".join(lines)


def _score(count: collections.Counter) -> float:
    """In percent; those that nobody can notice do not count."""
    tried = count["killed"] + count["survived"]
    return 100 * count["killed"] / tried if tried else 100


def _row(name: str, count: collections.Counter) -> str:
    tried = count["killed"] + count["survived"]
    score = f"{_score(count):.1f} %" if tried else ""
    uncounted = count["not compiled"] + count["same"]
    return f"{name:10}{tried + count['equivalent']:9}{count['killed']:9}{count['equivalent']:12}{count['survived']:10}{score:>9}{uncounted:14}"


def report(options: argparse.Namespace, mutants: list, known: Known, equivalents: selection.Equivalents) -> int:
    table = Table()
    for mutant in mutants:
        outcome = known.get(mutant).get("outcome", "untried")
        # A listed one that is killed all the same is none.
        if equivalents.reason(mutant) and outcome in ("survived", "untried"):
            outcome = "equivalent"
        table.add(mutant, outcome)
    for mutant in table.survivors:
        print("\nnobody noticed: " + shown(mutant), end="")
    print("\n" + table.text())
    return 0 if table.is_enough(options.at_least, options.in_each_folder) else 1


def main() -> int:
    options = arguments()
    equivalents = selection.Equivalents((HERE / "equivalents.txt").read_text())
    try:
        everything = selection.every()
        mutants = chosen(options, everything)
    except ValueError as error:
        sys.exit(f"run.py: {error}")
    for file, old, new in equivalents.outdated(everything):
        print(f"equivalents.txt: there is no such change in {file} any more: {old!r} to {new!r}")
    if options.list:
        print("\n".join(shown(mutant) for mutant in mutants))
        return 0
    WORK.mkdir(exist_ok=True)
    known = Known(WORK / "outcomes.jsonl")
    waiting = [mutant for mutant in mutants if not equivalents.reason(mutant) and
               (known.get(mutant).get("outcome") is None or
                known.get(mutant)["outcome"] == "survived" and (options.again or known.get(mutant)["depth"] < last_stage(options)))]
    if waiting and not options.report:
        runner = Runner(options, known)
        try:
            runner.prepare()
        except BuildError as error:
            sys.exit(f"run.py: {error}")
        runner.run(waiting)
    return report(options, mutants, known, equivalents)


if __name__ == "__main__":
    sys.exit(main())
