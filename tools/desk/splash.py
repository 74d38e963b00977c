"""The running program: what it wrote, and what is done to it."""

import json
import os
import re
import signal
import socket
from contextlib import contextmanager, suppress
from pathlib import Path

from .places import SOCKET
from .trace import parse_trace
from .waiting import DEADLINE, Late, wait_until

LOOP = "bl-dispatcher"  # the main thread, once the loop runs


@contextmanager
def short_name(path):
    """A name of the socket at `path` that fits into an address, however long the path is."""
    folder = os.open(path.parent, os.O_PATH | os.O_DIRECTORY)
    try:
        yield f"/proc/self/fd/{folder}/{path.name}"
    finally:
        os.close(folder)


def send_datagram(path, data, deadline=None):
    """Sends one datagram (text or bytes) to the socket at `path`, however long the path is.

    Waits for the socket to be there, and for room in it.
    """
    data = data.encode() if isinstance(data, str) else data
    path = Path(path)
    wait_until(path.is_socket, f"the socket {path}", deadline)
    with short_name(path) as name, socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
        sender.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, max(len(data) * 2, 65536))
        sender.settimeout(DEADLINE if deadline is None else deadline)

        def attempt():
            try:
                sender.sendto(data, name)
                return True
            except TimeoutError:
                raise Late(f"waited in vain for room in the socket {path}") from None
            except ConnectionRefusedError:
                return False  # the file of an earlier run: the program is not there yet

        wait_until(attempt, f"somebody to listen at {path}", deadline)


def listens(path):
    """Whether a program serves the datagram socket at `path`, however long the path is."""
    try:
        with short_name(path) as name, socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as probe:
            probe.connect(name)
            return True
    except (FileNotFoundError, ConnectionRefusedError):
        return False


def is_dispatching(splash):
    """Whether the program's loop runs: its first message names the thread. A command or a signal
    that comes before that is lost."""
    try:
        return Path(f"/proc/{splash.pid}/comm").read_text(encoding="ascii").strip() == LOOP
    except FileNotFoundError:
        return False


def handles_signals(splash):
    """Whether main has come so far: before that a signal ends any program."""
    assert splash.process.poll() is None, f"ended by {splash.process.returncode}"
    status = Path(f"/proc/{splash.pid}/status").read_text(encoding="utf-8")
    caught = int(re.search(r"^SigCgt:\s*(\w+)", status, re.MULTILINE)[1], 16)
    return caught & 3 == 3


def writes_to_standard_output(splash):
    """Whether a thread of the splash is in that call: into a full pipe, it waits there."""
    calls = Path(f"/proc/{splash.pid}/task").glob("*/syscall")
    with suppress(FileNotFoundError, ProcessLookupError):
        return any(call.read_text().split()[1:2] == ["0x1"] for call in calls)
    return False


def hears_signals(splash):
    """Whether the loop runs, and the last thread of the start, which turns the display on, as well:
    a thread that begins may take a signal, and ThreadSanitizer loses it then."""
    return is_dispatching(splash) and splash.screen.streaming


def end_by_signal(splash, deadline=None):
    """One signal once it is heard; the exit status. For a splash that no command reaches."""
    wait_until(lambda: hears_signals(splash) or splash.process.poll() is not None, "the splash to run", deadline)
    splash.signal(signal.SIGINT)
    return splash.wait(deadline)


def wait_until_running(splash):
    """Returns once a command or a signal cannot get lost any more; the splash itself."""
    path = splash.desk.path(SOCKET)

    def runs():
        assert splash.process.poll() is None, f"ended early: {splash.stdout}{splash.stderr}"
        return hears_signals(splash) and listens(path)

    wait_until(runs, "the splash to run")
    return splash


class Splash:
    """The running program. Use Desk.start to get one."""

    def __init__(self, desk, process, files):
        self.desk = desk
        self.process = process
        self.pid = process.pid
        self.screen = desk.screen
        self._stdout, self._stderr, self._log = files

    # -- what it wrote ---------------------------------------------------------------------

    @property
    def stdout(self):
        return self._read(self._stdout)

    @property
    def stderr(self):
        return self._read(self._stderr)

    @staticmethod
    def _read(path):
        try:
            return path.read_bytes().decode(errors="surrogateescape")
        except FileNotFoundError:
            return ""

    def trace(self, text=None):
        """Trace lines so far; with `text` those whose text contains it."""
        lines = parse_trace(self.stdout)[0]
        return [line for line in lines if text is None or text in line.text]

    def other_output(self):
        """Lines of standard output that are no trace lines."""
        return parse_trace(self.stdout)[1]

    def records(self, kind=None, call=None, pid=None):
        """Records of the log of calls so far, oldest first.

        Children are in it, too: pid="own" leaves only the program's own records.
        """
        wanted_pid = self.pid if pid == "own" else pid
        records = []
        for line in self._read(self._log).splitlines(keepends=True):
            if not line.endswith("\n"):
                break
            record = json.loads(line)
            if (
                (kind is None or record["kind"] == kind)
                and (call is None or record["call"] == call)
                and (wanted_pid is None or record["pid"] == wanted_pid)
            ):
                records.append(record)
        return records

    # -- what it is waited for -------------------------------------------------------------

    def _alive_or(self, seen, what):
        """Ends a wait early where the program has ended and so nothing can come any more."""
        if self.process.poll() is None:
            return None
        last = seen()
        if last:
            return last
        raise Late(
            f"the program ended with {self.process.returncode} before {what}; " f"standard error: {self.stderr!r}"
        )

    def _wait(self, seen, what, deadline):
        return wait_until(lambda: seen() or self._alive_or(seen, what), what, deadline)

    def wait_for_record(self, wanted, what="a record", deadline=None):
        """The first record for which wanted(record) is true, or whose call is the text `wanted`."""
        if isinstance(wanted, str):
            name = wanted
            what, wanted = f"a record of {name}", lambda record: record["call"] == name
        return self._wait(lambda: next(filter(wanted, self.records()), None), what, deadline)

    def wait_for_fault(self, what, deadline=None):
        """The first record of a fault that strikes, or holds a call."""
        return self.wait_for_record(lambda record: record["kind"] == "fault", what, deadline)

    def wait_for_trace(self, text, deadline=None):
        """The first trace line whose text contains `text`."""
        return self._wait(lambda: next(iter(self.trace(text)), None), f"trace {text!r}", deadline)

    def wait_for_stderr(self, text, deadline=None):
        return self._wait(lambda: text in self.stderr, f"{text!r} on standard error", deadline)

    def wait(self, deadline=None):
        """Waits for the end of the program; its exit status, negative for a signal."""
        wait_until(lambda: self.process.poll() is not None, f"the end of the program {self.pid}", deadline)
        return self.process.returncode

    # -- what is done to it ----------------------------------------------------------------

    def send(self, data, deadline=None):
        """Sends one datagram to its socket."""
        send_datagram(self.desk.path(SOCKET), data, deadline)

    def signal(self, number):
        self.process.send_signal(number)

    def wait_for_loop(self, deadline=None):
        """Waits until its main thread takes commands; one that comes before that is lost."""
        wait_until(lambda: is_dispatching(self) or self.process.poll() is not None, "the main loop to run", deadline)

    def quit(self, deadline=None):
        """Ends it over the socket; its exit status."""
        self.wait_for_loop(deadline)
        self.send("QUIT", deadline)
        return self.wait(deadline)

    def close(self):
        """Ends it by force where it still runs."""
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGKILL)
            self.process.wait()
