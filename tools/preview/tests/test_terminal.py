"""The view in a terminal, for real: under tmux."""

import os
import re
import select
import shlex
import subprocess
import termios

import numpy
import pytest

from desk import wait_until
from desk.waiting import DEADLINE
from desk.pictures import rgb
from preview_desk import PREVIEW, SECONDS, TEXTS, TURN, drawn, environment, read_png


class Terminal:
    """A shell in a terminal of its own."""

    def __init__(self, scratch, folder, columns=90, rows=30):
        self.folder = folder
        self.socket = folder / "tmux"
        self.environment = environment(scratch)
        self.tmux(
            "-f",
            "/dev/null",
            "new-session",
            "-d",
            "-x",
            columns,
            "-y",
            rows,
            "-c",
            folder,
            "env",
            "PS1=",
            "TMPDIR=" + str(scratch),
            "LC_ALL=C.UTF-8",
            "bash",
            "--norc",
        )

    def tmux(self, *words):
        done = subprocess.run(
            ["tmux", "-S", self.socket, *map(str, words)],
            capture_output=True,
            text=True,
            check=True,
            env=self.environment,
        )
        return done.stdout

    def type(self, text):
        self.tmux("send-keys", "-l", text)

    def run(self, *words):
        self.type(" ".join(shlex.quote(str(word)) for word in words) + "; echo status $?.\r")

    def lines(self, *options):
        return self.tmux("capture-pane", "-p", *options).split("\n")

    def wait_for(self, text):
        wait_until(lambda: any(text in line for line in self.lines()), repr(text))

    def close(self):
        self.tmux("kill-server")


@pytest.fixture
def terminal(scratch, tmp_path):
    made = Terminal(scratch, tmp_path)
    yield made
    made.close()


def picture_in(terminal):
    """All rows but those of the message and the keys, colours included."""
    return terminal.lines("-e")[:-3]


def test_it_says_why_and_shows_the_texts_and_a_turning_ring(terminal):
    terminal.run(PREVIEW, *TEXTS)
    terminal.wait_for("q quit   p picture   l language   (no display)")
    terminal.wait_for("Das Gerät wird gestartet")
    terminal.wait_for("Bitte warten")
    first = picture_in(terminal)
    wait_until(lambda: picture_in(terminal) != first, "the ring to turn")
    # White paper.
    assert re.search(r"\x1b\[[0-9;]*(255;255;255|48;5;231|48;5;15|107|47|7)m", "\n".join(first))
    terminal.type("q")
    terminal.wait_for("status 0.")
    terminal.wait_for("no display: the page is shown in the terminal")


def test_the_terminal_is_given_back_as_it_was(terminal):
    terminal.type("stty -g >before\r")
    terminal.run(PREVIEW, *TEXTS)
    terminal.wait_for("q quit")
    assert terminal.tmux("display-message", "-p", "#{cursor_flag} #{alternate_on}") == "0 1\n"
    terminal.type("q")
    terminal.wait_for("status 0.")
    assert terminal.tmux("display-message", "-p", "#{cursor_flag} #{alternate_on}") == "1 0\n"
    terminal.type('test "$(stty -g)" = "$(cat before)" && echo it is the sa""me\r')
    terminal.wait_for("it is the same")


def test_ctrl_c_ends_it_and_gives_the_terminal_back(terminal):
    terminal.run(PREVIEW, *TEXTS)
    terminal.wait_for("q quit")
    terminal.tmux("send-keys", "C-c")
    wait_until(lambda: terminal.tmux("display-message", "-p", "#{alternate_on}") == "0\n", "the terminal back")


def test_p_writes_a_picture_and_says_where(terminal, tmp_path):
    terminal.run(PREVIEW, *TEXTS)
    terminal.wait_for("q quit")
    terminal.type("p")
    terminal.wait_for("bootlume-1.png")
    assert terminal.lines()[29].startswith("q quit"), "the keys are still told"
    shown = read_png(tmp_path / "bootlume-1.png")
    assert any(numpy.array_equal(shown, rgb(f)) for f in drawn(TEXTS, count=TURN))
    terminal.type("q")
    terminal.wait_for("status 0.")


def test_l_switches_the_language(terminal, tmp_path):
    texts = ("Brem K5 配置", "请稍候")
    chinese = [rgb(frame) for frame in drawn(texts, count=TURN, chinese=True)]
    terminal.run(PREVIEW, *texts)
    terminal.wait_for("q quit")
    terminal.type("l")
    number = 0

    def shows_chinese():
        nonlocal number
        number += 1
        terminal.type("p")
        file = tmp_path / f"bootlume-{number}.png"
        terminal.wait_for(file.name)
        return any(numpy.array_equal(read_png(file), frame) for frame in chinese)

    wait_until(shows_chinese, "the Chinese page")
    terminal.type("q")
    terminal.wait_for("status 0.")


def test_the_texts_beside_the_page_are_cut_as_the_page_cuts_them(terminal):
    terminal.run(PREVIEW, "Title", "one\ntwo\\nthree\nfour")

    def beside():
        return [line.split()[-1:] for line in terminal.lines()[4:7]]

    wait_until(lambda: beside() == [["one"], ["two\\nthree"], ["four"]], "the texts")
    terminal.type("q")
    terminal.wait_for("status 0.")


def test_it_fits_itself_to_a_new_size(terminal):
    terminal.tmux("resize-window", "-x", "40", "-y", "20")
    terminal.run(PREVIEW, *TEXTS)
    wait_until(lambda: terminal.lines()[19].startswith("q quit"), "the narrow view")
    terminal.tmux("resize-window", "-x", "90", "-y", "30")
    wait_until(lambda: terminal.lines()[29].startswith("q quit"), "the wide view")
    terminal.wait_for("Bitte warten")
    terminal.type("q")
    terminal.wait_for("status 0.")


def test_the_command_for_other_texts_stands_below_the_page(terminal):
    terminal.tmux("resize-window", "-x", "400")  # room for the folder of any checkout
    terminal.run(PREVIEW, "--root", "desk", *TEXTS)
    terminal.wait_for("q quit")
    hint = next(line for line in terminal.lines() if "other texts: " in line)
    assert "bootlumectl --root " in hint and hint.rstrip().endswith("/desk text TITLE LINE...")
    terminal.type("q")
    terminal.wait_for("status 0.")


def test_a_terminal_that_claims_to_be_huge_ends_nothing(scratch, tmp_path):
    ours, theirs = os.openpty()
    termios.tcsetwinsize(theirs, (65535, 65535))
    shown = subprocess.Popen(
        [PREVIEW, *TEXTS], stdin=theirs, stdout=theirs, stderr=theirs, cwd=tmp_path, env=environment(scratch)
    )
    os.close(theirs)
    read = b""

    def read_until(look):
        nonlocal read
        while not look():
            assert select.select([ours], [], [], DEADLINE)[0], "nothing more is written"
            read += os.read(ours, 65536)

    read_until(lambda: b"q quit" in read)
    os.write(ours, b"p")
    read_until(lambda: b"picture of the page: " in read)
    os.write(ours, b"q")
    read_until(lambda: b"\x1b[?1049l" in read)
    assert shown.wait(SECONDS) == 0
    os.close(ours)
