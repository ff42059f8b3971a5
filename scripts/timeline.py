#!/usr/bin/env python3
"""Draws docs/timed-values.svg, the picture of docs/timed-values.md, from the engine's own answers.

    scripts/timeline.py SHELL > docs/timed-values.svg

Nothing is waited for: a value that began T seconds ago shows the state that it has T seconds after
its beginning, so one row is inserted for every second of the picture, each begun so much earlier,
and one SELECT reads them all. The colours are the answers; the durations printed are the literals'.
"""

import json
import subprocess
import sys
import tempfile
import time
from itertools import groupby

FIRST_SECOND, LAST_SECOND = -5, 44
TRACKS = [
    ("once", "'red' --> 'green' @ 10 s --> 'amber' @ 5 s"),
    ("cycling", "'red' --> 'green' @ 10 s --> 'amber' @ 5 s c"),
]

LEFT, RIGHT, SCALE = 20, 20, 16
TRACK_HEIGHT, BAR_HEIGHT, TOP, BOTTOM = 80, 30, 20, 40
FILL = {"red": "#c8452f", "green": "#3f8f4f", "amber": "#e0a030"}


def answers_of(shell, commands):
    """The answers that the shell gives to the commands, in a directory of their own."""
    with tempfile.TemporaryDirectory() as directory:
        run = subprocess.run(
            [shell], cwd=directory, check=True, capture_output=True, text=True,
            input="".join(command + "\n" for command in commands + ["exit"]))
    decoder = json.JSONDecoder()
    pieces = run.stdout.split("velmora> ")[1:-1]
    return [decoder.decode(piece) for piece in pieces]


def states_of(shell, literal):
    """The state at every second from FIRST_SECOND to LAST_SECOND."""
    seconds = range(FIRST_SECOND, LAST_SECOND + 1)
    while True:
        now = int(time.time())
        commands = ["CREATE TABLE samples second int colour string 3"]
        commands += [f"INSERT INTO samples second = {second} colour = {literal}"
                     f" #TIME# {now - second}" for second in seconds]
        commands += ["SELECT second, colour FROM samples"]
        rows = answers_of(shell, commands)[-1]["data"]
        if int(time.time()) == now:  # else the second changed meanwhile
            return [(row["second"], row["colour"]) for row in rows]


def x_of(second):
    return LEFT + (second - FIRST_SECOND) * SCALE


def track(top, name, literal, states):
    """The bars of one timed value, one for each run of seconds in one state."""
    yield f'<text x="{LEFT}" y="{top + 12}" class="title">{name}</text>'
    escaped = literal.replace("&", "&amp;").replace(">", "&gt;")
    yield f'<text x="{LEFT + 70}" y="{top + 12}" class="literal">{escaped}</text>'
    for colour, run in groupby(states, key=lambda state: state[1]):
        seconds = [second for second, _ in run]
        x, width = x_of(seconds[0]), len(seconds) * SCALE
        yield (f'<rect x="{x}" y="{top + 22}" width="{width}" height="{BAR_HEIGHT}"'
               f' fill="{FILL[colour]}" stroke="#ffffff"/>')
        yield (f'<text x="{x + width / 2:g}" y="{top + 22 + BAR_HEIGHT / 2 + 4:g}"'
               f' class="state">{colour}</text>')


def axis(top):
    for second in range(FIRST_SECOND, LAST_SECOND + 2, 5):
        x = x_of(second)
        yield f'<line x1="{x}" y1="{top}" x2="{x}" y2="{top + 6}" stroke="#555555"/>'
        yield f'<text x="{x}" y="{top + 20}" class="tick">{second}</text>'
    yield (f'<text x="{x_of(LAST_SECOND + 1)}" y="{top + 36}" class="note">'
           'seconds since the value was given</text>')


def picture(shell):
    width = LEFT + (LAST_SECOND + 1 - FIRST_SECOND) * SCALE + RIGHT
    height = TOP + len(TRACKS) * TRACK_HEIGHT + BOTTOM
    start = x_of(0)
    yield (f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}"'
           f' viewBox="0 0 {width} {height}" font-family="sans-serif" font-size="12">')
    yield ('<style>.title{font-weight:bold} .literal{font-family:monospace}'
           ' .state{fill:#ffffff;text-anchor:middle} .tick{text-anchor:middle;fill:#555555}'
           ' .note{text-anchor:end;fill:#555555}</style>')
    yield f'<rect width="{width}" height="{height}" fill="#ffffff"/>'
    for i, (name, literal) in enumerate(TRACKS):
        yield from track(TOP + i * TRACK_HEIGHT, name, literal, states_of(shell, literal))
    bottom = TOP + len(TRACKS) * TRACK_HEIGHT
    yield (f'<line x1="{start}" y1="{TOP + 16}" x2="{start}" y2="{bottom}" stroke="#222222"'
           ' stroke-dasharray="4 3"/>')
    yield from axis(bottom)
    yield "</svg>"


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    print("\n".join(picture(sys.argv[1])))


if __name__ == "__main__":
    main()
