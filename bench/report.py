"""Tables in Markdown."""


def ratio(small, large):
    return large / small if small else float("inf")


def growth(values):
    """Of the largest panel to the smallest."""
    return ratio(values[0], values[-1])


def milliseconds(seconds):
    return f"{seconds * 1000:,.3g}" if seconds < 1 else f"{seconds * 1000:,.0f}"


def megabytes(count):
    return "" if count is None else f"{count / 1e6:.1f}"


def table(headings, rows):
    lines = [headings, ["---"] + ["---:"] * (len(headings) - 1), *rows]
    return "\n".join("| " + " | ".join(cells) + " |" for cells in lines) + "\n"


def by_size(what, jobs, figures, text):
    """`figures`: {measure: one for each size}"""
    return table([what, *(f"{count:,} jobs" for count in jobs), "ratio"],
                 [[name, *map(text, values), f"{growth(values):.1f}"] for name, values in figures.items()])


def lists(figures):
    """`figures`: {jobs: (of the command, of record reads beside it)}"""
    commands = table(["jobs", "rows of `zelvek job list`", "ms", "command's peak, MB", "service's peak, MB"],
                     [[f"{jobs:,}", f"{listed['rows']:,}", milliseconds(listed["seconds"]),
                       megabytes(listed["command"]), megabytes(listed["peak"])]
                      for jobs, (listed, _) in figures.items()])
    reads = table(["jobs", "record read alone, ms", "beside the command", "beside a slow reader of what it prints",
                   "beside a slow reader of an answer", "service's peak, MB"],
                  [[f"{jobs:,}", *(milliseconds(beside[way]) for way in beside if way != "peak"),
                    megabytes(beside["peak"])] for jobs, (_, beside) in figures.items()])
    return commands + "\n" + reads
