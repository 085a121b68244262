"""What the tests of the package are made from: a booted machine, and around it whatever a test asks for."""
import glob
import itertools
import json
import os
import subprocess
import unittest

import fixture
from machine import GATEWAY, Machine
from world import RESOLVERS, World

PLACE = os.environ["PACKAGE_TEST"]  # made by `prepare`
# Addresses that everybody could have: the machine's, whose sites are there, the authority's, and one of the name server's.
MACHINE, AUTHORITY, NAME_SERVER = "198.51.100.10", "203.0.113.2", "203.0.113.53"
AUTHORITY_ZONE = {"api.letsencrypt.org": {"acme-v02": AUTHORITY}}
UNITS = ("zelvek.service", "zelvek.socket", "zelvek-reload.path")
MODES = {
    "/etc/zelvek": "root:zelvek 750", "/etc/zelvek/zelvek.conf": "root:zelvek 640", "/run/vek": "zelvek:zelvek 710",
    "/run/vek/zelvek.sock": "zelvek:zelvek 660", "/var/lib/zelvek": "zelvek:zelvek 755",
    "/var/lib/zelvek/zelvek.db": "zelvek:zelvek 600", "/var/log/vek": "zelvek:zelvek 750",
    "/run/zelvek-reload": "root:root 755", "/run/zelvek-reload/requests": "zelvek:zelvek 700",
    "/run/zelvek-reload/results": "root:root 755"}


def package(version):
    return glob.glob(os.path.join(PLACE, version, "zelvek_*.deb"))[0]


def indented(text, after):
    """The lines of the block that follows those words."""
    lines = iter(text.partition(after)[2].lstrip("\n").splitlines())
    return "\n".join(itertools.takewhile(lambda line: line.startswith("    "), lines))


class MachineTest(unittest.TestCase):
    longMessage = True
    maxDiff = None

    def setUp(self):
        self.world = fixture.make_world(PackageWorld)
        self.addCleanup(self.world.close)

    @property
    def machine(self):
        return self.world.machine

    def install(self, version="new"):
        self.machine.run("dpkg", "-i", self.world.bring(package(version)))

    def state(self, *units):
        return self.machine.run("systemctl", "is-active", *units, check=False).stdout.split()

    def property(self, name):
        return self.machine.run("systemctl", "show", f"--property={name}", "--value", "zelvek.service").stdout.strip()

    def zelvek(self, *words):
        return self.machine.run("zelvek", *words).stdout

    def ask(self, *words):
        return json.loads(self.zelvek(*words, "--json"))

    def modes(self):
        lines = self.machine.run("stat", "-c", "%n %U:%G %a", *MODES, check=False).stdout.splitlines()
        return {line.partition(" ")[0]: line.partition(" ")[2] for line in lines}

    def jobs(self):
        return sorted(self.ask("job", "list"), key=lambda job: job["certname"])

    def left(self):
        """Files with the package's or the service's name."""
        found = self.machine.run("find", "/", "/run", "-xdev", "(", "-name", "*zelvek*", "-o", "-path", "/var/log/vek", "-o",
                                 "-path", "/run/vek", ")", "-not", "-path", "/root/*").stdout.split()
        return sorted(path for path in found if not path.startswith("/var/log/journal"))


class PackageWorld(World):
    authority_address = AUTHORITY

    def __init__(self, folder, binaries):
        super().__init__(folder, binaries)
        # Also where no server is: then a question is refused at once.
        for address in (AUTHORITY, NAME_SERVER):
            subprocess.run(["ip", "address", "replace", f"{address}/32", "dev", "lo"], check=True)
        self.machine = self._boot("machine")

    def _boot(self, folder):
        machine = Machine(self.path(folder), os.path.join(PLACE, "base"), MACHINE, NAME_SERVER)
        machine.boot()
        return machine

    def replace_machine(self):
        """By a fresh one at the same address."""
        self.machine.close()
        self.machine = self._boot("second-machine")

    def bring(self, file, folder="/root"):
        """Copies a file into the machine."""
        inside = f"{folder}/{os.path.basename(file)}"
        subprocess.run(["cp", "-p", file, self.machine.path(inside)], check=True)
        return inside

    def start_authority_and_dns(self, zones):
        """The public name servers and the authority, where the machine finds them."""
        self.start_dns(zones | AUTHORITY_ZONE, (*RESOLVERS, NAME_SERVER))
        self.start_pebble(lifetime=90 * 24 * 3600)
        self.front.checks_accounts = True

    def describe(self):
        return super().describe() + "\n--- the machine's journal\n" + self.machine.describe() + \
            "\n--- the machine's runs\n" + self.machine.read("/var/log/vek/ambrin.log")[-4000:]

    def close(self):
        self.machine.close()
        super().close()
