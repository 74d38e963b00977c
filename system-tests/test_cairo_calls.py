"""The cairo calls of the running program, in order and with their arguments."""

import json
import math
import subprocess
from types import SimpleNamespace

import cairo
import pytest

LATIN = "Univers Next W1G Medium"
CHINESE = "Droid Sans Fallback"
RGB16_565 = 4


@pytest.fixture
def record(desk, preload):
    """record(*texts, frames=n): the cairo calls of a whole run, and what it did to its device."""

    def run(*texts, frames=3, taller=0, **options):
        path = desk.root / "cairo"
        running = desk.start(
            *texts,
            refresh=0,
            **options,
            env={**preload("cairo-recorder"), "CAIRO_RECORDER_LOG": path, "CAIRO_RECORDER_TALLER": taller},
        )
        running.screen.wait_for_frame(frames + 1)
        assert running.quit() == 0
        calls = [json.loads(line) for line in path.read_text().splitlines()]
        # A look at a context's state changes nothing.
        calls = [call for call in calls if call["call"] != "cairo_status"]
        return SimpleNamespace(
            calls=[(call["call"], *call["arguments"]) for call in calls],
            threads=[call["thread"] for call in calls],
            pid=running.pid,
            mapped=[one["address"] for one in running.records(call="mmap")],
            flips=running.records(call="VIDIOC_QBUF")[1:],
        )

    return run


def height(font, size):
    """The height of the sample text as cairo measures it on such a page."""
    context = cairo.Context(cairo.ImageSurface(cairo.Format.RGB16_565, 480, 800))
    context.select_font_face(font, cairo.FONT_SLANT_NORMAL, cairo.FONT_WEIGHT_NORMAL)
    context.set_font_size(size)
    return context.text_extents("cairo").height


def run_of_text(text, font, size, x, y, taller=0):
    return [
        ("cairo_select_font_face", font, 0, 0),
        ("cairo_set_font_size", size),
        ("cairo_text_extents", "cairo", height(font, size) + taller),
        ("cairo_move_to", x, y),
        ("cairo_show_text", text),
    ]


def ring(frame):
    a = (2 * (frame % 66)) * math.pi / 66
    return [
        ("cairo_set_line_width", 6),
        ("cairo_set_source_rgba", 0, 0, 0, 0.21),
        ("cairo_arc", 240, 364, 66, a, a + math.pi),
        ("cairo_stroke",),
        ("cairo_set_line_width", 6),
        ("cairo_set_source_rgba", 0, 0, 0, 0.76),
        ("cairo_arc", 240, 364, 66, a + math.pi, a),
        ("cairo_stroke",),
    ]


BACKGROUND = [("cairo_set_source_rgb", 1, 1, 1), ("cairo_paint",)]
TEXT_COLOUR = [("cairo_set_source_rgb", 0.1, 0.1, 0.1)]
DIVIDER = [
    ("cairo_set_line_width", 0.5),
    ("cairo_set_source_rgb", 0, 0, 0),
    ("cairo_move_to", 18.5, 150.5),
    ("cairo_line_to", 462.5, 150.5),
    ("cairo_stroke",),
]


def assert_whole_run(run, *texts):
    """From the first cairo call to the last: set-up, frames that each draw `texts`, end."""
    frames = len([call for call in run.calls if call[0] == "cairo_paint"])
    assert frames >= 3
    assert len(run.flips) == frames
    surfaces = [call[-1] for call in run.calls[1:3]]
    contexts = [call[-1] for call in run.calls[3:5]]
    assert len(set(surfaces + contexts)) == 4
    expected = [("cairo_format_stride_for_width", RGB16_565, 480, 960)]
    expected += [
        ("cairo_image_surface_create_for_data", start, RGB16_565, 480, 800, 960, surface)
        for start, surface in zip(run.mapped, surfaces)
    ]
    expected += [("cairo_create", surface, context) for surface, context in zip(surfaces, contexts)]
    drawn = BACKGROUND + TEXT_COLOUR + [call for text in texts for call in text] + DIVIDER
    for frame in range(frames):
        expected += [(call[0], contexts[frame % 2], *call[1:]) for call in drawn + ring(frame)]
    expected += [("cairo_surface_destroy", surface) for surface in surfaces]
    for number, (wanted, seen) in enumerate(zip(expected, run.calls)):
        assert seen == wanted, f"call {number}"
    assert len(run.calls) == len(expected)


def test_a_latin_page_with_one_line(record):
    run = record("Brem K5", "Das Gerät wird gestartet")
    assert_whole_run(
        run,
        run_of_text("Brem K5", LATIN, 15, 18, math.trunc(127 + height(LATIN, 15))),
        run_of_text("Das Gerät wird gestartet", LATIN, 21, 18, 163 + height(LATIN, 21)),
    )


def test_a_latin_page_with_two_lines_and_an_empty_one(record):
    run = record("Brem K5 Konfiguration", "eins\n\nBrem K5 drei")
    top = height(LATIN, 21)
    assert_whole_run(
        run,
        run_of_text("Brem K5 Konfiguration", LATIN, 15, 18, math.trunc(127 + height(LATIN, 15))),
        run_of_text("eins", LATIN, 21, 18, 163 + top),
        run_of_text("", LATIN, 21, 18, 190 + top),
        run_of_text("Brem K5 drei", LATIN, 21, 18, 217 + top),
    )


def test_the_default_page(record):
    assert_whole_run(record(), run_of_text("Brem K5 Konfiguration", LATIN, 15, 18, math.trunc(127 + height(LATIN, 15))))


def test_a_chinese_page_with_the_product_name_in_front(desk, record):
    desk.language("zh")
    run = record("Brem K5 配置", "Brem K5 启动\n请稍候")
    title = math.trunc(127 + height(LATIN, 15))
    line = math.trunc(163 + height(LATIN, 21))
    assert_whole_run(
        run,
        run_of_text("Brem K5 ", LATIN, 15, 18, title),
        run_of_text("配置", CHINESE, 15, 74, title - 1),
        run_of_text("Brem K5 ", LATIN, 21, 18, line),
        run_of_text("启动", CHINESE, 21, 98, line - 2),
        run_of_text("请稍候", CHINESE, 21, 18, 190 + height(CHINESE, 21)),
    )


def test_a_chinese_page_with_nothing_behind_the_product_name(desk, record):
    desk.language("zh")
    run = record("Brem K5 ", "Der Brem K5 startet")
    title = math.trunc(127 + height(LATIN, 15))
    assert_whole_run(
        run,
        run_of_text("Brem K5 ", LATIN, 15, 18, title),
        run_of_text("", CHINESE, 15, 74, title - 1),
        run_of_text("Der Brem K5 startet", CHINESE, 21, 18, 163 + height(CHINESE, 21)),
    )


def test_the_title_and_a_line_of_two_runs_stand_on_whole_pixels_and_other_lines_do_not(desk, record):
    desk.language("zh")
    run = record("启动", "Brem K5 启动\n请稍候\nBitte warten", taller=0.75)
    title = 127 + height(CHINESE, 15)
    split = 163 + height(LATIN, 21)
    whole = 190 + height(CHINESE, 21) + 0.75
    assert title == math.trunc(title) and split == math.trunc(split)
    assert_whole_run(
        run,
        run_of_text("启动", CHINESE, 15, 18, title, 0.75),
        run_of_text("Brem K5 ", LATIN, 21, 18, split, 0.75),
        run_of_text("启动", CHINESE, 21, 98, split - 2, 0.75),
        run_of_text("请稍候", CHINESE, 21, 18, whole, 0.75),
        run_of_text("Bitte warten", CHINESE, 21, 18, whole + 27, 0.75),
    )


def test_a_font_without_a_height_gives_both_runs_their_baseline_all_the_same(desk, record):
    desk.language("zh")
    flat = -height(LATIN, 15)
    if height(CHINESE, 15) + flat == 0:
        pytest.skip("both fonts are equally high here")
    run = record("Brem K5 启动", "", taller=flat)
    assert_whole_run(
        run,
        run_of_text("Brem K5 ", LATIN, 15, 18, 127, flat),
        run_of_text("启动", CHINESE, 15, 74, 127 - 1, flat),
    )


def test_in_latin_only_the_title_stands_on_a_whole_pixel(record):
    run = record("Brem K5 Titel", "Brem K5 Zeile", taller=0.75)
    assert_whole_run(
        run,
        run_of_text("Brem K5 Titel", LATIN, 15, 18, 127 + height(LATIN, 15), 0.75),
        run_of_text("Brem K5 Zeile", LATIN, 21, 18, 163 + height(LATIN, 21) + 0.75, 0.75),
    )


def test_the_ring_begins_its_second_turn_with_the_first_angle(record):
    run = record(frames=68)
    arcs = [call[2:] for call in run.calls if call[0] == "cairo_arc"]
    assert arcs[2 * 66] == arcs[0] == (240, 364, 66, 0, math.pi)
    assert arcs[2 * 66 + 1] == arcs[1] == (240, 364, 66, math.pi, 0)
    assert arcs[2 * 33][3] == math.pi
    assert arcs[2 * 67] == arcs[2]


def test_the_page_is_built_and_released_on_the_main_thread_and_drawn_on_one_other(record):
    run = record()
    threads = dict.fromkeys(run.threads)
    assert len(threads) == 2
    painters = {
        thread
        for thread, call in zip(run.threads, run.calls)
        if call[0] in ("cairo_paint", "cairo_stroke", "cairo_show_text")
    }
    others = {thread for thread, call in zip(run.threads, run.calls) if "create" in call[0] or "destroy" in call[0]}
    assert others == {run.pid}
    assert len(painters) == 1 and painters != others


def test_a_failed_flip_draws_the_next_step_of_the_ring_into_the_same_buffer(record):
    run = record(faults="VIDIOC_QBUF@3=EIO")
    begun = [call[1] for call in run.calls if call[0] == "cairo_paint"]
    angles = [call[5] for call in run.calls if call[0] == "cairo_arc"][::2]
    first, second = begun[:2]
    assert first != second
    assert begun[:4] == [first, second, second, first]
    assert angles[:4] == [2 * frame * math.pi / 66 for frame in range(4)]


def test_the_recorder_knows_every_cairo_call_of_the_program(build_dir, self_contained):
    if self_contained:
        pytest.skip("a self-contained program imports none")

    def symbols(which, path):
        listed = subprocess.run(["nm", "-D", which, path], capture_output=True, text=True, check=True).stdout
        return {name for name in listed.split() if name.startswith("cairo_")}

    used = symbols("--undefined-only", build_dir / "bin/bootlume")
    assert "cairo_show_text" in used
    assert used <= symbols("--defined-only", build_dir / "lib/libcairo-recorder.so")
    assert "cairo_destroy" not in used
