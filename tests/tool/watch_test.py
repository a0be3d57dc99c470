"""Looking again and again: what watch tells of two pictures that differ, and how it ends."""

import json
import signal
import subprocess

import pytest
from programs import FIRST, HBADISC, PORT, Agent, board, hexname, loopback_address
from programs import target as any_target


def watch(fabric, *arguments):
    command = [HBADISC, "watch", "--fabric", fabric.path, *arguments]
    return subprocess.Popen(command, stdout=subprocess.PIPE, text=True)


def events_until(process, wanted):
    """The events up to one that is wanted."""
    events = []
    for line in process.stdout:
        events.append(json.loads(line))
        if wanted(events[-1]):
            return events
    raise AssertionError("the output ended")


def target(number):
    return any_target(number, target=number)  # else it is counted, and a target before it counts


def state_of(pid):
    with open(f"/proc/{pid}/stat", encoding="utf-8") as stat:
        return stat.read().rpartition(")")[2].split()[0]


BEFORE = [
    board(1, targets=[target(1), target(2)], virtual_ports=[{"wwpn": "30:00:00:00:00:00:00:01", "targets": [target(3)]}]),
    board(2, targets=[target(number) for number in range(1, 8)]),
    board(3, "nic"),
    board(4),
]
AFTER = [
    board(1, link="down", serial_number="S1", targets=[target(2), target(4)],
          virtual_ports=[{"wwpn": "30:00:00:00:00:00:00:01"}]),
    board(2, targets=[target(1), target(8), target(9)]),
    board(3, "nic", virtual_functions=["02:00:00:00:00:00:00:01"]),
    board(5),
    board(6),
]


def test_events_tell_what_changes(fabric):
    fabric.write(BEFORE)
    with watch(fabric, "-o", "jsonl", "--interval", "5", "--count", "9") as process:
        first = events_until(process, lambda event: True)[0]
        assert (first["format_version"], first["event"], first["reason"], first["port_count"]) == (1, 1, 7, 4)
        assert first["reasons"] == ["every_cycle", "forced", "changed"]
        assert [(change["change"], change["port"]) for change in first["changes"]] == [
            ("added", hexname(f"{PORT}{number}")) for number in range(1, 5)]
        fabric.write(AFTER)
        second = events_until(process, lambda event: event["changes"])[-1]
        assert second["reasons"] == ["every_cycle", "forced", "changed"]
        process.kill()
    found = {(change["port"][-1], "/".join(change["path"])): (change["change"], change["before"], change["after"])
             for change in second["changes"]}
    assert found["1", "link"] == ("changed", "up", "down")
    assert found["1", "serial_number"] == ("changed", None, "S1")
    assert found["1", "targets/0x5000000000000001"][0] == "removed"
    assert found["1", "targets/0x5000000000000004"][0] == "added"
    assert found["1", "vports/0x3000000000000001/targets/0x5000000000000003"][0] == "removed"
    assert found["3", "virtual_functions/0x0200000000000001"][0] == "added"
    assert found["4", ""][0] == "removed" and found["4", ""][2] is None
    assert found["5", ""][2]["wwpn"] == hexname(f"{PORT}5")


def test_lines_for_a_reader(fabric):
    fabric.write(BEFORE)
    with watch(fabric, "--interval", "5") as process:
        assert process.stdout.readline()[19:].startswith("  first look    4 ports  added 10:00:02:5d:fa:00:00:01 (FC, link up), ")
        fabric.write(AFTER)
        line = process.stdout.readline()
        while "no change" in line:
            line = process.stdout.readline()
        process.kill()
    assert line[19:] == (
        "  changed       5 ports  10:00:02:5d:fa:00:00:01: link up -> down, serial number - -> S1, "
        "target 50:00:00:00:00:00:00:01 removed, target 50:00:00:00:00:00:00:04 added, "
        "virtual port 30:00:00:00:00:00:00:01 target 50:00:00:00:00:00:00:03 removed; "
        "10:00:02:5d:fa:00:00:02: "
        "targets 50:00:00:00:00:00:00:02, 50:00:00:00:00:00:00:03, 50:00:00:00:00:00:00:04, 50:00:00:00:00:00:00:05 and 2 more "
        "removed, targets 50:00:00:00:00:00:00:08, 50:00:00:00:00:00:00:09 added; "
        "10:00:02:5d:fa:00:00:03: virtual function 02:00:00:00:00:00:00:01 added; "
        "removed 10:00:02:5d:fa:00:00:04; "
        "added 10:00:02:5d:fa:00:00:05 (FC, link up), 10:00:02:5d:fa:00:00:06 (FC, link up)\n")


@pytest.mark.parametrize("ending", [signal.SIGINT, signal.SIGTERM, "--count", "reader"])
def test_ends(fabric, ending):
    fabric.write([board(1)])
    arguments = ["--interval", "86400"] + (["--count", "1"] if ending == "--count" else [])
    if ending == "reader":
        line = f"'{HBADISC}' watch {' '.join(arguments)} --fabric '{fabric.path}' | head -n 1"
        done = subprocess.run(["sh", "-c", line], capture_output=True, text=True, timeout=60, check=True)
        assert f"1 port  added {FIRST}" in done.stdout
        return
    with watch(fabric, "-j", *arguments) as process:
        if ending != "--count":
            opened = "".join(iter(lambda: process.stdout.read(1), "}"))  # the first event is told
            # In a system call, and not on its way into one: a signal there is kept back by clang's thread sanitizer.
            while state_of(process.pid) != "S":
                pass
            process.send_signal(ending)
            document = json.loads(opened + "}" + process.stdout.read())
        else:
            document = json.loads(process.stdout.read())
        assert process.wait(60) == 0
    assert (document["complete"], document["error"], len(document["events"])) == (True, None, 1)


def test_silence_is_no_removal(fabric, tmp_path):
    """A board that is busy, and a host that goes down: one look later each "does not answer", and then answers again."""
    far = loopback_address()
    boards, remote = [board(1), board(2)], [{"address": far, "name": "far", "boards": [board(3)]}]
    (tmp_path / "hbahosts.lst").write_text(far + "\n", encoding="utf-8")
    fabric.write(boards, remote=remote)

    def told(event):
        return [(change["port"][-1], *change["path"]) for change in event["changes"]], [host["state"] for host in event["hosts"]]

    agent = Agent(fabric, port=23333)
    with watch(fabric, "-o", "jsonl", "--interval", "5", "--changes-only", "--hosts-dir", str(tmp_path)) as process:
        with agent:
            assert events_until(process, lambda event: True)[0]["port_count"] == 3
            fabric.write(boards, remote=remote, faults=[{"call": "RM_GetLocalHBAInfoV4", "port": FIRST, "status": 64}])
            busy = events_until(process, lambda event: True)[0]
            assert told(busy) == ([("1", "unanswered")], []) and busy["changes"][0]["after"]["reason"] == "in use"
        silent = events_until(process, lambda event: event["hosts"])[-1]
        assert told(silent) == ([("3", "unanswered")], ["refused"]) and silent["port_count"] == 3
        fabric.write(boards, remote=remote)
        with Agent(fabric, port=23333):
            waited, again = {("1", "unanswered"), ("3", "unanswered"), "answered"}, []
            while waited:
                again += events_until(process, lambda event: True)
                waited -= {*told(again[-1])[0], *told(again[-1])[1]}
            assert all(change["after"] is None for event in again for change in event["changes"])
            process.kill()
