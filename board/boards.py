"""Where a run finds its trees and builds, and how it boots a board."""
import dataclasses
import os
import pathlib

from desk import SOURCE

from . import emulated, image, machines, reference


def trees():
    """The unpacked trees by their names, as scripts/board hands them over."""
    entries = dict(entry.split("=", 1) for entry in os.environ["BOARD_TREES"].split())
    return {name: pathlib.Path(path) for name, path in entries.items()}


class Workshop:
    """Makes one machine's image, once, and boots boards with it."""

    def __init__(self, name):
        self.machine = machines.MACHINES[name]
        self.build = SOURCE / "build" / self.machine.preset
        self.work = SOURCE / "build" / "board" / name
        self.work.mkdir(parents=True, exist_ok=True)
        self._trees = trees()
        self.image = image.Image(self.machine, self.build, self._trees, self.work)
        self.image.make()

    def boot(self, variant="vrx", shell=False, emulator=()):
        """A board, to be used with "with"; `emulator`: further words for its emulator."""
        machine = dataclasses.replace(self.machine, emulator=(*self.machine.emulator, *emulator))
        return emulated.Board(machine, self._trees[self.machine.tree], self.image.initramfs(variant), self.work, shell)

    def reference(self):
        """The pages that the same program draws on the virtual device."""
        return reference.Reference(self.build, self.image.root, self.machine.preset == "armhf")
