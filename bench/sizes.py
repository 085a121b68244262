"""How the service's work grows with the number of jobs that it keeps."""
import argparse
import os
import shutil
import sys
import tempfile
import time
from pathlib import Path

import chart
import measures
import report
from panel import Panel
from zelvek import Service

LIMIT = 3  # of the ratio of a checked measure, in time and in CPU time
CHECKED = ["start until ready", "record read", "write-back", "job.show", "job.list, a page of 100",
           "scheduler's look, nothing due", "scheduler's look, 10 due", "start of a due job, 10 due",
           "start of a due job, all waiting due", "sweep", "memory after the start", "memory after the queries"]
DRAWN = ["record read", "write-back", "job.list, a page of 100", "scheduler's look, 10 due",
         "start of a due job, all waiting due", "start until ready", "memory after the queries"]


def add_arguments(parser):
    parser.add_argument("--binary", default="build/release/bin/zelvek", type=os.path.abspath)
    parser.add_argument("--jobs", default="100,1000,10000,100000", type=sizes, metavar="SMALLEST,...,LARGEST")
    parser.add_argument("--events", default=20, type=int, help="of each job")
    parser.add_argument("--rounds", default=200, type=int, help="of each query; of other measures in proportion")
    parser.add_argument("--seconds", default=30, type=float, help="that a measure may take before its rounds are cut")
    parser.add_argument("--directory", help="where the databases lie meanwhile")
    parser.add_argument("--check", action="store_true", help=f"fail where a wanted ratio is above {LIMIT}")
    parser.add_argument("--plot", type=Path, metavar="SVG", help="draw what grows into this file")


def sizes(text):
    jobs = [int(part) for part in text.split(",")]
    if len(jobs) < 2 or jobs[0] < 100 or jobs != sorted(jobs):
        raise argparse.ArgumentTypeError("two sizes or more, the smallest first, 100 at least")
    return jobs


def run(options):
    folder = Path(tempfile.mkdtemp(prefix="sizes-", dir=options.directory))
    try:
        seconds, cpu, memory = measure(options, folder)
    finally:
        shutil.rmtree(folder)
    if options.plot:
        draw(options.plot, options.jobs, cpu | memory)
    too_large = {name: ratio for name, ratio in ratios(seconds, cpu, memory).items() if name in CHECKED and ratio > LIMIT}
    for name, ratio in too_large.items():
        print(f"{name}: grows by {ratio:.1f}, more than {LIMIT}")
    return 1 if options.check and too_large else 0


def ratios(*tables):
    """Of each measure the ratio of time, of CPU time or of memory, the largest one."""
    return {name: max(report.growth(table[name]) for table in tables if name in table)
            for name in {name for table in tables for name in table}}


def draw(file, jobs, figures):
    lines = {name: [(count, value / figures[name][0]) for count, value in zip(jobs, figures[name])] for name in DRAWN}
    file.write_text(chart.svg("jobs in the panel", f"CPU time and memory, compared with {jobs[0]} jobs", lines),
                    encoding="utf-8")


def measure(options, folder):
    """Prints all figures; returns {measure: one for each size} for time, CPU time and memory."""
    rounds = measures.Rounds(options.rounds, options.seconds)
    services = [Service(options.binary, folder / str(size), Panel(size, options.events)) for size in options.jobs]
    try:
        for service in services:
            progress(f"making a database: {service.panel}")
            service.make_database()
        seconds, cpu, memory = timed(services, rounds)
        progress("the list, read slowly")
        lists = listed(services, rounds)
    finally:
        for service in services:
            service.stop()
    print(report.by_size("CPU of the service, ms", options.jobs, cpu, report.milliseconds),
          report.by_size("time, ms", options.jobs, seconds, report.milliseconds),
          report.by_size("memory, MB", options.jobs, memory, report.megabytes), report.lists(lists), sep="\n", flush=True)
    return seconds, cpu, memory


def progress(text, begin=time.monotonic()):
    print(f"[{time.monotonic() - begin:4.0f} s] {text}", file=sys.stderr, flush=True)


def timed(services, rounds):
    """Time, CPU time and memory: {measure: one for each service}"""
    progress("start")
    names = ["start until ready", "start until a first answer"]
    both = dict(zip(names, measures.start(services, rounds.part(5))))
    progress("idle")
    used, fresh = measures.idle(services, 10)
    cpu = {"idle for 10 s": used}
    progress("looks and sweeps")
    cpu["scheduler's look, nothing due"] = measures.look(services, 10)
    cpu["sweep"] = measures.sweep(services, 10)
    progress("queries")
    for service in services:
        service.start_quiet()
    both |= measures.queries(services, rounds)
    memory = {"memory after the start": fresh, "memory after the queries": [service.memory() for service in services]}
    for service in services:
        service.stop()
    progress("looks with due jobs")
    cpu["scheduler's look, 10 due"] = measures.look_with_due(services, 10)
    cpu["start of a due job, 10 due"] = measures.starts_of_due(services, 10)
    cpu["start of a due job, all waiting due"] = measures.starts_of_backlog(services, 10)
    seconds = {name: [pair[0] for pair in pairs] for name, pairs in both.items()}
    return seconds, {name: [pair[1] for pair in pairs] for name, pairs in both.items()} | cpu, memory


def listed(services, rounds):
    """{jobs: (figures of the list as a command, of record reads beside it)}"""
    figures = {}
    for service in services:
        service.start_quiet()
        figures[service.panel.jobs] = measures.list_command(service), measures.beside_lists(service, rounds)
        service.stop()
    return figures
