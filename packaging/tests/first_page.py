"""Measures the start of the splash up to its first page, under one fontconfig environment.

    first_page.py BUILD_DIR {default|package} LANGUAGE [--pixels-only]

prints one JSON object: instructions, files (opened), page (a checksum) and families (what the two
families are answered by).
"""

import hashlib
import json
import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path

from desk import COUNTED, LANGUAGE, SOURCE, Desk

TREE = os.environ.get("BOOTLUME_FONT_TREE", str(SOURCE / "packaging/fontconfig"))
FAMILIES = ("Univers Next W1G Medium", "Droid Sans Fallback")
TEXTS = {
    "en": ("Brem K5 Start", "The system is starting\nPlease wait: Ä Ö ü ß ñ ł"),
    "zh": ("Brem K5 启动", "Brem K5 系统正在启动\n请稍候"),
}
# QUERYCAP, G_FMT, S_FMT, REQBUFS, QUERYBUF twice, QBUF, STREAMON, and the first page's QBUF: what
# lies before the tenth call is the work up to the first page.
CALLS_TO_FIRST_PAGE = 9
SLOW_REFRESH = 2  # pictures a second: a page stays to be read


def environment(configuration):
    """The changes to the environment: with the package's tree, or with the machine's default."""
    cleared = dict.fromkeys(("FONTCONFIG_FILE", "FONTCONFIG_PATH", "FONTCONFIG_SYSROOT"))
    return {**cleared, "FONTCONFIG_SYSROOT": TREE} if configuration == "package" else cleared


def families(changes):
    made = {k: v for k, v in {**os.environ, **changes}.items() if v is not None}
    return [
        subprocess.run(
            ["fc-match", "--format=%{family} | %{file} | %{hintstyle}", name],
            env=made,
            capture_output=True,
            text=True,
            check=True,
        ).stdout
        for name in FAMILIES
    ]


def desk(build, language, **options):
    made = Desk(bootlume=build / "bin/bootlume", library=build / "lib/libvirtual-device.so", **options)
    made.language(language)
    return made


def page(build, language, changes):
    """Checksum of the pixels of one page, the same in every run: the ring stands in one place."""
    with desk(build, language) as made:
        splash = made.start(*TEXTS[language], env=changes, refresh=SLOW_REFRESH)
        frame = splash.screen.wait_for_frame(3)
        assert frame.number == 3
        splash.quit()
        return hashlib.sha256(frame.pixels).hexdigest()


def instructions(build, language, changes, scratch):
    out = Path(scratch) / "callgrind"
    prefix = ["valgrind", "--quiet", "--tool=callgrind", f"--callgrind-out-file={out}", "--dump-before=ioctl"]
    with desk(build, language, run_prefix=prefix) as made:
        splash = made.start(*TEXTS[language], env={**changes, **COUNTED})
        splash.screen.wait_for_frame(3, deadline=120)
        assert splash.quit(deadline=120) == 0, splash.stderr
    total = 0
    for number in range(1, CALLS_TO_FIRST_PAGE + 2):
        text = Path(f"{out}.{number}").read_text(encoding="utf-8")
        assert "dump-before=ioctl" in text, f"segment {number} ends elsewhere"
        total += int(re.search(r"^(?:totals|summary): (\d+)", text, re.MULTILINE)[1])
    return total


def files(build, language, changes, scratch):
    out = Path(scratch) / "strace"
    prefix = ["strace", "-f", "-o", str(out), "-e", "trace=open,openat"]
    with desk(build, language, run_prefix=prefix, prefix_env="-E") as made:
        splash = made.start(*TEXTS[language], env=changes)
        splash.screen.wait_for_frame(4)
        splash.send("QUIT")  # the process that was started is the tracer: its name says nothing
        assert splash.wait() == 0, splash.stderr
    opened, frames = 0, 0
    for line in out.read_text(encoding="utf-8").splitlines():
        frames += LANGUAGE in line
        if frames == 2:  # read at the start of every frame
            return opened
        opened += bool(re.search(r"= \d+$", line))
    raise AssertionError("the second frame was not seen")


def main():
    build, configuration, language = Path(sys.argv[1]), sys.argv[2], sys.argv[3]
    changes = environment(configuration)
    found = {"families": families(changes), "page": page(build, language, changes)}
    if "--pixels-only" not in sys.argv:
        with tempfile.TemporaryDirectory() as scratch:
            found["instructions"] = instructions(build, language, changes, scratch)
            found["files"] = files(build, language, changes, scratch)
    print(json.dumps(found))


if __name__ == "__main__":
    main()
