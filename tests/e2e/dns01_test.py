"""dns-01 jobs: a real name server takes the records and shows them at the public resolvers' addresses, to the real dig."""
import json

from ca import names_of
from fixture import DnsTest
from world import FAILURE, INSTALLED, RESOLVERS, WAITING, WEB_ADDRESS

PARENT, CUT_OUT = "parent.example", "sub.parent.example"  # the second is a zone of its own
BOOKS = "xn--bcher-kva.example"


# Behaviours of: Issuing
class Dns01(DnsTest):
    further_zones = {zone: {"@": WEB_ADDRESS} for zone in (PARENT, CUT_OUT, BOOKS)}

    def trusted(self, name):
        """The names in the certificate that the web server shows for this one, which has to be pebble's."""
        return names_of("x509", self.world.web.wait_trusted(name, self.world.path("pebble-root.pem")).encode())

    # Behaviour: A dns-01 job publishes and looks nothing up in its first run, and installs in its second; its records
    #   are gone then
    def test_first_run_publishes_and_looks_nothing_up_and_the_second_installs(self):
        job = self.add_job()
        first = self.world.zelvek("job", "run", job, "--json")
        self.assertEqual(first.process.returncode, WAITING)
        told = json.loads(first.log())
        self.assertEqual((told["outcome"], told["exit_status"], told["attempt_count"]), ("waiting", 0, 1))
        self.assertEqual(len(self.published()), 1)
        self.assertEqual(self.looked_up(), set())

        self.assertEqual(self.world.run_job(job), INSTALLED)
        self.assertEqual(self.looked_up(), {RESOLVERS[0]})
        self.assertEqual(self.trusted(self.domain), [self.domain])
        self.assertEqual(self.published(), [])

    # Behaviour: Every alias has its record in the zone of the domain
    def test_every_alias_has_its_record_in_the_zone_of_the_domain(self):
        names = [self.domain, f"mail.{self.domain}", f"www.{self.domain}", f"a.b.c.{self.domain}"]
        self.assert_certified_with_records(self.add_job(*aliases(*names[1:])), names)
        self.assertEqual(self.trusted(names[1]), sorted(names))

    def assert_certified_with_records(self, job, names):
        records = [f"_acme-challenge.{name}" for name in names]
        self.assertEqual(self.world.run_job(job), WAITING)
        self.assertEqual([len(self.published(record)) for record in records], [1] * len(names))

        self.assertEqual(self.world.run_job(job), INSTALLED)
        self.assertEqual([self.published(record) for record in records], [[]] * len(names))

    # Behaviour: A wildcard, its domain and strangers share one name, and each takes back its own value
    def test_wildcard_and_its_domain_share_one_name_with_others_and_each_takes_back_its_own_value(self):
        self.world.dns.update(f'add {self.record}. 5 TXT "somebody else\'s"')
        job = self.add_job("--alias", f"*.{self.domain}")
        self.assertEqual(self.world.run_job(job), WAITING)
        self.assertEqual(len(self.published()), 3)

        self.assertEqual(self.world.run_job(job), INSTALLED)
        self.assertEqual(self.looked_up(), {RESOLVERS[0]})
        self.assertEqual(self.trusted(f"any.{self.domain}"), [f"*.{self.domain}", self.domain])
        self.assertEqual(self.published(), ['"somebody else\'s"'])

    # Behaviour: A name below a domain gets its record in that domain's zone
    def test_name_below_a_domain_gets_its_record_in_that_domains_zone(self):
        self.assert_certified_with_records(self.add_job(name=f"www.{self.domain}"), [f"www.{self.domain}"])

    # Behaviour: Names in two zones have their records each in its own, one cut out of the domain's included
    def test_names_in_two_zones_have_their_records_each_in_its_own(self):
        other = next(self.unused)
        self.world.add_domain(other)
        names = [self.domain, f"www.{other}", other]
        self.assert_certified_with_records(self.add_job(*aliases(*names[1:])), names)
        self.assertEqual(self.trusted(self.domain), sorted(names))

    # Behaviour: Names in two zones have their records each ...
    def test_record_goes_to_a_zone_cut_out_of_the_domains_own(self):
        # In the zone above, the record would be hidden: the server answers from the zone below.
        self.world.add_domain(PARENT)
        self.world.add_domain(CUT_OUT)
        names = [PARENT, f"www.{CUT_OUT}"]
        self.assert_certified_with_records(self.add_job(*aliases(names[1]), name=PARENT), names)

    # Behaviour: Internationalised names have their records in ASCII form
    def test_internationalised_names_have_their_records_in_ascii_form(self):
        self.world.add_domain("bücher.example")
        names = [BOOKS, f"xn--gre-6ka8l.{BOOKS}"]
        self.assert_certified_with_records(self.add_job(*aliases("grüße.bücher.example"), name="bücher.example"), names)
        self.assertEqual(self.trusted(BOOKS), sorted(names))

    # Behaviour: A job without a zone fails and keeps its account
    def test_job_without_a_zone_fails_and_keeps_its_account(self):
        job = self.add_job("--foreign-names", name="nobodys.example")
        self.assertEqual(self.world.run_job(job), FAILURE)
        record = self.world.job(job)
        self.assertEqual((record["attempt_count"], record["kid"]), (1, self.world.ask("account", "show")["kid"]))
        self.assertFalse(record["processing"])

    # Behaviour: An alias in somebody else's zone is refused
    def test_alias_in_somebody_elses_zone_is_refused(self):
        other = next(self.unused)
        self.world.add_domain(other, user="bob")
        job = self.add_job("--foreign-names", *aliases(f"www.{other}"))
        run = self.world.zelvek("job", "run", job)
        self.assertEqual(run.process.returncode, FAILURE)
        self.assertIn(f"user anna has no zone that holds _acme-challenge.www.{other}", run.log())
        self.assertEqual(self.published(f"_acme-challenge.www.{other}"), [])


def aliases(*names):
    return [part for name in names for part in ("--alias", name)]
