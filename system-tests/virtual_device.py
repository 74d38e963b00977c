"""The program on a desk, for tests: a folder of its own, the virtual device, and eyes on both.

    with Desk(bootlume="build/release/bin/bootlume",
              library="build/release/lib/libvirtual-device.so") as desk:
        desk.trace_config("bootlume 6 ffffffff 0")
        splash = desk.start("Title", "first line\\nsecond line", faults="VIDIOC_QBUF@3=EIO")
        frame = splash.screen.wait_for_frame(3)          # Frame: number, time, pixels
        splash.send("QUIT")
        assert splash.wait() == 0
        assert [r["call"] for r in splash.records(kind="device")][-1] == "close"

Every wait has a deadline and raises `Late`, which says what was waited for, when it passes. Only
the standard library is needed. The layout of the screen file and the form of the log are described
in tools/virtual-device/README.md.
"""

import ctypes
import json
import mmap
import os
import re
import shutil
import signal
import socket
import struct
import subprocess
import tempfile
import time
from dataclasses import dataclass
from pathlib import Path

DEVICE = "/dev/v4l/by-path/platform-imx-ipuv3-ovl.5-video-index0"
SOCKET = "/tmp/.bootlume"
TRACE_CONFIG = "/opt/userdata/trace_config"
LANGUAGE = "/opt/userdata/devicestack/appData/confd/GeneratorConfiguration"
WIDTH, HEIGHT = 480, 800
# For counts of instructions. Callgrind takes each byte that `rep stosb` fills for an instruction, so
# the C library is to fill memory in its other ways.
COUNTED = {"GLIBC_TUNABLES": "glibc.cpu.hwcaps=-ERMS"}
DEADLINE = float(os.environ.get("VIRTUAL_DEVICE_TEST_DEADLINE", "20"))
POLL = 0.001
SETTINGS = ("screen", "log", "refresh", "buffers", "format", "faults")


class Late(AssertionError):
    """What was waited for did not come before the deadline."""


def wait_until(look, what, deadline=None):
    """Calls look() until it returns something true, and returns that."""
    end = time.monotonic() + (DEADLINE if deadline is None else deadline)
    while True:
        seen = look()
        if seen:
            return seen
        if time.monotonic() > end:
            raise Late(f"waited in vain for {what}")
        time.sleep(POLL)


@dataclass(frozen=True)
class Frame:
    """One picture of the screen, whole: rows of little-endian RGB565 without padding."""

    number: int
    time_ns: int
    width: int
    height: int
    buffer: int
    stream: int
    pixels: bytes

    def pixel(self, x, y):
        """The 16-bit value at (x, y)."""
        return struct.unpack_from("<H", self.pixels, (y * self.width + x) * 2)[0]


class Screen:
    """Reader of a screen file. The file may appear later; until then the screen is off."""

    MAGIC = 0x4E435342
    HEADER = struct.Struct("=6I2I Q 2I Q")
    SLOT = struct.Struct("=2I 2Q 6I")

    def __init__(self, path):
        self.path = Path(path)
        self._memory = None

    def close(self):
        if self._memory is not None:
            self._memory.close()
            self._memory = None

    def _header(self):
        if self._memory is None:
            try:
                with open(self.path, "rb") as file:
                    size = os.fstat(file.fileno()).st_size
                    if size < self.HEADER.size:
                        return None
                    self._memory = mmap.mmap(file.fileno(), size, prot=mmap.PROT_READ)
            except FileNotFoundError:
                return None
        header = self.HEADER.unpack_from(self._memory)
        return header if header[0] == self.MAGIC else None

    @property
    def streaming(self):
        """Whether the device is on."""
        header = self._header()
        return bool(header and header[6])

    @property
    def frame_number(self):
        """Number of the newest frame, from 1; 0 before the first."""
        header = self._header()
        return header[8] if header else 0

    @property
    def streams(self):
        """How often the device was switched on."""
        header = self._header()
        return header[9] if header else 0

    @property
    def switched_ns(self):
        """CLOCK_MONOTONIC time of the last on or off."""
        header = self._header()
        return header[11] if header else 0

    def frame(self, number=None):
        """Frame `number`, the newest by default. None where it is not there (yet, or any more)."""
        header = self._header()
        if not header:
            return None
        newest = number is None
        while True:
            wanted = self.frame_number if newest else number
            frame = self._copy(header, wanted)
            if frame or not newest or wanted == 0:
                return frame

    def _copy(self, header, number):
        _, _, header_bytes, slot_bytes, slots, pixels_offset = header[:6]
        start = header_bytes + number % slots * slot_bytes
        sequence, buffer, frame, time_ns, width, height, _, row_bytes, stream, _ = \
            self.SLOT.unpack_from(self._memory, start)
        if number == 0 or sequence % 2 or frame != number:
            return None
        first = start + pixels_offset
        pixels = self._memory[first:first + row_bytes * height]
        if self.SLOT.unpack_from(self._memory, start)[0] != sequence:
            return None
        return Frame(frame, time_ns, width, height, buffer, stream, pixels)

    def wait_for_frame(self, number=None, deadline=None):
        """The first frame from `number` on (by default: the next one that comes) that is caught."""
        first = self.frame_number + 1 if number is None else number

        def look():
            newest = self.frame_number
            return (self.frame(first) or self.frame()) if newest >= first else None
        return wait_until(look, f"frame {first} of {self.path} (now {self.frame_number})", deadline)

    def wait_for_picture(self, wanted, what="a picture", deadline=None):
        """The first frame from now on for which wanted(frame) is true."""
        seen = 0

        def look():
            nonlocal seen
            frame = self.frame()
            if frame is None or frame.number == seen:
                return None
            seen = frame.number
            return frame if wanted(frame) else None
        return wait_until(look, what, deadline)

    def frames(self, count, first=None, deadline=None):
        """`count` frames in a row without a gap, from `first` (by default the next one) on."""
        start = self.frame_number + 1 if first is None else first
        taken = []
        for number in range(start, start + count):
            frame = self.wait_for_frame(number, deadline)
            assert frame.number == number, f"frame {number} was missed"
            taken.append(frame)
        return taken

    def wait_for_on(self, deadline=None):
        wait_until(lambda: self.streaming, "the device to be switched on", deadline)

    def wait_for_off(self, deadline=None):
        wait_until(lambda: not self.streaming, "the device to be switched off", deadline)


@dataclass(frozen=True)
class TraceLine:
    """One line of the program's log, taken apart. `text` is what stands between "\\t|" and the
    last "| "; `tag` is None where there is no ":" behind the level."""

    raw: str
    date: str
    milliseconds: int
    pid: int
    thread: str
    level: str
    tag: str
    text: str
    file: str
    line: int


_COLOUR = r"(?:\x1b\[[0-9;]*m)?"
_START = re.compile(_COLOUR + r"\[\d{8}-\d{6}:\d{3}\] \(")
_TRACE = re.compile(
    _COLOUR + r"\[(?P<date>\d{8}-\d{6}):(?P<ms>\d{3})\] \((?P<pid>\d+)\) \((?P<thread>.{16,}?)\) "
    r"(?P<level>[^:\t]{7})(?::(?P<tag>[^\t]*))?\t\|(?P<text>.*)\| (?P<file>[^|\n]*):(?P<line>\d+)"
    + _COLOUR, re.DOTALL)


def parse_trace(output):
    """(trace lines, other lines) of the program's standard output. A text may hold newlines."""
    traced, other, pieces = [], [], []

    def finish():
        text = "\n".join(pieces)
        found = _TRACE.fullmatch(text)
        if found:
            traced.append(TraceLine(
                text, found["date"], int(found["ms"]), int(found["pid"]),
                found["thread"].strip(), found["level"].strip(), found["tag"], found["text"],
                found["file"], int(found["line"])))
        elif pieces:
            other.extend(pieces)
        pieces.clear()

    for line in output.split("\n"):
        if pieces and (_START.match(line) or _TRACE.fullmatch("\n".join(pieces))):
            finish()
        pieces.append(line)
    finish()
    if other and other[-1] == "":
        other.pop()
    return traced, other


def sanitizer_runtimes(program):
    """Paths of the sanitizer run-time libraries that `program` needs; they are preloaded first."""
    listed = subprocess.run(["ldd", str(program)], capture_output=True, text=True, check=False)
    return re.findall(r"=> (\S*/lib[at]san\.so\S*)", listed.stdout)


def send_datagram(path, data, deadline=None):
    """Sends one datagram (text or bytes) to the socket at `path`, however long the path is.

    Waits for the socket to be there, and for room in it.
    """
    data = data.encode() if isinstance(data, str) else data
    path = Path(path)
    wait_until(path.is_socket, f"the socket {path}", deadline)
    folder = os.open(path.parent, os.O_PATH | os.O_DIRECTORY)
    try:
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
            sender.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, max(len(data) * 2, 65536))

            def attempt():
                try:
                    sender.sendto(data, f"/proc/self/fd/{folder}/{path.name}")
                    return True
                except ConnectionRefusedError:
                    return False  # the file of an earlier run: the program is not there yet
            wait_until(attempt, f"somebody to listen at {path}", deadline)
    finally:
        os.close(folder)


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
            if ((kind is None or record["kind"] == kind)
                    and (call is None or record["call"] == call)
                    and (wanted_pid is None or record["pid"] == wanted_pid)):
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
        raise Late(f"the program ended with {self.process.returncode} before {what}; "
                   f"standard error: {self.stderr!r}")

    def _wait(self, seen, what, deadline):
        return wait_until(lambda: seen() or self._alive_or(seen, what), what, deadline)

    def wait_for_record(self, wanted, what="a record", deadline=None):
        """The first record for which wanted(record) is true, or whose call is the text `wanted`."""
        if isinstance(wanted, str):
            name = wanted
            what, wanted = f"a record of {name}", lambda record: record["call"] == name
        return self._wait(lambda: next(filter(wanted, self.records()), None), what, deadline)

    def wait_for_trace(self, text, deadline=None):
        """The first trace line whose text contains `text`."""
        return self._wait(lambda: next(iter(self.trace(text)), None), f"trace {text!r}", deadline)

    def wait_for_stderr(self, text, deadline=None):
        return self._wait(lambda: text in self.stderr, f"{text!r} on standard error", deadline)

    def wait(self, deadline=None):
        """Waits for the end of the program; its exit status, negative for a signal."""
        try:
            return self.process.wait(DEADLINE if deadline is None else deadline)
        except subprocess.TimeoutExpired:
            raise Late(f"the program {self.pid} did not end") from None

    # -- what is done to it ----------------------------------------------------------------

    def send(self, data, deadline=None):
        """Sends one datagram to its socket."""
        send_datagram(self.desk.path(SOCKET), data, deadline)

    def signal(self, number):
        self.process.send_signal(number)

    def wait_for_loop(self, deadline=None):
        """Waits until its main thread takes commands; one that comes before that is lost."""
        def look():
            try:
                name = Path(f"/proc/{self.pid}/comm").read_text(encoding="ascii").strip()
            except FileNotFoundError:
                name = ""
            return name == "bl-dispatcher" or self.process.poll() is not None
        wait_until(look, "the main loop to run", deadline)

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


def _die_with_parent():
    """Runs in the child: a test run that is killed leaves no splash behind."""
    ctypes.CDLL(None).prctl(1, signal.SIGKILL)


class Desk:
    """One root folder with the program's fixed paths below it.

    bootlume, library: paths; by default those of the preset that BOOTLUME_PRESET names ("release").
    root: an existing folder that is kept; by default a new one that close() removes.
    run_prefix: words before the program, for example ["qemu-arm-static", "-L", sysroot]. They run in
    the program's environment, which a static program can bear; prefix_env="-E" gives what is meant for
    the program alone by that option (which an emulator cuts at commas).
    """

    def __init__(self, bootlume=None, library=None, root=None, run_prefix=(), prefix_env=None):
        build = Path(__file__).resolve().parent.parent / "build" / os.environ.get(
            "BOOTLUME_PRESET", "release")
        self.bootlume = Path(bootlume or build / "bin/bootlume").resolve()
        self.library = Path(library or build / "lib/libvirtual-device.so").resolve()
        self._own_root = root is None
        self.root = Path(root or tempfile.mkdtemp(prefix="bootlume-desk-")).resolve()
        self.run_prefix = list(run_prefix)
        self.prefix_env = prefix_env
        self.screen = Screen(self.root / "screen")
        self._started = []
        for path in (SOCKET, TRACE_CONFIG, LANGUAGE, "/sbin/reboot"):
            self.path(path).parent.mkdir(parents=True, exist_ok=True)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        """Ends what still runs and removes the folder."""
        for splash in self._started:
            splash.close()
        self.screen.close()
        if self._own_root:
            shutil.rmtree(self.root, ignore_errors=True)

    def path(self, fixed):
        """Where one of the program's absolute paths lies on this desk."""
        return self.root / str(fixed).lstrip("/")

    def write(self, fixed, content, mode=0o644):
        """Makes the file at an absolute path of the program."""
        path = self.path(fixed)
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content.encode() if isinstance(content, str) else content)
        path.chmod(mode)
        return path

    def trace_config(self, *lines):
        """Writes the trace configuration, in place, so that a running program sees it change."""
        return self.write(TRACE_CONFIG, "".join(line + "\n" for line in lines))

    def language(self, code):
        """Sets the language of the device, for example "zh"."""
        return self.write(LANGUAGE, json.dumps({"selectedLanguage": code}, separators=(",", ":")))

    def reboot_script(self, program, body):
        """Puts a shell script in the place of "/sbin/vrx_reboot" or "/sbin/reboot"."""
        return self.write(program, "#!/bin/sh\n" + body + "\n", 0o755)

    def environment(self, env=None, **settings):
        """The program's environment: that of the caller, the virtual device, and `env` on top.

        A value of None in `env` removes a variable. `settings` are the virtual device's variables
        in lower case without their prefix: refresh=0, faults="open@1=ENOENT" and so on.
        """
        unknown = set(settings) - set(SETTINGS)
        assert not unknown, f"the virtual device has no settings {sorted(unknown)}"
        made = {k: v for k, v in os.environ.items() if not k.startswith("VIRTUAL_DEVICE_")}
        made["LD_PRELOAD"] = ":".join(sanitizer_runtimes(self.bootlume) + [str(self.library)])
        made["VIRTUAL_DEVICE_ROOT"] = str(self.root)
        for name, value in settings.items():
            if value is not None:
                made["VIRTUAL_DEVICE_" + name.upper()] = str(value)
        for name, value in (env or {}).items():
            if value is None:
                made.pop(name, None)
            else:
                made[name] = str(value)
        return made

    def _command(self, arguments, environment):
        """(words, environment of the first of them)."""
        words = [str(self.bootlume), *map(str, arguments)]
        if not self.run_prefix:
            return words, environment
        if not self.prefix_env:
            return self.run_prefix + words, environment
        outside = {k: v for k, v in environment.items()
                   if k != "LD_PRELOAD" and not k.startswith("VIRTUAL_DEVICE_")}
        passed = [word for k, v in environment.items() if k not in outside
                  for word in (self.prefix_env, f"{k}={v}")]
        return self.run_prefix + passed + words, outside

    def start(self, *arguments, env=None, stdout=None, stderr=None, stdin=subprocess.DEVNULL,
              prepare=None, **settings):
        """Starts the program with its arguments; see environment() for env and settings.

        Standard output and error go to files below the root unless other targets are given (as
        subprocess takes them), for example a terminal; then Splash.stdout stays empty. prepare() is
        called in the new process just before the program: for limits, descriptors, signals.
        """
        number = len(self._started)
        files = [self.root / f"{name}.{number}" for name in ("stdout", "stderr", "log")]
        settings.setdefault("log", files[2])
        words, environment = self._command(arguments, self.environment(env, **settings))

        def begin():
            if prepare is not None:
                prepare()
            _die_with_parent()  # last: a change of the user would undo it

        with open(files[0], "ab") as out, open(files[1], "ab") as err:
            process = subprocess.Popen(
                words, env=environment, stdin=stdin, preexec_fn=begin,
                stdout=out if stdout is None else stdout,
                stderr=err if stderr is None else stderr)
        files[2] = Path(settings["log"])
        splash = Splash(self, process, files)
        self._started.append(splash)
        return splash

    def run(self, *arguments, deadline=None, **options):
        """Starts the program and waits for its end; the ended Splash."""
        splash = self.start(*arguments, **options)
        splash.wait(deadline)
        return splash
