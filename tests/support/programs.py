"""The built programs, and the fabric files that they look at. Each test has a folder of its own, tmp_path."""

import itertools
import json
import os
import subprocess

import pytest

HBADISC = os.environ["HBADISC"]
PORT = "10:00:02:5d:fa:00:00:0"
FIRST = PORT + "1"


def board(number, kind="fc", **more):
    return {"kind": kind, "wwpn": f"{PORT}{number}", **more}


def target(number, **more):
    return {"wwpn": f"50:00:00:00:00:00:00:{number:02x}", **more}


def hexname(name):
    return "0x" + name.replace(":", "")


class Fabric:
    """A fabric file; replaced in one step, as a program that reads it should find it."""

    def __init__(self, path):
        self.path = str(path)

    def write(self, boards, remote=(), **local):
        text = json.dumps({"local": {"name": "lab", "boards": boards, **local}, "remote": list(remote)})
        with open(self.path + ".new", "w", encoding="utf-8") as file:
            file.write(text)
        os.rename(self.path + ".new", self.path)
        return self


class Result:
    def __init__(self, done):
        self.code, self.output, self.errors = done.returncode, done.stdout, done.stderr

    @property
    def document(self):
        return json.loads(self.output)

    @property
    def lines(self):
        return [json.loads(line) for line in self.output.splitlines()]


def run(*arguments, **options):
    """Runs hbadisc to its end."""
    return Result(subprocess.run([HBADISC, *arguments], capture_output=True, text=True, timeout=120, check=False, **options))


class Agent:
    """hbadisc-agent on a fabric file's remote hosts, at a port by chance unless it is told one."""

    def __init__(self, fabric, *options, port=0, prefix=()):
        command = [*prefix, os.environ["AGENT"], "--user", "root", "--fabric", fabric.path, "--port", str(port), *options]
        self.process = subprocess.Popen(command, stderr=subprocess.PIPE, text=True)
        self.says = self.process.stderr.readline()
        assert "listening on " in self.says
        self.port = int(self.says.rpartition(":")[2])

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.terminate()
        self.said = self.process.stderr.read()
        assert self.process.wait(60) == 0


_ADDRESSES = itertools.count(os.getpid() % 40000 * 6)


def loopback_address():
    """One that no other test of this moment has."""
    number = next(_ADDRESSES)
    return f"127.{64 + number // 64516 % 128}.{1 + number // 254 % 254}.{1 + number % 254}"


def remote_host(address, **more):
    return {"address": address, "name": "r", "boards": [board(1)], **more}


def threads_of(process):
    return len(os.listdir(f"/proc/{process.pid}/task"))


@pytest.fixture
def fabric(tmp_path):
    return Fabric(tmp_path / "fabric.json")


@pytest.fixture
def tool(fabric):
    """Runs hbadisc on the test's fabric file."""
    return lambda *arguments: run(*arguments, "--fabric", fabric.path)
