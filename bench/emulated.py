"""What can be counted of the 32-bit ARM build under user-mode emulation.

The emulator names each block of instructions that it runs, and shows each one when it translates it.
The instructions are those of all libraries, the virtual device among them, on both sides.
"""

import os
import tempfile
import threading
from pathlib import Path

from .measure import Measure
from .programs import PAGES, Programs

EACH_BLOCK = ["-d", "in_asm,exec,nochain"]
EARLY, LATE = 3, 6
BARE = "the bare program"


class Counter(threading.Thread):
    """Adds up what is written to a pipe, until its writer ends."""

    def __init__(self, pipe):
        super().__init__()
        self.pipe = pipe
        self.count = 0

    def run(self):
        lengths = {}  # of the blocks, by their address
        block = None
        with open(self.pipe, "rb") as log:
            for line in log:
                if line.startswith(b"Trace "):
                    self.count += lengths[int(line.split(b"/", 2)[1], 16)]
                elif line.startswith(b"IN:"):
                    block = None
                elif line.startswith(b"0x"):
                    if block is None:
                        block = int(line[: line.index(b":")], 16)
                        lengths[block] = 0
                    lengths[block] += 1


class EmulatedPrograms(Programs):
    """The programs of the armhf build."""

    def __init__(self, build):
        super().__init__(build)
        self.emulation = self.build / "emulation"
        self.library = self.emulation / "$LIB/libvirtual-device.so"

    @staticmethod
    def fonts(configuration):
        """The distribution's is this machine's, by a name that leads out of the tree that the program
        is built against: that one was only unpacked, and misses what an installation adds."""
        path = None if configuration == "package" else "/proc/self/root/etc/fonts"
        return {**Programs.fonts(configuration), "FONTCONFIG_PATH": path}

    def total(self, program, page, frame, configuration="package"):
        """Instructions from exec to the moment when page number `frame` has been queued."""
        with tempfile.TemporaryDirectory() as scratch:
            pipe = Path(scratch) / "instructions"
            os.mkfifo(pipe)
            counter = Counter(pipe)
            counter.start()
            emulator = [
                str(self.emulation / "bootlume"),
                *EACH_BLOCK,
                "-D",
                str(pipe),
                "-L",
                str(self.emulation / "root"),
            ]
            self._until_frame(program, PAGES[page], frame, emulator, configuration)
            counter.join()
            return counter.count

    def frame(self, program, page):
        """Instructions of one steady frame, the mean of some."""
        early, late = (self.total(program, page, frame) for frame in (EARLY, LATE))
        return (late - early) / (LATE - EARLY)


def measures(build):
    programs = EmulatedPrograms(build)
    for configuration in ("package", "distribution"):  # the first run fills the font cache
        programs.total(programs.splash, "Latin", 1, configuration)
    for page in ("Latin", "Chinese"):
        ours = programs.total(programs.splash, page, 1)
        yield Measure(
            f"start.{page}",
            f"start to the first page, {page}",
            ours,
            "instructions",
            BARE,
            programs.total(programs.bare, page, 1),
            1.10,
        )
        yield Measure(
            f"start.fonts.{page}",
            f"the same with the package's fonts.conf, {page}",
            ours,
            "instructions",
            "the distribution's",
            programs.total(programs.splash, page, 1, "distribution"),
            0.36,
        )
    frames = {name: programs.frame(programs.splash, name) for name in PAGES}
    for name, ours in frames.items():
        yield Measure(
            f"frame.{name}",
            f"one steady frame, {name}",
            ours,
            "instructions",
            BARE,
            programs.frame(programs.bare, name),
            1.02,
        )
    yield Measure(
        "frame.mixed",
        "one steady frame, alternating fonts",
        frames["alternating"],
        "instructions",
        "Latin only",
        frames["Latin"],
        1.25,
    )
    yield Measure("size", "the program's file, not stripped", programs.splash.stat().st_size, "bytes", "-")
