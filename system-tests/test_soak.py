"""Long lives and many lives: nothing grows, and every one of them ends."""

import os
import random
import re
import signal
import subprocess
from pathlib import Path

import pytest

from desk import SOCKET, handles_signals, is_dispatching, listens, sanitizer_runtimes, wait_until

LONG = bool(os.environ.get("BOOTLUME_LONG"))
FRAMES = 1_000_000 if LONG else 3_000
STARTS = 2_000 if LONG else 60
SETTLED = 500  # frames until everything that is made once has been made
MOST_GROWTH_KB = 512
LONGEST_LIFE_S = 0.15
LONGEST_S = 7200 if LONG else 120

# Every frame takes a whole period by this clock, so that none of them sleeps.
NO_SLEEP = "0,30000,0"


class Use:
    """What a process holds."""

    def __init__(self, pid):
        process = Path(f"/proc/{pid}")
        status = (process / "status").read_text()
        self.memory_kb = int(re.search(r"VmRSS:\s*(\d+)", status)[1])
        self.threads = int(re.search(r"Threads:\s*(\d+)", status)[1])
        # The fewest of some looks: the language file is open for a moment in every frame.
        self.descriptors = min(len(os.listdir(process / "fd")) for _ in range(10))
        self.mappings = len((process / "maps").read_text().splitlines())
        self.children = sum(len((task / "children").read_text().split()) for task in (process / "task").iterdir())

    def __str__(self):
        return (
            f"{self.memory_kb} kB, {self.descriptors} descriptors, {self.threads} threads, " f"{self.children} children"
        )


def test_a_long_life_takes_no_more_than_a_short_one(desk, build_dir, run_prefix, preload, capsys):
    """New texts come all the time, as well."""
    if run_prefix or sanitizer_runtimes(build_dir / "bin/bootlume"):
        pytest.skip("memory is measured in the product, run by the machine itself")
    desk.language("de")
    splash = desk.start(
        "Title", "Lines", refresh=0, log="/dev/null", env={**preload("test-clocks"), "STEPPING_CLOCK": NO_SLEEP}
    )
    texts = 0

    def drawn(frames):
        nonlocal texts
        splash.send(f"Title {texts % 100};" + "\n".join(f"line {i}" for i in range(texts % 20)))
        texts += 1
        assert splash.process.poll() is None
        return splash.screen.frame_number >= frames

    wait_until(lambda: drawn(SETTLED), "the first frames", LONGEST_S)
    before = Use(splash.pid)
    wait_until(lambda: drawn(FRAMES), f"{FRAMES} frames", LONGEST_S)
    after = Use(splash.pid)
    assert splash.quit() == 0
    with capsys.disabled():
        print(f"\n{FRAMES} frames, {texts} texts: {before} -> {after}")
    assert after.memory_kb <= before.memory_kb + MOST_GROWTH_KB
    assert (after.descriptors, after.threads, after.children) == (before.descriptors, before.threads, 0)
    assert after.mappings <= before.mappings + 2


def end_at_random(splash, chance):
    """From a random moment on it is asked to end, again and again: what comes too early is lost."""
    try:
        splash.process.wait(chance.uniform(0, LONGEST_LIFE_S))
    except subprocess.TimeoutExpired:
        pass
    how = chance.choice(["QUIT", signal.SIGINT, signal.SIGHUP])

    def ended():
        if splash.process.poll() is None:
            if how != "QUIT":
                splash.signal(how)
            elif is_dispatching(splash) and listens(splash.desk.path(SOCKET)):
                try:
                    splash.send("QUIT", 1)
                except (AssertionError, OSError):
                    pass  # it ended in between
        return splash.process.poll() is not None

    wait_until(ended, f"the end by {how}")


def test_every_one_of_many_short_lives_ends_and_leaves_nothing(desk, run_prefix, capsys):
    """The end comes at any moment from the first signal handler on."""
    if run_prefix:
        pytest.skip("an emulator catches all signals from its own start on: nobody sees when the" " program does")
    chance = random.Random(1)
    before = Use(os.getpid())
    for life in range(STARTS):
        armed = life % 3 == 0
        splash = desk.start(*(["-c"] if armed else []), "Title", "Lines")
        wait_until(lambda: handles_signals(splash), "the handlers")
        end_at_random(splash, chance)
        assert splash.wait() == 0, (life, splash.stderr)
        assert splash.stderr == "" and not splash.screen.streaming
    after = Use(os.getpid())
    left = sorted(path.name for path in desk.path("/tmp").iterdir())
    with capsys.disabled():
        print(f"\n{STARTS} lives, every one ended with status 0")
    assert left == [".bootlume"]
    assert after.children == before.children and after.descriptors <= before.descriptors + 1
