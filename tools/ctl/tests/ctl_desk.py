"""A desk with the program on it, and the client beside it."""

import subprocess

import pytest

from desk import BUILD, SOCKET, Desk, listens, wait_until

SECONDS = 30


@pytest.fixture
def desk():
    with Desk() as made:
        yield made


@pytest.fixture
def ctl(desk):
    """Runs bootlumectl on the desk; the finished process with its texts."""

    def run(*arguments, **options):
        command = [BUILD / "bin/bootlumectl", "--root", desk.root, *map(str, arguments)]
        return subprocess.run(command, capture_output=True, text=True, timeout=SECONDS, check=False, **options)

    return run


def wait_for_answer(splash):
    """Waits until the splash has its socket bound; sends nothing."""
    path = splash.desk.path(SOCKET)
    wait_until(lambda: listens(path), f"an answer at {path}")
    return splash
