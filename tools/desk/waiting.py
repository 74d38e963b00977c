"""Waiting for an event, with a deadline."""

import os
import select
import time

DEADLINE = float(os.environ.get("VIRTUAL_DEVICE_TEST_DEADLINE", "20"))
POLL = 0.001


class Late(AssertionError):
    """What was waited for did not come before the deadline."""


def taken_by_host():
    """How many seconds the host of a virtual machine has kept each of its processors, on average."""
    with open("/proc/stat", encoding="ascii") as file:
        return int(file.readline().split()[8]) / os.sysconf("SC_CLK_TCK") / os.cpu_count()


def own_time():
    return time.monotonic() - taken_by_host()


def wait_until(look, what, deadline=None):
    """Calls look() until it returns something true, and returns that."""
    left = DEADLINE if deadline is None else deadline
    last = own_time()
    while True:
        seen = look()
        if seen:
            return seen
        if left < 0:
            raise Late(f"waited in vain for {what}")
        time.sleep(POLL)
        now = own_time()
        left -= min(now - last, 1)  # a virtual machine can stand still for a minute, and everything with it
        last = now


def read_line(pipe, deadline=None):
    """The next line of a pipe, or what there is at its end. Nothing behind it is taken."""
    line = b""
    while not line.endswith(b"\n"):
        wait_until(lambda: select.select([pipe], [], [], POLL)[0], f"the rest of the line {line!r}", deadline)
        byte = os.read(pipe.fileno(), 1)
        if not byte:
            break
        line += byte
    return line.decode()


def fill_pipe(writer):
    """Whoever writes into the pipe from now on waits until somebody reads."""
    os.set_blocking(writer, False)
    try:
        while True:
            os.write(writer, b"x" * 4096)
    except BlockingIOError:
        os.set_blocking(writer, True)
