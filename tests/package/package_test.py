"""The Debian package on a booted Debian: what an administrator does with it, and what comes of that."""
import contextlib
import glob
import os
import sqlite3
import ssl
import urllib.request

from ca import openssl, read
from package_world import MACHINE, MODES, UNITS, MachineTest, indented
from process import LONG, wait_until

DATABASE = os.path.join(os.path.dirname(__file__), "..", "integration", "zelvek", "databases", "version-2.sql")
SITE = "shop.example"
OF_APACHE = "<VirtualHost *:443>\n{lines}\n</VirtualHost>\n"
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


class PackageTest(MachineTest):
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

    # Behaviour: The installed package is a service that runs, locked in and with the rights that it needs; it reloads the web
    #   server that is there, and tells what it finds broken; members of its groups see, or change, what they may
    # Behaviour: What setting up Apache writes has Apache serve the answers, and the lines that are shown a placeholder
    # Behaviour: A mistake in the configuration is told, not tried again and again, and nobody waits for the service then; a
    #   reload takes other options over, and with a mistake in them it fails and changes nothing
    def test_the_installed_package(self):
        self.install()
        self.assertEqual(self.state(*UNITS), ["active"] * 3)
        self.assertEqual(self.modes(), MODES)
        self.assertIn("zelvek 0.", self.zelvek("status"))
        self.machine.run("test", "-x", "/usr/share/doc/zelvek/examples/dns-command")
        # In tenths: 2.5 of 10, where 9.6 is a service without any of it.
        self.machine.run("systemd-analyze", "security", "--no-pager", "--threshold=25", "zelvek.service")
        self.machine.run("logrotate", "--force", "/etc/logrotate.d/zelvek")
        self.groups()
        self.reloads()
        self.apache()
        self.mistake()

    def groups(self):
        """What people who are not root do with the command line."""
        for name, options in (("carla", ("-G", "zelvek-admin")), ("monitor", ("-G", "zelvek-read")), ("dora", ())):
            self.machine.run("useradd", *options, name)
        self.assertIn("zelvek 0.", self.as_user("monitor", "status").stdout)
        self.as_user("carla", "domain", "add", "blog.example", "--user", "berta")
        self.assertIn("blog.example", self.as_user("monitor", "domain", "list").stdout)
        refused = self.as_user("monitor", "job", "retry", "--all")
        self.assertEqual((refused.returncode, refused.stdout, refused.stderr),
                         (5, "", "zelvek: zelvek.job.retry needs group zelvek-admin\n"))
        self.assertEqual(self.as_user("carla", "job", "retry", "--all").stdout, "0 jobs tried again\n")
        self.assertEqual(self.as_user("carla", "backup", "/tmp/backup").returncode, 5)
        stranger = self.as_user("dora", "status")
        self.assertEqual((stranger.returncode, stranger.stdout), (5, ""))
        self.assertIn("Permission denied", stranger.stderr)
        refusals = self.machine.run("journalctl", "--no-pager", "-u", "zelvek.service", "EVENT=query_refused").stdout
        self.assertIn("zelvek.job.retry needs group zelvek-admin", refusals)

    def as_user(self, name, *words):
        return self.machine.run("runuser", "-u", name, "--", "zelvek", *words, check=False)

    def reloads(self):
        """What the administrator sees of a broken web server, of none, and of another one."""
        self.machine.run("systemctl", "start", "nginx")
        self.machine.write("/etc/nginx/conf.d/broken.conf", "nonsense;")
        self.assertIn('unknown directive "nonsense"', self.reload(status=1))
        self.machine.run("systemctl", "stop", "nginx")
        self.assertEqual(self.reload(), "nginx does not run; it reads the certificates when it starts\n"
                                        "apache2 does not run; it reads the certificates when it starts\n")
        self.machine.run("systemctl", "start", "apache2")
        self.assertIn("Syntax OK", self.reload())
        self.assertIn("Reloaded apache2.service", self.machine.run("journalctl", "--no-pager", "-u", "apache2").stdout)
        self.machine.append("/etc/zelvek/reload.conf", "RELOAD_COMMAND='echo another && exit 7'\n")
        self.assertEqual(self.reload(status=7), "another\n")
        self.machine.append("/etc/zelvek/reload.conf", "RELOAD_COMMAND=\n")

    def reload(self, status=0):
        done = self.machine.run("runuser", "-u", "zelvek", "--", "/usr/lib/zelvek/ask-for-reload", check=False)
        self.assertEqual(done.returncode, status, done.stdout + done.stderr)
        return done.stdout

    def apache(self):
        self.machine.append("/etc/zelvek/zelvek.conf", "scheduler=off\n")
        self.machine.run("systemctl", "restart", "zelvek.service")
        done = self.machine.run("zelvek", "setup", "--domain", SITE, "--user", "anna", "--webserver", "apache", check=False)
        self.assertEqual(done.returncode, 3, done.stdout + done.stderr)
        self.machine.write("/var/lib/zelvek/answers/token", "answer")
        with urllib.request.urlopen(f"http://{MACHINE}/.well-known/acme-challenge/token", timeout=LONG) as answer:
            self.assertEqual((answer.read(), answer.headers["Content-Type"]), (b"answer", "text/plain"))

        lines = indented(done.stdout, '"a2enmod ssl":')
        self.machine.write("/etc/apache2/sites-enabled/shop.conf", OF_APACHE.format(lines=lines))
        self.machine.run("a2enmod", "ssl")
        self.machine.run("systemctl", "restart", "apache2")
        shown = openssl("x509", "-noout", "-subject", data=ssl.get_server_certificate((MACHINE, 443)).encode()).decode()
        self.assertIn("placeholder", shown)

    def mistake(self):
        pid = self.pid()
        self.machine.append("/etc/zelvek/zelvek.conf", "runs-at-once=3\n")
        self.machine.run("systemctl", "reload", "zelvek.service")
        wait_until(lambda: "taken over: runs-at-once" in self.status_text(), "the other option is taken over")
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

    # Behaviour: A restart and an upgrade refuse nobody; a service that was stopped starts for who asks, one that hangs is
    #   replaced
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
        wait_until(lambda: self.pid() not in (before, "0"), "another service runs", pause=0.2)
        wait_until(lambda: self.state("zelvek.service") == ["active"], "the service is active", pause=0.2)
        self.assertEqual(glob.glob(self.machine.path("/var/lib/zelvek/core*")), [])

    def status_text(self):
        return self.property("StatusText")

    def pid(self):
        return self.property("MainPID")

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

    def old_database(self):
        file = self.machine.path("/var/lib/zelvek/zelvek.db")
        for name in glob.glob(file + "*"):
            os.remove(name)
        with contextlib.closing(sqlite3.connect(file)) as database:
            database.executescript(read(DATABASE))
        self.machine.run("chown", "zelvek:zelvek", "/var/lib/zelvek/zelvek.db")
        self.machine.run("chmod", "0600", "/var/lib/zelvek/zelvek.db")
