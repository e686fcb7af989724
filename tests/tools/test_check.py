"""`upnpvelorn-browse check`: a right device passes, and each planted fault is found, and nothing else with it."""

import concurrent.futures
import re
import subprocess
import time

import pytest

from browsing import Browser, Lines, tool
from clocks import LIBRARY
from fakedevice import FakeDevice, addresses_of, real_rule, redated, with_length
from simdevice.device import png
from simdevice.waiting import wait_for
from texts import ICON_MISSING, icon_answer

FIRST_NUMBER = 20


def replacing(old: bytes, new: bytes):
    def change(data: bytes) -> bytes:
        assert old in data, (old, data)
        return data.replace(old, new)
    return change


def wrong(output: str) -> set:
    """What is wrong by the output."""
    return {re.match("✗ (.*?): ", line)[1] for line in output.splitlines() if line.startswith("✗")}


def needs_man(search: bytes, uuid: bytes) -> bool:
    return real_rule(search, uuid) and b"MAN:" in search


def nothing_from_link_local(data: bytes) -> bytes:
    return b""


def late() -> bool:
    """Longer than the check listens for what may come; nothing else is answered meanwhile."""
    time.sleep(0.8)
    return True


EVERY_SEARCH = {f"search for {name}" for name in (
    "ssdp:all", "ssdp:all to the group", "upnp:rootdevice", "something without MAN and MX", "something in another header", "its UUID",
    "its UDN")}

# What is planted, and the lines that have to be wrong for it, these and no others.
FAULTS = {
    "answer with NT for ST": ({"answer": replacing(b"ST:", b"NT:")}, {"answer"}),
    "answer with another lifetime": ({"answer": replacing(b"max-age=1810", b"max-age=1800")}, {"answer"}),
    "answer with plain line ends": ({"answer": replacing(b"\r\nEXT:", b"\nEXT:")}, {"answer"}),
    "answer without a USN": ({"answer": lambda data: re.sub(rb"USN:[^\r]*\r\n", b"", data)},
                             {"answer", "description and answer", "alive and answer"}),
    "answer with another status line": ({"answer": replacing(b"HTTP/1.1 200", b"HTTP/1.0 200")}, {"answer"}),
    "alive for the device's UUID only": ({"alive": replacing(b"::upnp:rootdevice", b"")}, {"alive", "alive and answer"}),
    "answer with something behind it": ({"answer": lambda data: data + b"\r\n"}, {"answer"}),
    "no version": ({"answer": replacing(b"Kelta/1.4.2,", b"Kelta/,")}, {"SERVER", "description and answer", "alive and answer"}),
    "no address in LOCATION": ({"answer": lambda data: re.sub(rb"http://[^:]*:", b"http://:", data)},
                               {"LOCATION of the answer", "description and answer"}),
    "another address in LOCATION": ({"answer": lambda data: re.sub(rb"http://[^:]*:", b"http://10.77.0.250:", data)},
                                    {"LOCATION of the answer", "description and answer"}),
    "German names in dates": ({"answer": lambda data: redated(data, "Sa, 21 Dez 2026 03:18:17")}, {"date of the answer"}),
    "a seconds field of two digits": ({"answer": lambda data: re.sub(rb":\d+\r\nST", b":07\r\nST", data)}, {"date of the answer"}),
    "a time zone": ({"answer": replacing(b"\r\nST", b" GMT\r\nST")}, {"date of the answer"}),
    "a wrong day of the week": ({"answer": lambda data: redated(data, "Mon, 21 Nov 2026 03:18:7")}, {"date of the answer", "clock"}),
    "a clock that was never set": ({"answer": lambda data: redated(data, "Thu, 01 Jan 1970 00:03:12")}, {"clock"}),
    "the device type answered": ({"rule": lambda search, uuid: real_rule(search, uuid) or b"Basic:1" in search},
                                 {"search with the device type Basic:1"}),
    "lower case answered": ({"rule": lambda search, uuid: real_rule(search.replace(b"m-search", b"M-SEARCH"), uuid)},
                            {"search with the method in lower case"}),
    "a blank answered": ({"rule": lambda search, uuid: real_rule(search.strip(), uuid)}, {"search with a blank before the method"}),
    "lower case answered late": ({"rule": lambda search, uuid: real_rule(search, uuid) or search.startswith(b"m-search") and late()},
                                 {"search with the method in lower case"}),
    "MAN needed": ({"rule": needs_man}, {"search for something without MAN and MX", "search for something in another header",
                                         "search for its UUID"}),
    "the UUID not known": ({"rule": lambda search, uuid: real_rule(search, b"ssdp:all")}, {"search for its UUID", "search for its UDN"}),
    "not in the group": ({"member": False}, {"search for ssdp:all to the group"}),
    "slow answers": ({"delay": 1.1}, {"search for ssdp:all", "search for ssdp:all to the group"}),
    "answers from another port": ({"port": 1901}, EVERY_SEARCH),
    "alive with NT for ST": ({"alive": replacing(b"\r\nST:", b"\r\nNT:")}, {"alive"}),
    "alive with blanks": ({"alive": replacing(b"HOST:", b"HOST: ")}, {"alive"}),
    "alive with time-to-live 1": ({"ttls": (1, 1)}, {"time-to-live of alive"}),
    "alive with another UUID": ({"alive": lambda data: re.sub(rb"1_0-[^:]*", b"1_0-abc", data)}, {"alive and answer"}),
    "alive without an address": ({"alive": lambda data: re.sub(rb"http://[^:]*:", b"http://:", data)}, {"LOCATION of alive"}),
    "alive with French names": ({"alive": lambda data: redated(data, "sam., 21 nov. 2026 03:18:07")}, {"date of alive"}),
    "alive with a short seconds field": ({"alive": lambda data: redated(data, "Sat, 21 Nov 2026 03:18:7")}, {"date of alive"}),
    "Server and Date apart": ({"description": replacing(b"UPnP/1.0Date:", b"UPnP/1.0\r\nDate:")}, {"description"}),
    "a wrong length": ({"description": lambda data: re.sub(rb"(?<=Length: )\d+", b"900", data)}, {"description"}),
    "another UDN": ({"description": lambda data: re.sub(rb"1_0-[^<]{36}", b"1_0-" + b"a" * 36, data)}, {"description and answer"}),
    "another version": ({"description": replacing(b"<modelNumber>1.4.2", b"<modelNumber>1.4.3")},
                        {"description and answer", "description and announcement"}),
    "no serial number": ({"description": lambda data: with_length(re.sub(rb"Number>9000\d+", b"Number>", data)),
                          "announcement": lambda data: re.sub(rb'"uuid":"\d+"', b'"uuid":""', data)}, {"serial number"}),
    "a name with < in it": ({"name": "kel<a"}, {"description"}),
    "an escaped name": ({"name": "kel&lt;a"}, set()),
    "no description": ({"http": False}, {"description"}),
    "no icon": ({"icon": lambda data: ICON_MISSING}, {"icon"}),
    "a small icon": ({"icon": lambda data: icon_answer(png(32)).replace(b"{DATE}", b"Sat, 21 Nov 2026 03:18:07")}, {"icon"}),
    "an icon that is no PNG": ({"icon": lambda data: icon_answer(b"GIF89a" * 20).replace(b"{DATE}", b"")}, {"icon"}),
    "a cut icon": ({"icon": lambda data: data[:-20]}, {"icon"}),
    "404 with a colon": ({"not_found": replacing(b"Server ", b"Server: ")}, {"GET /nothing-here"}),
    "a query served": ({"query": lambda data: b"HTTP/1.1 200 OK\r\n\r\n"}, {"GET /rootDesc.xml?x"}),
    "HEAD answered": ({"served": lambda line: b"HTTP/1.1 200 OK\r\n\r\n" if line[:1] == [b"HEAD"] else None}, {"HTTP method HEAD"}),
    "HEAD answered late": ({"served": lambda line: b"HTTP/1.1 200 OK\r\n\r\n" if line[:1] == [b"HEAD"] and late() else None},
                           {"HTTP method HEAD"}),
    "lower case closed": ({"served": lambda line: b"" if line[:1] == [b"get"] else None}, {"HTTP method get"}),
    "another serial number announced": ({"announcement": lambda data: re.sub(rb'"uuid":"\d+"', b'"uuid":"777"', data)},
                                        {"description and announcement"}),
    "another expiration": ({"announcement": replacing(b":22}", b":30}")}, {"announcement"}),
    "another type announced": ({"announcement": replacing(b'"type":"Kelta"', b'"type":"Kelto"')}, {"announcement"}),
    "two interfaces": ({"announcement": lambda data: data.replace(b'},"services"', b'},"name":"eth1"}},"services"')}, {"announcement"}),
    "another address announced": ({"announcement": lambda data: re.sub(rb"10\.77\.0\.\d+(?=\",\"netmask)", b"10.77.0.251", data)},
                                  {"announced addresses"}),
    "announcement with time-to-live 4": ({"ttls": (32, 4)}, {"time-to-live of the announcement"}),
    "no configuration announced": ({"announcement": replacing(b'"dhcp"', b'""')}, {"announced configuration"}),
    "no alive of the link-local address": ({"link_local": True, "alive_autoip": None}, {"alive of the link-local address"}),
    "the regular UUID for link-local": ({"link_local": True, "answer_autoip": replacing(b"0::upnp", b"::upnp")},
                                        {"search from a link-local address"}),
    "no answer to link-local": ({"link_local": True, "answer_autoip": nothing_from_link_local}, {"search from a link-local address"}),
    "two answers": ({"copies": 2}, EVERY_SEARCH),
    "a second answer a moment later": ({"copies": 2, "copy_delay": 0.2}, EVERY_SEARCH),
    "nothing": ({}, set()),
    "nothing, link-local too": ({"link_local": True}, set()),
}
FAULTS["the serial number of another"] = ({"serial": "4711"}, {"own serial number"})
FAULTS["the UUID of another"] = ({"uuid": "9a1b0c7e-52f4-4d0b-8c6e-2f7d10a4b3ff"}, {"own UUID"})
TWINS = {"serial": "4711"}, {"uuid": "9a1b0c7e-52f4-4d0b-8c6e-2f7d10a4b3ff"}


@pytest.fixture(scope="module")
def checked(shared_lan):
    """All faulty devices stand on one network and are checked there: what came out by fault."""
    pc = Browser(shared_lan.host(addresses=["10.77.0.3/24", "169.254.200.1/16"]))
    numbers = {fault: FIRST_NUMBER + at for at, fault in enumerate(FAULTS)}
    host = shared_lan.host(addresses=addresses_of(*numbers.values(), 200, 201))
    devices = [FakeDevice(shared_lan, numbers[fault], host=host, **planted) for fault, (planted, _) in FAULTS.items()]
    devices += [FakeDevice(shared_lan, 200 + at, host=host, **planted) for at, planted in enumerate(TWINS)]

    def check(fault: str) -> subprocess.CompletedProcess:
        return pc.run("check", f"10.77.0.{numbers[fault]}", "--timeout", "5")

    with concurrent.futures.ThreadPoolExecutor(6) as pool:
        found = dict(zip(FAULTS, pool.map(check, FAULTS)))
    for one in devices:
        one.close()
    return found


@pytest.mark.parametrize("fault", FAULTS)
def test_each_planted_fault_is_found_and_nothing_else(checked, fault):
    done, expected = checked[fault], FAULTS[fault][1]
    assert wrong(done.stdout) == expected, done.stdout
    assert done.returncode == (1 if expected else 0)
    assert all("; a healthy device " in line for line in done.stdout.splitlines() if line.startswith("✗"))


def test_the_time_of_an_answer_is_that_of_its_arrival(pc):
    """Not of its reading, which a busy PC puts off. The kernel may notice the time of a datagram only after the first ones."""
    browse = tool()
    with pc.host.inside():
        asking = browse.asking_socket("10.77.0.3")
    with asking:
        def seems_to_take() -> float:
            sent = time.monotonic()
            asking.sendto(b"x", asking.getsockname())
            time.sleep(0.5)
            [heard] = browse.hear([browse.Listener(asking, "", "")], 0)
            return heard.time - sent

        wait_for(lambda: 0 <= seems_to_take() < 0.3, what="a datagram that waited half a second is not as late as that")


def test_a_real_device_is_right_in_everything(start_device, pc):
    """One with a link-local address too, looked at from a PC that has one; announced and alive are heard as they come."""
    device = start_device(addresses=["10.77.0.2/24", "169.254.1.2/16"])
    pc.host.add_address("169.254.1.3/16")
    with pc.start("check", "10.77.0.2", "--timeout", "20") as running:
        lines = Lines(running)
        lines.wait_for("search with a blank before the method")
        device.call("sendAnnouncement", path="/zorvscan", interface="local.ZorvScan")
        device.call("configureIp")
        rest, err = running.communicate(timeout=20)
    output = "\n".join(lines.seen) + rest
    assert (wrong(output), running.returncode) == (set(), 0), output
    assert "✓ search from a link-local address" in output and "✓ alive of the link-local address" in output
    assert "not looked at" not in err and "–" not in output


def test_the_link_local_address_of_a_real_device(start_device, pc):
    start_device(addresses=["10.77.0.2/24", "169.254.1.2/16"])
    pc.host.add_address("169.254.1.3/16")
    output = pc.run("check", "169.254.1.2", "--timeout", "0").stdout
    assert wrong(output) == set(), output
    assert "✓ LOCATION of the answer: names 169.254.1.2" in output


def test_what_is_not_waited_for_is_not_wrong(start_device, pc):
    start_device()
    done = pc.run("check", "10.77.0.2", "--timeout", "0")
    assert (wrong(done.stdout), done.returncode) == (set(), 0), done.stdout
    assert re.search("^– alive: not waited for", done.stdout, re.MULTILINE)
    assert re.search("^– announcement: not waited for", done.stdout, re.MULTILINE)
    assert done.stderr.endswith(" nothing wrong of 28, 2 not looked at\n")


@pytest.mark.parametrize("silent", ["alive", "announcement"])
def test_silence_is_found(fake, pc, silent):
    """The tool's clocks go forty times faster, so that it does not wait for a hundred seconds."""
    if LIBRARY is None:
        pytest.skip("the package libfaketime is not installed")
    fake(7, **{silent: None})
    hurried = Browser(pc.host, LD_PRELOAD=str(LIBRARY), FAKETIME="+0 x40")
    output = hurried.run("check", "10.77.0.7").stdout
    assert re.search(f"^✗ {silent}: not heard in (10[0-9]|1[0-9]) s; a healthy device ", output, re.MULTILINE), output
    assert not re.search("^✗ (?!search|HTTP|GET|desc|icon)(?!alive|announcement)", output, re.MULTILINE), output


def test_late_announcements_are_found(fake, pc):
    """The tool's clocks go sixty times faster: half a second is half a minute."""
    if LIBRARY is None:
        pytest.skip("the package libfaketime is not installed")
    asked = []

    def answer(data: bytes) -> bytes:
        asked.append(time.monotonic())
        return data

    def later(seconds: float):
        return lambda data: data if asked and time.monotonic() - asked[0] > seconds else b""

    fake(7, answer=answer, announcement=later(0.5), alive=later(0.8))
    output = Browser(pc.host, LD_PRELOAD=str(LIBRARY), FAKETIME="+0 x60").run("check", "10.77.0.7").stdout
    assert re.search("^✗ time without an announcement: [3-9][0-9] s; a healthy device sends one every 10 s$", output, re.MULTILINE), output


def test_nobody_at_the_address(pc):
    done = pc.run("check", "10.77.0.9")
    assert wrong(done.stdout) == {"search for ssdp:all", "search for ssdp:all to the group", "description"}
    assert "Nothing answers at 10.77.0.9: is it on" in done.stderr
    assert done.returncode == 1


def test_no_way_to_the_address(pc):
    pc.host.no_default_route()
    done = pc.run("check", "192.168.7.7")
    assert (done.stdout, done.returncode) == ("", 1)
    assert "There is no way to 192.168.7.7 from here (Network is unreachable)" in done.stderr


def test_as_json(fake, pc):
    fake(7, ttls=(1, 1))
    found = pc.objects("check", "10.77.0.7", "--timeout", "5")
    assert all(set(one) == {"right", "what", "seen", "healthy"} for one in found)
    assert [one for one in found if not one["right"]] == [
        {"right": False, "what": "time-to-live of alive", "seen": "1", "healthy": "sends with 32"}]


def test_waiting_shows_on_a_terminal(fake, pc):
    fake(7, alive=None)
    shown = pc.on_terminal("check", "10.77.0.7", "--timeout", "1.2", columns=120)
    assert "Waiting for alive (every 100 s) and announcement (every 10 s): 1 of at most 1.2 s" in shown
    assert "\x1b[32m✓\x1b[0m search for ssdp:all" in shown


def test_one_network_interface_of_two(fake, pc, lan):
    """The device is asked from the interface that is named."""
    fake(7)
    pc.host.add_interface("eth1", ["10.77.0.4/24"])
    assert pc.run("check", "10.77.0.7", "--timeout", "3", "--interface", "eth1").returncode == 0
    assert "No interface eth9 is up" in pc.run("check", "10.77.0.7", "--interface", "eth9").stderr
