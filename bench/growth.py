"""How cost grows: instructions against size, drawn with both axes logarithmic."""

import json
import os
import signal
import subprocess
import tempfile
from concurrent.futures import ThreadPoolExecutor
from math import log10
from pathlib import Path

from desk import COUNTED, LANGUAGE, SOCKET, wait_until

from . import callgrind
from .programs import CALLGRIND, DEADLINE, PAGES, Page, wait_until_quiet

POWERS = (1, 10, 100, 1000)


def body_lines(programs, size):
    """One frame with so many body lines."""
    page = Page("en", "Brem K5 Start", ("System is starting",) * size)
    return programs.frame_instructions(programs.splash, page, 3, 5)


def posted(programs, size):
    """So many messages from one thread to another, and all of them run."""
    return programs.counted("post", size) - programs.counted("nothing", 0)


def waiting(programs, size):
    """One message posted and run while so many others wait for their time."""
    return programs.operation("post_while_waiting", size, 5, 15)


def masks(programs, size):
    """One test of a statement's mask against so many configured words."""
    return programs.operation("masks", size)


def language_file(programs, size):
    """One reading of a settings file of so many bytes."""
    with programs.desk(programs.bench("counted")) as desk:
        desk.write(LANGUAGE, "x" * size)
        return programs.operation("language", 0, 10, 30, desk.environment())


def child_lines(programs, size):
    """One child that writes so many lines, each of them logged."""
    return programs.counted("child_lines", 1, size) - programs.counted("nothing", 0)


def datagram(programs, size):
    """One datagram of so many bytes, up to the texts that it sets."""
    totals = [_with_datagrams(programs, data) for data in ([b";" + b"x" * (size - 1)], [])]
    return totals[0] - totals[1]


def _threads(pid):
    return len(list(Path(f"/proc/{pid}/task").iterdir()))


def _with_datagrams(programs, datagrams):
    """Instructions of a splash that is held at its first flip, takes datagrams, and is told to end:
    when the thread that serves the socket is gone, all have been handled."""
    with tempfile.TemporaryDirectory() as scratch:
        out = Path(scratch) / "profile"
        prefix = [*CALLGRIND, f"--callgrind-out-file={out}"]
        with programs.desk(programs.splash, run_prefix=prefix) as desk:
            page = PAGES["Latin"]
            splash = desk.start(
                *page.arguments, env={**programs.fonts("package"), **COUNTED}, refresh=0, faults="VIDIOC_DQBUF@1=block"
            )
            splash.wait_for_record(lambda record: record["kind"] == "fault", "the first flip", DEADLINE)
            wait_until(desk.path(SOCKET).is_socket, "the socket", DEADLINE)
            wait_until_quiet(splash.pid)
            threads = _threads(splash.pid)
            for data in [*datagrams, b"QUIT"]:
                splash.send(data, DEADLINE)
            wait_until(lambda: _threads(splash.pid) < threads, "the socket's end", DEADLINE)
            wait_until_quiet(splash.pid)
            os.kill(splash.pid, signal.SIGTERM)
            splash.wait(DEADLINE)
        return callgrind.instructions(out)


CURVES = (
    ("a frame, by body lines", body_lines, POWERS),
    ("messages posted and run", posted, (*POWERS, 10_000, 100_000, 1_000_000)),
    ("a message, by others waiting", waiting, (*POWERS, 10_000)),
    ("a datagram, by bytes", datagram, (2, 20, 200, 2000, 20_000, 200_000)),
    ("a mask test, by mask words", masks, POWERS),
    ("a child, by lines of output", child_lines, (*POWERS, 10_000, 100_000, 1_000_000)),
    ("the language file, by bytes", language_file, (*POWERS, 10_000, 100_000, 1_000_000)),
)


def steepest(points):
    """The steepest step of a curve: 1 is linear."""
    return max(log10(high / low) / log10(after / before) for (before, low), (after, high) in zip(points, points[1:]))


def measure(programs, workers):
    with ThreadPoolExecutor(workers) as pool:
        runs = [(name, [(size, pool.submit(cost, programs, size)) for size in sizes]) for name, cost, sizes in CURVES]
        return {name: [(size, run.result()) for size, run in points] for name, points in runs}


def plot(programs, folder):
    """Measures the curves, prints them, and draws them into the folder."""
    curves = measure(programs, os.cpu_count() or 1)
    commands = [
        "set terminal svg size 900,640 font 'sans-serif,13' background 'white'",
        "set output '" + str(folder / "growth.svg") + "'",
        "set logscale xy",
        "set grid",
        "set key outside right top",
        "set xlabel 'size'",
        "set format xy '10^{%T}'",
        "set ylabel 'instructions'",
    ]
    data, drawn = [], []
    for number, (name, points) in enumerate(curves.items()):
        block = "\n".join(f"{size} {cost}" for size, cost in points)
        data.append(f"$curve{number} << end\n{block}\nend")
        drawn.append(f"$curve{number} using 1:2 with linespoints title '{name}'")
        print(
            f"{name}: steepest step {steepest(points):.2f}; "
            + ", ".join(f"{size:,}: {cost:,.0f}" for size, cost in points)
        )
    drawn.append("x*1000 with lines dashtype 2 linecolor 'gray' title 'linear'")
    subprocess.run(["gnuplot"], input="\n".join([*data, *commands, "plot " + ", ".join(drawn)]), text=True, check=True)
    (programs.build / "growth.json").write_text(json.dumps(curves, indent=1) + "\n", encoding="utf-8")
