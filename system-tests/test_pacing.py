"""How the frames follow one another in time, from the record of what the program did.

A busy machine can only make a frame later, never earlier: lower bounds are exact, and nothing is
said about how late a frame may come.
"""

import re

import pytest

from desk import LANGUAGE, sanitizer_runtimes, wait_until
from faults import Injector

PERIOD = 30_000_000
MS = 1_000_000


def times(running):
    """What the drawing thread did: ("frame" | "queue" | "dequeue" | "sleep", start, end, record).

    A frame begins with the reading of the language.
    """
    named = {"VIDIOC_QBUF": "queue", "VIDIOC_DQBUF": "dequeue", "nanosleep": "sleep"}
    painter = running.wait_for_record("VIDIOC_DQBUF")["tid"]
    steps = []
    for record in running.records(pid="own"):
        what = "frame" if record.get("path") == LANGUAGE else named.get(record["call"])
        if record["tid"] == painter and what:
            start = record["time_ns"]
            steps.append((what, start, start + record["duration_ns"], record))
    return steps


def frames(running):
    """One dictionary of steps a frame; only frames that were followed by another one."""
    found = []
    for step in times(running):
        if step[0] == "frame":
            found.append([])
        found[-1].append(step)
    return [{step[0]: step for step in steps} for steps in found[:-1]]


def starts(running):
    return [step[1] for step in times(running) if step[0] == "frame"]


def run(splash, count, **options):
    """A run of at least `count` flips, from start to end."""
    running = splash("Brem K5", "Bitte warten", **options)
    wait_until(lambda: len(running.records(call="VIDIOC_DQBUF")) > count, f"{count} flips")
    assert running.quit() == 0
    return running


def gaps(running):
    begun = starts(running)
    return [later - earlier for earlier, later in zip(begun, begun[1:])]


def median(numbers):
    return sorted(numbers)[len(numbers) // 2]


@pytest.mark.parametrize("refresh", [60, 50, 0], ids=["60-hz", "50-hz", "display-that-never-waits"])
def test_frames_begin_at_least_30_ms_apart(splash, refresh):
    running = run(splash, 20, refresh=refresh)
    found = gaps(running)
    print(
        f"{len(found)} gaps at {refresh} Hz: shortest {min(found) / MS:.2f} ms, " f"median {median(found) / MS:.2f} ms"
    )
    assert len(found) >= 20
    assert min(found) >= PERIOD


def measured(running):
    """(milliseconds that the program measured, its steps, from its start to the sleep's or the
    next frame's) of each frame; fails where a frame slept for anything but what is left of 30 ms."""
    used = [int(line.text.rsplit("= ", 1)[1]) for line in running.trace("Drawing and Flip time used")]
    found, begun = frames(running), starts(running)
    assert len(used) == len(begun)
    for number, (milliseconds, frame) in enumerate(zip(used, found)):
        whole = (frame["sleep"][1] if "sleep" in frame else begun[number + 1]) - begun[number]
        yield milliseconds, frame, whole
        left = (30 - milliseconds) * MS
        assert (frame["sleep"][3]["requested_ns"] if "sleep" in frame else None) == (left if left > 0 else None)


def test_each_frame_sleeps_once_for_what_is_left_of_30_ms(desk, splash):
    desk.trace_config("bootlume 6 0 0")
    checked = 0
    for milliseconds, frame, whole in measured(run(splash, 20, refresh=60)):
        # From outside: the flip lies within the measured span, and that within the frame.
        flip = frame["dequeue"][2] - frame["queue"][1]
        assert flip - MS < milliseconds * MS <= whole
        checked += 1
    assert checked >= 20


def test_a_display_of_40_ms_adds_no_sleep(desk, splash):
    desk.trace_config("bootlume 6 0 0")
    running = splash("Brem K5", "Bitte warten", refresh=25)

    def long_frames():
        # A machine that is too busy to begin a frame in time sees a shorter wait for the display.
        return [line for line in running.trace("Drawing and Flip") if int(line.text.rsplit("= ", 1)[1]) >= 30]

    wait_until(lambda: len(long_frames()) >= 5, "five frames that wait for the display")
    assert running.quit() == 0
    awake = [frame for milliseconds, frame, _ in measured(running) if milliseconds >= 30]
    assert len(awake) >= 3
    assert all("sleep" not in frame for frame in awake)
    begun = starts(running)
    assert begun[-1] - begun[1] >= (len(begun) - 4) * 40 * MS


# Exactly how long a frame takes is decided by a clock that steps: its reading at the start of a
# frame, after drawing and after the flip.
@pytest.mark.parametrize(
    "drawing_us, flip_us, slept_ms",
    [
        (5_000, 7_000, 18),
        (0, 0, 30),
        (12_999, 0, 18),
        (1_600, 1_600, 27),
        (0, 29_000, 1),
        (29_999, 0, 1),
        (15_000, 15_000, None),
        (0, 30_001, None),
        (20_000, 20_000, None),
        (0, 5_000_000, None),
    ],
)
def test_a_frame_sleeps_for_the_whole_milliseconds_left(desk, splash, preload, drawing_us, flip_us, slept_ms):
    desk.trace_config("bootlume 6 0 0")
    running = splash(refresh=0, env={**preload("test-clocks"), "STEPPING_CLOCK": f"0,{drawing_us},{flip_us}"})
    running.screen.wait_for_frame(6)
    assert running.quit() == 0
    found = frames(running)
    assert len(found) >= 4
    wanted = None if slept_ms is None else slept_ms * MS
    assert {frame["sleep"][3]["requested_ns"] if "sleep" in frame else None for frame in found} == {wanted}
    drawn = {line.text for line in running.trace("Drawing time used")}
    assert drawn == {f" Drawing time used, exec_ms.count() = {drawing_us // 1000}"}
    shown = {line.text for line in running.trace("Drawing and Flip time used")}
    assert shown == {" Drawing and Flip time used, exec_ms.count() = " f"{(drawing_us + flip_us) // 1000}"}


def test_a_clock_that_is_set_back_does_not_stretch_a_sleep(splash, preload):
    running = splash(refresh=0, env={**preload("test-clocks"), "STEPPING_CLOCK": "0,0,-1500000"})
    running.screen.wait_for_frame(4)
    assert running.quit() == 0
    assert {step[3]["requested_ns"] for step in times(running) if step[0] == "sleep"} == {PERIOD}


def test_a_sleep_that_a_signal_cuts_short_is_not_resumed(desk, build_dir, preload, run_prefix):
    """One of the sleeps ends as a signal would end it; a second one for what is left would follow it."""
    if run_prefix:
        pytest.skip("the call has another name in a 32-bit program")
    if sanitizer_runtimes(build_dir / "bin/bootlume"):
        pytest.skip("calls are told apart by their caller, which a sanitizer hides")
    injector = Injector(desk.root / "control")
    running = desk.start(
        refresh=0,
        env={
            **preload("test-clocks", first=["fault-injector"]),  # the device does not see what it fails
            "STEPPING_CLOCK": "0,0,0",
            "FAULT_CONTROL": injector.path,
        },
    )
    running.screen.wait_for_frame(4)
    injector.arm("nanosleep", 1, "EINTR")
    wait_until(injector.struck, "the sleep that is cut short")
    running.screen.wait_for_more(4)
    assert running.quit() == 0
    assert re.fullmatch(STEPS, steps_of(running))
    assert re.findall("fqds?", steps_of(running))[:-1].count("fqd") == 1


# language, queue, dequeue and sleep of each frame, in this order
STEPS = r"(fqds?)+"


def steps_of(running):
    return "".join(step[0][0] for step in times(running))


def test_the_language_is_read_once_a_frame_before_it_is_timed(desk, splash):
    running = splash(refresh=0)
    running.screen.wait_for_frame(5)
    assert running.quit() == 0
    assert re.fullmatch(STEPS, steps_of(running)), steps_of(running)


def test_the_times_are_verbose_lines(desk, splash):
    desk.trace_config("bootlume 5 0 0")
    running = splash(refresh=0)
    running.screen.wait_for_frame(4)
    assert running.quit() == 0
    assert running.trace("time used") == []
