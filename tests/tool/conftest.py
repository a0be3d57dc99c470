"""The built programs, and the fabric files that they look at. Each test has a folder of its own, tmp_path."""

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


@pytest.fixture
def fabric(tmp_path):
    return Fabric(tmp_path / "fabric.json")


@pytest.fixture
def tool(fabric):
    """Runs hbadisc on the test's fabric file."""
    return lambda *arguments: run(*arguments, "--fabric", fabric.path)
