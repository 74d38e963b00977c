"""The window, for real: under a virtual X server, by its pixels and its keys."""

import ctypes
import os
import shlex
import subprocess

import numpy
import pytest

from desk import die_with_parent, read_line, wait_until
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

    def __init__(self, folder, size="640x900"):
        self.file = folder / "Xvfb_screen0"
        reader, writer = os.pipe()
        self.server = subprocess.Popen(
            [
                "Xvfb",
                "-displayfd",
                str(writer),
                "-screen",
                "0",
                f"{size}x24",
                "-fbdir",
                folder,
                "-nolisten",
                "tcp",
                "-noreset",
            ],
            pass_fds=[writer],
            preexec_fn=die_with_parent,  # and the window with it
            stderr=subprocess.DEVNULL,
        )
        os.close(writer)
        with os.fdopen(reader) as told:
            self.name = ":" + read_line(told).strip()

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
        self.hint = None

    def wait_for_window(self):
        """The window library may open a passing window first; the preview speaks once there is the one that stays."""
        self.hint = self.line()
        wait_until(self._is_there, "the window")

    def wait_for_page(self):
        self.wait_for_window()
        divider = (150, 240)
        wait_until(lambda: self.page()[divider] != self.page()[0, 0] == 0xFFFF, "the page")

    def _is_there(self):
        self.id = self.display.tool("search", "--name", "bootlume preview").stdout.strip()
        return self.id and "X" in self._place()

    def title(self):
        return self.display.tool("getwindowname", self.id).stdout.strip()

    def _place(self):
        return dict(
            line.split("=") for line in self.display.tool("getwindowgeometry", "--shell", self.id).stdout.split()
        )

    def page(self):
        """What the window shows, as an RGB565 screen would."""
        x, y, width, height = self.place()
        assert (width, height) == (480, 800)
        return reduced(self.display.picture()[y : y + height, x : x + width])

    def place(self):
        """Left and upper edge, width and height of the window."""
        place = self._place()
        return [int(place[name]) for name in ("X", "Y", "WIDTH", "HEIGHT")]

    def line(self):
        """What the preview says next."""
        return read_line(self.process.stdout)

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
        assert shown.line() == f"picture of the page: {file}\n"
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
    assert shown.line() == f"picture of the page: {file}\n"
    assert shown.process.poll() is None
    assert index_in(read_png(file), [rgb(f) for f in drawn(TEXTS, count=TURN)]) is not None
    shown.key("q")
    assert shown.wait()[0] == 0


def test_a_display_that_cannot_be_opened_is_no_end(preview, tmp_path):
    done = preview("--picture", tmp_path / "x.png", *TEXTS, DISPLAY=":nowhere")
    assert done.returncode == 0
    assert "no window can be opened" in done.stdout


def client(shown, *words):
    """Runs the command that was told, with a subcommand of the test's."""
    told = shlex.split(shown.hint.removeprefix("other texts: ").removesuffix(" text TITLE LINE...\n"))
    return subprocess.run(
        [*told, *words], capture_output=True, text=True, timeout=SECONDS, check=False, cwd=shown.folder
    )


@pytest.mark.parametrize("options", [[], ["--root", "a folder"]])
def test_the_command_that_is_told_sends_texts_and_ends_the_splash(show, tmp_path, options):
    shown = show(*options, *TEXTS)
    assert shown.hint.startswith("other texts: ")
    wait_until(lambda: client(shown, "status").returncode == 0, "the splash to answer")
    done = client(shown, "text", "Brem K5", "Update wird installiert", "Bitte nicht ausschalten")
    assert done.returncode == 0, done.stderr
    frames = drawn(("Brem K5", "Update wird installiert\nBitte nicht ausschalten"), count=TURN)
    wait_until(lambda: index_in(shown.page(), frames) is not None, "the page with the new texts")
    assert client(shown, "quit").returncode == 0
    assert shown.wait() == (0, "the splash was ended in order\n")
    assert (tmp_path / "a folder").exists() == bool(options)


def test_a_root_with_a_name_is_for_one_preview_at_a_time(show, preview, tmp_path):
    root = tmp_path / "root"
    shown = show("--root", root, *TEXTS)
    second = preview("--root", root, "--png", tmp_path / "page.png")
    assert (second.returncode, second.stderr) == (3, f"bootlume-preview: {root}: another preview uses this folder\n")
    shown.key("q")
    assert shown.wait()[0] == 0
    assert preview("--root", root, "--png", tmp_path / "page.png").returncode == 0


def test_p_in_a_folder_that_cannot_be_written_says_so_and_goes_on(show, tmp_path):
    shown = show(*TEXTS)
    os.chmod(tmp_path, 0o777)
    (tmp_path / "bootlume-1.png.new").mkdir()
    shown.key("p")
    assert shown.line() == f"no picture: {tmp_path}/bootlume-1.png: Is a directory\n"
    shown.key("q")
    assert shown.wait() == (3, "")


def test_n_and_b_turn_the_pages_of_a_catalogue(show, tmp_path):
    rows = [("de", *TEXTS), ("zh", "启动", "请稍候"), ("en", "Title", "line")]
    catalogue = tmp_path / "catalogue.tsv"
    catalogue.write_text("".join("\t".join(row) + "\n" for row in rows))
    pages = [drawn(row[1:], count=TURN, chinese=row[0] == "zh") for row in rows]
    shown = show("--pages", catalogue)
    for key, page in [("b", 0), ("n", 1), ("Right", 2), ("n", 2), ("Prior", 1), ("b", 0)]:
        shown.key(key)
        wait_until(lambda: index_in(shown.page(), pages[page]) is not None, f"page {page + 1}")
        language = rows[page][0]
        wait_until(lambda: f"page {page + 1} of 3 ({language}): " in shown.title(), "the page's name")
    shown.key("q")
    assert shown.wait()[0] == 0


RING_END = (364 + 69) / 800  # of the page's height


def test_on_a_small_display_the_whole_page_is_shown_smaller(tmp_path, scratch):
    folder = tmp_path / "screen"
    folder.mkdir()
    display = Display(folder, "800x480")
    shown = Shown(display, scratch, tmp_path, *TEXTS)
    try:
        shown.wait_for_window()

        def lines():
            """Where something dark lies, as parts of the window's height."""
            x, y, width, height = shown.place()
            page = display.picture()[y : y + height, x : x + width]
            return numpy.nonzero((page.min(axis=2) < 160).sum(axis=1))[0] / height if page.size else []

        wait_until(lambda: len(lines()) and abs(lines().max() - RING_END) < 0.01, "the ring's lower edge")
        x, y, width, height = shown.place()
        assert x >= 0 and y >= 0 and x + width <= 800 and y + height <= 480
        assert abs(width / height - 480 / 800) < 0.01
    finally:
        shown.process.kill()
        shown.process.wait()
        shown.process.stdout.close()
        display.close()
