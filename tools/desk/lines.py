"""Whole trace lines, for comparing what the program wrote with what it should have written.

    assert traced("WARN", "Wrong message format, tmp.size() = 1", ENDING, SERVER) in lines_of(splash)

What differs from run to run is replaced: the time by TIME and the program's process id by PID. The
line's number is taken off once it is known to lie on a trace call of the file that it names.
"""

import re
from functools import lru_cache

from .places import SOURCE
from .splash import LOOP

MAIN_FILE = "bootlume/src/server/main.cpp"
ENDING = "bootlume/src/server/ending.cpp"
WATCHDOG = "bootlume/src/server/startup_watchdog.cpp"
UNIX_SERVER = "bootlume/src/connection/unix_server.cpp"
SURFACE = "bootlume/src/display/surface.cpp"
DISPATCHER = "utility-library/src/dispatcher.cpp"
PROCESS = "utility-library/src/process.cpp"
TRACE_FILE = "utility-library/src/trace_config.cpp"
TRACE_WATCHER = "utility-library/src/trace_watcher.cpp"

SERVER = "bootlume"  # the threads that main starts before that have the program's own name
WORKER = "generator"
WATCHER = "trace_config"

FIRST_RING_ROW = 280  # what lies above is the same in every frame

ALL_LINES = "bootlume 6 0xFFFFFFFF 0"
OWN_LINES = "bootlume 5 0 0"

_COLOUR = re.compile(r"\x1b\[1;3[13]m(.*)\x1b\[0;39;49m", re.DOTALL)


def traced(level, text, file, thread=LOOP, tag=""):
    """The whole line for a message, as lines_of gives it."""
    return f"[TIME] (PID) ({thread:>16}) {level:>7}:{tag}\t| {text}| {file}"


@lru_cache
def _source(file):
    return (SOURCE / file).read_text(encoding="utf-8").splitlines()


def whole(line, pid):
    """One trace line of the program `pid` as traced() writes it."""
    assert line.pid == pid, f"not the program's process id, {pid}: {line.raw!r}"
    # The watcher's thread switches the colours off as it starts; main may be faster than that.
    coloured = _COLOUR.fullmatch(line.raw)
    raw = coloured[1] if coloured else line.raw
    assert "\x1b" not in raw or "\x1b" in line.text, f"half a colour: {raw!r}"
    start, number = f"[{line.date}:{line.milliseconds:03}] ({pid})", f":{line.line}"
    assert raw.startswith(start) and raw.endswith(number), raw
    assert "TRACE" in _source(line.file)[line.line - 1], f"no trace call lies there: {raw!r}"
    return "[TIME] (PID)" + raw[len(start) : -len(number)]


def lines_of(splash, *files):
    """All whole lines so far, oldest first; with `files` those of the named sources."""
    return [whole(line, splash.pid) for line in splash.trace() if not files or line.file in files]


def still_page(splash):
    """The part of the page that does not turn, as it is drawn now: nothing older is looked at."""
    frame = splash.screen.wait_for_more(3)
    return frame.pixels[: FIRST_RING_ROW * frame.width * 2]
