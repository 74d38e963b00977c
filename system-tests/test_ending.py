"""The end of the splash: who may end it, what is torn down in which order, and that nothing holds it up."""

import ctypes
import os
import signal
from pathlib import Path

import pytest

from desk import (
    DEVICE,
    LOOP,
    SOCKET,
    TRACE_CONFIG,
    end_by_signal,
    fill_pipe,
    listens,
    wait_until,
    wait_until_running,
    writes_to_standard_output,
)
from desk.lines import ALL_LINES, DISPATCHER, ENDING, OWN_LINES, SERVER, WATCHER, lines_of, traced

OUTPUT = 2  # the type of the device's buffers

BY_COMMAND = traced("DEBUG", "End splash-screen over socket command.", ENDING, SERVER)


def by_signal(number, thread=LOOP):
    return traced("DEBUG", f"End splash-screen with SIG., sig = {int(number)}", ENDING, thread)


def by_signal_to_any_thread(number):
    """The kernel asks the main thread first, but another may be quicker to take the signal."""
    return {by_signal(number, thread) for thread in (LOOP, SERVER, WATCHER)}


def send_to_thread(pid, thread, number):
    """As kill(2), but to one thread."""
    tgkill = {"x86_64": 234, "armv7l": 268, "aarch64": 131}[os.uname().machine]
    result = ctypes.CDLL(None, use_errno=True).syscall(tgkill, pid, thread, int(number))
    assert result == 0, os.strerror(ctypes.get_errno())


def end(splash, how):
    """Asks the splash to end."""
    if how == "QUIT":
        splash.send("QUIT")
    else:
        splash.signal(how)


def device_end(splash):
    """What the device saw after the last frame."""
    calls = [record["call"] for record in splash.records(kind="device")]
    last_frame = max(i for i, call in enumerate(calls) if call == "VIDIOC_DQBUF")
    return calls[last_frame + 1 :]


@pytest.mark.parametrize("how", ["QUIT", signal.SIGHUP, signal.SIGINT], ids=str)
def test_an_orderly_end_tears_everything_down(desk, how):
    desk.trace_config(OWN_LINES)
    splash = wait_until_running(desk.start())
    splash.screen.wait_for_frame(2)
    end(splash, how)
    assert splash.wait() == 0
    (line,) = lines_of(splash, ENDING)
    assert line in ({BY_COMMAND} if how == "QUIT" else by_signal_to_any_thread(how))
    assert device_end(splash) == ["VIDIOC_STREAMOFF", "munmap", "munmap", "close"]
    made = splash.records(kind="device", pid="own")
    off, *unmapped, closed = made[-4:]
    assert off["in"] == {"type": OUTPUT}
    mapped = splash.records(call="mmap")
    assert [(one["address"], one["length"]) for one in unmapped] == [(one["address"], one["length"]) for one in mapped]
    assert closed["fd"] == made[0]["result"]
    assert [record["error"] for record in made if record["errno"]] == []
    assert not splash.screen.streaming
    assert "read" not in "".join(line.text for line in splash.trace())
    assert splash.stderr == "" and splash.other_output() == []


def test_the_threads_end_before_the_dispatcher_is_destroyed(desk):
    desk.trace_config(ALL_LINES)
    splash = wait_until_running(desk.start())
    splash.send("QUIT")
    assert splash.wait() == 0
    texts = [line.text.strip() for line in splash.trace()]
    command = texts.index("End splash-screen over socket command.")
    left = texts.index("exiting dispatcher loop")
    destroyed = texts.index("destroy dispatcher")
    assert command < left < destroyed
    # After the dispatcher no thread is left to write: the last frame and poll came before it.
    assert texts[destroyed + 1 :] == []
    assert "Polling socket." not in texts[left + 2 :], "the server goes first: one poll at most"
    assert lines_of(splash, DISPATCHER)[-2:] == [
        traced("VERBOSE", text, DISPATCHER, LOOP, "DISPATCHER")
        for text in ("exiting dispatcher loop", "destroy dispatcher")
    ]


def test_the_ring_turns_until_the_command_server_has_ended(desk):
    """The server is held up in a line that nobody takes."""
    desk.trace_config("bootlume 3 0 0")
    reader, writer = os.pipe()
    fill_pipe(writer)
    splash = wait_until_running(desk.start(stdout=writer))
    os.close(writer)
    splash.send("refused")
    wait_until(lambda: writes_to_standard_output(splash), "the server to write its line")
    splash.signal(signal.SIGINT)
    wait_until(lambda: not listens(desk.path(SOCKET)), "the end to begin")
    splash.screen.wait_for_more(4)
    os.read(reader, 1 << 20)
    assert splash.wait() == 0
    os.close(reader)


def test_a_second_request_changes_nothing(desk):
    """The display is held up, so that the end is under way when more requests come."""
    desk.trace_config(OWN_LINES)
    splash = wait_until_running(desk.start(faults="VIDIOC_STREAMOFF@1=hold"))
    splash.screen.wait_for_frame()
    splash.signal(signal.SIGINT)
    splash.wait_for_fault("the end to begin")
    assert not listens(desk.path(SOCKET)), "the command socket ends before the renderer"
    splash.signal(signal.SIGHUP)
    splash.signal(signal.SIGINT)
    desk.go_on()
    assert splash.wait() == 0
    lines = lines_of(splash, ENDING)
    assert lines[0] in by_signal_to_any_thread(signal.SIGINT)
    assert set(lines) <= (by_signal_to_any_thread(signal.SIGINT) | by_signal_to_any_thread(signal.SIGHUP))
    assert device_end(splash) == ["VIDIOC_STREAMOFF", "munmap", "munmap", "close"]


def test_a_signal_in_the_middle_of_heavy_tracing_ends_the_splash(desk):
    desk.trace_config(ALL_LINES)
    for _ in range(5):
        splash = wait_until_running(desk.start(refresh=0))
        splash.signal(signal.SIGINT)
        assert splash.wait() == 0
        (line,) = lines_of(splash, ENDING)
        assert line in by_signal_to_any_thread(signal.SIGINT)


def block(number):
    signal.pthread_sigmask(signal.SIG_BLOCK, [number])


def ignore(number):
    signal.signal(number, signal.SIG_IGN)


@pytest.mark.parametrize("hand_down", [block, ignore])
@pytest.mark.parametrize("number, status", [(signal.SIGHUP, 0), (signal.SIGINT, 0), (signal.SIGTERM, -signal.SIGTERM)])
def test_a_signal_ends_it_that_was_blocked_or_ignored_where_it_was_started(desk, hand_down, number, status):
    splash = wait_until_running(desk.start(prepare=lambda: hand_down(number)))
    splash.signal(number)
    assert splash.wait() == status


@pytest.mark.parametrize("taker", [LOOP, SERVER])
@pytest.mark.parametrize("number", [signal.SIGHUP, signal.SIGINT])
def test_the_line_names_the_thread_that_took_the_signal(desk, taker, number):
    desk.trace_config(OWN_LINES)
    splash = wait_until_running(desk.start())
    names = {int(task.name): (task / "comm").read_text().strip() for task in Path(f"/proc/{splash.pid}/task").iterdir()}
    thread = max(tid for tid, name in names.items() if name == taker)  # the renderer's, or main's
    send_to_thread(splash.pid, thread, number)
    assert splash.wait() == 0
    assert lines_of(splash, ENDING) == [by_signal(number, taker)]


def test_sigterm_has_its_default_action(desk):
    desk.trace_config(OWN_LINES)
    splash = wait_until_running(desk.start())
    splash.screen.wait_for_frame()
    splash.signal(signal.SIGTERM)
    assert splash.wait() == -signal.SIGTERM
    assert lines_of(splash, ENDING) == []
    calls = [record["call"] for record in splash.records(kind="device")]
    assert "VIDIOC_STREAMOFF" not in calls and "close" not in calls


@pytest.mark.parametrize("number", [signal.SIGHUP, signal.SIGINT])
def test_a_signal_before_there_is_a_dispatcher_is_swallowed(desk, number):
    """The device keeps the renderer's construction waiting while the signal comes."""
    desk.trace_config(ALL_LINES)
    splash = desk.start(faults="open@1=hold")
    splash.wait_for_fault("the held open")
    splash.signal(number)
    desk.go_on()
    wait_until_running(splash)
    assert splash.trace("create dispatcher")
    assert splash.trace("End splash-screen") == []
    assert splash.quit() == 0
    assert lines_of(splash, ENDING) == [BY_COMMAND]
    opened = splash.records(kind="device", call="open")
    assert opened[0]["path"] == DEVICE and opened[0]["result"] >= 0


@pytest.mark.parametrize("configured", [False, True], ids=["without a file", "with a file"])
def test_no_wait_of_a_thread_holds_the_end_up(desk, preload, configured):
    """The waits for commands, for the trace file and for the display never run out here: they are woken."""
    if configured:
        desk.trace_config("bootlume 4 0 0")
    assert desk.path(TRACE_CONFIG).exists() == configured
    splash = wait_until_running(desk.start(env=preload("endless-poll")))
    splash.screen.wait_for_frame(4)
    assert end_by_signal(splash) == 0  # a command would make the server look once more by itself
    assert device_end(splash) == ["VIDIOC_STREAMOFF", "munmap", "munmap", "close"]
