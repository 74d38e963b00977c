"""The kernel's own record of the calls that reached the driver."""
import contextlib
import re

SWITCH = "/sys/class/video4linux/video1/dev_debug"
# The names of the calls, their arguments, and the calls that move buffers.
WITH_BUFFERS = 0x01 | 0x02 | 0x08
CALL = re.compile(r"\[ *([\d.]+)\] video1: VIDIOC_(\w+):(.*)")


@contextlib.contextmanager
def recording(board):
    board.output(f"dmesg -c >/dev/null; echo {WITH_BUFFERS} >{SWITCH}")
    yield
    board.output(f"echo 0 >{SWITCH}")


def calls(board):
    """(seconds, call, index or None, the rest) of each recorded call, in order."""
    result = []
    for line in board.text("dmesg").splitlines():
        match = CALL.match(line)
        if match:
            index = re.search(r"\bindex=(\d+)", match[3])
            result.append((float(match[1]), match[2], int(index[1]) if index else None, match[3]))
    return result


def flips(board, count):
    """At least that many calls that move buffers, in a row."""
    with recording(board):
        board.output(f"wait_for sh -c '[ $(dmesg | grep -c QBUF:) -ge {count} ]'")
    return [call for call in calls(board) if call[1] in ("QBUF", "DQBUF")]
