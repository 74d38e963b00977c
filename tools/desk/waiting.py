"""Waiting for an event, with a deadline."""

import os
import select
import time

DEADLINE = float(os.environ.get("VIRTUAL_DEVICE_TEST_DEADLINE", "20"))
POLL = 0.001
TICKS_A_SECOND = os.sysconf("SC_CLK_TCK")


class Late(AssertionError):
    """What was waited for did not come before the deadline."""


def processors_time():
    """For each processor, the seconds that it has worked or idled. The host of a virtual machine can keep
    one for a minute: that does not count."""
    with open("/proc/stat", encoding="ascii") as file:
        lines = [line.split() for line in file if line.startswith("cpu")]
    return [sum(map(int, line[1:8])) / TICKS_A_SECOND for line in lines[1:]]


def wait_until(look, what, deadline=None):
    """Calls look() until it returns something true, and returns that. The deadline passes when every
    processor has had so much time: who is waited for may have been on any of them."""
    deadline = DEADLINE if deadline is None else deadline
    begin = processors_time()
    while True:
        late = all(now - then > deadline for then, now in zip(begin, processors_time()))
        seen = look()
        if seen:
            return seen
        if late:
            raise Late(f"waited in vain for {what}")
        time.sleep(POLL)


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
