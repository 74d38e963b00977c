"""Catalogues in their formats, and a catalogue that is watched."""

import json
import os
import re
import signal
import subprocess

import pytest

from desk import read_line
from preview_desk import PREVIEW, SECONDS, environment, read_png

LINES = "Das Gerät wird gestartet\\nBitte warten"
HEADER = 'msgid ""\nmsgstr ""\n"Language: de\\n"\n"Content-Type: text/plain; charset=UTF-8\\n"\n\n'


@pytest.fixture
def pages(preview, tmp_path):
    """The pages of a catalogue: (row, language, title, lines, findings)."""

    def read(name, content):
        file = tmp_path / name
        file.write_bytes(content.encode())
        done = preview("--check", file, "--json")
        assert done.stderr == ""
        return [
            (*(page[key] for key in ("row", "language", "title", "lines")), [one["what"] for one in page["findings"]])
            for page in json.loads(done.stdout)["pages"]
        ]

    return read


def test_a_byte_order_mark_hides_neither_a_comment_nor_a_language(pages):
    assert pages("c.tsv", "\ufeff# a comment\nde\tBrem K5\tx\r\n") == [(2, "de", "Brem K5", "x", [])]
    assert pages("c.tsv", "\ufeffde\tBrem K5\tx\n") == [(1, "de", "Brem K5", "x", [])]
    assert pages("c.csv", "\ufefflanguage,title,lines\nde,Brem K5,x\n") == [(2, "de", "Brem K5", "x", [])]


@pytest.mark.parametrize("mark", [",", ";", "\t"])
def test_a_spreadsheet_has_its_columns_by_their_names(pages, mark):
    rows = [["Lines", "who", "TITLE", "Language"], ['"one\ntwo"', "x", '" a ""b"" "', "de"], ["y", "", " t ", "fr"]]
    text = "\r\n".join(mark.join(row) for row in rows)
    assert pages("c.csv", text) == [(2, "de", ' a "b" ', "one\ntwo", []), (3, "fr", " t ", "y", [])]


def test_a_row_of_a_spreadsheet_that_is_no_page_is_found(pages):
    found = pages("c.csv", "language,title,lines\nde,Title\n,Title,line\n")
    assert [page[4] for page in found] == [["the row has 2 fields, the header 3"], ["the language is missing"]]


def test_a_translation_is_a_page_if_it_is_a_text_command(pages):
    text = HEADER + (
        'msgid "Cancel"\nmsgstr "Abbrechen"\n\n'
        f'msgid "Brem K5;Please wait"\nmsgstr "Brem K5;{LINES}"\n\n'
        '#, fuzzy\nmsgid "Brem K5;Update"\nmsgstr "Brem K5;Alt"\n\n'
        'msgid "Brem K5;Start"\nmsgstr ""\n\n'
        'msgid "Brem K5;Stop"\nmsgstr "Brem K5 Halt"\n\n'
        '#~ msgid "Brem K5;Old"\n#~ msgstr "Brem K5;Alt"\n'
    )
    doubt = "not translated: the program's own text is shown"
    assert pages("c.po", text) == [
        (3, "de", "Brem K5", LINES.replace("\\n", "\n"), []),
        (4, "de", "Brem K5", "Update", [doubt]),
        (5, "de", "Brem K5", "Start", [doubt]),
        (6, "de", "Brem K5 Halt", "", ["the semicolon between the title and the lines is missing"]),
    ]


def test_a_translation_without_a_language_has_the_one_of_its_name(pages):
    assert pages("zh.po", 'msgid "a;b"\nmsgstr "启动;请稍候"\n') == [(1, "zh", "启动", "请稍候", [])]


@pytest.mark.parametrize(
    "name,content,reason",
    [
        ("c.tsv", "", "holds no page"),
        ("c.tsv", "# a comment\n\n", "holds no page"),
        ("c.csv", "language,title,lines\n", "holds no page"),
        ("c.csv", "", 'has no column "language"'),
        ("c.csv", "language,lines\nde,x\n", 'has no column "title"'),
        ("c.csv", 'language,title,lines\nde,"x,y\n', "row 2: "),
        ("c.po", HEADER, "holds no page"),
        ("c.po", 'msgid "a;b"\nnonsense\n', "line 2: "),
    ],
)
def test_what_is_no_catalogue_is_refused(preview, tmp_path, name, content, reason):
    file = tmp_path / name
    file.write_text(content)
    done = preview("--check", file)
    assert (done.returncode, done.stdout) == (3, "")
    assert done.stderr.startswith(f"bootlume-preview: {file}") and reason in done.stderr


@pytest.mark.parametrize("option", ["--check", "--watch", "--pages", "--png", "--sheet", "--root"])
def test_an_empty_name_is_refused(preview, option):
    done = preview(option, "")
    assert done.returncode == 2
    assert f"{option}: an empty name" in done.stderr


def save(file, text):
    file.write_text(text)


def replace(file, text):
    beside = file.with_suffix(".tmp")
    beside.write_text(text)
    os.replace(beside, file)


@pytest.fixture
def watching(scratch, tmp_path):
    """Watches a catalogue of one page; the process, with its report in lines."""
    catalogue = tmp_path / "catalogue.tsv"
    catalogue.write_text("de\tBrem K5\tx\n")
    started = subprocess.Popen(
        [PREVIEW, "--watch", catalogue], stdout=subprocess.PIPE, text=True, env=environment(scratch), cwd=tmp_path
    )
    yield started
    started.kill()
    started.wait()
    started.stdout.close()


def next_verdict(watching):
    lines = iter(lambda: read_line(watching.stdout), "")
    verdict = next(line for line in lines if re.match(r"\d+ pages?: ", line))
    assert next(lines) == "written: bootlume-sheet.png\n"
    return verdict


@pytest.mark.parametrize("write", [save, replace])
def test_a_watched_catalogue_is_drawn_anew_when_it_is_saved(watching, tmp_path, write):
    catalogue, sheet = tmp_path / "catalogue.tsv", tmp_path / "bootlume-sheet.png"
    assert next_verdict(watching) == "1 page: good\n"
    assert read_png(sheet).shape[1] == 24 + 264
    write(catalogue, "de\tBrem K5\tx\nde\tBrem K5\\n\tx\n")
    assert next_verdict(watching) == "2 pages: 1 error\n"
    assert read_png(sheet).shape[1] == 24 + 2 * 264
    write(catalogue, "nonsense")
    assert next_verdict(watching) == "1 page: 1 error\n"


def test_watching_goes_on_while_a_catalogue_cannot_be_read_and_ends_by_a_signal(watching, tmp_path):
    catalogue = tmp_path / "catalogue.tsv"
    assert next_verdict(watching) == "1 page: good\n"
    catalogue.write_text("")
    catalogue.write_text("de\tBrem K5\tx\nde\tBrem K5\tx\n")
    assert next_verdict(watching) == "2 pages: good\n"
    watching.send_signal(signal.SIGINT)
    assert watching.wait(SECONDS) == -signal.SIGINT


def test_watching_ends_when_nobody_reads_the_reports(watching):
    assert next_verdict(watching) == "1 page: good\n"
    watching.stdout.close()
    assert watching.wait(SECONDS) == -signal.SIGPIPE
