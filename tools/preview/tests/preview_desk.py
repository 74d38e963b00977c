"""What the tests of the preview share: the program itself on a desk, to compare with."""

import os
import subprocess
from pathlib import Path

import numpy
import pytest
from PIL import Image

from desk import BUILD, Desk, wait_until
from desk.pictures import values

PREVIEW = BUILD / "bin/bootlume-preview"
SECONDS = 60
TURN = 66
KEPT = 7  # frames that can still be looked at when the last one stands
TEXTS = ("Brem K5", "Das Gerät wird gestartet\\nBitte warten")


def environment(folder, **more):
    """No display, and a folder of its own for what is temporary."""
    made = {k: v for k, v in os.environ.items() if k not in ("DISPLAY", "WAYLAND_DISPLAY")}
    made.update({"TMPDIR": str(folder), "LC_ALL": "C.UTF-8", **more})
    return made


@pytest.fixture
def scratch(tmp_path):
    """Folder for temporary files; empty again when the test is over."""
    folder = tmp_path / "temporary"
    folder.mkdir()
    yield folder
    wait_until(lambda: not list(folder.iterdir()), "the folder to be empty")
    wait_until(lambda: not processes_with(str(folder)), "the end of all processes")


@pytest.fixture
def preview(scratch):
    """Runs the preview where nothing can be shown; the finished process."""

    def run(*arguments, **more):
        return subprocess.run(
            [PREVIEW, *map(str, arguments)],
            capture_output=True,
            text=True,
            timeout=SECONDS,
            check=False,
            env=environment(scratch, **more),
        )

    return run


def processes_with(text):
    """Processes that live and have `text` in their environment as TMPDIR or root."""
    found = []
    for folder in Path("/proc").glob("[0-9]*"):
        try:
            if text.encode() in (folder / "environ").read_bytes():
                found.append((folder.name, (folder / "cmdline").read_bytes()))
        except OSError:
            pass
    return found


def reduced(rgb):
    """What of an RGB picture an RGB565 screen shows."""
    wide = rgb.astype(numpy.uint16)
    return ((wide[..., 0] >> 3) << 11) | ((wide[..., 1] >> 2) << 5) | (wide[..., 2] >> 3)


def drawn(texts=(), count=1, first=0, chinese=False, env=None):
    """Frames of the program without the preview, as RGB565 arrays; 0 is the first that is drawn."""
    frames = []
    while len(frames) < count:
        frames += _standing(texts, first + len(frames), min(KEPT, count - len(frames)), chinese, env)
    return frames


def _standing(texts, first, count, chinese, env):
    """Frames of a program that stands still behind the last one, so that a busy machine misses none."""
    with Desk() as desk:
        desk.language("zh" if chinese else "en")
        last = first + count + 1  # the device shows a blank picture first
        preload = f"{desk.environment()['LD_PRELOAD']}:{BUILD / 'lib/libtest-clocks.so'}"
        hurried = {"LD_PRELOAD": preload, "STEPPING_CLOCK": "0,30000,0"}  # no sleep between frames
        splash = desk.start(*texts, env={**hurried, **(env or {})}, refresh=0, faults=f"VIDIOC_QBUF@{last + 1}=block")
        splash.screen.wait_for_frame(last)
        return [values(splash.screen.frame(number).pixels) for number in range(last - count + 1, last + 1)]


def read_png(path):
    with Image.open(path) as image:
        return numpy.asarray(image.convert("RGB"))
