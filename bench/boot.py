"""Seconds from the kernel's start to the first page, for each way to start a splash in one machine.

The machine is an ordinary Debian system with one emulated processor of 500 million instructions a second;
its clock counts instructions, so that the times do not depend on the host. With the package of another
splash screen in a throw-away root, the same machine shows what Debian's own takes.
"""

import re
import subprocess
import tempfile
from pathlib import Path

from desk import SOURCE

from board.system import SplashSystem, System

from . import self_contained
from .document import replace_in_document
from .measure import Measure, markdown_table

OTHER = ("plymouth", "plymouth-themes")
OTHER_WORDS = ("splash", "plymouth.ignore-serial-consoles")
EVENT = re.compile(r"^ *(\S+)-\d+ +\[\d+\] \S+ +([0-9.]+): (\w+): ", re.MULTILINE)
SETTLED = "systemctl is-system-running --wait; mount -t tracefs none /sys/kernel/tracing 2>/dev/null; true"
SERVICE, DEBIANS = "the service", "Debian's own splash"
NAMES = {"service": SERVICE, "bootlume-init": "bootlume-init", "initramfs": "the initramfs"}


def events(board):
    """(program, second, event) of what the kernel traced until the system had come up."""
    board.run(SETTLED)
    trace = board.text("cat /sys/kernel/tracing/trace")
    return [(program, float(second), event) for program, second, event in EVENT.findall(trace)]


def first_page(found):
    """The second buffer that is queued is the first with a page."""
    return [second for _, second, event in found if event == "queued"][1]


def longest_gap(found):
    """The longest time between two pictures of the display, in milliseconds."""
    shown = [second for _, second, event in found if event == "shown"]
    return max(after - before for before, after in zip(shown, shown[1:])) * 1000


def others_first_picture(found):
    """The first time that the other splash gave the display something to show."""
    return min(
        second
        for program, second, event in found
        if program.startswith("plymouth") and event in ("drawn", "flipped", "switched", "changed")
    )


def expect_display(system):
    """The service waits for a display that the machine is known to have: here nothing else tells of it."""
    system.put("etc/systemd/system/bootlume-display.service.d/expected.conf", "[Unit]\nConditionPathExists=\n")


def times(scratch):
    """Seconds by name, and the longest gaps in milliseconds by name."""
    seconds, gaps = {}, {}
    system = SplashSystem("amd64", Path(scratch) / "ours", furnish=expect_display, ordinary=True)
    system.finish()
    for way, name in NAMES.items():
        with system.start(way) as board:
            found = events(board)
        seconds[name], gaps[name] = first_page(found), longest_gap(found)
    other = System("amd64", Path(scratch) / "other", extra=OTHER, drivers=("bochs",), ordinary=True)
    other.run("plymouth-set-default-theme spinner")
    other.initramfs("plain")
    other.finish()
    with other.boot(*OTHER_WORDS, initramfs=other.folder / "plain") as board:
        seconds[DEBIANS] = others_first_picture(events(board))
    return seconds, gaps


def measures(seconds, gaps):
    for name in list(NAMES.values())[1:]:
        what = f"kernel's start to the first page, {name}"
        yield Measure(f"boot.{name}", what, seconds[name], "s", SERVICE, seconds[SERVICE], 0.55)
        yield Measure(f"boot.{name}.debian", "the same", seconds[name], "s", DEBIANS, seconds[DEBIANS], 0.96)
    for name in list(NAMES.values())[1:]:
        yield Measure(
            f"boot.{name}.gap",
            f"longest time between two pictures until the system is up, {name}",
            gaps[name],
            "ms",
            "-",
            limit=200,
        )


def plot(seconds, path):
    """Draws the times as bars, the longest first."""
    rows = sorted(seconds.items(), key=lambda row: row[1])
    data = "\n".join(f'{number} {value:.3f} "{name}" "{value:.2f} s"' for number, (name, value) in enumerate(rows))
    commands = f"""
set terminal svg size 760,230 font 'sans-serif,13' background 'white'
set output '{path}'
set style fill solid
set yrange [-0.6:{len(rows) - 0.4}]
set xrange [0:{max(seconds.values()) * 1.15:.1f}]
set xlabel 'seconds from the start of the kernel to the first page'
set grid xtics
set ytics nomirror scale 0
unset key
$rows << end
{data}
end
plot $rows using ($2/2):1:($2/2):(0.35):ytic(3) with boxxyerror linecolor '#3465a4', \\
  $rows using 2:1:4 with labels left offset 0.7,0
"""
    subprocess.run(["gnuplot"], input=commands, text=True, check=True)


def run(update):
    """Measures, and writes what was found into the document where that is asked for."""
    with tempfile.TemporaryDirectory(prefix="bench-boot-") as scratch:
        seconds, gaps = times(scratch)
    found = list(measures(seconds, gaps))
    own = self_contained.measures(SOURCE / "build/release", SOURCE / "build/self-contained")
    if update:
        plot(seconds, SOURCE / "docs/images/boot.svg")
        replace_in_document("boot", markdown_table(found))
        replace_in_document("self-contained", markdown_table(own))
    return found + own
