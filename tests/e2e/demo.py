"""The demonstration: jobs are added, and the service does the rest by itself. Started by scripts/demo."""
import argparse
import contextlib
import os
import shutil
import socket
import socketserver
import subprocess
import sys
import tempfile
import textwrap
import threading

import deployment
import sandbox
from process import wait_until
from web import WebServer
from world import HOSTS, RESOLVERS, WEB_ADDRESS, World

# One site for each way to prove a name, and one whose name leads to somebody else's server.
HTTP_SITE, DNS_SITE, MOVED_SITE = "shop.example", "blog.example", "moved.example"
ELSEWHERE = "203.0.113.7"
SITES = {HTTP_SITE: [HTTP_SITE, f"www.{HTTP_SITE}"], DNS_SITE: [DNS_SITE]}
ZONES = {HTTP_SITE: {"@": WEB_ADDRESS, "www": WEB_ADDRESS}, DNS_SITE: {"@": WEB_ADDRESS}, MOVED_SITE: {"@": ELSEWHERE}}

# Certificates live so many seconds, so that a renewal comes while somebody is looking on: the first one of a job after a
# sixth to a half of that, by chance.
LIFETIME = 120
REFUSED_NONCES = 10  # of a hundred, by pebble as it is
PACKAGING = os.path.realpath(os.path.join(os.path.dirname(__file__), "../../packaging"))
PAGE = ("127.0.0.1", 8443)
LIMIT = 600  # seconds; for slow machines, never a time that is waited in full

LOOK = """openssl s_client -connect {name}:443 -servername {name} </dev/null 2>/dev/null |
        openssl x509 -noout -subject -issuer -serial -ext subjectAltName -dates"""
# Without a certificate that the client accepts, neither line is printed.
CHECK = """openssl s_client -connect {name}:443 -servername {name} -verify_hostname {name} \\
        -CAfile {root} </dev/null 2>/dev/null | grep -E '^Verif(ication: OK|ied peername)'"""


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--binaries", required=True, type=os.path.abspath)
    parser.add_argument("--authority", choices=["classic", "rfc8555"], default="classic", help="the style of these binaries")
    parser.add_argument("--page", nargs="?", const="", help="serve the page to this machine's browsers, and wait")
    parser.add_argument("--inside", help=argparse.SUPPRESS)
    options = parser.parse_args()
    if options.inside is None and options.page is not None:
        sys.exit(with_page(options))
    if options.inside is None:
        sys.exit(sandbox.run([sys.executable, os.path.abspath(__file__), *sys.argv[1:], "--inside"]))
    sandbox.as_init(lambda: Demonstration(options).run())


def with_page(options):
    """Nothing reaches the private network but this: a port of this machine leads to the page's socket."""
    with tempfile.TemporaryDirectory(prefix="zelvek-page-") as folder:
        os.chmod(folder, 0o1777)
        shutil.copytree(os.path.join(PACKAGING, "page"), os.path.join(folder, "page"))
        shutil.copy(os.path.join(PACKAGING, "notices.de.txt"), folder)
        socketserver.ThreadingTCPServer.allow_reuse_address = True
        with socketserver.ThreadingTCPServer(PAGE, Forward) as server:
            server.daemon_threads = True
            server.socket_path = os.path.join(folder, "page.sock")
            threading.Thread(target=server.serve_forever, daemon=True).start()
            return sandbox.run([sys.executable, os.path.abspath(__file__), "--binaries", options.binaries, "--authority", options.authority,
                                "--page", folder, "--inside"])


class Forward(socketserver.BaseRequestHandler):
    def handle(self):
        with socket.socket(socket.AF_UNIX) as page:
            with contextlib.suppress(OSError):
                page.connect(self.server.socket_path)
                back = threading.Thread(target=pump, args=(page, self.request), daemon=True)
                back.start()
                pump(self.request, page)
                back.join()


def pump(source, target):
    with contextlib.suppress(OSError):
        while data := source.recv(65536):
            target.sendall(data)
    with contextlib.suppress(OSError):
        target.shutdown(socket.SHUT_WR)


class Demonstration:
    def __init__(self, options):
        sandbox.set_up_network(options.inside, HOSTS, (*RESOLVERS, ELSEWHERE))
        # Without root there is one user: everything is that user's.
        kind = deployment.DeployedWorld if deployment.possible() else World
        self.world = kind(os.path.join(options.inside, "world"), options.binaries)
        self.environment = self.world.environment() | {"PATH": f"{options.binaries}:{os.environ['PATH']}"}
        self.root = self.world.path("pebble-root.pem")
        self.bare = options.authority == "rfc8555"
        self.elsewhere = None
        self.steps = 0
        self.page = options.page

    def run(self):
        try:
            self.start_servers()
            self.start_service()
            self.show_placeholder(HTTP_SITE)
            http_job, dns_job, moved_job = self.add_jobs()
            if self.page:
                return self.show_page()
            first = self.watch_installation(http_job, HTTP_SITE)
            self.watch_failure(moved_job)
            self.show_patience(dns_job)
            self.watch_installation(dns_job, DNS_SITE)
            self.watch_renewal(http_job, HTTP_SITE, first)
        except (AssertionError, SystemExit):
            print(self.world.describe())
            raise
        finally:
            self.stop()
        self.step("Everything is stopped; nothing stays on the machine.")
        return 0

    # What is there before the first job.

    def start_servers(self):
        self.step("A private network: the certificate authority's public address, the sites and the public resolvers "
                  "lie on this namespace's loopback device. Nothing leaves it.")
        self.step("The name server (BIND), authoritative for the sites' zones, takes updates signed with a key.")
        self.world.start_dns(ZONES)
        self.step(f"The certificate authority (pebble), whose certificates live {LIFETIME} seconds here, and the web server "
                  "(nginx).")
        if self.bare:
            self.step("The authority is pebble as it is, the program the one for authorities that keep to RFC 8555: certificates "
                      f"come in the authority's own time, accounts are checked, and {REFUSED_NONCES} of a hundred nonces are "
                      "refused.")
            self.world.start_bare_pebble(plugin="ambrin", lifetime=LIFETIME, refused_nonces=REFUSED_NONCES)
        else:
            self.world.start_pebble(lifetime=LIFETIME)
        self.world.start_web(SITES)
        self.start_elsewhere()

    def start_elsewhere(self):
        """Somebody else's web server, which knows none of our answers."""
        answers = self.world.path("no-answers")
        os.makedirs(answers)
        self.elsewhere = WebServer(self.world.path("elsewhere"), ELSEWHERE, answers, {MOVED_SITE: [MOVED_SITE]})

    def start_service(self):
        self.step("The service with its scheduler, as a user of its own: root reloads the web server when the service asks "
                  "for it.")
        options = ["--plugin-log-level", "9"]
        if self.page:
            options += ["--page-listen", os.path.join(self.page, "page.sock"), "--page-files", os.path.join(self.page, "page"),
                        "--page-url", "http://{}:{}/".format(*PAGE)]
        self.world.start_service(*options, scheduler="on")
        command = " ".join(self.world.service.command).replace(self.world.binary("zelvek"), "zelvek")
        print(textwrap.fill(command, 114, initial_indent="    $ ", subsequent_indent="        ", break_on_hyphens=False))

    def show_placeholder(self, name):
        self.step(f"What a TLS client sees at https://{name}/ before: a self-signed placeholder.")
        self.type(LOOK.format(name=name))

    def stop(self):
        if self.elsewhere:
            self.elsewhere.stop()
        self.world.close()

    # The jobs.

    def add_jobs(self):
        """Returns the jobs' numbers, which the service counts from 1."""
        self.step("Three certificates are asked for; nobody will do more than that. The first is proved by http-01.")
        self.add_job(HTTP_SITE, "--alias", f"www.{HTTP_SITE}")
        self.step("The second one has a wildcard, which needs dns-01.")
        self.add_job(DNS_SITE, "--alias", f"'*.{DNS_SITE}'", "--check", "dns")
        self.step(f"The third one's name leads to another server, {ELSEWHERE}, so it must fail.")
        self.add_job(MOVED_SITE)
        self.type("zelvek status")
        return 1, 2, 3

    def add_job(self, name, *options):
        self.type(f"zelvek domain add {name} --user anna")
        # Pebble answers no account check of the style classic, so the jobs leave it out.
        skipped = [] if self.bare else ["--skip-account-check"]
        self.type(" ".join(["zelvek job add", name, "--user anna", *skipped, *options]))

    def watch_installation(self, job, name):
        """Returns the certificate, PEM, that is shown afterwards."""
        # So it is again after each renewal: a slow machine sees it late, and does not miss it.
        self.wait(lambda: self.world.job(job)["verified"], f"{name} has a certificate")
        self.world.web.wait_trusted(name, self.root)
        self.step(f"The service has installed the certificate of {name}.")
        self.type("zelvek status")
        self.step(f"What a TLS client sees at https://{name}/ now; it accepts the certificate if it trusts the authority.")
        self.look(name)
        # Taken after the one that has been printed, so whatever differs from this one differs from that one too.
        return self.world.web.wait_trusted(name, self.root)

    def watch_failure(self, job):
        self.wait(lambda: ELSEWHERE in self.world.job(job)["sentence"], f"the service says where {MOVED_SITE} leads")
        self.step(f"Why {MOVED_SITE} has none: the service has looked for itself what others see of that name.")
        self.type(f"zelvek job show {job}")

    def show_patience(self, job):
        # On a slow machine it may have its certificate by now.
        self.wait(lambda: "TXT records" in self.world.job(job)["sentence"] or self.world.job(job)["verified"],
                  f"the records of {DNS_SITE} are published")
        self.step(f"How {DNS_SITE} comes along: name servers need some time to show a record that was published.")
        self.type(f"zelvek job show {job} | head -n 1")

    def watch_renewal(self, job, name, first):
        self.step(f"Certificates that live so short are renewed at half their life, a job's first one earlier by chance. So "
                  f"https://{name}/ shows another one by now, or soon: with another serial number, and later dates.")
        self.wait(lambda: self.world.web.wait_trusted(name, self.root) != first, f"{name} shows another certificate")
        self.look(name)
        self.step("The service's log: its scheduler has started every run, the renewals' too.")
        self.type(f"grep 'job {job}:' {self.world.log_path('service')}")
        self.type("zelvek status")
        if self.bare:
            self.step("How often a nonce was refused: each cost one more try of a request.")
            self.type(f"grep 'nonce refused' {self.world.plugin_logs}/ambrin.log | wc -l")

    def show_page(self):
        self.step("The service's page: this link opens it once, within a minute, in a browser of this machine. Enter prints "
                  "another one, Ctrl-C or the end of input stops everything.")
        self.type("zelvek page login")
        for _ in sys.stdin:
            self.type("zelvek page login")
        return 0

    def look(self, name):
        self.type(LOOK.format(name=name))
        self.type(CHECK.format(name=name, root=self.root))

    # How it is shown.

    def step(self, text):
        self.steps += 1
        print("\n" + textwrap.fill(f"== {self.steps}. {text}", 110, subsequent_indent="   "), flush=True)

    def type(self, line):
        """Runs a command line as it is shown."""
        print(f"    $ {line}", flush=True)
        done = subprocess.run(["sh", "-c", line], env=self.environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, check=False)
        print(textwrap.indent(done.stdout, "      "), end="", flush=True)
        if done.returncode != 0:
            raise SystemExit(f"demo: that command ended with status {done.returncode}")

    def wait(self, condition, what):
        wait_until(condition, what, LIMIT)


if __name__ == "__main__":
    main()
