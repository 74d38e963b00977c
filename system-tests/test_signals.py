"""Storms of signals: the program always ends, with status 0, however many come and whenever."""

import os
import subprocess
import sys
import time

import pytest

from desk import end_by_signal, handles_signals, read_line, wait_until, wait_until_running
from desk.lines import ALL_LINES, ENDING, lines_of

LONG = bool(os.environ.get("BOOTLUME_LONG"))
STORM = 10_000
RUNS = 20 if LONG else 1
LONGEST_S = 20

# The storm is a process of its own, which nothing else holds up. It waits for the process to send to,
# says when it begins, and how many signals it has sent in the end.
SENDER = """
import os, sys
print(flush=True)
pid, count, sent = int(input()), int(sys.argv[1]), 0
try:
    while sent < count:
        os.kill(pid, (1, 2)[sent % 2])
        sent += 1
        if sent == 1:
            print(flush=True)
        if sent % 16 == 0:
            os.sched_yield()
except ProcessLookupError:
    pass
print(sent)
"""


class Storm:
    """10,000 signals, SIGHUP and SIGINT in turn, once they are let loose."""

    def __init__(self):
        self._process = subprocess.Popen(
            [sys.executable, "-I", "-c", SENDER, str(STORM)], text=True, stdin=subprocess.PIPE, stdout=subprocess.PIPE
        )
        read_line(self._process.stdout)

    def break_loose(self, splash):
        """Returns once the first signal has been sent."""
        self._process.stdin.write(f"{splash.pid}\n")
        self._process.stdin.flush()
        read_line(self._process.stdout)

    def sent(self):
        count = int(read_line(self._process.stdout))
        self._process.wait()
        return count


@pytest.fixture
def storm():
    return Storm()


def by_signal(splash):
    return [line for line in lines_of(splash, ENDING) if "End splash-screen with SIG." in line]


@pytest.mark.parametrize("run", range(RUNS))
def test_a_storm_from_the_start_on_ends_it_with_status_0(desk, run_prefix, storm, run):
    if run_prefix:
        pytest.skip("an emulator catches all signals from its own start on: nobody sees when the" " program does")
    desk.trace_config(ALL_LINES)
    splash = desk.start("Title", "Lines")
    wait_until(lambda: handles_signals(splash), "the handlers")
    storm.break_loose(splash)
    assert end_by_signal(splash, LONGEST_S) == 0
    assert storm.sent() > 0
    assert by_signal(splash) and splash.stderr == ""


@pytest.mark.parametrize("run", range(RUNS))
def test_a_storm_during_a_long_start_is_swallowed_whole(desk, storm, run):
    """The display is slow to open; nothing of what comes meanwhile ends anything."""
    desk.trace_config(ALL_LINES)
    splash = desk.start("Title", "Lines", faults="open@1=hold")
    splash.wait_for_fault("the held open")
    storm.break_loose(splash)
    assert storm.sent() == STORM
    desk.go_on()
    wait_until_running(splash)
    splash.screen.wait_for_frame(3)
    assert by_signal(splash) == []
    assert end_by_signal(splash, LONGEST_S) == 0


@pytest.mark.parametrize("run", range(RUNS))
def test_a_storm_in_the_steady_state_ends_it_with_status_0(desk, storm, run):
    desk.trace_config(ALL_LINES)
    splash = wait_until_running(desk.start("Title", "Lines", refresh=0))
    splash.screen.wait_for_frame(3)
    storm.break_loose(splash)
    assert splash.wait(LONGEST_S) == 0
    assert storm.sent() > 0
    assert by_signal(splash) and splash.stderr == ""


@pytest.mark.parametrize("run", range(RUNS))
def test_a_storm_during_the_teardown_changes_nothing(desk, storm, run):
    """The display is slow to be switched off, so that the whole storm falls into the teardown."""
    desk.trace_config(ALL_LINES)
    splash = wait_until_running(desk.start("Title", "Lines", faults="VIDIOC_STREAMOFF@1=hold"))
    splash.screen.wait_for_frame(3)
    splash.send("QUIT")
    splash.wait_for_fault("the end to begin")
    storm.break_loose(splash)
    assert storm.sent() == STORM
    desk.go_on()
    assert splash.wait(LONGEST_S) == 0
    assert not splash.screen.streaming and splash.stderr == ""
    calls = [record["call"] for record in splash.records(kind="device")]
    assert calls[-4:] == ["VIDIOC_STREAMOFF", "munmap", "munmap", "close"]


def test_a_storm_before_a_slow_console_does_not_hold_up_the_end(desk, storm):
    """The console takes nothing up to the last moment of the end: then few lines are left to wait for."""
    desk.trace_config("bootlume 5 0 0")
    reader, writer = os.pipe()
    try:
        splash = desk.start("Title", "Lines", stdout=writer)
    finally:
        os.close(writer)
    wait_until_running(splash)
    storm.break_loose(splash)
    splash.wait_for_record("close")
    lines = 0
    with os.fdopen(reader) as console:
        while read_line(console):
            lines += 1
            time.sleep(0.002)  # the pace of a serial console
    assert splash.wait(LONGEST_S) == 0
    assert storm.sent() > 0
    assert lines < STORM / 4, "the pipe's fill, and what came until the end let the rest of the storm drop"
