"""One test for each way in which the program meets the rest of the device."""

import re
import signal
import socket
import stat
import subprocess
from pathlib import Path

import pytest

from desk import (
    DEVICE,
    HEIGHT,
    LANGUAGE,
    LOOP,
    SHELL,
    SOCKET,
    TRACE_CONFIG,
    WIDTH,
    Desk,
    is_dispatching,
    listens,
    send_datagram,
    wait_until,
    wait_until_running,
)
from desk.lines import ALL_LINES, MAIN_FILE, OWN_LINES, WATCHER, lines_of, still_page, traced

LOG_LOCAL1 = 17 << 3


def test_the_command_line_and_the_exit_status(desk):
    good = wait_until_running(desk.start("Title", "first\nsecond"))
    assert good.quit() == 0
    assert desk.run("Title").process.returncode == 255
    assert desk.run("-c", "Title").process.returncode == 255
    assert desk.run("Title", "Text", faults="VIDIOC_S_FMT@1=EINVAL").process.returncode == 255


def test_the_environment_variables(desk):
    desk.trace_config(OWN_LINES)
    splash = wait_until_running(
        desk.start(
            "-c",
            env={
                "VRX_REBOOT_COMMAND": "/one",
                "REBOOT_COMMAND": "/two",
                "SPLASH_TIMEOUT": "3001",
                "SPLASH_TIMEOUT_HARD": "3002",
            },
        )
    )
    assert splash.quit() == 0
    assert lines_of(splash, MAIN_FILE)[1:] == [
        traced("DEBUG", f"using parameter: {name} with , value = {value}", MAIN_FILE, "bootlume")
        for name, value in (
            ("VRX_REBOOT_COMMAND", "/one"),
            ("REBOOT_COMMAND", "/two"),
            ("SPLASH_TIMEOUT", 3001),
            ("SPLASH_TIMEOUT_HARD", 3002),
        )
    ]


def test_the_command_socket(desk):
    splash = wait_until_running(desk.start("A", "B"))
    path = desk.path(SOCKET)
    bound = splash.wait_for_record("bind")
    assert bound["path"] == SOCKET and stat.S_ISSOCK(path.stat().st_mode) and listens(path)
    before = still_page(splash)
    send_datagram(path, "New title;new line")
    splash.screen.wait_for_picture(lambda frame: frame.pixels[: len(before)] != before)
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as stream:
        with pytest.raises(OSError):
            stream.connect(str(path))
    send_datagram(path, "QUIT")
    assert splash.wait() == 0
    assert not listens(path)


@pytest.mark.parametrize("number", [signal.SIGHUP, signal.SIGINT])
def test_the_signals(desk, number):
    splash = wait_until_running(desk.start())
    splash.signal(number)
    assert splash.wait() == 0
    assert not splash.screen.streaming


def test_the_overlay_device(desk):
    splash = wait_until_running(desk.start())
    frame = splash.screen.wait_for_frame()
    assert (frame.width, frame.height) == (WIDTH, HEIGHT) == (480, 800)
    assert splash.quit() == 0
    calls = splash.records(kind="device")
    assert calls[0]["call"] == "open" and calls[0]["path"] == DEVICE
    assert [record["call"] for record in calls].count("open") == 1


def test_the_language_setting(desk):
    """Another script draws the same text in another font, and the setting may change at any time."""
    splash = wait_until_running(desk.start("Title", "line"))
    latin = still_page(splash)
    desk.language("zh")
    splash.screen.wait_for_picture(lambda frame: frame.pixels[: len(latin)] != latin, "Chinese")
    desk.language("de")
    splash.screen.wait_for_picture(lambda frame: frame.pixels[: len(latin)] == latin, "German")
    assert splash.quit() == 0
    assert any(record.get("path") == LANGUAGE for record in splash.records(kind="path"))


def test_the_reboot_programs(desk):
    for program in ("/sbin/vrx_reboot", "/sbin/reboot"):
        desk.write(program, f'{SHELL}echo "$0" "$#" >> \'{desk.root}/ran\'\nexit 1\n', 0o755)
    splash = desk.start(
        "-c",
        env={"VRX_REBOOT_COMMAND": None, "REBOOT_COMMAND": None, "SPLASH_TIMEOUT": "0", "SPLASH_TIMEOUT_HARD": "7777"},
    )
    splash.wait_for_trace("reboot started with result: , result = 1")
    assert wait_until_running(splash).quit() == 0
    ran = [record["path"] for record in splash.records(call="execve") if record["path"].startswith("/sbin/")]
    assert ran == ["/sbin/vrx_reboot", "/sbin/reboot"]
    assert (desk.root / "ran").read_text().splitlines() == [f"{desk.path(program)} 0" for program in ran]


def test_the_trace_configuration_file(desk):
    desk.trace_config(ALL_LINES)
    splash = wait_until_running(desk.start())
    splash.screen.wait_for_frame()
    watch = splash.wait_for_record("inotify_add_watch")
    assert watch["path"] == TRACE_CONFIG
    assert splash.quit() == 0
    assert {"DEBUG", "VERBOSE"} <= {line.level for line in splash.trace()}


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


def test_the_main_thread_bears_the_loops_name(desk):
    splash = wait_until_running(desk.start())
    assert Path(f"/proc/{splash.pid}/comm").read_text().strip() == LOOP

    def names():
        return {(task / "comm").read_text().strip() for task in Path(f"/proc/{splash.pid}/task").iterdir()}

    wait_until(lambda: {LOOP, WATCHER} <= names(), "the threads to be named")
    assert splash.quit() == 0
