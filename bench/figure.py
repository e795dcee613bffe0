"""The figure of the transfers: time over size, both logarithmic, as a small SVG."""

import math

WIDTH, HEIGHT, LEFT, TOP, GAP = 300, 220, 60, 40, 80  # of a panel in pixels, and around it
COLOURS = ["#1f5fa8", "#7a7a7a", "#b3541e", "#2e7d32", "#8e44ad"]
PAGE = """<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" font-family="sans-serif" font-size="12">
<rect width="{width}" height="{height}" fill="#fff"/>
{parts}
</svg>
"""


def scale(low, high, start, length):
    """Where a value stands between two others."""
    return lambda value: round(start + length * math.log(value / low) / math.log(high / low), 1)


def text(x, y, words, anchor="middle", colour="#202124"):
    return f'<text x="{x}" y="{y}" text-anchor="{anchor}" fill="{colour}">{words}</text>'


def panel(left, title, curves, powers):
    """One kind of transfer. curves: for each way its (bytes, nanoseconds); powers: of ten, lowest and highest."""
    sizes = [size for size, _ in next(iter(curves.values()))]
    x = scale(sizes[0], sizes[-1], left, WIDTH)
    y = scale(10 ** powers[0], 10 ** powers[1], TOP + HEIGHT, -HEIGHT)
    yield text(left + WIDTH / 2, TOP - 14, title)
    yield f'<rect x="{left}" y="{TOP}" width="{WIDTH}" height="{HEIGHT}" fill="none" stroke="#9aa0a6"/>'
    for power in range(powers[0], powers[1] + 1):
        yield f'<path d="M{left} {y(10 ** power)}h{WIDTH}" stroke="#dadce0"/>'
        yield text(left - 6, y(10 ** power) + 4, f"{10 ** (power - 3):g}", "end")
    yield from (text(x(size), TOP + HEIGHT + 18, f"{size:,}") for size in sizes)
    for colour, points in zip(COLOURS, curves.values()):
        line = " ".join(f"{x(size)},{y(nanoseconds)}" for size, nanoseconds in points)
        yield f'<polyline points="{line}" fill="none" stroke="{colour}" stroke-width="2"/>'


def svg(panels):
    """panels: for each title the curves of a panel; all have the same ways."""
    times = [time for curves in panels.values() for points in curves.values() for _, time in points]
    powers = math.floor(math.log10(min(times))), math.ceil(math.log10(max(times)))
    parts, left = [text(8, TOP - 14, "us", "start")], LEFT
    for title, curves in panels.items():
        parts += panel(left, title, curves, powers)
        left += WIDTH + GAP
    parts.append(text(LEFT - 14, TOP + HEIGHT + 18, "bytes", "end"))
    for number, (colour, way) in enumerate(zip(COLOURS, next(iter(panels.values())))):
        parts.append(text(LEFT + number * 150, TOP + HEIGHT + 44, f"&#9644; {way}", "start", colour))
    return PAGE.format(width=left - GAP + 40, height=TOP + HEIGHT + 60, parts="\n".join(parts))
