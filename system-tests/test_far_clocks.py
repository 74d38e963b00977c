"""A wall clock far from now: the pace holds, nothing spins, and lines bear its date."""

import os
import time
from datetime import datetime, timezone
from pathlib import Path

import pytest

from desk.splash import wait_until_running

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
        first = splash.screen.wait_for_frame(splash.screen.frame_number + 5).number
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
