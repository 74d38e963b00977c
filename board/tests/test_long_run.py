"""Splash with text commands all the time: nothing grows."""
import time

import pytest

from pages import steps

from board import boards

SHORT, LONG = 120, 30 * 60
SENDER = f"""
count=0
while [ ! -e /run/stop-sending ]; do
  count=$((count + 1))
  board-tool send {boards.SOCKET} "Number $count;of many
lines: $count" || break
  usleep 20000
done
echo $count >/run/sent
"""


def sizes(board, pid):
    """(kilobytes in memory, descriptors, threads)"""
    text = board.text(f"awk '/^VmRSS/ {{ print $2 }} /^Threads/ {{ print $2 }}' /proc/{pid}/status;"
                      f" ls /proc/{pid}/fd | wc -l")
    memory, threads, descriptors = (int(word) for word in text.split())
    return memory, descriptors, threads


@pytest.mark.once
def test_memory_descriptors_and_threads_stay_as_they_are(splash, board, bench, desk, request):
    seconds = LONG if request.config.getoption("long") else SHORT
    running = splash("A", "B").wait_until_drawn()
    board.output(f"rm -f /run/stop-sending /run/sent; cat >/run/sender <<'END'\n{SENDER}\nEND\n"
                 "setsid sh /run/sender >/run/sender.log 2>&1 &")
    samples, end = [], time.monotonic() + seconds
    while time.monotonic() < end:
        samples.append(sizes(board, running.pid))
        board.output("usleep 1000000")
    board.output(": >/run/stop-sending; wait_for 20 test -s /run/sent")
    sent = int(board.text("cat /run/sent"))
    settled = samples[len(samples) // 4:]
    print(f"{sent} commands, {len(samples)} samples, memory {samples[0][0]} kB at first,"
          f" {settled[0][0]} kB settled, {settled[-1][0]} kB at last")
    assert board.text("cat /run/sender.log") == ""
    assert sent >= seconds, "the commands came all the time"
    assert len({sample[1:] for sample in settled}) == 1, "descriptors and threads"
    assert settled[-1][0] - settled[0][0] <= 128, [sample[0] for sample in samples]
    last = desk.page(f"Number {sent}", f"of many\nlines: {sent}")
    board.output("wait_for 20 drawn")
    steps(running.screens(4)[-2:], last, folder=bench.workshop.work)
    running.send("QUIT")
    assert running.wait_for_end() == 0
