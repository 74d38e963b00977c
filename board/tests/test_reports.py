"""What the splash tells: its trace configuration at the real path, and a real syslog daemon."""
import re

from desk import TRACE_CONFIG


def configure(board, line):
    board.output(f"echo '{line}' >{TRACE_CONFIG}")


def messages(board, text):
    """The daemon's lines with that text, which must come within seconds."""
    board.output(f"wait_for grep -q '{text}' /run/messages")
    return [line for line in board.text("cat /run/messages").splitlines() if text in line]


def test_syslog_gets_facility_priority_identity_and_process_id(splash, board):
    configure(board, "bootlume 5 0 1")
    board.output(": >/run/messages")
    running = splash("A", "B").wait_until_drawn()
    running.send("one;two")
    running.send("three")
    debug = messages(board, "Got Message from socket")[0]
    warning = messages(board, "Wrong message format")[0]
    head = r"\w+ +\d+ [\d:]+ \S+ local1\.%s bootlume\[%d\]: %s\|bootlume/src/[\w/]+\.cpp:\d+:[\w-]+\|  "
    assert re.match(
        head % ("debug", running.pid, "DEBUG") + "Got Message from socket, command = one;two$", debug
    ), debug
    assert re.match(
        head % (r"warn(ing)?", running.pid, "WARN") + r"Wrong message format, tmp\.size\(\) = 1$", warning
    ), warning
    assert running.log() == ""


def test_an_error_reaches_syslog_as_an_error(splash, board):
    configure(board, "bootlume 4 0 1")
    board.output(": >/run/messages")
    running = splash("A", "B").wait_until_drawn()
    running.send("")
    line = messages(board, "Nothing read from the socket. Quitting.")[0]
    assert re.search(r" local1\.err(or)? bootlume\[%d\]: ERROR\|" % running.pid, line), line
    assert running.wait_for_end() == 0


def test_the_trace_configuration_is_followed_while_the_splash_runs(splash, board):
    configure(board, "bootlume 4 0 0")
    running = splash("A", "B").wait_until_drawn()
    assert running.log() == ""
    configure(board, "BOOTLUME 6 0 0")
    board.output("wait_for grep -q 'Drawing time used, exec_ms.count() = ' /run/splash.log")
    configure(board, "bootlume 4 0 0")
    running.send("no command")
    board.output("wait_for grep -q 'Wrong message format' /run/splash.log")
    board.output(": >/run/messages")
    configure(board, "bootlume 6 0 1")
    messages(board, "Drawing and Flip time used")
    length = len(running.log())
    running.send("no command")
    messages(board, "Wrong message format")
    assert len(running.log()) == length, "lines go to syslog and nowhere else"
