#!/usr/bin/env python3
"""Makes one table and one chart for each group out of what the benchmarks print.

    report_bench.py <directory of .json files> <prefix of what is written> <document> <page>

Benchmarks are named group/row/contender. A row's figure is the library's time divided by the
contender's, medians over the rounds: below 1 the library is faster. Writes <prefix>.csv and
<prefix>-<group>.svg, the tables into the document, between the lines that say so, and into the page
which charts it shows. What is there of groups that were not measured stays.
"""

import collections
import csv
import json
import os
import pathlib
import re
import statistics
import sys
from xml.sax.saxutils import escape

LIBRARY = "utl"
TO_NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
WAKE_UPS = "wake-ups"  # a counter that is a figure of its own
HEADER = ["group", "row", "contender", "median", "least", "most", "unit", "rounds"]
BEGIN = "<!-- begin of the tables -->\n"
END = "<!-- end of the tables -->\n"


def read(directory):
    """The figures of each round, nanoseconds but for WAKE_UPS: rows[group][row][contender]."""
    rows = collections.defaultdict(lambda: collections.defaultdict(dict))
    for file in sorted(pathlib.Path(directory).glob("*.json")):
        for run in json.loads(file.read_text())["benchmarks"]:
            if run.get("run_type") != "iteration" or run.get("error_occurred"):
                continue
            group, row, contender = run["name"].split("/")[:3]
            figures = {row: run["real_time"] * TO_NANOSECONDS[run["time_unit"]]}
            if WAKE_UPS in run:
                figures = {f"{row}, {WAKE_UPS}": run[WAKE_UPS]}
            if "p99" in run:  # in seconds
                figures[f"{row}, 99 %"] = run["p99"] * TO_NANOSECONDS["s"]
            for name, figure in figures.items():
                rows[group][name].setdefault(contender, []).append(figure)
    return rows


def unit_of(row):
    return WAKE_UPS if row.endswith(WAKE_UPS) else "ns"


def shown(row, figure):
    if unit_of(row) == WAKE_UPS:
        return f"{figure:.0f}"
    nanoseconds = figure
    for unit, factor in (("s", 1e9), ("ms", 1e6), ("us", 1e3)):
        if nanoseconds >= factor:
            return f"{nanoseconds / factor:.3g} {unit}"
    return f"{nanoseconds:.3g} ns"


def ratios(contenders):
    """The library's time by that of each contender, the library itself left out."""
    own = statistics.median(contenders[LIBRARY])
    return {
        name: own / statistics.median(rounds)
        for name, rounds in sorted(contenders.items())
        if name != LIBRARY
    }


def write_csv(rows, path):
    lines = []
    if path.exists():
        with open(path, newline="") as file:
            lines = [line for line in list(csv.reader(file))[1:] if line[0] not in rows]
    for group, of_group in rows.items():
        for row, contenders in of_group.items():
            for name, rounds in contenders.items():
                figures = [statistics.median(rounds), min(rounds), max(rounds)]
                lines.append([group, row, name, *(f"{n:.1f}" for n in figures), unit_of(row),
                              len(rounds)])
    with open(path, "w", newline="") as file:
        table = csv.writer(file)
        table.writerow(HEADER)
        table.writerows(sorted(lines, key=lambda line: line[0]))


def table_of(group, of_group, chart):
    lines = [f"### {group}\n", f"![{group}]({chart})\n"]
    lines.append("| row | the library | its time by that of others |")
    lines.append("|---|---|---|")
    for row, contenders in sorted(of_group.items()):
        if LIBRARY not in contenders:
            continue
        others = ", ".join(f"{name} {ratio:.2f}" for name, ratio in ratios(contenders).items())
        own = shown(row, statistics.median(contenders[LIBRARY]))
        lines.append(f"| {row} | {own} | {others} |")
    return "\n".join(lines) + "\n"


def chart_of(of_group):
    """A bar for each contender, as long as the library is faster: its time by the library's."""
    bars = []
    for row, contenders in sorted(of_group.items()):
        if LIBRARY in contenders and len(contenders) > 1:
            bars.append((row, None))
            bars.extend((name, 1 / ratio) for name, ratio in ratios(contenders).items())
    most = max([length for _, length in bars if length is not None] + [1.5])
    left, width, height = 260, 480, 18
    scale = width / min(most, 10)
    svg = [
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{left + width + 80}" '
        f'height="{height * (len(bars) + 2)}" font-family="sans-serif" font-size="12">',
        '<rect width="100%" height="100%" fill="white"/>',
    ]
    for place, (name, length) in enumerate(bars):
        y = height * (place + 1)
        if length is None:
            svg.append(f'<text x="8" y="{y + 13}" font-weight="bold">{escape(name)}</text>')
            continue
        colour = "#2a7f62" if length >= 1 else "#b5523b"
        drawn = min(length, 10) * scale
        svg.append(f'<text x="{left - 8}" y="{y + 13}" text-anchor="end">{escape(name)}</text>')
        svg.append(f'<rect x="{left}" y="{y + 3}" width="{drawn:.1f}" height="{height - 6}" '
                   f'fill="{colour}"/>')
        svg.append(f'<text x="{left + drawn + 5:.1f}" y="{y + 13}">{length:.2f}</text>')
    x = left + scale
    svg.append(f'<line x1="{x:.1f}" y1="0" x2="{x:.1f}" y2="100%" stroke="#444" '
               'stroke-dasharray="3"/>')
    svg.append(f'<text x="{x + 4:.1f}" y="12">as fast as the library</text>')
    return "\n".join(svg + ["</svg>"]) + "\n"


def main(directory, prefix, document, page):
    rows = read(directory)
    prefix = pathlib.Path(prefix)
    document = pathlib.Path(document)
    page = pathlib.Path(page)
    prefix.parent.mkdir(parents=True, exist_ok=True)
    write_csv(rows, pathlib.Path(f"{prefix}.csv"))
    head, rest = document.read_text().split(BEGIN)
    before, tail = rest.split(END)
    tables = {}
    for table in before.split("### ")[1:]:
        tables[table.split("\n")[0]] = f"### {table.rstrip()}\n"
    shown_on_page = page.read_text()
    for group, of_group in rows.items():
        name = group.replace(" ", "-")
        chart = pathlib.Path(f"{prefix}-{name}.svg")
        chart.write_text(chart_of(of_group))
        tables[group] = table_of(group, of_group, os.path.relpath(chart, document.parent))
        older = rf"{re.escape(str(prefix.parent))}/[-0-9]+-{re.escape(name)}\.svg"
        shown_on_page = re.sub(older, str(chart), shown_on_page)
    page.write_text(shown_on_page)
    document.write_text(head + BEGIN + "\n" + "\n".join(tables[group] for group in sorted(tables)) +
                        "\n" + END + tail)
    print(f"{prefix}.csv, {document}")


if __name__ == "__main__":
    main(*sys.argv[1:])
