"""The start-up watchdog restarts a real kernel, by the programs at their real paths."""
import re

import pytest
from conftest import Splash

CALLED = r"\[ *([\d.]+)\] vrx_reboot: called"
RESTART = r"\[ *([\d.]+)\] reboot: Restarting system"
LIMIT = 90


def restarts(board):
    """Waits for the kernel's restart, and for the emulator's end where the machine has one."""
    assert board.wait_for_console(RESTART, LIMIT), "no restart; the console:\n" + board.console_text()
    if board.machine.restart_ends:
        assert board.wait_for_end(LIMIT) == 0


def time_of(board, pattern):
    found = re.search(pattern, board.console_text())
    return float(found[1]) if found else None


def armed(board, soft, hard, *texts):
    return Splash(board, "-c", *texts, SPLASH_TIMEOUT=str(soft), SPLASH_TIMEOUT_HARD=str(hard))


def test_the_soft_limit_restarts_through_the_device_stack(bench):
    with bench.fresh("vrx") as board:
        armed(board, 3, 600)
        restarts(board)
        assert time_of(board, CALLED) is not None


@pytest.mark.parametrize("variant, called", [("failing", True), ("plain", False)])
def test_the_plain_reboot_follows_a_device_stack_that_fails(bench, variant, called):
    with bench.fresh(variant) as board:
        armed(board, 3, 600)
        restarts(board)
        assert (time_of(board, CALLED) is not None) == called


def test_the_hard_limit_restarts_where_the_device_stack_hangs(bench):
    with bench.fresh("hanging") as board:
        armed(board, 3, 8)
        restarts(board)
        assert 4.5 <= time_of(board, RESTART) - time_of(board, CALLED)


def up_for(board, seconds):
    """Whether the board still answers so many seconds later."""
    return board.run(f"end=$(($(cut -d. -f1 /proc/uptime) + {seconds}))\n"
                     "until [ $(cut -d. -f1 /proc/uptime) -gt $end ]; do usleep 100000; done")[0] == 0


def test_a_splash_that_is_ended_in_time_restarts_nothing(bench):
    board = bench.usual()
    running = armed(board, 4, 5, "A", "B").wait_until_drawn()
    running.send("QUIT")
    assert running.wait_for_end() == 0
    assert up_for(board, 6)
    assert not re.search(CALLED + "|" + RESTART, board.console_text())
    assert "startup timeout" not in running.log()


def test_an_unarmed_splash_never_restarts(bench):
    board = bench.usual()
    running = Splash(board, "A", "B", SPLASH_TIMEOUT="1", SPLASH_TIMEOUT_HARD="2").wait_until_drawn()
    assert up_for(board, 3)
    assert not re.search(CALLED + "|" + RESTART, board.console_text())
    running.send("QUIT")
    assert running.wait_for_end() == 0
