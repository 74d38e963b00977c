"""Makes each system call of the program fail once, and judges what came of it.

A case is a phase of the program's life, a function, which of its calls there fails, and an errno. The
calls of a phase are counted in a run without a fault. `python3 faults.py FILE` writes the table of all
outcomes to FILE.
"""

import ctypes
import errno
import mmap
import os
import sys
from collections import Counter, namedtuple
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from clocks import Clocks
from desk import LANGUAGE, SHELL, SOCKET, Desk, Late, listens, wait_until

SOURCE = Path(__file__).resolve().parent.parent
HANG = 60  # longer than a busy machine takes for anything
PAUSE = 0.2
LATER = 6000  # a limit that the clocks are set to
FUNCTIONS_AT_MOST = 64
NAME_LENGTH = 24

# The errors that the manual of each call lists and that can come here. An interruption is one of them
# wherever a signal can interrupt the call.
FILE_ERRORS = "EACCES EINTR EMFILE ENFILE ENOENT ENOMEM ELOOP ENOTDIR EIO"
ERRORS = {
    "bind": "EACCES EADDRINUSE EINVAL ENOENT ENOMEM ENOTDIR EROFS",
    "chdir": "EACCES ENOENT ENOMEM ENOTDIR EIO",
    "close": "EBADF EINTR EIO ENOSPC",
    "dup2": "EBADF EBUSY EINTR EMFILE",
    "eventfd": "EINVAL EMFILE ENFILE ENOMEM ENODEV",
    "eventfd_write": "EAGAIN EBADF EINVAL",
    "execve": "E2BIG EACCES EAGAIN EIO ENOENT ENOEXEC ENOMEM EPERM ETXTBSY",
    "fcntl": "EBADF EINVAL EMFILE EINTR",
    "fflush": "EAGAIN EBADF EINTR EIO ENOSPC EPIPE",
    "fork": "EAGAIN ENOMEM ENOSYS",
    "fstat": "EACCES EBADF EFAULT ENOMEM EOVERFLOW EPERM",
    "getcwd": "EACCES ENOENT ENOMEM ERANGE",
    "gettimeofday": "EFAULT",
    "inotify_add_watch": "EACCES EBADF ENOENT ENOMEM ENOSPC",
    "inotify_init": "EMFILE ENFILE ENOMEM",
    "inotify_rm_watch": "EBADF EINVAL",
    "ioctl": "EBADF EINTR EINVAL EIO ENODEV ENOMEM ENOTTY EBUSY",
    "isatty": "EBADF ENOTTY",
    "kill": "EINVAL EPERM ESRCH",
    "lseek": "EBADF EINVAL ESPIPE",
    "mmap": "EACCES EAGAIN EINVAL ENODEV ENOMEM EPERM",
    "munmap": "EINVAL",
    "nanosleep": "EINTR EINVAL EFAULT",
    "open": FILE_ERRORS + " EBUSY ENODEV ENXIO EPERM",
    "__open_2": FILE_ERRORS,
    "pathconf": "EACCES ENOENT EIO ENOMEM",
    "pipe2": "EMFILE ENFILE ENOPKG",
    "poll": "EINTR EINVAL ENOMEM EFAULT",
    "prctl": "EFAULT EINVAL EPERM",
    "pread": "EAGAIN EBADF EFAULT EINTR EINVAL EIO EISDIR ENXIO EOVERFLOW ESPIPE",
    "pthread_create": "EAGAIN EPERM",
    "pthread_sigmask": "EINVAL",
    "read": "EAGAIN EBADF EFAULT EINTR EINVAL EIO EISDIR",
    "recv": "EAGAIN EBADF EINTR ENOMEM ENOTCONN",
    "sched_yield": "ENOSYS",
    "sem_wait": "EINTR EINVAL",
    "shutdown": "EBADF EINVAL ENOTCONN",
    "signal": "EINVAL",
    "sigprocmask": "EFAULT EINVAL",
    "socket": "EACCES EAFNOSUPPORT EMFILE ENFILE ENOBUFS ENOMEM",
    "syscall": "EBADF EINVAL EMFILE ENOMEM ENOSYS",
    "sysconf": "EINVAL",
    "unlink": "EACCES EBUSY EIO EISDIR ENOENT EPERM EROFS",
    "waitpid": "ECHILD EINTR EINVAL",
    "write": "EAGAIN EBADF EINTR EIO ENOSPC EPIPE",
}

# What the program takes from the C library besides: calls that make no system call or have no error,
# waits, what it does only as another user or in another root, and the ways of a program to its end.
OTHERS = """
__assert_fail __cxa_atexit __cxa_finalize __errno_location __gmon_start__ __libc_start_main __snprintf_chk
__stack_chk_fail __syslog_chk __tls_get_addr __vsnprintf_chk _exit abort chroot clock_gettime closelog exit
fileno free fwrite getegid getenv geteuid getgid getpid getuid localtime_r memcmp memcpy memmem memmove memset
openlog perror pthread_cond_clockwait pthread_cond_timedwait pthread_mutex_lock pthread_mutex_unlock
sem_destroy sem_init sem_post setegid seteuid setgid setsid setuid sigaddset sigemptyset sigfillset strchr
strcmp strdup strerror strerror_r strftime strlen strncmp strncpy strtol strtoul tolower tzset
""".split()

# What none of the phases comes to: to end a running child, to size a file that cannot be asked for, to
# open a child's streams by path, to take an empty datagram, and to tell of a child that did not start.
RARE = ("kill", "lseek", "__open_2", "recv", "write")

# What may follow, in words of the documentation.
REFUSED = "a line and status 255"
LINE = "a line, and the splash goes on"
ON = "the splash goes on"
ENDED = "status 0"
LINE_ENDED = "a line and status 0"
REBOOTED = "the reboot follows"
LINE_REBOOTED = "a line, and the reboot follows"
TERMINATED = "the process is terminated: a thread could not be started"
NOT_MADE = "not called"

Case = namedtuple("Case", "phase function nth error")
Outcome = namedtuple("Outcome", "case word lines problem")

PHASES = ("start", "steady", "reboot", "end")


class Control(ctypes.Structure):
    """The injector's file, mapped."""

    _fields_ = [
        ("function", ctypes.c_char * NAME_LENGTH),
        ("countdown", ctypes.c_int32),
        ("failures", ctypes.c_int32),
        ("error", ctypes.c_int32),
        ("struck", ctypes.c_int32),
        ("functions", ctypes.c_int32),
        ("calls", ctypes.c_int32 * FUNCTIONS_AT_MOST),
        ("name", (ctypes.c_char * NAME_LENGTH) * FUNCTIONS_AT_MOST),
    ]


class Injector:
    """One control file; preload/fault_injector.c obeys."""

    def __init__(self, path):
        self.path = path
        path.write_bytes(bytes(ctypes.sizeof(Control)))
        with open(path, "r+b") as file:
            self._map = mmap.mmap(file.fileno(), 0)
        self.control = Control.from_buffer(self._map)

    def arm(self, function, nth, error, failures=1):
        """Makes the nth call from now on fail, and so many in a row."""
        control = self.control
        control.error, control.failures = getattr(errno, error), failures
        control.countdown, control.struck = nth, 0
        control.function = function.encode()

    def struck(self):
        return self.control.struck > 0

    def calls(self):
        """How often each function was called so far, by name."""
        control = self.control
        return Counter(
            {bytes(control.name[i]).split(b"\0")[0].decode(): control.calls[i] for i in range(control.functions)}
        )

    def close(self):
        self.control = None
        self._map.close()


class Bench:
    """Runs cases on desks of their own with the programs of one build."""

    def __init__(self, products):
        """products: how a Desk is told of the build."""
        self.products = products
        self.injector = products["library"].with_name("libfault-injector.so")
        self.counts = {phase: self._count(phase) for phase in PHASES}

    def cases(self, function, most_calls, all_errors=True):
        """Every case of a function: the first call with every errno, the later ones with one each."""
        for phase in PHASES:
            for nth in range(1, min(self.counts[phase][function], most_calls) + 1):
                errors = ERRORS[function].split()
                for error in errors if all_errors or nth == 1 else errors[:1]:
                    yield Case(phase, function, nth, error)

    def run(self, case):
        """The outcome of one case."""
        with Desk(**self.products) as desk:
            injector = Injector(desk.root / "control")
            run = Run(desk, injector, case.phase, self.injector)
            try:
                word = run.play(lambda: injector.arm(case.function, case.nth, case.error))
                if word != TERMINATED and not injector.struck():
                    word = NOT_MADE
                lines = run.lines()
                return Outcome(case, word, lines, run.judge(word))
            except Late as late:
                return Outcome(case, "hung", run.lines(), str(late))
            finally:
                injector.close()

    def _count(self, phase):
        with Desk(**self.products) as desk:
            injector = Injector(desk.root / "control")
            run = Run(desk, injector, phase, self.injector)
            before = Counter()
            run.play(lambda: before.update(injector.calls()))
            calls = injector.calls()
            injector.close()
            return calls - before


class Run:
    """One life of the program with a fault in one phase."""

    def __init__(self, desk, injector, phase, library):
        self.desk = desk
        self.injector = injector
        self.phase = phase
        self.library = library
        self.splash = None
        self.clocks = None
        self.rebooted = desk.root / "rebooted"

    def play(self, arm):
        """Lives through all phases up to the end; the word for what came of the fault."""
        if self.phase == "start":
            arm()
        self._start()
        if self.phase == "start" and self._ended_early():
            return self._word_of_early_end()
        first = self._drawn(2)
        if self.phase != "start":
            self._until(lambda: listens(self.desk.path(SOCKET)), "the socket")
        if self.phase in ("steady", "reboot"):
            arm()
            self._provoke()
        self._until(lambda: self._frame() >= first + 4 or self._gone(), "more frames")
        if self._gone() and self.splash.trace("Nothing read from the socket. Quitting."):
            return LINE_ENDED  # a readable socket that yields nothing ends the splash
        self._drawn(first + 4)
        if self.phase == "end":
            arm()
        self._end()
        return self._word_of_end()

    def judge(self, word):
        """What is wrong with the outcome; empty where the text allows it."""
        status = self.splash.process.returncode
        if word == TERMINATED:
            return "" if self.phase in ("start", "reboot") else "terminated while running"
        if word == REFUSED:
            return "" if self.lines() else "status 255 without a line"
        if status != 0:
            return f"ended with {status}; standard error: {self.splash.stderr[-300:]!r}"
        if self.phase == "reboot" and not self.rebooted.exists():
            return "the reboot is lost"
        return ""

    def lines(self):
        """What it said of the fault."""
        said = [line.text.strip() for line in self.splash.trace() if line.level in ("ERROR", "WARN")]
        said = [text for text in said if not text.startswith("startup timeout")]
        return said + self.splash.other_output() + self.splash.stderr.splitlines()

    def _start(self):
        environment = {
            "LD_PRELOAD": f"{self.library}:{self.desk.environment()['LD_PRELOAD']}",
            "FAULT_CONTROL": self.injector.path,
        }
        self.desk.trace_config("bootlume 4 0 0")
        # Long enough to be read in two pieces, and so to be looked at in between.
        self.desk.write(LANGUAGE, " " * 5000 + '"selectedLanguage":"zh"')
        arguments = ["Title", "Lines"]
        if self.phase == "reboot":
            for program in ("/sbin/vrx_reboot", "/sbin/reboot"):
                self.desk.write(program, f"{SHELL}echo rebooting; : > {self.rebooted}\n", 0o755)
            # The limits come when the fault is armed, and not before.
            preloads = f"{environment['LD_PRELOAD']}:{self.library.with_name('libtest-clocks.so')}"
            self.clocks = Clocks(self.desk.root / "clocks", {"LD_PRELOAD": preloads})
            environment.update(self.clocks.environment)
            environment.update({"SPLASH_TIMEOUT": LATER, "SPLASH_TIMEOUT_HARD": LATER + 1})
            arguments = ["-c"] + arguments
        self.splash = self.desk.start(*arguments, env=environment, refresh=0 if self.clocks else None)

    def _ended_early(self):
        self._until(lambda: self._frame() >= 3 or self._gone(), "the page or the end")
        return self._gone()

    def _word_of_early_end(self):
        status = self.splash.process.returncode
        if status == 255:
            return REFUSED
        if "terminate called" in self.splash.stderr:
            return TERMINATED
        raise Late(f"ended with {status}: {self.splash.stderr[-300:]!r}")

    def _gone(self):
        return self.splash.process.poll() is not None

    def _frame(self):
        try:
            return self.desk.screen.frame_number if self.desk.screen.streaming else 0
        except FileNotFoundError:
            return 0

    def _drawn(self, number):
        """Waits for a frame; its number."""
        self._until(lambda: self._frame() >= number, f"frame {number}")
        return self._frame()

    def _provoke(self):
        """Lets what the phase consists of happen."""
        if self.phase == "reboot":
            self.clocks.set(steady=LATER)
            self._until(lambda: self.splash.trace("reboot started with result"), "a result")
            return
        self.desk.trace_config("bootlume 4 0 0")
        self.splash.send("New title;New line")
        before = self._frame()
        self._until(lambda: self.injector.struck() or self._frame() > before + 6, "the fault")

    def _end(self):
        """Ends it as people do: again and again until it has gone; by a signal without a socket."""

        def gone():
            said = self.splash.stderr
            deaf = "socket error" in said or "bind error" in said
            handled = not any(line.startswith("signal") for line in said.splitlines())
            try:
                if deaf and handled:
                    self.splash.signal(2)
                else:
                    self.splash.send("QUIT", PAUSE)
                self.splash.wait(PAUSE)
            except (Late, OSError):
                pass
            return self.splash.process.poll() is not None

        self._until(gone, "the end")

    def _word_of_end(self):
        said = bool(self.lines())
        if self.phase == "reboot":
            return LINE_REBOOTED if said else REBOOTED
        if self.phase == "end":
            return LINE_ENDED if said else ENDED
        return LINE if said else ON

    @staticmethod
    def _until(look, what):
        wait_until(look, what, HANG)


def outcomes(bench, function, most_calls, all_errors=True, workers=4):
    with ThreadPoolExecutor(workers) as pool:
        return list(pool.map(bench.run, bench.cases(function, most_calls, all_errors)))


def table(results):
    """Lines of the table, one for outcomes that are alike."""
    rows = {}
    for case, word, lines, _ in results:
        line = lines[0].replace("|", "\\|") if lines and word != TERMINATED else ""
        rows.setdefault((PHASES.index(case.phase), case.function, word, line), []).append(case)
    yield "| phase | call | its calls | errors | outcome | first line |\n|---|---|---|---|---|---|"
    for (phase, function, word, line), cases in sorted(rows.items()):
        calls = ", ".join(str(nth) for nth in sorted({case.nth for case in cases}))
        errors = " ".join(sorted({case.error for case in cases}))
        yield f"| {PHASES[phase]} | `{function}` | {calls} | {errors} | {word} | {line} |"


def main(path, build):
    bench = Bench({"bootlume": build / "bin/bootlume", "library": build / "lib/libvirtual-device.so"})
    results = []
    for function in ERRORS:
        results += [outcome for outcome in outcomes(bench, function, most_calls=8) if outcome.word != NOT_MADE]
        print(f"{function}: {len(results)} faults so far", file=sys.stderr)
    broken = [outcome for outcome in results if outcome.problem]
    survived = f"{len(results)} faults, {len(results) - len(broken)} survived as they should be."
    path.write_text("\n".join(["# Faults and what comes of them\n", survived + "\n", *table(results), ""]))
    for outcome in broken:
        print(f"{outcome.case}: {outcome.problem}", file=sys.stderr)
    return 1 if broken else 0


if __name__ == "__main__":
    os.environ.setdefault("PYTHONDONTWRITEBYTECODE", "1")
    sys.exit(main(Path(sys.argv[1]), SOURCE / "build/release"))
