"""The page on the screen, pixel for pixel, against a page drawn by the tests."""

import re

import pytest

from desk import LANGUAGE
from desk.pictures import WHITE, different_pixels
from reference_page import DEFAULT_TITLE, assert_same, page

# The first picture on the screen is the white one of the set-up; the ring begins with the second.
FIRST = 2


@pytest.fixture
def same(build_dir, run_prefix, request):
    """same(expected, frame): compares pixels; pictures of a difference lie in the build folder."""
    rounding = 4 if run_prefix else 0
    folder = build_dir / "page-differences"
    test = re.sub(r"[^\w.=-]+", "_", request.node.name)

    def compare(expected, frame):
        assert_same(expected, frame.pixels, folder, f"{test}-frame-{frame.number - FIRST}", rounding)

    return compare


@pytest.fixture
def standing(splash):
    """standing(*texts, last=n): the screen stands still with frame n of the ring, and the frames
    before it can still be looked at."""

    def start(*texts, last=1, **options):
        running = splash(*texts, faults=f"VIDIOC_QBUF@{last + FIRST + 1}=block", refresh=0, **options)
        running.screen.wait_for_frame(last + FIRST)
        return running

    return start


def ring(running, number):
    frame = running.screen.frame(number + FIRST)
    assert frame is not None, f"frame {number} is no longer there"
    return frame


def assert_page(running, same, lines, title="Brem K5", chinese=False):
    """Both buffers hold the page: frame 0 lies in the one, frame 1 in the other."""
    for number in (0, 1):
        frame = ring(running, number)
        assert frame.buffer == number
        same(page(title, lines, number, chinese), frame)


def test_the_screen_is_white_until_the_first_frame(standing, same):
    first = standing().screen.frame(1)
    assert first.buffer == 1
    same(WHITE, first)


def test_without_texts_the_default_page_is_shown(standing, same):
    assert_page(standing(), same, [], title="Brem K5 Konfiguration")


def test_both_texts_of_the_command_line_are_shown(standing, same):
    running = standing("Brem K5", "Das Gerät wird gestartet")
    assert_page(running, same, ["Das Gerät wird gestartet"])


@pytest.mark.parametrize(
    "last, numbers", [(1, (0, 1)), (33, (32, 33)), (66, (64, 65, 66))], ids=["start", "half-turn", "turn"]
)
def test_the_ring_turns_by_one_sixty_sixth_a_frame(standing, same, last, numbers):
    running = standing("Brem K5", "Bitte warten", last=last)
    for number in numbers:
        same(page("Brem K5", ["Bitte warten"], number), ring(running, number))


def test_the_ring_is_back_after_sixty_six_frames(standing):
    turned = ring(standing(last=66), 66)
    assert turned.pixels == page(frame=0)


SPLITS = {
    "newline": ("a\nb", ["a", "b"]),
    "backslash-n": (r"a\nb", ["a", "b"]),
    "empty-line-between": ("a\n\nb", ["a", "", "b"]),
    "empty-line-between-by-backslash": (r"a\n\nb", ["a", "", "b"]),
    "empty-first-line": ("\na", ["", "a"]),
    "empty-first-line-by-backslash": (r"\na", ["", "a"]),
    "no-empty-last-line": ("a\n", ["a"]),
    "no-empty-last-line-by-backslash": ("a\\nb\\n", ["a", "b"]),
    "no-lines": ("", []),
    "one-newline": ("\n", [""]),
    "newline-wins-a-tie": ("a\\nb\nc", ["a\\nb", "c"]),
    "backslash-n-with-more-pieces": ("a\\nb\\nc\nd", ["a", "b", "c\nd"]),
    "newline-with-more-pieces": ("a\\nb\nc\nd", ["a\\nb", "c", "d"]),
    "backslash-at-the-end": ("a\\", ["a\\"]),
    "two-backslashes": ("a\\\\nb", ["a\\", "b"]),
}


@pytest.mark.parametrize("text, lines", SPLITS.values(), ids=SPLITS.keys())
def test_the_body_text_is_split_into_lines(standing, same, text, lines):
    assert_page(standing("Brem K5", text), same, lines)


def test_forty_lines_run_below_the_ring_and_off_the_screen(standing, same):
    lines = [f"Zeile {number}: Ärger mit Übergrößen" for number in range(40)]
    assert_page(standing("Brem K5", "\n".join(lines)), same, lines)


def test_a_long_line_runs_off_the_right_edge(standing, same):
    line = "Donaudampfschifffahrtsgesellschaftskapitän " * 4
    assert_page(standing("Brem K5 " * 20, line), same, [line], title="Brem K5 " * 20)


CHINESE_PAGES = {
    "prefix": ("Brem K5 Konfiguration", ["Brem K5 Start"]),
    "prefix-and-chinese": ("Brem K5 配置", ["Brem K5 正在启动", "请稍候"]),
    "no-prefix": ("设备配置", ["正在启动", "Bitte warten"]),
    "prefix-in-the-middle": ("Der Brem K5 startet", ["启动 Brem K5 设备"]),
    "prefix-without-its-blank": ("Brem K5", ["Brem K5"]),
    "prefix-alone": ("Brem K5 ", ["Brem K5 "]),
    "empty": ("", ["", "启动"]),
}


@pytest.mark.parametrize("title, lines", CHINESE_PAGES.values(), ids=CHINESE_PAGES.keys())
def test_chinese_texts_keep_the_product_name_in_latin(desk, standing, same, title, lines):
    desk.language("zh")
    assert_page(standing(title, "\n".join(lines)), same, lines, title, chinese=True)


def test_the_default_title_is_drawn_in_two_fonts_in_chinese(desk, standing, same):
    desk.language("zh")
    assert_page(standing(), same, [], DEFAULT_TITLE, chinese=True)


@pytest.mark.parametrize("chinese", [False, True], ids=["latin", "chinese"])
def test_a_height_between_two_pixels_is_cut_where_it_must_be(desk, standing, preload, same, chinese):
    if chinese:
        desk.language("zh")
    lines = ["Brem K5 Start", "Bitte warten"]
    running = standing(
        "Brem K5 Titel",
        "\n".join(lines),
        env={**preload("cairo-recorder"), "CAIRO_RECORDER_LOG": desk.root / "cairo", "CAIRO_RECORDER_TALLER": "0.75"},
    )
    for number in (0, 1):
        same(page("Brem K5 Titel", lines, number, chinese, taller=0.75), ring(running, number))


SELECTION = b'"selectedLanguage":"zh"'
SETTINGS = {
    "among-others": (b'{"a":1,"selectedLanguage":"zh","b":2}', True),
    "no-json": (b"xx" + SELECTION, True),
    "behind-a-zero-byte": (b"\0" + SELECTION + b"\0", True),
    "in-a-large-file": (b"x" * 3_000_000 + SELECTION, True),
    **{
        f"behind-{count}-bytes": (b"x" * count + SELECTION + b"y" * 5000, True)
        for count in (4073, 4074, 4090, 4095, 4096, 8160)
    },
    "behind-a-near-match": (b'"selectedLanguage":"selectedLanguage":"zh"', True),
    "empty": (b"", False),
    "other-language": (b'{"selectedLanguage":"de"}', False),
    "with-a-blank": (b'{"selectedLanguage": "zh"}', False),
    "longer-code": (b'{"selectedLanguage":"zh-CN"}', False),
    "cut": (SELECTION[:-1], False),
    "other-case": (b'"SelectedLanguage":"zh"', False),
}


@pytest.mark.parametrize("content, chinese", SETTINGS.values(), ids=SETTINGS.keys())
def test_the_settings_file_selects_the_font(desk, standing, same, content, chinese):
    desk.write(LANGUAGE, content)
    assert_page(standing("标题 Brem", "正文 Text"), same, ["正文 Text"], "标题 Brem", chinese)


def test_a_folder_in_place_of_the_settings_file_means_latin(desk, standing, same):
    desk.path(LANGUAGE).mkdir(parents=True)
    assert_page(standing("标题 Brem", ""), same, [], "标题 Brem", chinese=False)


def test_the_language_can_be_switched_while_the_splash_runs(desk, splash, same):
    texts = ("Brem K5 配置", ["Brem K5 启动", "请稍候"])

    def latin(frame):
        return page(*texts, frame, chinese=False)

    def chinese(frame):
        return page(*texts, frame, chinese=True)

    # A slow display, so that no frame is missed on a busy machine.
    running = splash(texts[0], "\n".join(texts[1]), refresh=20)
    screen = running.screen
    frame = screen.wait_for_frame(FIRST)
    same(latin(frame.number - FIRST), frame)
    for code, before, after in (
        ("zh", latin, chinese),
        ("de", chinese, latin),
        ("zh", latin, chinese),
        (None, chinese, latin),
    ):
        if code:
            desk.language(code)
        else:
            desk.path(LANGUAGE).unlink()
        changed = screen.frame_number
        under_way, *others = screen.frames(4, first=changed + 1)
        one_of_the_two = [shown(under_way.number - FIRST) for shown in (before, after)]
        same(min(one_of_the_two, key=lambda shown: different_pixels(shown, under_way.pixels)[0]), under_way)
        for frame in others:
            same(after(frame.number - FIRST), frame)


def test_new_texts_appear_whole_while_the_splash_runs(splash, same):
    running = splash("Brem K5", "alt")
    running.screen.wait_for_frame(FIRST)
    running.send("Brem K5 neu;eins\nzwei")
    wait_for_page(running, "Brem K5 neu", ["eins", "zwei"])
    running.send("Brem K5 neu;" + r"drei\nvier\nfünf")
    wait_for_page(running, "Brem K5 neu", ["drei", "vier", "fünf"])


def wait_for_page(running, title, lines):
    """The first frame that shows the page exactly."""
    return running.screen.wait_for_picture(
        lambda frame: frame.pixels == page(title, lines, frame.number - FIRST), f"the page {title!r} with {lines!r}"
    )


# What stands in a text, and what of it reaches the page.
REPAIRED = {
    "lone-byte": (b"a\xffb", "a\ufffdb"),
    "cut-sequence": (b"a\xe2\x82", "a\ufffd"),
    "noncharacter-fffe": (b"a\xef\xbf\xbeb", "a\ufffdb"),
    "overlong": (b"a\xc0\xafb", "a\ufffd\ufffdb"),
}


@pytest.mark.parametrize("where", ["title", "line"])
@pytest.mark.parametrize("text, shown", REPAIRED.values(), ids=REPAIRED.keys())
def test_a_broken_text_shows_a_replacement_and_the_page_lives_on(splash, same, text, shown, where):
    running = splash("Brem K5", "alt")
    in_title = where == "title"
    running.send(text + b";neu" if in_title else b"neu;" + text)
    wait_for_page(running, shown if in_title else "neu", ["neu" if in_title else shown])
    running.send("Brem K5;wieder gut")
    wait_for_page(running, "Brem K5", ["wieder gut"])
    assert running.quit() == 0


def test_a_broken_text_on_the_command_line_is_drawn_with_a_replacement(standing, same):
    assert_page(
        standing(b"Brem \xff K5".decode(errors="surrogateescape"), "gut"), same, ["gut"], title="Brem \ufffd K5"
    )
