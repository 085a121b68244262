"""Ending the plug-in, or the service, at any one of a run's steps outside: query, exchange or child process."""
import contextlib
import dataclasses
import os
import re
import signal
import sqlite3
import ssl

from ca import read
from fixture import SharedWorldTest, account_key
from process import LONG, Background, wait_until
from world import INSTALLED, NOTHING_TO_DO, RESOLVERS

PLUGIN, SERVICE, NAME_SERVER = "plug-in", "service", "name server"

# Notifications and whom they go to, in the order in which they are sent.
INSTALLED_TOLD = [("ambrin_success", "anna"), ("ambrin_success", "root")]


@dataclasses.dataclass(frozen=True)
class End:
    """Who ends, by which signal, and at which moment of a step: "ahead", "sent", "answered" (see steps.cpp)."""
    victim: str
    signal: signal.Signals
    moment: str

    def is_for(self, step):
        """Exchanges and children have nothing to do with the service, and are not told apart on their way."""
        is_query = "." in step or step in ("domain", "ambrin_challenge")
        return is_query or self.moment == "ahead" or (self.moment == "answered" and self.victim == PLUGIN)


MOMENTS = ("ahead", "sent", "answered")
KILLED_PLUGIN = [End(PLUGIN, signal.SIGKILL, moment) for moment in MOMENTS]
TERMINATED_PLUGIN = [End(PLUGIN, signal.SIGTERM, moment) for moment in MOMENTS]
KILLED_SERVICE = [End(SERVICE, signal.SIGKILL, moment) for moment in MOMENTS]
NAME_SERVER_AWAY = [End(NAME_SERVER, signal.SIGTERM, "ahead")]
UNDISTURBED = End(PLUGIN, signal.SIGTERM, "never")


class Steps:
    """Runs of the shipped plug-in whose steps are counted."""

    def __init__(self, world):
        self._world, self._runs = world, 0

    def start(self, job, number=0, end=UNDISTURBED):
        """The plug-in alone, without the command that follows it; at that step it, or another process, ends."""
        self._runs += 1
        victim = PLUGIN if end.victim == PLUGIN else SERVICE
        other = self._world.dns if end.victim == NAME_SERVER else self._world.service
        log = self._world.path(f"steps-{self._runs}")
        env = self._world.environment() | {
            "LD_PRELOAD": self._world.binary("steps.so"), "STEPS_LOG": log,
            "STEPS_ACTION": f"{number} {end.moment} {victim} {end.signal.value} {other.pid}"}
        run = Background(f"ambrin {job}", [self._world.binary("ambrin"), str(job)], self._world.log_path("plug-in"), env)
        run.steps_path = log
        return run

    def names(self, run, exchanges=()):
        """What each step of a run was: the function queried, the authority's resource, or "child"."""
        names, resources = [], iter(exchanges)
        for line in read(run.steps_path).splitlines():
            if line.startswith("func="):
                names[-1] = line.removeprefix("func=")
            elif line != "reached":
                names.append(next(resources, line) if line == "exchange" else line)
        return names

    def count(self, job):
        """The names of the steps of an undisturbed run."""
        before = len(self._world.authority.requests())
        run = self.start(job)
        run.process.wait(LONG)
        return self.names(run, [exchange.resource for exchange in self._world.authority.requests()[before:]])

    def end_at(self, job, number, end):
        """Returns when the plug-in is gone; that its run is over is the next run's to find out. A service that is killed is
        started again at once, as an init system would; a name server is away until the run's end."""
        world, service = self._world, self._world.service
        run = self.start(job, number, end)
        if end.victim == SERVICE:
            wait_until(lambda: any(part.process.poll() is not None for part in (service, run)), "the step is reached")
            world.stop_service(signal.SIGKILL)
            world.restart_service()
        run.process.wait(LONG)
        if end.victim == NAME_SERVER:
            world.dns.restart(RESOLVERS)
        if "reached\n" not in read(run.steps_path):
            raise AssertionError(f"{end} of step {number} was never reached")


class StepTest(SharedWorldTest):
    """Jobs for one domain, each with a certificate of its own, whose runs are ended at one step each."""

    domain = "shop.example"
    check_type = "http"

    @classmethod
    def prepare_steps(cls):
        """An account to begin with, and the names of the steps of the runs that a job takes."""
        cls.world.take_account(account_key())
        cls.steps, cls.jobs = Steps(cls.world), 0
        job, _ = cls.add_job()
        cls.runs = []
        while not cls.world.job(job)["verified"]:
            cls.runs.append(cls.steps.count(job))

    @classmethod
    def add_job(cls):
        cls.jobs += 1
        certname = f"job-{cls.jobs}"
        answer = cls.world.query("zelvek.job.add", domain=cls.domain, user_name="anna", certname=certname, csr_key_type="ec",
                                 check_type=cls.check_type)
        return int(re.search("<id>([0-9]+)</id>", answer)[1]), certname

    @classmethod
    def finish(cls, job):
        """Further runs, a paused job's when its pause is over, until nothing is left to do; what each came to."""
        statuses = []
        while statuses[-1:] not in ([INSTALLED], [NOTHING_TO_DO]) and len(statuses) < 5:
            statuses.append(cls.world.run_job(job))
        return statuses

    def end_at_every_step(self, ends, check, run=0, perhaps=(), may_repeat=lambda number: True):
        """Calls `check(certname, statuses of the further runs, number of the step, its name, end)` after each.

        Of each people are told that it is installed, twice where `may_repeat(number of the step)`, and perhaps of these
        further problems. That is looked at when all are done: by one command, and what is told late counts, too.
        """
        done = []
        for end in ends:
            for number, step in enumerate(self.runs[run], 1):
                if not end.is_for(step):
                    continue
                with self.subTest(str(end), step=f"{number} {step}"):
                    job, certname = self.add_job()
                    for _ in range(run):
                        self.steps.start(job).process.wait(LONG)
                    self.steps.end_at(job, number, end)
                    self.check_sound(certname)
                    statuses = self.finish(job)
                    self.check_sound(certname)
                    check(certname, statuses, number, step, end)
                    done.append((certname, number, step, end))
        told = self.world.ask("problem", "list", "--state", "all")
        for certname, number, step, end in done:
            with self.subTest(str(end), step=f"{number} {step}"):
                heard = [(entry["name"], entry["owner"]) for entry in told if entry["parameters"]["name"] == certname]
                self.assertEqual(sorted({entry for entry in heard if entry[0] not in perhaps}), INSTALLED_TOLD)
                self.assertLessEqual(max(heard.count(entry) for entry in INSTALLED_TOLD), 2 if may_repeat(number) else 1)

    def check_sound(self, certname):
        self.assertEqual(database_faults(self.world.database), [])
        self.assertEqual(half_written(self.world.installed(certname)), [])


def database_faults(path):
    with contextlib.closing(sqlite3.connect(f"file:{path}?mode=ro", uri=True)) as database:
        return [text for (text,) in database.execute("pragma integrity_check") if text != "ok"]


def half_written(chain):
    """What is wrong with an installed certificate: key and chain are whole and belong together, or there is none."""
    key = os.path.join(os.path.dirname(chain), "privkey.pem")
    if not os.path.exists(chain) and not os.path.exists(key):
        return []
    try:
        ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER).load_cert_chain(chain, key)
        return []
    except OSError as error:  # of TLS, too
        return [str(error)]
