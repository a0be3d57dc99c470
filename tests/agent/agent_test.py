"""The agent as a server: what it refuses, how many it lets in, and which host answers where."""

import contextlib
import http.client
import json
import signal
import socket
import time

import pytest
from programs import FIRST, Agent, board, hexname, loopback_address, remote_host, target, threads_of

NODES = f"/v1/ports/{hexname(FIRST)}/nodes"


def connect(address, agent, limit=60):
    return socket.create_connection((address, agent.port), timeout=limit)


def read_to_end(connection):
    """What the other side says until it closes."""
    said = b""
    with contextlib.suppress(ConnectionResetError):
        while chunk := connection.recv(65536):
            said += chunk
    return said.decode()


def ask(connection, request):
    """The answer's status and body, as far as its Content-Length says."""
    connection.sendall(request.encode())
    response = http.client.HTTPResponse(connection)
    response.begin()
    return response.status, response.read().decode()


def get(connection, path="/"):
    return ask(connection, f"GET {path} HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n")


def ports(address, agent):
    """The ports of the host there; None when nobody listens, or does not answer."""
    try:
        with connect(address, agent) as connection:
            return json.loads(get(connection, "/v1/ports")[1])["records"]
    except (OSError, ValueError):
        return None


def eventually(holds):
    end = time.monotonic() + 60
    while not holds():
        assert time.monotonic() < end
        time.sleep(0.05)


@pytest.fixture
def here():
    return loopback_address()


def test_answers_that_people_can_read(fabric, here):
    fabric.write([], remote=[remote_host(here)])
    with Agent(fabric) as agent, connect(here, agent) as connection:
        assert json.loads(get(connection, "/v1/ports")[1]) == {
            "format_version": 1, "path": "/v1/ports", "status": 0, "status_text": "ok", "records": [hexname(FIRST)]}
        for path, code, part in (("/", 200, "/v1/ports/{wwn}/nodes"), ("/v1/nothing", 404, ""), ("/%76%31/ports", 404, ""),
                                 (NODES, 200, '"records": [')):
            status, body = get(connection, path)  # on the same connection
            assert status == code and part in body
        assert ask(connection, "GET /v1/ports HTTP/1.0\r\nContent-Length: 0\r\n\r\n")[0] == 200


def test_refuses_what_is_no_question(fabric, here):
    """With one answer, whatever comes behind it; then the connection is closed."""
    fabric.write([], remote=[remote_host(here)])
    following = "GET /v1/ports HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"
    length = f"Content-Length: {len(following)}\r\n"

    def with_headers(headers):
        return f"GET /v1/ports HTTP/1.1\r\nHost: 127.0.1.1\r\n{headers}\r\n"

    with Agent(fabric) as agent:
        for request, code in (
                (f"POST /v1/ports HTTP/1.1\r\n{length}\r\n", 405),
                ("DELETE /v1/ports HTTP/1.1\r\n\r\n", 405),
                (with_headers(length), 413),
                (with_headers("Content-Length: 99999999\r\n"), 413),
                (with_headers("Transfer-Encoding: chunked\r\n") + "0\r\n\r\n", 413),
                (with_headers("Transfer-Encoding: identity\r\n"), 413),
                (with_headers("Content-Length: 0\r\n" + length), 400),
                (with_headers(length + "Content-Length: 0\r\n"), 400),
                (with_headers("Content-Length: 5x\r\n"), 400),
                (with_headers("Content-Length: -1\r\n"), 400),
                (with_headers("Content-Length : 5\r\n"), 400),
                (with_headers("Transfer-Encoding : chunked\r\n"), 400),
                (with_headers("Content-Length:\r\n 5\r\n"), 413),
                (with_headers("X: y\r\n Content-Length: 5\r\n"), 400),
                (with_headers("X: y\rContent-Length: 5\r\n"), 400),
                (with_headers("Host: 127.0.1.1\r\n"), 400),
                (f"GET /{'x' * 300} HTTP/1.1\r\n\r\n", 414),
                (with_headers(f"X: {'x' * 20000}\r\n"), 431),
                ("\x16\x03\x01\r\n\r\n", None)):
            with connect(here, agent) as connection:
                connection.sendall((request + following).encode())
                answer = read_to_end(connection)
                assert " 200 " not in answer, request[:80]
                assert code is None or answer.startswith(f"HTTP/1.1 {code} "), request[:80]
        assert ports(here, agent) == [hexname(FIRST)]
        # Only a host by its address: a page of somebody else's browser comes with a name.
        for name, code in (("10.0.0.5:23333", 200), ("[FE80::1]:1", 200), ("LocalHost:80", 200), ("ports.example", 421),
                           ("localhost.example", 421), ("127.0.0.1.example", 421), ("127.0.0.1:", 421), ("127.0.0.1:123456", 421),
                           ("127.0.0.256", 421), ("::1", 421), ("[::1]x", 421), ("[localhost]", 421), ("user@127.0.0.1", 421)):
            with connect(here, agent) as connection:
                assert ask(connection, f"GET / HTTP/1.1\r\nHost: {name}\r\n\r\n")[0] == code, name


def test_each_host_at_its_address_and_follows_the_file(fabric):
    first, second, gone, later = (loopback_address() for _ in range(4))
    fabric.write([], remote=[remote_host(first), remote_host(second, boards=[board(2)]), remote_host(gone, unreachable=True),
                             remote_host("10.255.255.1")])
    with Agent(fabric) as agent:
        assert (ports(first, agent), ports(second, agent)) == ([hexname(FIRST)], [hexname(FIRST)[:-1] + "2"])
        assert ports(gone, agent) is None and ports("127.0.0.1", agent) is None
        fabric.write([], remote=[remote_host(first, boards=[]), remote_host(later), remote_host(second, unreachable=True)])
        eventually(lambda: ports(later, agent) is not None)
        assert ports(first, agent) == []
        eventually(lambda: ports(second, agent) is None)


def test_the_local_host_where_it_is_told_to(fabric):
    told, remote = loopback_address(), loopback_address()
    fabric.write([], remote=[remote_host(remote)])
    with Agent(fabric, "--listen", told, "--listen", remote) as agent:
        assert (ports(told, agent), ports(remote, agent)) == ([], [hexname(FIRST)])
    assert agent.said.count("warning: ") == 0
    with Agent(fabric, "--listen", "0.0.0.0", prefix=("unshare", "-n")) as agent:
        pass
    assert "warning: " in agent.said


def test_a_hang_holds_up_nobody(fabric, here):
    """Neither its host's other calls nor the end of the agent."""
    fabric.write([], remote=[remote_host(here, faults=[{"call": "RM_GetAllNodeInfo", "hang": True}])])
    with Agent(fabric) as agent, contextlib.ExitStack() as hanging:
        for _ in range(20):
            hanging.enter_context(connect(here, agent)).sendall(f"GET {NODES} HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n".encode())
        assert ports(here, agent) == [hexname(FIRST)]


def test_connections_are_bounded(fabric, here):
    other = loopback_address()
    fabric.write([], remote=[remote_host(here), remote_host(other)])
    with Agent(fabric, "--max-connections", "70") as agent, contextlib.ExitStack() as held:
        def open_and_ask(address):
            connection = held.enter_context(connect(address, agent))
            return connection, get(connection)[0]
        first, code = open_and_ask(here)
        assert code == 200
        assert [open_and_ask(here)[1] for _ in range(64)] == [200] * 63 + [503]  # of one peer, too many
        assert [open_and_ask(other)[1] for _ in range(7)] == [200] * 6 + [503]  # of all
        first.close()
        eventually(lambda: ports(other, agent) is not None)


def test_requests_and_answers_in_time(fabric, here):
    """A connection lasts neither with half a request, silent or byte by byte, nor between two, nor with an untaken answer."""
    large = board(1, targets=[target(1, count=30000)])
    fabric.write([], remote=[remote_host(here, boards=[large], delay_ms=17000), remote_host(quick := loopback_address(), boards=[large])])
    with Agent(fabric) as agent, contextlib.ExitStack() as stack:
        without = threads_of(agent.process)
        half, dribbling, lazy, idle, slow = (stack.enter_context(connect(address, agent)) for address in [quick] * 4 + [here])
        half.sendall(b"GET / HT")
        slow.sendall(b"GET /v1/ports HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n")
        lazy.sendall(f"GET {NODES} HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n".encode())
        assert get(idle)[0] == 200
        dribbling.settimeout(0)
        with pytest.raises(OSError):
            for byte in "GET / HTTP/1.1\r\nX: " + "x" * 1200:
                dribbling.send(byte.encode())
                time.sleep(0.05)
        assert read_to_end(half) == "" and read_to_end(idle) == ""
        response = http.client.HTTPResponse(slow)
        response.begin()
        assert hexname(FIRST) in response.read().decode()  # the host itself may take longer
        eventually(lambda: threads_of(agent.process) <= without)


def test_wrong_command_lines(fabric):
    fabric.write([])
    for options in (["--listen", "server7"], ["--port", "65536"], ["--max-connections", "0"], ["--sysfsroot", "/sys"], ["more"]):
        with pytest.raises(AssertionError):
            Agent(fabric, *options)


def test_an_agent_that_dies_and_comes_back(fabric, here):
    fabric.write([], remote=[remote_host(here)])
    with Agent(fabric) as agent:
        port = agent.port
    again = Agent(fabric, port=port)
    assert again.port == port and ports(here, again) == [hexname(FIRST)]
    again.process.send_signal(signal.SIGKILL)
    again.process.communicate()
    assert ports(here, again) is None
