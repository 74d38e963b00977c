"""Writes the table and the breakdowns into docs/performance.md, between the marks there."""

import re

from desk import SOURCE

from .measure import markdown_table

PATH = SOURCE / "docs/performance.md"
LEAST_SHARE = 0.005
NAMES = {"ld-linux-x86-64.so.2": "the dynamic linker", "libc.so.6": "C library"}


def _name(library):
    found = re.match(r"lib([a-z+]+)[-.0-9]*so", library)
    return NAMES.get(library, found[1] if found else library)


def _breakdown(profiles, keys, heads):
    """A table: one library a row, one profile a column."""
    totals = [profiles[key].total for key in keys]
    shares = {}
    for column, key in enumerate(keys):
        for library, count in profiles[key].libraries.items():
            share = count / totals[column]
            name = _name(library) if share >= LEAST_SHARE or library == "bootlume" else "others"
            shares.setdefault(name, [0.0] * len(keys))[column] += share
    rows = sorted(shares.items(), key=lambda row: (row[0] == "others", -row[1][0]))
    lines = ["| instructions in | " + " | ".join(heads) + " |", "|---" * (len(heads) + 1) + "|"]
    lines += ["| " + " | ".join([name] + [f"{100 * share:.2f} %" for share in row]) + " |" for name, row in rows]
    lines.append("| all, in millions | " + " | ".join(f"{total / 1e6:.2f}" for total in totals) + " |")
    return "\n".join(lines)


def _replace(text, mark, content):
    pattern = re.compile(rf"(<!-- {mark} -->\n).*?(<!-- end of {mark} -->)", re.DOTALL)
    assert pattern.search(text), f"docs/performance.md has no marks for {mark}"
    return pattern.sub(lambda found: found[1] + content + "\n" + found[2], text)


def write(measures, profiles, where, loads):
    packages = ", ".join(f"{name} {version}" for name, version in where["packages"].items())
    notes = "".join(f"\n\n**{m.name}**: {m.note}" for m in measures if not m.ok and m.note)
    text = PATH.read_text(encoding="utf-8")
    text = _replace(
        text,
        "table",
        f"{markdown_table(measures)}\n\nMeasured with {loads}; fonts: "
        f"{where['fonts']}; processor: {' '.join(where['processor'])}; {packages}.{notes}",
    )
    text = _replace(
        text,
        "breakdown",
        _breakdown(
            profiles,
            ["start.Latin", "start.Chinese", "frame.Latin", "frame.Chinese"],
            ["start, Latin", "start, Chinese", "frame, Latin", "frame, Chinese"],
        ),
    )
    PATH.write_text(text, encoding="utf-8")


def replace_in_document(mark, content):
    """Writes what stands between one pair of marks anew."""
    PATH.write_text(_replace(PATH.read_text(encoding="utf-8"), mark, content), encoding="utf-8")
