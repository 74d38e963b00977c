"""The virtual device as its README promises it, in what the tests that stand on it do not see."""

import json
import os
import shutil
import subprocess
import sys
import time

import pytest

from ctl_desk import SECONDS
from desk import BUILD, DEVICE, SOCKET, TRACE_CONFIG, Desk, listens, wait_until, wait_until_running
from desk.pictures import WHITE

REBOOT_PROGRAMS = ("/sbin/reboot", "/sbin/vrx_reboot", "/usr/sbin/reboot")
REFUSED = 3
TURN = 66  # pictures in a turn of the ring


def run(desk, *words, env=None, **settings):
    """A program of the machine on the desk, ended."""
    environment = desk.environment(env, **settings)
    return subprocess.run(words, env=environment, capture_output=True, text=True, timeout=SECONDS, check=False)


def python(desk, script, **options):
    done = run(desk, sys.executable, "-Sc", f"import os, socket, subprocess\n{script}", **options)
    assert done.returncode == 0, done.stderr
    return done.stdout.strip()


def attempt(call):
    """Python that prints what a call gives, or the name of its error."""
    return f"import errno\ntry: print({call})\nexcept OSError as error: print(errno.errorcode[error.errno])"


@pytest.mark.parametrize("with_root", [True, False], ids=["with-a-root", "without-a-root"])
@pytest.mark.parametrize("program", REBOOT_PROGRAMS)
@pytest.mark.parametrize(
    "call",
    ["os.execv('{0}', ['{0}'])", "os.execvpe('{0}', ['{0}'], {{}})", "os.posix_spawn('{0}', ['{0}'], {{}})"],
    ids=["execv", "execvpe", "posix_spawn"],
)
def test_a_reboot_program_is_run_from_below_the_root_only(desk, call, program, with_root):
    removed = {} if with_root else {"VIRTUAL_DEVICE_ROOT": None}
    log = desk.root / "calls"
    assert python(desk, attempt(call.format(program)), env=removed, log=log) == "ENOENT"
    record = json.loads(log.read_text().splitlines()[-1])
    assert (record["path"], record["error"]) == (program, "ENOENT")
    assert (record["mapped"] is None) != with_root


def test_what_a_script_runs_is_on_the_desk_as_well(desk):
    desk.reboot_script("/sbin/vrx_reboot", "/sbin/reboot\nexit $?")
    desk.reboot_script("/sbin/reboot", "read line </opt/userdata/code\nexit $line")
    desk.write("/opt/userdata/code", "42\n")
    assert run(desk, "/bin/sh", "-c", "/usr/sbin/vrx_reboot").returncode == 42


def test_the_machine_is_never_rebooted(desk):
    calls = "import ctypes; libc = ctypes.CDLL(None, use_errno=True); print(libc.reboot(0), ctypes.get_errno())"
    assert python(desk, calls) == python(desk, calls, env={"VIRTUAL_DEVICE_ROOT": None}) == "-1 1"


def test_a_fixed_path_is_read_written_and_removed_below_the_root(desk):
    seen = f"os.access('{TRACE_CONFIG}', os.R_OK), os.path.exists('{TRACE_CONFIG}')"
    assert python(desk, f"print({seen})") == "False False"
    python(desk, f"open('{TRACE_CONFIG}', 'w').write('on the desk')")
    assert desk.path(TRACE_CONFIG).read_text() == "on the desk"
    assert python(desk, f"print({seen}, open('{TRACE_CONFIG}').read())") == "True True on the desk"
    python(desk, f"os.unlink('{TRACE_CONFIG}')")
    assert not desk.path(TRACE_CONFIG).exists()


def test_a_path_that_only_begins_like_a_fixed_one_is_left_alone(desk):
    for path in ("/opt/userdatabase", "/tmp/.bootlume2"):
        desk.write(path, "on the desk")
        assert python(desk, attempt(f"os.stat('{path}')")) == "ENOENT"
    desk.trace_config("inner")
    assert python(desk, f"print(open('{desk.path(TRACE_CONFIG)}').read())") == "inner"


def test_without_a_root_the_machine_is_seen_as_it_is(desk):
    desk.trace_config("on the desk")
    for path in (TRACE_CONFIG, DEVICE):
        assert python(desk, f"print(os.access('{path}', os.F_OK))") == "True"
        there = python(desk, f"print(os.access('{path}', os.F_OK))", env={"VIRTUAL_DEVICE_ROOT": None})
        assert there == str(os.path.exists(path))


def test_a_root_of_any_length_has_room_for_the_socket(tmp_path):
    root = tmp_path / ("l" * 200) / ("m" * 200)
    root.mkdir(parents=True)
    with Desk(root=root) as desk:
        splash = wait_until_running(desk.start())
        talk = f"s = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM); s.sendto(b'A;B', '{SOCKET}')"
        python(desk, f"{talk}; s.connect('{SOCKET}'); s.send(b'QUIT')")
        assert splash.wait() == 0


def test_a_picture_is_never_torn_however_fast_they_come(desk):
    no_fonts = {"FONTCONFIG_FILE": "/dev/null"}
    slow = desk.start(env=no_fonts)
    whole = set()

    def turned():
        whole.add(slow.screen.wait_for_frame().pixels)
        return len(whole - {WHITE}) == TURN

    wait_until(turned, "every picture of a turn")
    assert slow.quit() == 0
    preload = f"{desk.environment()['LD_PRELOAD']}:{BUILD / 'lib/libtest-clocks.so'}"
    no_pauses = {"LD_PRELOAD": preload, "STEPPING_CLOCK": "0,30000,0"}
    splash = desk.start(refresh=0, env={**no_fonts, **no_pauses})
    seen = 0

    def looked():
        nonlocal seen
        newest = splash.screen.frame_number
        # The newest, and the oldest that may still be there: the one that the writer takes next.
        frames = list(filter(None, map(splash.screen.frame, (newest, newest - 7))))
        assert {WHITE, *whole}.issuperset(frame.pixels for frame in frames)
        seen += len(frames)
        return seen >= 2000

    wait_until(looked, "pictures enough")
    assert splash.quit() == 0


def test_another_process_is_refused_the_buffers_of_a_running_splash(desk):
    first = wait_until_running(desk.start())
    second = desk.run()
    assert second.wait() == 255
    assert second.records(call="VIDIOC_REQBUFS")[-1]["error"] == "EBUSY"
    assert listens(desk.path(SOCKET)) and first.quit() == 0


def test_the_screen_goes_on_from_one_start_to_the_next_and_off_with_a_program_that_dies(desk):
    first = desk.start()
    first.screen.wait_for_frame(5)
    assert first.quit() == 0 and not desk.screen.streaming
    last = desk.screen.frame_number
    second = desk.start(faults="VIDIOC_STREAMOFF@1=EIO")  # it never switches off
    frame = second.screen.wait_for_frame(last + 3)
    assert (frame.stream, desk.screen.streams) == (2, 2)
    assert second.quit() == 0 and not desk.screen.streaming


@pytest.mark.parametrize(
    "name, value",
    [
        ("ROOT", "/no/such/folder"),
        ("ROOT", "/"),
        ("SCREEN", "relative"),
        ("LOG", "/no/such/file"),
        ("REFRESH", "fast"),
        ("BUFFERS", "33"),
        ("FORMAT", "depth=3"),
        ("ROOTS", "/tmp"),
        *(
            ("FAULTS", fault)
            for fault in (
                *("open", "open@1", "open=EIO", "open@x=EIO", "open@1=", "open@1=EWRONG", "open@1=holds"),
                *("open@1=block:1", "open@1=blocked", "closed@1=EIO", "open@1=EIO,", "open@+=EIO"),
                "VIDIOC_QBUF@0=EIO",
            )
        ),
    ],
)
def test_a_setting_that_is_wrong_ends_the_program_with_one_clear_line(desk, name, value):
    done = run(desk, shutil.which("true"), env={f"VIRTUAL_DEVICE_{name}": value})
    assert (done.returncode, done.stdout) == (REFUSED, "")
    assert done.stderr.startswith(f'virtual-device: VIRTUAL_DEVICE_{name}="{value}": ')
    assert done.stderr.count("\n") == 1


def test_a_fault_strikes_once_or_from_a_call_on(desk):
    words = "VIDIOC_QBUF@3=EIO,VIDIOC_QBUF@6+=ENOSPC"
    splash = desk.start(refresh=0, faults=words)
    splash.screen.wait_for_frame(3)
    wait_until(lambda: len(splash.records(call="VIDIOC_QBUF", kind="device")) >= 8, "eight calls")
    errors = [record.get("error") for record in splash.records(call="VIDIOC_QBUF", kind="device")[:8]]
    assert errors == [None, None, "EIO", None, None, "ENOSPC", "ENOSPC", "ENOSPC"]
    assert [record["n"] for record in splash.records(kind="fault")[:3]] == [3, 6, 7]
    assert splash.quit() == 0


def test_each_call_is_recorded_with_its_thread_times_arguments_and_result(desk):
    splash = desk.run(faults="VIDIOC_STREAMON@1=EPIPE")
    requests = splash.records(call="VIDIOC_REQBUFS")
    assert [(r["in"]["count"], r["out"]["count"], r["result"], r["errno"]) for r in requests] == [(2, 2, 0, 0)]
    assert requests[0]["thread"] == "bootlume" and requests[0]["pid"] == requests[0]["tid"] == splash.pid
    assert [record["error"] for record in splash.records(call="VIDIOC_STREAMON", kind="device")] == ["EPIPE"]
    times = [(r["time_ns"], r["time_ns"] + r["duration_ns"]) for r in splash.records(kind="device")]
    assert all(begin <= end <= time.monotonic_ns() for begin, end in times) and times == sorted(times)
