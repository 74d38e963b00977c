"""Eight programs send without a pause, and everything is traced: no command is lost, each sender's
order is kept, and the ring turns while the trace configuration is rewritten all the time."""

import os
import re
import statistics
import subprocess
import sys
import threading

from desk import SOCKET, wait_until_running
from desk.lines import ALL_LINES

LONG = bool(os.environ.get("BOOTLUME_LONG"))
DATAGRAMS = 1_000_000 if LONG else 20_000
SENDERS = 8
REWRITES_A_SECOND = 100
PERIOD_MS = 30
LEAST_FRAMES = 2  # a ring that the datagrams hold up shows none; how many more depends on the machine
LONGEST_S = 1800 if LONG else 120

# The splash is slower than its senders: they wait for room in its queue.
SENDER = """
import os, socket, sys
folder, number, count = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
os.chdir(folder)
sender = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
sender.connect(".bootlume")
for i in range(count):
    sender.send(b"sender %d;%d" % (number, i))
"""

RECEIVED = re.compile(rb"Got Message from socket, command = sender (\d+);(\d+)\|")


class Received(threading.Thread):
    """Reads the program's output to its end, and keeps what was received from whom."""

    def __init__(self, descriptor):
        super().__init__(daemon=True)
        self._descriptor = descriptor
        self.next = [0] * SENDERS
        self.misplaced = []
        self.polls = 0

    def run(self):
        with open(self._descriptor, "rb", buffering=1 << 20) as lines:
            for line in lines:
                found = RECEIVED.search(line)
                if found:
                    self._take(int(found[1]), int(found[2]))
                elif b"| Polling socket.|" in line:
                    self.polls += 1

    def _take(self, sender, number):
        if number != self.next[sender]:
            self.misplaced.append((sender, self.next[sender], number))
        self.next[sender] = number + 1


class Rewriter(threading.Thread):
    """Rewrites the trace configuration, always with the level of everything."""

    def __init__(self, desk):
        super().__init__(daemon=True)
        self._desk = desk
        self.end = threading.Event()
        self.rewritten = 0

    def run(self):
        while not self.end.wait(1 / REWRITES_A_SECOND):
            self.rewritten += 1
            self._desk.trace_config(f"# {self.rewritten}", ALL_LINES)


def start(desk):
    """The splash, and the reader of its output."""
    reader, writer = os.pipe()
    splash = desk.start("Title", "Lines", stdout=writer)
    os.close(writer)
    received = Received(reader)
    received.start()
    return wait_until_running(splash), received


def frame_gaps(splash, first):
    """Milliseconds between frames, from the frame `first` on."""
    shown = [record["time_ns"] for record in splash.records(kind="display", call="show") if record["frame"] >= first]
    return [(later - earlier) / 1e6 for earlier, later in zip(shown, shown[1:])]


def test_no_datagram_of_eight_senders_is_lost_and_the_ring_turns_meanwhile(desk, capsys):
    desk.trace_config(ALL_LINES)
    splash, received = start(desk)
    first = splash.screen.wait_for_frame(5).number
    rewriter = Rewriter(desk)
    rewriter.start()
    count = DATAGRAMS // SENDERS
    senders = [
        subprocess.Popen([sys.executable, "-I", "-c", SENDER, desk.path(SOCKET).parent, str(number), str(count)])
        for number in range(SENDERS)
    ]
    assert [sender.wait(LONGEST_S) for sender in senders] == [0] * SENDERS
    assert splash.quit(LONGEST_S) == 0  # behind all others in the queue
    rewriter.end.set()
    rewriter.join()
    received.join(LONGEST_S)
    gaps = frame_gaps(splash, first)

    median = statistics.median(gaps)
    late = sum(gap > 2 * PERIOD_MS for gap in gaps)
    with capsys.disabled():
        print(
            f"\n{sum(received.next)} datagrams in {sum(gaps) / 1000:.1f} s, {len(gaps)} frames: "
            f"median {median:.1f} ms, longest {max(gaps):.1f} ms, {late} late by a frame or more; "
            f"{rewriter.rewritten} configurations"
        )
    assert received.misplaced == [], "lost, doubled or in another order"
    assert received.next == [count] * SENDERS
    assert received.polls >= DATAGRAMS and rewriter.rewritten > 1
    assert median >= PERIOD_MS - 1
    assert len(gaps) >= LEAST_FRAMES, "the ring turns meanwhile"
