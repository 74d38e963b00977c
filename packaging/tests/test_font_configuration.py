"""The package's font configuration: the first page for a third of the work, in a font that is narrow
enough for it.

Everything runs on a machine (a mount namespace) whose only fonts are those that Debian has for the
page; a family that is installed by its own name is put beside them where a test says so.
"""

import json
import os
import shutil
import struct
import subprocess
import sys
from pathlib import Path

import pytest

from desk import python_environment

HERE = Path(__file__).resolve().parent
LATIN = "Univers Next W1G Medium"
MOST_INSTRUCTIONS = {"en": 0.36, "zh": 0.38}  # the Chinese page has both fonts to hint
MOST_FILES = 0.5


def can_isolate():
    done = subprocess.run([HERE / "device_fonts.sh", "true"], capture_output=True, check=False)
    return done.returncode == 0


pytestmark = pytest.mark.skipif(not can_isolate(), reason="no mount namespace may be made here")


def measure(build_dir, configuration, language, *options, **env):
    done = subprocess.run(
        [
            HERE / "device_fonts.sh",
            sys.executable,
            HERE / "first_page.py",
            build_dir,
            configuration,
            language,
            *options,
        ],
        capture_output=True,
        text=True,
        check=False,
        env={**python_environment(), **env},
    )
    assert done.returncode == 0, done.stderr
    return json.loads(done.stdout)


@pytest.mark.parametrize("language", ["en", "zh"])
def test_first_page_comes_for_a_fraction_of_the_work(build_dir, language, capsys):
    for tool in ("valgrind", "strace"):
        if not shutil.which(tool):
            pytest.skip(f"{tool} is not installed")
    default = measure(build_dir, "default", language)
    package = measure(build_dir, "package", language)
    ratios = {what: package[what] / default[what] for what in ("instructions", "files")}
    with capsys.disabled():
        for what, ratio in ratios.items():
            print(
                f"\n{what} to the first page ({language}): {package[what]} against " f"{default[what]}, {ratio:.3f}",
                end="",
            )
    assert ratios["instructions"] <= MOST_INSTRUCTIONS[language]
    assert ratios["files"] <= MOST_FILES


@pytest.mark.parametrize("language", ["en", "zh"])
def test_the_narrow_font_costs_no_more_than_the_wide_one(build_dir, language):
    if not shutil.which("valgrind"):
        pytest.skip("valgrind is not installed")
    narrow = measure(build_dir, "package", language)
    wide = measure(build_dir, "package", language, WITHOUT_NARROW="1")
    assert narrow["instructions"] <= wide["instructions"]


def test_the_prefix_leaves_room_for_what_stands_behind_it(source):
    """In Chinese, what follows "Brem K5 " begins 56 px behind it in the title, 80 px in a line."""
    script = (
        "import cairo\n"
        "page = cairo.Context(cairo.ImageSurface(cairo.Format.RGB16_565, 480, 800))\n"
        f"page.select_font_face('{LATIN}')\n"
        "for size in (15, 21):\n"
        "    page.set_font_size(size)\n"
        "    print(page.text_extents('Brem K5 ').x_advance)\n"
    )
    done = subprocess.run(
        [HERE / "device_fonts.sh", "/usr/bin/python3", "-c", script],
        check=True,
        text=True,
        capture_output=True,
        env={**os.environ, "FONTCONFIG_SYSROOT": f"{source}/packaging/fontconfig"},
    )
    title, line = map(float, done.stdout.split())
    assert 0 < title <= 56
    assert 0 < line <= 80


@pytest.mark.parametrize("locale", ["C.UTF-8", "zh_CN.UTF-8", "ar_EG.UTF-8"])
@pytest.mark.parametrize("language", ["en", "zh"])
def test_page_is_the_same_in_every_locale(build_dir, language, locale):
    here, there = (measure(build_dir, "package", language, "--pixels-only", LANG=name) for name in ("C", locale))
    assert here == there


@pytest.mark.parametrize("language", ["en", "zh"])
def test_without_the_narrow_font_the_page_is_the_one_of_the_machine(build_dir, language):
    default, package = (
        measure(build_dir, configuration, language, "--pixels-only", WITHOUT_NARROW="1")
        for configuration in ("default", "package")
    )
    assert package == default


def test_the_two_languages_are_drawn_differently(build_dir):
    """Guards the comparisons above: a page that shows nothing would pass them."""
    pages = {measure(build_dir, "package", language, "--pixels-only")["page"] for language in ("en", "zh")}
    assert len(pages) == 2


def renamed_font(source, target, family):
    """Copies a TrueType font with another family name."""
    data = Path(source).read_bytes()
    count = struct.unpack_from(">H", data, 4)[0]
    text = family.encode("utf-16-be")
    names = b"".join(struct.pack(">6H", 3, 1, 0x409, name, len(text), 0) for name in (1, 4))
    table = struct.pack(">3H", 0, 2, 6 + len(names)) + names + text
    start = len(data) + -len(data) % 4
    made = bytearray(data.ljust(start, b"\0") + table)
    for index in range(count):
        entry = 12 + 16 * index
        if made[entry : entry + 4] == b"name":
            struct.pack_into(">3I", made, entry + 4, 0, start, len(table))
    Path(target).write_bytes(made)


@pytest.mark.parametrize("place", ["/usr/share/fonts", "/usr/local/share/fonts"])
def test_a_family_that_is_installed_wins(source, tmp_path, place):
    font = tmp_path / "commercial.ttf"
    renamed_font("/usr/share/fonts/truetype/dejavu/DejaVuSansMono.ttf", font, LATIN)
    script = (
        f"mkdir -p {place}/own && cp {font} {place}/own && "
        f"FONTCONFIG_SYSROOT={source}/packaging/fontconfig "
        f"fc-match --format='%{{family}} %{{file}}' '{LATIN}'"
    )
    done = subprocess.run([HERE / "device_fonts.sh", "sh", "-c", script], capture_output=True, text=True, check=True)
    assert done.stdout == f"{LATIN} {place}/own/commercial.ttf"


@pytest.mark.parametrize(
    "others", [("Noto Sans",), ("Arial", "Verdana"), ("Nimbus Sans", "Arial"), ("Abyssinica", "Nimbus Sans")]
)
def test_stand_ins_are_chosen_as_by_default(source, tmp_path, others):
    """Both families and the narrow font are missing, and other fonts, by their names, are there besides DejaVu Sans, or
    (where more than one is named) in its place."""
    for other in others:
        renamed_font("/usr/share/fonts/truetype/dejavu/DejaVuSansMono.ttf", tmp_path / f"{other}.ttf", other)
    removed = ["droid", "liberation"] + (["dejavu"] if len(others) > 1 else [])
    ask = f"for f in '{LATIN}' 'Droid Sans Fallback'; do fc-match --format='%{{family}};' \"$f\"; done"
    script = (
        f"cd /usr/share/fonts && rm -r {' '.join('truetype/' + name for name in removed)} && "
        f"cp {tmp_path}/*.ttf . && {ask}; echo; "
        f"export FONTCONFIG_SYSROOT={source}/packaging/fontconfig; {ask}"
    )
    done = subprocess.run([HERE / "device_fonts.sh", "sh", "-c", script], capture_output=True, text=True, check=True)
    default, package = done.stdout.split("\n")
    assert default == f"{others[-1]};" * 2
    assert package == default


def test_a_cache_that_cannot_be_written_is_used_as_it_is(source):
    script = (
        "mount -o remount,ro /var/cache/fontconfig && "
        f"FONTCONFIG_SYSROOT={source}/packaging/fontconfig "
        "strace -f -e trace=openat,open,creat,link,rename fc-match "
        f"'{LATIN}' 2>&1 >/dev/null | grep -E 'O_WRONLY|O_CREAT|rename|link\\(|EROFS|[.]ttf' "
        "|| true"
    )
    if not shutil.which("strace"):
        pytest.skip("strace is not installed")
    done = subprocess.run([HERE / "device_fonts.sh", "sh", "-c", script], capture_output=True, text=True, check=True)
    assert done.stdout == ""
