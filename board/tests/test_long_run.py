"""Splash with text commands all the time: nothing grows."""
import dataclasses
import time

import pytest
from kernel_log import flips
from pages import steps

from desk import SOCKET

SHORT, LONG = 120, 30 * 60
SENDER = f"""
count=0
while [ ! -e /run/stop-sending ]; do
  count=$((count + 1))
  board-tool send {SOCKET} "Number $count;of many
lines: $count" || break
  echo $count >/run/sending.new
  mv /run/sending.new /run/sending
  usleep 20000
done
mv /run/sending /run/sent
"""


@dataclasses.dataclass(frozen=True)
class Sample:
    """What the splash held at a moment of the board's uptime; kilobytes, and texts sent so far."""

    uptime: float
    resident: int
    proportional: int
    threads: int
    descriptors: int
    sent: int


def sample(board, pid):
    words = board.text(
        f"cut -d' ' -f1 /proc/uptime; awk '/^VmRSS/ {{ print $2 }}' /proc/{pid}/status;"
        f" awk '/^Pss:/ {{ print $2 }}' /proc/{pid}/smaps_rollup;"
        f" ls /proc/{pid}/task | wc -l; ls /proc/{pid}/fd | wc -l; cat /run/sending"
    ).split()
    return Sample(float(words[0]), *map(int, words[1:]))


def frames_a_second(board):
    """Counted by the kernel, over some twenty frames."""
    released = [call for call in flips(board, 40) if call[1] == "DQBUF"]
    return (len(released) - 1) / (released[-1][0] - released[0][0])


def told(samples, rates, path):
    """The figures of the run in a file, and their sum in a line."""
    with open(path, "w", encoding="ascii") as file:
        file.write("uptime_s rss_kb pss_kb threads descriptors texts_sent\n")
        for one in samples:
            file.write(" ".join(map(str, dataclasses.astuple(one))) + "\n")
    seconds = samples[-1].uptime - samples[0].uptime
    print(
        f"{seconds:.0f} s on the board, {len(samples)} samples, {samples[-1].sent} texts, about"
        f" {seconds * sum(rates) / len(rates):.0f} frames"
        f" ({min(rates):.1f} to {max(rates):.1f} a second);"
        f" first {samples[0]}; last {samples[-1]}; all in {path}"
    )


@pytest.mark.once
def test_memory_descriptors_and_threads_stay_as_they_are(splash, board, bench, desk, request):
    seconds = LONG if request.config.getoption("long") else SHORT
    running = splash("A", "B").wait_until_drawn()
    board.output(
        f"rm -f /run/stop-sending /run/sent; cat >/run/sender <<'END'\n{SENDER}\nEND\n"
        "setsid sh /run/sender >/run/sender.log 2>&1 &"
    )
    board.output("wait_for test -s /run/sending")
    samples, rates, end = [], [], time.monotonic() + seconds
    while time.monotonic() < end:
        if len(samples) % 8 == 0:
            rates.append(frames_a_second(board))
        samples.append(sample(board, running.pid))
        board.output(f"usleep {seconds // 120 * 1000000}")
    board.output(": >/run/stop-sending; wait_for test -s /run/sent")
    sent = int(board.text("cat /run/sent"))
    told(samples, rates, bench.workshop.work / "long-run.txt")
    settled = samples[len(samples) // 4 :]
    assert board.text("cat /run/sender.log") == ""
    assert all(later.sent > earlier.sent for earlier, later in zip(samples, samples[1:])), "texts all the time"
    assert len({(one.threads, one.descriptors) for one in settled}) == 1, "descriptors and threads"
    for size in ("resident", "proportional"):
        sizes = [getattr(one, size) for one in settled]
        # The most of some: what another program shares at the moment lowers the proportional size.
        assert max(sizes[-5:]) - max(sizes[:5]) <= 128, (size, sizes)
    last = desk.page(f"Number {sent}", f"of many\nlines: {sent}")
    board.output("wait_for drawn")
    steps(running.screens(4)[-2:], last, folder=bench.workshop.work)
    running.send("QUIT")
    assert running.wait_for_end() == 0
