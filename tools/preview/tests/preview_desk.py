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
    with Desk() as desk:
        desk.language("zh" if chinese else "en")
        splash = desk.start(*texts, env=env)
        # The device shows a blank picture first.
        frames = splash.screen.frames(count, first + 2)
        return [values(frame.pixels) for frame in frames]


def read_png(path):
    with Image.open(path) as image:
        return numpy.asarray(image.convert("RGB"))
