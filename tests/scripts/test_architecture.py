"""docs/architecture.md against the sources: what it names is there."""

import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[2]
TEXT = (ROOT / "docs" / "architecture.md").read_text()
SOURCES = {path: path.read_text() for folder in ("core", "settings", "upnp", "scan", "json", "monitor")
           for path in (ROOT / folder).rglob("*.[ch]*") if path.suffix in (".cpp", ".h")}


def is_defined(scope: str, name: str) -> bool:
    member = re.compile(rf"\b{scope}::{name}\(")
    declared = re.compile(rf"\b(?:class|struct|namespace) {scope}\b")
    free = re.compile(rf"^ *(?!return\b)[\w:<>&*]+ [\w:<>&* ]*\b{name}\([^;]*\)[\w ]*[;{{]?", re.MULTILINE)
    return (any(member.search(text) for text in SOURCES.values())
            or any(declared.search(text) and free.search(text) for text in SOURCES.values()))


def test_every_function_that_is_named_exists():
    named = set(re.findall(r"\b(\w+)::(\w+)\(", TEXT))
    assert len(named) > 30
    assert [f"{scope}::{name}()" for scope, name in sorted(named) if not is_defined(scope, name)] == []


def test_every_file_that_is_named_exists():
    named = set(re.findall(r"`((?:core|settings|upnp|scan|json|monitor)/[\w/]*\.\w+)`", TEXT))
    assert named
    assert [name for name in sorted(named) if not (ROOT / name).is_file()] == []


QT = {"QtCore": "qt_core", "QtDBus": "qt_dbus", "QtNetwork": "qt_network"}


def products(folder: str = "") -> dict:
    """What CMake builds without options, and with what it is linked; what stands in a condition does not count."""
    text = (ROOT / folder / "CMakeLists.txt").read_text()
    found = {target: set() for target in re.findall(r"^add_(?:library|executable)\((\w+)", text, re.MULTILINE)}
    for target, libraries in re.findall(r"^target_link_libraries\((\w+) [A-Z]+ ([^)]*)\)", text, re.MULTILINE):
        found[target].update(libraries.split())
    for below in re.findall(r"^add_subdirectory\(([\w/]+)\)", text, re.MULTILINE):
        found.update(products(f"{folder}/{below}".lstrip("/")))
    return found


def brought(target: str, linked: dict) -> set:
    """All that a target is linked with through those that it is linked with."""
    return set().union(*(linked[one] | brought(one, linked) for one in linked[target] if one in linked))


def test_targets_and_dependencies_are_those_of_cmake():
    rows = re.findall(r"^\| `([\w/.]+)` \| `(\w+)` \| .* \| (.+) \|$", TEXT, re.MULTILINE)
    linked = products()
    assert {"json", "kelta", "upnpvelorn", "upnpvelornctl"} <= set(linked)
    assert sorted(target for _, target, _ in rows) == sorted(linked)
    for folder, target, depends in rows:
        assert (ROOT / folder).exists(), folder
        named = {QT.get(name, name) for name in re.findall(r"\w+", depends)}
        may_be_left_out = brought(target, linked) & set(QT.values())
        assert linked[target] - may_be_left_out <= named <= linked[target], target
