"""What the tests of the preview share: the program itself on a desk, to compare with."""

import os
import subprocess
import sys
from pathlib import Path

import pytest

REPOSITORY = Path(__file__).resolve().parents[3]
sys.path.insert(0, str(REPOSITORY / "system-tests"))

import numpy  # noqa: E402
import virtual_device  # noqa: E402
from PIL import Image  # noqa: E402

BUILD = REPOSITORY / "build" / os.environ.get("BOOTLUME_PRESET", "release")
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
    virtual_device.wait_until(lambda: not list(folder.iterdir()), "the folder to be empty")
    virtual_device.wait_until(lambda: not processes_with(str(folder)), "the end of all processes")


@pytest.fixture
def preview(scratch):
    """Runs the preview where nothing can be shown; the finished process."""

    def run(*arguments, **more):
        return subprocess.run([PREVIEW, *map(str, arguments)], capture_output=True, text=True,
                              timeout=SECONDS, check=False, env=environment(scratch, **more))
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


def expanded(pixels):
    """RGB565 as an array of rows of (red, green, blue), the brightest of each being 255."""
    wide = pixels.astype(numpy.uint32)
    red, green, blue = wide >> 11, (wide >> 5) & 0x3F, wide & 0x1F
    return numpy.stack([red << 3 | red >> 2, green << 2 | green >> 4, blue << 3 | blue >> 2],
                       axis=-1).astype(numpy.uint8)


def reduced(rgb):
    """What of an RGB picture an RGB565 screen shows."""
    wide = rgb.astype(numpy.uint16)
    return ((wide[..., 0] >> 3) << 11) | ((wide[..., 1] >> 2) << 5) | (wide[..., 2] >> 3)


def screen_of(frame):
    return numpy.frombuffer(frame.pixels, "<u2").reshape(frame.height, frame.width)


def drawn(texts=(), count=1, first=0, chinese=False, env=None):
    """Frames of the program without the preview, as RGB565 arrays; 0 is the first that is drawn."""
    with virtual_device.Desk() as desk:
        desk.language("zh" if chinese else "en")
        splash = desk.start(*texts, env=env)
        # The device shows a blank picture first.
        frames = splash.screen.frames(count, first + 2)
        return [screen_of(frame) for frame in frames]


def read_png(path):
    with Image.open(path) as image:
        return numpy.asarray(image.convert("RGB"))
