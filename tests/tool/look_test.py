"""Looking once: list, show, targets and refresh, their formats and exit codes."""

import json
import os
import pty
import re
import subprocess

import pytest
from programs import FIRST, HBADISC, PORT, board, hexname, run, target

SOURCE = os.environ["SOURCE_FOLDER"]

EVERY_KIND = [
    board(1, fabric_name="1000aabbccddeeff", serial_number="S1", pci_bus=4, model="VX3200",
          targets=[target(1, fc_id="0x0a01", fcp_lun="0x40010000", device="/dev/sda"), target(2, state="exists")],
          virtual_ports=[{"wwpn": "30:00:00:00:00:00:00:01", "targets": [target(7)]}]),
    board(2, "fcoe", link={"physical": "up", "function": "down"}, model="A much longer model name", driver_type=3,
          targets=[target(1, count=1234, state="exists")]),
    board(3, "iscsi", iscsi={"initiator_name": "iqn.2001:me"}, pci_bus=5, sub_adapter_id="7",
          iscsi_targets=[{"name": "iqn.a", "sessions": True}, {"name": "n" * 300, "sessions": True, "connected": True}]),
    board(4, "nic-roce", virtual_functions=["02:00:00:00:00:00:00:01"]),
    board(5, "nic", overheated=True, model="jörð", link=9, model_id=None),
]


def test_table_of_every_kind(tool, fabric):
    fabric.write(EVERY_KIND)
    listed = tool("list")
    assert listed.errors == ""
    assert listed.output.splitlines() == [
        "WWPN                     WHERE  KIND      LINK        MODEL                              SYSTEM  TARGETS  VPORTS  VFS",
        "10:00:02:5d:fa:00:00:01  local  FC        up          VX3200                             lab           1       1    0",
        "10:00:02:5d:fa:00:00:02  local  FCoE      up/down     A much longer model name           lab        1234       0    0",
        "10:00:02:5d:fa:00:00:03  local  iSCSI     up          Varnix VC2501 25Gb iSCSI Function  lab           2       0    0",
        "10:00:02:5d:fa:00:00:04  local  NIC+RoCE  up          Varnix VN2500R 25Gb RoCE Function  lab           0       0    1",
        "10:00:02:5d:fa:00:00:05  local  NIC       overheated  jörð                               lab           0       0    0"]


def test_colours_on_a_terminal_do_not_move_columns(fabric, tool):
    fabric.write(EVERY_KIND[:2])
    ours, theirs = pty.openpty()
    subprocess.run([HBADISC, "list", "--fabric", fabric.path], stdout=theirs, check=True, env={**os.environ, "TERM": "xterm"})
    os.close(theirs)
    shown = os.read(ours, 65536).decode().replace("\r", "")
    assert "\x1b[32mup\x1b[0m" in shown
    assert re.sub(r"\x1b\[\d*m", "", shown) == tool("list").output


def test_sheet_of_one_port(tool, fabric):
    fabric.write(EVERY_KIND)
    sheet = tool("show", FIRST).output
    for part in ("Port 10:00:02:5d:fa:00:00:01\n", "\n  Kind               FC\n", "  Serial number      S1\n",
                 "  Port number        -\n", "  VPD port number    0\n", "  Special features   0x0\n", "\nTargets\n  WWPN ",
                 "\n  50:00:00:00:00:00:00:01  20:00:00:00:00:00:00:01  0:0:0        0x0000000040010000  /dev/sda  0x000a01  yes\n",
                 "\nVirtual port 30:00:00:00:00:00:00:01, node 20:00:00:00:00:00:00:01, 1 target\n"):
        assert part in sheet
    assert "\nVirtual functions\n  02:00:00:00:00:00:00:01\n" in tool("show", f"{PORT}4").output


def test_json_of_each_kind(tool, fabric):
    fabric.write(EVERY_KIND)
    listed = tool("list", "-j").document
    assert (listed["format_version"], listed["complete"], listed["error"]) == (1, True, None)
    fc, fcoe, iscsi, roce, nic = listed["ports"]
    assert tool("list", "-o", "jsonl").lines[1] == {"format_version": 1, **fcoe}
    assert [port["kind"] for port in listed["ports"]] == ["FC", "FCoE", "iSCSI", "NIC+RoCE", "NIC"]
    assert {key: fc[key] for key in ("wwpn", "wwnn", "local", "link", "function_link", "model_number", "serial_number", "system",
                                     "fabric_name", "port_number", "vpd_port_number", "target_count", "via")} == {
        "wwpn": "0x1000025dfa000001", "wwnn": "0x2000025dfa000001", "local": True, "link": "up", "function_link": None,
        "model_number": 27137, "serial_number": "S1", "system": "lab", "fabric_name": "0x1000aabbccddeeff", "port_number": None,
        "vpd_port_number": "0", "target_count": 1, "via": None}
    assert (fcoe["link"], fcoe["function_link"]) == ("up", "down")
    assert (iscsi["port_number"], iscsi["pci_bus"], iscsi["vpd_port_number"], roce["pci_bus"]) == (0, 5, None, None)
    assert (nic["link"], nic["model"]) == ("overheated", "jörð")
    for port in listed["ports"]:
        assert all(re.fullmatch("[a-z_]+", key) for key in port)
        assert "targets" not in port  # details are shown for one port only


def test_details_of_one_port(tool, fabric):
    fabric.write(EVERY_KIND)
    port = tool("show", FIRST, "-j").document["port"]
    assert port["targets"] == [{
        "wwpn": "0x5000000000000001", "wwnn": "0x2000000000000001", "bus": 0, "target": 0, "lun": 0,
        "fcp_lun": "0x0000000040010000", "device": "/dev/sda", "fc_address_id": "0x000a01", "bind_type": 1, "ready": True}]
    assert port["vports"][0]["wwpn"] == "0x3000000000000001"
    assert port["vports"][0]["targets"][0]["device"] is None
    assert port["iscsi_names"] is None

    targets = tool("targets", FIRST, "-j").document
    assert (targets["targets"], targets["vports"][0]["targets"]) == (port["targets"], port["vports"][0]["targets"])
    assert [(line["vport"], line["target"]["wwpn"]) for line in tool("targets", FIRST, "-o", "jsonl").lines] == [
        (None, "0x5000000000000001"), ("0x3000000000000001", "0x5000000000000007")]
    assert "\nVirtual port 30:00:00:00:00:00:00:01" in tool("targets", FIRST).output

    many = tool("show", hexname(f"{PORT}2"), "-o", "jsonl").lines[0]
    assert (len(many["targets"]), many["targets"][1233]["ready"]) == (1234, True)  # that driver counts them all
    iscsi = tool("show", f"{PORT}3", "-j").document["port"]
    assert iscsi["targets"][0] == {"name": "iqn.a", "second_name": None, "has_sessions": True, "connected": False}
    assert (iscsi["targets"][1]["name"], iscsi["targets"][1]["connected"]) == ("n" * 300, True)
    assert iscsi["iscsi_names"] == {"initiator_name": "iqn.2001:me", "default_name": None, "alias": None}
    assert tool("show", f"{PORT}4", "-j").document["port"]["virtual_functions"] == ["0x0200000000000001"]


@pytest.mark.parametrize("example", ["small-host.json", "datacenter-host.json"])
def test_every_board_of_an_example_is_listed(example):
    path = f"{SOURCE}/examples/{example}"
    with open(path, encoding="utf-8") as file:
        boards = json.load(file)["local"]["boards"]
    listed = run("list", "-j", "--fabric", path)
    assert (listed.code, listed.errors) == (0, "")
    assert {port["wwpn"] for port in listed.document["ports"]} == {hexname(one["wwpn"]) for one in boards}


def test_exit_codes(tool, fabric, tmp_path):
    fabric.write([board(1), board(2, virtual_ports=[{"wwpn": "3000000000000001"}])])
    shell = f"'{HBADISC}' list --fabric '{fabric.path}' "
    for arguments, code, message in (
            (("show", "2000000000000001"), 4, "there is no port 20:00:00:00:00:00:00:01"),
            (("show", "3000000000000001"), 4, f"there is no port 30:00:00:00:00:00:00:01; it is a virtual port of {PORT}2"),
            (("targets", FIRST), 0, "has no targets"),
            (("show", "lab"), 2, "'lab'")):
        result = tool(*arguments)
        assert (result.code, result.output) == (code, "")
        assert message in result.errors
    unknown = tool("targets", "2000000000000001", "-j")
    assert (unknown.code, unknown.document["targets"], unknown.document["vports"]) == (4, [], [])
    for source, code, message in ((("--fabric", "/run/lock/missing.json"), 1, "/run/lock/missing.json"),
                                  (("--sysfsroot", fabric.path), 1, fabric.path)):
        result = run("list", *source)
        assert result.code == code and message in result.errors
    for redirection, message in ((">&-", "cannot write"), (">/dev/full", "No space left")):
        done = subprocess.run(["sh", "-c", shell + redirection], stderr=subprocess.PIPE, text=True, check=False)
        assert done.returncode == 1 and message in done.stderr


def test_nothing_and_nonsense_give_valid_json(tool, fabric):
    fabric.write([])
    empty = tool("list", "-j")
    assert (empty.code, empty.document["ports"], empty.document["error"]) == (0, [], None)
    assert tool("list").output == ""
    with open(fabric.path, "w", encoding="utf-8") as file:
        file.write("{ nonsense")
    for command, key in (("list", "ports"), ("watch", "events")):
        bad = tool(command, "-j")
        assert (bad.code, bad.document[key], bad.document["complete"]) == (1, [], False)
        assert isinstance(bad.document["error"], str)
    assert tool("list", "-o", "jsonl").output == ""


def test_source_of_the_settings(fabric):
    fabric.write(EVERY_KIND)
    settings = "/etc/varnix/quorbench/rm.conf"
    with open(settings, "w", encoding="utf-8") as file:
        file.write("FabricFile:/nowhere.json\n")
    lost = run("list", "-j")
    assert (lost.code, lost.errors) == (1, "hbadisc: no adapter ports were found: /nowhere.json: No such file or directory\n")
    assert isinstance(lost.document["error"], str)
    with open(settings, "w", encoding="utf-8") as file:
        file.write(f"FabricFile:{fabric.path}\n")
    example = subprocess.run([os.environ["LIST_PORTS"]], capture_output=True, text=True, check=True).stdout
    assert FIRST in example and "link up    1 target" in example
    os.remove(settings)
    other = {**os.environ, "LD_LIBRARY_PATH": os.environ["MINIMAL_PROVIDER"]}
    without_choice = run("list", "-j", "--fabric", fabric.path, env=other)
    assert without_choice.code == 1 and "--fabric" in without_choice.errors
    assert (without_choice.document["ports"], without_choice.document["complete"]) == ([], False)
    refreshed = run("refresh", "0x1000025d41000001", "-o", "jsonl", env=other).lines[0]
    assert (refreshed["local"], refreshed["serial_number"], refreshed["target_count"]) == (True, "MP0001", 1)


def test_refresh_reads_again(tool, fabric):
    node = {"call": "RM_GetAllNodeInfo", "port": FIRST}
    boards = [board(1, targets=[target(1), target(2)]), board(2)]
    fabric.write(boards)
    same = tool("refresh", FIRST)
    assert (same.code, same.errors) == (0, "hbadisc: nothing has changed\n")
    # The reads of the cycle see no target; that of the refresh does.
    fabric.write(boards, faults=[{**node, "times": 2, "claim_count": 0}])
    changed = tool("refresh", FIRST, "-j", "--what", "targets,vports").document
    assert (changed["changed"], len(changed["port"]["targets"])) == (True, 2)
    fabric.write(boards, faults=[{**node, "times": 2, "claim_count": 0}])
    assert tool("refresh", FIRST, "-j", "--what", "attributes").document["changed"] is False
    unknown = tool("refresh", "3000000000000009", "-j")
    assert (unknown.code, unknown.document["port"], unknown.document["changed"]) == (4, None, None)
    fabric.write(boards, faults=[{**node, "skip": 2, "hang": True}])
    silent = tool("refresh", FIRST, "-j", "--timeout", "5")
    assert (silent.code, silent.document["port"]["wwpn"], silent.document["changed"]) == (3, hexname(FIRST), None)


@pytest.mark.parametrize("limit, skip, code, ports", [(3, 0, 3, 1), (11, 1, 3, 2)])
def test_time_limit_shows_what_is_known(tool, fabric, limit, skip, code, ports):
    """A library whose thread is inside the provider cannot be stopped: the program ends all the same."""
    fabric.write([board(1), board(2)], faults=[{"call": "RM_GetAllNodeInfo", "port": FIRST, "skip": skip, "hang": True}])
    result = tool("list", "-j", "--timeout", str(limit))
    assert (result.code, result.document["complete"], len(result.document["ports"])) == (code, False, ports)
    assert f"within {limit} second" in result.errors
    assert (hexname(FIRST), -1) in [(one["port"], one["status"]) for one in result.document["unanswered"]]


BOARD = {"call": "RM_GetLocalHBAInfoV4", "port": FIRST}


@pytest.mark.parametrize("fault, what, ports, message", [
    ({**BOARD, "status": 64}, [("board", 0)], 1, "board 0 of this host does not answer: in use"),
    ({**BOARD, "hang": True}, [("board", 0), ("board", 1)], 0, "board 1 of this host does not answer: not asked yet"),
    ({"call": "RM_GetAllLocalHBAInstances", "status": 253}, [("boards", None)], 0, "cannot be counted: not ready"),
    ({"call": "RM_GetAllLocalHBAInstances", "hang": True}, [("boards", None)], 0, "cannot be counted: no answer yet")])
def test_what_does_not_answer_is_said(tool, fabric, fault, what, ports, message):
    fabric.write([board(1), board(2)], faults=[fault])
    result = tool("list", "-j", "--timeout", "4")
    assert result.code == (1 if "hang" in fault else 3)
    assert [(one["what"], one["board"]) for one in result.document["unanswered"]] == what
    assert len(result.document["ports"]) == ports and message in result.errors
    absent = tool("show", FIRST, "--timeout", "4")
    assert absent.code == (1 if "hang" in fault else 3) and absent.output == ""


@pytest.mark.parametrize("source", ["fabric", "datacenter", "kernel"])
def test_a_look_without_pauses_shows_the_same(fabric, tmp_path, source):
    fabric.write(EVERY_KIND)
    options = ("--fabric", fabric.path)
    if source == "datacenter":
        options = ("--fabric", f"{SOURCE}/examples/datacenter-host.json")
    elif source == "kernel":
        subprocess.run(["tar", "-xzf", f"{SOURCE}/examples/hosts/pci-04-npiv-active.tar.gz", "-C", tmp_path], check=True)
        options = ("--sysfsroot", f"{tmp_path}/sys")
    ports = run("list", "-j", "--cycle", *options).document["ports"]
    assert ports and run("list", "-j", *options).document["ports"] == ports
    for port in ports:
        shown = run("show", port["wwpn"], "-j", *options).document
        assert shown == run("show", port["wwpn"], "-j", "--cycle", *options).document


def test_details_that_a_fabric_file_tells(tool, fabric):
    fabric.write([board(1, details={"link_speed": 32000, "supported_speeds": "8000 16000", "firmware_version": "1.2", "lun_count": 0}),
                  board(2)])
    known, unknown = tool("list", "-j").document["ports"]
    assert (known["link_speed"], known["supported_speeds"], known["firmware_version"], known["lun_count"], known["part_number"]) == (
        32000000000, [8000000000, 16000000000], "1.2", 0, None)
    assert [unknown[key] for key in ("link_speed", "supported_speeds", "firmware_version", "lun_count")] == [None] * 4
    assert "  Link speed         32 Gbit/s\n" in tool("show", FIRST).output


@pytest.mark.parametrize("line", [
    "", "lists", "list show", "list extra", "list --nonsense", "list --fabric a --sysfsroot b", "list --fabric", "list -j -o table",
    "lst", "list -o xml", "list --timeout -1", "list --timeout 1s", "list --timeout=", "list --timeout 99999999999", "list --count 1", "show",
    "show 1000025dfa000001 1000025dfa000001", "watch --interval 4", "watch --interval 0", "watch --count 0", "refresh 1 --what all",
    *("show " + name for name in (
        "0x", "1000025dfa00c0d", "1000025dfa00c0de0", "0x1000025dfa00c0d", "0x0x5dfa00c0de00", "1000025dfa00c0dg", "+1000025dfa00c0d",
        "10:00:02:5d:fa:00:c0", "10:00:02:5d:fa:00:c0:d", "10:00:02:5d:fa:00:c0:de:", "10:00:02:5d:fa:00:c0-de",
        "10.00.02.5d.fa.00.c0.de", "1:000:02:5d:fa:00:c0:de", "1::00:02:5d:fa:00:c0:de", "0x10:00:02:5d:fa:00:c0:de"))])
def test_wrong_usage(line):
    result = run(*line.split())
    assert (result.code, result.output) == (2, "")
    assert result.errors
    assert ("did you mean 'list'?" in result.errors) == line.startswith(("lst", "lists"))


def test_forms_of_the_command_line(tool, fabric):
    fabric.write([board(1)])
    for name in ("1000025DFA000001", "0X1000025dFa000001", "10-00-02-5D-FA-00-00-01"):
        assert tool("show", name, "-j").document["port"]["wwpn"] == hexname(FIRST)
    before = run("--fabric", fabric.path, "-v", "-j", "--timeout=0", "--local-only", "show", FIRST)
    assert before.document["port"]["wwpn"] == hexname(FIRST)
    for arguments, part in ((("--help",), "hbadisc watch --interval 10"), (("watch", "--help"), "--count"),
                            (("-V",), "Draxonite Discovery"), (("--version",), "14.0.326.24")):
        result = run(*arguments)
        assert result.code == 0 and part in result.output and result.output.endswith("\n")
