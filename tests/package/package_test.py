"""The Debian package on a booted Debian: what an administrator does with it, and what comes of that."""
import contextlib
import glob
import hashlib
import json
import os
import sqlite3
import ssl
import subprocess
import unittest

import fixture
from ca import openssl, read
from machine import Machine, read as read_if_there
from process import LONG, wait_until
from world import HOSTS, WEB_ADDRESS, World

PLACE = os.environ["PACKAGE_TEST"]  # made by `prepare`
DATABASE = os.path.join(os.path.dirname(__file__), "..", "integration", "zelvek", "databases", "version-2.sql")
SITE, ZONE = "shop.example", "zone.example"
CERTIFICATE = f"/var/lib/zelvek/certs/anna/{SITE}"
JOB = ("--csr", "key_type=ec", "--skip-account-check")
UNITS = ("zelvek.service", "zelvek.socket", "zelvek-reload.path")
MODES = {
    "/etc/zelvek": "root:zelvek 750", "/etc/zelvek/zelvek.conf": "root:zelvek 640", "/run/vek": "zelvek:zelvek 700",
    "/run/vek/zelvek.sock": "zelvek:zelvek 600", "/var/lib/zelvek": "zelvek:zelvek 755",
    "/var/lib/zelvek/zelvek.db": "zelvek:zelvek 600", "/var/log/vek": "zelvek:zelvek 750",
    "/run/zelvek-reload": "root:root 755", "/run/zelvek-reload/requests": "zelvek:zelvek 700",
    "/run/zelvek-reload/results": "root:root 755"}

NGINX = """server {{
    listen {address}:80;
    location /.well-known/acme-challenge/ {{ alias /var/lib/zelvek/answers/; }}
}}
"""
NGINX_TLS = """server {{
    listen {address}:443 ssl;
    ssl_certificate     {certificate}/fullchain.pem;
    ssl_certificate_key {certificate}/privkey.pem;
}}
"""
# Asks again and again, and never twice: whoever is refused, or gets no answer, is not patient as the project's client is.
ASKING = r"""
use IO::Socket::UNIX;
$| = 1;
my ($query, $asked) = ("func=zelvek.status", 0);
until (-e "/run/enough") {
    my $socket = IO::Socket::UNIX->new(Type => SOCK_STREAM, Peer => "/run/vek/zelvek.sock") or die "refused after $asked: $!\n";
    print $socket "POST / HTTP/1.1\r\nHost: localhost\r\nContent-Length: " . length($query) . "\r\n\r\n$query";
    $socket->flush;
    my $answer = do { local $/; <$socket> };
    $answer =~ m{^HTTP/1.1 200 .*<doc>}s or die "answered after $asked: $answer\n";
    print "asking\n" unless $asked++;
}
print "$asked\n";
"""


def package(version):
    return glob.glob(os.path.join(PLACE, version, "zelvek_*.deb"))[0]


class PackageTest(unittest.TestCase):
    longMessage = True
    maxDiff = None

    def setUp(self):
        self.world = fixture.make_world(PackageWorld)
        self.addCleanup(self.world.close)
        self.machine = self.world.machine

    def install(self, version="new"):
        self.machine.run("dpkg", "-i", self.world.bring(package(version)))

    def state(self, *units):
        return self.machine.run("systemctl", "is-active", *units, check=False).stdout.split()

    def zelvek(self, *words):
        return self.machine.run("zelvek", *words).stdout

    def ask(self, *words):
        return json.loads(self.zelvek(*words, "--json"))

    def modes(self):
        lines = self.machine.run("stat", "-c", "%n %U:%G %a", *MODES, check=False).stdout.splitlines()
        return {line.partition(" ")[0]: line.partition(" ")[2] for line in lines}

    def wait_for_service(self):
        wait_until(lambda: self.state("zelvek.service") == ["active"], "the service is active")

    @contextlib.contextmanager
    def asked_all_the_time(self):
        """A process of the service's user asks; nobody may refuse it."""
        self.machine.run("rm", "-f", "/run/enough")
        asking = self.machine.start("runuser", "-u", "zelvek", "--", "perl", "-e", ASKING)
        begun = asking.stdout.readline()
        try:
            yield
        finally:
            self.machine.run("touch", "/run/enough")
            said, _ = asking.communicate(timeout=LONG)
        self.assertEqual((begun, asking.returncode), ("asking\n", 0), said)
        self.assertGreater(int(said), 10)

    # Behaviours of: Package

    # Behaviour: The installed package is a service that runs, locked in and with the rights that it needs: by http-01 and
    #   dns-01 it gets certificates, and reloads the web server that is there; stopped in the middle of a run it has the run
    #   write its record back, and leaves no process
    def test_the_installed_package_gets_certificates(self):
        self.install()
        self.assertEqual(self.state(*UNITS), ["active"] * 3)
        self.assertEqual(self.modes(), MODES)
        self.assertIn("zelvek 0.", self.zelvek("status"))
        self.machine.run("test", "-x", "/usr/share/doc/zelvek/examples/dns-command")
        # In tenths: 2.5 of 10, where 9.6 is a service without any of it.
        self.machine.run("systemd-analyze", "security", "--no-pager", "--threshold=25", "zelvek.service")
        self.machine.run("logrotate", "--force", "/etc/logrotate.d/zelvek")

        self.world.use_authority_and_dns()
        self.machine.run("systemctl", "restart", "zelvek.service")
        for name in (SITE, ZONE):
            self.zelvek("domain", "add", name, "--user", "anna")
        self.machine.run("systemctl", "start", "nginx")
        job = str(self.ask("job", "add", SITE, "--user", "anna", *JOB)["id"])
        self.wait_installed(job)
        self.machine.write("/etc/nginx/conf.d/tls.conf", NGINX_TLS.format(address=WEB_ADDRESS, certificate=CERTIFICATE))
        self.machine.run("systemctl", "reload", "nginx")
        wait_until(lambda: self.shown() == self.installed(), "the first certificate is shown")
        first = self.installed()
        self.zelvek("job", "renew", job)
        wait_until(lambda: self.shown() == self.installed() != first, "the second certificate is shown")
        self.assertEqual(self.ask("problem", "list"), [])

        self.stops_in_the_middle_of_a_run(job)
        job = str(self.ask("job", "add", ZONE, "--user", "anna", "--check", "dns", *JOB)["id"])
        self.wait_installed(job)
        self.reloads()

    def stops_in_the_middle_of_a_run(self, job):
        """The run writes its record back, and what does not end by itself is killed."""
        with self.world.pebble.paused():
            self.zelvek("job", "renew", job)
            wait_until(lambda: self.ask("job", "show", job)["processing"], "a run is under way")
            wait_until(lambda: self.named("ambrin"), "its process is there")
            group = self.property("ControlGroup")
            # What a command of the administrator's has left behind, deaf to SIGTERM. Where the groups lie is the kernel's to say.
            self.machine.run("sh", "-c", "(trap '' TERM; exec setsid sleep 5000) >/dev/null 2>&1 & for place in '' /unified /systemd; do "
                             f"procs=/sys/fs/cgroup$place{group}/cgroup.procs; [ ! -e $procs ] || echo $! >$procs || exit; done")
            self.assertIn(self.named("sleep")[0], self.machine.run("systemctl", "status", "--no-pager", "zelvek.service").stdout)
            self.assertEqual(len(self.named("sleep")), 1)
            self.machine.run("systemctl", "stop", "zelvek.service")
            self.assertEqual((self.state("zelvek.service"), self.property("Result")), (["inactive"], "success"))
        self.assertEqual(self.named("ambrin") + self.named("sleep") + self.named("zelvek"), [])
        self.assertEqual(self.machine.run("find", "/sys/fs/cgroup", "-path", f"*{group}").stdout, "")
        with contextlib.closing(sqlite3.connect(f"file:{self.machine.path('/var/lib/zelvek/zelvek.db')}?immutable=1", uri=True)) as there:
            self.assertEqual(there.execute("SELECT processing, attempt_count FROM job WHERE id = ?", (job,)).fetchall(), [(0, 1)])
        self.machine.run("systemctl", "start", "zelvek.service")
        self.wait_installed(job)

    def named(self, name):
        return self.machine.run("pidof", name, check=False).stdout.split()

    def property(self, name):
        return self.machine.run("systemctl", "show", f"--property={name}", "--value", "zelvek.service").stdout.strip()

    def wait_installed(self, job):
        try:
            wait_until(lambda: self.ask("job", "show", job)["verified"], f"job {job} has its certificate")
        except AssertionError as error:
            raise AssertionError(self.zelvek("job", "show", job)) from error

    def installed(self):
        return fingerprint(read(self.machine.path(f"{CERTIFICATE}/cert.pem")))

    @staticmethod
    def shown():
        with contextlib.suppress(OSError):
            return fingerprint(ssl.get_server_certificate((WEB_ADDRESS, 443)))
        return ""

    def reloads(self):
        """What the administrator sees of a broken web server, of none, and of another one."""
        self.machine.append("/etc/nginx/conf.d/tls.conf", "nonsense;")
        self.assertIn('unknown directive "nonsense"', self.reload(status=1))
        self.machine.run("systemctl", "stop", "nginx")
        self.assertEqual(self.reload(), "nginx does not run; it reads the certificates when it starts\n"
                                        "apache2 does not run; it reads the certificates when it starts\n")
        self.machine.run("systemctl", "start", "apache2")
        self.assertIn("Syntax OK", self.reload())
        self.assertIn("Reloaded apache2.service", self.machine.run("journalctl", "--no-pager", "-u", "apache2").stdout)
        self.machine.append("/etc/zelvek/reload.conf", "RELOAD_COMMAND='echo another && exit 7'\n")
        self.assertEqual(self.reload(status=7), "another\n")

    def reload(self, status=0):
        done = self.machine.run("runuser", "-u", "zelvek", "--", "/usr/lib/zelvek/ask-for-reload", check=False)
        self.assertEqual(done.returncode, status, done.stdout + done.stderr)
        return done.stdout

    # Behaviour: A restart and an upgrade refuse nobody; a service that was stopped starts for who asks, one that hangs is
    #   replaced, and after a reboot everything is there again
    def test_who_asks_is_answered(self):
        self.install()
        self.zelvek("domain", "add", SITE, "--user", "anna")
        with self.asked_all_the_time():
            for _ in range(3):
                self.machine.run("systemctl", "restart", "zelvek.service")
            self.install()
        self.machine.run("systemctl", "stop", "zelvek.service")
        # Made anew by the first process: no service has listened on it.
        self.machine.run("systemctl", "restart", "zelvek.socket")
        self.assertEqual(self.state("zelvek.service"), ["inactive"])
        self.assertEqual(self.ask("domain", "list")[0]["name"], SITE)

        self.machine.write("/etc/systemd/system/zelvek.service.d/watchdog.conf", "[Service]\nWatchdogSec=2\n")
        self.machine.run("systemctl", "daemon-reload")
        self.machine.run("systemctl", "restart", "zelvek.service")
        before = self.pid()
        self.machine.run("kill", "-STOP", before)
        wait_until(lambda: self.pid() not in (before, "0"), "another service runs")
        self.wait_for_service()
        self.assertEqual(glob.glob(self.machine.path("/var/lib/zelvek/core*")), [])

        self.machine.reboot()
        self.assertEqual(self.state(*UNITS), ["active"] * 3)
        self.assertEqual(self.modes(), MODES)
        self.assertEqual(self.ask("domain", "list")[0]["name"], SITE)

    def status_text(self):
        return self.property("StatusText")

    def pid(self):
        return self.property("MainPID")

    # Behaviour: A mistake in the configuration is told, not tried again and again, and nobody waits for the service then; a
    #   reload takes other options over, and with a mistake in them it fails and changes nothing
    def test_a_mistake_in_the_configuration_is_told(self):
        self.install()
        self.wait_for_service()
        pid = self.pid()
        self.machine.append("/etc/zelvek/zelvek.conf", "scheduler=off\n")
        self.machine.run("systemctl", "reload", "zelvek.service")
        wait_until(lambda: "scheduler        off" in self.zelvek("status"), "the scheduler is off")
        self.assertIn("taken over: scheduler", self.machine.run("systemctl", "status", "--no-pager", "zelvek.service").stdout)
        self.machine.write("/etc/zelvek/conf.d/site.conf", "scheduler=on\nruns-at-once=many\n")
        done = self.machine.run("systemctl", "reload", "zelvek.service", check=False)
        self.assertNotEqual(done.returncode, 0)
        status = self.machine.run("systemctl", "status", "--no-pager", "--full", "zelvek.service", check=False).stdout
        self.assertIn("/etc/zelvek/conf.d/site.conf:2: ", status)
        self.machine.run("systemctl", "kill", "--signal=HUP", "--kill-who=main", "zelvek.service")
        wait_until(lambda: "the old ones go on" in self.status_text(), "the service tells of the mistake")
        self.assertIn("/etc/zelvek/conf.d/site.conf:2: ", self.status_text())
        self.assertIn("scheduler        off", self.zelvek("status"))
        self.assertEqual((self.state("zelvek.service"), self.pid()), (["active"], pid))
        self.machine.run("rm", "/etc/zelvek/conf.d/site.conf")

        self.machine.append("/etc/zelvek/zelvek.conf", "no-such-option=1\n")
        self.machine.run("systemctl", "restart", "zelvek.service", check=False)
        self.assertEqual(self.state("zelvek.service"), ["failed"])
        done = self.machine.run("zelvek", "status", check=False)
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        self.assertIn("no-such-option", self.machine.run("journalctl", "--no-pager", "-u", "zelvek.service").stdout)

    # Behaviour: An upgrade brings an older version's jobs up to date, and keeps what the administrator has changed; removing
    #   keeps jobs and configuration for a later installation, and purging leaves nothing but the user
    def test_upgrade_removal_and_purge(self):
        self.install("old")
        self.machine.run("systemctl", "stop", "zelvek.socket")
        self.old_database()
        self.machine.append("/etc/zelvek/zelvek.conf", "scheduler=off\n")
        self.machine.run("chmod", "0644", "/etc/zelvek/zelvek.conf")
        self.install()
        self.assertEqual(self.state(*UNITS), ["active"] * 3)
        before = self.jobs()
        self.assertEqual([job["certname"] for job in before], ["blog.example", "done.blog.example", "new.blog.example", SITE,
                                                               "stopped.blog.example", f"www.{SITE}"])
        self.assertIn("scheduler        off", self.zelvek("status"))
        self.assertEqual(self.modes()["/etc/zelvek/zelvek.conf"], "root:zelvek 644")

        self.machine.run("dpkg", "-r", "zelvek")
        self.assertEqual(self.state(*UNITS), ["inactive"] * 3)
        self.assertFalse(os.path.exists(self.machine.path("/usr/bin/zelvek")))
        self.install()
        self.assertEqual(self.jobs(), before)
        self.assertIn("scheduler        off", self.zelvek("status"))

        self.machine.run("dpkg", "-P", "zelvek")
        self.assertEqual(self.left(), [])
        self.machine.run("getent", "passwd", "zelvek")
        self.install()
        self.assertEqual(self.state(*UNITS), ["active"] * 3)
        self.assertEqual(self.modes(), MODES)
        self.assertEqual(self.jobs(), [])

    def jobs(self):
        return sorted(self.ask("job", "list"), key=lambda job: job["certname"])

    def old_database(self):
        file = self.machine.path("/var/lib/zelvek/zelvek.db")
        for name in glob.glob(file + "*"):
            os.remove(name)
        with contextlib.closing(sqlite3.connect(file)) as database:
            database.executescript(read(DATABASE))
        self.machine.run("chown", "zelvek:zelvek", "/var/lib/zelvek/zelvek.db")
        self.machine.run("chmod", "0600", "/var/lib/zelvek/zelvek.db")

    def left(self):
        """Files with the package's or the service's name."""
        found = self.machine.run("find", "/", "-xdev", "(", "-name", "*zelvek*", "-o", "-path", "/var/log/vek", "-o", "-path",
                                 "/run/vek", ")", "-not", "-path", "/proc/*", "-not", "-path", "/root/*").stdout.split()
        return [path for path in found if not path.startswith(("/var/log/journal", "/sys"))]


def fingerprint(certificate):
    return hashlib.sha256(openssl("x509", "-outform", "DER", data=certificate.encode())).hexdigest()


class PackageWorld(World):
    """The machine, and around it whatever a test asks for."""

    def __init__(self, folder, binaries):
        super().__init__(folder, binaries)
        self.machine = Machine(self.path("machine"), os.path.join(PLACE, "base"), HOSTS)
        self.machine.write("/etc/resolv.conf", "nameserver 127.0.0.1\n")
        self.machine.boot()

    def bring(self, file):
        """Copies a file into the machine."""
        inside = f"/root/{os.path.basename(file)}"
        subprocess.run(["cp", file, self.machine.path(inside)], check=True)
        return inside

    def use_authority_and_dns(self):
        self.start_dns({zone: {"@": WEB_ADDRESS} for zone in (SITE, ZONE)})
        self.start_pebble()
        machine = self.machine
        machine.write("/etc/test-roots.pem", read(self.ca.root))
        machine.write("/etc/systemd/system/zelvek.service.d/roots.conf", "[Service]\nEnvironment=VEK_CA_FILE=/etc/test-roots.pem\n")
        machine.run("systemctl", "daemon-reload")
        machine.write("/etc/zelvek/dns.key", read(self.dns.key_file), 0o600)
        machine.run("chown", "zelvek:zelvek", "/etc/zelvek/dns.key")
        machine.append("/etc/zelvek/zelvek.conf", "retry-interval=1\nrenewal-info=off\npublic-resolvers=off\ndns-server=127.0.0.1\n"
                                                  f"dns-key-file=/etc/zelvek/dns.key\ndns-zone={ZONE}\n")
        machine.run("rm", "-f", "/etc/nginx/sites-enabled/default")
        machine.write("/etc/nginx/conf.d/answers.conf", NGINX.format(address=WEB_ADDRESS))

    def describe(self):
        return super().describe() + "\n--- the machine's journal\n" + self.machine.describe() + \
            "\n--- the machine's runs\n" + read_if_there(self.machine.path("/var/log/vek/ambrin.log"))[-4000:]

    def close(self):
        self.machine.close()
        super().close()
