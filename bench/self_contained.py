"""The self-contained build against the shared one: counts on this machine, and, in an emulated one, time, reads
from an empty page cache, and memory."""

import re
import subprocess
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from statistics import median

from board.system import SplashSystem

from .measure import Measure
from .programs import PAGES, Programs, plain_environment

SHARED = "the shared build"
RUNS = 3
PLACE = "usr/lib/board/self-contained"
# Nothing is read from the disk in between but by the splash: all that waits is built into the shell.
START = """
bootlumectl quit; modprobe vivid; mount -t tracefs none /sys/kernel/tracing 2>/dev/null
cd /sys/kernel/tracing; echo >trace; sync; {drop}
: >/run/splash.log
exec 3<trace_pipe
read -r reads0 _ sectors0 _ </sys/block/vda/stat
echo exec >trace_marker
FONTCONFIG_SYSROOT=/usr/share/bootlume/fontconfig {program} >/run/splash.log 2>&1 &
queued=0
while [ $queued -lt 2 ]; do
  read -r line <&3
  case $line in
    *'tracing_mark_write: exec') begin=$line ;;
    *' queued: '*) queued=$((queued + 1)) end=$line ;;
  esac
done
read -r reads1 _ sectors1 _ </sys/block/vda/stat
sleep 1
echo "begin $begin"; echo "end $end"
echo "reads $((reads1 - reads0)) kib $(((sectors1 - sectors0) / 2))"
grep ^Rss /proc/$!/smaps_rollup
bootlumectl quit
"""


def counts(shared, own):
    """Instructions to the first page and of one steady frame."""
    with ThreadPoolExecutor(2) as pool:
        starts = {
            (programs, page): pool.submit(programs.start_instructions, programs.splash, PAGES[page])
            for programs in (shared, own)
            for page in ("Latin", "Chinese")
        }
        frames = {
            programs: pool.submit(programs.frame_instructions, programs.splash, PAGES["Latin"])
            for programs in (shared, own)
        }
        for page, limit in (("Latin", 0.63), ("Chinese", 0.78)):
            yield Measure(
                f"self.start.{page}",
                f"instructions to the first page, {page}",
                starts[own, page].result(),
                "",
                SHARED,
                starts[shared, page].result(),
                limit,
            )
        yield Measure(
            "self.frame",
            "instructions of one steady frame",
            round(frames[own].result()),
            "",
            SHARED,
            round(frames[shared].result()),
            1.0,
        )


def _second(line):
    return float(re.search(r" ([0-9.]+): ", line)[1])


def _start(board, program, cold):
    """(milliseconds from exec to the first page, reads, KiB, memory in KiB) of one start.

    The memory is what is resident a second later: nothing is given back before. The kernel's own record of the
    peak leaves out what a thread has counted by itself so far."""
    drop = "echo 3 >/proc/sys/vm/drop_caches" if cold else ":"
    said = board.text(START.format(program=f"/{program}", drop=drop))
    found = dict(line.split(" ", 1) for line in said.splitlines() if line.split(" ", 1)[0] in ("begin", "end"))
    reads, kib = re.search(r"^reads (\d+) kib (\d+)", said, re.MULTILINE).groups()
    resident = re.search(r"^Rss:\s+(\d+)", said, re.MULTILINE)[1]
    return 1000 * (_second(found["end"]) - _second(found["begin"])), int(reads), int(kib), int(resident)


def in_machine(own):
    """Medians of starts by turns in one machine, whose clock counts instructions."""

    def furnish(system):
        target = system.changes / PLACE
        subprocess.run(["strip", "-o", target, own.splash], check=True)

    with tempfile.TemporaryDirectory(prefix="bench-self-contained-") as scratch:
        system = SplashSystem("amd64", Path(scratch) / "system", furnish=furnish)
        system.finish()
        with system.start("service") as board:
            board.run("systemctl is-system-running --wait")
            warm, cold = {}, {}
            for into, is_cold in ((cold, True), (warm, False)):
                for _ in range(RUNS):
                    for program in ("usr/sbin/bootlume", PLACE):
                        into.setdefault(program, []).append(_start(board, program, is_cold))
    rows = (
        ("time", "time from exec to the first page", "ms", warm, 0, 0.70),
        ("cold", "the same from an empty page cache", "ms", cold, 0, None),
        ("reads", "reads from an empty page cache", "", cold, 1, 0.70),
        ("kib", "what they read", "KiB", cold, 2, 0.70),
        ("memory", "peak memory", "KiB", warm, 3, 0.80),
    )
    for key, name, unit, runs, column, limit in rows:
        values = [median(run[column] for run in runs[program]) for program in (PLACE, "usr/sbin/bootlume")]
        yield Measure(f"self.{key}", name, values[0], unit, SHARED, values[1], limit)


def measures(shared, own):
    shared, own = Programs(shared), Programs(own)
    machine = list(in_machine(own))
    plain_environment()
    return [*counts(shared, own), *machine]
