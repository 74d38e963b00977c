"""Lives with random delays before locks, polls and closes, ended at random moments: every one of them
ends with the status that is documented. All chance in a life follows from its number; with
BOOTLUME_SEED=N the run begins with life N.

This finds what many moments have in common. A fault of one exact moment hides from it: such a moment needs
a test of its own, which holds the program there."""

import os
import random
import signal
import subprocess
import time
from collections import Counter, namedtuple
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass
from functools import partial

import pytest

from desk import (
    SHELL,
    SOCKET,
    Desk,
    Late,
    handles_signals,
    hears_signals,
    is_dispatching,
    listens,
    sanitizer_runtimes,
    wait_until,
    wait_until_running,
)
from desk.lines import ALL_LINES, OWN_LINES

LONG = bool(os.environ.get("BOOTLUME_LONG"))
FIRST = int(os.environ.get("BOOTLUME_SEED", "0"))
LIVES, LIVES_SANITIZED, LIVES_SHORT = 1000, 200, 16
AT_ONCE = 4
LONGEST_START_S = 0.3  # with all delays; what comes later than the start is tried as well
LONGEST_TEARDOWN_S = 0.1
NEVER = 7777
# The C library reads a time zone that is not named anew for each line. ThreadSanitizer takes that for
# a race, and finds only after seconds of work that it is not to be reported.
TIME_ZONE = {"TZ": "UTC0"}

VRX, PLAIN = "/sbin/vrx_reboot", "/sbin/reboot"
REQUESTS = ["QUIT", "", signal.SIGINT, signal.SIGHUP] * 2 + [signal.SIGTERM]
# What the first reboot program does behind its work; without one there is no watchdog, either.
ENDS_OF_REBOOT = [None, None, "exit 0", "exit 3", "kill -9 $$", "sleep 0.3; echo late"]


@dataclass
class Plan:
    """What happens in a life."""

    seed: int

    def __post_init__(self):
        chance = random.Random(self.seed)
        self.moment = chance.choice(["start", "steady", "end"])
        self.frames = chance.randint(1, 6)
        self.pause = chance.uniform(0, LONGEST_TEARDOWN_S if self.moment == "end" else LONGEST_START_S)
        self.requests = chance.choices(REQUESTS, k=2 if self.moment == "end" else 1)
        self.reboot = chance.choice(ENDS_OF_REBOOT)
        self.hard_limit = chance.choice([0, NEVER])
        self.trace = chance.choice([ALL_LINES, OWN_LINES])

    def statuses(self):
        """Those that are allowed: only SIGTERM, which is not handled, cuts a life short."""
        if signal.SIGTERM not in self.requests:
            return {0}
        return {-signal.SIGTERM} if self.requests[0] == signal.SIGTERM else {0, -signal.SIGTERM}


def gone(splash):
    return splash.process.poll() is not None


def pause(splash, seconds):
    try:
        splash.process.wait(seconds)
    except subprocess.TimeoutExpired:
        pass


def takes(splash, request):
    if isinstance(request, signal.Signals):
        return hears_signals(splash)
    return is_dispatching(splash) and listens(splash.desk.path(SOCKET))


def ask(splash, request):
    """Asks for the end; whether that must be heard. What comes before the loop runs may be lost."""
    if isinstance(request, signal.Signals):
        must_be_heard = request == signal.SIGTERM or hears_signals(splash)
        splash.signal(request)
        return must_be_heard
    must_be_heard = is_dispatching(splash)
    if not listens(splash.desk.path(SOCKET)):
        return False
    try:
        splash.send(request, 1)
        return must_be_heard
    except (Late, OSError):
        return False  # it ended in between


def ask_until_heard(splash, request):
    while not ask(splash, request) and not gone(splash):
        wait_until(lambda: gone(splash) or takes(splash, request), "the loop")


def begin(desk, plan, delays):
    desk.trace_config(plan.trace)
    env = {**delays(desk, plan.seed), **TIME_ZONE, "SPLASH_TIMEOUT": 0, "SPLASH_TIMEOUT_HARD": plan.hard_limit}
    for program, end in ((VRX, plan.reboot), (PLAIN, "exit 0")):
        mark = desk.path(program)
        work = f": > '{mark}.begun'; echo at work; echo still at work >&2; : > '{mark}.done'"
        desk.write(program, f"{SHELL}{work}; {end}\n", 0o755)
    arguments = [] if plan.reboot is None else ["-c"]
    return desk.start(*arguments, "Title", "Lines", env=env, log="/dev/null")


def end(splash, plan):
    """Ends it as planned; the seconds that it took from when it had to hear that."""
    if plan.moment != "start":
        wait_until_running(splash).screen.wait_for_frame(plan.frames)
    if plan.moment != "end":
        pause(splash, plan.pause)
    ask_until_heard(splash, plan.requests[0])
    heard = time.monotonic()
    if len(plan.requests) > 1:
        pause(splash, plan.pause)
        if not gone(splash):
            ask(splash, plan.requests[1])
    splash.wait()
    return time.monotonic() - heard


def judge(desk, splash, plan):
    """Fails if the life did not end as it should have."""
    status = splash.process.returncode
    assert status in plan.statuses(), f"status {status}"
    assert splash.stderr == ""
    assert status != 0 or not desk.screen.streaming, "the display is left on"
    assert os.listdir(desk.path("/tmp")) in ([], [".bootlume"])
    for program in (VRX, PLAIN):
        if desk.path(program + ".begun").exists():
            wait_until(desk.path(program + ".done").exists, f"{program} to do its work to the end")


Life = namedtuple("Life", "status seconds wrong")


def live(products, delays, seed):
    """One life, from its start to its end."""
    plan = Plan(seed)
    with Desk(**products) as desk:
        splash = begin(desk, plan, delays)
        try:
            wait_until(lambda: handles_signals(splash), "the handlers")
            seconds = end(splash, plan)
            judge(desk, splash, plan)
        except AssertionError as error:
            return Life(None, 0, f"life {seed}, {vars(plan)}: {error} {splash.stderr}")
        return Life(splash.process.returncode, seconds, None)


@pytest.fixture
def delays(preload_dir, build_dir):
    """The environment for the delays of one life."""
    library = preload_dir / "librandom-delays.so"
    assert (build_dir / "lib" / library.name).exists(), "not built"

    def environment(desk, seed):
        return {"LD_PRELOAD": f"{desk.environment()['LD_PRELOAD']}:{library}", "RANDOM_DELAYS": seed}

    return environment


def test_every_life_ends_whatever_is_delayed_and_whenever_it_is_ended(products, delays, run_prefix, capsys):
    if run_prefix:
        pytest.skip("an emulator catches all signals from its own start on: nobody sees when the program does")
    count = LIVES_SHORT
    if LONG:
        count = LIVES_SANITIZED if sanitizer_runtimes(products["bootlume"]) else LIVES
    with ThreadPoolExecutor(AT_ONCE) as pool:
        lives = list(pool.map(partial(live, products, delays), range(FIRST, FIRST + count)))
    with capsys.disabled():
        statuses = dict(Counter(life.status for life in lives))
        print(f"\n{count} lives, statuses {statuses}, the longest end {max(life.seconds for life in lives):.2f} s")
    assert [life.wrong for life in lives if life.wrong] == []
