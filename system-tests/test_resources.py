"""What the program does where the machine has nothing left for it: no descriptors, no processes, no
memory, nobody who reads, no place for its socket, no display any more."""

import os
import re
import resource
import signal
import socket
from contextlib import suppress
from pathlib import Path

import pytest

from desk import (
    SOCKET,
    end_by_signal,
    fill_pipe,
    is_dispatching,
    listens,
    sanitizer_runtimes,
    short_name,
    wait_until,
    wait_until_running,
    writes_to_standard_output,
)
from desk.lines import ALL_LINES, ENDING, OWN_LINES, SERVER, lines_of, traced
from faults import Injector

LONG = bool(os.environ.get("BOOTLUME_LONG"))
LONGEST_S = 10

WRONG_FORMAT = traced("WARN", "Wrong message format, tmp.size() = 1", ENDING, SERVER)

LATER = 6000  # a limit that a test sets the clocks to


def close_all(*descriptors):
    def close():
        for descriptor in descriptors:
            os.close(descriptor)

    return close


def connected(desk):
    """A sender's socket that the file's removal does not part from the splash."""
    sender = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    with short_name(desk.path(SOCKET)) as name:
        sender.connect(name)
    return sender


# -- standard descriptors ----------------------------------------------------------------------


@pytest.mark.parametrize("closed", [(0,), (1,), (2,), (0, 1), (0, 1, 2)], ids=str)
def test_a_closed_standard_descriptor_is_never_the_overlays_or_the_sockets(desk, closed):
    """Trace lines go to descriptor 1 and failures to 2, whatever these are."""
    desk.trace_config(ALL_LINES)
    splash = desk.start("Title", "Lines", prepare=close_all(*closed))
    wait_until_running(splash)
    for descriptor in closed:
        assert os.readlink(f"/proc/{splash.pid}/fd/{descriptor}") == "/dev/null"
    assert [record["result"] > 2 for record in splash.records(kind="device", call="open")] == [True]
    splash.screen.wait_for_more()
    assert splash.quit() == 0
    assert bool(splash.trace()) == (1 not in closed)
    assert splash.stderr == ""


@pytest.mark.parametrize("full", ["stdout", "stderr", "both"])
def test_a_full_disk_behind_the_output_loses_lines_and_nothing_else(desk, full):
    desk.trace_config(ALL_LINES)
    with open("/dev/full", "wb") as nowhere:
        outputs = ["stdout", "stderr"] if full == "both" else [full]
        splash = wait_until_running(desk.start(**{output: nowhere for output in outputs}))
        splash.screen.wait_for_more()
        splash.send("New title;New line")
        splash.screen.wait_for_more()
        assert splash.quit() == 0


def start_into_pipe(desk, prepare=None):
    """A splash whose standard output is a pipe, and the reading end."""
    reader, writer = os.pipe()
    try:
        # subprocess lets SIGPIPE have its default in the child, unlike Python itself.
        return desk.start(stdout=writer, prepare=prepare), reader
    finally:
        os.close(writer)


def test_a_reader_that_goes_ends_the_splash_by_sigpipes_default(desk):
    desk.trace_config(OWN_LINES)
    splash, reader = start_into_pipe(desk)
    wait_until_running(splash)
    os.close(reader)
    splash.send("a line is written now")
    assert splash.wait(LONGEST_S) == -signal.SIGPIPE


def test_a_reader_that_goes_is_not_missed_where_sigpipe_is_ignored(desk):
    """As a service manager starts it."""
    desk.trace_config(ALL_LINES)
    splash, reader = start_into_pipe(desk, lambda: signal.signal(signal.SIGPIPE, signal.SIG_IGN))
    wait_until_running(splash)
    os.close(reader)
    splash.send("a line is written now")
    splash.screen.wait_for_more()
    assert splash.quit() == 0
    assert splash.stderr == ""


@pytest.mark.parametrize("options", [(), ("-c", "Title", "Lines")], ids=["unarmed", "armed"])
def test_a_line_waits_for_its_reader_and_is_not_lost(desk, options):
    desk.trace_config(ALL_LINES)
    reader, writer = os.pipe()
    fill_pipe(writer)
    splash = desk.start(*options, stdout=writer)
    os.close(writer)
    wait_until(lambda: writes_to_standard_output(splash), "the first line to wait", LONGEST_S)
    os.set_blocking(reader, False)
    taken = bytearray()

    def runs():
        with suppress(BlockingIOError):
            taken.extend(os.read(reader, 1 << 20))
        return b"| Drawing and Flip time used" in taken

    wait_until(runs, "the first frame's lines", LONGEST_S)
    lines = taken.decode().lstrip("x").splitlines()
    head = r"(\033\[[0-9;]*m)?\[[0-9-]+:[0-9]{3}\] "
    assert all(re.match(head, line) for line in lines), lines[:3]
    assert sum("| start trace config thread| " in line for line in lines) == 1, lines[:3]
    os.close(reader)
    assert splash.wait(LONGEST_S) == -signal.SIGPIPE


# -- descriptors and processes -----------------------------------------------------------------


def with_limit(kind, number):
    return lambda: resource.setrlimit(kind, (number, number))


def fewest_descriptors(desk):
    """How many descriptors the program needs, below those that the virtual device keeps."""
    splash = wait_until_running(desk.start())
    used = {int(path.name) for path in Path(f"/proc/{splash.pid}/fd").iterdir()}
    assert splash.quit() == 0
    return len([number for number in used if number < 900])


def test_too_few_descriptors_at_the_start_never_hang_it(desk, build_dir, run_prefix):
    if run_prefix or sanitizer_runtimes(build_dir / "bin/bootlume"):
        pytest.skip("an emulator and a sanitizer need descriptors of their own")
    for limit in range(3, fewest_descriptors(desk) + 3):
        splash = desk.start(prepare=with_limit(resource.RLIMIT_NOFILE, limit))

        def known():
            return splash.process.poll() is not None or (is_dispatching(splash) and splash.screen.streaming)

        wait_until(known, f"a page or an end with {limit} descriptors", LONGEST_S)
        if splash.process.poll() is None:
            assert end_by_signal(splash, LONGEST_S) == 0
        # 3 is the virtual device's: it refuses to be without its log. 127 is the loader's.
        assert splash.wait() in (0, 255, 3, 127), (limit, splash.stderr)
        if splash.wait() == 255:
            assert splash.stdout or limit < 3


def test_no_descriptors_left_while_it_runs_costs_no_frame_and_no_command(desk, clocks):
    """Both reboots fail with a line, as nothing can be launched; the splash goes on."""
    limits = {"SPLASH_TIMEOUT": LATER, "SPLASH_TIMEOUT_HARD": 2 * LATER}
    splash = wait_until_running(desk.start("-c", "Title", "Lines", refresh=0, env={**limits, **clocks.environment}))
    splash.screen.wait_for_more()
    resource.prlimit(splash.pid, resource.RLIMIT_NOFILE, (3, 3))
    splash.send("New title;New line")  # the language file cannot be opened any more
    splash.screen.wait_for_more()
    clocks.set(steady=LATER)
    splash.wait_for_trace("failed to start VRX reboot, rebooting")
    splash.wait_for_trace("reboot started with result: , result = -1")
    splash.screen.wait_for_more()
    assert splash.quit() == 0


def test_no_processes_at_the_start_end_it_with_a_message(desk, build_dir, run_prefix, unprivileged):
    if run_prefix or sanitizer_runtimes(build_dir / "bin/bootlume"):
        pytest.skip("an emulator and a sanitizer start a thread of their own")
    unprivileged.own(desk)

    def prepare():
        unprivileged.become()
        resource.setrlimit(resource.RLIMIT_NPROC, (0, 0))

    splash = desk.run("Title", "Lines", prepare=prepare, deadline=LONGEST_S)
    assert splash.wait() == -signal.SIGABRT
    assert "terminate called" in splash.stderr and "Resource temporarily" in splash.stderr


# -- memory ------------------------------------------------------------------------------------


@pytest.fixture
def scarce(build_dir, preload, desk):
    """scarce() starts a splash whose allocations can be made to fail: the splash and its Injector."""
    if sanitizer_runtimes(build_dir / "bin/bootlume"):
        pytest.skip("a sanitizer has an allocator of its own")

    def start(countdown=0, failures=1, **options):
        memory = Injector(desk.root / "memory")
        if countdown:
            memory.arm("malloc", countdown, "ENOMEM", failures)
        environment = {**preload(first=["fault-injector"]), "FAULT_CONTROL": memory.path}
        return desk.start("Title", "Lines", env=environment, **options), memory

    return start


BAD_ALLOC = "what():  std::bad_alloc"


def outcome_without_memory(splash, messages=(BAD_ALLOC,), struck=lambda: True):
    """Ended by the allocation that failed, with a message, or going on: nothing else."""
    before = splash.screen.frame_number

    def settled():
        return splash.process.poll() is not None or (
            struck()
            and is_dispatching(splash)
            and splash.screen.frame_number > before + 4
            and listens(splash.desk.path(SOCKET))
        )

    wait_until(settled, "an outcome", LONGEST_S)
    if splash.process.poll() is None:
        assert splash.quit(LONGEST_S) == 0
        return "goes on"
    assert splash.wait() in (-signal.SIGABRT, 255), splash.stderr
    told = any(message in splash.stderr for message in messages)
    assert told or splash.wait() == 255 and splash.stdout
    return "ended"


@pytest.mark.parametrize("failures", [1, 1000000], ids=["one", "all from there on"])
@pytest.mark.parametrize("countdown", range(1, 60) if LONG else [1, 3, 8, 14, 20, 27])
def test_no_memory_at_the_start_ends_it_with_a_message_or_not_at_all(scarce, self_contained, countdown, failures):
    splash, memory = scarce(countdown, failures)
    # A self-contained program allocates the room for such an exception itself.
    roomless = ["terminate called without an active exception"] if self_contained else []
    outcome_without_memory(splash, [BAD_ALLOC, *roomless])
    if LONG and not memory.struck():
        pytest.skip("so many allocations are not made up to the first frames")
    assert memory.struck()


@pytest.mark.parametrize("countdown", range(1, 60) if LONG else [1, 2, 5, 9, 16])
def test_no_memory_while_it_runs_ends_it_with_a_message_or_not_at_all(desk, scarce, countdown):
    desk.trace_config(ALL_LINES)
    splash, memory = scarce()
    wait_until_running(splash)
    splash.screen.wait_for_more()
    memory.arm("malloc", countdown, "ENOMEM")
    for number in range(countdown):
        try:
            splash.send(f"A title that is too long for a short string {number};" + "line\n" * 9, 1)
        except (AssertionError, OSError):
            break  # it has ended
        desk.trace_config(ALL_LINES)
    outcome_without_memory(splash, struck=memory.struck)
    assert memory.struck()


# -- the socket's place ------------------------------------------------------------------------


def assert_serves_no_command(desk, splash, reason):
    """Without a socket the splash shows its page, and a signal ends it."""
    splash.wait_for_stderr(f"bind error: {reason}")
    splash.screen.wait_for_more()
    assert not desk.path(SOCKET).is_socket()
    assert end_by_signal(splash, LONGEST_S) == 0
    assert splash.stderr == f"bind error: {reason}\n"


def test_a_folder_in_the_sockets_place_costs_the_commands_only(desk):
    desk.path(SOCKET).mkdir()
    assert_serves_no_command(desk, desk.start(), "Address already in use")
    assert desk.path(SOCKET).is_dir()


def test_a_missing_tmp_costs_the_commands_only(desk):
    splash = desk.start(faults="open@1=hold")
    splash.wait_for_fault("the held open")
    desk.path(SOCKET).parent.rmdir()
    desk.go_on()
    assert_serves_no_command(desk, splash, "No such file or directory")


def test_a_tmp_that_cannot_be_written_costs_the_commands_only(desk, unprivileged):
    unprivileged.own(desk)
    desk.path(SOCKET).parent.chmod(0o555)
    assert_serves_no_command(desk, desk.start(prepare=unprivileged.become), "Permission denied")


def test_a_removed_socket_costs_further_commands_only(desk):
    splash = wait_until_running(desk.start())
    desk.path(SOCKET).unlink()
    splash.screen.wait_for_more()
    assert end_by_signal(splash, LONGEST_S) == 0
    assert splash.stderr == ""


def test_a_sender_that_is_connected_goes_on_where_the_socket_is_removed(desk):
    splash = wait_until_running(desk.start())
    with connected(desk) as sender:
        desk.path(SOCKET).unlink()
        sender.send(b"refused")
        splash.wait_for_trace("Wrong message format")
        sender.send(b"QUIT")
        assert splash.wait(LONGEST_S) == 0
    assert lines_of(splash) == [WRONG_FORMAT]


# -- the display -------------------------------------------------------------------------------

CALLS = ["VIDIOC_QBUF", "VIDIOC_DQBUF"]


@pytest.mark.parametrize("armed", [False, True], ids=["", "armed"])
@pytest.mark.parametrize("all_calls", [CALLS, ["VIDIOC_QBUF"], ["VIDIOC_DQBUF"]], ids="+".join)
def test_a_display_that_disappears_leaves_commands_and_reboots(desk, all_calls, armed):
    """Every call of the device fails from then on; each is a line."""
    rebooted = desk.root / "rebooted"
    desk.reboot_script("/sbin/vrx_reboot", f": > {rebooted}")
    faults = ",".join(f"{call}@6+=ENODEV" for call in all_calls + ["VIDIOC_STREAMOFF"]).replace(
        "STREAMOFF@6", "STREAMOFF@1"
    )
    splash = desk.start(
        *(["-c"] if armed else []),
        "Title",
        "Lines",
        faults=faults,
        env={"SPLASH_TIMEOUT": 1, "SPLASH_TIMEOUT_HARD": 600},
    )
    wait_until_running(splash)
    splash.wait_for_trace("Couldn't queue buffer" if "VIDIOC_QBUF" in all_calls else "Couldn't dequeue buffer")
    if armed:
        splash.wait_for_trace("VRX reboot started with result: , result = 0")
        assert rebooted.exists()
    splash.send("refused")
    splash.wait_for_trace("Wrong message format")
    assert splash.quit() == 0
    assert splash.trace("FAILED to VIDIOC_STREAMOFF.")
    assert splash.records(call="close")[-1]["result"] == 0


def test_a_display_that_is_gone_does_not_make_the_ring_spin(desk):
    """Failing calls come back at once: the period of a frame still holds."""
    splash = wait_until_running(desk.start(refresh=0, faults="VIDIOC_QBUF@3+=ENODEV,VIDIOC_DQBUF@3+=ENODEV"))
    wait_until(lambda: len(splash.trace("Couldn't queue buffer")) >= 20, "20 failures")
    failed = [record["time_ns"] for record in splash.records(kind="device", call="VIDIOC_QBUF") if record["result"] < 0]
    assert splash.quit() == 0
    assert (failed[-1] - failed[0]) / (len(failed) - 1) >= 30e6
