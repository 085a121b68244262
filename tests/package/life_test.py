"""A panel's life as an administrator sees it, from README's first lines to the package's end."""
import contextlib
import hashlib
import os
import shutil
import socket
import sqlite3
import ssl

import pictures
from ca import openssl, read
from package_world import MACHINE, MODES, NAME_SERVER, UNITS, MachineTest, indented, package
from process import LONG, wait_until
from web import another_server

README = os.path.join(os.path.dirname(__file__), "..", "..", "README.md")
FIRST, FURTHER = "as root on a Debian 12 with nginx:", "## Further certificates"  # ahead of README's commands
SITE, WILD, MOVED = "shop.example", "blog.example", "moved.example"
ELSEWHERE = "203.0.113.7"
ZONES = {SITE: {"@": MACHINE, "www": MACHINE}, WILD: {"@": MACHINE}, MOVED: {"@": ELSEWHERE}}
TOLD = f"""The authority could not check {MOVED}: {MOVED} points to {ELSEWHERE}, where instead of this server's answer stood: \
404 Not Found: Error response; see that {MOVED} points to this server alone"""
DNS_OPTIONS = f"""dns-server={NAME_SERVER}
dns-key-file=/etc/zelvek/dns.key
dns-zone={WILD}
"""
# Where a test would wait for a minute; what is read after the file of options.
QUICK = ("/etc/zelvek/conf.d/quick.conf", "retry-interval=1\n")
SERVER = "server {{\n    server_name {names};\n{lines}\n}}\n"
OF_WILD = """    listen 443 ssl;
    ssl_certificate     /var/lib/zelvek/certs/berta/{name}/fullchain.pem;
    ssl_certificate_key /var/lib/zelvek/certs/berta/{name}/privkey.pem;""".format(name=WILD)
# What `zelvek setup` has written for the web server: its sites go on including it.
OF_SETUP = [f"/etc/nginx/conf.d/zelvek-{SITE}.conf", "/etc/nginx/snippets/zelvek.conf"]
# What the administrator has to take to another machine besides the backup.
CONFIGURATION = ("/etc/zelvek", "/etc/nginx/conf.d", "/etc/nginx/snippets")
KEPT = "/root/kept.tar"
SHOWN = (SITE, f"www.{SITE}", f"any.{WILD}")


def readme_commands(after):
    """What README has an administrator type."""
    return [line.strip() for line in indented(read(README), after).splitlines()]


class LifeTest(MachineTest):
    def setUp(self):
        super().setUp()
        self.world.start_authority_and_dns(ZONES)
        self.prepare_server()

    def prepare_server(self):
        """A server with nginx alone, which trusts the authority's server."""
        self.machine.run("rm", "-r", "/etc/apache2")
        number = openssl("x509", "-noout", "-subject_hash", "-in", self.world.ca.root).decode().strip()
        self.machine.write(f"/etc/ssl/certs/{number}.0", read(self.world.ca.root))
        self.machine.run("systemctl", "enable", "--now", "nginx")

    def type(self, line):
        return self.machine.run("sh", "-c", f"cd /root && {line}").stdout

    # Behaviours of: Package

    # Behaviour: A panel's whole life: README's commands install it and get a certificate; a wildcard comes by dns-01 over a
    #   reboot, a name that leads elsewhere is told with what to do, an upgrade keeps all; a backup makes the same panel of
    #   another machine, where renewals go on, and purging leaves nothing but what the web server's sites include; a service that is
    #   stopped in the middle of a run has the run write its record back, and leaves no process
    def test_a_panels_life(self):
        self.first_certificate()
        with another_server(ELSEWHERE):
            self.wildcard_over_a_reboot()
            self.name_that_leads_elsewhere()
            self.look()
            self.upgrade()
        kept = self.back_up()
        self.purge()
        self.move(kept)
        self.renewals()
        self.stops_in_the_middle_of_a_run()
        self.no_secrets()

    def first_certificate(self):
        self.world.bring(package("old"))
        install, try_first, set_up, look = readme_commands(FIRST)
        self.type(install)
        self.assertEqual(self.state(*UNITS), ["active"] * 3)
        self.assertIn("Nothing was changed.", self.type(try_first))
        self.assertEqual([path for path in OF_SETUP if os.path.exists(self.machine.path(path))], [])
        said = self.type(set_up)
        self.assertIn("\nThe certificate is installed", said)
        self.assertIn("1 verified", self.type(look))
        self.serve(f"{SITE} www.{SITE}", indented(said, "for port 443:"))

    def serve(self, names, lines):
        self.machine.append("/etc/nginx/conf.d/sites.conf", SERVER.format(names=names, lines=lines))
        self.machine.run("systemctl", "reload", "nginx")
        self.wait_shown(names.split()[-1].replace("*", "any"))

    def wait_shown(self, name, not_this=""):
        """Another certificate than that one is shown, which a client accepts."""
        return wait_until(lambda: (now := self.shown(name)) != not_this and now, f"{name} shows a certificate of its own",
                          pause=0.2)

    def shown(self, name):
        """Which certificate a client that trusts the authority alone is shown for the name; empty if it accepts none."""
        context = ssl.create_default_context(cafile=self.world.path("pebble-root.pem"))
        with contextlib.suppress(OSError), socket.create_connection((MACHINE, 443), LONG) as connection, \
                context.wrap_socket(connection, server_hostname=name) as tls:
            return hashlib.sha256(tls.getpeercert(True)).hexdigest()
        return ""

    def wildcard_over_a_reboot(self):
        self.machine.append("/etc/zelvek/zelvek.conf", DNS_OPTIONS)
        self.machine.write("/etc/zelvek/dns.key", read(self.world.dns.key_file), 0o600)
        self.machine.run("chown", "zelvek:zelvek", "/etc/zelvek/dns.key")
        self.machine.write(*QUICK)
        self.machine.run("systemctl", "restart", "zelvek.service")
        *add, show, look = readme_commands(FURTHER)
        finalization = self.world.front.server.hold(lambda request: "/finalize-order/" in request.path)
        for command in add:
            self.type(command)
        finalization.wait_reached()
        self.machine.reboot()
        finalization.lose()
        self.assertEqual(self.state(*UNITS, "nginx.service"), ["active"] * 4)
        self.assertEqual(self.modes(), MODES)
        self.assertTrue(self.shown(SITE))
        wait_until(lambda: self.job(WILD)["verified"], "the wildcard's certificate comes after the reboot", pause=1)
        # The order of the run that was ended, and no other one.
        self.assertEqual(len(self.world.pebble.issued()), 2)
        self.serve(f"*.{WILD}", OF_WILD)
        self.assertIn("The certificate is installed", self.type(show))
        self.assertNotIn("wrong", self.type(look))

    def job(self, certname):
        return next(job for job in self.ask("job", "list") if job["certname"] == certname)

    def name_that_leads_elsewhere(self):
        self.machine.run("rm", QUICK[0])
        self.machine.run("systemctl", "restart", "zelvek.service")
        self.zelvek("domain", "add", MOVED, "--user", "berta")
        self.zelvek("job", "add", MOVED, "--user", "berta")
        job = str(self.job(MOVED)["id"])
        wait_until(lambda: TOLD in self.zelvek("job", "show", job), "the service says where the name leads", pause=0.5)

    def upgrade(self):
        before = self.certificates()
        self.type(f"apt install {self.world.bring(package('new'))}")
        self.assertNotEqual(self.version(), "0.0.1")
        self.assertEqual(self.state(*UNITS), ["active"] * 3)
        self.assertEqual(self.certificates(), before)

    def version(self):
        return self.machine.run("dpkg-query", "-W", "-f", "${Version}", "zelvek").stdout

    def certificates(self):
        return [(job["certname"], job["expires"]) for job in self.jobs()]

    def look(self):
        found = pictures.take(self.machine)["zelvek doctor"]
        wrong = [line for line in found.splitlines() if line.startswith("wrong")]
        self.assertEqual([line.split()[1:4] for line in wrong], [["answers", "at", MOVED]])

    def back_up(self):
        self.zelvek("backup", "--new-key", "/root/panel.key")
        said = self.zelvek("backup", "/root/panel.backup", "--key-file", "/root/panel.key")
        self.assertIn("3 jobs, 3 domains, 2 certificates, encrypted", said)
        self.assertEqual(self.state("zelvek.service"), ["active"])
        # With the owners' names, whose numbers may be others there.
        self.machine.run("tar", "-cf", KEPT, "/root/panel.key", "/root/panel.backup", *CONFIGURATION)
        return shutil.copy(self.machine.path(KEPT), self.world.folder)

    def purge(self):
        self.no_secrets()
        self.type("apt-get -y purge zelvek")
        self.assertEqual(self.left(), OF_SETUP)
        self.assertEqual(self.state(*UNITS), ["inactive"] * 3)
        self.machine.run("getent", "passwd", "zelvek")

    def no_secrets(self):
        logs = self.machine.run("journalctl", "--no-pager").stdout + self.machine.read("/var/log/vek/ambrin.log")
        self.assertFalse("PRIVATE KEY" in logs or self.world.dns.secret in logs, "a secret is in a log")

    def move(self, kept):
        """To a machine that takes the place of the first one, which is gone."""
        shown = [self.shown(name) for name in SHOWN]
        self.world.replace_machine()
        self.prepare_server()
        self.world.bring(package("new"))
        self.type(readme_commands(FIRST)[0])
        self.machine.run("systemctl", "stop", "zelvek.socket", "zelvek.service")
        self.machine.run("tar", "-xf", self.world.bring(kept), "-C", "/")
        self.machine.write(*QUICK)
        self.assertIn("certificates: 2 installed, 0 there already", self.restore())
        # What is there is looked at, what is missing comes again.
        self.machine.run("rm", "-r", f"/var/lib/zelvek/certs/alice/{SITE}")
        self.assertIn("certificates: 1 installed, 1 there already", self.restore("--force"))
        self.machine.run("systemctl", "start", "zelvek.socket", "zelvek.service")
        self.machine.run("systemctl", "reload", "nginx")
        self.assertEqual([self.wait_shown(name) for name in SHOWN], shown)
        self.assertEqual(self.state(*UNITS), ["active"] * 3)

    def restore(self, *options):
        return self.zelvek("restore", "/root/panel.backup", "--key-file", "/root/panel.key", *options)

    def renewals(self):
        before = {name: self.shown(name) for name in SHOWN}
        for name in (SITE, WILD):
            self.zelvek("job", "renew", str(self.job(name)["id"]))
        for name in SHOWN:
            self.wait_shown(name, not_this=before[name])
        self.assertEqual(len(self.world.pebble.issued()), 4)

    def stops_in_the_middle_of_a_run(self):
        """The run writes its record back, and what does not end by itself is killed."""
        job = str(self.job(SITE)["id"])
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
        wait_until(lambda: self.job(SITE)["verified"], "the next run brings the certificate", pause=0.5)

    def named(self, name):
        return self.machine.run("pidof", name, check=False).stdout.split()
