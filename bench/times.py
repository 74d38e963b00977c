"""Measures of time and memory. Each is a ratio within one run, by turns, so that whatever else the
machine does strikes both sides."""

import json
import subprocess
import time
from contextlib import ExitStack
from pathlib import Path
from statistics import median

from .measure import Measure
from .programs import PAGES

PAGE = PAGES["Latin"]
# In the real-time class, where that is allowed, what else the machine does takes no part.
REAL_TIME = ["chrt", "--fifo", "10"]
if subprocess.run([*REAL_TIME, "true"], capture_output=True, check=False).returncode != 0:
    REAL_TIME = []
FRAME_MS = 30
BARE = "the bare program"


def _stamped_start(programs, program):
    """Milliseconds from exec to the end of the call that queues the first page."""
    with programs.desk(programs.bench("stamped"), PAGE, run_prefix=REAL_TIME) as desk:
        splash = desk.start(
            program,
            *programs.arguments(program, PAGE),
            env=programs.fonts("package"),
            refresh=0,
            faults="VIDIOC_DQBUF@1=block",
        )
        splash.wait_for_record(lambda record: record["kind"] == "fault", "the first flip")
        queued = splash.records(call="VIDIOC_QBUF")[1]
        begin = int(splash.stdout.split("\n", 1)[0])
        return (queued["time_ns"] + queued["duration_ns"] - begin) / 1e6


def start(programs, runs):
    ours, bare = [], []
    for _ in range(runs):
        ours.append(_stamped_start(programs, programs.splash))
        bare.append(_stamped_start(programs, programs.bare))
    yield Measure("start.time", "start to the first page", median(ours), "ms", BARE, median(bare), 1.10)


def _cpu_ns(pid):
    """CPU time of a process but for the thread that plays the display."""
    total = 0
    for task in Path(f"/proc/{pid}/task").iterdir():
        if (task / "comm").read_text(encoding="utf-8").strip() != "virtual-display":
            total += int((task / "schedstat").read_text(encoding="ascii").split()[0])
    return total


def _memory(pid, root):
    """Proportional share in bytes: (whole, without the virtual device's library and screen)."""
    whole, own, counts = 0, 0, True
    for line in Path(f"/proc/{pid}/smaps").read_text(encoding="utf-8").splitlines():
        if line.startswith("Pss:"):
            size = int(line.split()[1]) * 1024
            whole += size
            own += size if counts else 0
        elif "-" in line.split(" ", 1)[0]:
            counts = "libvirtual-device" not in line and str(root) not in line
    return whole, own


def minute(programs, seconds, sets=6):
    """A minute of splash: some of each program at the same time for the CPU time, each as often in
    each place of the order, for what one finds warm or cold is left to it by the one before it; then
    one of each alone."""
    both = ((programs.splash, PAGE.arguments), (programs.bare, PAGE.bare_arguments))
    used = [0.0, 0.0]
    with ExitStack() as stack:
        order = [(place + turn) % 2 for turn in range(sets) for place in range(2)]
        started = [(which, _start(programs, stack, *both[which]).pid) for which in order]
        time.sleep(seconds)
        for which, pid in started:
            used[which] += _cpu_ns(pid) / 1e6 / sets
    yield Measure("minute.cpu", f"CPU time of {seconds:g} s of splash", used[0], "ms", BARE, used[1], 1.05)
    memory = []
    for program in both:
        with ExitStack() as stack:
            splash = _start(programs, stack, *program)
            time.sleep(seconds)
            memory.append(_memory(splash.pid, splash.desk.root))
    for index, what in enumerate(("", ", without the virtual device")):
        yield Measure(
            f"memory.{index}",
            f"memory (proportional share){what}",
            memory[0][index] / 1024,
            "KiB",
            BARE,
            memory[1][index] / 1024,
            1.15,
        )


def _start(programs, stack, program, arguments):
    """Starts a program on a desk of its own, which the stack closes."""
    desk = stack.enter_context(programs.desk(program, PAGE))
    return desk.start(*arguments, env=programs.fonts("package"), log="")


def _told(programs, name, runs):
    """What a program prints that measures by itself."""
    words = [*REAL_TIME, str(programs.bench(name)), str(runs)]
    return json.loads(subprocess.run(words, check=True, capture_output=True).stdout)


def lateness(programs, runs):
    found = _told(programs, "lateness_bench", runs)
    yield Measure(
        "late",
        "a delayed message's lateness, median",
        found["message_us"],
        "us",
        "a timerfd",
        found["timerfd_us"],
        1000,
        difference=True,
    )


def launch(programs, runs):
    found = _told(programs, "first_line_bench", 20 * runs)  # a run takes two milliseconds
    yield Measure(
        "launch", "launch to the first line logged", found["launch_us"], "us", "posix_spawn", found["spawn_us"], 1.5
    )


def _quit_times(programs):
    """Milliseconds from QUIT to the close of the overlay and to the end of the process."""
    with programs.desk(programs.splash, PAGE) as desk:
        splash = desk.start(*PAGE.arguments, env=programs.fonts("package"))
        splash.screen.wait_for_frame(5)
        splash.wait_for_loop()
        begin = time.monotonic_ns()
        splash.send("QUIT")
        splash.wait()
        end = time.monotonic_ns()
        closed = splash.records(kind="device", call="close")[-1]
        return (closed["time_ns"] + closed["duration_ns"] - begin) / 1e6, (end - begin) / 1e6


def ending(programs, runs):
    closes, ends = zip(*(_quit_times(programs) for _ in range(runs)))
    yield Measure(
        "quit.close", "QUIT to the close of the overlay", median(closes), "ms", "a frame period", FRAME_MS, 1.2
    )
    yield Measure("quit.end", "QUIT to the end of the process", median(ends), "ms", "a frame period", FRAME_MS, 1.5)


def all_times(programs, runs, seconds):
    return [
        *start(programs, runs),
        *minute(programs, seconds),
        *lateness(programs, 10 * runs),
        *launch(programs, 10 * runs),
        *ending(programs, runs),
    ]
