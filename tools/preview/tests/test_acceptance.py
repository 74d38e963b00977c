"""What the check finds is what a person sees, in texts of many scripts."""

import json
import re
import unicodedata

import pytest

from desk import SOURCE

LIST = SOURCE / "tools/preview/tests/acceptance.tsv"
FONTS = {
    "narrow": None,
    "wide": "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf",
    "many": "/usr/share/fonts/truetype/freefont/FreeSerif.ttf",
}


def entries():
    rows = [line.split("\t") for line in LIST.read_text(encoding="utf-8").splitlines() if not line.startswith("#")]
    for row in rows:
        row[3:] = [re.sub(r"<U\+([0-9A-F]+)>", lambda code: chr(int(code[1], 16)), text) for text in row[3:]]
    return rows


def scripts(text):
    """The scripts of the letters, by the first word of their names."""
    return {unicodedata.name(letter).split()[0] for letter in text if letter.isalpha()}


def test_the_list_has_texts_and_scripts_enough():
    rows = entries()
    assert len({tuple(row[2:]) for row in rows}) >= 60
    assert len(set().union(*(scripts(row[3] + row[4]) for row in rows))) >= 15
    assert {row[0] for row in rows} == set(FONTS)


@pytest.mark.parametrize("font", FONTS)
def test_the_check_finds_what_a_person_sees(preview, tmp_path, font):
    rows = [row for row in entries() if row[0] == font]
    catalogue = tmp_path / "catalogue.tsv"
    catalogue.write_text("".join("\t".join(row[2:]) + "\n" for row in rows), encoding="utf-8")
    options = ["--font-latin", FONTS[font]] if FONTS[font] else []
    done = preview("--check", catalogue, "--json", *options, FONTCONFIG_SYSROOT=SOURCE / "packaging/fontconfig")
    found = []
    for page in json.loads(done.stdout)["pages"]:
        marks = ["?"[: one["severity"] == "warning"] + f"{one['kind']}:{one['line']}" for one in page["findings"]]
        found.append((page["title"], page["lines"], " ".join(marks) or "good"))
    assert found == [(title, lines, verdict) for _, verdict, _, title, lines in rows]
