"""Reads what callgrind wrote: instructions by library, and calls of the allocator."""

import re
from collections import Counter
from dataclasses import dataclass, field
from pathlib import Path

DEVICE = "libvirtual-device.so"
ALLOCATORS = {"malloc", "calloc", "realloc", "aligned_alloc", "memalign", "posix_memalign"}
_NAME = re.compile(r"\((\d+)\)(?: (.*))?")


@dataclass
class Profile:
    """Instructions of one run. What the virtual device does, by itself or through the libraries
    that it calls, is counted apart: it belongs to the desk and not to the program."""

    libraries: Counter = field(default_factory=Counter)  # own instructions, by file name
    device: int = 0
    allocations: int = 0

    @property
    def total(self):
        return sum(self.libraries.values())

    def per_step(self, earlier, steps):
        """What one of so many steps cost between an earlier run and this one."""
        libraries = Counter({name: (count - earlier.libraries[name]) / steps for name, count in self.libraries.items()})
        return Profile(
            libraries, round((self.device - earlier.device) / steps), (self.allocations - earlier.allocations) / steps
        )


class _Names:
    """The file names a thing once, with a number, and by its number alone from then on."""

    def __init__(self):
        self._known = {}

    def of(self, text):
        found = _NAME.fullmatch(text)
        if found[2] is not None:
            self._known[found[1]] = found[2]
        return self._known[found[1]]


def read(path):
    """The profile in a callgrind output file."""
    objects, functions = _Names(), _Names()
    profile = Profile()
    here = callee_object = callee = None
    call_count = 0
    for line in Path(path).read_text(encoding="utf-8", errors="replace").splitlines():
        key, _, value = line.partition("=")
        if key == "ob":
            here = Path(objects.of(value)).name
        elif key == "fn":
            functions.of(value)
            callee_object = here
        elif key == "cob":
            callee_object = Path(objects.of(value)).name
        elif key == "cfn":
            callee = functions.of(value)
        elif key == "calls":
            call_count = int(value.split()[0])
        elif line[:1] in "0123456789+-*" and line:
            cost = int(line.split()[1]) if " " in line else 0
            if not call_count:
                profile.libraries[here] += cost
                continue
            if here == DEVICE and callee_object != DEVICE:
                profile.device += cost
                profile.libraries[callee_object] -= cost
            elif callee in ALLOCATORS and callee_object != here:
                profile.allocations += call_count
            call_count, callee_object = 0, here
    profile.device += profile.libraries.pop(DEVICE, 0)
    return profile
