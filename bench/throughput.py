"""Certificates in a minute, and what each costs, with pebble as the authority; lego beside it."""
import argparse
import os
import subprocess
import sys
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import chart
import kernel
import report
import sandbox
from process import wait_until
from world import WEB_ADDRESS, World

PLUGIN = "ambrin-pebble"
LEAST_JOBS, TURNS = 25, 6  # of a row: so many jobs, or so many for each run at once
OF_A_USER = 10  # jobs
MEMORY_EVERY = 50  # jobs
BETWEEN_LOOKS = 0.1  # seconds, at the service's log
LIMIT = 1800  # seconds that a row may take
TICK = os.sysconf("SC_CLK_TCK")


def add_arguments(parser):
    parser.add_argument("--binaries", default="build/release/bin", type=os.path.abspath)
    parser.add_argument("--at-once", default="1,4,16,64", type=numbers, help="runs that go on at once")
    parser.add_argument("--lego", default="1,4", type=numbers, help="certificates that lego fetches at once; 0: none")
    parser.add_argument("--rounds", default=2, type=int, help="of all of these in turn")
    parser.add_argument("--long", default=500, type=int, metavar="JOBS", help="of the last row, with 16 runs at once; 0: none")
    parser.add_argument("--plot", type=Path, metavar="SVG", help="draw it into this file")
    parser.add_argument("inside", nargs="?", help=argparse.SUPPRESS)


def numbers(text):
    return [number for number in map(int, text.split(",")) if number > 0]


def run(options):
    if options.inside is None:
        plot = [] if options.plot is None else ["--plot", options.plot.absolute()]
        command = [sys.executable, os.path.abspath(sys.argv[0]), *sys.argv[1:], *plot]
        return sandbox.run(list(map(str, command)))
    sandbox.as_init(lambda: measure(options))
    return 0


def measure(options):
    rows = planned(options)
    bench = Bench(options.inside, options.binaries, sum(row.jobs for row in rows))
    try:
        bench.start()
        for row in rows:
            row.measure(bench)
            print(row, file=sys.stderr, flush=True)
    finally:
        bench.world.close()
    print_all(options, rows)
    return 0


def planned(options):
    """The rows in the order in which they are measured: all kinds in turn, so that other work on the machine hits all alike."""
    round_of_rows = [ServiceRow(at_once, jobs_for(at_once)) for at_once in options.at_once]
    round_of_rows += [LegoRow(at_once, jobs_for(at_once)) for at_once in options.lego]
    rows = [type(row)(row.at_once, row.jobs) for _ in range(options.rounds) for row in round_of_rows]
    return rows + ([ServiceRow(16, options.long)] if options.long else [])


def jobs_for(at_once):
    return max(LEAST_JOBS, TURNS * at_once)


class Bench:
    """Pebble that validates at once, a web server for the answers, and names of which each is used once."""

    def __init__(self, folder, binaries, count):
        self.names = iter([f"site{number}.example" for number in range(count + 2)])
        hosts = {f"site{number}.example": WEB_ADDRESS for number in range(count + 2)}
        sandbox.set_up_network(folder, hosts)
        self.world = World(os.path.join(folder, "world"), binaries)
        self.usage = self.world.path("own-cpu")
        self.lego_folder, self.web_root = self.world.path("lego"), self.world.path("webroot")

    def start(self):
        self.world.start_web({"placeholder.example": ["placeholder.example"]})
        self.world.start_quiet_pebble(PLUGIN)
        os.makedirs(os.path.join(self.web_root, ".well-known"))
        os.symlink(self.world.answers, os.path.join(self.web_root, ".well-known", "acme-challenge"))
        library = self.world.path("own_cpu.so")
        source = os.path.join(os.path.dirname(os.path.abspath(__file__)), "own_cpu.cpp")
        subprocess.run(["g++", "-O1", "-shared", "-fPIC", "-o", library, source], check=True)
        self.world.preload(library, OWN_CPU=self.usage)
        # The first of each registers the account.
        ServiceRow(1, 1).measure(self)
        LegoRow(1, 1).measure(self)

    def some_names(self, count):
        return [next(self.names) for _ in range(count)]

    def others_cpu(self):
        """Seconds of CPU of authority and web server."""
        return sum(kernel.cpu(pid) for part in (self.world.pebble.pid, self.world.web.pid)
                   for pid in (part, *sandbox.descendants(part)))


class Row:
    """Some jobs by one client, so many at once, and what they took."""

    def __init__(self, at_once, jobs):
        self.at_once, self.jobs = at_once, jobs
        self.seconds = 0
        self.cpu = {}  # part: seconds of CPU

    def __str__(self):
        parts = ", ".join(f"{name} {1000 * cpu / self.jobs:.1f}" for name, cpu in self.cpu.items())
        return f"{self.client}, {self.at_once} at once: {self.jobs} jobs in {self.seconds:.1f} s; CPU ms each: {parts}"

    def measure(self, bench):
        names = bench.some_names(self.jobs)
        self.prepare(bench, names)
        others, begin = bench.others_cpu(), time.monotonic()
        self.carry_out(bench, names)
        self.seconds = time.monotonic() - begin
        self.cpu["authority and web server"] = bench.others_cpu() - others

    def nothing(self):
        """A row of the same kind to which others can be added."""
        return type(self)(self.at_once, 0)

    def add(self, other):
        self.jobs += other.jobs
        self.seconds += other.seconds
        for part, cpu in other.cpu.items():
            self.cpu[part] = self.cpu.get(part, 0) + cpu

    def rate(self):
        """Jobs in a minute."""
        return 60 * self.jobs / self.seconds

    def own_cpu(self):
        """Milliseconds of the client for each job."""
        return sum(self.each(part) for part in self.parts)

    def each(self, part):
        return 1000 * self.cpu[part] / self.jobs

    def busy(self):
        """Processors that client, authority and web server have kept busy."""
        return sum(self.cpu.values()) / self.seconds


class ServiceRow(Row):
    client = "zelvek"
    parts = ("service", "plug-in", "its tools", "installation's shell")

    def prepare(self, bench, names):
        """Without a scheduler, so that all are due when it begins."""
        self.memory = {}
        self._start(bench, "off")
        for number, name in enumerate(names):
            bench.world.query("zelvek.job.add", domain=name, user_name=f"user{number // OF_A_USER}", csr_key_type="ec",
                              skip_account_check="on", foreign_names="on")
        bench.world.stop_service()

    def _start(self, bench, scheduler):
        # What the production authority would limit, and whom it would ask, is no matter here.
        bench.world.start_service("--runs-at-once", str(self.at_once), "--orders-limit", "1000000", "--failures-limit", "1000",
                                  "--public-resolvers", "off", scheduler=scheduler, reload_command="true")

    def carry_out(self, bench, _):
        log = Path(bench.world.log_path("service"))
        seen, used = log.stat().st_size, plugins_cpu(bench.usage)
        self._start(bench, "on")
        pid = bench.world.service.pid

        def all_ended():
            with open(log, "rb") as file:
                file.seek(seen)
                ended = file.read().count(b": run ended with status")
            self.memory.setdefault(ended // MEMORY_EVERY * MEMORY_EVERY, kernel.memory(pid))
            time.sleep(BETWEEN_LOOKS)
            return ended >= self.jobs

        wait_until(all_ended, f"{self.jobs} runs end", LIMIT)
        children = children_cpu(pid)
        plugins, tools = (now - before for now, before in zip(plugins_cpu(bench.usage), used))
        self.cpu = {"service": kernel.cpu(pid), "plug-in": plugins, "its tools": tools,
                    "installation's shell": max(0.0, children - plugins - tools)}
        state = bench.world.ask("status")["jobs"]
        bench.world.stop_service()
        if state["verified"] != sum(state.values()):
            raise RuntimeError(f"not every job has its certificate: {state}\n{bench.world.describe()}")


def plugins_cpu(file):
    """Seconds of CPU of all plug-ins so far, and of the tools that they have started."""
    if not os.path.exists(file):
        return 0.0, 0.0
    lines = [line.split() for line in Path(file).read_text(encoding="ascii").splitlines()]
    return tuple(sum(int(line[column]) for line in lines) / 1e6 for column in (0, 1))


def children_cpu(pid):
    """Seconds of CPU of those that the process has waited for."""
    fields = Path(f"/proc/{pid}/stat").read_text(encoding="ascii", errors="replace").rpartition(")")[2].split()
    return (int(fields[13]) + int(fields[14])) / TICK


class LegoRow(Row):
    client = "lego"
    parts = ("lego",)

    def prepare(self, bench, names):
        pass

    def carry_out(self, bench, names):
        with ThreadPoolExecutor(self.at_once) as threads:
            self.cpu["lego"] = sum(threads.map(lambda name: fetch_with_lego(bench, name), names))


def fetch_with_lego(bench, name):
    """Seconds of CPU."""
    command = ["lego", "--path", bench.lego_folder, "--server", "https://localhost:14000/dir", "--email", "admin@example.org",
               "--accept-tos", "--http", "--http.webroot", bench.web_root, "--domains", name, "run"]
    with open(bench.world.log_path("lego"), "ab") as log:
        process = subprocess.Popen(command, env=os.environ | {"LEGO_CA_CERTIFICATES": bench.world.ca.root},
                                   stdin=subprocess.DEVNULL, stdout=log, stderr=log)
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        raise RuntimeError(f"lego fails:\n{bench.world.describe()}")
    return usage.ru_utime + usage.ru_stime


def print_all(options, rows):
    long = rows.pop() if options.long else None
    kinds = {}
    for row in rows:
        kinds.setdefault((row.client, row.at_once), row.nothing()).add(row)
    rows = list(kinds.values())
    print(table(rows + [long] if long else rows))
    if long:
        print(report.table([f"memory of the service after, of {long.jobs} jobs", "MB"],
                           [[str(jobs), report.megabytes(size)] for jobs, size in sorted(long.memory.items())]))
    if options.plot:
        lines = {}
        for row in rows:
            lines.setdefault(row.client, []).append((row.at_once, row.rate()))
        options.plot.write_text(chart.svg("at once", "certificates in a minute", lines), encoding="utf-8")


def table(rows):
    parts = [*ServiceRow.parts, "authority and web server"]
    headings = ["client", "at once", "jobs", "jobs a minute", "CPU ms each", *(f"of it {part}" for part in parts[:-1]), parts[-1],
                "processors busy with it"]
    return report.table(headings, [[row.client, str(row.at_once), str(row.jobs), f"{row.rate():.0f}", f"{row.own_cpu():.0f}",
                                    *(f"{row.each(part):.1f}" if part in row.cpu else "" for part in parts),
                                    f"{row.busy():.2f}"] for row in rows])
