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


def test_targets_and_dependencies_are_those_of_cmake():
    rows = re.findall(r"^\| `[\w/.]+` \| `(\w+)` \| .* \| (.+) \|$", TEXT, re.MULTILINE)
    assert len(rows) == 9
    lists = "\n".join((ROOT / name / "CMakeLists.txt").read_text()
                      for name in ("", "core", "core/kelta", "settings", "upnp", "scan", "json", "monitor"))
    for target, depends in rows:
        linked = " ".join(re.findall(rf"target_link_libraries\({target} \w+ ([^)]*)\)", lists)).split()
        for named in re.findall(r"\w+", depends):
            assert {"QtCore": "qt_core", "QtDBus": "qt_dbus", "QtNetwork": "qt_network"}.get(named, named) in linked, target
