"""What is measured. Every measure treats all services alike, in alternation, and takes medians."""
import random
import threading
import time
import xml.etree.ElementTree as ElementTree
from contextlib import nullcontext
from statistics import median

import kernel
from panel import BIG_USER, JOBS_OF_A_USER, date_time, forget_accounts, restore_accounts, set_due
from zelvek import NEVER, query

FEWEST_ROUNDS = 5
INTERVAL = 0.01  # seconds between looks and between sweeps while these are measured
PAGE = 100
JOURNAL_LIMIT = 4 << 20  # bytes: SQLite's 1000 pages


class Rounds:
    """So many of them, fewer where they take longer than `seconds` together."""

    def __init__(self, most, seconds):
        self.most, self.seconds = most, seconds

    def __iter__(self):
        end = time.monotonic() + self.seconds
        for done in range(self.most):
            if done >= FEWEST_ROUNDS and time.monotonic() > end:
                return
            yield done

    def part(self, divisor):
        return Rounds(max(FEWEST_ROUNDS, self.most // divisor), self.seconds / divisor)


# Visits: generators that yield (name, query) and are sent the answer.

def run_of_a_job(panel, chance):
    """What every run does: reads its job's record, writes it back."""
    job = chance.choice(panel.waiting_jobs)
    answer = ElementTree.fromstring((yield "record read", query("ambrin.data.edit", elid=job, out="xml")))
    kept = ("elid", "kid", "finalize", "finalize_check", "challenges", "modulus", "acmekey", "account_check_count",
            "verified", "failed", "force_update")
    record = {key: answer.findtext(key) for key in kept}
    log = ";".join(f"{date_time()},processing,order_try,https://authority.example/order/{job}" for _ in range(3))
    yield "write-back", query("ambrin.data.edit", sok="ok", **record, next_attempt=date_time(2), attempt_count=1,
                              update_default_account="off", processing="off", log=log)


def shown_job(panel, chance):
    yield "job.show", query("zelvek.job.show", elid=chance.randint(1, panel.jobs))


def after(panel, chance, entries, share=1.0):
    """Where a page can begin that has so many entries, of a list that has this share of all jobs."""
    return chance.randint(0, max(0, int(panel.jobs - 2 * entries / share)))


def page(panel, chance):
    yield (f"job.list, a page of {PAGE}",
           query("zelvek.job.list", after=chance.randint(0, panel.jobs - PAGE), limit=PAGE))


def page_of_user(panel, chance):
    user = panel.owner(5 * chance.randint(1, panel.jobs // 5) - 1)
    yield f"job.list, a user's {JOBS_OF_A_USER}", query("zelvek.job.list", user_name=user, limit=JOBS_OF_A_USER)


def page_of_big_user(panel, chance):
    yield (f"job.list, {JOBS_OF_A_USER} of a user with a fifth of all",
           query("zelvek.job.list", user_name=BIG_USER, limit=JOBS_OF_A_USER, after=after(panel, chance, 20, 0.2)))


def failed_page(panel, chance):
    yield "job.list, 5 failed", query("zelvek.job.list", state="failed", limit=5, after=after(panel, chance, 5, 0.1))


def failed_page_of_big_user(panel, _):
    yield ("job.list, 2 failed of that user",
           query("zelvek.job.list", user_name=BIG_USER, state="failed", limit=2))


def running_page_of_big_user(panel, _):
    yield ("job.list, that user's running (none)",
           query("zelvek.job.list", user_name=BIG_USER, state="running", limit=20))


def notifications(panel, chance):
    yield ("problem.list, a page of 50",
           query("zelvek.problem.list", limit=50, after=chance.randint(0, panel.notifications - 50)))


VISITS = [run_of_a_job, shown_job, page, page_of_user, page_of_big_user, failed_page, failed_page_of_big_user,
          running_page_of_big_user, notifications]


def visit(service, generator, samples):
    """Carries out one visit; adds (seconds, seconds of the service's CPU, bytes) to `samples[name]`."""
    name, text = next(generator)
    while True:
        cpu, begin = service.cpu(), time.perf_counter()
        answer = service.ask(text)
        seconds = time.perf_counter() - begin
        samples.setdefault(name, []).append((seconds, service.cpu() - cpu, len(answer)))
        try:
            name, text = generator.send(answer)
        except StopIteration:
            return


def in_turn(services, rounds):
    """The services, each once a round, the first one being another each time."""
    for done in rounds:
        first = done % len(services)
        yield from services[first:] + services[:first]


def queries(services, rounds):
    """{name: [(seconds, CPU seconds, bytes of the answer) of each service]}"""
    table = {}
    chance = random.Random(1)
    for service in services:
        fill_journal(service, chance, rounds.seconds)
    for kind in VISITS:
        samples = {service: {} for service in services}
        for service in in_turn(services, rounds):
            visit(service, kind(service.panel, chance), samples[service])
        for name in samples[services[0]]:
            table[name] = [middle(samples[service][name]) for service in services]
    return table


def fill_journal(service, chance, seconds):
    """A journal that still grows makes every commit dearer, so it would count how often a service was asked."""
    end = time.monotonic() + seconds
    while service.journal_size() < JOURNAL_LIMIT and time.monotonic() < end:
        visit(service, run_of_a_job(service.panel, chance), {})


def middle(samples):
    return tuple(median(values) for values in zip(*samples))


def start(services, rounds):
    """(seconds, CPU seconds) of each service until it is ready, and until it has answered a first query."""
    ready, answered = ({service: [] for service in services} for _ in range(2))
    for service in in_turn(services, rounds):
        begin = time.perf_counter()
        seconds = service.start()
        ready[service].append((seconds, service.cpu()))
        service.ask(query("zelvek.job.show", elid=1))
        answered[service].append((time.perf_counter() - begin, service.cpu()))
        service.stop()
    return [[middle(samples[service]) for service in services] for samples in (ready, answered)]


def periodic(services, seconds, **options):
    """CPU seconds of one look, or one sweep, whichever runs every INTERVAL; of each service."""
    for service in services:
        service.start(**options)
    time.sleep(1)
    samples = {service: [] for service in services}
    for _ in range(FEWEST_ROUNDS):
        before = [kernel.threads(service.pid) for service in services]
        time.sleep(seconds / FEWEST_ROUNDS)
        for service, threads in zip(services, before):
            cost = cost_of_a_turn(threads, kernel.threads(service.pid))
            if cost is not None:
                samples[service].append(cost)
    for service in services:
        service.stop()
    return [median(samples[service]) for service in services]


def cost_of_a_turn(before, after):
    """CPU seconds from one sleep to the next, of the thread that has slept most often: it sleeps once a turn."""
    turns, thread = max((after[name][1] - before[name][1], name) for name in after if name in before)
    return (after[thread][0] - before[thread][0]) / turns if turns > 0 else None


def look(services, seconds):
    """One look of the scheduler when no job is due."""
    return periodic(services, seconds, scheduler_interval=INTERVAL, sweep_interval=NEVER)


def look_with_due(services, seconds):
    """One look when ten jobs are due and none can be started: all wait for the first registration of an account, which a
    run that sleeps has begun."""
    for service in services:
        jobs = service.panel.due_jobs[:11]
        set_due(service.database, jobs, date_time(-1))
        forget_accounts(service.database, jobs)
    costs = look(services, seconds)
    for service in services:
        jobs = service.panel.due_jobs
        restore_accounts(service.database, jobs[:11])
        set_due(service.database, jobs, date_time(0.5))
    return costs


def starts_of_due(services, seconds):
    """CPU seconds for a job that is due to be found, started and freed; ten become due together, some times."""
    for service in services:
        set_due(service.database, service.panel.due_jobs[-10:], date_time(-1))
    return starts(services, seconds)


def starts_of_backlog(services, seconds):
    """The same where all waiting jobs are due, as after a day without the service."""
    for service in services:
        set_due(service.database, service.panel.waiting_jobs, date_time(-1))
    return starts(services, seconds)


def starts(services, seconds):
    for service in services:
        service.start(stub="ender", scheduler_interval=1, retry_interval=1, sweep_interval=NEVER)
    before = [(service.runs_started(), service.cpu()) for service in services]
    time.sleep(seconds)
    costs = []
    for service, (runs, cpu) in zip(services, before):
        costs.append((service.cpu() - cpu) / max(1, service.runs_started() - runs))
        service.stop()
    return costs


def sweep(services, seconds):
    """One sweep that finds nothing to remove."""
    return periodic(services, seconds, scheduler="off", sweep_interval=INTERVAL)


def idle(services, seconds):
    """CPU seconds that a service uses in this time when nobody asks, and its memory when it has been started."""
    for service in services:
        service.start()
    time.sleep(2)
    memory = [service.memory() for service in services]
    before = [service.cpu() for service in services]
    time.sleep(seconds)
    used = [service.cpu() - begin for service, begin in zip(services, before)]
    for service in services:
        service.stop()
    return used, memory


class Beside:
    """Something that has begun when the block below `with` begins, and goes on in another thread to the block's end."""

    def __init__(self, work):
        self._begun, self._finish = threading.Event(), threading.Event()
        self._thread = threading.Thread(target=work, args=(self._begun, self._finish))

    def __enter__(self):
        self._thread.start()
        self._begun.wait()

    def __exit__(self, *error):
        self._finish.set()
        self._thread.join()


def listing(service):
    """The list command, again and again."""
    def work(begun, finish):
        while not finish.is_set():
            with service.command("job", "list") as process:
                begun.set()
                process.stdout.read()
    return Beside(work)


def reading_slowly(source, read):
    """Takes a few bytes now and then, and the rest at the end."""
    def work(begun, finish):
        with source:
            while read(1 << 20 if finish.is_set() else 256):
                begun.set()
                finish.wait(0.05)
        begun.set()
    return Beside(work)


def slow_command(service):
    process = service.command("job", "list")
    return reading_slowly(process, process.stdout.read1)


def slow_answer(service):
    connection = service.connect(query("zelvek.job.list"))
    return reading_slowly(connection, connection.recv)


WAYS = {"alone": lambda _: nullcontext(), "listing": listing, "slow command": slow_command, "slow answer": slow_answer}


def list_command(service):
    """Seconds and rows of `zelvek job list`, and the most memory that the service and the command had."""
    kernel.forget_peak(service.pid)
    begin = time.perf_counter()
    with service.command("job", "list") as process:
        first = process.stdout.read(1)  # it prints when it has everything
        command = command_peak(process)
        rows = (first + process.stdout.read()).count(b"\n") - 1
    return {"seconds": time.perf_counter() - begin, "rows": rows, "peak": kernel.peak_memory(service.pid), "command": command}


def command_peak(process):
    """None for one that has ended already: what it prints fits into the pipe, so it is small."""
    try:
        return kernel.peak_memory(process.pid)
    except RuntimeError:
        return None


def beside_lists(service, rounds, blocks=5):
    """Seconds of a record read while nobody else asks, while the list command asks, while somebody slowly reads what it
    prints, and while somebody slowly reads an answer from the socket; and the most memory that the service had."""
    samples = {way: {} for way in WAYS}
    kernel.forget_peak(service.pid)
    chance = random.Random(2)
    for _ in range(blocks):
        for way, beside in WAYS.items():
            with beside(service):
                for _ in rounds.part(blocks):
                    visit(service, run_of_a_job(service.panel, chance), samples[way])
    seconds = {way: middle(taken["record read"])[0] for way, taken in samples.items()}
    return seconds | {"peak": kernel.peak_memory(service.pid)}
