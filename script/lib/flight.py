"""Draws the calls of the safe layer in a recording of Java's flight recorder: usage flight.py RECORDING.jfr >PICTURE.svg

A row for each endpoint of each device, one for opens, closes and resets, and one for updates of lists; a bar for each
call, from its start to its end. Bars that would cover each other are drawn once, so the picture stays small.
"""

import json
import os
import re
import subprocess
import sys
from datetime import datetime
from xml.sax.saxutils import escape

WIDTH, LEFT, TOP, ROW, BAR = 620, 210, 28, 22, 12  # pixels
COLOURS = {"OK": "#1f5fa8", "TIMED_OUT": "#9aa0a6", "another outcome": "#b3541e"}
PREFIX = "com.talvane.orvex."
TIME = re.compile(r"(.*T\d\d:\d\d:\d\d)\.?(\d*)(.*)")
DURATION = re.compile(r"PT(?:(\d+)H)?(?:(\d+)M)?(?:([\d.]+)S)?")
PAGE = """<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" font-family="sans-serif" font-size="12">
<rect width="{width}" height="{height}" fill="#fff"/>
{parts}
</svg>
"""


def events(recording):
    """The calls as triples of row, start and end in milliseconds, and outcome, in the order of their starts."""
    home = os.environ.get("JAVA_HOME")
    program = f"{home}/bin/jfr" if home else "jfr"
    done = subprocess.run([program, "print", "--json", "--events", PREFIX + "*", recording],
                          capture_output=True, text=True, check=False)  # fmt: skip
    if done.returncode != 0:
        sys.exit(f"flight-picture: {(done.stderr or done.stdout).strip()}")
    found = [call(event["type"].removeprefix(PREFIX), event["values"])
             for event in json.loads(done.stdout)["recording"]["events"]]  # fmt: skip
    if not found:
        sys.exit(f"flight-picture: {recording} has no events of the safe layer")
    return sorted(found, key=lambda each: each[1])


def call(kind, values):
    rows = {
        "Transfer": lambda: f"{values['device']} {values['endpoint'] if values['kind'] == 'pipe' else values['kind']} {values['direction']}",
        "Device": lambda: f"{values['device']} open, close, reset",
        "ListUpdate": lambda: "lists",
    }
    start = milliseconds_of_time(values["startTime"])
    return rows[kind](), start, start + milliseconds_of_duration(values["duration"]), values["outcome"]


def milliseconds_of_time(text):
    second, fraction, zone = TIME.fullmatch(text).groups()
    return datetime.fromisoformat(second + zone.replace("Z", "+00:00")).timestamp() * 1000 + float(f"0.{fraction or 0}") * 1000


def milliseconds_of_duration(text):
    hours, minutes, seconds = (float(part or 0) for part in DURATION.fullmatch(text).groups())
    return ((hours * 60 + minutes) * 60 + seconds) * 1000


def text(x, y, words, anchor="start", colour="#202124"):
    return f'<text x="{x}" y="{y}" text-anchor="{anchor}" fill="{colour}">{escape(words)}</text>'


def colour(outcome):
    return COLOURS.get(outcome, COLOURS["another outcome"])


def svg(calls):
    begin, end = calls[0][1], max(each[2] for each in calls)
    scale = WIDTH / max(end - begin, 0.001)
    rows = {row: TOP + number * ROW for number, row in enumerate(sorted({each[0] for each in calls}))}
    bottom = TOP + len(rows) * ROW
    parts = []
    for row, y in rows.items():
        parts.append(text(LEFT - 8, y + BAR, row, "end"))
        parts.append(f'<path d="M{LEFT} {y + ROW - 4}h{WIDTH}" stroke="#dadce0"/>')
    for row, start, finish, outcome in calls:
        x, width = round(LEFT + (start - begin) * scale), max(round((finish - start) * scale), 1)
        parts.append(f'<rect x="{x}" y="{rows[row] + 2}" width="{width}" height="{BAR}" fill="{colour(outcome)}"/>')
    for share in (0, 0.25, 0.5, 0.75, 1):
        parts.append(text(LEFT + WIDTH * share, bottom + 14, f"{(end - begin) * share:,.0f} ms", "middle"))
    for number, (outcome, shade) in enumerate(COLOURS.items()):
        parts.append(text(LEFT + number * 120, 14, "\N{BLACK RECTANGLE} " + outcome, "start", shade))
    return PAGE.format(width=LEFT + WIDTH + 40, height=bottom + 24, parts="\n".join(dict.fromkeys(parts)))


if __name__ == "__main__":
    sys.stdout.reconfigure(encoding="utf-8")
    print(svg(events(sys.argv[1])), end="")
