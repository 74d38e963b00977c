"""How the program and the kernel's driver deal with each other."""
import re

import pytest
from kernel_log import calls, flips, recording

from desk import DEVICE


def test_flips_alternate_between_the_two_buffers(splash, board):
    splash("A", "B").wait_until_drawn()
    seen = [(call, index) for _, call, index, _ in flips(board, 24)]
    assert len(seen) >= 24
    turn = [("QBUF", 0), ("DQBUF", 1), ("QBUF", 1), ("DQBUF", 0)]
    assert seen[0] in turn
    start = turn.index(seen[0])
    assert seen == [turn[(start + step) % 4] for step in range(len(seen))]


def test_the_driver_paces_the_flips(splash, board):
    splash("A", "B").wait_until_drawn()
    released = [call for call in flips(board, 40) if call[1] == "DQBUF"]
    sequence = [int(re.search(r"sequence=(\d+)", rest)[1]) for *_, rest in released]
    assert len(sequence) >= 10
    assert all(later > earlier for earlier, later in zip(sequence, sequence[1:])), sequence
    # No more than one flip in 30 ms, but for what one late flip lets the next be early.
    period = (released[-1][0] - released[0][0]) / (len(released) - 1)
    assert period >= 0.029, period


def test_a_slower_driver_slows_the_flips(splash, board):
    """Twenty-four pictures a second are fewer than the program draws by itself."""
    try:
        board.output("screen-setup 24")
        splash("A", "B").wait_until_drawn()
        times = [call[0] for call in flips(board, 40) if call[1] == "DQBUF"]
        assert (times[-1] - times[0]) / (len(times) - 1) >= 0.040
    finally:
        board.run("kill $(cat /run/splash.pid); wait_for test -e /run/splash.status")
        board.output("screen-setup")


def end_by_command(running):
    running.send("QUIT")


def end_by_hangup(running):
    running.signal("HUP")


def end_by_interrupt(running):
    running.signal("INT")


@pytest.mark.parametrize("end", [end_by_command, end_by_hangup, end_by_interrupt])
def test_an_ended_splash_leaves_the_device_free(splash, board, end):
    with recording(board):
        running = splash("A", "B").wait_until_drawn()
        board.output("dmesg -c >/dev/null")
        end(running)
        assert running.wait_for_end() == 0
    off = [call for call in calls(board) if call[1] == "STREAMOFF"]
    assert len(off) == 1 and "error" not in off[0][3]
    again = splash("A", "B").wait_until_drawn()
    again.send("QUIT")
    assert again.wait_for_end() == 0


def test_a_board_without_the_device_ends_the_splash_with_255(splash, board):
    board.output(f"mv {DEVICE} /dev/elsewhere")
    try:
        running = splash("A", "B")
        assert running.wait_for_end() == 255
        assert "Couldn't open v4l2 overlay device." in running.log()
    finally:
        board.output(f"mv /dev/elsewhere {DEVICE}")


def test_a_driver_that_refuses_to_stream_ends_the_splash_with_255(splash, board):
    board.output("v4l2-ctl -d /dev/video1 --set-ctrl inject_vidioc_streamon_error=1")
    running = splash("A", "B")
    assert running.wait_for_end() == 255
    assert "Couldn't set video device to stream on." in running.log()
    assert splash("A", "B").wait_until_drawn()


def test_the_driver_keeps_the_surface_contract(bench, board):
    try:
        status, output = board.run(f"BOOTLUME_CONTRACT_DEVICE={DEVICE} surface-contract-test")
    finally:
        board.output("screen-setup")
    text = output.decode(errors="replace")
    assert status == 0, text
    assert int(re.search(r"\[  PASSED  \] (\d+) tests", text)[1]) >= 26
    assert "SKIPPED" not in text
