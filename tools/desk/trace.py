"""The program's trace lines, taken apart."""

import re
from dataclasses import dataclass


@dataclass(frozen=True)
class TraceLine:
    """One line of the program's log, taken apart. `text` is what stands between "\\t|" and the
    last "| "; `tag` is None where there is no ":" behind the level."""

    raw: str
    date: str
    milliseconds: int
    pid: int
    thread: str
    level: str
    tag: str
    text: str
    file: str
    line: int


_COLOUR = r"(?:\x1b\[[0-9;]*m)?"
_START = re.compile(_COLOUR + r"\[\d{8}-\d{6}:\d{3}\] \(")
_TRACE = re.compile(
    _COLOUR + r"\[(?P<date>\d{8}-\d{6}):(?P<ms>\d{3})\] \((?P<pid>\d+)\) \((?P<thread>.{16,}?)\) "
    r"(?P<level>[^:\t]{7})(?::(?P<tag>[^\t]*))?\t\|(?P<text>.*)\| (?P<file>[^|\n]*):(?P<line>\d+)" + _COLOUR,
    re.DOTALL,
)


def parse_trace(output):
    """(trace lines, other lines) of the program's standard output. A text may hold newlines."""
    traced, other, pieces = [], [], []

    def finish():
        text = "\n".join(pieces)
        found = _TRACE.fullmatch(text)
        if found:
            traced.append(
                TraceLine(
                    text,
                    found["date"],
                    int(found["ms"]),
                    int(found["pid"]),
                    found["thread"].strip(),
                    found["level"].strip(),
                    found["tag"],
                    found["text"],
                    found["file"],
                    int(found["line"]),
                )
            )
        elif pieces:
            other.extend(pieces)
        pieces.clear()

    for line in output.split("\n"):
        if pieces and (_START.match(line) or _TRACE.fullmatch("\n".join(pieces))):
            finish()
        pieces.append(line)
    finish()
    if other and other[-1] == "":
        other.pop()
    return traced, other
