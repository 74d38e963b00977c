"""The clocks: the wall clock is set, and the device sleeps, while messages wait.

No test waits for a limit: a test sets the clocks to the moment that it is about.
"""

import os
import signal
import time
from datetime import datetime, timezone
from pathlib import Path

import pytest

from desk import is_dispatching, wait_until, wait_until_running
from desk.lines import FIRST_RING_ROW

HOUR = 3600
SOFT_S, HARD_S = 6_000, 8_000
MARGIN_S = 300  # so long a start may take

FIRED = "startup timeout: rebooting via VRX"
FIRED_HARD = "startup timeout: rebooting"


@pytest.fixture
def armed(desk, clocks):
    """A running splash with limits, and its clocks."""
    desk.reboot_script("/sbin/vrx_reboot", "exit 0")
    desk.reboot_script("/sbin/reboot", "exit 0")
    limits = {"SPLASH_TIMEOUT": SOFT_S, "SPLASH_TIMEOUT_HARD": HARD_S}
    splash = desk.start("-c", "Title", "Lines", refresh=0, env={**clocks.environment, **limits})
    return wait_until_running(splash), clocks


def year_of(line):
    return int(line.date[:4])


def is_stopped(splash):
    return Path(f"/proc/{splash.pid}/stat").read_text(encoding="utf-8").rpartition(") ")[2][0] == "T"


def test_the_limits_count_from_the_start(armed):
    splash, clocks = armed
    clocks.set(steady=SOFT_S - MARGIN_S)
    clocks.wait_for_a_look()
    assert splash.trace(FIRED) == []
    clocks.set(steady=SOFT_S)
    splash.wait_for_trace(FIRED)
    clocks.set(steady=HARD_S - MARGIN_S)
    clocks.wait_for_a_look()
    assert len(splash.trace(FIRED_HARD)) == 1
    clocks.set(steady=HARD_S)
    wait_until(lambda: len(splash.trace(FIRED_HARD)) == 2, "the hard limit")
    assert splash.quit() == 0


def test_a_wall_clock_set_forward_by_hours_does_not_bring_the_limit_forward(armed):
    splash, clocks = armed
    clocks.set(wall=5 * HOUR)
    clocks.wait_for_a_look()
    assert splash.trace(FIRED) == []
    clocks.set(steady=SOFT_S)
    splash.wait_for_trace(FIRED)
    assert splash.quit() == 0


def test_a_wall_clock_set_back_by_hours_holds_the_limit_up_until_it_has_caught_up(armed):
    """The wait that is under way lasts until then."""
    splash, clocks = armed
    clocks.set_within_a_wait(wall=-5 * HOUR)
    clocks.set(steady=SOFT_S)
    wait_until(lambda: clocks.left > 4 * HOUR, "the wait to see the clock")
    splash.screen.wait_for_more(20)  # the ring turns on meanwhile
    assert splash.trace(FIRED) == []
    clocks.set(wall=0)
    splash.wait_for_trace(FIRED)
    assert splash.quit() == 0


def test_a_wall_clock_set_back_by_hours_does_not_hold_up_the_end(armed):
    splash, clocks = armed
    clocks.set_within_a_wait(wall=-5 * HOUR)
    assert splash.quit() == 0


def test_a_wall_clock_set_back_by_hours_does_not_stop_texts_and_the_ring(armed):
    splash, clocks = armed
    clocks.set_within_a_wait(wall=-5 * HOUR)
    before = splash.screen.wait_for_frame()
    splash.send("Another title;Another line")
    head = before.width * 2 * FIRST_RING_ROW
    splash.screen.wait_for_picture(lambda frame: frame.pixels[:head] != before.pixels[:head], "the new texts")
    assert splash.quit() == 0


def test_lines_bear_the_wall_clock_as_it_is_set(armed):
    splash, clocks = armed
    # A 32-bit program's years end in 2038.
    for number, years in enumerate((5, -20, 0), start=1):
        clocks.set(wall=years * 365.25 * 24 * HOUR)
        splash.send("refused")
        wait_until(lambda: len(splash.trace("Wrong message format")) == number, "the line")
    then, past, now = map(year_of, splash.trace("Wrong message format"))
    assert abs(then - now - 5) <= 1 and abs(now - past - 20) <= 1
    assert splash.quit() == 0


def test_a_wall_clock_set_back_and_forth_all_the_time_changes_no_limit(armed):
    splash, clocks = armed

    def turn():
        for hours in (-3, -2, -1, 0, 1, 2, 3):
            clocks.set_within_a_wait(wall=hours * HOUR)
            clocks.set(wall=4 * HOUR)  # ends the wait

    turn()
    assert splash.trace(FIRED) == []
    clocks.set(steady=SOFT_S)
    turn()
    splash.wait_for_trace(FIRED)
    assert splash.quit() == 0


def test_a_suspend_does_not_count_towards_the_limit(armed):
    """While the device sleeps the steady clock stands still; the wall clock goes on."""
    splash, clocks = armed
    clocks.set(wall=2 * SOFT_S)
    clocks.wait_for_a_look()
    assert splash.trace(FIRED) == []
    assert splash.quit() == 0


def test_a_steady_clock_that_is_hours_later_makes_the_limit_due_at_once(armed):
    """As after a stop of the process, or of the machine below it, for so long."""
    splash, clocks = armed
    assert splash.trace(FIRED) == []
    clocks.set(wall=SOFT_S, steady=SOFT_S)
    splash.wait_for_trace(FIRED)
    splash.wait_for_trace("VRX reboot started with result: , result = 0")
    assert splash.quit() == 0


def test_a_stopped_process_goes_on_where_it_was(armed):
    splash, clocks = armed
    splash.signal(signal.SIGSTOP)
    wait_until(lambda: is_stopped(splash), "the stop")
    clocks.set(steady=SOFT_S)
    frame = splash.screen.frame_number
    assert splash.trace(FIRED) == []
    splash.signal(signal.SIGCONT)
    splash.wait_for_trace(FIRED)
    splash.screen.wait_for_frame(frame + 4)
    assert is_dispatching(splash) and splash.quit() == 0


# A clock far from now: the pace holds, nothing spins, and lines bear its date.

FRAMES = 60
TICKS = os.sysconf("SC_CLK_TCK")


def cpu_seconds(splash):
    words = Path(f"/proc/{splash.pid}/stat").read_text(encoding="ascii").rsplit(")", 1)[1].split()
    return (int(words[11]) + int(words[12])) / TICKS


def shift_to(year):
    return datetime(year, 1, 2, tzinfo=timezone.utc).timestamp() - time.time()


@pytest.fixture
def run(desk, clocks):
    """run(year): the splash, and the seconds and the processor's seconds that its frames took."""

    def started(year):
        clocks.set(wall=shift_to(year) if year else 0)
        splash = wait_until_running(desk.start("Title", "Lines", refresh=0, env=clocks.environment))
        first = splash.screen.wait_for_more(5).number
        begin, used = time.monotonic(), cpu_seconds(splash)
        splash.screen.wait_for_frame(first + FRAMES)
        return splash, time.monotonic() - begin, cpu_seconds(splash) - used

    return started


@pytest.mark.parametrize("year", [1960, 2040])
def test_a_clock_far_from_now_changes_neither_pace_nor_load(run, year):
    usual, _, usual_load = run(None)
    assert usual.quit() == 0
    splash, seconds, load = run(year)
    assert seconds >= FRAMES * 0.030 * 0.9, "a frame every 30 ms at most"
    # An idle loop that spins takes a whole processor.
    assert load <= usual_load * 1.1 + 0.2 * seconds, f"{load:.2f} s of {seconds:.2f} s, as a rule {usual_load:.2f} s"
    splash.send("refused")
    line = splash.wait_for_trace("Wrong message format")
    assert line.date[:4] == str(year)
    assert splash.quit() == 0
