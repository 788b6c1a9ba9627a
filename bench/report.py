#!/usr/bin/env python3
"""report.py SAMPLES [--short] [--plots FOLDER] [--keep FILE]: the tables of a run of scripts/bench.

SAMPLES has lines of row, metric, side and figure. A side is the service, one of the floors ("events"
waits by events, "polling" by the clock, "floor" has nothing to wait for; "..., passing on" sends a
message on besides) or the name of a tool. The status is 1 if a limit is missed, except with --short,
whose figures mean nothing. --keep writes the service's medians as those that later runs compare with.
"""

import math
import os
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
    ("calls", r"^getSelf.*calls/s$", "least", 0.85),
    ("calls", r"^sync.*calls/s$", "least", 0.8),
    ("calls", r"p99", "ratio", 1.3),
    ("signals", r"^unknown.*signals/s$", "least", 0.5),
    ("signals", r"^triggers.*signals/s$", "least", 0.85),
    ("signals", r"lost$", "most", 0),
    ("signals", r"memory kept", "most", 1024),
    ("latency", r"", "ratio", 1.3),
    ("latency", r"median", "most", 1),
    ("deployment", r"^1: s$", "most", 0.004),
    ("deployment", r"^10: s$", "most", 0.009),
    ("deployment", r"^100+: s$", "plus", 0.2),
    ("deployment", r"^(again|deleted): s$", "ratio", 1.5),
    ("deployment", r"^time", "most", 11),
    ("deployment", r"^10000: memory KiB$", "most", 12 * 10000),
    ("deletes", r"^s$", "ratio", 1.5),
    ("remote", r"^s$", "ratio", 1.3),
    ("unconfigured", r"", "most", 0),
    ("download", r"^s$", "ratio", 1.1),
    ("download", r"memory", "most", 4096),
    ("checksum", r"", "ratio", 1.1),
    ("unzip", r": s$", "ratio", 1.1),
    ("unzip", r"memory", "most", 4096),
    ("decryption", r"^ms$", "ratio", 1.5),
    ("decryption", r"memory MiB$", "most", 48),
    ("idle", r"CPU", "most", 0.02),
    ("idle", r"switches", "most", 2),
    ("idle", r"^3 .*resident", "most", 15.2),
    ("idle", r"^3 .*anonymous", "most", 2.1),
    ("idle", r"^a further executor", "most", 24),
    ("start", r"^start", "most", 11),
    ("start", r"^stop", "most", 1.9),
    ("registrations", r"(threads|descriptors) left", "most", 0),
    ("registrations", r"memory left", "most", 1024),
]

# The floor that is judged by: the first of these that was measured.
JUDGED_BY = ("events, passing on", "events", "floor", "round trips")

# What is compared with how it was before: row and pattern of the metric.
KEPT = [("calls", r"(calls/s|p99 us)$"), ("signals", r"^triggers: (signals/s|memory)"),
        ("latency", r""), ("deployment", r"^\d+: s$"), ("deletes", r"^s$"), ("remote", r""),
        ("unconfigured", r""), ("idle", r""), ("start", r"")]

# The service's medians when every wait of it ended by the clock.
BEFORE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "before.tsv")


def read(path):
    """(row, metric) -> side -> figures, in the order of the file."""
    samples = defaultdict(lambda: defaultdict(list))
    with open(path, encoding="utf-8") as lines:
        for line in lines:
            row, metric, side, figure = line.rstrip("\n").split("\t")
            samples[row, metric][side].append(float(figure))
    return samples


def median(samples, row, metric, side="service"):
    """None where nothing was measured."""
    figures = samples.get((row, metric), {}).get(side)
    return statistics.median(figures) if figures else None


def derive(samples):
    """Adds what follows from two metrics."""
    few, many = (median(samples, "idle", f"{n} executors: anonymous MiB") for n in (3, 100))
    if few and many:
        each = (many - few) * 1024 / 97
        samples["idle", "a further executor: anonymous KiB"]["service"] = [each]
    small, large = (median(samples, "deployment", f"{n}: s") for n in (1000, 10000))
    if small and large:
        samples["deployment", "time(10000) / time(1000)"]["service"] = [large / small]


def number(value):
    return f"{value:,.0f}" if abs(value) >= 1000 else f"{value:.3g}"


def spread(values):
    """Median and, in brackets, the smallest and the largest."""
    low, high = min(values), max(values)
    text = number(statistics.median(values))
    return text if len(values) == 1 else f"{text} ({number(low)} to {number(high)})"


def judge(row, metric, service, floor):
    """The limits as texts and whether each is kept."""
    for limit_row, pattern, kind, limit in LIMITS:
        if limit_row != row or not re.search(pattern, metric):
            continue
        if kind == "most":
            yield f"at most {number(limit)}", service <= limit
        elif floor is None:
            continue
        elif kind == "least":
            yield f"at least {limit} x", service >= limit * floor
        elif kind == "plus":
            yield f"1.3 x + {limit}", service <= 1.3 * floor + limit
        else:
            yield f"at most {limit} x", service <= limit * floor


def cell(sides, shape):
    """What was measured of the floors of one shape, and of what has none beside the first."""
    of_shape = [s for s in sides if s.startswith(shape)]
    others = [s for s in sides if not s.startswith(("service", "events", "polling"))]
    texts = [("" if s in (shape, "floor") else s.removeprefix(shape + ", ") + " ") + spread(sides[s])
             for s in (others if shape == "events" else []) + of_shape]
    return "; ".join(texts)


def line_of(row, metric, sides):
    """One line of the table and, for each limit, whether it was kept."""
    service = statistics.median(sides["service"])
    floor = next((statistics.median(sides[s]) for s in JUDGED_BY if s in sides), None)
    verdicts = list(judge(row, metric, service, floor))
    cells = [
        f"{row}: {metric}",
        spread(sides["service"]),
        cell(sides, "events"),
        cell(sides, "polling"),
        f"{service / floor:.2f}" if floor else "",
        "; ".join(text for text, _ in verdicts),
        "" if not verdicts else "pass" if all(kept for _, kept in verdicts) else "FAIL",
    ]
    return "| " + " | ".join(cells) + " |", [kept for _, kept in verdicts]


def table(samples):
    lines = ["| what | service: median (least to most) | floor that waits by events, tools | "
             "floor that polls | ratio | limit | |",
             "|---|---|---|---|---|---|---|"]
    kept = []
    for (row, metric), sides in samples.items():
        line, passed = line_of(row, metric, sides)
        lines.append(line)
        kept += passed
    return lines, kept.count(False), len(kept)


def comparison(samples, before):
    """The second table: every metric whose figure was kept."""
    lines = ["| what | before | now | now / before |", "|---|---|---|---|"]
    for row, metric in before:
        now, then = median(samples, row, metric), median(before, row, metric)
        if now is not None:
            share = f"{now / then:.3g}" if then else ""
            lines.append(f"| {row}: {metric} | {number(then)} | {number(now)} | {share} |")
    return lines if len(lines) > 2 else []


def keep(samples, path):
    with open(path, "w", encoding="utf-8") as file:
        for (row, metric), sides in samples.items():
            if any(row == known and re.search(pattern, metric) for known, pattern in KEPT):
                file.write(f"{row}\t{metric}\tservice\t{statistics.median(sides['service']):.9g}\n")


def points(samples, row, pattern, side):
    """(number in the metric, median) of a row's metrics that match."""
    found = []
    for (name, metric), sides in samples.items():
        match = re.fullmatch(pattern, metric)
        if name == row and match and side in sides:
            found.append((int(match.group(1)), statistics.median(sides[side])))
    return sorted(found)


def plot(path, title, x_name, y_name, series):
    """Lines over two logarithmic axes; the first one's points are labelled below."""
    width, height, left, top, right, bottom = 640, 400, 70, 50, 150, 50
    # What is too little to be measured has no place on such an axis.
    series = {name: [p for p in line if p[1] > 0] for name, line in series.items()}
    series = {name: line for name, line in series.items() if line}
    xs = [math.log10(x) for line in series.values() for x, _ in line]
    ys = [math.log10(y) for line in series.values() for _, y in line]
    if len(set(xs)) < 2 or len(set(ys)) < 2:
        return
    x0, x1, y0, y1 = min(xs), max(xs), min(ys), max(ys)

    def place(x, y):
        return (left + (math.log10(x) - x0) / (x1 - x0) * (width - left - right),
                height - bottom - (math.log10(y) - y0) / (y1 - y0) * (height - top - bottom))

    out = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" '
           'font-family="sans-serif" font-size="12">',
           f'<rect width="{width}" height="{height}" fill="white"/>',
           f'<text x="{left}" y="24" font-size="15">{title}</text>',
           f'<path d="M{left} {top}V{height - bottom}H{width - right}" fill="none" stroke="#444"/>',
           f'<text x="{(left + width - right) / 2}" y="{height - 10}">{x_name}</text>',
           f'<text x="14" y="{top - 8}">{y_name}</text>']
    for x in sorted({x for line in series.values() for x, _ in line}):
        out.append(f'<text x="{place(x, 10**y0)[0]:.1f}" y="{height - bottom + 18}" '
                   f'text-anchor="middle">{x:,}</text>')
    for color, (name, line) in zip(("#1663a6", "#b5541c", "#3a7d34", "#7a3f98"), series.items()):
        spots = [place(x, y) for x, y in line]
        path_text = " ".join(f"{x:.1f},{y:.1f}" for x, y in spots)
        out.append(f'<polyline points="{path_text}" fill="none" stroke="{color}" stroke-width="2"/>')
        for (x, y), (px, py) in zip(line, spots):
            out.append(f'<circle cx="{px:.1f}" cy="{py:.1f}" r="3" fill="{color}">'
                       f"<title>{name}: {x}, {number(y)}</title></circle>")
            out.append(f'<text x="{px:.1f}" y="{py - 8:.1f}" text-anchor="end" '
                       f'fill="{color}">{number(y)}</text>')
        out.append(f'<text x="{spots[-1][0] + 8:.1f}" y="{spots[-1][1] + 4:.1f}" '
                   f'fill="{color}">{name}</text>')
    with open(path, "w", encoding="utf-8") as file:
        file.write("\n".join(out + ["</svg>"]) + "\n")


def plots(samples, before, folder):
    def series(row, pattern):
        return {"now": points(samples, row, pattern, "service"),
                "before": points(before, row, pattern, "service")}

    growth = series("deployment", r"(\d+): s")
    growth["floor"] = points(samples, "deployment", r"(\d+): s", "floor")
    plot(f"{folder}/growth.svg", "One deployment", "resources", "seconds", growth)
    plot(f"{folder}/idle.svg", "Waiting", "executors", "context switches a second",
         series("idle", r"(\d+) executors: switches/s"))
    plot(f"{folder}/idle-cpu.svg", "Waiting", "executors", "CPU, % of one core",
         series("idle", r"(\d+) executors: CPU %"))
    latency = {f"{when}, {what}": line for what in ("median", "p99")
               for when, line in series("latency", rf"(\d+) executors: {what} ms").items()}
    plot(f"{folder}/latency.svg", "An asynchronous answer", "executors", "milliseconds", latency)


def option(arguments, name):
    return arguments[arguments.index(name) + 1] if name in arguments else None


def main():
    arguments = sys.argv[1:]
    samples = read(arguments[0])
    derive(samples)
    before = read(BEFORE)
    if option(arguments, "--keep"):
        keep(samples, option(arguments, "--keep"))
    lines, missed, judged = table(samples)
    print("\n".join(lines + [""] + comparison(samples, before)))
    if option(arguments, "--plots"):
        plots(samples, before, option(arguments, "--plots"))
    if "--short" in arguments:
        return 0
    print(f"\n{judged - missed} of {judged} limits kept")
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
