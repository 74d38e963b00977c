"""The clocks: the wall clock is set, and the device sleeps, while messages wait."""

import mmap
import re
import signal
import struct
import time
from pathlib import Path

import pytest

from desk import is_dispatching, sanitizer_runtimes, wait_until, wait_until_running

HOUR = 3600
LIMIT_S = 2
LONGEST_LATE_S = 8  # for a machine that is busy
NEVER_S = 100_000

FIRED = "startup timeout: rebooting via VRX"


class Clocks:
    """The program's clocks: by how many seconds each is ahead of the true one."""

    def __init__(self, path):
        path.write_bytes(bytes(16))
        with open(path, "r+b") as file:
            self._map = mmap.mmap(file.fileno(), 0)

    def set(self, wall=None, steady=None):
        for offset, seconds in ((0, wall), (8, steady)):
            if seconds is not None:
                struct.pack_into("=q", self._map, offset, int(seconds * 1e9))


def wait_until_waiting(splash):
    """Returns once the loop is in its wait, which the shifted clock cuts into many short ones."""

    def sleeps():
        status = Path(f"/proc/{splash.pid}/task/{splash.pid}/status").read_text(encoding="ascii")
        return int(re.search(r"^voluntary_ctxt_switches:\s*(\d+)", status, re.MULTILINE)[1])

    before = sleeps()
    wait_until(lambda: sleeps() >= before + 5, "the loop to wait")
    return splash


@pytest.fixture
def clocked(desk, build_dir, preload):
    """clocked(limit) starts an armed splash: it, its Clocks, and a time just before it was armed."""
    if sanitizer_runtimes(build_dir / "bin/bootlume"):
        pytest.skip("a sanitizer has clocks of its own")

    def start(limit=LIMIT_S):
        clocks = Clocks(desk.root / "clocks")
        desk.reboot_script("/sbin/vrx_reboot", "exit 0")
        launched = time.monotonic()
        # The display waits for nothing: its own waits would see a clock that they are not meant to.
        splash = desk.start(
            "-c",
            "Title",
            "Lines",
            refresh=0,
            env={
                **preload("shifted-clock"),
                "SHIFTED_CLOCK": desk.root / "clocks",
                "SPLASH_TIMEOUT": limit,
                "SPLASH_TIMEOUT_HARD": NEVER_S,
            },
        )
        wait_until_waiting(wait_until_running(splash))
        return splash, clocks, launched

    return start


def fired_after(splash, began):
    """Seconds from `began` to the soft limit's line."""
    splash.wait_for_trace(FIRED)
    return time.monotonic() - began


def year_of(line):
    return line.date[:4]


def test_a_wall_clock_set_forward_by_hours_does_not_bring_the_limit_forward(clocked):
    splash, clocks, began = clocked()
    clocks.set(wall=5 * HOUR)
    assert LIMIT_S <= fired_after(splash, began) <= LIMIT_S + LONGEST_LATE_S
    assert splash.quit() == 0


@pytest.mark.parametrize("tries", [4])
def test_a_wall_clock_set_back_by_hours_holds_the_limit_up_until_something_comes(clocked, tries):
    """The wait that is under way lasts until the clock has caught up; a message ends it. On a busy
    machine the clock may be set between two waits, which holds nothing up: then it is set again."""
    for _ in range(tries):
        splash, clocks, began = clocked()
        frame = splash.screen.frame_number
        clocks.set(wall=-5 * HOUR)
        # A second is the longest wait: an unharmed loop has passed the limit by then.
        wait_until(lambda: time.monotonic() > began + LIMIT_S + 1.5, "the limit to pass")
        held_up = splash.trace(FIRED) == []
        assert splash.screen.frame_number > frame + 20, "the ring turns on meanwhile"
        clocks.set(wall=0)
        splash.wait_for_trace(FIRED)
        assert splash.quit() == 0
        if held_up:
            return
    pytest.fail(f"the limit was never held up in {tries} tries")


def test_a_wall_clock_set_back_by_hours_does_not_hold_up_the_end(clocked):
    splash, clocks, _ = clocked(NEVER_S)
    clocks.set(wall=-5 * HOUR)
    asked = time.monotonic()
    splash.send("QUIT")
    assert splash.wait() == 0
    assert time.monotonic() - asked < LONGEST_LATE_S


def test_a_wall_clock_set_back_by_hours_does_not_stop_texts_and_the_ring(clocked):
    splash, clocks, _ = clocked(NEVER_S)
    clocks.set(wall=-5 * HOUR)
    before = splash.screen.wait_for_frame()
    splash.send("Another title;Another line")
    head = before.width * 2 * 280
    splash.screen.wait_for_picture(lambda frame: frame.pixels[:head] != before.pixels[:head], "the new texts")
    assert splash.quit() == 0


def test_lines_bear_the_wall_clock_as_it_is_set(desk, clocked):
    splash, clocks, _ = clocked(NEVER_S)
    # A 32-bit program's years end in 2038.
    for number, years in enumerate((5, -20, 0), start=1):
        clocks.set(wall=years * 365.25 * 24 * HOUR)
        splash.send("refused")
        wait_until(lambda: len(splash.trace("Wrong message format")) == number, "the line")
    then, past, now = map(int, map(year_of, splash.trace("Wrong message format")))
    assert abs(then - now - 5) <= 1 and abs(now - past - 20) <= 1
    assert splash.quit() == 0


def test_a_wall_clock_set_back_and_forth_all_the_time_changes_no_limit(clocked):
    splash, clocks, began = clocked()
    turns = 0

    def fired():
        nonlocal turns
        turns += 1
        clocks.set(wall=(turns % 7 - 3) * HOUR)
        return splash.trace(FIRED)

    wait_until(fired, "the limit")
    assert LIMIT_S <= time.monotonic() - began <= LIMIT_S + LONGEST_LATE_S
    assert splash.quit() == 0


def test_a_suspend_does_not_count_towards_the_limit(clocked):
    """While the device sleeps the steady clock stands still; the wall clock goes on."""
    splash, clocks, began = clocked()
    clocks.set(wall=10 * 60)
    assert fired_after(splash, began) >= LIMIT_S
    assert splash.quit() == 0


def test_a_steady_clock_that_is_minutes_later_makes_the_limit_due_at_once(clocked):
    """As after a stop of the process, or of the machine below it, for so long."""
    splash, clocks, began = clocked(600)
    assert splash.trace(FIRED) == []
    clocks.set(wall=601, steady=601)
    assert fired_after(splash, began) <= LONGEST_LATE_S
    splash.wait_for_trace("VRX reboot started with result: , result = 0")
    assert splash.quit() == 0


def test_a_stopped_process_goes_on_where_it_was(clocked):
    splash, _, began = clocked()
    splash.signal(signal.SIGSTOP)
    wait_until(lambda: time.monotonic() > began + LIMIT_S + 0.5, "the limit to pass")
    frame = splash.screen.frame_number
    assert splash.trace(FIRED) == []
    splash.signal(signal.SIGCONT)
    splash.wait_for_trace(FIRED)
    splash.screen.wait_for_frame(frame + 4)
    assert is_dispatching(splash) and splash.quit() == 0
