"""The command line and the environment: what is accepted, what is refused, and what is said."""

import pytest

from desk import LOOP, wait_until_running
from desk.lines import MAIN_FILE, OWN_LINES, SERVER, lines_of, still_page, traced

MAIN = SERVER  # main's own thread, before the loop names it
USAGE = traced("ERROR", "Usage: bootlume [-c] Text1 Text2", MAIN_FILE, MAIN)
STARTUP_CHECK = traced("DEBUG", "startup check", MAIN_FILE, MAIN)


def parameter(name, value):
    return traced("DEBUG", f"using parameter: {name} with , value = {value}", MAIN_FILE, MAIN)


def failure(name, default):
    return traced(
        "ERROR",
        f"failed to parse environment value: {name}, using , " f"defaultValue = {default}, stoi",
        MAIN_FILE,
        MAIN,
    )


COMMANDS = [parameter("VRX_REBOOT_COMMAND", "/sbin/vrx_reboot"), parameter("REBOOT_COMMAND", "/sbin/reboot")]
LIMITS = [parameter("SPLASH_TIMEOUT", 180), parameter("SPLASH_TIMEOUT_HARD", 200)]
CLEAN = {name: None for name in ("VRX_REBOOT_COMMAND", "REBOOT_COMMAND", "SPLASH_TIMEOUT", "SPLASH_TIMEOUT_HARD")}


@pytest.fixture
def start(desk):
    """start(*arguments, **variables): a splash that runs, and traces all of its own lines."""
    desk.trace_config(OWN_LINES)

    def run(*arguments, **variables):
        return wait_until_running(desk.start(*arguments, env={**CLEAN, **variables}))

    return run


@pytest.mark.parametrize(
    "arguments, armed",
    [
        ([], False),
        (["-c"], True),
        (["A", "B"], False),
        (["-c", "A", "B"], True),
        (["-cabc", "A", "B"], True),
        (["A", "-c"], False),
        (["-c", "-c", "-c"], True),
        (["-", "c"], False),
        (["", ""], False),
        (["-C", "B"], False),
        (["--", "B"], False),
    ],
    ids=str,
)
def test_a_good_command_line_starts_the_splash(start, arguments, armed):
    splash = start(*arguments)
    splash.screen.wait_for_frame()
    assert splash.quit() == 0
    assert lines_of(splash, MAIN_FILE) == ([STARTUP_CHECK] if armed else []) + COMMANDS + (LIMITS if armed else [])
    assert splash.stderr == "" and splash.other_output() == []


@pytest.mark.parametrize(
    "arguments",
    [
        ["A"],
        ["-c", "A"],
        ["A", "B", "C"],
        ["-c", "A", "B", "C"],
        [""],
        ["-x"],
        ["-c", "A", "B", "-c"],
        ["A", "-c", "B"],
        ["Title"] * 500,
    ],
    ids=lambda arguments: " ".join(arguments)[:20],
)
def test_a_wrong_number_of_texts_ends_with_the_usage_and_status_255(desk, arguments):
    desk.trace_config(OWN_LINES)
    splash = desk.run(*arguments, env=CLEAN)
    assert splash.process.returncode == 255
    assert lines_of(splash, MAIN_FILE) == ([STARTUP_CHECK] if arguments[0].startswith("-c") else []) + [USAGE]
    device = [record["call"] for record in splash.records(kind="device")]
    assert device[0] == "open", "the overlay is opened first"
    assert "VIDIOC_STREAMON" in device
    assert "VIDIOC_STREAMOFF" not in device and "close" not in device, "and is not torn down"
    assert not splash.records(call="bind")


def test_the_usage_is_said_at_the_usual_level_too(desk):
    splash = desk.run("A", env=CLEAN)
    assert splash.process.returncode == 255
    assert lines_of(splash) == [USAGE]


@pytest.mark.parametrize(
    "arguments, texts",
    [
        (["-c"], []),
        (["-cxyz", "A", "B"], ["A", "B"]),
        (["-c", "A", "B"], ["A", "B"]),
    ],
    ids=str,
)
def test_the_option_does_not_change_the_page(start, arguments, texts):
    plain = start(*texts)
    wanted = still_page(plain)
    assert plain.quit() == 0
    splash = start(*arguments)
    assert still_page(splash) == wanted
    assert splash.quit() == 0


def test_the_option_in_second_place_is_a_text(start):
    plain = start("A", "B")
    other = still_page(plain)
    assert plain.quit() == 0
    splash = start("A", "-c")
    assert still_page(splash) != other
    assert splash.quit() == 0


@pytest.mark.parametrize(
    "text, soft",
    [
        ("30x", 30),
        (" \t+31", 31),
        ("2147483647", 2147483647),
        ("0x10", 0),
        ("077", 77),
        ("45.9", 45),
    ],
    ids=repr,
)
def test_a_limit_is_the_number_that_its_text_begins_with(desk, text, soft):
    """A hard limit that lies far away keeps a soft limit of 0 from doing more than being read."""
    desk.trace_config(OWN_LINES)
    desk.reboot_script("/sbin/vrx_reboot", "exit 0")
    splash = wait_until_running(desk.start("-c", env={**CLEAN, "SPLASH_TIMEOUT": text, "SPLASH_TIMEOUT_HARD": "7777"}))
    assert splash.quit() == 0
    assert lines_of(splash, MAIN_FILE) == [
        STARTUP_CHECK,
        *COMMANDS,
        parameter("SPLASH_TIMEOUT", soft),
        parameter("SPLASH_TIMEOUT_HARD", 7777),
    ]


@pytest.mark.parametrize(
    "text", ["abc", "", " ", "-", "x30", "2147483648", "-2147483649", "99999999999999999999"], ids=repr
)
def test_a_limit_that_is_no_number_gives_a_line_and_the_default(start, text):
    splash = start("-c", SPLASH_TIMEOUT=text, SPLASH_TIMEOUT_HARD=text)
    assert splash.quit() == 0
    assert lines_of(splash, MAIN_FILE) == [
        STARTUP_CHECK,
        *COMMANDS,
        failure("SPLASH_TIMEOUT", 180),
        LIMITS[0],
        failure("SPLASH_TIMEOUT_HARD", 200),
        LIMITS[1],
    ]


def test_the_reboot_commands_are_taken_as_they_are(start):
    splash = start(VRX_REBOOT_COMMAND="/a program/with blanks --and options", REBOOT_COMMAND="")
    assert splash.quit() == 0
    assert lines_of(splash, MAIN_FILE) == [
        parameter("VRX_REBOOT_COMMAND", "/a program/with blanks --and options"),
        parameter("REBOOT_COMMAND", ""),
    ]


def test_without_the_option_the_limits_are_not_even_read(start):
    splash = start("A", "B", SPLASH_TIMEOUT="abc", SPLASH_TIMEOUT_HARD="abc")
    assert splash.quit() == 0
    assert lines_of(splash, MAIN_FILE) == COMMANDS


def test_a_display_that_is_not_there_ends_with_status_255(desk):
    splash = desk.run("A", "B", faults="open@1=ENOENT")
    assert splash.process.returncode == 255
    assert [line.text for line in splash.trace()] == [" Couldn't open v4l2 overlay device."]


def test_the_loop_gives_the_main_thread_its_name(start):
    splash = start("-c", SPLASH_TIMEOUT="0", SPLASH_TIMEOUT_HARD="7777")
    splash.wait_for_trace("startup timeout: rebooting via VRX")
    assert splash.quit() == 0
    assert {line.thread for line in splash.trace("startup timeout")} == {LOOP}
