"""A line chart as SVG, both axes logarithmic; readable on light and on dark paper."""
import math

WIDTH, HEIGHT = 760, 400
LEFT, RIGHT, TOP, BOTTOM = 60, 250, 40, 50
COLOURS = ["#1f77b4", "#d62728", "#2ca02c", "#ff7f0e", "#9467bd", "#8c564b", "#17a2b8"]
GREY = "#888888"
STEPS = (1, 2, 5)  # of each power of ten, where the value axis has its lines
LINE_OF_TEXT = 20


class Axis:
    """Places of values between two ends, one pixel line for each power of the same size."""

    def __init__(self, low, high, begin, end):
        self._low, self._begin = math.log(low), begin
        self._scale = (end - begin) / (math.log(high) - self._low)

    def place(self, value):
        return round(self._begin + (math.log(value) - self._low) * self._scale, 1)


def steps_around(values):
    """Round numbers from below the least value to above the largest."""
    powers = range(math.floor(math.log10(min(values))) - 1, math.ceil(math.log10(max(values))) + 2)
    steps = [step * 10.0 ** power for power in powers for step in STEPS]
    low = max(step for step in steps if step <= min(values))
    high = min(step for step in steps if step > max(values))
    return [step for step in steps if low <= step <= high]


def text(x, y, words, anchor="start", colour=GREY):
    return f'<text x="{x}" y="{y}" text-anchor="{anchor}" fill="{colour}">{words}</text>'


def rule(x1, y1, x2, y2):
    return f'<line x1="{x1}" y1="{y1}" x2="{x2}" y2="{y2}" stroke="{GREY}" stroke-width="0.5" stroke-opacity="0.5"/>'


def curve(points, colour):
    path = " ".join(f"{x},{y}" for x, y in points)
    dots = "".join(f'<circle cx="{x}" cy="{y}" r="3" fill="{colour}"/>' for x, y in points)
    return f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="2"/>{dots}'


def svg(across, title, lines):
    """`lines`: {name: [(place, value above 0)]}; `across`: what the places are."""
    steps = steps_around([value for points in lines.values() for _, value in points])
    places = sorted({place for points in lines.values() for place, _ in points})
    right, bottom = WIDTH - RIGHT, HEIGHT - BOTTOM
    horizontal = Axis(places[0], places[-1], LEFT, right)
    vertical = Axis(steps[0], steps[-1], bottom, TOP)
    parts = [text(LEFT, TOP - LINE_OF_TEXT, title), text((LEFT + right) / 2, HEIGHT - 8, across, "middle")]
    for step in steps:
        parts += [rule(LEFT, vertical.place(step), right, vertical.place(step)),
                  text(LEFT - 8, vertical.place(step) + 4, f"{step:,g}", "end")]
    for place in places:
        parts += [rule(horizontal.place(place), TOP, horizontal.place(place), bottom),
                  text(horizontal.place(place), bottom + 18, f"{place:,}", "middle")]
    for number, (name, points) in enumerate(lines.items()):
        colour = COLOURS[number % len(COLOURS)]
        parts += [curve([(horizontal.place(place), vertical.place(value)) for place, value in points], colour),
                  text(right + 16, TOP + 8 + number * LINE_OF_TEXT, name, colour=colour)]
    return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" font-family="sans-serif" font-size="13">\n'
            + "\n".join(parts) + "\n</svg>\n")
