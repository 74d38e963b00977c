"""Pictures and animations are what the device shows, pixel for pixel; nothing is left behind."""

import io
import os
import shutil
import signal
import subprocess

import numpy
import pytest
from PIL import Image

from desk import SOURCE, wait_until
from desk.pictures import rgb
from preview_desk import PREVIEW, SECONDS, TEXTS, TURN, drawn, environment, processes_with, read_png

SERIF = "/usr/share/fonts/truetype/dejavu/DejaVuSerif.ttf"


@pytest.mark.parametrize(
    "arguments,texts,frame,chinese",
    [
        ([], (), 0, False),
        (TEXTS, TEXTS, 0, False),
        ([*TEXTS, "--frame", 1], TEXTS, 1, False),
        ([*TEXTS, "--frame", 33], TEXTS, 33, False),
        ([*TEXTS, "--frame", 65], TEXTS, 65, False),
        ([*TEXTS, "--frame", 66], TEXTS, 0, False),
        ([*TEXTS, "--frame", 6_600_007], TEXTS, 7, False),
        (["--chinese", "Brem K5 配置", "请稍候"], ("Brem K5 配置", "请稍候"), 0, True),
        (["Title", "one\ntwo\n\nfour"], ("Title", "one\ntwo\n\nfour"), 0, False),
    ],
)
def test_a_picture_is_the_frame_that_was_asked_for(preview, tmp_path, arguments, texts, frame, chinese):
    file = tmp_path / "page.png"
    done = preview("--png", file, *arguments)
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")
    expected = drawn(texts, first=frame, chinese=chinese)[0]
    assert numpy.array_equal(read_png(file), rgb(expected))


def test_an_animation_is_one_turn_of_the_ring_at_its_true_speed(preview, tmp_path):
    file = tmp_path / "page.webp"
    assert preview("--animation", file, *TEXTS).returncode == 0
    frames = drawn(TEXTS, count=TURN)
    with Image.open(file) as animation:
        assert animation.n_frames == TURN
        assert animation.info["loop"] == 0
        last = 0
        for index, frame in enumerate(frames):
            animation.seek(index)
            shown = numpy.asarray(animation.convert("RGB"))
            assert numpy.array_equal(shown, rgb(frame)), f"frame {index}"
            assert animation.info["timestamp"] + animation.info["duration"] - last == 30
            last += 30


def test_a_font_file_that_is_not_installed_takes_the_family_s_place(preview, tmp_path):
    font, page = tmp_path / "a & b.ttf", tmp_path / "page.png"
    shutil.copy(SERIF, font)
    assert preview("--font-latin", font, "--png", page, *TEXTS).returncode == 0
    conf = tmp_path / "fonts.conf"
    conf.write_text(
        '<?xml version="1.0"?><fontconfig><include>/etc/fonts/fonts.conf</include>'
        '<match target="pattern"><test name="family"><string>Univers Next W1G Medium'
        '</string></test><edit name="family" mode="assign" binding="strong"><string>'
        "DejaVu Serif</string></edit></match></fontconfig>"
    )
    expected = rgb(drawn(TEXTS, env={"FONTCONFIG_FILE": conf})[0])
    assert numpy.array_equal(read_png(page), expected)
    assert not numpy.array_equal(expected, rgb(drawn(TEXTS)[0]))


def test_a_chinese_font_file_is_used_for_chinese_alone(preview, tmp_path):
    page = tmp_path / "page.png"
    latin = ("Title", "Latin")
    assert preview("--font-chinese", SERIF, "--png", page, *latin).returncode == 0
    assert numpy.array_equal(read_png(page), rgb(drawn(latin)[0]))
    assert preview("--font-chinese", SERIF, "--chinese", "--png", page, *latin).returncode == 0
    assert not numpy.array_equal(read_png(page), rgb(drawn(latin, chinese=True)[0]))


def test_a_font_file_for_one_family_leaves_the_other_as_configured(preview, tmp_path):
    root = {"FONTCONFIG_SYSROOT": SOURCE / "packaging/fontconfig"}
    pages = [tmp_path / f"{name}.png" for name in ("with", "without")]
    for page, options in zip(pages, (["--font-chinese", SERIF], [])):
        assert preview("--png", page, *options, *TEXTS, **root).returncode == 0
    assert numpy.array_equal(*map(read_png, pages))
    assert not numpy.array_equal(read_png(pages[0]), rgb(drawn(TEXTS)[0]))


@pytest.mark.parametrize("font,reason", [(__file__, "holds no font"), ("/nowhere", "no such file")])
def test_what_is_no_font_is_refused(preview, tmp_path, font, reason):
    done = preview("--font-latin", font, "--png", tmp_path / "page.png")
    assert done.returncode == 3
    assert f"{font}: " in done.stderr and reason in done.stderr


def test_without_a_display_and_a_terminal_the_picture_is_written_and_named(preview, tmp_path):
    file = tmp_path / "page.png"
    done = preview("--picture", file, *TEXTS)
    assert done.returncode == 0
    assert "no display" in done.stdout
    assert f"picture of the page: {file}\n" in done.stdout
    shown = read_png(file)
    assert any(numpy.array_equal(shown, rgb(frame)) for frame in drawn(TEXTS, count=TURN))


@pytest.mark.parametrize(
    "arguments,status,reason",
    [
        (["Title"], 2, "give a title and lines, or neither"),
        (["--", "-cold", "lines"], 2, "for an option"),
        (["--animation", "page.gif"], 2, ".webp"),
        (["--png", "page.jpg"], 2, "page.jpg: what is written there is a .png"),
        (["--picture", "page.webp"], 2, "page.webp"),
        (["--check", "x", "--sheet", "sheet.pdf"], 2, "sheet.pdf"),
        (["--check", "x", "--sheet", "-"], 2, "only --png writes to standard output"),
        (["--frame", "3"], 2, "--png"),
        (["--pages", "x", "--png", "x.png"], 2, "go without"),
        (["--png", "/dev/full"], 3, "/dev/full: No space left on device"),
        (["--root", "/proc/x", "--png", "x.png"], 3, "/proc/x: No such file or directory"),
        (["--json"], 2, "--check"),
        (["--html", "x.html"], 2, "--check"),
        (["--check", "x", "--html", "x.png"], 2, "x.png: what is written there is a .html"),
        (["--check", "x", "--picture", "x.png"], 2, "a check shows none"),
        (["--check", "x", "--watch", "x"], 2, "without each other"),
        (["--frame", "-1", "--png", "/nowhere/x.png"], 2, "--frame"),
        (["--check", "x", "--png", "x.png"], 2, "go without"),
        (["--png", "/nowhere/page.png"], 3, "/nowhere/page.png"),
        (["--animation", "/nowhere/page.webp"], 3, "/nowhere/page.webp"),
        (["--bootlume", "/nowhere/bootlume"], 3, "cannot find bootlume"),
        (["--virtual-device", "/nowhere/x.so"], 3, "cannot find libvirtual-device.so"),
        ([], 3, "can be shown nowhere"),
    ],
)
def test_what_cannot_be_done_is_said(preview, arguments, status, reason):
    done = preview(*arguments)
    assert done.returncode == status
    assert reason in done.stderr


def test_a_splash_that_ends_by_itself_is_reported_with_what_it_wrote(preview, tmp_path):
    script = tmp_path / "bootlume"
    script.write_text("#!/bin/sh\necho something is wrong\nexit 255\n")
    script.chmod(0o755)
    done = preview("--bootlume", script, "--png", tmp_path / "page.png")
    assert done.returncode == 3
    assert "something is wrong" in done.stderr


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGKILL, signal.SIGSEGV])
def test_a_signal_ends_all_of_it(scratch, tmp_path, number):
    """The folder and the processes are looked for when the test is over, as after every test."""
    slow = tmp_path / "bootlume"  # a frame a second: the animation is not finished before the signal
    slow.write_text(f'#!/bin/sh\nVIRTUAL_DEVICE_REFRESH=1 exec "{PREVIEW.parent}/bootlume" "$@"\n')
    slow.chmod(0o755)
    running = subprocess.Popen(
        [PREVIEW, "--bootlume", slow, "--animation", tmp_path / "page.webp", *TEXTS],
        env=environment(scratch),
        stderr=subprocess.DEVNULL,
    )
    wait_until(lambda: list(scratch.glob("*/tmp/.bootlume")), "the splash")
    assert len(processes_with(str(scratch))) >= 3
    running.send_signal(number)
    assert running.wait(SECONDS) == -number
    wait_until(lambda: not processes_with(str(scratch)), "the end of all processes")


def test_a_splash_that_hangs_is_ended_by_force(preview, tmp_path):
    script = tmp_path / "bootlume"
    script.write_text('#!/bin/sh\necho $$ >"$1"\nexec sleep 1000\n')
    script.chmod(0o755)
    note = tmp_path / "pid"
    running = subprocess.Popen(
        [PREVIEW, "--bootlume", script, "--png", tmp_path / "x.png", note, "x"],
        env=dict(os.environ, TMPDIR=str(tmp_path)),
    )
    wait_until(lambda: note.exists() and note.read_text().strip(), "the script")
    running.send_signal(signal.SIGTERM)
    assert running.wait(SECONDS) == -signal.SIGTERM
    assert not os.path.exists(f"/proc/{note.read_text().strip()}")
    assert not list(tmp_path.glob("bootlume-preview-*"))


def test_an_orderly_end_is_asked_for(scratch, tmp_path):
    """The splash goes through its own teardown: its end is not a signal's."""
    note = tmp_path / "status"
    script = tmp_path / "bootlume"
    script.write_text(f'#!/bin/sh\n"{PREVIEW.parent}/bootlume" "$@"\necho $? >"{note}"\n')
    script.chmod(0o755)
    done = subprocess.run(
        [PREVIEW, "--bootlume", script, "--png", tmp_path / "x.png"],
        env=environment(scratch),
        timeout=SECONDS,
        check=False,
    )
    assert done.returncode == 0
    wait_until(note.exists, "the end of the splash")
    wait_until(lambda: note.read_text() == "0\n", "status 0")


def test_a_picture_goes_to_standard_output(scratch):
    done = subprocess.run(
        [PREVIEW, "--png", "-", *TEXTS], capture_output=True, timeout=SECONDS, check=True, env=environment(scratch)
    )
    with Image.open(io.BytesIO(done.stdout)) as image:
        assert numpy.array_equal(numpy.asarray(image.convert("RGB")), rgb(drawn(TEXTS)[0]))


def test_a_picture_that_cannot_be_written_loses_nothing_else(preview, tmp_path):
    old = tmp_path / "page.png"
    old.write_text("an older picture")
    (tmp_path / "page.png.new").mkdir()
    animation = tmp_path / "page.webp"
    done = preview("--png", old, "--animation", animation, *TEXTS)
    assert (done.returncode, done.stderr) == (3, f"bootlume-preview: {old}: Is a directory\n")
    assert old.read_text() == "an older picture"
    with Image.open(animation) as image:
        assert image.n_frames == TURN


def test_a_sheet_that_cannot_be_written_does_not_lose_the_report(preview, tmp_path):
    catalogue = tmp_path / "catalogue.tsv"
    catalogue.write_text("en\tTitle\tline\n")
    done = preview("--check", catalogue, "--sheet", "/nowhere/sheet.png")
    assert done.returncode == 3
    assert done.stdout.endswith("1 page: good\n")
    assert done.stderr == "bootlume-preview: /nowhere/sheet.png: No such file or directory\n"


def test_a_program_that_cannot_be_executed_is_named_with_the_reason(preview, tmp_path):
    script = tmp_path / "bootlume"
    script.write_text("no program")
    script.chmod(0o755)
    done = preview("--bootlume", script, "--png", tmp_path / "page.png")
    assert done.returncode == 3
    assert f"{script}: Exec format error" in done.stderr
