"""The program's clocks, set by a test while the program runs."""

import mmap
import struct

from desk import wait_until

WALL, STEADY, IS_NEXT_SET, NEXT_WALL, WAITS, LEFT = range(6)
NS = 1_000_000_000


class Clocks:
    """By how many seconds each clock is ahead of the true one; preload/test_clocks.c obeys.

    environment: what the program is to be started with, and refresh=0: the display's waits would see
    clocks that they are not meant to.
    """

    def __init__(self, path, preloads):
        self.environment = {**preloads, "SHIFTED_CLOCK": path}
        path.write_bytes(bytes(8 * (LEFT + 1)))
        with open(path, "r+b") as file:
            self._map = mmap.mmap(file.fileno(), 0)

    def _get(self, field):
        return struct.unpack_from("=q", self._map, 8 * field)[0]

    def _put(self, field, value):
        struct.pack_into("=q", self._map, 8 * field, value)

    def set(self, wall=None, steady=None):
        for field, seconds in ((WALL, wall), (STEADY, steady)):
            if seconds is not None:
                self._put(field, int(seconds * NS))

    def set_within_a_wait(self, wall):
        """Sets the wall clock when the loop has decided how long to wait, and waits."""
        self._put(NEXT_WALL, int(wall * NS))
        self._put(IS_NEXT_SET, 1)
        wait_until(lambda: not self._get(IS_NEXT_SET), "the loop to wait")

    def wait_for_a_look(self):
        """Returns once the loop has looked at what is due by the clocks as they are now."""
        before = self._get(WAITS)
        wait_until(lambda: self._get(WAITS) >= before + 2, "the loop to look twice")

    @property
    def left(self):
        """How many seconds the loop's wait is still to last, as seen at its last slice."""
        return self._get(LEFT) / NS
