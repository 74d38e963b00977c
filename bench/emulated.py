"""What can be counted of the 32-bit ARM build under user-mode emulation.

The emulator names each block of instructions that it runs, and shows each one when it translates it.
The instructions are those of all libraries, the virtual device among them, on both sides.
"""

import os
import tempfile
import threading
from pathlib import Path

from .programs import PAGES, Programs

EACH_BLOCK = ["-d", "in_asm,exec,nochain"]


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

    FRAMES = (3, 6)
    strip = "arm-linux-gnueabihf-strip"

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

    def instructions(self, program, page, frame, configuration="package"):
        with tempfile.TemporaryDirectory() as scratch:
            pipe = Path(scratch) / "instructions"
            os.mkfifo(pipe)
            counter = Counter(pipe)
            counter.start()
            emulator = [self.emulation / "bootlume", *EACH_BLOCK, "-D", pipe, "-L", self.emulation / "root"]
            self._until_frame(program, page, frame, list(map(str, emulator)), configuration)
            counter.join()
            return counter.count

    def fill_font_caches(self):
        """What the first run does besides under each configuration."""
        for configuration in ("package", "distribution"):
            self.start_instructions(self.splash, PAGES["Latin"], configuration)
