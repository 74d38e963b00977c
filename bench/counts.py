"""Measures that repeat: instructions and bytes."""

import os
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
        (program, page): pool.submit(programs.start_instructions, program, PAGES[page])
        for program in (programs.splash, programs.bare)
        for page in pages
    }
    default = {
        page: pool.submit(programs.start_instructions, programs.splash, PAGES[page], "distribution") for page in pages
    }
    for page in pages:
        yield Measure(
            f"start.{page}",
            f"start to the first page, {page}",
            runs[programs.splash, page].result(),
            "instructions",
            BARE,
            runs[programs.bare, page].result(),
            1.10,
            counted=True,
        )
    for page in pages:
        yield Measure(
            f"start.fonts.{page}",
            f"the same with the package's fonts.conf, {page}",
            runs[programs.splash, page].result(),
            "instructions",
            "the distribution's",
            default[page].result(),
            0.36,
            counted=True,
        )


def frames(programs, pool):
    """One steady frame."""
    runs = {
        (program, name): pool.submit(programs.frame_instructions, program, page)
        for name, page in PAGES.items()
        for program in (programs.splash, programs.bare)
    }
    counts = {key: round(run.result()) for key, run in runs.items()}
    for name in PAGES:
        yield Measure(
            f"frame.{name}",
            f"one steady frame, {name}",
            counts[programs.splash, name],
            "instructions",
            BARE,
            counts[programs.bare, name],
            1.02,
            counted=True,
        )
    yield Measure(
        "frame.mixed",
        "one steady frame, alternating fonts",
        counts[programs.splash, "alternating"],
        "instructions",
        "Latin only",
        counts[programs.splash, "Latin"],
        1.25,
        counted=True,
    )


def size(programs):
    """The program's file."""
    with tempfile.TemporaryDirectory() as scratch:
        stripped = Path(scratch) / "stripped"
        subprocess.run([programs.strip, "-o", stripped, programs.splash], check=True)
        bytes_ = stripped.stat().st_size
    yield Measure("size", "stripped binary", bytes_, "bytes", "-", limit=MOST_BYTES, counted=True)


def all_counts(programs):
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        return [*starts(programs, pool), *frames(programs, pool), *size(programs)]
