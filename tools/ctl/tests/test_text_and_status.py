"""bootlumectl text and status, against the program."""

import datetime
import re
import subprocess
import time

import pytest

from ctl_desk import wait_for_answer
from desk import BUILD, DEADLINE, SOCKET

REFUSED = [
    (["A;B", "line"], "the title holds a semicolon"),
    (["Title", "one", "two;three"], "a line holds a semicolon"),
    (["Title", ""], "there is no line"),
    (["Two\nlines", "line"], "the title holds a newline"),
    (["Title", "a\\nb", "c"], "a line holds a backslash and an n"),
    (["Title", "tab\there"], "a control character"),
    ([b"Title", b"\xc3\x28"], "not UTF-8"),
    ([b"\xed\xa0\x80", b"line"], "not UTF-8"),
    ([b"Title", b"\xf4\x90\x80\x80"], "not UTF-8"),
    ([b"Title", b"\xc0\xaf"], "not UTF-8"),
]
TAKEN = [
    (["Title", "one", "two"], "Title;one\ntwo"),
    (["Title", "one\\ntwo"], "Title;one\\ntwo"),
    (["", "one"], ";one"),
    (["QUIT", "one"], "QUIT;one"),
    (["Größe", "起動中", "🙂"], "Größe;起動中\n🙂"),
    (["Title", "", "below an empty line"], "Title;\nbelow an empty line"),
    (["--", "-Title", "-line"], "-Title;-line"),
]


@pytest.fixture
def splash(desk):
    desk.trace_config("bootlume 5 0 0")
    return wait_for_answer(desk.start())


@pytest.mark.parametrize("arguments,reason", REFUSED)
def test_what_the_socket_cannot_carry_is_refused(desk, splash, arguments, reason):
    done = subprocess.run(
        [str(BUILD / "bin/bootlumectl"), "--root", str(desk.root), "text", *arguments],
        capture_output=True,
        text=True,
        check=False,
    )
    assert done.returncode == 2
    assert done.stderr.startswith("bootlumectl: not sent: ") and reason in done.stderr
    assert splash.quit() == 0
    assert not splash.trace("Wrong message format")
    assert [line.text for line in splash.trace("Got Message")] == [" Got Message from socket, command = QUIT"]


@pytest.mark.parametrize("arguments,message", TAKEN)
def test_what_it_can_carry_arrives_and_is_taken(ctl, splash, arguments, message):
    assert ctl("text", *arguments).returncode == 0
    splash.wait_for_trace("Got Message from socket, command = " + message)
    assert splash.quit() == 0
    assert not splash.trace("Wrong message format")


def test_the_page_changes(desk, ctl, splash):
    before = splash.screen.wait_for_frame()
    assert ctl("text", "Title", "a line").returncode == 0

    def dark_in_first_line(frame):
        return any(frame.pixel(x, y) < 0x8000 for y in range(163, 185) for x in range(18, 60))

    assert not dark_in_first_line(before)
    splash.screen.wait_for_picture(dark_in_first_line, "the line")


def test_a_text_of_150000_bytes_arrives_whole(desk, ctl):
    splash = wait_for_answer(desk.start())
    line = "x" * 100_000
    assert ctl("text", "Title", line, "y" * 50_000).returncode == 0
    assert ctl("quit").returncode == 0
    assert not splash.trace("Wrong message format")


def test_a_text_too_long_for_one_message_is_refused(desk, splash):
    # How much a message may hold is the system's setting; here it refuses whatever it is.
    done = subprocess.run(
        [
            "strace",
            "-qq",
            "-o",
            desk.root / "strace",
            "-e",
            "inject=sendto:error=EMSGSIZE",
            BUILD / "bin/bootlumectl",
            "--root",
            desk.root,
            "text",
            "Title",
            "x" * 100,
        ],
        capture_output=True,
        text=True,
        check=False,
    )
    assert done.returncode == 2
    assert done.stderr == (
        "bootlumectl: not sent: the text has 106 bytes, more than this system " "sends in one message\n"
    )


def test_a_text_without_a_splash_says_so(desk, ctl):
    done = ctl("text", "Title", "line")
    assert done.returncode == 3
    assert done.stderr == f"bootlumectl: no splash answers at {desk.path(SOCKET)}\n"


def test_status_tells_the_process_and_its_start(desk, ctl, splash):
    done = ctl("status")
    assert done.returncode == 0
    found = re.fullmatch(
        rf"a splash answers at {re.escape(str(desk.path(SOCKET)))}: process {splash.pid}, "
        r"since (\d{4}-\d\d-\d\d \d\d:\d\d:\d\d) \((\d+\.\d) s\)\n",
        done.stdout,
    )
    assert found, done.stdout
    since = datetime.datetime.strptime(found[1], "%Y-%m-%d %H:%M:%S").timestamp()
    assert abs(time.time() - float(found[2]) - since) < 3
    assert float(found[2]) < DEADLINE


def test_status_sends_nothing(ctl, splash):
    for _ in range(5):
        assert ctl("status").returncode == 0
    assert splash.quit() == 0
    assert [line.text for line in splash.trace("Got Message")] == [" Got Message from socket, command = QUIT"]


def test_status_of_a_splash_that_has_ended_says_none(desk, ctl, splash):
    assert splash.quit() == 0
    done = ctl("status")
    assert (done.returncode, done.stdout) == (3, f"no splash answers at {desk.path(SOCKET)}\n")
