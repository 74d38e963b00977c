"""A desk with the program on it, and the client beside it."""

import os
import subprocess
import sys
from pathlib import Path

import pytest

REPOSITORY = Path(__file__).resolve().parents[3]
sys.path.insert(0, str(REPOSITORY / "system-tests"))

import virtual_device  # noqa: E402
from lines import listens  # noqa: E402

BUILD = REPOSITORY / "build" / os.environ.get("BOOTLUME_PRESET", "release")
SECONDS = 30


@pytest.fixture
def desk():
    with virtual_device.Desk() as made:
        yield made


@pytest.fixture
def ctl(desk):
    """Runs bootlumectl on the desk; the finished process with its texts."""

    def run(*arguments, **options):
        command = [BUILD / "bin/bootlumectl", "--root", desk.root, *map(str, arguments)]
        return subprocess.run(command, capture_output=True, text=True, timeout=SECONDS,
                              check=False, **options)
    return run


def wait_for_answer(splash):
    """Waits until the splash has its socket bound; sends nothing."""
    path = splash.desk.path(virtual_device.SOCKET)
    virtual_device.wait_until(lambda: listens(path), f"an answer at {path}")
    return splash
