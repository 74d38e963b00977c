"""The start-up watchdog restarts a real kernel, by the programs at their real paths."""
import re

import pytest
from board_splash import Splash

from board.machines import INSTRUCTION_CLOCK
from desk import SOCKET

CALLED = r"\[ *([\d.]+)\] vrx_reboot: called"
RESTART = r"\[ *([\d.]+)\] reboot: Restarting system"


def restarts(board):
    """Waits for the kernel's restart, and for the emulator's end where the machine has one."""
    assert board.wait_for_console(RESTART), "no restart; the console:\n" + board.console_text()
    if board.machine.restart_ends:
        assert board.wait_for_end() == 0


def time_of(board, pattern):
    found = re.search(pattern, board.console_text())
    return float(found[1]) if found else None


def armed(soft, hard):
    """The command that starts the splash as the device does."""
    return f"SPLASH_TIMEOUT={soft} SPLASH_TIMEOUT_HARD={hard} splash -c A B"


def test_the_soft_limit_restarts_through_the_device_stack(bench):
    with bench.fresh("vrx") as board:
        board.post(armed(3, 600))
        restarts(board)
        assert time_of(board, CALLED) is not None


@pytest.mark.parametrize("variant, called", [("failing", True), ("plain", False)])
def test_the_plain_reboot_follows_a_device_stack_that_fails(bench, variant, called):
    with bench.fresh(variant) as board:
        board.post(armed(3, 600))
        restarts(board)
        assert (time_of(board, CALLED) is not None) == called


def test_the_hard_limit_restarts_where_the_device_stack_hangs(bench):
    with bench.fresh("hanging") as board:
        board.post(armed(3, 8))
        restarts(board)
        assert time_of(board, CALLED) < time_of(board, RESTART)


def stays_up(board, begin, seconds):
    """Whether the board still answers when it has been up for so long since `begin`, and has not
    begun to restart."""
    board.output(f"until [ $(cut -d. -f1 /proc/uptime) -gt {begin + seconds} ]; do usleep 100000; done")
    return not re.search(CALLED + "|" + RESTART, board.console_text())


def test_a_splash_that_is_ended_in_time_restarts_nothing(bench):
    limit = 8
    # A board on a busy host is slow as a whole then, its clock as well.
    with bench.fresh("plain", emulator=INSTRUCTION_CLOCK) as board:
        for end in (f"board-tool send {SOCKET} QUIT", "kill -INT $(cat /run/splash.pid)"):
            begin, status = map(
                int,
                board.text(
                    f"""
            cut -d. -f1 /proc/uptime
            {armed(limit, limit + 1)}
            wait_for grep -q bl-dispatcher /proc/$(cat /run/splash.pid)/comm
            {end}
            wait_for test -e /run/splash.status
            cat /run/splash.status"""
                ).split(),
            )
            assert status == 0
            assert "startup timeout" not in board.text("cat /run/splash.log")
        assert stays_up(board, begin, limit + 3)


def test_an_unarmed_splash_never_restarts(bench):
    board = bench.usual()
    begin = int(board.text("cut -d. -f1 /proc/uptime"))
    running = Splash(board, "A", "B", SPLASH_TIMEOUT="1", SPLASH_TIMEOUT_HARD="2").wait_until_drawn()
    assert stays_up(board, begin, 6)
    running.send("QUIT")
    assert running.wait_for_end() == 0
