"""The rows of a run as a table, as JSON and as a picture."""

import dataclasses
import html
import json
import math
import os


@dataclasses.dataclass
class Row:
    what: str
    against: str
    at_least: bool  # the ratio is ours over the other's, of rates; else of costs, wanted at most so high
    wanted: float | None
    quartiles: list  # of the pairs' ratios: low, median, high
    notes: dict

    def wish(self):
        return f"{'at least' if self.at_least else 'at most'} {self.wanted:g}" if self.wanted else "reported"

    def reached(self):
        if not self.wanted:
            return ""
        return "yes" if (self.quartiles[1] >= self.wanted) == self.at_least else "no"


def write_table(rows, out):
    lines = [("What", "Against", "Of", "Ratio", "Quartiles", "Wanted", "Reached"), None]
    for row in rows:
        low, middle, high = row.quartiles
        lines.append((row.what, row.against, "rates" if row.at_least else "costs", f"{middle:.3f}",
                      f"{low:.3f} to {high:.3f}", row.wish(), row.reached()))
    widths = [max(len(line[column]) for line in lines if line) for column in range(7)]
    lines[1] = tuple("-" * width for width in widths)
    for line in lines:
        print("| " + " | ".join(map(str.ljust, line, widths)) + " |", file=out)
    print("\nRatios are medians of alternating pairs. Beside them:\n", file=out)
    for row in filter(lambda row: row.notes, rows):
        print(f"- {row.what}: " + ", ".join(f"{name} {value:,.4g}" if value < 1e4 else f"{name} {value:,.0f}"
                                            for name, value in row.notes.items()), file=out)


def write_json(rows, path):
    report = {"cpus": os.cpu_count(), "load": os.getloadavg(), "rows": [dataclasses.asdict(row) for row in rows]}
    with open(path, "w", encoding="utf-8") as file:
        file.write(json.dumps(report, indent=1) + "\n")


LINE = 22  # height
LABELS, SCALE, VALUES = 520, 420, 190  # widths
LEFT, RIGHT = 0.125, 8.0  # ratios at the scale's ends


def place(ratio):
    """On a scale of powers, since half and double are as far from 1."""
    return round(LABELS + SCALE * math.log(min(max(ratio, LEFT), RIGHT) / LEFT) / math.log(RIGHT / LEFT), 1)


def picture_row(row, y):
    colour = {"yes": "#2a7d4f", "no": "#b3402a", "": "#666"}[row.reached()]
    low, middle, high = map(place, row.quartiles)
    label = html.escape(f"{row.what} / {row.against}".replace("`", ""))
    yield f'<text x="{LABELS - 10}" y="{y + 4}" text-anchor="end">{label}</text>'
    yield f'<line x1="{low}" x2="{high}" y1="{y}" y2="{y}" stroke="{colour}" stroke-width="3"/>'
    yield f'<circle cx="{middle}" cy="{y}" r="4.5" fill="{colour}"/>'
    yield f'<text x="{LABELS + SCALE + 12}" y="{y + 4}">{row.quartiles[1]:.3g} ({row.wish()})</text>'
    if row.wanted:
        yield f'<line x1="{place(row.wanted)}" x2="{place(row.wanted)}" y1="{y - 8}" y2="{y + 8}" stroke="#000"/>'


def write_picture(rows, path):
    width, height = LABELS + SCALE + VALUES, LINE * (len(rows) + 3)
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" font-size="12" '
             f'font-family="sans-serif"><rect width="{width}" height="{height}" fill="#fff"/>']
    for ratio in (LEFT, 0.25, 0.5, 1, 2, 4, RIGHT):
        x = place(ratio)
        parts.append(f'<line x1="{x}" x2="{x}" y1="{LINE}" y2="{height - LINE}" stroke="#ddd"/>'
                     f'<text x="{x}" y="{LINE - 6}" text-anchor="middle">{ratio:g}</text>')
    for index, row in enumerate(rows):
        parts += picture_row(row, LINE * (index + 2) - 8)
    parts.append(f'<text x="{LABELS}" y="{height - 6}">dot: median, bar: quartiles, tick: wanted</text></svg>\n')
    with open(path, "w", encoding="utf-8") as file:
        file.write("\n".join(parts))
