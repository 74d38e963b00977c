"""Reads what callgrind wrote: the instructions of one run."""

import re
from pathlib import Path

DEVICE = "libvirtual-device.so"
_NAME = re.compile(r"\((\d+)\)(?: (.*))?")


class _Objects:
    """The file names an object once, with a number, and by its number alone from then on."""

    def __init__(self):
        self._known = {}

    def of(self, text):
        found = _NAME.fullmatch(text)
        if found[2] is not None:
            self._known[found[1]] = Path(found[2]).name
        return self._known[found[1]]


def instructions(path):
    """Instructions in a callgrind output file. What the virtual device does, by itself or through the
    libraries that it calls, is not among them: it belongs to the desk and not to the program."""
    objects = _Objects()
    total = 0
    here = callee = None
    is_call = False
    for line in Path(path).read_text(encoding="utf-8", errors="replace").splitlines():
        key, _, value = line.partition("=")
        if key == "ob":
            here = objects.of(value)
        elif key == "fn":
            callee = here
        elif key == "cob":
            callee = objects.of(value)
        elif key == "calls":
            is_call = True
        elif line[:1] in "0123456789+-*" and line:
            cost = int(line.split()[1]) if " " in line else 0
            if not is_call:
                total += cost if here != DEVICE else 0
                continue
            if here == DEVICE and callee != DEVICE:
                total -= cost
            is_call, callee = False, here
    return total
