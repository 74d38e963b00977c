"""What the program asks of its display: every call at the start, in a flip and at the end, and what
it does when one of them fails."""

import os

import pytest

from desk import DEVICE
from desk.lines import SURFACE

OUTPUT, MMAP, RGB565, ANY_FIELD, SRGB = 2, 1, 0x50424752, 0, 8
READ_WRITE, SHARED = 3, 1


def calls(running):
    """The device calls of the program itself, oldest first."""
    return running.records(kind="device", pid="own")


def names(records):
    return [record["call"] for record in records]


def some(record, *keys):
    """What the program passed in, of these fields."""
    return {key: record["in"][key] for key in keys}


def memory(running, mapping):
    """What is in a mapped buffer."""
    with open(f"/proc/{running.pid}/mem", "rb", buffering=0) as file:
        file.seek(int(mapping["address"], 16))
        return file.read(mapping["length"])


START = [
    "open",
    "VIDIOC_QUERYCAP",
    "VIDIOC_G_FMT",
    "VIDIOC_S_FMT",
    "VIDIOC_REQBUFS",
    "VIDIOC_QUERYBUF",
    "mmap",
    "VIDIOC_QUERYBUF",
    "mmap",
    "VIDIOC_QBUF",
    "VIDIOC_STREAMON",
]
FLIP = ["VIDIOC_QBUF", "VIDIOC_DQBUF"]
END = ["VIDIOC_STREAMOFF", "munmap", "munmap", "close"]


@pytest.fixture
def started(splash):
    """Calls of a set-up that stands still in its first frame's flip, and the program."""
    running = splash(faults="VIDIOC_QBUF@2=block")
    running.wait_for_fault("the first flip")
    return running


def test_the_set_up_makes_its_calls_in_order_and_once(started):
    made = calls(started)
    assert names(made) == START
    assert [record["tid"] for record in made] == [started.pid] * len(made)
    assert [record["error"] for record in made if record["errno"]] == []


def test_the_device_is_opened_for_reading_and_writing_and_blocking(started):
    opened = calls(started)[0]
    assert opened["path"] == DEVICE
    assert opened["flags"] & os.O_ACCMODE == os.O_RDWR
    assert not opened["flags"] & os.O_NONBLOCK
    assert {record["fd"] for record in calls(started)[1:]} == {opened["result"]}


PAGE = {
    "type": OUTPUT,
    "width": 480,
    "height": 800,
    "pixelformat": RGB565,
    "field": ANY_FIELD,
    "colorspace": SRGB,
}


def test_the_format_is_the_drivers_own_with_the_page_put_in(started):
    get, put = calls(started)[2:4]
    assert get["in"]["type"] == OUTPUT
    assert put["in"] == {**get["out"], **PAGE}


def test_a_failed_reading_of_the_format_leaves_zeros_around_the_page(splash):
    running = splash(faults="VIDIOC_G_FMT@1=EINVAL")
    put = running.wait_for_record("VIDIOC_S_FMT")
    assert put["in"] == {**PAGE, "bytesperline": 0, "sizeimage": 0}
    running.screen.wait_for_frame(2)
    assert running.quit() == 0


def test_two_mapped_buffers_are_asked_for(started):
    request = calls(started)[4]
    assert request["in"] == {"count": 2, "type": OUTPUT, "memory": MMAP, "reserved": 0}


def test_each_buffer_is_queried_and_mapped_as_the_driver_says(started):
    made = calls(started)
    for index, (query, mapping) in enumerate((made[5:7], made[7:9])):
        assert query["in"] == {"index": index, "type": OUTPUT, "memory": MMAP, "bytesused": 0, "flags": 0, "field": 0}
        assert mapping["length"] == query["out"]["length"]
        assert mapping["offset"] == query["out"]["offset"]
        assert (mapping["prot"], mapping["flags"]) == (READ_WRITE, SHARED)


def test_buffer_1_is_queued_before_the_stream_is_switched_on(started):
    queued, on = calls(started)[9:11]
    assert queued["in"] == {"index": 1, "type": OUTPUT, "memory": MMAP, "bytesused": 0, "flags": 0, "field": 0}
    assert on["in"] == {"type": OUTPUT}


def test_both_buffers_are_white_after_the_set_up(splash, run_prefix):
    if run_prefix:
        pytest.skip("an emulated program's memory lies elsewhere")
    running = splash(faults="VIDIOC_STREAMON@1=block")
    running.wait_for_fault("the set-up's last step")
    mapped = running.records(call="mmap")
    assert len(mapped) == 2
    for mapping in mapped:
        assert memory(running, mapping) == b"\xff" * mapping["length"]


def test_a_longer_buffer_is_white_to_its_end_and_unmapped_whole(desk, splash, run_prefix):
    running = splash(faults="VIDIOC_STREAMON@1=hold", format="sizeimage=1000000")
    running.wait_for_fault("the set-up's last step")
    mapped = running.records(call="mmap")
    assert [mapping["length"] for mapping in mapped] == [1000000, 1000000]
    if not run_prefix:
        assert memory(running, mapped[0]) == b"\xff" * 1000000
    desk.go_on()
    assert running.quit() == 0
    assert [one["length"] for one in running.records(call="munmap")] == [1000000, 1000000]


def test_flips_take_turns_from_buffer_0_on(splash):
    running = splash(refresh=0)
    running.screen.wait_for_frame(7)
    assert running.quit() == 0
    flips = calls(running)[len(START) : -len(END)]
    assert names(flips) == FLIP * (len(flips) // 2)
    assert len(flips) >= 12
    for number, (queued, dequeued) in enumerate(zip(flips[::2], flips[1::2])):
        free, other = number % 2, 1 - number % 2
        wanted = {"type": OUTPUT, "memory": MMAP}
        assert some(queued, "index", "type", "memory") == {"index": free, **wanted}
        assert some(dequeued, "index", "type", "memory") == {"index": other, **wanted}
        assert dequeued["out"]["index"] == other
    assert len({record["tid"] for record in flips}) == 1
    assert flips[0]["tid"] != running.pid


def failures(running):
    return [(line.level, line.text) for line in running.trace() if line.level in ("ERROR", "FATAL")]


FATAL = {
    "open": ("open@1=ENOENT", ["Couldn't open v4l2 overlay device."], "open"),
    "format": ("VIDIOC_S_FMT@1=EINVAL", ["Couldn't set the video FMT."], "VIDIOC_S_FMT"),
    "request": (
        "VIDIOC_REQBUFS@1=ENOMEM",
        ["Couldn't get request buffers.", "Couldn't allocate video buffers."],
        "VIDIOC_REQBUFS",
    ),
    "query-0": (
        "VIDIOC_QUERYBUF@1=EINVAL",
        ["Couldn't query video buffers.", "Couldn't allocate video buffers."],
        "VIDIOC_QUERYBUF",
    ),
    "query-1": (
        "VIDIOC_QUERYBUF@2=EINVAL",
        ["Couldn't query video buffers.", "Couldn't allocate video buffers."],
        "VIDIOC_QUERYBUF",
    ),
    "map-0": ("mmap@1=ENOMEM", ["Couldn't allocate video buffers."], "mmap"),
    "map-1": ("mmap@2=ENOMEM", ["Couldn't allocate video buffers."], "mmap"),
    "queue": ("VIDIOC_QBUF@1=EIO", ["Couldn't queue buffer, m_freeBuffer.index = 1"], "VIDIOC_QBUF"),
    "stream-on": ("VIDIOC_STREAMON@1=EIO", ["Couldn't set video device to stream on."], "VIDIOC_STREAMON"),
}


@pytest.mark.parametrize("level", [4, 1], ids=["usual", "silent"])
@pytest.mark.parametrize("fault, texts, last", FATAL.values(), ids=FATAL.keys())
def test_a_display_that_cannot_be_set_up_ends_the_program(desk, fault, texts, last, level):
    desk.trace_config(f"bootlume {level} 0 0")
    running = desk.run("Brem K5", "Bitte warten", faults=fault)
    assert running.wait() == 255
    assert failures(running) == ([("ERROR", " " + text) for text in texts] if level == 4 else [])
    assert running.stdout != "" or level == 1
    assert names(calls(running))[-1] == last
    assert not desk.path("/tmp/.bootlume").exists()


HARMLESS = {
    "capabilities": ("VIDIOC_QUERYCAP@1=ENOTTY", "Couldn't query caps from overlay device."),
    "get-format": ("VIDIOC_G_FMT@1=EINVAL", "Couldn't get format from overlay device."),
    "stream-off": ("VIDIOC_STREAMOFF@1=EIO", "FAILED to VIDIOC_STREAMOFF."),
}


@pytest.mark.parametrize("fault, text", HARMLESS.values(), ids=HARMLESS.keys())
def test_a_failure_that_does_not_matter_is_logged_and_passed_over(splash, fault, text):
    running = splash("Brem K5", "Bitte warten", faults=fault)
    running.screen.wait_for_frame(4)
    assert running.quit() == 0
    assert failures(running) == [("ERROR", " " + text)]
    made = names(calls(running))
    assert made[: len(START)] == START
    assert made[-4:] == END


def flip_calls(running, count):
    """(call, index passed in, whether it failed) of the first flips."""
    records = calls(running)[len(START) : len(START) + count]
    return [(record["call"], record["in"]["index"], record["errno"] != 0) for record in records]


def test_a_buffer_that_cannot_be_queued_stays_free_and_is_tried_again(splash):
    running = splash(refresh=0, faults="VIDIOC_QBUF@3=EIO,VIDIOC_QBUF@4=EIO")
    running.screen.wait_for_frame(5)
    assert running.quit() == 0
    queue, dequeue = FLIP
    assert flip_calls(running, 9) == [
        (queue, 0, False),
        (dequeue, 1, False),
        (queue, 1, True),
        (queue, 1, True),
        (queue, 1, False),
        (dequeue, 0, False),
        (queue, 0, False),
        (dequeue, 1, False),
        (queue, 1, False),
    ]
    assert failures(running) == [("ERROR", " Couldn't queue buffer, m_freeBuffer.index = 1")] * 2
    assert names(calls(running))[-4:] == END


def test_a_failed_dequeue_leaves_the_other_buffer_free(splash):
    running = splash(refresh=0, faults="VIDIOC_DQBUF@2=EIO")
    running.wait_for_record(
        lambda record: record["call"] == "VIDIOC_QBUF" and record["errno"],
        "the queueing of a buffer that the driver still holds",
    )
    assert running.quit() == 0
    queue, dequeue = FLIP
    # The second flip passes its toggled index in, 0, and goes on with it. That buffer was never
    # handed back, so the driver refuses it from then on, and each frame is drawn into it again.
    assert flip_calls(running, 5) == [
        (queue, 0, False),
        (dequeue, 1, False),
        (queue, 1, False),
        (dequeue, 0, True),
        (queue, 0, True),
    ]
    lines = failures(running)
    assert lines[0] == ("ERROR", " Couldn't dequeue buffer, m_freeBuffer.index = 0")
    assert lines[1] == ("ERROR", " Couldn't queue buffer, m_freeBuffer.index = 0")
    assert names(calls(running))[-4:] == END


def test_a_driver_that_grants_one_buffer_ends_the_program(desk):
    running = desk.run(buffers=1)
    assert running.wait() == 255
    assert names(calls(running))[-2:] == ["mmap", "VIDIOC_QUERYBUF"]
    assert calls(running)[-1]["in"]["index"] == 1
    assert failures(running) == [
        ("ERROR", " Couldn't query video buffers."),
        ("ERROR", " Couldn't allocate video buffers."),
    ]


@pytest.mark.parametrize(
    "adjusted", ["height=400", "width=240,height=800,bytesperline=480", "sizeimage=767999,height=799"]
)
def test_buffers_too_small_for_the_page_end_the_program(desk, adjusted):
    running = desk.run(format=adjusted)
    assert running.wait() == 255
    queried = running.records(call="VIDIOC_QUERYBUF")[-1]
    assert queried["out"]["length"] < 480 * 800 * 2
    assert failures(running) == [("ERROR", " Couldn't allocate video buffers.")]
    assert running.records(call="VIDIOC_STREAMON") == []


def test_the_set_up_tells_what_it_found_at_debug(desk, splash):
    desk.trace_config("bootlume 5 0 0")
    running = splash(faults="VIDIOC_QUERYCAP@1=ENOTTY")
    running.screen.wait_for_frame(2)
    assert running.quit() == 0
    told = [(line.level, line.tag, line.text, line.file) for line in running.trace() if "surface" in line.file]
    assert told == [
        ("ERROR", "", " Couldn't query caps from overlay device.", SURFACE),
        ("DEBUG", "", " Device Caps, vid_caps.capabilities = 0", SURFACE),
        ("DEBUG", "", " Allocated buffer with length, vbuffer.length = 768000", SURFACE),
        ("DEBUG", "", " Allocated buffer with length, vbuffer.length = 768000", SURFACE),
    ]


def test_the_capabilities_are_told_as_a_whole_number(desk, splash):
    desk.trace_config("bootlume 5 0 0")
    running = splash()
    told = running.wait_for_trace("Device Caps")
    found = running.wait_for_record("VIDIOC_QUERYCAP")["out"]["capabilities"]
    assert found > 2**31
    assert told.text == f" Device Caps, vid_caps.capabilities = {found}"
    assert running.quit() == 0
