"""What a user without rights can do to a splash that root runs: docs/security.md says the same in words."""

import os
import re
import signal
import stat

import pytest

from desk import (
    LANGUAGE,
    SOCKET,
    SOURCE,
    TRACE_CONFIG,
    end_by_signal,
    sanitizer_runtimes,
    wait_until,
    wait_until_running,
)
from desk.lines import ENDING, OWN_LINES, lines_of

UNIT = SOURCE / "packaging/systemd/bootlume.service"
USUAL_MASK = 0o022

SEND = """
import socket, sys
sender = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
sender.sendto(sys.argv[2].encode(), sys.argv[1])
"""


def units_mask():
    """The mask under which the packaged unit has the socket made."""
    return int(re.search(r"^UMask=(\d+)$", UNIT.read_text(), re.MULTILINE)[1], 8)


@pytest.fixture
def open_desk(desk, unprivileged):
    """A desk as a device is: everybody may enter, /tmp is everybody's, and the rest is root's."""
    desk.root.chmod(0o755)
    desk.path(SOCKET).parent.chmod(0o1777)
    assert unprivileged.run("import os, sys; os.listdir(sys.argv[1])", desk.root).returncode == 0
    return desk


def start_masked(desk, mask, *arguments, **options):
    return wait_until_running(desk.start(*arguments, prepare=lambda: os.umask(mask), **options))


def still_serves(splash):
    """It is there, draws, and does what root says."""
    splash.screen.wait_for_more(3)
    splash.send("root's own")
    splash.wait_for_trace("Wrong message format")
    assert splash.quit() == 0


def refused(completed, error="PermissionError"):
    return completed.returncode != 0 and error in completed.stderr


# -- the socket --------------------------------------------------------------------------------


@pytest.mark.parametrize("mask", [units_mask(), USUAL_MASK], ids=["the unit's", "usual"])
@pytest.mark.parametrize("data", ["QUIT", "Title;Lines", "%n%n%s%s"])
def test_nobody_else_may_send_to_the_socket(open_desk, unprivileged, mask, data):
    """With the usual mask, too: to send one must be allowed to write."""
    open_desk.trace_config(OWN_LINES)
    splash = start_masked(open_desk, mask)
    assert refused(unprivileged.run(SEND, open_desk.path(SOCKET), data))
    assert splash.trace("Got Message") == []
    still_serves(splash)


def test_the_packaged_unit_makes_the_socket_roots_alone(open_desk):
    splash = start_masked(open_desk, units_mask())
    found = open_desk.path(SOCKET).stat()
    assert stat.S_IMODE(found.st_mode) & 0o077 == 0 and found.st_uid == 0
    assert splash.quit() == 0


def test_without_any_mask_everybody_may_send_and_end_it(open_desk, unprivileged):
    """What the mask is for."""
    splash = start_masked(open_desk, 0)
    assert unprivileged.run(SEND, open_desk.path(SOCKET), "QUIT").returncode == 0
    assert splash.wait() == 0


@pytest.mark.parametrize(
    "code",
    [
        "os.unlink(path)",
        "os.rename(path, path + '.old')",
        "os.rename('/dev/null', path)",
        "os.chmod(path, 0o777)",
        "os.rmdir(os.path.dirname(path))",
    ],
)
def test_the_sockets_file_is_nobody_elses_to_remove(open_desk, unprivileged, code):
    splash = start_masked(open_desk, units_mask())
    made = unprivileged.run(f"import os, sys; path = sys.argv[1]; {code}", open_desk.path(SOCKET))
    assert made.returncode != 0 and "Error" in made.stderr
    still_serves(splash)


@pytest.mark.parametrize(
    "code",
    [
        "open(path, 'w').write('mine')",
        "os.symlink('/etc/passwd', path)",
        "os.symlink('/nowhere', path)",
        "os.mkfifo(path)",
        "socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM).bind(path)",
    ],
    ids=["file", "link", "dangling link", "pipe", "socket"],
)
def test_what_somebody_put_in_the_sockets_place_is_replaced(open_desk, unprivileged, code):
    path = open_desk.path(SOCKET)
    before = os.stat("/etc/passwd")
    put = unprivileged.run(f"import os, socket, sys; path = sys.argv[1]; {code}", path)
    assert put.returncode == 0, put.stderr
    splash = start_masked(open_desk, units_mask())
    found = path.lstat()
    assert stat.S_ISSOCK(found.st_mode) and found.st_uid == 0
    after = os.stat("/etc/passwd")
    assert (after.st_mtime_ns, after.st_mode, after.st_ino) == (before.st_mtime_ns, before.st_mode, before.st_ino)
    still_serves(splash)


def test_a_folder_that_somebody_put_there_costs_the_commands(open_desk, unprivileged):
    """The one thing that can be done, before the splash starts: a signal still ends it."""
    assert unprivileged.run("import os, sys; os.mkdir(sys.argv[1])", open_desk.path(SOCKET)).returncode == 0
    splash = open_desk.start()
    splash.wait_for_stderr("bind error: ")
    splash.screen.wait_for_frame(3)
    assert end_by_signal(splash) == 0


# -- the process -------------------------------------------------------------------------------


@pytest.mark.parametrize(
    "code",
    [
        "os.kill(pid, 2)",
        "os.kill(pid, 9)",
        "open(f'/proc/{pid}/mem', 'rb')",
        "open(f'/proc/{pid}/environ', 'rb').read()",
        "os.listdir(f'/proc/{pid}/fd')",
        "open(f'/proc/{pid}/maps').read()",
        "os.sched_setaffinity(pid, {0})",
        "os.setpriority(os.PRIO_PROCESS, pid, 19)",
        "resource.prlimit(pid, resource.RLIMIT_NOFILE, (0, 0))",
    ],
)
def test_the_process_is_nobody_elses_to_end_or_to_read(open_desk, unprivileged, code):
    splash = start_masked(open_desk, units_mask())
    done = unprivileged.run(f"import os, resource, sys; pid = int(sys.argv[1]); {code}", splash.pid)
    assert refused(done), done.stderr
    still_serves(splash)


# -- the files ---------------------------------------------------------------------------------


IN_PLACE = {
    "nothing": "pass",
    "a pipe": "os.mkfifo(path)",
    "a folder": "os.mkdir(path)",
    "a loop of links": "os.symlink(path, path)",
    "an endless device": "os.symlink('/dev/zero', path)",
    "a terminal": "os.symlink('/dev/tty', path)",
    "bytes": "open(path, 'wb').write(bytes(range(256)) * 4096)",
    "one long line": "open(path, 'wb').write(b'bootlume 6 ' + b'f' * 4000000)",
    "numbers out of range": "open(path, 'w').write('bootlume 99999999999999999999 0 0\\n' * 50)",
    "formats": "open(path, 'w').write('bootlume 3 %n%n%s 1\\nbootlume 9999999999999 %n 1\\n')",
}


@pytest.mark.parametrize("code", IN_PLACE.values(), ids=IN_PLACE.keys())
@pytest.mark.parametrize("path", [TRACE_CONFIG, LANGUAGE])
def test_settings_that_somebody_else_owns_neither_stop_nor_end_the_splash(open_desk, unprivileged, path, code):
    """Where /opt/userdata belongs to a user: whatever he puts there before the start."""
    for folder, _, _ in os.walk(open_desk.path("/opt/userdata")):
        os.chown(folder, unprivileged.number, unprivileged.number)
    put = unprivileged.run(f"import os, sys; path = sys.argv[1]; {code}", open_desk.path(path))
    assert put.returncode == 0, put.stderr
    splash = start_masked(open_desk, units_mask(), "Title", "Lines")
    splash.screen.wait_for_frame(3)
    splash.send("refused")
    splash.screen.wait_for_more(3)
    assert splash.quit() == 0


def test_a_level_that_somebody_sets_shows_texts_but_takes_no_command(open_desk, unprivileged):
    """What the owner of the trace configuration can do: see what is sent, where the lines go."""
    open_desk.trace_config("bootlume 4 0 0")
    os.chown(open_desk.path(TRACE_CONFIG), unprivileged.number, unprivileged.number)
    splash = start_masked(open_desk, units_mask())
    splash.wait_for_record("inotify_add_watch")
    assert (
        unprivileged.run(
            "import sys; open(sys.argv[1], 'r+').write('bootlume 5 0 0')", open_desk.path(TRACE_CONFIG)
        ).returncode
        == 0
    )

    def shown():
        splash.send("A title;a line")
        return splash.trace("Got Message from socket, command = A title;a line")

    wait_until(shown, "the command at the new level")
    assert refused(unprivileged.run(SEND, open_desk.path(SOCKET), "QUIT"))
    assert splash.quit() == 0
    assert any("socket command" in line for line in lines_of(splash, ENDING))


@pytest.mark.parametrize("to_syslog, status", [(0, 0), (1, -signal.SIGABRT)], ids=["standard output", "syslog"])
def test_a_conversion_in_a_text_is_one_in_the_system_log_only(open_desk, build_dir, to_syslog, status):
    """What whoever may send could do; the one that writes memory is refused, at a price."""
    if sanitizer_runtimes(build_dir / "bin/bootlume"):
        pytest.skip("the sanitizer has a system log of its own")
    if b"__syslog_chk" not in (build_dir / "bin/bootlume").read_bytes():
        pytest.skip("a build without optimization has no checks in its library calls")
    open_desk.trace_config(f"bootlume 5 0 {to_syslog}")
    splash = start_masked(open_desk, units_mask())
    splash.send("%n;a line")
    if to_syslog == 0:
        splash.send("QUIT")
    assert splash.wait() == status
    assert bool(splash.trace("command = %n;a line")) == (to_syslog == 0)
