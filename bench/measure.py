"""One row of the table."""

from dataclasses import asdict, dataclass
from typing import Optional


@dataclass
class Measure:
    """A value, what it is held against, and how far it may go.

    `ratio` is value / against, or (with `difference`) value - against; `limit` bounds it. A measure
    with `counted` is a number of instructions or of bytes: it repeats, and `--check` looks at it.
    """

    key: str
    name: str
    value: float
    unit: str
    against_name: str
    against: Optional[float] = None
    limit: Optional[float] = None
    difference: bool = False
    counted: bool = False

    @property
    def ratio(self):
        if self.against is None:
            return None
        if self.difference:
            return self.value - self.against
        return self.value / self.against if self.against else float("inf")

    @property
    def held(self):
        """What the limit bounds."""
        return self.value if self.against is None else self.ratio

    @property
    def ok(self):
        return self.limit is None or self.held <= self.limit

    def record(self):
        return {**asdict(self), "ratio": self.ratio, "ok": self.ok}


def number(value):
    """A figure as a person reads it."""
    if value is None:
        return ""
    if abs(value) >= 10000 or value == int(value):
        return f"{value:,.0f}"
    return f"{value:.3g}" if abs(value) < 100 else f"{value:.1f}"


def cells(measure):
    sign = "+" if measure.difference else ""
    held = "" if measure.ratio is None else f"{measure.ratio:{sign}.3f}".rstrip("0").rstrip(".")
    limit = "" if measure.limit is None else sign + f"{measure.limit:g}"
    verdict = "" if measure.limit is None else ("yes" if measure.ok else "NO")
    return [
        measure.name,
        f"{number(measure.value)} {measure.unit}".strip(),
        measure.against_name,
        number(measure.against),
        held,
        limit,
        verdict,
    ]


HEAD = ["measure", "value", "against", "its value", "ratio", "limit", "ok"]


def text_table(measures):
    rows = [HEAD] + [cells(measure) for measure in measures]
    widths = [max(len(row[column]) for row in rows) for column in range(len(HEAD))]
    return "\n".join("  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip() for row in rows)


def markdown_table(measures):
    rows = [HEAD, ["---"] * len(HEAD)] + [cells(measure) for measure in measures]
    return "\n".join("| " + " | ".join(row) + " |" for row in rows)
