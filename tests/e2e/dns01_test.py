"""dns-01 jobs: a real name server takes the records and shows them at the public resolvers' addresses, to the real dig."""
import contextlib
import os
import signal
import socket

from ca import names_of, read
from fixture import SharedWorldTest
from process import LONG
from world import FAILURE, INSTALLED, RESOLVERS, WAITING, WEB_ADDRESS

SITES = [f"site{number}.example" for number in range(12)]


class DnsTest(SharedWorldTest):
    """Every test has a domain and zone of its own, and the account of an earlier job.

    A domain is used once: even when told not to, pebble takes one in a hundred earlier authorizations for a new order.
    """

    resolvers = RESOLVERS

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.unused = iter(SITES)
        cls.world.start_dns({site: {"@": WEB_ADDRESS, "www": WEB_ADDRESS} for site in SITES}, cls.resolvers)
        cls.world.start_web({site: [site, f"*.{site}"] for site in SITES})
        cls.world.start_pebble()
        cls.world.start_service()
        first = next(cls.unused)
        cls.world.add_domain(first)
        if cls.world.run_job(cls.world.add_job(first, "--csr", "key_type=ec")) != INSTALLED:
            raise AssertionError(f"no account to begin with\n{cls.world.describe()}")

    def setUp(self):
        self.domain = next(self.unused)
        self.record = f"_acme-challenge.{self.domain}"
        self.world.add_domain(self.domain)

    def add_job(self, *options, name=None):
        return self.world.add_job(name or self.domain, "--check", "dns", "--csr", "key_type=ec", "--skip-account-check",
                                  *options)

    def shown(self, record=None):
        return self.world.dns.look_up(record or self.record, "TXT", RESOLVERS[-1])

    def trusted(self, name):
        """The names in the certificate that the web server shows for this one, which has to be pebble's."""
        return names_of("x509", self.world.web.wait_trusted(name, self.world.path("pebble-root.pem")).encode())


class Dns01(DnsTest):
    def test_first_run_publishes_and_the_second_installs(self):
        job = self.add_job()
        self.assertEqual(self.world.run_job(job), WAITING)
        self.assertEqual(len(self.shown()), 1)
        self.assertEqual(self.world.job(job)["attempt_count"], 1)

        self.assertEqual(self.world.run_job(job), INSTALLED)
        self.assertEqual(self.trusted(self.domain), [self.domain])
        self.assertEqual(self.shown(), [])

    def test_every_alias_has_its_record_in_the_zone_of_the_domain(self):
        names = [self.domain, f"mail.{self.domain}", f"www.{self.domain}"]
        job = self.add_job("--alias", names[1], "--alias", names[2])
        self.assertEqual(self.world.run_job(job), WAITING)
        records = [f"_acme-challenge.{name}" for name in names]
        self.assertEqual([len(self.shown(record)) for record in records], [1, 1, 1])

        self.assertEqual(self.world.run_job(job), INSTALLED)
        self.assertEqual(self.trusted(names[1]), sorted(names))
        self.assertEqual([self.shown(record) for record in records], [[], [], []])

    def test_wildcard_and_its_domain_share_one_name_with_two_records(self):
        job = self.add_job("--alias", f"*.{self.domain}")
        self.assertEqual(self.world.run_job(job), WAITING)
        self.assertEqual(len(self.shown()), 2)

        self.assertEqual(self.world.run_job(job), INSTALLED)
        self.assertEqual(self.trusted(f"any.{self.domain}"), [f"*.{self.domain}", self.domain])
        self.assertEqual(self.shown(), [])

    def test_name_below_a_domain_gets_its_record_in_that_domains_zone(self):
        job = self.add_job(name=f"www.{self.domain}")
        self.assertEqual(self.world.run_job(job), WAITING)
        self.assertEqual(len(self.shown(f"_acme-challenge.www.{self.domain}")), 1)
        self.assertEqual(self.world.run_job(job), INSTALLED)

    def test_foreign_records_at_the_same_name_are_left_alone(self):
        self.world.dns.update(f'add {self.record}. 5 TXT "somebody else\'s"')
        job = self.add_job()
        self.assertEqual(self.world.run_job(job), WAITING)
        self.assertEqual(self.world.run_job(job), INSTALLED)
        self.assertEqual(self.shown(), ['"somebody else\'s"'])

    def test_record_that_is_not_visible_pauses_the_job_and_tells_everybody(self):
        job = self.add_job()
        self.assertEqual(self.world.run_job(job), WAITING)
        value = self.shown()[0]
        self.world.dns.update(f"delete {self.record}. TXT")

        self.assertEqual(self.world.run_job(job), WAITING)
        pauses = [problem for problem in self.world.ask("problem", "list") if problem["name"] == "ambrin_pause"]
        self.assertCountEqual([problem["owner"] for problem in pauses], ["root", "anna"])
        told = pauses[0]["parameters"]
        self.assertEqual(told["records"], f"{self.record}. TXT {value.strip(chr(34))}")
        self.assertEqual(told["ns"], f"ns.{self.domain}.")
        self.assertEqual(told["date"], self.world.job(job)["next_attempt"])

        self.world.dns.update(f"add {self.record}. 5 TXT {value}")
        self.assertEqual(self.world.run_job(job), INSTALLED)

    def test_job_older_than_a_day_is_stopped_and_its_records_are_removed(self):
        job = self.add_job("--alias", f"www.{self.domain}")
        self.assertEqual(self.world.run_job(job), WAITING)
        self.world.age_job(job, hours=25)
        self.assertEqual(self.world.run_job(job), FAILURE)

        self.assertEqual(self.world.events(job)[-1], ("failed", "timeout_error"))
        self.assertEqual([self.shown(), self.shown(f"_acme-challenge.www.{self.domain}")], [[], []])
        self.assertTrue(self.world.job(job)["failed"])

    def test_run_that_is_killed_after_the_check_is_made_up_for_by_the_next(self):
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
        self.assertEqual(len(self.shown()), 1)  # what the stored challenges still need

        self.assertEqual(self.world.run_job(job), INSTALLED)
        self.assertEqual(self.shown(), [])

    def test_job_without_a_zone_fails_and_keeps_its_account(self):
        job = self.add_job(name="nobodys.example")
        self.assertEqual(self.world.run_job(job), FAILURE)
        record = self.world.job(job)
        self.assertEqual((record["attempt_count"], record["kid"]), (1, self.world.ask("account", "show")["kid"]))
        self.assertFalse(record["processing"])

    def test_name_server_that_refuses_the_key_fails_the_run(self):
        key = read(self.world.dns.key_file)
        self.addCleanup(self.restart_with_key, key)
        self.restart_with_key(key.replace(self.world.dns.secret, "bm90IHRoZSBrZXkgdGhhdCB0aGUgc2VydmVyIGhhcyE="))
        job = self.add_job()
        self.assertEqual(self.world.run_job(job), FAILURE)
        self.assertEqual(self.shown(), [])

    def restart_with_key(self, text):
        self.world.stop_service()
        with open(self.world.dns.key_file, "w", encoding="utf-8") as file:
            file.write(text)
        self.world.start_service()


class SilentResolver(DnsTest):
    """The first resolver never answers; the others do."""

    resolvers = RESOLVERS[1:]

    def test_records_are_found_at_the_next_resolver(self):
        with contextlib.closing(socket.socket(socket.AF_INET, socket.SOCK_DGRAM)) as silent:
            silent.bind((RESOLVERS[0], 53))
            job = self.add_job()
            self.assertEqual(self.world.run_job(job), WAITING)
            self.assertEqual(self.world.run_job(job), INSTALLED)
