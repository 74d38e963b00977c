"""Commands over the socket: each case, as another program of the device would send it."""

import re
import signal
import socket

import pytest

from desk import SOCKET, wait_until, wait_until_running
from desk.lines import ALL_LINES, ENDING, FIRST_RING_ROW, OWN_LINES, SERVER, UNIX_SERVER, lines_of, still_page, traced


def got(text):
    return traced("DEBUG", f"Got Message from socket, command = {text}", UNIX_SERVER, SERVER)


def refused(pieces):
    return traced("WARN", f"Wrong message format, tmp.size() = {pieces}", ENDING, SERVER)


QUIT_LINES = [got("QUIT"), traced("DEBUG", "End splash-screen over socket command.", ENDING, SERVER)]


def command_lines(splash):
    """The lines of the command socket and its commands, but for the polling."""
    return [line for line in lines_of(splash, UNIX_SERVER, ENDING) if "Polling" not in line]


def page(frame):
    """The part of a picture that does not turn."""
    return frame.pixels[: FIRST_RING_ROW * frame.width * 2]


@pytest.fixture
def running(desk):
    desk.trace_config(OWN_LINES)
    return wait_until_running(desk.start())


def test_quit_ends_the_splash_with_status_0(running):
    assert running.quit() == 0
    assert command_lines(running) == QUIT_LINES
    assert running.other_output() == [] and running.stderr == ""
    assert running.desk.path(SOCKET).is_socket(), "the socket's file stays behind"


@pytest.mark.parametrize(
    "message, pieces",
    [
        ("quit", 1),
        ("QUIT\n", 1),
        ("QUIT ", 1),
        ("QUIT\0", 1),
        ("QUIT;", 1),
        (";", 1),
        ("one;two;three", 3),
        ("Title", 1),
    ],
    ids=repr,
)
def test_another_text_is_refused_and_the_splash_goes_on(desk, message, pieces):
    desk.trace_config(OWN_LINES)
    splash = wait_until_running(desk.start("Title", "Lines", refresh=0))
    before = still_page(splash)
    splash.send(message)
    splash.wait_for_trace("Wrong message format")
    assert still_page(splash) == before
    assert splash.quit() == 0
    assert command_lines(splash) == [got(message), refused(pieces), *QUIT_LINES]


@pytest.mark.parametrize(
    "message, title, lines",
    [
        ("Titel;eins\nzwei", "Titel", "eins\nzwei"),
        ("Titel;eins\\nzwei;", "Titel", "eins\nzwei"),
        ("QUIT;now", "QUIT", "now"),
        (";only lines", "", "only lines"),
        ("Title;;", "Title", ""),
        (";;", "", ""),
        (" a ; b ", " a ", " b "),
    ],
    ids=repr,
)
def test_two_fields_replace_the_texts(desk, message, title, lines):
    desk.trace_config(OWN_LINES)
    wanted = desk.start(title, lines)
    picture = still_page(wait_until_running(wanted))
    assert wanted.quit() == 0
    splash = wait_until_running(desk.start("something", "else"))
    assert still_page(splash) != picture
    splash.send(message)
    splash.screen.wait_for_picture(lambda frame: page(frame) == picture, "the texts on the screen")
    assert splash.quit() == 0
    assert command_lines(splash) == [got(message), *QUIT_LINES]


def test_a_datagram_of_no_bytes_ends_the_splash(running):
    running.send(b"")
    assert running.wait() == 0
    assert command_lines(running) == [
        traced("ERROR", "Nothing read from the socket. Quitting.", UNIX_SERVER, SERVER),
        traced("DEBUG", "End splash-screen over socket command.", ENDING, SERVER),
    ]


def test_a_long_datagram_arrives_whole(running):
    long = "".join(f"{number:09d} " for number in range(9_999)) + "the end.\n\n"
    assert len(long) == 100_000
    running.send(long)
    running.send("x" * 1000)
    assert running.quit() == 0
    assert command_lines(running) == [got(long), refused(1), got("x" * 1000), refused(1), *QUIT_LINES]


def test_bytes_that_are_no_text_arrive_as_they_are(running):
    running.send(b"\xff\x00\xfe\x80 \t")
    running.send(b"\xc3;\x00\xff")
    assert running.quit() == 0
    assert command_lines(running) == [
        got(b"\xff\x00\xfe\x80 \t".decode(errors="surrogateescape")),
        refused(1),
        got(b"\xc3;\x00\xff".decode(errors="surrogateescape")),
        *QUIT_LINES,
    ]


def test_ten_thousand_datagrams_arrive_in_their_order(running):
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
        sender.connect(str(running.desk.path(SOCKET)))
        for number in range(10_000):
            sender.send(b"title;%d" % number)
        sender.send(b"QUIT")
    assert running.wait() == 0
    assert re.findall(r"\| Got Message from socket, command = title;(\d+)\|", running.stdout) == [
        str(number) for number in range(10_000)
    ]


def test_each_wait_for_a_message_is_traced(desk):
    desk.trace_config(ALL_LINES)
    splash = wait_until_running(desk.start())
    splash.send("Title")
    assert splash.quit() == 0
    polling = traced("VERBOSE", "Polling socket.", UNIX_SERVER, SERVER)
    lines = lines_of(splash, UNIX_SERVER)
    while lines.count(polling) > 3:  # a busy machine may let a wait run out
        lines.remove(polling)
    # The loop is left without another poll where the end comes in between.
    assert lines in (
        [polling, got("Title"), polling, got("QUIT"), polling],
        [polling, got("Title"), polling, got("QUIT")],
    )


@pytest.mark.parametrize("leave", ["a socket of an earlier run", "a file"])
def test_what_lies_in_the_sockets_place_is_replaced(desk, leave):
    path = desk.path(SOCKET)
    if leave == "a file":
        path.write_text("not a socket")
    else:
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as earlier:
            earlier.bind(str(path))
    old = path.stat().st_ino, path.stat().st_ctime_ns
    splash = wait_until_running(desk.start())
    assert (path.stat().st_ino, path.stat().st_ctime_ns) != old
    assert splash.quit() == 0
    assert splash.stderr == ""


def test_the_socket_takes_datagrams_only(running):
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as stream, pytest.raises(OSError):
        stream.connect(str(running.desk.path(SOCKET)))
    assert running.quit() == 0


def test_a_second_server_takes_the_path_over(desk):
    first = wait_until_running(desk.start())
    inode = desk.path(SOCKET).stat().st_ino
    second = desk.start(screen=desk.root / "second-screen")

    def taken_over():
        try:
            return desk.path(SOCKET).stat().st_ino != inode
        except FileNotFoundError:
            return False  # between the unlink and the bind

    wait_until(taken_over, "the second server to bind the path")
    assert wait_until_running(second).quit() == 0
    assert first.process.poll() is None, "the first hears nothing any more"
    first.signal(signal.SIGHUP)
    assert first.wait() == 0
