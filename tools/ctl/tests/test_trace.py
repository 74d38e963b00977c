"""bootlumectl trace: the configuration is edited where it lies, and the splash follows."""

import os
import shutil
import subprocess
import threading

import pytest

from desk import BUILD, TRACE_CONFIG

OTHERS = "# levels\nOther 4 0 1\n\nbootlume-helper 3 80002 0\n"


def config(desk):
    return desk.path(TRACE_CONFIG)


@pytest.mark.parametrize(
    "before,arguments,after",
    [
        ("", ["5"], "bootlume 5 0 0\n"),
        ("", ["debug", "--mask", "DISPATCHER"], "bootlume 5 0x80002 0\n"),
        ("", ["VERBOSE", "--mask", "80002,0x80004"], "bootlume 6 0x80002,0x80004 0\n"),
        ("", ["6", "--mask", "dispatcher", "--mask", "tracing"], "bootlume 6 0x80002,0x80004 0\n"),
        ("", ["1", "--mask", "ALL", "--syslog"], "bootlume 1 0xffffffff 1\n"),
        (OTHERS, ["info"], OTHERS + "bootlume 4 0 0\n"),
        (OTHERS + "last 1 0 0", ["info"], OTHERS + "last 1 0 0\nbootlume 4 0 0\n"),
        ("bootlume 6 80002 1\n" + OTHERS, ["4"], "bootlume 4 80002 1\n" + OTHERS),
        ("BootLume\t6\tffffffff\t1\n", ["4", "--stdout"], "bootlume 4 ffffffff 0\n"),
        ("a 1 0 0\nbootlume 6 80002,80004 0\nb 1 0 0\n", ["4", "--mask", "NONE"], "a 1 0 0\nbootlume 4 0 0\nb 1 0 0\n"),
        # What is no entry stays; an entry with a typo is mended; a second entry is nobody's business.
        ("bootlume 5\n", ["5"], "bootlume 5\nbootlume 5 0 0\n"),
        (" bootlume 5 0 0\n", ["5"], " bootlume 5 0 0\nbootlume 5 0 0\n"),
        ("bootlume 5 nonsense 0\n", ["5"], "bootlume 5 0 0\n"),
        ("bootlume  5 0 0\n", ["5"], "bootlume 5 5 0\n"),
        ("bootlume 5 0 0 and more\r\nx", ["6"], "bootlume 6 0 0\nx"),
        ("bootlume 1 0 0\nbootlume 2 0 0\n", ["3"], "bootlume 3 0 0\nbootlume 2 0 0\n"),
        ("\xff\xfe broken\n", ["5"], "\xff\xfe broken\nbootlume 5 0 0\n"),
    ],
)
def test_only_the_splash_s_entry_changes(desk, ctl, before, arguments, after):
    desk.write(TRACE_CONFIG, before.encode("latin-1"))
    done = ctl("trace", *arguments)
    assert done.returncode == 0, done.stderr
    assert config(desk).read_bytes() == after.encode("latin-1")
    assert done.stdout.rstrip("\n") in after.splitlines()
    assert done.stdout.startswith("bootlume ")


@pytest.mark.parametrize(
    "arguments,reason",
    [
        (["0"], "the file cannot set level 0; the lowest is 1, FATAL"),
        (["ALL"], "the file cannot set level 0"),
        (["7"], "'7' is no level"),
        (["loud"], "'loud' is no level"),
        (["5", "--mask", "100000000"], "'100000000' is no mask"),
        (["5", "--mask", "80002,,4"], "'' is no mask"),
        (["5", "--mask", "-1"], "'-1' is no mask"),
        (["5", "--syslog", "--stdout"], "excludes"),
        ([], "LEVEL"),
    ],
)
def test_a_wish_that_makes_no_sense_leaves_the_file_alone(desk, ctl, arguments, reason):
    desk.trace_config("bootlume 4 0 0")
    done = ctl("trace", *arguments)
    assert done.returncode == 2
    assert reason in done.stderr
    assert config(desk).read_text() == "bootlume 4 0 0\n"


def test_a_running_splash_follows_at_once(desk, ctl):
    desk.trace_config("bootlume 4 0 0")
    splash = desk.start()
    splash.screen.wait_for_frame()
    # The thread that watches is there once the first frame is; the watch itself may come later.
    splash.wait_for_record("inotify_add_watch")
    inode = config(desk).stat().st_ino
    assert ctl("trace", "VERBOSE", "--mask", "ALL").returncode == 0
    splash.wait_for_trace("Drawing time used")
    assert config(desk).stat().st_ino == inode
    assert ctl("quit").returncode == 0


@pytest.mark.parametrize("content", [b"bootlume 5 \0 0\n" * 3, b"x 1 0 0\n" * 200_000], ids=["zero bytes", "1.6 MB"])
def test_what_is_no_trace_configuration_is_left_as_it_is(desk, ctl, content):
    desk.write(TRACE_CONFIG, content)
    done = ctl("trace", "5")
    assert done.returncode == 1
    assert "it is left as it is" in done.stderr
    assert config(desk).read_bytes() == content


@pytest.mark.parametrize("make", [os.mkdir, os.mkfifo])
def test_what_is_no_file_is_not_written(desk, ctl, make):
    make(config(desk))
    done = ctl("trace", "5")
    assert done.returncode == 1
    assert str(config(desk)) in done.stderr


def test_a_missing_file_is_made_and_the_catch_is_named(desk, ctl):
    done = ctl("trace", "5")
    assert done.returncode == 0
    assert config(desk).read_text() == "bootlume 5 0 0\n"
    assert "next start" in done.stderr


def test_a_missing_folder_is_an_error(desk, ctl):
    shutil.rmtree(config(desk).parent)
    done = ctl("trace", "5")
    assert done.returncode == 1
    assert "No such file or directory" in done.stderr


def test_a_link_is_followed_and_stays_a_link(desk, ctl):
    target = desk.root / "elsewhere"
    target.write_text("bootlume 4 0 0\n")
    config(desk).symlink_to(target)
    assert ctl("trace", "5").returncode == 0
    assert config(desk).is_symlink()
    assert target.read_text() == "bootlume 5 0 0\n"


def test_a_full_disk_leaves_the_entries_as_they_were(desk):
    before = "bootlume 4 0 0\nother 1 0 0\n"
    desk.write(TRACE_CONFIG, before)
    done = subprocess.run(
        [
            "bash",
            "-c",
            'ulimit -f 0; trap "" XFSZ; exec "$@"',
            "-",
            BUILD / "bin/bootlumectl",
            "--root",
            desk.root,
            "trace",
            "5",
            "--mask",
            "80002,80004",
        ],
        capture_output=True,
        text=True,
        check=False,
    )
    assert done.returncode == 1
    assert "File too large" in done.stderr
    assert config(desk).read_text() == before


def test_a_file_that_gets_shorter_never_ends_in_a_piece_of_an_old_line(desk):
    """Caught in the moment between the write and the cut: what is left over is empty lines."""
    before = "bootlume 6 0x80002,0x80004 0\nother 1 0 0\nxbootlume 6 0 1\n"
    desk.write(TRACE_CONFIG, before)
    done = subprocess.run(
        [
            "strace",
            "-qq",
            "-o",
            desk.root / "strace",
            "-e",
            "inject=ftruncate:error=EIO",
            BUILD / "bin/bootlumectl",
            "--root",
            desk.root,
            "trace",
            "5",
            "--mask",
            "NONE",
        ],
        capture_output=True,
        text=True,
        check=False,
    )
    assert done.returncode == 1
    after = "bootlume 5 0 0\nother 1 0 0\nxbootlume 6 0 1\n"
    assert config(desk).read_text() == after.ljust(len(before), "\n")


def test_no_moment_shows_half_an_entry(desk, ctl):
    """A reader that reads the whole file over and over sees only whole files."""
    others = "a 1 0 0\n" * 50 + "xbootlume 6 0 1\n"
    desk.write(TRACE_CONFIG, "bootlume 4 0 0\n" + others)
    allowed = {
        b"a 1 0 0",
        b"xbootlume 6 0 1",
        b"",
        b"bootlume 4 0 0",
        b"bootlume 5 0 0",
        b"bootlume 6 0x80002,0x80004,0xffffffff 0",
    }
    strange, done = set(), threading.Event()

    def read():
        while not done.is_set():
            strange.update(set(config(desk).read_bytes().split(b"\n")) - allowed)

    reader = threading.Thread(target=read)
    reader.start()
    for _ in range(40):
        assert ctl("trace", "6", "--mask", "DISPATCHER,TRACING,ALL").returncode == 0
        assert ctl("trace", "5", "--mask", "NONE").returncode == 0
    done.set()
    reader.join()
    assert not strange
    assert config(desk).read_text() == "bootlume 5 0 0\n" + others
