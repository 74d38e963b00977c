"""A long life: nothing grows. Of many short ones, test_chaos.py tells."""

import os
import re
from pathlib import Path

import pytest

from desk import sanitizer_runtimes, wait_until

LONG = bool(os.environ.get("BOOTLUME_LONG"))
FRAMES = 1_000_000 if LONG else 3_000
SETTLED = 500  # frames until everything that is made once has been made
MOST_GROWTH_KB = 512
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
