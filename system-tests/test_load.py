"""Eight programs send without a pause until the ring has turned once, and everything is traced: no command
is lost, and each sender's order is kept, while the trace configuration is rewritten all the time."""

import os
import re
import subprocess
import sys
import threading

from desk import SOCKET, wait_until, wait_until_running
from desk.lines import ALL_LINES

LONG = bool(os.environ.get("BOOTLUME_LONG"))
DATAGRAMS = 1_000_000 if LONG else 20_000
SENDERS = 8
REWRITES_A_SECOND = 100
TURN = 66  # frames
LONGEST_S = 1800 if LONG else 120

# The splash is slower than its senders: they wait for room in its queue, which is never empty.
SENDER = """
import os, socket, sys
folder, number, least = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
os.chdir(folder)
sender = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
sender.connect(".bootlume")
sent = 0
while sent < least or not os.path.exists("enough"):
    sender.send(b"sender %d;%d" % (number, sent))
    sent += 1
print(sent)
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


def test_no_datagram_of_eight_senders_is_lost_and_the_ring_turns_meanwhile(desk, capsys):
    desk.trace_config(ALL_LINES)
    splash, received = start(desk)
    rewriter = Rewriter(desk)
    rewriter.start()
    folder = desk.path(SOCKET).parent
    senders = [
        subprocess.Popen(
            [sys.executable, "-I", "-c", SENDER, folder, str(number), str(DATAGRAMS // SENDERS)],
            stdout=subprocess.PIPE,
            text=True,
        )
        for number in range(SENDERS)
    ]
    wait_until(lambda: min(received.next) > 0, "all senders to be heard", LONGEST_S)
    splash.screen.wait_for_more(TURN, LONGEST_S)
    (folder / "enough").touch()
    sent = [int(sender.communicate(timeout=LONGEST_S)[0]) for sender in senders]
    assert splash.quit(LONGEST_S) == 0  # behind all others in the queue
    rewriter.end.set()
    rewriter.join()
    received.join(LONGEST_S)
    with capsys.disabled():
        print(f"\n{sum(sent)} datagrams, {splash.screen.frame_number} frames, {rewriter.rewritten} configurations")
    assert received.misplaced == [], "lost, doubled or in another order"
    assert received.next == sent
    assert received.polls >= sum(sent) and rewriter.rewritten > 1
