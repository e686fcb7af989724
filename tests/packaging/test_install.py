"""`cmake --install`: every file at its place, and the paths in them are those of the prefix."""

import os
import pathlib
import re
import stat
import subprocess
import xml.etree.ElementTree

import pytest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
BUS_NAME = "com.zorv.upnpvelorn"
FILES = {
    "sbin/upnpvelorn",
    "bin/upnpvelorn-browse",
    "bin/upnpvelornctl",
    "lib/systemd/system/upnpvelorn.service",
    "lib/sysusers.d/upnpvelorn.conf",
    f"share/dbus-1/system.d/{BUS_NAME}.conf",
    "share/dbus-1/interfaces/local.UpnpSettings.xml",
    "share/dbus-1/interfaces/local.ZorvScan.xml",
    "share/dbus-1/interfaces/local.ZorvDevice.xml",
    f"share/dbus-1/interfaces/{BUS_NAME}.Monitor.xml",
    "share/man/man8/upnpvelorn.8",
    "share/man/man1/upnpvelorn-browse.1",
    "share/man/man1/upnpvelornctl.1",
    "share/bash-completion/completions/upnpvelorn-browse",
    "share/bash-completion/completions/upnpvelornctl",
    "share/upnpvelorn/kelta.lua",
    "share/doc/upnpvelorn/README.md",
    "share/doc/upnpvelorn/CHANGELOG.md",
    "share/doc/upnpvelorn/LICENSE",
    "share/doc/upnpvelorn/CONTRIBUTING.md",
    "share/doc/upnpvelorn/bench/README.md",
    "share/doc/upnpvelorn/simdevice/README.md",
}


def install(folder: pathlib.Path, prefix: str, *options: str) -> pathlib.Path:
    """Returns where the prefix is now."""
    subprocess.run([os.environ["CMAKE_COMMAND"], "--install", os.environ["BUILD_FOLDER"], "--prefix", prefix, *options], check=True,
                   stdout=subprocess.DEVNULL, env={**os.environ, "DESTDIR": str(folder)})
    return folder / prefix.lstrip("/")


@pytest.fixture(scope="module")
def installed(tmp_path_factory) -> pathlib.Path:
    return install(tmp_path_factory.mktemp("image"), "/usr")


def files_below(folder: pathlib.Path) -> set:
    return {str(path.relative_to(folder)) for path in folder.rglob("*") if path.is_file()}


def entries(text: str) -> dict:
    """The last value of each key, several of the same key joined."""
    found = {}
    for line in text.splitlines():
        if "=" in line and not line.startswith("#"):
            key, value = line.split("=", 1)
            found[key] = f"{found[key]} {value}" if key in found else value
    return found


def test_every_file_is_at_its_place(installed):
    folder = "share/doc/upnpvelorn"
    expected = set(FILES)
    expected |= {f"{folder}/{file.relative_to(ROOT)}" for file in (ROOT / "docs").rglob("*.*") if file.suffix in (".md", ".svg")}
    expected |= {f"{folder}/examples/{file.name}" for file in (ROOT / "examples").iterdir() if file.is_file()}
    assert files_below(installed) == expected


def test_every_file_is_in_a_debian_package_or_left_out_on_purpose(installed):
    lists = [*(ROOT / "debian").glob("*.install"), ROOT / "debian/not-installed"]
    named = [line for file in lists for line in file.read_text().split()]
    left = {name for name in files_below(installed)
            if not any(f"{prefix}{name}" == one or f"{prefix}{name}".startswith(f"{one}/") for one in named for prefix in ("usr/", ""))}
    assert left == set()


def test_only_programs_are_executable_and_nothing_is_empty(installed):
    modes = {name: (installed / name).stat() for name in files_below(installed)}
    assert {name for name, one in modes.items() if one.st_mode & stat.S_IXUSR} == {"sbin/upnpvelorn", "bin/upnpvelorn-browse", "bin/upnpvelornctl"}
    assert all(one.st_size > 0 and one.st_mode & stat.S_IROTH for one in modes.values())


@pytest.mark.parametrize("prefix", ["/usr", "/opt/some place", "/usr/local"])
def test_service_starts_the_daemon_of_its_prefix(tmp_path, prefix):
    service = entries((install(tmp_path, prefix) / "lib/systemd/system/upnpvelorn.service").read_text())
    assert service["ExecStart"].strip('"') == f"{prefix}/sbin/upnpvelorn"
    assert service["ExecPaths"].split(" -/lib")[0].strip('"') == f"{prefix}/sbin/upnpvelorn"


def test_stripped_it_has_no_symbols(installed, tmp_path):
    def symbols(program: pathlib.Path) -> bool:
        done = subprocess.run(["readelf", "--wide", "--section-headers", program], check=True, text=True, capture_output=True)
        return " .symtab " in done.stdout

    stripped = install(tmp_path, "/usr", "--strip")
    for name in ("sbin/upnpvelorn", "bin/upnpvelornctl"):
        assert symbols(installed / name)
        assert not symbols(stripped / name)


def test_the_tool_needs_no_network_library(installed):
    done = subprocess.run(["readelf", "--dynamic", installed / "bin/upnpvelornctl"], check=True, text=True, capture_output=True)
    assert "DBus.so" in done.stdout and "Network.so" not in done.stdout


def slug(heading: str) -> str:
    """What a heading is called in a link."""
    return re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")


def broken_links(folder: pathlib.Path, documents: list) -> list:
    broken = []
    for document in documents:
        text = re.sub(r"^```.*?^```$", "", document.read_text(), flags=re.MULTILINE | re.DOTALL)
        for link in re.findall(r"\]\(([^)\s]+)\)", text):
            path, _, anchor = link.partition("#")
            target = (document.parent / path).resolve() if path else document
            if re.match("[a-z]+:", link):
                continue
            headings = re.findall(r"^#+ (.*)$", target.read_text(), re.MULTILINE) if anchor and target.is_file() else []
            inside = folder.resolve() in target.parents
            if not inside or not target.exists() or anchor and anchor not in map(slug, headings):
                broken.append(f"{document.relative_to(folder)}: {link}")
    return broken


def test_every_link_of_an_installed_document_leads_somewhere(installed):
    documents = list((installed / "share/doc/upnpvelorn").rglob("*.md"))
    assert len(documents) > 10
    assert broken_links(installed / "share/doc/upnpvelorn", documents) == []


def test_every_link_in_the_source_tree_leads_somewhere():
    documents = [file for file in ROOT.rglob("*.md") if not file.relative_to(ROOT).parts[0].startswith(("build", ".", "obj-"))]
    assert len(documents) > 10
    assert broken_links(ROOT, documents) == []


def test_descriptors_are_as_many_as_the_event_loop_can_watch(installed):
    service = entries((installed / "lib/systemd/system/upnpvelorn.service").read_text())
    has_qt4 = b"libQtCore.so.4" in (installed / "sbin/upnpvelorn").read_bytes()
    assert service["LimitNOFILE"] == ("1024" if has_qt4 else "4096")


def test_no_placeholder_is_left(installed):
    tool = {"bin/upnpvelorn-browse", "share/man/man1/upnpvelorn-browse.1"}  # which say root@ADDRESS
    for name in files_below(installed) - {"sbin/upnpvelorn", "bin/upnpvelornctl"} - tool:
        assert "@" not in (installed / name).read_text().replace("@system-service", "").replace("@privileged", "").replace(
            "@resources", ""), name


def test_the_same_user_everywhere(installed):
    service = entries((installed / "lib/systemd/system/upnpvelorn.service").read_text())
    policy = xml.etree.ElementTree.parse(installed / f"share/dbus-1/system.d/{BUS_NAME}.conf")
    owners = [one.get("user") for one in policy.iter("policy") if any(rule.get("own") for rule in one.iter("allow"))]
    kind, user = (installed / "lib/sysusers.d/upnpvelorn.conf").read_text().splitlines()[-1].split()[:2]
    assert (kind, [user], user) == ("u", owners, service["User"])
