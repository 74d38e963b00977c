"""Writes tables into docs/performance.md, between the marks there."""

import re

from desk import SOURCE

from .measure import markdown_table

PATH = SOURCE / "docs/performance.md"


def write(measures, where, loads):
    packages = ", ".join(f"{name} {version}" for name, version in where["packages"].items())
    surroundings = f"fonts: {where['fonts']}; processor: {' '.join(where['processor'])}; {packages}"
    replace_in_document("table", f"{markdown_table(measures)}\n\nMeasured with {loads}; {surroundings}.")


def replace_in_document(mark, content):
    """Writes what stands between one pair of marks anew."""
    pattern = re.compile(rf"(<!-- {mark} -->\n).*?(<!-- end of {mark} -->)", re.DOTALL)
    text = PATH.read_text(encoding="utf-8")
    assert pattern.search(text), f"docs/performance.md has no marks for {mark}"
    PATH.write_text(pattern.sub(lambda found: found[1] + content + "\n" + found[2], text), encoding="utf-8")
