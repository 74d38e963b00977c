"""Failures that last: a display, a reader, a file that never comes round. The splash shows its
page, keeps its watchdog, and ends."""

import os
import resource
import signal
import time

import pytest

from desk.lines import ALL_LINES
from desk.places import SOCKET
from desk.splash import end_by_signal, listens, wait_until_running
from desk.waiting import fill_pipe, wait_until

LIMIT_S = 5  # for the renderer's end
LATE_S = 10  # for a machine that is busy
LATER = 6000  # a limit that a test sets the clocks to


@pytest.mark.parametrize("how", ["QUIT", signal.SIGINT], ids=str)
@pytest.mark.parametrize("call, number", [("VIDIOC_DQBUF", 5), ("VIDIOC_STREAMOFF", 1)])
def test_a_display_that_does_not_answer_holds_the_end_up_for_five_seconds(desk, call, number, how):
    desk.behind.clear()  # the limit counts
    splash = wait_until_running(desk.start("-c", "Title", "Lines", faults=f"{call}@{number}=block"))
    splash.screen.wait_for_frame(3)
    if call == "VIDIOC_DQBUF":
        splash.wait_for_fault("the frame that is held")
    asked = time.monotonic()
    if how == "QUIT":
        splash.send("QUIT")
    else:
        splash.signal(how)
    wait_until(lambda: not listens(desk.path(SOCKET)), "the socket to close")
    assert desk.path(SOCKET).is_socket(), "as after any end"
    assert splash.process.poll() is None, "who looks for the process finds it"
    assert splash.wait(LIMIT_S + LATE_S) == 0
    assert time.monotonic() - asked >= LIMIT_S
    (line,) = [line for line in splash.trace() if line.level == "ERROR"]
    assert line.text.strip() == "The display does not answer."


def test_a_display_that_answers_late_is_waited_for(desk):
    splash = wait_until_running(desk.start(faults="VIDIOC_STREAMOFF@1=hold"))
    splash.screen.wait_for_frame(2)
    splash.send("QUIT")
    splash.wait_for_fault("the end to reach the display")
    desk.go_on()
    assert splash.wait() == 0
    assert splash.trace("does not answer") == []
    assert splash.records(kind="device")[-1]["call"] == "close"


def test_a_standard_error_that_nobody_reads_does_not_hold_the_end_up(desk):
    desk.path(SOCKET).mkdir()  # cannot be bound: a line on standard error
    reader, writer = os.pipe()
    fill_pipe(writer)
    splash = desk.start("Title", "Lines", stderr=writer)
    os.close(writer)
    splash.screen.wait_for_more()
    assert end_by_signal(splash) == 0
    os.close(reader)


def test_a_limit_for_the_size_of_files_does_not_end_an_armed_splash(desk, clocks):
    """Standard output is a file, and has reached the limit long before the reboot."""
    desk.trace_config(ALL_LINES)
    rebooted = desk.root / "rebooted"
    desk.reboot_script("/sbin/vrx_reboot", f": > '{rebooted}'")
    limits = {"SPLASH_TIMEOUT": LATER, "SPLASH_TIMEOUT_HARD": 2 * LATER}
    splash = wait_until_running(
        desk.start("-c", "Title", "Lines", log="/dev/null", refresh=0, env={**limits, **clocks.environment})
    )
    limit = len(splash.stdout)
    resource.prlimit(splash.pid, resource.RLIMIT_FSIZE, (limit, limit))
    splash.screen.wait_for_more()  # what was being written is there
    size = len(splash.stdout)
    clocks.set(steady=LATER)
    wait_until(rebooted.exists, "the reboot")
    splash.screen.wait_for_more()
    assert len(splash.stdout) == size, "nothing more can be written"
    splash.send("QUIT")
    assert splash.wait() == 0
