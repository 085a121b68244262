"""Tables in Markdown."""


def ratio(small, large):
    return large / small if small else float("inf")


def milliseconds(seconds):
    return f"{seconds * 1000:,.3g}" if seconds < 1 else f"{seconds * 1000:,.0f}"


def megabytes(count):
    return "" if count is None else f"{count / 1e6:.1f}"


def kilobytes(count):
    return f"{count / 1e3:,.1f}"


def table(headings, rows):
    lines = [headings, ["---"] + ["---:"] * (len(headings) - 1), *rows]
    return "\n".join("| " + " | ".join(cells) + " |" for cells in lines) + "\n"


def pair(values, text):
    """The cells of a figure: small, large, ratio."""
    small, large = values
    return [text(small), text(large), f"{ratio(small, large):.2f}"]


def times(figures):
    """`figures`: {measure: (seconds, CPU seconds, bytes of the answer)}, each a pair of small and large, or None"""
    headings = ["measure", "small, ms", "large, ms", "ratio", "small, CPU ms", "large, CPU ms", "ratio", "small, kB",
                "large, kB"]
    return table(headings, [[name, *(pair(seconds, milliseconds) if seconds else [""] * 3), *pair(cpu, milliseconds),
                             *(map(kilobytes, size) if size else [""] * 2)]
                            for name, (seconds, cpu, size) in figures.items()])


def memories(figures):
    """`figures`: {when: bytes of small and large}"""
    return table(["memory, MB", "small", "large", "ratio"],
                 [[name, *pair(values, megabytes)] for name, values in figures.items()])


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
