"""What every test here is made from."""
import os
import unittest

import sandbox
from client import Key
from process import wait_until
from world import HOSTS, RESOLVERS, WEB_ADDRESS, World

_place = {}


def prepare(folder, binaries):
    """Once per test program, inside its namespaces."""
    _place.update(folder=folder, binaries=binaries)
    sandbox.set_up_network(folder, HOSTS, RESOLVERS)


class WorldTest(unittest.TestCase):
    """A test with a world of its own, whose orderly end is part of the test."""

    longMessage = True
    maxDiff = None

    def setUp(self):
        self.world = make_world()
        self.addCleanup(self.world.close)


class SharedWorldTest(unittest.TestCase):
    """Tests that are many and small, and share one world."""

    longMessage = True
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.world = make_world()
        cls.addClassCleanup(cls.world.close)


class DnsTest(SharedWorldTest):
    """Every test has a domain and zone of its own, and the default account.

    A domain is used once: even when told not to, pebble takes one in a hundred earlier authorizations for a new order.
    """

    sites = [f"site{number}.example" for number in range(12)]
    further_zones = {}  # with the names and addresses in them, which are nobody's at first

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.unused = iter(cls.sites)
        zones = {site: {"@": WEB_ADDRESS, "www": WEB_ADDRESS} for site in cls.sites}
        cls.world.start_dns(zones | cls.further_zones)
        cls.start_authority()
        cls.world.start_service("--sweep-interval", "0.5")
        cls.world.take_account(account_key())

    @classmethod
    def start_authority(cls):
        cls.world.start_web({site: [site, f"*.{site}"] for site in [*cls.sites, *cls.further_zones]})
        cls.world.start_pebble()

    def setUp(self):
        self.domain = next(self.unused)
        self.record = f"_acme-challenge.{self.domain}"
        self.world.add_domain(self.domain)

    def add_job(self, *options, name=None):
        return self.world.add_job(name or self.domain, "--check", "dns", "--csr", "key_type=ec", "--skip-account-check",
                                  *options)

    def published(self, record=None):
        """The TXT values at a name, as the name server itself has them."""
        return self.world.dns.look_up(record or self.record, "TXT")

    def looked_up(self, record=None):
        """The resolvers at which a name's TXT records were asked for: only the plug-in's dig asks there."""
        asked = (record or self.record, "TXT")
        return {server for name, kind, server in self.world.dns.queries() if (name, kind) == asked and server in RESOLVERS}

    def wait_nothing_left(self):
        wait_until(lambda: self.published() == [], "the service removes the record")
        wait_until(lambda: self.world.recorded_publications(self.record) == [], "the service forgets the record")

    def told(self, problem):
        """The parameters of this notification of the test's own job, for each that it went to."""
        return {entry["owner"]: entry["parameters"] for entry in self.world.ask("problem", "list", "--state", "all")
                if entry["name"] == problem and entry["parameters"]["name"] == self.domain}


def account_key():
    """One for all of a test program."""
    if "key" not in _place:
        _place["key"] = Key(os.path.join(_place["folder"], "account.key"))
    return _place["key"]


def make_world(kind=World):
    folder = os.path.join(_place["folder"], str(len(os.listdir(_place["folder"]))))
    os.makedirs(folder)
    return kind(folder, _place["binaries"])
