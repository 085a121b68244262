"""dns-01 jobs: a real name server takes the records and shows them at the public resolvers' addresses, to the real dig."""
import contextlib
import os
import signal
import socket

from ca import names_of
from fixture import WorldTest
from process import LONG, wait_until
from world import FAILURE, INSTALLED, RESOLVERS, WAITING, WEB_ADDRESS

DNS = ("--check", "dns", "--csr", "key_type=ec")
ZONE = {"shop.example": {"@": WEB_ADDRESS, "www": WEB_ADDRESS, "mail": WEB_ADDRESS}}
RECORD = "_acme-challenge.shop.example"


class DnsTest(WorldTest):
    resolvers = RESOLVERS

    def setUp(self):
        super().setUp()
        self.world.start_dns(ZONE, self.resolvers)
        self.world.start_web({"shop.example": ["shop.example", "www.shop.example", "mail.shop.example"]})
        self.world.start_pebble()
        self.world.start_service()
        self.world.add_domain("shop.example")

    def shown(self, name=RECORD):
        return self.world.dns.look_up(name, "TXT", RESOLVERS[-1])

    def trusted(self, name):
        return self.world.web.wait_trusted(name, self.world.path("pebble-root.pem"))


class Dns01(DnsTest):
    def test_first_run_publishes_and_the_second_installs(self):
        job = self.world.add_job("shop.example", *DNS)
        self.assertEqual(self.world.run_job(job), WAITING)
        self.assertEqual(len(self.shown()), 1)
        self.assertEqual(self.world.job(job)["attempt_count"], 1)

        self.assertEqual(self.world.run_job(job), INSTALLED)
        self.assertEqual(names_of("x509", self.trusted("shop.example").encode()), ["shop.example"])
        self.assertEqual(self.shown(), [])

    def test_every_alias_has_its_record_in_the_zone_of_the_domain(self):
        job = self.world.add_job("shop.example", "--alias", "www.shop.example", "--alias", "mail.shop.example", *DNS)
        self.assertEqual(self.world.run_job(job), WAITING)
        names = [RECORD, "_acme-challenge.www.shop.example", "_acme-challenge.mail.shop.example"]
        self.assertEqual([len(self.shown(name)) for name in names], [1, 1, 1])

        self.assertEqual(self.world.run_job(job), INSTALLED)
        self.trusted("mail.shop.example")
        self.assertEqual([self.shown(name) for name in names], [[], [], []])

    def test_wildcard_and_its_domain_share_one_name_with_two_records(self):
        job = self.world.add_job("shop.example", "--alias", "*.shop.example", *DNS)
        self.assertEqual(self.world.run_job(job), WAITING)
        self.assertEqual(len(self.shown()), 2)

        self.assertEqual(self.world.run_job(job), INSTALLED)
        self.assertEqual(names_of("x509", self.trusted("www.shop.example").encode()), ["*.shop.example", "shop.example"])
        self.assertEqual(self.shown(), [])

    def test_name_below_a_domain_gets_its_record_in_that_domains_zone(self):
        job = self.world.add_job("www.shop.example", *DNS)
        self.assertEqual(self.world.run_job(job), WAITING)
        self.assertEqual(len(self.shown("_acme-challenge.www.shop.example")), 1)
        self.assertEqual(self.world.run_job(job), INSTALLED)

    def test_foreign_records_at_the_same_name_are_left_alone(self):
        self.world.dns.update(f'add {RECORD}. 5 TXT "somebody else\'s"')
        job = self.world.add_job("shop.example", *DNS)
        self.assertEqual(self.world.run_job(job), WAITING)
        self.assertEqual(self.world.run_job(job), INSTALLED)
        self.assertEqual(self.shown(), ['"somebody else\'s"'])

    def test_record_that_is_not_visible_pauses_the_job_and_tells_everybody(self):
        job = self.world.add_job("shop.example", *DNS)
        self.assertEqual(self.world.run_job(job), WAITING)
        value = self.shown()[0]
        self.world.dns.update(f"delete {RECORD}. TXT")

        self.assertEqual(self.world.run_job(job), WAITING)
        self.assertCountEqual(self.world.problems(), [("ambrin_pause", "root"), ("ambrin_pause", "anna")])
        told = self.world.ask("problem", "list")[0]["parameters"]
        self.assertEqual(told["records"], f"{RECORD}. TXT {value.strip(chr(34))}")
        self.assertEqual(told["ns"], "ns.shop.example.")
        self.assertEqual(told["date"], self.world.job(job)["next_attempt"])

        self.world.dns.update(f"add {RECORD}. 5 TXT {value}")
        self.assertEqual(self.world.run_job(job), INSTALLED)

    def test_job_older_than_a_day_is_stopped_and_its_records_are_removed(self):
        job = self.world.add_job("shop.example", "--alias", "www.shop.example", *DNS)
        self.assertEqual(self.world.run_job(job), WAITING)
        self.world.age_job(job, hours=25)
        self.assertEqual(self.world.run_job(job), FAILURE)

        self.assertEqual(self.world.events(job)[-1], ("failed", "timeout_error"))
        self.assertEqual([self.shown(), self.shown("_acme-challenge.www.shop.example")], [[], []])
        self.assertTrue(self.world.job(job)["failed"])

    def test_killed_run_leaves_no_record(self):
        job = self.world.add_job("shop.example", *DNS)
        gate = self.world.front.server.hold(lambda request: request.path.startswith("/finalize-order/"))
        self.assertEqual(self.world.run_job(job), WAITING)
        run = self.world.start_run(job)
        gate.wait_reached()
        os.kill(self.world.plugin(), signal.SIGKILL)
        run.process.wait(LONG)
        gate.open()

        wait_until(lambda: not self.shown(), "no record stays")
        self.world.wait_run_over(job)
        self.assertEqual(self.world.job(job)["attempt_count"], 1)  # as the first run left it

    def test_job_without_a_zone_fails_and_keeps_its_record(self):
        job = self.world.add_job("blog.example", *DNS)
        self.assertEqual(self.world.run_job(job), FAILURE)
        record = self.world.job(job)
        self.assertEqual(record["attempt_count"], 1)
        self.assertTrue(record["kid"])
        self.assertFalse(record["processing"])

    def test_name_server_that_refuses_the_key_fails_the_run(self):
        with open(self.world.dns.key_file, encoding="utf-8") as file:
            key = file.read()
        with open(self.world.dns.key_file, "w", encoding="utf-8") as file:
            file.write(key.replace(self.world.dns.secret, "bm90IHRoZSBrZXkgdGhhdCB0aGUgc2VydmVyIGhhcyE="))
        self.world.stop_service()
        self.world.start_service()
        job = self.world.add_job("shop.example", *DNS)
        self.assertEqual(self.world.run_job(job), FAILURE)
        self.assertEqual(self.shown(), [])


class SilentResolver(DnsTest):
    """The first resolver never answers; the others do."""

    resolvers = RESOLVERS[1:]

    def test_records_are_found_at_the_next_resolver(self):
        with contextlib.closing(socket.socket(socket.AF_INET, socket.SOCK_DGRAM)) as silent:
            silent.bind((RESOLVERS[0], 53))
            job = self.world.add_job("shop.example", *DNS)
            self.assertEqual(self.world.run_job(job), WAITING)
            self.assertEqual(self.world.run_job(job), INSTALLED)
