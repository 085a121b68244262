"""dns-01 jobs whose records are late, refused, there before, or left behind: people are told, and nothing stays."""
import contextlib
import hashlib
import json
import os
import shutil
import signal
import socket
from datetime import datetime, timedelta, timezone

from authority import thumbprint
from ca import read
from client import encode
from fixture import DnsTest, account_key
from process import LONG, wait_until
from world import FAILURE, INSTALLED, RESOLVERS, WAITING

PAUSE = timedelta(minutes=30)
WRONG_SECRET = "bm90IHRoZSBrZXkgdGhhdCB0aGUgc2VydmVyIGhhcyE="


def now():
    return datetime.now(timezone.utc).replace(tzinfo=None, microsecond=0)


def bare(value):
    """A TXT value without the quotes that dig shows."""
    return value.strip('"')


# Behaviours of: Issuing
class LateRecord(DnsTest):
    """Records that the resolvers do not show."""

    def published_job(self, *options):
        job = self.add_job(*options)
        self.assertEqual(self.world.run_job(job), WAITING)
        return job

    def answer_at(self, resolvers):
        """The further resolvers refuse: their ports are closed."""
        self.world.dns.restart(resolvers)
        self.addCleanup(self.world.dns.restart, RESOLVERS)

    def assert_pauses_for(self, job, missing):
        self.assertEqual(self.world.run_job(job), WAITING)
        self.assertEqual(self.told("ambrin_pause")["root"]["records"], missing)

    # Behaviour: A record that is not visible pauses the job for half an hour and tells all three, and the job goes on
    #   when it is
    def test_record_that_is_not_visible_pauses_the_job_for_half_an_hour_and_tells_all_three(self):
        self.world.dns.update(f"add {self.domain}. 5 NS ns2.{self.domain}.", f"add ns2.{self.domain}. 5 A 127.0.0.1")
        job = self.published_job("--alias", f"www.{self.domain}", "--res-name", "seller")
        record = f"_acme-challenge.www.{self.domain}"
        value, = self.published(record)
        self.world.dns.update(f"delete {record}. TXT")

        began = now()
        self.assertEqual(self.world.run_job(job), WAITING)
        next_attempt = datetime.fromisoformat(self.world.job(job)["next_attempt"]).replace(tzinfo=None)
        self.assertTrue(began + PAUSE <= next_attempt <= now() + PAUSE, next_attempt)
        told = self.told("ambrin_pause")
        self.assertCountEqual(told, ["root", "anna", "seller"])
        for parameters in told.values():
            self.assertEqual(parameters["records"], f"{record}. TXT {bare(value)}")
            self.assertCountEqual(parameters["ns"].split(", "), [f"ns.{self.domain}.", f"ns2.{self.domain}."])
            self.assertEqual(parameters["date"], str(next_attempt))

        self.world.dns.update(f"add {record}. 5 TXT {value}")
        self.assertEqual(self.world.run_job(job), INSTALLED)
        self.assertEqual([self.published(), self.published(record)], [[], []])

    # Behaviour: Of two values at one name the missing one alone is told
    def test_of_two_values_at_one_name_the_missing_one_alone_is_told(self):
        job = self.published_job("--alias", f"*.{self.domain}")
        missing, other = self.published()
        self.world.dns.update(f"delete {self.record}. TXT {missing}")
        self.assert_pauses_for(job, f"{self.record}. TXT {bare(missing)}")
        self.assertEqual(self.published(), [other])

        self.world.dns.update(f"add {self.record}. 5 TXT {missing}")
        self.assertEqual(self.world.run_job(job), INSTALLED)

    # Behaviour: Resolvers that are silent or refuse are passed ...
    def test_resolvers_that_refuse_are_passed_over(self):
        job = self.published_job()
        self.answer_at(RESOLVERS[4:])
        self.assertEqual(self.world.run_job(job), INSTALLED)
        self.assertEqual(self.looked_up(), {RESOLVERS[4]})

    # Behaviour: Resolvers that are silent or refuse are passed over
    def test_silent_resolver_is_passed_over(self):
        job = self.published_job()
        self.answer_at(RESOLVERS[1:])
        with contextlib.closing(socket.socket(socket.AF_INET, socket.SOCK_DGRAM)) as silent:
            silent.bind((RESOLVERS[0], 53))
            self.assertEqual(self.world.run_job(job), INSTALLED)
        self.assertEqual(self.looked_up(), {RESOLVERS[1]})

    # Behaviour: Without any resolver, or without dig, the job pauses
    def test_no_resolver_that_answers_pauses_the_job(self):
        job = self.published_job()
        value, = self.published()
        self.answer_at([])
        self.assert_pauses_for(job, f"{self.record}. TXT {bare(value)}")
        self.assertEqual(self.published(), [value])

        self.world.dns.restart(RESOLVERS)
        self.assertEqual(self.world.run_job(job), INSTALLED)

    # Behaviour: Without any resolver, or without dig, the ...
    def test_missing_dig_pauses_the_job(self):
        job = self.published_job()
        value, = self.published()
        tools = self.world.path("tools-without-dig")
        os.makedirs(tools)
        os.symlink(shutil.which("openssl"), os.path.join(tools, "openssl"))
        search_path, self.world.search_path = self.world.search_path, tools
        self.addCleanup(setattr, self.world, "search_path", search_path)
        self.assert_pauses_for(job, f"{self.record}. TXT {bare(value)}")
        self.assertEqual((self.told("ambrin_pause")["root"]["ns"], self.looked_up()), ("", set()))

        self.world.search_path = search_path
        self.assertEqual(self.world.run_job(job), INSTALLED)


# Behaviours of: Failing and recovering
class LostRecord(DnsTest):
    """Records that cannot be published, and records that are left behind."""

    def restart_service(self, *options):
        self.world.stop_service()
        self.world.start_service("--sweep-interval", "0.5", *options)

    def assert_not_published(self, reason):
        run = self.world.zelvek("job", "run", self.add_job())
        self.assertEqual(run.process.returncode, FAILURE)
        self.assertRegex(run.log(), f"(?m)^ambrin: DNS server 127.0.0.1:53: .*{reason}")
        self.assertNotIn(WRONG_SECRET, run.log())
        self.assertEqual((self.published(), self.world.recorded_publications(self.record)), ([], []))

    # Behaviour: A name server that refuses the key or the update fails the run
    def test_refused_key_fails_the_run(self):
        key = read(self.world.dns.key_file)
        self.addCleanup(self.use_key, key)
        self.use_key(key.replace(self.world.dns.secret, WRONG_SECRET))
        self.assert_not_published("the key is refused")

    # Behaviour: A name server that refuses the key or the ...
    def test_refused_update_fails_the_run(self):
        self.world.dns.restart(RESOLVERS, read_only=[self.domain])
        self.addCleanup(self.world.dns.restart, RESOLVERS)
        self.assert_not_published(f"the zone {self.domain} cannot be changed: .*REFUSED")

    def use_key(self, text):
        with open(self.world.dns.key_file, "w", encoding="utf-8") as file:
            file.write(text)

    # Behaviour: A record that cannot be published while the name server is down is made when it is back, and the job
    #   finishes
    def test_record_is_made_when_the_name_server_is_back_and_the_job_finishes(self):
        job = self.add_job()
        self.world.dns.halt()
        with contextlib.ExitStack() as server:
            server.callback(self.world.dns.start, RESOLVERS)
            self.assertEqual(self.world.run_job(job), WAITING)
        record = self.world.job(job)
        self.assertEqual((record["processing"], record["failed"]), (False, False))
        self.assertNotEqual(record["challenges"], [])
        value, = self.world.recorded_publications(self.record)
        self.assertIn("DNS server 127.0.0.1:53: ", self.world.service.log())

        wait_until(lambda: self.published() == [f'"{value}"'], "the service makes the record")
        self.assertEqual(self.world.run_job(job), INSTALLED)
        self.wait_nothing_left()

    # Behaviour: A job older than a day is stopped, and its records are removed
    def test_job_older_than_a_day_is_stopped_its_records_are_removed_and_all_three_are_told(self):
        job = self.add_job("--alias", f"www.{self.domain}", "--res-name", "seller")
        self.assertEqual(self.world.run_job(job), WAITING)
        records = [self.record, f"_acme-challenge.www.{self.domain}"]
        self.assertEqual([len(self.published(record)) for record in records], [1, 1])
        self.world.age_job(job, hours=25)
        self.assertEqual(self.world.run_job(job), FAILURE)

        self.assertEqual([self.published(record) for record in records], [[], []])
        self.assertEqual(self.world.events(job)[-1], ("failed", "timeout_error"))
        self.assertTrue(self.world.job(job)["failed"])
        self.assertCountEqual(self.told("ambrin_failed_admin"), ["root"])
        self.assertCountEqual(self.told("ambrin_failed_user"), ["anna", "seller"])

    # Behaviour: A run that is killed between publication and write-back leaves no TXT record
    def test_run_killed_between_publication_and_write_back_leaves_no_record(self):
        job = self.add_job()
        reached, gate = self.hold_updates()
        run = self.world.start_run(job)
        wait_until(lambda: os.path.exists(reached), "the record is published")
        self.assertEqual(len(self.published()), 1)
        os.kill(self.world.plugin(), signal.SIGKILL)
        run.process.wait(LONG)
        gate()

        self.wait_nothing_left()
        self.world.wait_run_over(job)
        record = self.world.job(job)
        self.assertEqual((record["attempt_count"], record["challenges"]), (0, []))  # as it was before the run
        self.assertEqual(self.world.run_job(job), WAITING)
        self.assertEqual(self.world.run_job(job), INSTALLED)
        self.assertEqual(self.published(), [])

    def hold_updates(self):
        """The service's nsupdate does its work, but does not return until the gate is opened."""
        tools, reached, opened = (self.world.path(name) for name in ("held-tools", "reached", "opened"))
        os.makedirs(tools)
        with open(os.open(os.path.join(tools, "nsupdate"), os.O_CREAT | os.O_WRONLY, 0o755), "w", encoding="ascii") as file:
            file.write(f'#!/bin/sh\n{shutil.which("nsupdate")} "$@"\nstatus=$?\n: >{reached}\n'
                       f'while [ ! -e {opened} ]; do sleep 0.05; done\nexit $status\n')
        search_path, self.world.search_path = self.world.search_path, f"{tools}:{self.world.search_path}"
        self.restart_service()
        self.world.search_path = search_path
        self.addCleanup(self.restart_service)
        return reached, lambda: open(opened, "w", encoding="ascii").close()

    # Behaviour: A run that is killed after its check is made up for by the next
    def test_run_killed_after_the_check_is_made_up_for_by_the_next(self):
        job = self.add_job()
        self.assertEqual(self.world.run_job(job), WAITING)
        gate = self.world.front.server.hold(lambda request: request.path.startswith("/chalZ/"))
        run = self.world.start_run(job)
        gate.wait_reached()
        os.kill(self.world.plugin(), signal.SIGKILL)
        run.process.wait(LONG)
        gate.lose()
        self.world.wait_run_over(job)
        self.assertEqual(self.world.job(job)["attempt_count"], 1)  # as the first run left it
        self.assertEqual(len(self.published()), 1)  # what the stored challenges still need

        self.assertEqual(self.world.run_job(job), INSTALLED)
        self.assertEqual(self.published(), [])


# Behaviours of: Issuing
class ScriptedAuthority(DnsTest):
    """What needs an authority that asks for a value known beforehand, or that waits for a test."""

    @classmethod
    def start_authority(cls):
        cls.world.start_authority()

    def expect_value(self):
        """Has every authorization ask for the same; returns the TXT value that answers it."""
        token = f"token-of-{self.domain.partition('.')[0]}"

        def ask(proper):
            body = json.loads(proper.body)
            for challenge in body["challenges"]:
                challenge["token"] = token
            proper.body = json.dumps(body).encode()
            return proper

        self.world.authority.script("authorization", ask)
        self.addCleanup(self.world.authority.unscript)
        return encode(hashlib.sha256(f"{token}.{thumbprint(account_key().jwk)}".encode()).digest())

    # Behaviour: A record that is there already is taken as published; one that two jobs share stays until both are done
    def test_record_that_is_there_already_is_taken_as_published(self):
        value = self.expect_value()
        self.world.dns.update(f'add {self.record}. 5 TXT "{value}"')
        job = self.add_job()
        run = self.world.zelvek("job", "run", job)
        self.assertEqual(run.process.returncode, WAITING)
        self.assertIn("TXT record already exist\n", run.log())
        self.assertEqual(self.published(), [f'"{value}"'])
        self.assertEqual(self.world.run_job(job), INSTALLED)
        self.assertEqual(self.published(), [])

    # Behaviour: A record that is there already is taken as ...
    def test_record_that_two_jobs_share_stays_until_both_are_done(self):
        value = self.expect_value()
        jobs = [self.add_job("--certname", f"{name}-{self.domain}") for name in ("first", "second")]
        runs = [self.world.zelvek("job", "run", job) for job in jobs]
        self.assertEqual([run.process.returncode for run in runs], [WAITING, WAITING])
        self.assertEqual(["TXT record already exist\n" in run.log() for run in runs], [False, True])

        self.assertEqual(self.world.run_job(jobs[1]), INSTALLED)
        self.assertEqual(self.published(), [f'"{value}"'])
        self.assertEqual(self.world.run_job(jobs[0]), INSTALLED)
        self.assertEqual(self.published(), [])

    # Behaviour: A name server that is down at the clean-up costs the run nothing, and the record is removed later
    def test_name_server_that_is_down_at_clean_up_costs_nothing_and_the_record_is_removed_later(self):
        job = self.add_job()
        self.assertEqual(self.world.run_job(job), WAITING)
        value, = self.published()
        gate = self.world.authority.hold("challenge")
        run = self.world.start_run(job)
        gate.wait_reached()
        self.world.dns.halt()
        with contextlib.ExitStack() as server:
            server.callback(self.world.dns.start, RESOLVERS)
            gate.open()
            self.assertEqual(run.process.wait(4 * LONG), INSTALLED)
            self.assertTrue(self.world.job(job)["verified"])
            self.assertEqual(self.world.recorded_publications(self.record), [bare(value)])

        self.wait_nothing_left()
