"""Measures that repeat: instructions, files, bytes, allocations."""

import subprocess
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from .measure import Measure
from .programs import PAGES

MOST_BYTES = 400_000
BARE = "the bare program"


def starts(programs, pool):
    """From exec to the first page."""
    pages = ("Latin", "Chinese")
    runs = {
        (program, page): pool.submit(programs.profile, program, PAGES[page], 1)
        for program in (programs.splash, programs.bare)
        for page in pages
    }
    default = {page: pool.submit(programs.profile, programs.splash, PAGES[page], 1, "distribution") for page in pages}
    files = {
        (page, tree): pool.submit(programs.files_opened, PAGES[page], tree)
        for page in pages
        for tree in ("package", "distribution")
    }
    for page in pages:
        ours = runs[programs.splash, page].result()
        yield Measure(
            f"start.{page}",
            f"start to the first page, {page}",
            ours.total,
            "instructions",
            BARE,
            runs[programs.bare, page].result().total,
            1.10,
            counted=True,
        ), ours
    for page in pages:
        yield Measure(
            f"start.fonts.{page}",
            f"the same with the package's fonts.conf, {page}",
            runs[programs.splash, page].result().total,
            "instructions",
            "the distribution's",
            default[page].result().total,
            0.36,
            counted=True,
        ), None
    for page in pages:
        yield Measure(
            f"files.{page}",
            f"files opened up to the first page, {page}",
            files[page, "package"].result(),
            "files",
            "the distribution's",
            files[page, "distribution"].result(),
            0.5,
            counted=True,
        ), None


def frames(programs, pool):
    """One steady frame."""
    runs = {
        (program, name): pool.submit(programs.frame_profile, program, page)
        for name, page in PAGES.items()
        for program in (programs.splash, programs.bare)
    }
    profiles = {key: run.result() for key, run in runs.items()}
    for name in PAGES:
        ours, bare = profiles[programs.splash, name], profiles[programs.bare, name]
        yield Measure(
            f"frame.{name}",
            f"one steady frame, {name}",
            round(ours.total),
            "instructions",
            BARE,
            round(bare.total),
            1.02,
            counted=True,
        ), ours
    yield Measure(
        "frame.mixed",
        "one steady frame, alternating fonts",
        round(profiles[programs.splash, "alternating"].total),
        "instructions",
        "Latin only",
        round(profiles[programs.splash, "Latin"].total),
        1.25,
        counted=True,
    ), None
    for name in PAGES:
        ours, bare = profiles[programs.splash, name], profiles[programs.bare, name]
        yield Measure(
            f"allocations.{name}",
            f"allocations of a steady frame, {name}",
            ours.allocations,
            "",
            BARE,
            bare.allocations,
            difference=True,
            counted=True,
        ), None


def operations(programs, pool):
    """Single operations, each the difference of two numbers of them."""
    names = ("nothing", "disabled_statement", "written_line", "written_line_spdlog", "post", "post_glib")
    runs = {name: pool.submit(programs.operation, name) for name in names}
    cost = {name: run.result() for name, run in runs.items()}
    yield Measure(
        "trace.disabled",
        "a disabled trace statement",
        cost["disabled_statement"],
        "instructions",
        "an empty loop",
        cost["nothing"],
        5,
        difference=True,
        counted=True,
    ), None
    yield Measure(
        "trace.written",
        "a written trace line",
        cost["written_line"],
        "instructions",
        "spdlog",
        cost["written_line_spdlog"],
        2.1,  # some instructions come and go with what the logger's thread does
        counted=True,
    ), None
    # Without a limit: how often the two threads wait for each other is not the same in two runs.
    yield Measure("post", "post to run of a message", cost["post"], "instructions", "GLib", cost["post_glib"]), None


def libraries(program):
    """File names of all libraries that a program loads."""
    listed = subprocess.run(["ldd", str(program)], capture_output=True, text=True, check=True)
    return {Path(line.split()[0]).name for line in listed.stdout.splitlines() if line.strip()}


def sizes(programs):
    """The program's file and its libraries."""
    with tempfile.TemporaryDirectory() as scratch:
        stripped = Path(scratch) / "stripped"
        subprocess.run(["strip", "-o", str(stripped), str(programs.splash)], check=True)
        yield Measure(
            "size", "stripped binary", stripped.stat().st_size, "bytes", "-", limit=MOST_BYTES, counted=True
        ), None
    ours = libraries(programs.splash)
    yield Measure(
        "libraries",
        "libraries beyond those of cairo and the C++ runtime",
        len(ours - libraries(programs.bare)),
        "",
        "-",
        limit=0,
        counted=True,
    ), None


def all_counts(programs, workers):
    """(measures, profiles by key)."""
    measures, profiles = [], {}
    with ThreadPoolExecutor(workers) as pool:
        for part in (starts(programs, pool), frames(programs, pool), operations(programs, pool), sizes(programs)):
            for measure, profile in part:
                measures.append(measure)
                if profile:
                    profiles[measure.key] = profile
    return measures, profiles
