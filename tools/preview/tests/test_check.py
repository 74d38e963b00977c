"""A catalogue's findings are those that the drawn pages have."""

import json
import re

import cairo
import numpy
import pytest

from desk import SOURCE
from preview_desk import drawn, read_png

CATALOGUE = SOURCE / "tools/preview/catalogue.tsv"
RING = (240, 364, 69)
HIGH = "\\n".join("12345")  # the five lines above the ring
BAD = [
    ("en", "Title", "A line that is much too long to be shown on a page of this width", "right", 1),
    (
        "en",
        "A title that is much too long to be shown on a page of this width, however small it is",
        "line",
        "right",
        0,
    ),
    ("en", "Title", HIGH + "\\nA line into the ring", "ring", 6),
    ("en", "Title", "\\n".join("x" * 24) + "\\nlow", "bottom", 25),
    ("ja", "Title", "起動中", "glyph", 1),
    ("zh", "Brem K5", "请稍候", "glyph", 0),
    ("zh", "Brem K5 启动", "请稍候", "overprint", 0),
    ("en", "Ti;tle", "line", "command", None),
    ("en", "Title", "li;ne", "command", None),
    ("en", "Title", "", "command", None),
    ("en", "-cold", "line", "command", None),
    ("en", "Title", "Please wait\\n", "newline", 1),
    ("en", "Tit\\nle", "line", "newline", 0),
    ("he", "Title", "המכשיר", "script", 1),
]


@pytest.fixture
def check(preview, tmp_path):
    """Checks rows; (status, report)."""

    def run(*rows, options=()):
        file = tmp_path / "catalogue.tsv"
        file.write_bytes(b"".join(row if isinstance(row, bytes) else ("\t".join(row) + "\n").encode() for row in rows))
        done = preview("--check", file, "--json", *options)
        assert done.stderr == ""
        return done.returncode, json.loads(done.stdout)

    return run


def test_the_example_passes_and_has_languages_enough(preview):
    done = preview("--check", CATALOGUE, "--json", FONTCONFIG_SYSROOT=SOURCE / "packaging/fontconfig")
    report = json.loads(done.stdout)
    assert done.returncode == 0, [p["findings"] for p in report["pages"]]
    assert (report["error_count"], report["warning_count"]) == (0, 0)
    languages = {page["language"] for page in report["pages"]}
    assert len(languages) >= 8 and "zh" in languages


@pytest.mark.parametrize("language,title,lines,kind,line", BAD)
def test_what_would_not_look_right_is_found(check, language, title, lines, kind, line):
    status, report = check((language, title, lines))
    assert status == 1
    found = [(f["kind"], f["line"]) for f in report["pages"][0]["findings"]]
    assert found == [(kind, line)]


@pytest.mark.parametrize("row", [b"en\tonly two\n", b"en\ta\tb\tfour\n", b"\tTitle\tline\n"])
def test_a_row_that_is_no_page_is_found(check, row):
    status, report = check(row)
    assert status == 1
    assert [f["kind"] for f in report["pages"][0]["findings"]] == ["row"]


def test_text_that_is_not_utf8_is_found(check):
    status, report = check(b"en\tTitle\t\xff\xfe\n")
    assert status == 1
    assert report["pages"][0]["findings"][0]["what"] == "the text is not UTF-8"


def test_comments_and_empty_lines_are_no_pages(check):
    status, report = check(b"# a comment\n\n", ("en", "Title", "line"))
    assert status == 0
    assert [page["row"] for page in report["pages"]] == [3]


def has_ink_in_ring(lines):
    """Whether a page differs within the ring from the same page without its last line."""
    without = "\\n".join(lines.split("\\n")[:-1])
    page, base = drawn(("Title", lines))[0], drawn(("Title", without))[0]
    y, x = numpy.nonzero(page != base)
    cx, cy, radius = RING
    return bool(((x + 0.5 - cx) ** 2 + (y + 0.5 - cy) ** 2 < radius**2).any())


@pytest.mark.parametrize("above", [4, 5, 6, 8, 9, 10])
def test_the_ring_is_where_the_page_has_it(check, above):
    """Lines of growing length beside it: the check says what the pixels say."""
    rows = ["\\n".join("x" * above) + "\\n" + "m" * length for length in range(5, 13)]
    _, report = check(*[("en", "Title", lines) for lines in rows])
    said = [any(f["kind"] == "ring" for f in page["findings"]) for page in report["pages"]]
    assert said == [has_ink_in_ring(lines) for lines in rows]


@pytest.mark.parametrize("language,lines", [("ja", "起動中"), ("ja", "a\\nb\\n  起動中です")])
def test_a_box_is_where_the_page_has_the_ink(check, language, lines):
    _, report = check((language, "Title", lines))
    left, top, right, bottom = report["pages"][0]["findings"][0]["box"]
    without = "\\n".join([*lines.split("\\n")[:-1], " "])
    y, x = numpy.nonzero(drawn(("Title", lines))[0] != drawn(("Title", without))[0])
    ink = (x.min(), y.min(), x.max() + 1, y.max() + 1)
    assert max(abs(a - b) for a, b in zip((left, top, right, bottom), ink)) <= 1


def test_a_line_is_too_long_exactly_where_its_ink_leaves_the_page(check):
    """The widest line that is found good still has all of its ink; one more letter has not."""
    rows = [("en", "Title", "i" * n) for n in range(60, 90)]
    _, report = check(*rows)
    widths = [
        boxes[0][2] if boxes else None
        for boxes in ([f["box"] for f in page["findings"] if f["severity"] == "error"] for page in report["pages"])
    ]
    first_bad = next(i for i, width in enumerate(widths) if width)
    assert all(widths[first_bad:]) and not any(widths[:first_bad])
    assert 480 < widths[first_bad] <= 488
    good = drawn(("Title", rows[first_bad - 1][2]))[0][163:190]
    assert numpy.nonzero(good != 0xFFFF)[1].max() < 480
    bad = drawn(("Title", rows[first_bad][2]))[0][163:190]
    assert numpy.nonzero(bad != 0xFFFF)[1].max() >= 470


def test_the_room_in_a_line_is_what_its_ink_leaves_of_the_divider(check):
    rows = [("en", "Title", "m" * n) for n in (1, 10, 20)] + [("zh", "启动", "请稍候")]
    _, report = check(*rows)
    for (language, *texts), page in zip(rows, report["pages"]):
        frame = drawn(texts, chinese=language == "zh")[0]
        divider = 1 + numpy.nonzero(frame[150] < 0x8410)[0].max()
        for text, first in zip(page["texts"], (127, 163)):
            ink = 1 + numpy.nonzero((frame[first : first + 22] != 0xFFFF).any(axis=0))[0].max()
            assert abs(text["px_left"] - (int(divider) - int(ink))) <= 1


def test_a_text_beyond_the_divider_is_a_warning_and_no_failure(check):
    status, report = check(("en", "Title", "m" * 23))
    assert [(f["severity"], f["kind"]) for f in report["pages"][0]["findings"]] == [("warning", "divider")]
    assert report["pages"][0]["texts"][1]["px_left"] < 0
    assert (status, report["error_count"], report["warning_count"]) == (0, 0, 1)


def test_a_row_that_fits_on_no_command_line_is_said(check):
    status, report = check(("en", "Title", "x" * 140_000))
    assert status == 1
    assert "131071" in report["pages"][0]["findings"][0]["what"]


def test_the_table_has_every_text_and_says_how_many_findings(preview, tmp_path):
    file = tmp_path / "catalogue.tsv"
    file.write_text("en\tGood\tline\\nmore\nen\tBad;\tline\n")
    done = preview("--check", file)
    assert done.returncode == 1
    lines = done.stdout.splitlines()
    assert lines[0] == str(file)
    assert re.fullmatch(r"   1  en +\d+ px left  Good", lines[5])
    assert re.fullmatch(r" +\d+ px left  line", lines[6])
    assert re.fullmatch(r" +\d+ px left  more", lines[7])
    assert re.fullmatch(
        r" +error  the title holds a semicolon, which separates the title from the " r"lines", lines[10]
    )
    assert lines[-1] == "2 pages: 1 error"


def test_the_font_that_was_given_is_what_is_measured(check):
    """A glyph that only the device's own font lacks, and one that only the other lacks."""
    rows = [("zh", "启动", "Latin"), ("zh", "启动", "请稍候")]
    _, with_own = check(*rows)
    _, with_serif = check(*rows, options=("--font-chinese", "/usr/share/fonts/truetype/dejavu/DejaVuSerif.ttf"))
    kinds = [
        [[(f["kind"], f["line"]) for f in page["findings"]] for page in report["pages"]]
        for report in (with_own, with_serif)
    ]
    assert kinds == [[[("glyph", 1)], []], [[("glyph", 0)], [("glyph", 0), ("glyph", 1)]]]
    assert "DejaVu Serif" in with_serif["pages"][1]["findings"][0]["what"]
    assert "DejaVu Serif" in with_serif["fonts"]["chinese"]["drawn_with"]


def test_a_catalogue_that_is_not_there_is_no_finding(preview):
    done = preview("--check", "/nowhere.tsv")
    assert done.returncode == 3
    assert "/nowhere.tsv: No such file or directory" in done.stderr


def test_the_sheet_shows_the_pages_and_marks_the_findings(check, tmp_path):
    file = tmp_path / "sheet.png"
    check(("en", "Good", "line"), ("en", "Title", HIGH + "\\nA line into the ring"), options=("--sheet", file))
    sheet = read_png(file).astype(int)
    # Two pages of 240 x 400, 24 apart, 26 below the upper edge's margin.
    pages = [sheet[50:450, left : left + 240] for left in (24, 288)]
    red = [(page[..., 0] - page[..., 1] > 60) for page in pages]
    assert not red[0].any()
    y, x = numpy.nonzero(red[1])
    assert 298 // 2 - 3 <= y.min() and y.max() <= 325 // 2 + 3
    # Outside the mark both are the program's pages at half their size.
    for page, texts in zip(pages, [("Good", "line"), ("Title", HIGH + "\\nA line into the ring")]):
        frame = drawn(texts)[0]
        dark = (frame >> 11 < 16).reshape(400, 2, 240, 2).all(axis=(1, 3))
        assert (page[dark].max(axis=1) < 160).mean() > 0.95


def note_of(character, family):
    """The character as the sheet writes a note about an error, cut to its ink."""
    surface = cairo.ImageSurface(cairo.Format.RGB24, 24, 24)
    page = cairo.Context(surface)
    page.set_source_rgb(0.925, 0.93, 0.94)
    page.paint()
    page.set_source_rgb(0.80, 0.10, 0.12)
    page.select_font_face(family)
    page.set_font_size(10.5)
    page.move_to(6, 18)
    page.show_text(character)
    picture = numpy.frombuffer(surface.get_data(), "u1").reshape(24, -1, 4)[..., 2::-1]
    y, x = numpy.nonzero((picture != picture[0, 0]).any(axis=2))
    return picture[y.min() : y.max() + 1, x.min() : x.max() + 1]


def test_a_note_on_the_sheet_shows_a_character_in_a_font_that_has_it_and_never_a_box(check, tmp_path):
    file = tmp_path / "sheet.png"
    check(("en", "Title", "起시"), options=("--sheet", file))
    notes = read_png(file)[451:]

    def is_there(small):
        return (numpy.lib.stride_tricks.sliding_window_view(notes, small.shape) == small).all(axis=(3, 4, 5)).any()

    assert is_there(note_of("n", "sans-serif"))
    assert is_there(note_of("起", "Droid Sans Fallback"))
    assert not is_there(note_of("시", "sans-serif"))
    assert not is_there(note_of("시", "Droid Sans Fallback"))
