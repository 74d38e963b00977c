"""The trace configuration of the whole program: the file at its place, followed while it runs."""

import os
import re
import socket
import subprocess

import pytest

from desk import LOOP, SOCKET, SOURCE, TRACE_CONFIG, Desk, is_dispatching, listens, wait_until, wait_until_running
from desk.lines import (
    ALL_LINES,
    DISPATCHER,
    ENDING,
    OWN_LINES,
    SERVER,
    TRACE_FILE,
    TRACE_WATCHER,
    WATCHER,
    lines_of,
    traced,
)

LOG_LOCAL1 = 17 << 3
CHANGES = 10


def library(text, thread, file=TRACE_FILE):
    return traced("VERBOSE", text, file, thread, "TRACING")


def entry_lines(thread, level, masks, to_syslog=0):
    """What is said of an entry while it is read."""
    return [
        library(text, thread)
        for text in (
            "found entry, appName = bootlume",
            f"set level, level = {level}",
            f"set mask, masks = {masks}",
            f"set syslog, toSyslog = {to_syslog}",
        )
    ]


SOME_CHANGES = library("some changes", WATCHER)


def wait_for_watch(splash):
    """Until then a change would go unseen."""
    splash.wait_for_record("inotify_add_watch")


def levels(splash):
    return {line.level for line in splash.trace()}


def test_without_a_file_only_important_lines_are_written(desk):
    splash = wait_until_running(desk.start())
    splash.screen.wait_for_frame(2)
    splash.send("refused")
    assert splash.quit() == 0
    assert lines_of(splash) == [traced("WARN", "Wrong message format, tmp.size() = 1", ENDING, SERVER)]


@pytest.mark.parametrize(
    "line, seen",
    [
        ("bootlume 1 0 0", set()),
        ("bootlume 0 0 0", set()),
        ("bootlume 2 0 0", set()),
        ("bootlume 3 0 0", {"WARN"}),
        ("BOOTLUME 5 0 0", {"WARN", "DEBUG"}),
        ("bootlume 99 0 0", {"WARN", "DEBUG", "VERBOSE"}),
        ("bootlume\t6\t0\t0", {"WARN", "DEBUG", "VERBOSE"}),
        ("bootlume  6 0 0", set()),
        (" bootlume 6 0 0", {"WARN"}),
        ("bootlume 6 0", {"WARN"}),
        ("other 6 0 0", {"WARN"}),
        ("bootlume five 0 0", set()),
    ],
    ids=lambda given: repr(given) if isinstance(given, str) else " ".join(sorted(given)),
)
def test_the_level_of_the_entry_is_in_force_from_the_start(desk, line, seen):
    if line == "bootlume  6 0 0":
        line = "bootlume  6 0 0 0"  # the doubled blank shifts the tokens: no level, and no syslog
    desk.trace_config(line)
    splash = wait_until_running(desk.start())
    splash.screen.wait_for_frame(2)
    splash.send("refused")
    splash.send("QUIT")
    assert splash.wait() == 0
    assert levels(splash) == seen


@pytest.mark.parametrize(
    "mask, seen",
    [
        ("80002", {DISPATCHER}),
        ("0x80002", {DISPATCHER}),
        ("80004", {TRACE_FILE, TRACE_WATCHER}),
        ("FFFFFFFF", {DISPATCHER, TRACE_FILE, TRACE_WATCHER}),
        ("2", set()),
        ("80000", set()),
        ("80002,,4", {DISPATCHER}),
        ("1,80002", {DISPATCHER}),
        ("10002", set()),
    ],
)
def test_the_masks_select_the_librarys_lines(desk, mask, seen):
    desk.trace_config(f"bootlume 6 {mask} 0")
    splash = wait_until_running(desk.start())
    wait_for_watch(splash)
    desk.trace_config(f"bootlume 6 {mask} 0", "another line")
    splash.wait_for_trace("Polling")
    if TRACE_FILE in seen:
        splash.wait_for_trace("some changes")
    assert splash.quit() == 0
    assert {line.file for line in splash.trace() if line.tag} <= {DISPATCHER, TRACE_FILE, TRACE_WATCHER}
    tagged = {line.file for line in splash.trace() if line.tag}
    assert tagged == seen


def test_changes_are_followed_while_the_splash_runs(desk):
    """The lines of the frames, 33 in a second, show when a level comes into force."""
    desk.trace_config("bootlume 4 0 0")  # a file that is made later would not be watched
    splash = wait_until_running(desk.start())
    wait_for_watch(splash)
    for _ in range(CHANGES):
        before = len(splash.stdout)
        desk.trace_config("bootlume 6 0 0")
        wait_until(lambda: len(splash.stdout) > before, "a line")
        desk.trace_config("bootlume 4 0 0")
        # Silent again: two frames without a line.
        wait_until(lambda: two_silent_frames(splash), "silence")
    assert splash.quit() == 0


def two_silent_frames(splash):
    size = len(splash.stdout)
    splash.screen.wait_for_more(2)
    return len(splash.stdout) == size


def test_each_step_of_reading_is_traced(desk):
    desk.trace_config(ALL_LINES)
    splash = wait_until_running(desk.start())
    splash.wait_for_trace("start trace config thread")
    wait_for_watch(splash)
    # In place and without a moment of emptiness: one write is one change.
    with open(desk.path(TRACE_CONFIG), "r+b") as file:
        file.write(b"bootlume 6 80004,80002 0 \n")
    wait_until(lambda: len(splash.trace("some changes")) == 1, "the change")
    wait_until(lambda: len(splash.trace("set syslog")) == 1, "its entry")
    assert splash.quit() == 0
    assert lines_of(splash, TRACE_FILE, TRACE_WATCHER) == [
        library("start trace config thread", WATCHER, TRACE_WATCHER),
        SOME_CHANGES,
        *entry_lines(WATCHER, 6, "524292,524290"),
    ]


def test_a_line_with_a_typo_is_reported_and_the_next_one_examined(desk):
    desk.trace_config("bootlume 6 mask 0", "bootlume 99999999999 0 0", OWN_LINES)
    splash = wait_until_running(desk.start())
    assert splash.quit() == 0
    reading = [line for line in lines_of(splash, TRACE_FILE) if "ERROR" in line]
    assert reading == [
        traced("ERROR", f"no entry in {TRACE_CONFIG}: bootlume 6 mask 0: stoul", TRACE_FILE, SERVER),
        traced("ERROR", f"no entry in {TRACE_CONFIG}: bootlume 99999999999 0 0: stoi", TRACE_FILE, SERVER),
    ]
    assert "DEBUG" in levels(splash)


def test_a_typo_while_running_leaves_the_configuration_as_it_was(desk):
    desk.trace_config(OWN_LINES)
    splash = wait_until_running(desk.start())
    wait_for_watch(splash)
    with open(desk.path(TRACE_CONFIG), "r+b") as file:
        file.write(b"bootlume 6 x 0\n")
    splash.wait_for_trace(f"no entry in {TRACE_CONFIG}: bootlume 6 x 0: stoul")
    splash.send("refused")
    assert splash.quit() == 0
    assert "VERBOSE" not in levels(splash)
    assert splash.trace("End splash-screen over socket command.")


def overwrite(path, data):
    """In one write, which is one change."""
    with open(path, "r+b", buffering=0) as file:
        assert file.write(data) == len(data)


@pytest.mark.parametrize(
    "spoil",
    [lambda path: os.truncate(path, 0), lambda path: overwrite(path, bytes(range(256)) * 1000)],
    ids=["emptied", "binary"],
)
def test_a_file_that_is_spoilt_leaves_the_configuration_as_it_was(desk, spoil):
    desk.trace_config("bootlume 6 80004 0")
    splash = wait_until_running(desk.start())
    wait_for_watch(splash)
    for changes in (1, 2):  # when the second is seen, the first has been read
        spoil(desk.path(TRACE_CONFIG))
        wait_until(lambda: len(splash.trace("some changes")) == changes, "the change to be seen")
    assert splash.quit() == 0
    assert splash.trace("End splash-screen over socket command.")
    assert lines_of(splash, TRACE_FILE) == [SOME_CHANGES] * 2
    assert splash.stderr == ""


@pytest.mark.parametrize(
    "spoilt",
    [b"", b"\0" * 4096, b"\n" * 100_000, b"x" * 1_000_000, b"bootlume 6 0", None],
    ids=["empty", "zeros", "empty lines", "a long line", "cut off", "folder"],
)
def test_a_file_without_an_entry_starts_the_splash_as_usual(desk, spoilt):
    if spoilt is None:
        desk.path(TRACE_CONFIG).mkdir()
    else:
        desk.write(TRACE_CONFIG, spoilt)
    splash = wait_until_running(desk.start())
    splash.send("refused")
    assert splash.quit() == 0
    assert levels(splash) == {"WARN"} and splash.stderr == ""


def test_the_loops_lines_carry_their_subsystem(desk):
    desk.trace_config("bootlume 6 80002 0")
    splash = wait_until_running(desk.start())
    assert splash.quit() == 0
    lines = lines_of(splash, DISPATCHER)

    def loop_line(text, thread):
        return traced("VERBOSE", text, DISPATCHER, thread, "DISPATCHER")

    assert lines == [
        loop_line(text, SERVER)
        for text in ("create dispatcher", "post message", "entering dispatcher loop", "got message")
    ] + [loop_line(text, LOOP) for text in ("exiting dispatcher loop", "destroy dispatcher")]


# In a mount space of its own the program finds the test's socket in the place of the system's.
WITH_LOG = [
    "unshare",
    "--mount",
    "--map-root-user",
    "/bin/sh",
    "-ec",
    """
    for node in null zero random urandom; do
        : > "$0/$node"
        mount --bind "/dev/$node" "$0/$node"
    done
    mount --rbind "$0" /dev
    exec "$@"
""",
]


@pytest.fixture
def system_log(products, run_prefix):
    """(desk, socket): what runs on the desk sends its log lines to the socket."""
    if (
        subprocess.run(["unshare", "--mount", "--map-root-user", "true"], check=False, capture_output=True).returncode
        != 0
    ):
        pytest.skip("needs a mount space of its own")
    with Desk(**products) as desk, socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as log:
        folder = desk.root / "dev"
        folder.mkdir()
        log.bind(str(folder / "log"))
        log.settimeout(10)
        desk.run_prefix = [*WITH_LOG, str(folder), *run_prefix]
        yield desk, log


def test_the_system_log(system_log):
    desk, log = system_log
    desk.trace_config("bootlume 5 0 1")
    splash = desk.start()
    wait_until(lambda: is_dispatching(splash) and listens(desk.path(SOCKET)), "the splash to run")
    splash.send("refused")
    assert splash.quit() == 0
    entries = []
    while not entries or "End splash-screen" not in entries[-1]:
        entries.append(log.recv(4096).decode().rstrip("\0\n"))
    assert splash.stdout == "", "nothing goes to standard output then"
    parsed = [re.fullmatch(r"<(\d+)>(.{15}) bootlume\[(\d+)\]: (.*)", entry) for entry in entries]
    assert all(parsed), entries
    assert {int(found[3]) for found in parsed} == {splash.pid}
    texts = {re.sub(r":\d+:", ":N:", found[4]): int(found[1]) for found in parsed}
    assert (
        texts["WARN|bootlume/src/server/ending.cpp:N:bootlume|  " "Wrong message format, tmp.size() = 1"]
        == LOG_LOCAL1 | 4
    )
    assert (
        texts["DEBUG|bootlume/src/server/ending.cpp:N:bootlume|  " "End splash-screen over socket command."]
        == LOG_LOCAL1 | 7
    )
    assert (
        texts[
            "DEBUG|bootlume/src/server/main.cpp:N:bootlume|  using parameter: "
            "REBOOT_COMMAND with , value = /sbin/reboot"
        ]
        == LOG_LOCAL1 | 7
    )


def test_the_lines_in_the_manual_name_the_place_that_writes_them():
    manual = (SOURCE / "packaging/man/trace_config.5.scd").read_text()
    places = re.findall(r"startup check.*?(\S+\.cpp):(\d+)|(\S+\.cpp):(\d+).*?startup check", manual)
    assert len(places) == 2
    for place in places:
        file, number = filter(None, place)
        assert "startup check" in (SOURCE / file.split("|")[-1]).read_text().splitlines()[int(number) - 1]
