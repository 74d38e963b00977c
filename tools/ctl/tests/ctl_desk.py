"""A desk with the program on it, and the client beside it."""

import contextlib
import signal
import socket
import subprocess
from pathlib import Path

import pytest

from desk import BUILD, SOCKET, Desk, listens, wait_until

SECONDS = 30


@pytest.fixture
def desk():
    with Desk() as made:
        yield made


@pytest.fixture
def ctl(desk):
    """Runs bootlumectl on the desk; the finished process with its texts. `prefix`: words before the program."""

    def run(*arguments, prefix=(), **options):
        command = [*prefix, BUILD / "bin/bootlumectl", "--root", desk.root, *arguments]
        return subprocess.run(command, capture_output=True, text=True, timeout=SECONDS, check=False, **options)

    return run


def wait_for_answer(splash):
    """Waits until the splash has its socket bound; sends nothing."""
    path = splash.desk.path(SOCKET)
    wait_until(lambda: listens(path), f"an answer at {path}")
    return splash


def advice(desk):
    """What is said where no splash answers."""
    return (
        f"bootlumectl: no splash answers at {desk.path(SOCKET)}; 'systemctl status "
        "bootlume.service' says whether one was started\n"
    )


def injecting(desk, fault):
    """Words before a program: a call of it fails, as strace takes that."""
    return ["strace", "-qq", "-o", desk.root / "strace", "-e", f"inject={fault}"]


@contextlib.contextmanager
def stopped(splash):
    """A splash that stands still, with its process in that state."""
    splash.signal(signal.SIGSTOP)
    stat = Path(f"/proc/{splash.pid}/stat")
    wait_until(lambda: stat.read_text().rpartition(")")[2].split()[0] == "T", "the splash to stop")
    try:
        yield splash
    finally:
        splash.signal(signal.SIGCONT)


@contextlib.contextmanager
def full(desk):
    """In the place of the splash a socket that nobody reads, with its queue full."""
    path = str(desk.path(SOCKET))
    with contextlib.ExitStack() as senders, socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as deaf:
        deaf.bind(path)
        # A queue may be longer than what one sender may have under way.
        while fills(senders.enter_context(socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)), path):
            pass
        yield deaf


def fills(sender, path):
    """Sends until there is no room; how many messages were taken."""
    sender.setblocking(False)
    taken = 0
    with contextlib.suppress(BlockingIOError):
        while True:
            sender.sendto(b"A;B", path)
            taken += 1
    return taken
