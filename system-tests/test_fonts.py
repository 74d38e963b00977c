"""Fonts that cannot be read: the texts that can be drawn are drawn, and the ring turns."""

import json
import os
import shutil
import subprocess

import pytest

from desk.waiting import wait_until

LATIN = "Univers Next W1G Medium"
CHINESE = "Droid Sans Fallback"
MINUTE_S = 61  # a little more than the texts of a font that cannot be read are left out
MOST_TRIES = 16  # of texts in one font, in a minute
LONG_AGO = (1_000_000_000, 1_000_000_000)  # a folder whose date stays is not read anew
TITLE, DIVIDER, BODY, RING = range(120, 149), range(150, 151), range(160, 280), range(290, 440)

NAME_END, LINE_NAME_END = 86, 120  # of "Brem K5 " in the title, and in a line


def file_of(family):
    return subprocess.run(["fc-match", "--format=%{file}", family], capture_output=True, text=True, check=True).stdout


def rows(frame, which):
    return frame.pixels[which.start * 960 : which.stop * 960]


def is_white(frame, which):
    return set(rows(frame, which)) == {0xFF}


class Fonts:
    """A fonts folder of the splash's own, whose cache is filled."""

    def __init__(self, desk):
        self.desk = desk
        self._folder = desk.root / "fonts"
        self._folder.mkdir()
        configuration = desk.root / "fonts.conf"
        configuration.write_text(
            f"<fontconfig><dir>{self._folder}</dir><cachedir>{desk.root}/fonts-cache</cachedir>"
            f"<alias binding='same'><family>{LATIN}</family><prefer><family>DejaVu Sans</family></prefer></alias>"
            "</fontconfig>"
        )
        self._environment = {"FONTCONFIG_FILE": configuration}
        self._files = {family: self._folder / f"{number}.ttf" for number, family in enumerate((LATIN, CHINESE))}
        for family in self._files:
            self.mend(family)
        first = self.start()
        first.screen.wait_for_frame(2)
        assert first.quit() == 0

    def start(self, *texts, env=None, **options):
        return self.desk.start(*texts, refresh=0, env={**self._environment, **(env or {})}, **options)

    def mend(self, family):
        source = file_of("DejaVu Sans" if family == LATIN else family)
        self._files[family].unlink(missing_ok=True)
        shutil.copyfile(source, self._files[family])
        self._date()

    def spoil(self, family, how):
        file = self._files[family]
        if how == "removed":
            file.unlink()
        else:
            os.truncate(file, 0 if how == "emptied" else 100_000)
        self._date()

    def _date(self):
        for path in [*self._folder.iterdir(), self._folder]:
            os.utime(path, LONG_AGO)


@pytest.fixture
def fonts(desk):
    return Fonts(desk)


def refusals(splash):
    return [line for line in splash.trace("Couldn't draw a text") if line.level == "ERROR"]


def assert_only_ring_and_divider(splash):
    frames = [splash.screen.wait_for_more() for _ in range(3)]
    for frame in frames:
        assert is_white(frame, TITLE) and is_white(frame, BODY)
        assert not is_white(frame, DIVIDER) and not is_white(frame, RING)
    assert len({bytes(rows(frame, RING)) for frame in frames}) == 3, "the ring turns"


@pytest.mark.parametrize("how", ["removed", "emptied", "cut"])
def test_an_unreadable_font_costs_its_texts_and_one_line(fonts, how):
    fonts.spoil(LATIN, how)
    splash = fonts.start("Titel", "eins\nzwei")
    splash.screen.wait_for_more(60)
    assert_only_ring_and_divider(splash)
    (line,) = refusals(splash)
    assert f"font = {LATIN}, " in line.text
    assert splash.quit() == 0


def test_a_lasting_failure_is_one_line_a_minute_and_a_mended_font_comes_back(fonts, clocks):
    sound = fonts.start("Titel", "eins\nzwei")
    page = sound.screen.wait_for_more(10)
    assert sound.quit() == 0
    fonts.spoil(LATIN, "removed")
    splash = fonts.start("Titel", "eins\nzwei", env=clocks.environment)
    splash.screen.wait_for_more(40)
    assert len(refusals(splash)) == 1
    clocks.set(steady=1 * MINUTE_S)
    wait_until(lambda: len(refusals(splash)) == 2, "the second minute's line")
    splash.screen.wait_for_more(40)
    assert len(refusals(splash)) == 2
    fonts.mend(LATIN)
    clocks.set(steady=2 * MINUTE_S)
    splash.screen.wait_for_picture(
        lambda frame: all(rows(frame, part) == rows(page, part) for part in (TITLE, BODY)), "the texts"
    )
    assert len(refusals(splash)) == 2
    assert splash.quit() == 0


def test_a_moment_of_a_language_without_a_font_leaves_the_page_as_it_was(desk, fonts):
    fonts.spoil(CHINESE, "removed")
    splash = fonts.start("Brem K5 Titel", "Zeile")
    page = splash.screen.wait_for_more(10)
    desk.language("zh")
    wait_until(lambda: refusals(splash), "the line")
    assert f"font = {CHINESE}, " in refusals(splash)[0].text
    chinese = splash.screen.wait_for_more(10)
    assert is_white(chinese, BODY)
    for row in TITLE:
        begin, rest = (rows(chinese, range(row, row + 1))[2 * a : 2 * b] for a, b in ((0, NAME_END), (NAME_END, 480)))
        assert set(rest) == {0xFF}
        assert begin == rows(page, range(row, row + 1))[: 2 * NAME_END], "the product's name is drawn as ever"
    desk.language("en")
    splash.screen.wait_for_picture(
        lambda frame: all(rows(frame, part) == rows(page, part) for part in (TITLE, BODY)), "the texts"
    )
    assert rows(splash.screen.wait_for_more(10), RING) != rows(splash.screen.wait_for_more(10), RING)
    assert splash.quit() == 0


def ink(frame, part, left):
    """The first row of a part with anything drawn right of a column, and all such rows' right ends."""
    ends = {row: rows(frame, range(row, row + 1))[2 * left :] for row in part}
    drawn = [row for row, end in ends.items() if set(end) != {0xFF}]
    return drawn[0], [ends[row] for row in drawn]


def test_what_follows_the_products_name_stays_in_its_place_if_only_the_name_cannot_be_drawn(desk, fonts):
    desk.language("zh")
    texts = ("Brem K5 Titel", "Brem K5 Zeile")
    sound = fonts.start(*texts)
    page = sound.screen.wait_for_more(10)
    assert sound.quit() == 0
    fonts.spoil(LATIN, "removed")
    splash = fonts.start(*texts)
    wait_until(lambda: refusals(splash), "the line")
    nameless = splash.screen.wait_for_more(10)
    for part, left in ((TITLE, NAME_END), (BODY, LINE_NAME_END)):
        (top, drawn), (usual_top, usual) = (ink(frame, part, left) for frame in (nameless, page))
        assert drawn == usual
        assert abs(top - usual_top) <= 1, "the two fonts' heights differ by so little"
    assert splash.quit() == 0


def test_a_refused_text_costs_one_context_however_many_frames_there_are(desk, fonts, preload):
    fonts.spoil(LATIN, "removed")
    record = desk.root / "cairo"
    environment = {**preload("cairo-recorder"), "CAIRO_RECORDER_LOG": record}
    splash = fonts.start("Titel", "eins\nzwei", env=environment)
    splash.screen.wait_for_more(60)
    assert splash.quit() == 0
    calls = [json.loads(line)["call"] for line in record.read_text(encoding="utf-8").splitlines()]
    assert calls.count("cairo_paint") >= 50
    assert calls.count("cairo_create") == 2 + len(["Titel", "eins", "zwei"])
    assert calls.count("cairo_show_text") == 3


def test_a_font_that_cannot_be_read_costs_few_contexts_a_minute_however_many_texts(desk, fonts, clocks, preload):
    fonts.spoil(LATIN, "removed")
    record = desk.root / "cairo"
    preloads = preload("test-clocks", "cairo-recorder")
    splash = fonts.start(env={**clocks.environment, **preloads, "CAIRO_RECORDER_LOG": record})

    def contexts():
        return record.read_text(encoding="utf-8").count('"cairo_create"')

    wait_until(lambda: refusals(splash), "the line")
    splash.send("Titel;" + "\n".join(f"Zeile {number}" for number in range(1000)))
    wait_until(lambda: contexts() >= 2 + MOST_TRIES, "the tries")
    splash.screen.wait_for_more(10)
    assert contexts() == 2 + MOST_TRIES
    desk.language("zh")
    splash.screen.wait_for_picture(lambda frame: not is_white(frame, BODY), "the texts in the font that can be read")
    desk.language("en")
    clocks.set(steady=MINUTE_S)
    wait_until(lambda: len(refusals(splash)) == 2, "the second minute's line")
    splash.screen.wait_for_more(10)
    assert contexts() == 2 + 2 * MOST_TRIES
    assert splash.quit() == 0


def test_a_glyph_that_cannot_be_drawn_costs_its_text_and_not_the_ring(desk, preload, self_contained):
    if self_contained:
        pytest.skip("a self-contained program holds FreeType itself")
    splash = desk.start("Titel", "eins", refresh=0, env=preload("broken-glyph"))
    frames = splash.screen.frames(4, first=3)
    for frame in frames:
        assert is_white(frame, TITLE) and not is_white(frame, BODY)
        assert not is_white(frame, DIVIDER)
    assert len({bytes(rows(frame, RING)) for frame in frames}) == 4, "the ring turns in both buffers"
    assert len(refusals(splash)) == 1
    assert splash.quit() == 0
