"""bootlumectl trace: the configuration is edited where it lies, and the splash follows."""

import fcntl
import os
import shutil
import signal
import subprocess
import time
from pathlib import Path

import pytest

from ctl_desk import SECONDS, injecting
from desk import BUILD, TRACE_CONFIG, read_line, wait_until

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
    assert splash.quit() == 0


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
    assert done.stderr == f"bootlumectl: {config(desk)}: its folder is not there; make it first, with mkdir -p\n"


@pytest.mark.parametrize("there", [True, False])
def test_a_link_is_not_followed(desk, ctl, there):
    """Whoever owns the folder could lead root to any file by it."""
    target = desk.root / "elsewhere"
    if there:
        target.write_text("bootlume 4 0 0\n")
    config(desk).symlink_to(target)
    done = ctl("trace", "5")
    assert done.returncode == 1
    assert done.stderr == (
        f"bootlumectl: {config(desk)}: a link, which is not followed; name the file " "itself with --trace-config\n"
    )
    assert target.exists() == there
    if there:
        assert target.read_text() == "bootlume 4 0 0\n"


def test_a_second_name_of_another_file_is_left_alone(desk, ctl):
    other = desk.root / "elsewhere"
    other.write_text("secret\n")
    os.link(other, config(desk))
    done = ctl("trace", "5")
    assert done.returncode == 1
    assert "has another name elsewhere" in done.stderr
    assert other.read_text() == "secret\n"


def test_a_lock_that_somebody_keeps_is_waited_for_and_its_holder_named(desk, ctl):
    desk.trace_config("bootlume 4 0 0")
    with config(desk).open() as reader:
        fcntl.flock(reader, fcntl.LOCK_SH)
        begin = time.monotonic()
        done = ctl("trace", "5")
        assert time.monotonic() - begin >= 5
    assert done.returncode == 1
    name = Path("/proc/self/comm").read_text().strip()
    assert done.stderr == (
        f"bootlumectl: {config(desk)}: another program keeps it locked: process "
        f"{os.getpid()} ({name}); end it and try again\n"
    )
    assert config(desk).read_text() == "bootlume 4 0 0\n"


def test_a_lock_that_is_let_go_in_time_costs_nothing(desk, ctl):
    desk.trace_config("bootlume 4 0 0")
    with config(desk).open() as reader:
        fcntl.flock(reader, fcntl.LOCK_SH)
        client = subprocess.Popen([BUILD / "bin/bootlumectl", "--root", desk.root, "trace", "5"])
        wait_until(lambda: is_open_in(client.pid, config(desk)), "the client to open the file")
        fcntl.flock(reader, fcntl.LOCK_UN)
        assert client.wait(SECONDS) == 0
    assert config(desk).read_text() == "bootlume 5 0 0\n"


def is_open_in(pid, path):
    return any(os.path.realpath(link) == str(path) for link in Path(f"/proc/{pid}/fd").iterdir())


@pytest.fixture
def for_a_while(desk):
    """Starts bootlumectl trace with a time; the process, once it waits."""
    started = []

    def start(*arguments):
        client = subprocess.Popen(
            [BUILD / "bin/bootlumectl", "--root", desk.root, "trace", *arguments],
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            text=True,
        )
        started.append(client)
        client.said = read_line(client.stdout)
        return client

    yield start
    for client in started:
        client.kill()
        client.communicate()


@pytest.mark.parametrize(
    "before,after",
    [
        ("a 1 0 0\nbootlume 3 80002 1\nb 1 0 0\n", None),
        ("a 1 0 0\n", "a 1 0 0\nbootlume 4 0 0\n"),  # to take it out again would change nothing
    ],
)
def test_a_level_for_a_while_is_put_back(desk, ctl, before, after):
    desk.write(TRACE_CONFIG, before)
    begin = time.monotonic()
    done = ctl("trace", "VERBOSE", "--mask", "ALL", "--for", "0.3s")
    assert time.monotonic() - begin >= 0.3
    assert (done.returncode, done.stderr) == (0, "")
    assert config(desk).read_text() == (after or before)
    kept = "bootlume 3 80002 1" if after is None else "bootlume 4 0 0"
    masks = "0xffffffff " + kept[-1]
    assert done.stdout == f"bootlume 6 {masks}\n{kept}\n"


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT])
def test_a_level_for_a_while_is_put_back_when_it_is_interrupted(desk, for_a_while, number):
    desk.trace_config("bootlume 3 0 0")
    client = for_a_while("VERBOSE", "--for", "1h")
    assert client.said == "bootlume 6 0 0\n" == config(desk).read_text()
    client.send_signal(number)
    assert client.wait(SECONDS) == -number
    assert config(desk).read_text() == "bootlume 3 0 0\n"


def test_a_level_for_a_while_is_put_back_when_nobody_reads_the_output(desk, for_a_while):
    desk.trace_config("bootlume 3 0 0")
    client = for_a_while("VERBOSE", "--for", "0.3")
    client.stdout.close()
    assert client.wait(SECONDS) == 0
    assert config(desk).read_text() == "bootlume 3 0 0\n"


def test_what_somebody_else_has_set_meanwhile_stays(desk, ctl, for_a_while):
    desk.trace_config("bootlume 3 0 0")
    client = for_a_while("VERBOSE", "--for", "1h")
    assert ctl("trace", "DEBUG").returncode == 0
    client.send_signal(signal.SIGINT)
    assert client.wait(SECONDS) == -signal.SIGINT
    assert client.stderr.read() == "bootlumectl: the entry has been changed since, and is left as it is\n"
    assert config(desk).read_text() == "bootlume 5 0 0\n"


def test_a_level_for_a_while_needs_a_file_that_is_watched(desk, ctl):
    done = ctl("trace", "5", "--for", "1h")
    assert done.returncode == 1
    assert "is not there, so a splash that runs does not watch it" in done.stderr
    assert not config(desk).exists()


def test_a_splash_follows_there_and_back(desk, for_a_while):
    desk.trace_config("bootlume 4 0 0")
    splash = desk.start()
    splash.wait_for_record("inotify_add_watch")
    client = for_a_while("VERBOSE", "--for", "1h")
    splash.wait_for_trace("Drawing time used")
    client.send_signal(signal.SIGINT)
    client.wait(SECONDS)

    def quiet_again():
        lines = len(splash.trace("Drawing time used"))
        splash.screen.wait_for_more(3)
        return lines == len(splash.trace("Drawing time used"))

    wait_until(quiet_again, "the level to be back")
    assert splash.quit() == 0


def test_a_full_disk_leaves_the_entries_as_they_were(desk, ctl):
    before = "bootlume 4 0 0\nother 1 0 0\n"
    desk.write(TRACE_CONFIG, before)
    limit = ["bash", "-c", 'ulimit -f 0; trap "" XFSZ; exec "$@"', "-"]
    done = ctl("trace", "5", "--mask", "80002,80004", prefix=limit)
    assert done.returncode == 1
    assert "File too large" in done.stderr
    assert config(desk).read_text() == before


def test_a_file_that_gets_shorter_never_ends_in_a_piece_of_an_old_line(desk, ctl):
    """Caught in the moment between the write and the cut: what is left over is empty lines."""
    before = "bootlume 6 0x80002,0x80004 0\nother 1 0 0\nxbootlume 6 0 1\n"
    desk.write(TRACE_CONFIG, before)
    done = ctl("trace", "5", "--mask", "NONE", prefix=injecting(desk, "ftruncate:error=EIO"))
    assert done.returncode == 1
    after = "bootlume 5 0 0\nother 1 0 0\nxbootlume 6 0 1\n"
    assert config(desk).read_text() == after.ljust(len(before), "\n")


@pytest.mark.parametrize(
    "words, calls",
    [(["6", "--mask", "DISPATCHER,TRACING"], ["pwrite64"]), (["5", "--mask", "NONE"], ["pwrite64", "ftruncate"])],
    ids=["longer", "shorter"],
)
def test_a_change_is_one_write(desk, ctl, words, calls):
    """A second one would leave a moment in between that shows half an entry."""
    desk.write(TRACE_CONFIG, "bootlume 4 0x80002 0\n" + "a 1 0 0\n" * 50)
    log = desk.root / "strace"
    changes = "trace=write,pwrite64,writev,pwritev,ftruncate"
    assert ctl("trace", *words, prefix=["strace", "-qq", "-o", log, "-e", changes]).returncode == 0
    made = [line.split("(")[0] for line in log.read_text().splitlines() if not line.startswith("write(1,")]
    assert made == calls
