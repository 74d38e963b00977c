"""bootlumectl text and status, against the program."""

import datetime
import json
import os
import re
import socket
import time

import pytest

from ctl_desk import advice, full, injecting, stopped, wait_for_answer
from desk import SOCKET

LOADED = time.time()  # before any splash of this file began
ROUNDED = 1

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
    (["Title", "one\\n"], "would stand on the screen; they go between two lines: leave them out"),
    (["Title", "\\n"], "would stand on the screen"),
]
TAKEN = [
    (["Title", "one", "two"], "Title;one\ntwo"),
    (["Title", "one\\ntwo"], "Title;one\\ntwo"),
    (["Title", "one\\ntwo\\n"], "Title;one\\ntwo\\n"),
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
def test_what_the_socket_cannot_carry_is_refused(ctl, splash, arguments, reason):
    done = ctl("text", *arguments)
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


def test_a_text_too_long_for_one_message_is_refused(desk, splash, ctl):
    # How much a message may hold is the system's setting; here it refuses whatever it is.
    done = ctl("text", "Title", "x" * 100, prefix=injecting(desk, "sendmsg:error=EMSGSIZE"))
    assert done.returncode == 2
    assert done.stderr == (
        "bootlumectl: not sent: the text has 106 bytes, more than this system sends in one message\n"
    )


def test_a_text_without_a_splash_says_so(desk, ctl):
    done = ctl("text", "Title", "line")
    assert (done.returncode, done.stderr) == (3, advice(desk))


def test_status_tells_the_process_and_its_start(desk, ctl, splash):
    done = ctl("status")
    now = time.time()
    assert done.returncode == 0
    found = re.fullmatch(
        rf"a splash answers at {re.escape(str(desk.path(SOCKET)))}: process {splash.pid}, "
        r"since (\d{4}-\d\d-\d\d \d\d:\d\d:\d\d) \((\d+\.\d) s\)\n",
        done.stdout,
    )
    assert found, done.stdout
    since = datetime.datetime.strptime(found[1], "%Y-%m-%d %H:%M:%S").timestamp()
    assert LOADED - ROUNDED <= since <= since + float(found[2]) <= now + ROUNDED


def test_status_sends_nothing(ctl, splash):
    for _ in range(5):
        assert ctl("status").returncode == 0
    assert splash.quit() == 0
    assert [line.text for line in splash.trace("Got Message")] == [" Got Message from socket, command = QUIT"]


def test_status_of_a_splash_that_has_ended_says_none(desk, ctl, splash):
    assert splash.quit() == 0
    done = ctl("status")
    assert (done.returncode, done.stdout, done.stderr) == (3, "", advice(desk))
    told = ctl("status", "--json")
    assert (told.returncode, told.stderr) == (3, advice(desk))
    assert json.loads(told.stdout) == {"socket": str(desk.path(SOCKET)), "state": "none"}


def test_status_tells_a_stopped_splash_from_one_that_answers(desk, ctl, splash):
    assert json.loads(ctl("status", "--json").stdout)["state"] == "answers"
    with stopped(splash):
        done = ctl("status", "--json")
        assert done.returncode == 4
        assert done.stderr == (
            f"bootlumectl: the splash at {desk.path(SOCKET)} does not answer: process "
            f"{splash.pid} is stopped; 'kill -CONT {splash.pid}' lets it go on\n"
        )
        told = json.loads(done.stdout)
        assert (told["state"], told["process"]) == ("stopped", splash.pid)
        assert 0 <= told["seconds"] <= time.time() - LOADED + ROUNDED and told["since"].startswith("20")
    assert ctl("status").returncode == 0


def test_status_tells_one_that_does_not_read_its_socket(desk, ctl):
    with full(desk):
        done = ctl("status", "--json")
    assert done.returncode == 4
    assert json.loads(done.stdout)["state"] == "busy"
    assert done.stderr == (
        f"bootlumectl: the splash at {desk.path(SOCKET)} does not answer: process "
        f"{os.getpid()} is there; bootlume-troubleshooting(7) says what to look at\n"
    )


def test_a_text_for_one_that_does_not_read_gives_up_in_time(desk, ctl):
    with full(desk):
        begin = time.monotonic()
        done = ctl("text", "Title", "line")
    assert done.returncode == 4
    assert done.stderr.startswith("bootlumectl: not sent: the splash does not read its socket: process ")
    assert time.monotonic() - begin >= 5


@pytest.mark.parametrize("command", [["status"], ["text", "A", "B"], ["quit"]])
def test_a_stream_socket_in_its_place_is_no_splash(desk, ctl, command):
    path = desk.path(SOCKET)
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as other:
        other.bind(str(path))
        other.listen()
        done = ctl(*command)
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr == (
        f"bootlumectl: {path}: something other than a splash has the socket; end that "
        "program, and start the splash again\n"
    )


def test_quiet_says_nothing_and_keeps_the_status(desk, ctl, splash):
    assert ctl("--quiet", "status").stdout == ""
    assert ctl("status", "--quiet").returncode == 0
    assert splash.quit() == 0
    for command in (["status"], ["text", "A", "B"], ["quit"]):
        done = ctl("--quiet", *command)
        assert (done.returncode, done.stdout, done.stderr) == (3, "", "")


@pytest.mark.parametrize(
    "words,said",
    [
        (["quti"], "'quti' is unknown; did you mean 'quit'?"),
        (["statsu", "--json"], "'statsu' is unknown; did you mean 'status'?"),
        (["--rot", "/x", "status"], "'--rot' is unknown; did you mean '--root'?"),
        (["quit", "--wiat"], "'--wiat' is unknown; did you mean '--wait'?"),
        (["trace", "5", "--maks", "ALL"], "'--maks' is unknown; did you mean '--mask'?"),
        (["trace", "verbsoe"], "'verbsoe' is no level: did you mean 'VERBOSE'?"),
        (["text", "-Title", "x"], "'-Title' is unknown; a text that begins with a dash goes behind --"),
        (["xyzzy"], "'xyzzy' is unknown; 'bootlumectl --help' says more"),
        (["status", "now"], "'now' is unknown; 'bootlumectl status --help' says more"),
        ([], "A subcommand is required; 'bootlumectl --help' says more"),
        (["text"], "TITLE is required; 'bootlumectl text --help' says more"),
    ],
)
def test_a_wrong_command_line_is_told_in_one_line(ctl, words, said):
    done = ctl(*words)
    assert (done.returncode, done.stdout, done.stderr) == (2, "", f"bootlumectl: {said}\n")
