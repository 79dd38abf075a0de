#!/usr/bin/env python3
"""Draws how the cost of the operations on disk grows with the number of pending events, from the figures of scripts/bench.

    Benchmarks/plot.py FIGURES.json PLOT.svg
"""

import json
import math
import pathlib
import sys

SERIES = {  # benchmark -> colour and words
    "flush": ("#1f6fb2", "flush of 500 new events"),
    "accept": ("#2a8c4a", "removal of 500 accepted events"),
    "background_insert": ("#c2571a", "insertion in the background"),
    "snapshot": ("#7a4fa3", "snapshot and batch of 500"),
}
WIDTH, HEIGHT = 760, 420
LEFT, RIGHT, TOP, BOTTOM = 70, 250, 30, 60
COUNTS = (0, 1000, 10000, 100000)
SHORTEST, LONGEST = 1, 10000  # microseconds


def x_of(count):
    """Evenly from 1,000 on; an empty queue, which has no logarithm, one step before."""
    step = (WIDTH - LEFT - RIGHT) / 3
    return LEFT + (0 if count == 0 else step * (math.log10(count) - 2))


def y_of(microseconds):
    inside = min(max(microseconds, SHORTEST), LONGEST)
    share = math.log(inside / SHORTEST) / math.log(LONGEST / SHORTEST)
    return HEIGHT - BOTTOM - share * (HEIGHT - TOP - BOTTOM)


def points(measured, name, counter):
    found = {int(key.split("/")[1]): counters[counter] for key, counters in measured.items()
             if key.startswith(name + "/") and counter in counters}
    return sorted(found.items())


def grid():
    for exponent in range(5):
        value = 10 ** exponent
        y = y_of(value)
        words = f"{value} µs" if value < 1000 else f"{value // 1000} ms"
        yield f'<line x1="{LEFT}" y1="{y:.1f}" x2="{WIDTH - RIGHT}" y2="{y:.1f}" stroke="#ddd"/>'
        yield f'<text x="{LEFT - 8}" y="{y + 4:.1f}" text-anchor="end">{words}</text>'
    for count in COUNTS:
        yield f'<text x="{x_of(count):.1f}" y="{HEIGHT - BOTTOM + 20}" text-anchor="middle">{count:,}</text>'
    yield f'<text x="{(LEFT + WIDTH - RIGHT) / 2}" y="{HEIGHT - 14}" text-anchor="middle">pending events</text>'


def curve(pairs, colour, is_limit):
    path = " ".join(f"{x_of(count):.1f},{y_of(value):.1f}" for count, value in pairs)
    dashes = ' stroke-dasharray="4 4" opacity="0.6"' if is_limit else ""
    yield f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="{1.5 if is_limit else 2}"{dashes}/>'
    if not is_limit:
        for count, value in pairs:
            yield f'<circle cx="{x_of(count):.1f}" cy="{y_of(value):.1f}" r="3.5" fill="{colour}"/>'


def legend():
    x = WIDTH - RIGHT + 20
    for row, (colour, words) in enumerate(SERIES.values()):
        y = TOP + 14 + 22 * row
        yield f'<line x1="{x}" y1="{y - 4}" x2="{x + 24}" y2="{y - 4}" stroke="{colour}" stroke-width="2"/>'
        yield f'<text x="{x + 32}" y="{y}">{words}</text>'
    yield f'<text x="{x}" y="{TOP + 14 + 22 * len(SERIES)}" fill="#666">dashed: the physical limit</text>'


def draw(measured):
    parts = [*grid(), *legend()]
    for name, (colour, _) in SERIES.items():
        parts += curve(points(measured, name, "limit_p50_us"), colour, is_limit=True)
        parts += curve(points(measured, name, "p50_us"), colour, is_limit=False)
    body = "\n".join(parts)
    return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" font-family="sans-serif" '
            f'font-size="13">\n<rect width="{WIDTH}" height="{HEIGHT}" fill="white"/>\n{body}\n</svg>\n')


def main():
    if len(sys.argv) != 3:
        print(__doc__.strip(), file=sys.stderr)
        return 2
    figures = json.loads(pathlib.Path(sys.argv[1]).read_text())
    pathlib.Path(sys.argv[2]).write_text(draw(figures["measured"]))
    return 0


if __name__ == "__main__":
    sys.exit(main())
