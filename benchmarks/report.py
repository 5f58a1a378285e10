"""What the measures found, as a table, as JSON and as a picture."""

import json
import statistics
from dataclasses import asdict, dataclass, field
from xml.sax.saxutils import escape


@dataclass
class Row:
    """One goal: what was measured against what. `value` is what the goal bounds; None when it was not measured."""

    what: str
    against: str
    goal: float
    value: float | None = None
    unit: str = ""  # of the value; empty for a ratio
    samples: list = field(default_factory=list)
    floor: list = field(default_factory=list)
    samples_unit: str = ""
    note: str = ""

    @property
    def is_met(self):
        return self.value is not None and self.value <= self.goal

    @property
    def verdict(self):
        return "not measured" if self.value is None else "met" if self.is_met else "MISSED"


def ratio(what, against, goal, samples, floor, unit, note=""):
    """A goal for the ratio of two things that were measured in turn: the median of the ratios pair by pair."""
    pairs = [sample / other for sample, other in zip(samples, floor)]
    value = statistics.median(pairs) if pairs else None
    return Row(what, against, goal, value, "", list(samples), list(floor), unit, note)


def spread(values, unit):
    if not values:
        return ""
    if len(values) == 1:
        return f"{values[0]:.4g} {unit}".strip()
    return f"{statistics.median(values):.4g} ({min(values):.4g} to {max(values):.4g}) {unit}".strip()


def table(rows):
    head = ["what", "seen: median (spread)", "against", "its median (spread)", "value", "goal", ""]
    lines = [head] + [[row.what, spread(row.samples, row.samples_unit), row.against,
                       spread(row.floor, row.samples_unit), _number(row.value, row.unit), _number(row.goal, row.unit),
                       row.verdict] for row in rows]
    widths = [max(len(line[column]) for line in lines) for column in range(len(head))]
    rule = "|".join("-" * (width + 2) for width in widths)
    text = ["| " + " | ".join(cell.ljust(width) for cell, width in zip(line, widths)) + " |" for line in lines]
    return "\n".join([text[0], f"|{rule}|", *text[1:]])


def _number(value, unit):
    return "" if value is None else f"{value:.3g} {unit}".strip()


def write_json(rows, machine, path):
    record = {"machine": machine, "rows": [{**asdict(row), "met": row.is_met} for row in rows]}
    path.write_text(json.dumps(record, indent=1, ensure_ascii=False) + "\n", encoding="utf-8")


_BAR_LEFT, _BAR_WIDTH, _ROW_HEIGHT, _WIDTH = 470, 300, 26, 900


def write_picture(rows, path):
    """Each value as a part of its goal, which is the same upright line for all: a bar that stays left of it is met."""
    shown = [row for row in rows if row.value is not None]
    height = 50 + _ROW_HEIGHT * len(shown)
    goal = _BAR_LEFT + _BAR_WIDTH
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{_WIDTH}" height="{height}" '
             'font-family="DejaVu Sans, sans-serif" font-size="12">',
             f'<rect width="{_WIDTH}" height="{height}" fill="white"/>']
    for number, row in enumerate(shown):
        top = 40 + number * _ROW_HEIGHT
        width = max(1, min(max(row.value, 0) / row.goal, 1.3) * _BAR_WIDTH) if row.goal else 1
        colour = "#3b7a57" if row.is_met else "#b3432b"
        parts += [f'<text x="{_BAR_LEFT - 10}" y="{top + 13}" text-anchor="end">{escape(row.what)}</text>',
                  f'<rect x="{_BAR_LEFT}" y="{top}" width="{width:.0f}" height="17" fill="{colour}"/>',
                  f'<text x="{_BAR_LEFT + width + 6:.0f}" y="{top + 13}">{_number(row.value, row.unit)}</text>']
    parts += [f'<line x1="{goal}" y1="28" x2="{goal}" y2="{height - 6}" stroke="#333"/>',
              f'<text x="{goal}" y="20" text-anchor="middle">goal</text>', "</svg>"]
    path.write_text("\n".join(parts) + "\n", encoding="utf-8")
