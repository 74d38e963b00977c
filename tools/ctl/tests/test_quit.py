"""bootlumectl quit: the splash has gone when it returns."""

import json
import os
import re
import shutil
import socket
import subprocess
import sys
from pathlib import Path

import pytest

from ctl_desk import SECONDS, advice, stopped, wait_for_answer
from desk import BUILD, SOCKET, Desk, end_by_signal, fill_pipe, listens, read_line, wait_until, wait_until_running


def test_the_splash_has_gone_when_it_returns(desk, ctl):
    splash = wait_for_answer(desk.start())
    done = ctl("quit")
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")
    # No waiting here: the process has ended already.
    assert splash.process.poll() == 0


def test_one_sent_in_the_first_moments_is_not_lost(desk):
    for _ in range(10):
        client = subprocess.Popen([BUILD / "bin/bootlumectl", "--root", desk.root, "quit", "--wait"])
        splash = desk.start()
        assert client.wait(SECONDS) == 0
        assert splash.process.poll() == 0


def test_the_message_is_repeated_until_it_is_heard(desk, ctl):
    """In the place of the splash a program that ends with the third message."""
    code = (
        "import socket, sys\n"
        "s = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)\n"
        "s.bind(sys.argv[1])\n"
        "print('up', flush=True)\n"
        "sys.exit({s.recv(100) for _ in range(3)} != {b'QUIT'})\n"
    )
    with subprocess.Popen([sys.executable, "-c", code, desk.path(SOCKET)], stdout=subprocess.PIPE, text=True) as deaf:
        assert read_line(deaf.stdout) == "up\n"
        try:
            assert ctl("quit", "--timeout", "5").returncode == 0
            assert deaf.poll() == 0
        finally:
            deaf.kill()


def test_without_a_splash_it_says_so(desk, ctl):
    done = ctl("quit")
    assert done.returncode == 3
    assert done.stderr == advice(desk)


def test_a_file_that_a_splash_left_behind_counts_as_no_splash(desk, ctl):
    splash = wait_for_answer(desk.start())
    assert splash.quit() == 0
    assert desk.path(SOCKET).is_socket()
    assert ctl("quit").returncode == 3


def test_waiting_for_a_splash_ends_in_time(desk, ctl):
    done = ctl("quit", "--wait", "--timeout", "0.2")
    assert done.returncode == 3
    assert done.stderr == f"bootlumectl: no splash came up in time at {desk.path(SOCKET)}\n"


@pytest.mark.parametrize("time", ["nan", "-1", "inf", "1e7", "soon"])
def test_a_time_that_is_none_is_refused(ctl, time):
    done = ctl("quit", "--timeout", time)
    assert done.returncode == 2
    assert done.stderr.startswith("bootlumectl: ") and "--timeout" in done.stderr


def test_no_splash_is_no_error_if_it_is_asked_so(desk, ctl):
    done = ctl("quit", "--if-running")
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")
    splash = wait_for_answer(desk.start())
    assert ctl("quit", "--if-running").returncode == 0
    assert splash.process.poll() == 0


def test_one_that_is_stopped_is_named_and_how_to_go_on(desk, ctl):
    with stopped(wait_until_running(desk.start())) as splash:
        done = ctl("quit", "--if-running", "--timeout", "0.3")
        assert done.returncode == 4
        assert done.stderr == (
            f"bootlumectl: the splash has not gone in time: process {splash.pid} is "
            f"stopped; 'kill -CONT {splash.pid}' lets it go on\n"
        )
    assert splash.wait() == 0


@pytest.fixture
def closed(desk):
    """A splash that has closed its socket and does not go: its display is stuck, and nobody reads what it says of that.
    let_go() ends both."""
    reader, writer = os.pipe()
    splash = wait_until_running(desk.start(faults="VIDIOC_DQBUF@10=hold", stdout=writer))
    splash.wait_for_fault("the stuck display")
    fill_pipe(writer)
    os.close(writer)
    splash.send("QUIT")
    wait_until(lambda: not listens(desk.path(SOCKET)), "the socket to be closed")

    def let_go():
        desk.go_on()
        os.read(reader, 65536)

    splash.let_go = let_go
    yield splash
    os.close(reader)


WAYS = [[], ["--wait"], ["--if-running"]]


@pytest.mark.parametrize("way", WAYS)
def test_a_splash_that_has_closed_its_socket_and_does_not_go_is_reported(closed, ctl, way):
    done = ctl("quit", *way, "--timeout", "0.3")
    assert done.returncode == 4
    assert done.stderr == (
        f"bootlumectl: the splash has not gone in time: process {closed.pid} is there without a socket: it waits for "
        f"the display, or could not make one; 'kill {closed.pid}' ends it at once\n"
    )


def test_a_splash_that_could_not_make_its_socket_is_reported(desk, ctl):
    desk.path(SOCKET).mkdir()
    splash = desk.start()
    splash.wait_for_loop()
    told = ctl("status", "--json")
    assert (told.returncode, json.loads(told.stdout)["state"]) == (4, "closed")
    assert f"process {splash.pid} is there without a socket" in told.stderr
    assert ctl("quit", "--if-running", "--timeout", "0.3").returncode == 4
    assert end_by_signal(splash) == 0
    assert ctl("status").returncode == 3


@pytest.mark.parametrize("way", WAYS)
def test_a_splash_that_has_closed_its_socket_is_waited_for(closed, desk, way):
    client = subprocess.Popen([BUILD / "bin/bootlumectl", "--root", desk.root, "quit", *way])
    wait_until(lambda: "nanosleep" in Path(f"/proc/{client.pid}/wchan").read_text(), "the client to wait")
    closed.let_go()
    assert client.wait(SECONDS) == 0
    assert closed.process.poll() == 0


def sleeps(process):
    """How often it has gone to sleep so far."""
    status = Path(f"/proc/{process.pid}/status").read_text()
    return int(re.search(r"^voluntary_ctxt_switches:\s*(\d+)", status, re.MULTILINE)[1])


def test_it_ends_only_the_splash_that_was_there(desk):
    first = desk.start(faults="VIDIOC_DQBUF@10=hold")
    wait_for_answer(first)
    first.wait_for_fault("the stuck display")
    client = subprocess.Popen([BUILD / "bin/bootlumectl", "--root", desk.root, "quit"])
    # The first one is on its way out; another takes its path.
    path = desk.path(SOCKET)
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as second:
        wait_until(lambda: not listens(path), "the first one's socket to be closed")
        path.unlink()
        second.bind(str(path))
        second.setblocking(False)
        before = sleeps(client)
        wait_until(lambda: sleeps(client) > before + 20, "the client to look so often that it would have sent again")
        desk.go_on()
        assert client.wait(SECONDS) == 0
        assert first.process.poll() == 0
        with pytest.raises(BlockingIOError):
            second.recv(100)


def test_a_folder_in_the_sockets_place_counts_as_no_splash(desk, ctl):
    desk.path(SOCKET).mkdir(parents=True)
    done = ctl("quit")
    assert done.returncode == 3
    assert done.stderr == advice(desk)


def test_a_root_too_long_for_a_socket_address_works(tmp_path):
    root = tmp_path / ("long" * 40)
    root.mkdir()
    with Desk(root=root) as desk:
        splash = wait_for_answer(desk.start())
        client = [BUILD / "bin/bootlumectl", "--root", root]
        told = subprocess.run([*client, "status"], capture_output=True, text=True, check=False)
        assert f"process {splash.pid}," in told.stdout
        assert subprocess.run([*client, "quit"], check=False).returncode == 0
        assert splash.process.poll() == 0


@pytest.fixture
def as_nobody(desk):
    """Runs bootlumectl on the desk as a user who may do nothing."""
    if os.getuid() != 0:
        pytest.skip("needs root, to be another user")
    desk.root.chmod(0o755)
    client = shutil.copy(BUILD / "bin/bootlumectl", desk.root)  # the build may be closed to others

    def run(command):
        return subprocess.run(
            [client, "--root", desk.root, command], user="nobody", cwd="/", capture_output=True, text=True, check=False
        )

    return run


def test_another_user_s_splash_is_told_by_its_socket(desk, as_nobody):
    splash = wait_for_answer(desk.start())
    desk.path(SOCKET).chmod(0o777)
    told = as_nobody("status")
    assert told.returncode == 0
    assert "another user" in told.stdout
    assert as_nobody("quit").returncode == 0
    assert splash.wait() == 0


def test_a_socket_that_may_not_be_written_gives_the_reason(desk, as_nobody):
    splash = wait_for_answer(desk.start())
    desk.path(SOCKET).chmod(0o600)
    done = as_nobody("quit")
    assert done.returncode == 1
    assert done.stderr == (f"bootlumectl: {desk.path(SOCKET)}: permission denied: only root may send " "to it\n")
    assert splash.process.poll() is None


def test_a_group_that_may_send_is_named(desk, as_nobody):
    wait_for_answer(desk.start())
    path = desk.path(SOCKET)
    shutil.chown(path, group="video")
    path.chmod(0o660)
    for command in ("status", "quit"):
        done = as_nobody(command)
        assert done.returncode == 1
        assert done.stderr == (f"bootlumectl: {path}: permission denied: root and the group video may " "send to it\n")
