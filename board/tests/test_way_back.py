"""The way from the board's screen to the host, checked without the splash."""
import struct

import pytest
from pages import steps

from desk import DEVICE, pictures
from board.channel import parse_frames

PATTERN = struct.pack(
    f"<{pictures.WIDTH * pictures.HEIGHT}H",
    *((x * 31 + y * 7919) & 0xFFFF for y in range(pictures.HEIGHT) for x in range(pictures.WIDTH)),
)


def test_a_picture_shown_by_the_driver_comes_back_pixel_for_pixel(board):
    board.output(f"board-tool pattern {DEVICE} >/run/pattern.log 2>&1 & echo $! >/run/pattern.pid")
    try:
        shown = pictures.split(board.output("screen 4 /run/picture && cat /run/picture"))
    finally:
        board.run("kill $(cat /run/pattern.pid); wait_for test ! -d /proc/$(cat /run/pattern.pid)")
    # The driver's own blank screen may come first.
    assert PATTERN in shown
    assert all(picture == PATTERN for picture in shown[shown.index(PATTERN) :])


def test_a_script_gives_its_output_and_its_status(board):
    assert board.run("echo one; echo two >&2; exit 7") == (7, b"one\ntwo\n")


def test_the_board_runs_the_kernel_of_its_image(board, bench):
    assert board.text("uname -r").strip() in str(list(bench.workshop.image.root.glob("lib/modules/*")))


def test_a_damaged_frame_is_known_as_damaged():
    lines = ["noise", "#B 1 0 4 " + "0" * 64, "AAAAAA==", "#E 1"]
    assert list(parse_frames(lines)) == [("1", 0, None)]


def test_a_frame_that_a_second_one_cuts_off_is_dropped():
    head = "#B 2 0 4 " + "0" * 64
    assert [frame[0] for frame in parse_frames(["#B 1 0 4 x", "AAAA", head, "#E 2"])] == ["2"]


def test_one_wrong_pixel_on_one_screen_is_found(tmp_path):
    wrong = bytearray(PATTERN)
    wrong[2 * (5 * pictures.WIDTH + 7)] ^= 1
    with pytest.raises(AssertionError, match=r"in 1 pixels, first at \(7, 5\)"):
        steps([PATTERN, bytes(wrong)], [PATTERN], folder=tmp_path)
    assert (tmp_path / "screen-difference.png").exists()
