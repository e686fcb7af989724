"""The description server: what it answers, to whom, and that no client can stop it."""

import contextlib
import os
import pathlib
import resource
import select
import socket
import xml.etree.ElementTree

import pytest

from simdevice.device import ADDRESS, HTTP_PORT, ICON, default_program, png
from simdevice.waiting import wait_for
from texts import (ANSWER, AUTOIP, DESCRIPTION, DESCRIPTION_AUTOIP, ICON_MISSING, NOT_FOUND, UUID, icon_answer,
                   replaced)
from wirebytes import compare_bytes

GET = b"GET /rootDesc.xml HTTP/1.1\r\n\r\n"
GET_ICON = b"GET /icons/kelta_icon48.png HTTP/1.1\r\n\r\n"
HEADERS = b"".join(b"Header-%d: value\r\n" % number for number in range(20)) + b"\r\n"
MEGABYTE = 1 << 20
LINK_LOCAL_PEER = "169.254.7.7"


def served(peer) -> None:
    """The server answers others now. What arrived before has been seen by then."""
    compare_bytes(peer.http_raw(GET), DESCRIPTION)


def is_read(device, connection) -> None:
    """Waits until the daemon has all that was sent: two lines that come together are one signal."""
    wait_for(lambda: not connection.in_flight() and not device.unread(HTTP_PORT), what="what was sent is read")


def silent(device, peer, connection) -> None:
    """Neither answered nor closed, although others are served meanwhile."""
    is_read(device, connection)
    served(peer)
    served(peer)
    assert connection.nothing_to_read()


# Request lines

@pytest.mark.parametrize("request_line", [
    pytest.param(GET, id="usual"),
    pytest.param(b"GET /rootDesc.xml HTTP/1.1\r\n", id="no empty line needed"),
    pytest.param(b"GET /rootDesc.xml HTTP/1.0\r\n\r\n", id="version 1.0"),
    pytest.param(b"GET /rootDesc.xml\r\n", id="no version"),
    pytest.param(b"GET /rootDesc.xml\n", id="line feed only"),
    pytest.param(b"GET /rootDesc.xml\rHTTP/1.1\n", id="carriage return as separator"),
    pytest.param(b"GET\r/rootDesc.xml\n", id="carriage return before the path"),
    pytest.param(b"GET  /rootDesc.xml HTTP/1.1\r\n", id="two blanks"),
    pytest.param(b"GET \r \r  /rootDesc.xml  \r\r HTTP/1.1\r\n", id="a run of separators"),
    pytest.param(b"GET /rootDesc.xml \t nonsense \xff\r\n", id="anything behind the path"),
    pytest.param(b"GET /rootDesc.xml\0more HTTP/1.1\r\n", id="cut at the first NUL"),
    pytest.param(b"GET /rootDesc.xml HTTP/1.1\r\n" + HEADERS, id="with headers"),
    pytest.param(b"GET /rootDesc.xml HTTP/1.1\r\nContent-Length: 5\r\n\r\n12345", id="with a body"),
    pytest.param(GET * 3, id="three requests get one answer"),
])
def test_description(shared_device, shared_peer, request_line):
    compare_bytes(shared_peer.http_raw(request_line), DESCRIPTION)


@pytest.mark.parametrize("request_line", [
    pytest.param(b"GET / HTTP/1.1\r\n\r\n", id="root"),
    pytest.param(b"GET /rootDesc.xml?query HTTP/1.1\r\n\r\n", id="query"),
    pytest.param(b"GET /rootDesc.xml? HTTP/1.1\r\n\r\n", id="empty query"),
    pytest.param(b"GET /icons/kelta_icon48.png?query HTTP/1.1\r\n\r\n", id="icon with a query"),
    pytest.param(b"GET /rootDesc.xml/ HTTP/1.1\r\n\r\n", id="trailing slash"),
    pytest.param(b"GET /rootdesc.xml HTTP/1.1\r\n\r\n", id="lower case"),
    pytest.param(b"GET rootDesc.xml HTTP/1.1\r\n\r\n", id="no slash"),
    pytest.param(b"GET //rootDesc.xml HTTP/1.1\r\n\r\n", id="two slashes"),
    pytest.param(b"GET /rootDesc.xm HTTP/1.1\r\n\r\n", id="cut short"),
    pytest.param(b"GET /%72ootDesc.xml HTTP/1.1\r\n\r\n", id="percent sign"),
    pytest.param(b"GET http://10.77.0.2:8200/rootDesc.xml HTTP/1.1\r\n\r\n", id="whole address"),
    pytest.param(b"GET /icons/../rootDesc.xml HTTP/1.1\r\n\r\n", id="dots"),
    pytest.param(b"GET /icons/../../../../etc/passwd HTTP/1.1\r\n\r\n", id="other files"),
    pytest.param(b"GET \t/rootDesc.xml HTTP/1.1\r\n\r\n", id="tab before the path"),
    pytest.param(b"GET /rootDesc.xml\tHTTP/1.1\r\n\r\n", id="tab behind the path"),
    pytest.param(b"GET \0/rootDesc.xml HTTP/1.1\r\n\r\n", id="NUL before the path"),
    pytest.param(b"GET /\xff\xe9\x80 HTTP/1.1\r\n\r\n", id="8-bit path"),
    pytest.param(b"GET /%s%n%d HTTP/1.1\r\n\r\n", id="formats"),
    pytest.param(b"GET \r\n", id="no path"),
    pytest.param(b"GET\r\n", id="method only"),
    pytest.param(b"GET\n", id="method and line feed only"),
    pytest.param(b"GET /" + b"x" * 100_000 + b" HTTP/1.1\r\n\r\n", id="path of 100 kB"),
    pytest.param(b"GET /rootDesc.xml" + b"x" * 100_000 + b"\r\n", id="known path with 100 kB behind it"),
])
def test_unknown_path(shared_device, shared_peer, request_line):
    compare_bytes(shared_peer.http_raw(request_line), NOT_FOUND)


@pytest.mark.parametrize("request_line", [
    pytest.param(b"HEAD /rootDesc.xml HTTP/1.1\r\n\r\n", id="HEAD"),
    pytest.param(b"POST /rootDesc.xml HTTP/1.1\r\n\r\n", id="POST"),
    pytest.param(b"get /rootDesc.xml HTTP/1.1\r\n\r\n", id="lower case"),
    pytest.param(b"Get /rootDesc.xml HTTP/1.1\r\n\r\n", id="capital letter only"),
    pytest.param(b"GETT /rootDesc.xml HTTP/1.1\r\n\r\n", id="longer method"),
    pytest.param(b"GE /rootDesc.xml HTTP/1.1\r\n\r\n", id="shorter method"),
    pytest.param(b" GET /rootDesc.xml HTTP/1.1\r\n\r\n", id="leading blank"),
    pytest.param(b"\tGET /rootDesc.xml HTTP/1.1\r\n\r\n", id="leading tab"),
    pytest.param(b"\rGET /rootDesc.xml HTTP/1.1\n", id="leading carriage return"),
    pytest.param(b"GET\t/rootDesc.xml HTTP/1.1\r\n\r\n", id="tab behind the method"),
    pytest.param(b"GET/rootDesc.xml HTTP/1.1\r\n\r\n", id="no blank"),
    pytest.param(b"\0GET /rootDesc.xml HTTP/1.1\r\n\r\n", id="leading NUL"),
    pytest.param(b"G\0ET /rootDesc.xml HTTP/1.1\r\n\r\n", id="NUL in the method"),
    pytest.param(b"\r\n", id="empty line"),
    pytest.param(b"\n\n\n", id="line feeds"),
    pytest.param(b"\xff\xfe\r\n", id="8-bit bytes"),
    pytest.param(b"\x16\x03\x01\x02\0\x01\0\x01\xfc\x03\x03\n", id="TLS"),
    pytest.param(b"GET /rootDesc.xml HTTP/1.1", id="no line end"),
    pytest.param(b"GET /rootDesc.xml HTTP/1.1\r", id="carriage return only"),
])
def test_gets_no_answer_and_stays_open(shared_device, shared_peer, request_line):
    with shared_peer.connect() as connection:
        connection.send(request_line)
        silent(shared_device, shared_peer, connection)


def test_nothing_sent_gets_no_answer(shared_device, shared_peer):
    with shared_peer.connect() as connection:
        silent(shared_device, shared_peer, connection)


def test_request_line_in_two_segments_is_answered_after_the_second(shared_device, shared_peer):
    with shared_peer.connect() as connection:
        connection.send(b"GET /rootDesc.xml HTTP/1.1")
        silent(shared_device, shared_peer, connection)
        connection.send(b"\r\n")
        compare_bytes(connection.receive_until_close(), DESCRIPTION)


def test_request_line_byte_by_byte(shared_device, shared_peer):
    with shared_peer.connect() as connection:
        for position in range(len(GET) - 3):
            connection.send(GET[position:position + 1])
            served(shared_peer)
            assert connection.nothing_to_read()
        connection.send(b"\n")
        compare_bytes(connection.receive_until_close(), DESCRIPTION)


def test_one_line_for_each_arrival(shared_device, shared_peer):
    """The line behind one that is no GET waits for the next arrival, and is then judged the same way."""
    with shared_peer.connect() as connection:
        connection.send(b"HEAD / HTTP/1.1\r\nGET /rootDesc.xml HTTP/1.1\r\n")
        silent(shared_device, shared_peer, connection)
        connection.send(b"\r\n")
        compare_bytes(connection.receive_until_close(), DESCRIPTION)


def test_lines_that_are_no_get_are_used_up_one_by_one(shared_device, shared_peer):
    with shared_peer.connect() as connection:
        connection.send(b"one\r\ntwo\r\n\r\nGET /nothing HTTP/1.1\r\n")
        for _ in range(2):
            silent(shared_device, shared_peer, connection)
            connection.send(b"x")
        silent(shared_device, shared_peer, connection)
        connection.send(b"x")
        compare_bytes(connection.receive_until_close(), NOT_FOUND)


def test_a_connection_serves_after_lines_that_are_no_get(shared_device, shared_peer):
    with shared_peer.connect() as connection:
        for line in (b"HEAD /rootDesc.xml HTTP/1.1\r\n", b"get /rootDesc.xml\r\n", b"\r\n"):
            connection.send(line)
            silent(shared_device, shared_peer, connection)
        connection.send(b"GET /rootDesc.xml\r\n")
        compare_bytes(connection.receive_until_close(), DESCRIPTION)


def test_a_peer_that_resets_behind_its_request_leaves_no_log_line(shared_device, shared_peer):
    for path in (b"/rootDesc.xml", b"/icons/kelta_icon48.png", b"/nothing") * 20:
        connection = shared_peer.connect()
        connection.send(b"GET ")
        is_read(shared_device, connection)
        connection.send(path + b" HTTP/1.1\r\n")
        connection.reset()
    served(shared_peer)
    assert shared_device.syslog.lines == []


# The description

def test_header_has_five_line_ends_before_the_empty_line(shared_device, shared_peer):
    head = shared_peer.http_raw(GET).partition(b"\r\n\r\n")[0] + b"\r\n"
    assert head.count(b"\r\n") == 5
    assert head.split(b"\r\n")[4].startswith(b"Server: Kelta/1.4.2, UPnP/1.0Date: ")


def test_document_is_one_line_and_readable_xml_with_the_identity(shared_device, shared_peer):
    document = shared_peer.http_raw(GET).partition(b"\r\n\r\n")[2]
    assert not set(document) & set(b"\r\n")
    root = xml.etree.ElementTree.fromstring(document)
    name = "{urn:schemas-upnp-org:device-1-0}"
    assert root.tag == f"{name}root"
    device = root.find(f"{name}device")
    assert {one.tag.removeprefix(name): one.text for one in device if len(one) == 0} == {
        "deviceType": "urn:schemas-upnp-org:device:Basic:1", "friendlyName": "kelta", "manufacturer": "Zorv",
        "manufacturerURL": "http://www.zorv.example", "modelDescription": "Zorv Kelta industrial measurement",
        "modelName": "Kelta", "modelNumber": "1.4.2", "modelURL": "http://www.zorv.example/kelta",
        "serialNumber": "KM-2044817", "UDN": f"uuid:Upnp-BasicDevice-1_0-{UUID}", "UPC": None, "serviceList": None,
        "presentationURL": f"http://{ADDRESS}/"}
    assert device.findtext(f"{name}iconList/{name}icon/{name}url") == "/icons/kelta_icon48.png"


def test_values_are_not_escaped_and_length_counts_bytes(start_device, peer):
    device = start_device(daemon="off")
    device.fwconfig.set(hostname="a&b", zorvversion="<1>&amp;", constants={"SERIALNUMBER": "\"'&<"})
    device.start()
    compare_bytes(peer.http_raw(GET),
                  replaced(DESCRIPTION, version="<1>&amp;", hostname="a&b", serial="\"'&<"))


def test_an_empty_address_gives_urls_without_a_host(start_device, peer):
    device = start_device()
    device.connman.ipv4()
    wait_for(lambda: device.call("getAddressStr") == "", what="the address is gone")
    expected = replaced(DESCRIPTION, address="")
    assert b"<URLBase>http:///</URLBase>" in expected
    compare_bytes(peer.http_raw(GET), expected)


def test_a_link_local_peer_gets_the_link_local_document(start_device, peer):
    start_device(addresses=[f"{ADDRESS}/24", f"{AUTOIP}/16"])
    peer.host.add_address(f"{LINK_LOCAL_PEER}/16")
    compare_bytes(peer.http_raw(GET, address=AUTOIP, from_address=LINK_LOCAL_PEER), DESCRIPTION_AUTOIP)
    compare_bytes(peer.http_raw(GET), DESCRIPTION)
    compare_bytes(peer.http_raw(GET, address=AUTOIP, from_address="10.77.0.3"), DESCRIPTION)


def test_a_link_local_peer_gets_the_regular_document_of_a_device_without_link_local_address(device, peer):
    peer.host.add_address(f"{LINK_LOCAL_PEER}/16")
    compare_bytes(peer.http_raw(GET, from_address=LINK_LOCAL_PEER), DESCRIPTION)


def test_document_follows_the_address(device, peer):
    device.connman.ipv4("10.0.0.5")
    wait_for(lambda: device.call("getAddressStr") == "10.0.0.5", what="the new address")
    compare_bytes(peer.http_raw(GET), replaced(DESCRIPTION, address="10.0.0.5"))


# The icon

def test_icon(shared_device, shared_peer):
    compare_bytes(shared_peer.http_raw(GET_ICON), icon_answer(png()))


@pytest.mark.parametrize("content", [pytest.param(b"", id="empty"), pytest.param(b"\0\r\n" * 7, id="not a picture"),
                                     pytest.param(bytes(range(256)) * 12_000, id="3 MB")])
def test_icon_is_whatever_the_file_holds_now(device, peer, content):
    device.set_icon(content)
    compare_bytes(peer.http_raw(GET_ICON), icon_answer(content))


def test_icon_missing_gives_the_bare_text(device, peer):
    device.set_icon(None)
    compare_bytes(peer.http_raw(GET_ICON), ICON_MISSING)
    device.room.path(ICON).mkdir()
    compare_bytes(peer.http_raw(GET_ICON), ICON_MISSING)
    device.room.path(ICON).rmdir()
    device.set_icon(b"back")
    compare_bytes(peer.http_raw(GET_ICON), icon_answer(b"back"))


def test_a_description_that_the_kernel_does_not_take_at_once(start_device, peer):
    device = start_device(daemon="off")
    version = "9" * 2 * MEGABYTE
    device.fwconfig.set(zorvversion=version)
    device.start()
    expected = replaced(DESCRIPTION, version=version)
    compare_bytes(peer.http_raw(GET), expected)
    with peer.connect() as late:
        late.send(GET)
        compare_bytes(peer.http_raw(GET), expected)  # meanwhile nobody reads what the other one gets
        compare_bytes(late.receive_until_close(), expected)


# Clients that end early, late or never

@pytest.mark.parametrize("request_line, size", [
    pytest.param(GET, None, id="description"), pytest.param(b"GET /no\r\n", None, id="unknown path"),
    pytest.param(GET_ICON, 100, id="small icon"), pytest.param(GET_ICON, 6 * MEGABYTE, id="large icon")])
def test_a_client_that_has_shut_its_side_gets_everything(device, peer, request_line, size):
    if size:
        device.set_icon(os.urandom(size))
    expected = (icon_answer(device.room.path(ICON).read_bytes()) if size else
                NOT_FOUND if b"/no" in request_line else DESCRIPTION)
    with peer.connect() as connection:
        connection.send(request_line)
        connection.half_close()
        compare_bytes(connection.receive_until_close(), expected)


def test_a_slow_reader_of_a_large_icon_gets_every_byte_and_nobody_waits_for_it(device, peer):
    icon = os.urandom(8 * MEGABYTE)
    device.set_icon(icon)
    with peer.host.socket(socket.SOCK_STREAM) as slow:
        slow.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
        slow.settimeout(10)
        slow.connect((ADDRESS, HTTP_PORT))
        slow.sendall(GET_ICON)
        got = slow.recv(1000)
        for _ in range(10):
            compare_bytes(peer.search()[0].data, ANSWER)
            assert device.call("getUdpPort") == 1900
            served(peer)
        slow.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, MEGABYTE)
        while piece := slow.recv(MEGABYTE):
            got += piece
    compare_bytes(got, icon_answer(icon))


def test_several_slow_readers_each_get_the_file_that_they_asked_for(device, peer):
    icons = [bytes([number]) * (4 * MEGABYTE) for number in range(4)]
    with contextlib.ExitStack() as stack:
        connections = []
        for icon in icons:
            device.room.path(ICON).unlink()
            device.set_icon(icon)
            connections.append(stack.enter_context(peer.connect()))
            connections[-1].send(GET_ICON)
            assert connections[-1].receive(1) == b"H"
        for icon, connection in reversed([*zip(icons, connections)]):
            compare_bytes(b"H" + connection.receive_until_close(), icon_answer(icon))


@pytest.mark.parametrize("request_line", [
    pytest.param(b"", id="nothing"), pytest.param(b"GET /rootD", id="half a line"), pytest.param(GET, id="description"),
    pytest.param(GET_ICON, id="large icon"), pytest.param(b"HEAD /\r\n" * 50, id="no GET"),
])
@pytest.mark.parametrize("ending", ["reset", "close", "half_close"])
def test_clients_that_end_at_any_time_leave_nothing_behind(device, peer, request_line, ending):
    device.set_icon(bytes(3 * MEGABYTE))
    served(peer)
    before = len(device.open_files())
    for _ in range(40):
        connection = peer.connect()
        if request_line:
            connection.send(request_line)
        getattr(connection, ending)()
        connection.close()
    served(peer)
    wait_for(lambda: len(device.open_files()) <= before, what="the connections are forgotten",
             seen=lambda: device.open_files())
    assert device.syslog.lines == []


def test_reset_in_the_middle_of_an_icon(device, peer):
    device.set_icon(bytes(8 * MEGABYTE))
    before = len(device.open_files())
    for _ in range(20):
        connection = peer.connect()
        connection.send(GET_ICON)
        connection.receive(1000)
        connection.reset()
    served(peer)
    wait_for(lambda: len(device.open_files()) <= before, what="the connections are forgotten")
    compare_bytes(peer.search()[0].data, ANSWER)


def test_many_connections_at_once(device, peer):
    with contextlib.ExitStack() as stack:
        connections = [stack.enter_context(peer.connect()) for _ in range(100)]
        for connection in connections:
            connection.send(GET)
        for connection in connections:
            compare_bytes(connection.receive_until_close(), DESCRIPTION)


# Endless lines

def test_two_megabytes_and_then_a_line_end_are_judged_by_their_beginning(shared_device, shared_peer):
    with shared_peer.connect() as connection:
        connection.send(b"GET /" + b"x" * (2 * MEGABYTE) + b"\n")
        compare_bytes(connection.receive_until_close(), NOT_FOUND)
    with shared_peer.connect() as connection:
        connection.send(b"x" * (2 * MEGABYTE) + b"\n")
        silent(shared_device, shared_peer, connection)
        connection.send(GET)
        compare_bytes(connection.receive_until_close(), DESCRIPTION)
    with shared_peer.connect() as connection:
        connection.send(b"GET /rootDesc.xml " + b"x" * (2 * MEGABYTE) + b"\n")
        compare_bytes(connection.receive_until_close(), DESCRIPTION)


def resident(device) -> int:
    """Bytes of memory that the daemon holds."""
    pages = int(pathlib.Path(f"/proc/{device.pid}/statm").read_text().split()[1])
    return pages * resource.getpagesize()


@pytest.fixture
def plain_build():
    """Without descriptors the sanitizers cannot make the pipe with which they look at memory, and report that."""
    if b"__ubsan_handle" in pathlib.Path(default_program()).read_bytes():
        pytest.skip("the sanitizers need descriptors themselves")


@pytest.fixture
def without_quarantine(monkeypatch):
    """The address sanitizer keeps freed memory for a while; here it must not."""
    options = os.environ.get("ASAN_OPTIONS", "")
    monkeypatch.setenv("ASAN_OPTIONS", ":".join(filter(None, [options, "quarantine_size_mb=1"])))


def test_fifty_megabytes_without_a_line_end_do_not_make_the_daemon_grow(without_quarantine, start_device, peer):
    device = start_device()
    piece = b"x" * MEGABYTE
    with peer.connect() as connection:
        connection.send(b"GET /")
        for _ in range(5):
            connection.send(piece)
        served(peer)
        before = resident(device)
        for _ in range(50):
            connection.send(piece)
        served(peer)
        assert resident(device) - before < 10 * MEGABYTE
        connection.send(b"\n")
        compare_bytes(connection.receive_until_close(), NOT_FOUND)


def test_endless_bytes_behind_a_line_that_is_no_get_do_not_make_the_daemon_grow(without_quarantine, start_device, peer):
    """They need not be taken: whoever sends them may have to wait."""
    device = start_device()
    served(peer)
    before = resident(device)
    with peer.connect() as connection:
        connection.socket.setblocking(False)
        sent, blocked = 0, 0
        lines = b"x" * 1000 + b"\n"
        while sent < 50 * MEGABYTE and blocked < 20:
            try:
                sent += connection.socket.send(lines * 1000)
            except BlockingIOError:
                served(peer)
                blocked += 1
        served(peer)
        assert resident(device) - before < 15 * MEGABYTE


# Out of descriptors

def cpu_seconds(device) -> float:
    fields = pathlib.Path(f"/proc/{device.pid}/stat").read_text().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def cost_of_other_sockets(device, peer, rounds: int = 30) -> float:
    """The processor time that the daemon uses while searches and bus calls are answered, about a second and a half."""
    before = cpu_seconds(device)
    for _ in range(rounds):
        compare_bytes(peer.search()[0].data, ANSWER)
        assert device.call("getUdpPort") == 1900
        select.select([], [], [], 0.05)
    return cpu_seconds(device) - before


def test_limit_lowered_below_use_and_raised_again(plain_build, device, peer):
    """Not so low that the kernel refuses to wait for the descriptors that there are."""
    usual = cost_of_other_sockets(device, peer)
    device.limit_open_files(len(device.open_files()) - 2)
    with peer.connect() as waiting:
        waiting.send(GET)
        assert cost_of_other_sockets(device, peer) < 2 * usual + 0.2
        assert waiting.nothing_to_read()
        device.limit_open_files(1024)
        compare_bytes(waiting.receive_until_close(), DESCRIPTION)
    served(peer)


def test_limit_lowered_below_use_after_a_served_connection(plain_build, device, peer):
    served(peer)
    usual = cost_of_other_sockets(device, peer)
    device.limit_open_files(len(device.open_files()) - 2)
    with peer.connect() as waiting:
        waiting.send(GET)
        assert cost_of_other_sockets(device, peer) < 2 * usual + 0.2
        assert waiting.nothing_to_read()
        device.limit_open_files(1024)
        compare_bytes(waiting.receive_until_close(), DESCRIPTION)
    served(peer)


def test_out_of_descriptors_the_daemon_rests_and_keeps_some_for_its_other_sockets(start_device, peer):
    device = start_device(nofile=64)
    usual = cost_of_other_sockets(device, peer)
    with contextlib.ExitStack() as stack:
        connections = [stack.enter_context(peer.connect()) for _ in range(80)]
        assert cost_of_other_sockets(device, peer, rounds=90) < 6 * usual + 0.2
        assert connections[-1].nothing_to_read()
        connections[0].send(GET_ICON)
        compare_bytes(connections[0].receive_until_close(), icon_answer(png()))
        device.host.add_address("10.77.0.9/24")
        device.call("configureIp")
        assert device.call("getAddressStr") == "10.77.0.9"
        for connection in connections[1:60]:
            connection.close()
        connections[-1].send(GET)
        compare_bytes(connections[-1].receive_until_close(), replaced(DESCRIPTION, address="10.77.0.9"))
    assert device.syslog.lines == []
