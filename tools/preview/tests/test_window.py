"""The window, for real: under a virtual X server, by its pixels and its keys."""

import ctypes
import os
import subprocess

import numpy
import pytest

from desk import wait_until
from desk.pictures import rgb
from preview_desk import PREVIEW, SECONDS, TEXTS, TURN, drawn, environment, processes_with, read_png, reduced


class ClientMessage(ctypes.Structure):
    """As the X library lays it out, with the room of its largest event."""

    _fields_ = [
        ("type", ctypes.c_int),
        ("serial", ctypes.c_ulong),
        ("send_event", ctypes.c_int),
        ("display", ctypes.c_void_p),
        ("window", ctypes.c_ulong),
        ("message_type", ctypes.c_ulong),
        ("format", ctypes.c_int),
        ("data", ctypes.c_long * 5),
        ("room", ctypes.c_long * 12),
    ]


def press_close_button(display, window):
    """Sends what a window manager sends when its close button is pressed: the wish, and no more."""
    x11 = ctypes.CDLL("libX11.so.6")
    x11.XOpenDisplay.restype = ctypes.c_void_p
    x11.XInternAtom.restype = ctypes.c_ulong
    connection = ctypes.c_void_p(x11.XOpenDisplay(display.encode()))
    assert connection
    protocols, wish = (x11.XInternAtom(connection, name, 0) for name in (b"WM_PROTOCOLS", b"WM_DELETE_WINDOW"))
    client_message, no_mask = 33, 0
    event = ClientMessage(client_message, 0, 1, connection, window, protocols, 32)
    event.data[0] = wish
    assert x11.XSendEvent(connection, ctypes.c_ulong(window), 0, ctypes.c_long(no_mask), ctypes.byref(event))
    x11.XSync(connection, 0)
    x11.XCloseDisplay(connection)


class Display:
    """An X server whose screen is a file."""

    def __init__(self, folder):
        self.file = folder / "Xvfb_screen0"
        reader, writer = os.pipe()
        self.server = subprocess.Popen(
            [
                "Xvfb",
                "-displayfd",
                str(writer),
                "-screen",
                "0",
                "640x900x24",
                "-fbdir",
                folder,
                "-nolisten",
                "tcp",
                "-noreset",
            ],
            pass_fds=[writer],
            stderr=subprocess.DEVNULL,
        )
        os.close(writer)
        with os.fdopen(reader) as told:
            self.name = ":" + told.readline().strip()

    def close(self):
        self.server.terminate()
        self.server.wait()

    def picture(self):
        """The whole screen as RGB."""
        data = self.file.read_bytes()
        header = numpy.frombuffer(data, ">u4", 25)
        size, width, height, row = header[0], header[4], header[5], header[12]
        start = int(size + header[19] * 12)
        pixels = numpy.frombuffer(data, "<u4", int(row) // 4 * int(height), start)
        pixels = pixels.reshape(int(height), int(row) // 4)[:, : int(width)]
        return numpy.stack([pixels >> 16 & 255, pixels >> 8 & 255, pixels & 255], axis=-1).astype(numpy.uint8)

    def tool(self, *words):
        return subprocess.run(
            ["xdotool", *map(str, words)],
            env={**os.environ, "DISPLAY": self.name},
            capture_output=True,
            text=True,
            check=False,
        )


@pytest.fixture
def display(tmp_path):
    folder = tmp_path / "screen"
    folder.mkdir()
    made = Display(folder)
    yield made
    made.close()


class Shown:
    """The preview in its window."""

    def __init__(self, display, scratch, folder, *arguments):
        self.display, self.folder = display, folder
        self.process = subprocess.Popen(
            [PREVIEW, *map(str, arguments)],
            cwd=folder,
            stdout=subprocess.PIPE,
            text=True,
            env=environment(scratch, DISPLAY=display.name),
        )
        self.id = None

    def wait_for_page(self):
        wait_until(self._is_there, "the window")
        divider = (150, 240)
        wait_until(lambda: self.page()[divider] != self.page()[0, 0] == 0xFFFF, "the page")

    def _is_there(self):
        """The first window of a program may be a passing one: only what has a place counts."""
        self.id = self.display.tool("search", "--name", "bootlume preview").stdout.strip()
        return self.id and "X" in self._place()

    def _place(self):
        return dict(
            line.split("=") for line in self.display.tool("getwindowgeometry", "--shell", self.id).stdout.split()
        )

    def page(self):
        """What the window shows, as an RGB565 screen would."""
        place = self._place()
        x, y = int(place["X"]), int(place["Y"])
        assert (place["WIDTH"], place["HEIGHT"]) == ("480", "800")
        return reduced(self.display.picture()[y : y + 800, x : x + 480])

    def key(self, name):
        self.display.tool("key", "--window", self.id, name)

    def wait(self):
        status = self.process.wait(SECONDS)
        return status, self.process.stdout.read()


@pytest.fixture
def show(display, scratch, tmp_path):
    started = []

    def start(*arguments):
        started.append(Shown(display, scratch, tmp_path, *arguments))
        started[-1].wait_for_page()
        return started[-1]

    yield start
    for shown in started:
        shown.process.kill()
        shown.process.wait()
        shown.process.stdout.close()


def index_in(page, frames):
    return next((i for i, frame in enumerate(frames) if numpy.array_equal(page, frame)), None)


def test_the_window_shows_the_page_with_its_ring_turning(show):
    frames = drawn(TEXTS, count=TURN)
    shown = show(*TEXTS)
    seen = set()

    def several():
        seen.add(index_in(shown.page(), frames))
        return len(seen - {None}) >= 5

    wait_until(several, "five different frames in the window")
    shown.key("q")
    assert shown.wait() == (0, "")


def test_escape_ends_it(show):
    shown = show(*TEXTS)
    shown.key("Escape")
    assert shown.wait() == (0, "")


def test_closing_the_window_ends_the_splash_in_order(show, scratch, tmp_path):
    """The splash goes through its own teardown, and nothing of it is left: no process, no file."""
    note = tmp_path / "status"
    script = tmp_path / "bootlume"
    script.write_text(f'#!/bin/sh\n"{PREVIEW.parent}/bootlume" "$@"\necho $? >"{note}"\n')
    script.chmod(0o755)
    shown = show("--bootlume", script, *TEXTS)
    assert processes_with(str(scratch))
    press_close_button(shown.display.name, int(shown.id))
    assert shown.wait() == (0, "")
    assert not processes_with(str(scratch))
    assert list(scratch.iterdir()) == []
    assert note.read_text() == "0\n"


def test_p_takes_a_picture_and_says_where(show, tmp_path):
    frames = [rgb(frame) for frame in drawn(TEXTS, count=TURN)]
    shown = show(*TEXTS)
    for number in (1, 2):
        shown.key("p")
        file = tmp_path / f"bootlume-{number}.png"
        assert shown.process.stdout.readline() == f"picture of the page: {file}\n"
        assert index_in(read_png(file), frames) is not None
    shown.key("q")
    assert shown.wait() == (0, "")


def test_l_switches_the_language_and_back(show):
    texts = ("Brem K5 配置", "请稍候")
    chinese = drawn(texts, count=TURN, chinese=True)
    latin = drawn(texts, count=TURN)
    shown = show(*texts)
    wait_until(lambda: index_in(shown.page(), latin) is not None, "the Latin page")
    shown.key("l")
    wait_until(lambda: index_in(shown.page(), chinese) is not None, "the Chinese page")
    shown.key("l")
    wait_until(lambda: index_in(shown.page(), latin) is not None, "the Latin page again")
    shown.key("q")
    assert shown.wait()[0] == 0


def test_the_picture_that_was_asked_for_is_written_while_it_is_shown(show, tmp_path):
    file = tmp_path / "page.png"
    shown = show("--picture", file, *TEXTS)
    assert shown.process.stdout.readline() == f"picture of the page: {file}\n"
    assert shown.process.poll() is None
    assert index_in(read_png(file), [rgb(f) for f in drawn(TEXTS, count=TURN)]) is not None
    shown.key("q")
    assert shown.wait()[0] == 0


def test_a_display_that_cannot_be_opened_is_no_end(preview, tmp_path):
    done = preview("--picture", tmp_path / "x.png", *TEXTS, DISPLAY=":nowhere")
    assert done.returncode == 0
    assert "no window can be opened" in done.stdout
