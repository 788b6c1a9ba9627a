#!/usr/bin/env python3
"""report.py SAMPLES [--short] [--plots FOLDER]: the table of a run of scripts/bench.

SAMPLES has lines of row, metric, side (service, floor or the name of a tool) and figure. The status
is 1 if a limit is missed, except with --short, whose figures mean nothing.
"""

import re
import statistics
import sys
from collections import defaultdict

# What is judged. Each entry: row, pattern of the metric, kind of limit, limit.
#   ratio  the service's median at most LIMIT times the floor's
#   least  the service's median at least LIMIT times the floor's
#   most   the service's median at most LIMIT
#   plus   at most 1.3 times the floor's median plus LIMIT
LIMITS = [
    ("calls", r"calls/s$", "least", 0.85),
    ("calls", r"p99", "ratio", 1.3),
    ("signals", r"signals/s$", "least", 0.5),
    ("signals", r"lost$", "most", 0),
    ("signals", r"memory kept", "most", 1024),
    ("latency", r"", "ratio", 1.1),
    ("deployment", r"^\d+: s$", "plus", 0.2),
    ("deployment", r"^(again|deleted): s$", "ratio", 1.5),
    ("deployment", r"^10000: memory KiB$", "most", 12 * 10000),
    ("deletes", r"^s$", "ratio", 2),
    ("download", r"^s$", "ratio", 1.1),
    ("download", r"memory", "most", 4096),
    ("checksum", r"", "ratio", 1.1),
    ("unzip", r": s$", "ratio", 1.1),
    ("unzip", r"memory", "most", 4096),
    ("decryption", r"^ms$", "ratio", 1.5),
    ("decryption", r"memory MiB$", "most", 48),
    ("idle", r"(CPU|switches)", "ratio", 1.1),
    ("idle", r"^3 .*resident", "most", 16),
    ("idle", r"^3 .*anonymous", "most", 4),
    ("start", r"^start", "most", 30),
    ("start", r"^stop", "most", 50),
    ("registrations", r"(threads|descriptors) left", "most", 0),
    ("registrations", r"memory left", "most", 1024),
]


def read(path):
    """(row, metric) -> side -> figures, in the order of the file."""
    samples = defaultdict(lambda: defaultdict(list))
    with open(path, encoding="utf-8") as lines:
        for line in lines:
            row, metric, side, figure = line.rstrip("\n").split("\t")
            samples[row, metric][side].append(float(figure))
    return samples


def number(value):
    return f"{value:,.0f}" if abs(value) >= 1000 else f"{value:.3g}"


def spread(values):
    """Median and, in brackets, the smallest and the largest."""
    low, high = min(values), max(values)
    return f"{number(statistics.median(values))} ({number(low)} to {number(high)})"


def judge(row, metric, service, floor):
    """The limit as text and whether it is kept; none where nothing is asked for."""
    for limit_row, pattern, kind, limit in LIMITS:
        if limit_row != row or not re.search(pattern, metric):
            continue
        if kind == "most":
            return f"at most {number(limit)}", service <= limit
        if floor is None:
            continue
        if kind == "least":
            return f"at least {limit} x", service >= limit * floor
        if kind == "plus":
            return f"1.3 x + {limit}", service <= 1.3 * floor + limit
        return f"at most {limit} x", service <= limit * floor
    return None


def line_of(row, metric, sides):
    """One line of the table and whether it was kept (None: nothing to keep)."""
    service = statistics.median(sides["service"])
    floor = statistics.median(sides["floor"]) if "floor" in sides else None
    verdict = judge(row, metric, service, floor)
    tools = [f"{side} {spread(v)}" for side, v in sides.items() if side not in ("service", "floor")]
    cells = [
        f"{row}: {metric}",
        spread(sides["service"]),
        "; ".join(([spread(sides["floor"])] if floor is not None else []) + tools),
        f"{service / floor:.2f}" if floor else "",
        verdict[0] if verdict else "",
        "" if verdict is None else "pass" if verdict[1] else "FAIL",
    ]
    return "| " + " | ".join(cells) + " |", None if verdict is None else verdict[1]


def growth_line(samples):
    """How the largest deployment compares with the one of a tenth of it."""
    small, large = (samples.get(("deployment", f"{n}: s"), {}).get("service") for n in (1000, 10000))
    if not small or not large:
        return None
    factor = statistics.median(large) / statistics.median(small)
    return (f"| deployment: time(10000) / time(1000) | {factor:.1f} | | | at most 11 | "
            f"{'pass' if factor <= 11 else 'FAIL'} |", factor <= 11)


def table(samples):
    lines = ["| what | service: median (least to most) | floor, tools beside it | ratio | limit | |",
             "|---|---|---|---|---|---|"]
    kept = []
    for (row, metric), sides in samples.items():
        line, passed = line_of(row, metric, sides)
        lines.append(line)
        kept.append(passed)
    growth = growth_line(samples)
    if growth:
        lines.append(growth[0])
        kept.append(growth[1])
    judged = [k for k in kept if k is not None]
    return lines, judged.count(False), len(judged)


def points(samples, row, pattern, side):
    """(number in the metric, median) of a row's metrics that match."""
    found = []
    for (name, metric), sides in samples.items():
        match = re.fullmatch(pattern, metric)
        if name == row and match and side in sides:
            found.append((int(match.group(1)), statistics.median(sides[side])))
    return sorted(found)


def plot(path, title, x_name, y_name, series, scale):
    """Lines over two axes; `scale` maps a figure to where it stands on both axes."""
    width, height, left, top, right, bottom = 640, 400, 70, 40, 120, 50
    xs = [scale(x) for line in series.values() for x, _ in line]
    ys = [scale(y) for line in series.values() for _, y in line]
    if not xs:
        return
    # Costs are read from zero; a logarithmic axis has none.
    x0, x1, y0, y1 = min(xs), max(xs), 0.0 if scale is float else min(ys), max(ys)

    def place(x, y):
        return (left + (scale(x) - x0) / (x1 - x0) * (width - left - right),
                height - bottom - (scale(y) - y0) / (y1 - y0) * (height - top - bottom))

    out = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" '
           'font-family="sans-serif" font-size="12">',
           f'<rect width="{width}" height="{height}" fill="white"/>',
           f'<text x="{left}" y="24" font-size="15">{title}</text>',
           f'<path d="M{left} {top}V{height - bottom}H{width - right}" fill="none" stroke="#444"/>',
           f'<text x="{(left + width - right) / 2}" y="{height - 10}">{x_name}</text>',
           f'<text x="14" y="{top - 8}">{y_name}</text>']
    for color, (name, line) in zip(("#1663a6", "#b5541c", "#3a7d34", "#7a3f98"), series.items()):
        spots = [place(x, y) for x, y in line]
        path_text = " ".join(f"{x:.1f},{y:.1f}" for x, y in spots)
        out.append(f'<polyline points="{path_text}" fill="none" stroke="{color}" stroke-width="2"/>')
        for (x, y), (px, py) in zip(line, spots):
            out.append(f'<circle cx="{px:.1f}" cy="{py:.1f}" r="3" fill="{color}">'
                       f"<title>{name}: {x}, {number(y)}</title></circle>")
            if name == "service":
                out.append(f'<text x="{px:.1f}" y="{height - bottom + 18}" '
                           f'text-anchor="middle">{x:,}</text>')
                out.append(f'<text x="{px:.1f}" y="{py - 8:.1f}" text-anchor="end" '
                           f'fill="{color}">{number(y)}</text>')
        out.append(f'<text x="{spots[-1][0] + 8:.1f}" y="{spots[-1][1] + 4:.1f}" '
                   f'fill="{color}">{name}</text>')
    with open(path, "w", encoding="utf-8") as file:
        file.write("\n".join(out + ["</svg>"]) + "\n")


def plots(samples, folder):
    import math
    sides = ("service", "floor")
    growth = {side: points(samples, "deployment", r"(\d+): s", side) for side in sides}
    if growth["service"]:
        plot(f"{folder}/growth.svg", "One deployment", "resources", "seconds (both axes logarithmic)",
             growth, math.log10)
    idle = {side: points(samples, "idle", r"(\d+) executors: CPU %", side) for side in sides}
    if idle["service"]:
        plot(f"{folder}/idle.svg", "Waiting", "executors", "CPU, % of one core", idle, float)


def main():
    arguments = sys.argv[1:]
    samples = read(arguments[0])
    lines, missed, judged = table(samples)
    print("\n".join(lines))
    if "--plots" in arguments:
        plots(samples, arguments[arguments.index("--plots") + 1])
    if "--short" in arguments:
        return 0
    print(f"\n{judged - missed} of {judged} limits kept")
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
