"""Which changes are tried, and which of them count as equivalent."""

import operators
import run
import selection
import stages
import tree

import pytest

SOURCE = "void f()\n{\n    x = a + b;\n    g();\n    x = a + b;\n}\n"
MUTANTS = operators.mutants("scan/x.cpp", SOURCE)


def test_a_sample_is_the_same_for_the_same_seed():
    mutants = list(range(100))
    assert selection.sample(mutants, 7, 10) == selection.sample(mutants, 7, 10)
    assert selection.sample(mutants, 7, 10) != selection.sample(mutants, 8, 10)
    assert selection.sample(mutants, 7, 20)[:10] == selection.sample(mutants, 7, 10)
    assert sorted(selection.sample(mutants, 7, 1000)) == mutants


@pytest.mark.parametrize("text, expected", [
    pytest.param("scan/x.cpp:3-5", ("scan/x.cpp", 3, 5), id="range"),
    pytest.param("scan/x.cpp:3", ("scan/x.cpp", 3, 3), id="one line"),
    pytest.param("scan/x.cpp", ("scan/x.cpp", 1, 1 << 30), id="file"),
])
def test_lines(text, expected):
    assert selection.parsed_lines(text) == expected


def test_lines_that_are_none():
    with pytest.raises(ValueError):
        selection.parsed_lines("scan/x.cpp:a-b")


def test_only_mutants_of_the_lines_are_chosen():
    assert {mutant.line for mutant in selection.of_lines(MUTANTS, [("scan/x.cpp", 3, 4)])} == {3, 4}
    assert selection.of_lines(MUTANTS, [("scan/y.cpp", 3, 4)]) == []


def test_lines_of_a_diff():
    diff = ("--- a/scan/x.cpp\n+++ b/scan/x.cpp\n@@ -1,2 +1,3 @@ void f()\n+a\n@@ -9 +10 @@\n+b\n@@ -20,2 +20,0 @@\n-c\n"
            "--- a/json/y.h\n+++ b/json/y.h\n@@ -0,0 +5 @@\n+d\n")
    assert selection.parsed_diff(diff) == [("scan/x.cpp", 1, 3), ("scan/x.cpp", 10, 10), ("json/y.h", 5, 5)]


def test_generated_files_and_tests_are_left_out():
    names = selection.files()
    assert "scan/zorvscan.cpp" in names and "core/kelta/keltalog.cpp" in names
    assert not set(names) & set(selection.GENERATED)
    assert not [name for name in names if not name.startswith(tree.FOLDERS)]


def test_an_equivalent_is_known_by_its_lines_wherever_they_stand():
    known = selection.Equivalents("# why not\nscan/x.cpp\n-    x = a + b;\n+    x = a - b;\n b is always\n zero\n\nscan/x.cpp\n-g();\n+;\n nothing\n")
    reasons = {(mutant.line, mutant.new_lines): known.reason(mutant) for mutant in MUTANTS}
    assert reasons == {(3, "x = a - b;"): "b is always zero", (5, "x = a - b;"): "b is always zero", (4, ";"): "nothing",
                       (3, ";"): "", (5, ";"): ""}
    assert known.outdated(MUTANTS) == []


def test_an_equivalent_that_is_no_change_any_more_is_told():
    known = selection.Equivalents("scan/x.cpp\n-x = a + c;\n+x = a - c;\n c is zero\n")
    assert known.outdated(MUTANTS) == [("scan/x.cpp", "x = a + c;", "x = a - c;")]


def test_an_equivalent_needs_a_reason():
    with pytest.raises(ValueError):
        selection.Equivalents("scan/x.cpp\n-x = a + b;\n+x = a - b;\n")


def test_the_list_of_equivalents_is_that_of_the_sources():
    known = selection.Equivalents((run.HERE / "equivalents.txt").read_text())
    assert known.outdated(selection.every()) == []


def test_near_and_quick_tests_come_first():
    tests = [tree.Test(name, (), (), 1, folder) for name, folder in (
        ("daemon.run", "daemon"), ("daemon.registry", "daemon"), ("fuzz.reader", "fuzz"), ("tst_zorvscan_bus", "scan"),
        ("tst_jsonlexer", "json"), ("tst_siphash", "scan"), ("tst_dbusvalue", "scan"))]
    stage_names = [[test.name for test in stage] for stage in
                   stages.of("scan/dbusvalue.cpp", tests, {"tst_siphash": 1.0, "tst_zorvscan_bus": 5.0, "tst_dbusvalue": 9.0})]
    assert stage_names == [["tst_dbusvalue", "tst_siphash", "tst_zorvscan_bus"], [], ["fuzz.reader"], ["daemon.registry"], ["daemon.run"]]


def test_all_programs_of_a_class_come_first():
    tests = [tree.Test(name, (), (), 1, "scan") for name in ("tst_siphash", "tst_zorvscan_socket", "tst_zorvscan_bus")]
    durations = {"tst_siphash": 1.0, "tst_zorvscan_socket": 9.0, "tst_zorvscan_bus": 5.0}
    first = stages.of("scan/zorvscan.cpp", tests, durations)[0]
    assert [test.name for test in first] == ["tst_zorvscan_bus", "tst_zorvscan_socket", "tst_siphash"]


def test_the_table_counts_killed_ones_of_those_that_count():
    table = run.Table()
    for outcome in ("killed", "killed", "killed", "survived", "equivalent", "same", "not compiled"):
        table.add(MUTANTS[0], outcome)
    assert table.survivors == [MUTANTS[0]]
    assert table.text().splitlines()[1].split() == ["scan", "5", "3", "1", "1", "75.0", "%", "2"]


@pytest.mark.parametrize("outcomes, at_least, in_each_folder, enough", [
    pytest.param({"core": {"killed": 9}, "scan": {"killed": 1}}, 100, 100, True, id="everything"),
    pytest.param({"core": {"killed": 9}, "scan": {"killed": 1, "survived": 1}}, 100, 50, False, id="one survived"),
    pytest.param({"core": {"killed": 9}, "scan": {"killed": 1, "survived": 1}}, 90, 50, True, id="one may survive"),
    pytest.param({"core": {"killed": 9}, "scan": {"killed": 1, "survived": 1}}, 90, 51, False, id="too many of a folder"),
    pytest.param({"core": {"killed": 9}, "scan": {"same": 2, "equivalent": 1, "not compiled": 1}}, 100, 100, True, id="none that counts"),
    pytest.param({"core": {"killed": 9, "untried": 1}}, 50, 50, False, id="not tried"),
])
def test_when_enough_is_noticed(outcomes, at_least, in_each_folder, enough):
    table = run.Table()
    for folder, counts in outcomes.items():
        for outcome, count in counts.items():
            for _ in range(count):
                table.add(operators.mutants(f"{folder}/x.cpp", SOURCE)[0], outcome)
    assert table.is_enough(at_least, in_each_folder) == enough


def test_what_has_a_unit_test_meets_it():
    for file in stages.IN_THE_DAEMON_ALONE:
        named = f"tst_{file.rpartition('/')[2].removesuffix('.cpp')}"
        assert not list((selection.ROOT / "tests").rglob(f"{named}*.cpp")), file
