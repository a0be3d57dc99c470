"""Remote hosts: their file, and ports found through an agent."""

import re
import socket
import time

import pytest
from programs import FIRST, PORT, Agent, board, hexname, loopback_address, run



@pytest.fixture
def remote(fabric, tmp_path):
    """The options by which hbadisc asks an agent."""
    far = loopback_address()
    fabric.write([board(1)], remote=[{"address": far, "name": "far", "boards": [board(2)]}])
    with Agent(fabric, port=23333):
        yield far, ("--fabric", fabric.path, "--hosts-dir", str(tmp_path))


def results(*arguments):
    done = run("hosts", *arguments, "-j")
    return done.code, {host["host"]: host["result"] for host in done.document["hosts"]}


def test_hosts_come_and_go(remote):
    far, options = remote
    assert run("hosts", "list", *options[2:], "-j").document["hosts"] == []
    assert results("add", far, *options) == (0, {far: "added"})
    listed = run("hosts", "list", *options, "-j").document["hosts"][0]
    assert (listed["host"], listed["name"], listed["state"], listed["ports"]) == (far, "far", "answered", 1)
    assert listed["answered"] and re.search(rf"^{far} +far +answered +1  \d+ s ago$", run("hosts", "list", *options).output, re.M)
    unasked = run("hosts", "list", *options[2:], "-o", "jsonl", "--no-ask").lines[0]
    assert (unasked["host"], unasked["state"], unasked["answered"]) == (far, "not asked yet", None)
    assert results("add", far, *options) == (0, {far: "known"})
    silent = loopback_address()
    # The library would take a port at the end of the range, and never find it again.
    assert results("add", silent, "x y", "10.1.2.5:1024", "10.1.2.5:65535", *options) == (1, {
        silent: "no_answer", "x y": "refused", "10.1.2.5:1024": "refused", "10.1.2.5:65535": "refused"})
    assert results("add", far, *options[:2], "--hosts-dir", "/proc") == (1, {far: "not_written"})
    assert results("remove", far, "10.1.2.3", *options) == (4, {far: "removed", "10.1.2.3": "not_listed"})
    assert run("hosts", "list", "--hosts-dir", "/nowhere").code == 1


def test_ports_of_remote_hosts(remote):
    far, options = remote
    run("hosts", "add", far, *options)
    everywhere = run("list", *options).output.splitlines()
    assert everywhere[0].endswith("  VIA")
    assert everywhere[1].startswith(FIRST) and everywhere[1].endswith("  -")
    assert everywhere[2].startswith(f"{PORT}2  remote") and everywhere[2].endswith(f"  {far} (only)")
    ports = run("list", "-j", "--oob", *options).document["ports"]
    assert [(port["wwpn"], port["local"], port["via"]["address"]) for port in ports] == [(hexname(f"{PORT}2"), False, far)]
    assert [port["local"] for port in run("list", "-j", "--local-only", *options).document["ports"]] == [True]


def test_a_long_file_of_hosts(tmp_path):
    hosts = [f"10.1.{number // 250}.{number % 250}" for number in range(300)]
    with open(tmp_path / "hbahosts.lst", "w", encoding="utf-8") as file:
        file.writelines(f"{host}  # {'server7' if host == hosts[-1] else ''}\n" for host in hosts)
    listed = run("hosts", "list", "--no-ask", "-j", "--hosts-dir", str(tmp_path)).document["hosts"]
    assert [host["host"] for host in listed] == hosts
    assert (listed[0]["name"], listed[-1]["name"]) == (None, "server7")


def test_a_host_that_swallows_packets_is_given_up_soon(fabric, tmp_path):
    """Its queue of connections is full, so that the first packet of each is dropped, as by a firewall."""
    fabric.write([board(1)])
    with socket.socket() as listener, socket.socket() as waiting:
        listener.bind((loopback_address(), 23333))
        listener.listen(0)
        waiting.connect(listener.getsockname())
        (tmp_path / "hbahosts.lst").write_text(listener.getsockname()[0] + "\n", encoding="utf-8")
        begin = time.monotonic()
        assert run("list", "-j", "--fabric", fabric.path, "--hosts-dir", str(tmp_path)).document["complete"]
        assert 2 < time.monotonic() - begin < 10
        silent = run("list", "-j", "--fabric", fabric.path, "--hosts-dir", str(tmp_path))
        assert (silent.code, silent.document["hosts"][0]["state"]) == (3, "timed out")
        assert f"remote host {listener.getsockname()[0]} does not answer: timed out" in silent.errors


def test_a_host_that_is_down_is_not_taken_for_empty(fabric, tmp_path):
    far, bad = loopback_address(), "300.1.2.3"
    fabric.write([board(1)], remote=[{"address": far, "name": "far", "boards": [board(2)]}])
    options = ("--fabric", fabric.path, "--hosts-dir", str(tmp_path))
    (tmp_path / "hbahosts.lst").write_text(f"{far}  # far\n{bad}\n", encoding="utf-8")
    listed = run("list", "-j", *options)
    assert (listed.code, listed.document["complete"]) == (3, True)
    assert [(host["host"], host["state"]) for host in listed.document["hosts"]] == [(far, "refused"), (bad, "not a host")]
    assert f"remote host {far} (far) does not answer: refused\n" in listed.errors
    assert run("hosts", "list", *options).code == 3
    assert run("list", "--local-only", *options).code == 0
    missing = run("show", f"{PORT}2", *options)
    assert missing.code == 3 and "among those that answer" in missing.errors


def test_a_hosts_file_that_may_not_be_read_is_said(fabric, tmp_path):
    fabric.write([board(1)])
    (tmp_path / "hbahosts.lst").symlink_to("hbahosts.lst")
    errors = run("list", "--fabric", fabric.path, "--hosts-dir", str(tmp_path)).errors
    assert errors == f"hbadisc: {tmp_path}/hbahosts.lst cannot be read: Too many levels of symbolic links\n"
