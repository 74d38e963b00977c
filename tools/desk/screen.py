"""The screen file of the virtual device; tools/virtual-device/README.md describes its layout."""

import mmap
import os
import struct
from dataclasses import dataclass
from pathlib import Path

from .waiting import wait_until

WIDTH, HEIGHT = 480, 800


@dataclass(frozen=True)
class Frame:
    """One picture of the screen, whole: rows of little-endian RGB565 without padding."""

    number: int
    time_ns: int
    width: int
    height: int
    buffer: int
    stream: int
    pixels: bytes

    def pixel(self, x, y):
        """The 16-bit value at (x, y)."""
        return struct.unpack_from("<H", self.pixels, (y * self.width + x) * 2)[0]


class Screen:
    """Reader of a screen file. The file may appear later; until then the screen is off."""

    MAGIC = 0x4E435342
    HEADER = struct.Struct("=6I2I Q 2I Q")
    SLOT = struct.Struct("=2I 2Q 6I")

    def __init__(self, path):
        self.path = Path(path)
        self._memory = None

    def close(self):
        if self._memory is not None:
            self._memory.close()
            self._memory = None

    def _header(self):
        if self._memory is None:
            try:
                with open(self.path, "rb") as file:
                    size = os.fstat(file.fileno()).st_size
                    if size < self.HEADER.size:
                        return None
                    self._memory = mmap.mmap(file.fileno(), size, prot=mmap.PROT_READ)
            except FileNotFoundError:
                return None
        header = self.HEADER.unpack_from(self._memory)
        return header if header[0] == self.MAGIC else None

    @property
    def streaming(self):
        """Whether the device is on."""
        header = self._header()
        return bool(header and header[6])

    @property
    def frame_number(self):
        """Number of the newest frame, from 1; 0 before the first."""
        header = self._header()
        return header[8] if header else 0

    @property
    def streams(self):
        """How often the device was switched on."""
        header = self._header()
        return header[9] if header else 0

    def frame(self, number=None):
        """Frame `number`, the newest by default. None where it is not there (yet, or any more)."""
        header = self._header()
        if not header:
            return None
        newest = number is None
        while True:
            wanted = self.frame_number if newest else number
            frame = self._copy(header, wanted)
            if frame or not newest or wanted == 0:
                return frame

    def _copy(self, header, number):
        _, _, header_bytes, slot_bytes, slots, pixels_offset = header[:6]
        start = header_bytes + number % slots * slot_bytes
        sequence, buffer, frame, time_ns, width, height, _, row_bytes, stream, _ = self.SLOT.unpack_from(
            self._memory, start
        )
        if number == 0 or sequence % 2 or frame != number:
            return None
        first = start + pixels_offset
        pixels = self._memory[first : first + row_bytes * height]
        if self.SLOT.unpack_from(self._memory, start)[0] != sequence:
            return None
        return Frame(frame, time_ns, width, height, buffer, stream, pixels)

    def wait_for_frame(self, number=None, deadline=None):
        """The first frame from `number` on (by default: the next one that comes) that is caught."""
        first = self.frame_number + 1 if number is None else number

        def look():
            newest = self.frame_number
            return (self.frame(first) or self.frame()) if newest >= first else None

        return wait_until(look, f"frame {first} of {self.path} (now {self.frame_number})", deadline)

    def wait_for_more(self, count=4, deadline=None):
        """The first frame that is caught when so many have come from now on."""
        return self.wait_for_frame(self.frame_number + count, deadline)

    def wait_for_picture(self, wanted, what="a picture", deadline=None):
        """The first frame from now on for which wanted(frame) is true."""
        seen = 0

        def look():
            nonlocal seen
            frame = self.frame()
            if frame is None or frame.number == seen:
                return None
            seen = frame.number
            return frame if wanted(frame) else None

        return wait_until(look, what, deadline)

    def frames(self, count, first=None, deadline=None):
        """`count` frames in a row without a gap, from `first` (by default the next one) on."""
        start = self.frame_number + 1 if first is None else first
        taken = []
        for number in range(start, start + count):
            frame = self.wait_for_frame(number, deadline)
            assert frame.number == number, f"frame {number} was missed"
            taken.append(frame)
        return taken
