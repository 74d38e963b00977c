"""The start-up watchdog: a splash that nobody ends reboots the device, whatever gets in the way.

The reboot programs are real scripts. Where a test needs one to be still at work, the script waits
for a word through a pipe. Runs that only wait for their limits are started together.
"""

import os
import re
import shutil
import signal
import subprocess
import time
from collections import Counter
from dataclasses import dataclass, field

import pytest

from clocks import Clocks
from desk import LOOP, SHELL, Desk, sanitizer_runtimes, wait_until, wait_until_running
from desk.lines import ALL_LINES, MAIN_FILE, OWN_LINES, PROCESS, WATCHDOG, WORKER, lines_of, traced
from unprivileged import User

VRX, PLAIN = "/sbin/vrx_reboot", "/sbin/reboot"
NEVER = 7777
LATER = 6000  # a limit that a test sets the clocks to

SOFT_LIMIT = traced("WARN", "startup timeout: rebooting via VRX", WATCHDOG)
HARD_LIMIT = traced("WARN", "startup timeout: rebooting", WATCHDOG)
VRX_DONE = traced("INFO", "VRX reboot started with result: , result = 0", WATCHDOG)
START = traced("DEBUG", "Function: start", PROCESS)
RESULT = traced("DEBUG", "Function: sendResult", PROCESS)
ALREADY_RUNNING = traced("WARN", "already running", PROCESS)
NO_PROGRAM = "boost::process::detail::posix_start: execve(2) failed: " "No such file or directory"


def vrx_failed(result):
    return traced("ERROR", f"failed to start VRX reboot, rebooting, result = {result}", WATCHDOG)


def plain_done(result=0):
    return traced("INFO", f"reboot started with result: , result = {result}", WATCHDOG)


def works(program, out=(), err=()):
    """What the worker says until the program ends."""
    texts = [
        f"start command: {program} ",
        "command started: , m_childPid = CHILD",
        *(f"{program}: stdout: {line}" for line in out),
        *(f"{program}: stderr: {line}" for line in err),
    ]
    return [traced("DEBUG", text, PROCESS, WORKER) for text in texts]


def ended(program, result):
    return traced("DEBUG", f"child exited: {program}, m_result = {result}", PROCESS, WORKER)


def run_of(program, result=0, out=(), err=()):
    """Every line of a process that is started, ends and reports."""
    return [START, *works(program, out, err), ended(program, result), RESULT]


def watchdog_lines(splash):
    return [re.sub("m_childPid = [0-9]+", "m_childPid = CHILD", line) for line in lines_of(splash, WATCHDOG, PROCESS)]


def by_thread(lines, thread):
    return [line for line in lines if f"({thread:>16})" in line]


def install(desk, program, body):
    """A script in a reboot program's place; None: none. `wait` in it waits for release()."""
    if body is not None:
        gate = desk.path(program + ".gate")
        gate.parent.mkdir(exist_ok=True)
        os.mkfifo(gate)
        desk.write(program, f"{SHELL}wait() {{ read word < '{gate}'; }}\n{body}\n", 0o755)


def release(desk, program):
    """Lets the script go on that waits in its place, or will."""
    with open(desk.path(program + ".gate"), "w", encoding="ascii") as gate:
        gate.write("go\n")


def start(desk, vrx="exit 0", plain="exit 0", soft=None, hard=None, arguments=("-c",), **options):
    """Starts the program with its reboot programs. Few frames: the runs share the machine."""
    env = {
        "SPLASH_TIMEOUT": soft,
        "SPLASH_TIMEOUT_HARD": hard,
        "VRX_REBOOT_COMMAND": None,
        "REBOOT_COMMAND": None,
        **options.pop("env", {}),
    }
    if not desk.path(VRX).exists():
        install(desk, VRX, vrx)
        install(desk, PLAIN, plain)
        desk.trace_config(options.pop("trace", OWN_LINES))
    options.setdefault("refresh", 10)
    return desk.start(*arguments, env=env, **options)


@dataclass
class Scenario:
    """A run without a hand in it: it is over once `last` is there."""

    expected: list
    last: str
    vrx: str = "exit 0"
    plain: str = "exit 0"
    soft: object = 1
    hard: object = NEVER
    env: dict = field(default_factory=dict)
    in_order: int = NEVER  # so many of the loop's lines come first; a second child may be quicker


def plain_reboot():
    return [*run_of(PLAIN), plain_done()]


SCENARIOS = {
    "the first program succeeds, and the second still runs at the hard limit": Scenario(
        [
            SOFT_LIMIT,
            *run_of(VRX, out=["rebooting", "", "  now"], err=["no trouble"]),
            VRX_DONE,
            HARD_LIMIT,
            *run_of(PLAIN, out=["bye"]),
            plain_done(),
        ],
        "both",
        "echo rebooting; echo; echo '  now'; echo no trouble >&2; exit 0",
        "printf bye; exit 0",
        1,
        2,
        in_order=2,
    ),
    "the first program fails": Scenario(
        [SOFT_LIMIT, *run_of(VRX, 3), vrx_failed(3), *plain_reboot()], "reboot started", "exit 3"
    ),
    "the first program fails with the highest status": Scenario(
        [SOFT_LIMIT, *run_of(VRX, 255), vrx_failed(255), *plain_reboot()], "reboot started", "exit 255", soft=0
    ),
    "the first program is missing": Scenario(
        [SOFT_LIMIT, *run_of(VRX, 1, err=[NO_PROGRAM]), vrx_failed(1), *plain_reboot()], "reboot started", None
    ),
    "the first program is killed by a signal": Scenario(
        [SOFT_LIMIT, *run_of(VRX, -1), vrx_failed(-1), *plain_reboot()], "reboot started", "kill -KILL $$"
    ),
    "the first program ends itself by the signal that asks for an end": Scenario(
        [SOFT_LIMIT, *run_of(VRX, -1), vrx_failed(-1), *plain_reboot()], "reboot started", "kill -TERM $$", soft=0
    ),
    "both programs fail": Scenario(
        [SOFT_LIMIT, *run_of(VRX, 1), vrx_failed(1), *run_of(PLAIN, 7), plain_done(7)],
        "reboot started",
        "exit 1",
        "exit 7",
        0,
    ),
    "both programs are missing": Scenario(
        [
            SOFT_LIMIT,
            *run_of(VRX, 1, err=[NO_PROGRAM]),
            vrx_failed(1),
            *run_of(PLAIN, 1, err=[NO_PROGRAM]),
            plain_done(1),
        ],
        "reboot started",
        None,
        None,
    ),
    "the reboot command is empty": Scenario(
        [SOFT_LIMIT, *run_of(VRX, 1), vrx_failed(1), *run_of("", 1, err=[NO_PROGRAM]), plain_done(1)],
        "reboot started",
        "exit 1",
        env={"REBOOT_COMMAND": ""},
    ),
    "the hard limit comes before the soft one": Scenario(
        [HARD_LIMIT, *plain_reboot(), SOFT_LIMIT, *run_of(VRX), VRX_DONE], "both", soft=2, hard=1, in_order=2
    ),
    "a limit of zero and a negative one are due at once": Scenario(
        [SOFT_LIMIT, START, HARD_LIMIT, START, *run_of(VRX)[1:], VRX_DONE, *run_of(PLAIN)[1:], plain_done()],
        "both",
        soft=0,
        hard=-5,
        in_order=4,
    ),
    "the lowest limit that there is is due at once": Scenario(
        [SOFT_LIMIT, *run_of(VRX), VRX_DONE], "VRX reboot started", soft=-2147483648
    ),
    "the highest limit that there is is never due": Scenario(
        [HARD_LIMIT, *plain_reboot()], "reboot started", soft=2147483647, hard=1
    ),
    "limits that are no numbers leave the usual ones": Scenario([], "limits", soft="soon", hard="99999999999"),
}


def is_over(splash, last):
    if last == "limits":
        return len(splash.trace("using parameter")) == 4
    if last == "both":
        return len(splash.trace("started with result")) == 2
    return any(line.text.startswith(" " + last) for line in splash.trace())


@pytest.fixture(scope="module")
def runs(products):
    """All scenarios, started together: their limits run out side by side."""
    desks, started = [], {}
    for name, scenario in SCENARIOS.items():
        desk = Desk(**products)
        desks.append(desk)
        started[name] = start(desk, scenario.vrx, scenario.plain, scenario.soft, scenario.hard, env=scenario.env)
    yield started
    for desk in desks:
        desk.close()


@pytest.mark.parametrize("name", SCENARIOS)
def test_the_watchdog_reboots_when(runs, name):
    scenario = SCENARIOS[name]
    splash = runs[name]
    wait_until(lambda: is_over(splash, scenario.last), name)
    assert wait_until_running(splash).quit() == 0, splash.stderr
    lines = watchdog_lines(splash)
    if scenario.in_order == NEVER:
        assert lines == scenario.expected
    else:
        head = by_thread(scenario.expected, LOOP)[: scenario.in_order]
        assert by_thread(lines, LOOP)[: scenario.in_order] == head
        assert Counter(lines) == Counter(scenario.expected)
    assert splash.other_output() == [] and splash.stderr == ""


@pytest.mark.parametrize("arguments", [(), ("A", "B"), ("A", "-c")], ids=str)
def test_without_the_option_nothing_runs(desk, arguments):
    splash = wait_until_running(start(desk, soft=0, hard=0, arguments=arguments))
    splash.send("New;texts")
    splash.wait_for_trace("Got Message")
    assert splash.quit() == 0
    assert watchdog_lines(splash) == []
    assert splash.trace("SPLASH_TIMEOUT") == []
    assert splash.records(call="execve") == []


def test_programs_are_taken_from_the_environment_and_not_split_at_blanks(desk):
    vrx, plain = f"{desk.root}/my vrx -c", f"{desk.root}/my reboot"
    desk.write("my vrx -c", SHELL + 'echo "$0 has $# arguments"; exit 9\n', 0o755)
    desk.write("my reboot", SHELL + "exit 0\n", 0o755)
    splash = start(desk, soft=0, hard=NEVER, env={"VRX_REBOOT_COMMAND": vrx, "REBOOT_COMMAND": plain})
    splash.wait_for_trace("reboot started with result")
    assert wait_until_running(splash).quit() == 0
    assert watchdog_lines(splash) == [
        SOFT_LIMIT,
        *run_of(vrx, 9, out=[f"{vrx} has 0 arguments"]),
        vrx_failed(9),
        *run_of(plain),
        plain_done(),
    ]


def test_a_first_program_that_is_no_program_leads_to_the_plain_reboot(desk):
    desk.write(VRX, "text", 0o644)
    install(desk, PLAIN, "exit 0")
    desk.trace_config(OWN_LINES)
    splash = start(desk, soft=0, hard=NEVER)
    splash.wait_for_trace("reboot started with result")
    assert wait_until_running(splash).quit() == 0
    refused = "boost::process::detail::posix_start: execve(2) failed: Permission denied"
    assert watchdog_lines(splash) == [SOFT_LIMIT, *run_of(VRX, 1, err=[refused]), vrx_failed(1), *plain_reboot()]


def test_a_first_program_that_succeeds_is_believed_whoever_started_the_splash(desk):
    def ignore_children():  # handed down to a program: nobody then learns how its children end
        signal.signal(signal.SIGCHLD, signal.SIG_IGN)

    splash = start(desk, soft=0, hard=NEVER, prepare=ignore_children)
    splash.wait_for_trace("Function: sendResult")
    assert wait_until_running(splash).quit() == 0
    assert watchdog_lines(splash) == [SOFT_LIMIT, *run_of(VRX), VRX_DONE]


def test_a_first_program_slower_than_the_hard_limit_does_not_hold_the_plain_reboot_up(desk, clocks):
    splash = start(desk, "wait; exit 1", "wait; exit 0", 0, LATER, refresh=0, env=clocks.environment)
    splash.wait_for_trace("command started")
    clocks.set(steady=LATER)
    wait_until(lambda: len(splash.trace("command started")) == 2, "both programs to run")
    release(desk, VRX)
    splash.wait_for_trace("already running")
    release(desk, PLAIN)
    splash.wait_for_trace("reboot started with result")
    assert wait_until_running(splash).quit() == 0
    lines = watchdog_lines(splash)
    assert by_thread(lines, LOOP) == [
        SOFT_LIMIT,
        START,
        HARD_LIMIT,
        START,
        RESULT,
        vrx_failed(1),
        START,
        ALREADY_RUNNING,
        RESULT,
        plain_done(),
    ]
    assert by_thread(lines, WORKER) == [*works(VRX), *works(PLAIN), ended(VRX, 1), ended(PLAIN, 0)]


def test_a_fallback_still_at_work_is_not_started_again_at_the_hard_limit(desk, clocks):
    splash = start(desk, "exit 1", "wait; exit 4", 0, LATER, refresh=0, env=clocks.environment)
    wait_until(lambda: len(splash.trace("command started")) == 2, "both programs to run")
    clocks.set(steady=LATER)
    splash.wait_for_trace("already running")
    release(desk, PLAIN)
    splash.wait_for_trace("reboot started with result")
    assert wait_until_running(splash).quit() == 0
    assert watchdog_lines(splash) == [
        SOFT_LIMIT,
        *run_of(VRX, 1),
        vrx_failed(1),
        START,
        *works(PLAIN),
        HARD_LIMIT,
        START,
        ALREADY_RUNNING,
        ended(PLAIN, 4),
        RESULT,
        plain_done(4),
    ]


def test_a_splash_ended_before_the_limit_starts_nothing(desk):
    splash = wait_until_running(start(desk, soft=NEVER, hard=NEVER))
    assert splash.quit() == 0
    assert watchdog_lines(splash) == []
    assert splash.records(call="execve") == []


def test_a_splash_ended_as_the_limit_comes_either_reboots_or_does_not(desk, clocks):
    """The child runs to its end, or never starts; nothing in between."""
    for lead_ms in (0, 0.5, 1, 1.5, 2, 2.5, 3, 4):  # the loop looks at clocks that were set within 2 ms
        clocks.set(wall=0, steady=0)
        splash = wait_until_running(
            start(desk, "echo at work; exit 0", soft=LATER, hard=NEVER, refresh=0, env=clocks.environment)
        )
        clocks.set(wall=LATER, steady=LATER)
        time.sleep(lead_ms / 1000)
        splash.send("QUIT")
        assert splash.wait() == 0, splash.stderr
        lines = watchdog_lines(splash)
        rebooted = [SOFT_LIMIT, START, *works(VRX, ["at work"]), ended(VRX, 0)]
        # The result of a child that outlives the loop is not told.
        assert lines in ([], rebooted, [*rebooted, RESULT, VRX_DONE])


def overlay_is_closed(splash):
    return splash.wait_for_record(lambda record: record["kind"] == "device" and record["call"] == "close", "the close")


def test_the_end_waits_for_a_reboot_program_that_still_runs(desk):
    splash = start(desk, "wait; echo late; exit 5", soft=0, hard=NEVER, trace=ALL_LINES)
    splash.wait_for_trace("command started")
    wait_until_running(splash).send("QUIT")
    splash.wait_for_trace("destroy dispatcher")
    overlay_is_closed(splash)
    assert splash.process.poll() is None, "it waits"
    release(desk, VRX)
    assert splash.wait() == 0, splash.stderr
    assert splash.stderr == ""
    assert watchdog_lines(splash) == [SOFT_LIMIT, START, *works(VRX, ["late"]), ended(VRX, 5)]
    assert splash.trace()[-1].text != " destroy dispatcher", "the child ended after that"


def test_a_reboot_program_that_has_begun_outlives_a_splash_that_is_killed(desk):
    mark = desk.path("/mark")
    splash = start(desk, f"wait; echo out; echo err >&2; echo done > '{mark}'", soft=0, hard=NEVER)
    splash.wait_for_trace("command started")
    splash.process.kill()
    assert splash.wait() == -signal.SIGKILL
    release(desk, VRX)
    wait_until(mark.exists, "the end of the reboot program")


def test_a_child_that_ended_before_the_end_has_been_reported(desk):
    splash = start(desk, "exit 0", soft=0, hard=NEVER)
    splash.wait_for_trace("VRX reboot started")
    assert wait_until_running(splash).quit() == 0, splash.stderr
    assert splash.stderr == ""
    assert watchdog_lines(splash) == [SOFT_LIMIT, *run_of(VRX), VRX_DONE]


def test_a_child_that_ends_during_the_teardown_does_no_harm(desk):
    install(desk, VRX, "wait; exit 0")
    desk.trace_config(OWN_LINES)
    for _ in range(12):
        splash = start(desk, soft=0, hard=NEVER)
        splash.wait_for_trace("command started")
        wait_until_running(splash).send("QUIT")
        splash.wait_for_trace("End splash-screen")
        release(desk, VRX)
        assert splash.wait() == 0, splash.stderr
        assert splash.stderr == ""
        lines = watchdog_lines(splash)
        untold = [SOFT_LIMIT, START, *works(VRX), ended(VRX, 0)]
        assert lines in (untold, [*untold, RESULT, VRX_DONE])


@pytest.fixture
def lonely_desk(products, preload_dir):
    """A desk of a user without rights and without other processes, with clocks to set."""
    if os.geteuid() != 0:
        pytest.skip("needs root, to become a user of its own")
    if products["run_prefix"]:
        pytest.skip("an emulator starts threads of its own, which count")
    if sanitizer_runtimes(products["bootlume"]):
        pytest.skip("a sanitizer has clocks of its own")
    user = 2_000_000 + os.getpid()
    as_user = ["env", "--chdir=/", "setpriv", f"--reuid={user}", f"--regid={user}", "--clear-groups"]
    with Desk(**{**products, "run_prefix": as_user}) as desk:
        # The build may lie where that user cannot look.
        desk.bootlume = shutil.copy(desk.bootlume, desk.root)
        desk.library = shutil.copy(desk.library, desk.root)
        desk.behind = [shutil.copy(file, desk.root) for file in (*desk.behind, preload_dir / "libtest-clocks.so")]
        desk.clocks = Clocks(desk.root / "clocks", {})
        install(desk, VRX, "exit 0")
        install(desk, PLAIN, "exit 0")
        desk.trace_config(OWN_LINES)
        (desk.root / "log.0").touch()
        User(user).own(desk)
        yield desk


def leave_room_for(splash, more):
    """Lets the splash's user have only so many threads and processes more."""
    tasks = len(os.listdir(f"/proc/{splash.pid}/task"))
    subprocess.run([*splash.desk.run_prefix, "prlimit", f"--pid={splash.pid}", f"--nproc={tasks + more}:"], check=True)


NO_THREAD = traced("ERROR", "failed to start RTQ: , e.what() = Resource temporarily unavailable", PROCESS)
NO_FORK = traced(
    "ERROR",
    "failed to start RTQ: , e.what() = boost::process::detail::posix_start: "
    "fork(2) failed: Resource temporarily unavailable",
    PROCESS,
    WORKER,
)


@pytest.mark.parametrize("room", [0, 1], ids=["no thread", "a thread but no process"])
def test_on_a_full_machine_the_hard_limit_tries_again(lonely_desk, room):
    desk = lonely_desk
    limits = {"soft": LATER, "hard": 2 * LATER}
    splash = wait_until_running(start(desk, **limits, refresh=0, env=desk.clocks.environment))
    leave_room_for(splash, room)
    desk.clocks.set(steady=LATER)
    splash.wait_for_trace("reboot started with result: , result = -1")
    leave_room_for(splash, 100)
    desk.clocks.set(steady=2 * LATER)
    splash.wait_for_trace("reboot started with result: , result = 0")
    assert splash.quit() == 0, splash.stderr

    def failed(program):
        return [START, NO_THREAD, RESULT] if room == 0 else [START, works(program)[0], NO_FORK, RESULT]

    assert watchdog_lines(splash) == [
        SOFT_LIMIT,
        *failed(VRX),
        vrx_failed(-1),
        *failed(PLAIN),
        plain_done(-1),
        HARD_LIMIT,
        *run_of(PLAIN),
        plain_done(),
    ]
    assert splash.stderr == ""


def test_every_callback_runs_on_the_loops_thread(desk):
    splash = start(desk, "exit 2", "exit 3", 0, 0)
    splash.wait_for_trace("reboot started with result")
    assert wait_until_running(splash).quit() == 0
    assert {line.thread for line in splash.trace() if line.file == WATCHDOG} == {LOOP}
    assert {line.thread for line in splash.trace("sendResult")} == {LOOP}
    assert {line.thread for line in splash.trace("child exited")} == {WORKER}
    assert {line.thread for line in splash.trace() if line.file == MAIN_FILE} == {"bootlume"}
