"""What the demonstration prints."""

import io
import pathlib
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent.parent))

from simdevice import reports
from simdevice.plant import Heard, _address
from simdevice.reports import Reports
from simdevice.screen import Screen, clean


class Stream(io.StringIO):
    def reconfigure(self, **_options) -> None:
        pass


@pytest.fixture
def stream():
    return Stream()


@pytest.fixture
def screen(stream):
    return Screen(stream)


def test_nothing_steers_the_terminal():
    steering = [*range(0x20), *range(0x7f, 0xa0), 0x061c, 0x200e, 0x200f, *range(0x2028, 0x202f), *range(0x2066, 0x206a)]
    assert clean("".join(map(chr, steering))) == "?" * len(steering)
    assert clean("Kölner Gerät … ✓ │ €") == "Kölner Gerät … ✓ │ €"


def test_every_line_is_cleaned(screen, stream):
    for say in (screen.heading, screen.text, screen.event, screen.good, screen.bad, screen.quote, screen.progress):
        say("a\x1b[31mb\u202ec")
    assert stream.getvalue().count("a?[31mb?c") == 7


def test_a_quoted_line_that_is_too_long_is_folded_between_words(screen, stream):
    screen.quote("  " + "word " * 30)
    lines = stream.getvalue().splitlines()
    assert len(lines) == 2 and max(map(len, lines)) <= 100
    assert " ".join(lines).split().count("word") == 30


def test_repetitions_are_gathered(monkeypatch):
    said, now = [], 0.0
    monkeypatch.setattr(reports.time, "monotonic", lambda: now)
    told = Reports(said.append, lambda text: None)
    heard = Heard("kelta-1", "byebye", "http://10.77.0.11:8200/rootDesc.xml", "", 0)
    line = f"The PC hears kelta-1 say byebye: {heard.location}"
    for _ in range(4000):
        told.add(heard)
    told.gather()
    assert said == [line]
    now = 2.5
    told.gather()
    assert said == [line, f"{line}   3999 times more within 2 seconds"]
    now = 5.0
    told.gather()
    told.add(heard)
    assert said[2:] == [line]


def test_an_alive_without_an_address_is_explained_once():
    explained = []
    told = Reports(lambda text: None, explained.append)
    for number in (1, 2):
        told.add(Heard(f"kelta-{number}", "alive", "http://:8200/rootDesc.xml", "", 0))
        told.add(Heard(f"kelta-{number}", "alive", f"http://10.77.0.1{number}:8200/rootDesc.xml", "", 0))
    assert len(explained) == 1 and "no address" in explained[0]


@pytest.mark.parametrize("ipv4, address", [
    ([{"address": "10.77.0.3", "netmask": "255.0.0.0"}], "10.77.0.3"),
    ([{"netmask": "255.0.0.0"}], ""), ([{"netmask": ""}, {"address": "a"}], "a"), ([], ""), (["a"], ""), ([[{}]], ""),
    ("10.0.0.1", ""), (7, ""), ({"address": "a"}, ""), ([{"address": 1}], "")], ids=str)
def test_addresses_of_strangers(ipv4, address):
    assert _address({"uuid": "1", "ipv4": ipv4}) == address
    assert _address({"uuid": "1"}) == ""
