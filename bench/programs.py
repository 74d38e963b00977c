"""The programs that are measured, and the ways to run them."""

import os
import signal
import subprocess
import tempfile
import time
from dataclasses import dataclass
from pathlib import Path

from desk import COUNTED, SOURCE, Desk, wait_until

from . import callgrind

FONT_TREE = SOURCE / "packaging/fontconfig"
DEADLINE = 60
CALLGRIND = ["valgrind", "--quiet", "--tool=callgrind"]
QUIET_LOOKS = 4  # looks in a row that find no thread running


@dataclass(frozen=True)
class Page:
    """What is shown: the language that is set, the title and the body lines."""

    language: str
    title: str
    lines: tuple

    @property
    def arguments(self):
        return [self.title, "\n".join(self.lines)]

    @property
    def bare_arguments(self):
        return [self.language, self.title, *self.lines]


PAGES = {
    "Latin": Page("en", "Brem K5 Start", ("System is starting", "Please wait for it", "Until it is ready")),
    "Chinese": Page("zh", "系统启动", ("系统正在启动", "请稍候", "准备就绪")),
    "alternating": Page("zh", "Brem K5 启动", ("Brem K5 系统正在启动", "Brem K5 请稍候", "Brem K5 准备就绪")),
}


def plain_environment():
    """Leaves only what a program at start-up has: the environment's size counts, too."""
    kept = {name: os.environ[name] for name in ("PATH", "HOME", "TMPDIR") if name in os.environ}
    os.environ.clear()
    os.environ.update(kept, LANG="C.UTF-8")


def is_quiet(pid):
    """Whether no thread of the process is running now."""
    states = []
    for task in Path(f"/proc/{pid}/task").iterdir():
        try:
            states.append((task / "stat").read_text(encoding="ascii").rpartition(") ")[2][0])
        except (FileNotFoundError, ProcessLookupError):
            pass
    return "R" not in states


def wait_until_quiet(pid):
    for _ in range(QUIET_LOOKS):
        wait_until(lambda: is_quiet(pid), "the program to wait for something", DEADLINE)
        time.sleep(0.05)


class Programs:
    """The built programs of one preset."""

    FRAMES = (10, 30)  # between these frames one steady frame is counted
    strip = "strip"

    def __init__(self, build):
        self.build = Path(build).resolve()
        self.library = self.build / "lib/libvirtual-device.so"
        self.splash = self.build / "bin/bootlume"
        self.bare = self.build / "bench/bare_splash"

    def bench(self, name):
        return self.build / "bench" / name

    def desk(self, program, page=None, **options):
        made = Desk(bootlume=program, library=self.library, **options)
        if page:
            made.language(page.language)
        return made

    def arguments(self, program, page):
        return page.arguments if program == self.splash else page.bare_arguments

    @staticmethod
    def fonts(configuration):
        """The environment of a font configuration: the package's own or the distribution's."""
        return {"FONTCONFIG_SYSROOT": str(FONT_TREE) if configuration == "package" else None}

    def _until_frame(self, program, page, frame, prefix, configuration):
        """Runs a program up to its frame-th flip, where the display holds it, and ends it there."""
        with self.desk(program, page, run_prefix=prefix) as desk:
            splash = desk.start(
                *self.arguments(program, page),
                refresh=0,
                env={**self.fonts(configuration), **COUNTED},
                faults=f"VIDIOC_DQBUF@{frame}=block",
            )
            held = splash.wait_for_record(
                lambda record: record["kind"] == "fault", f"flip {frame} of {program.name}", DEADLINE
            )
            wait_until_quiet(held["pid"])
            os.kill(held["pid"], signal.SIGTERM)
            splash.wait(DEADLINE)

    def instructions(self, program, page, frame, configuration="package"):
        """Instructions from exec to the moment when page number `frame` has been queued."""
        with tempfile.TemporaryDirectory() as scratch:
            out = Path(scratch) / "profile"
            self._until_frame(program, page, frame, [*CALLGRIND, f"--callgrind-out-file={out}"], configuration)
            return callgrind.instructions(out)

    def start_instructions(self, program, page, configuration="package"):
        """From exec to the moment when the first page has been queued."""
        return self.instructions(program, page, 1, configuration)

    def frame_instructions(self, program, page, first=None, last=None):
        """What one steady frame costs, the mean of some."""
        first, last = first or self.FRAMES[0], last or self.FRAMES[1]
        early, late = (self.instructions(program, page, frame) for frame in (first, last))
        return (late - early) / (last - first)

    def counted(self, operation, count, size=0, environment=None):
        """Instructions of `counted`, which runs one operation so many times."""
        with tempfile.TemporaryDirectory() as scratch:
            out = Path(scratch) / "profile"
            words = [self.bench("counted"), operation, str(count), str(size)]
            subprocess.run(
                [*CALLGRIND, f"--callgrind-out-file={out}", *words],
                stdout=subprocess.DEVNULL,
                check=True,
                env={**os.environ, **COUNTED, **(environment or {})},
            )
            return callgrind.instructions(out)

    def operation(self, name, size=0, low=1000, high=3000, environment=None):
        """Instructions of one run of an operation."""
        early, late = (self.counted(name, count, size, environment) for count in (low, high))
        return (late - early) / (high - low)
