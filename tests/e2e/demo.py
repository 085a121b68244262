"""The demonstration: from an empty machine to a certificate that a TLS client accepts. Started by scripts/demo."""
import argparse
import os
import subprocess
import sys
import textwrap

import deployment
import sandbox
from world import HOSTS, INSTALLED, RESOLVERS, WAITING, WEB_ADDRESS, World

SITES = {"shop.example": ["shop.example", "www.shop.example"], "blog.example": ["blog.example"]}
ZONES = {"shop.example": {"@": WEB_ADDRESS, "www": WEB_ADDRESS}}

LOOK = """openssl s_client -connect {name}:443 -servername {name} </dev/null 2>/dev/null |
        openssl x509 -noout -subject -issuer -ext subjectAltName -dates"""
CHECK = """openssl s_client -connect {name}:443 -servername {name} -verify_hostname {name} \\
        -CAfile {root} </dev/null 2>/dev/null | grep '^Verif'"""


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--binaries", required=True, type=os.path.abspath)
    parser.add_argument("--dns", action="store_true", help="a dns-01 job instead of an http-01 job")
    parser.add_argument("--inside", help=argparse.SUPPRESS)
    options = parser.parse_args()
    if options.inside is None:
        sys.exit(sandbox.run([sys.executable, os.path.abspath(__file__), *sys.argv[1:], "--inside"]))
    sandbox.as_init(lambda: Demonstration(options).run())


class Demonstration:
    def __init__(self, options):
        sandbox.set_up_network(options.inside, HOSTS, RESOLVERS)
        self.dns = options.dns
        # Without root there is one user: everything is that user's.
        kind = deployment.DeployedWorld if deployment.possible() else World
        self.world = kind(os.path.join(options.inside, "world"), options.binaries)
        self.environment = self.world.environment() | {"PATH": f"{options.binaries}:{os.environ['PATH']}"}
        self.steps = 0

    def run(self):
        try:
            self.start()
            if self.dns:
                self.dns_job()
            else:
                self.http_job()
                self.second_job()
        finally:
            self.world.close()
        self.step("Everything is stopped; nothing stays on the machine.")
        return 0

    def start(self):
        self.step("A private network: the certificate authority's public address, the sites and the public resolvers "
                  "lie on this namespace's loopback device. Nothing leaves it.")
        if self.dns:
            self.step("The name server (BIND), authoritative for the sites' zones, takes updates signed with a key.")
            self.world.start_dns(ZONES)
        self.step("The certificate authority (pebble) and the web server (nginx).")
        self.world.start_pebble()
        self.world.start_web(SITES)
        self.step("The service, as a user of its own: root reloads the web server when the service asks for it.")
        self.world.start_service()
        command = " ".join(self.world.service.command).replace(self.world.binary("zelvek"), "zelvek")
        print(textwrap.fill(command, 114, initial_indent="    $ ", subsequent_indent="        ", break_on_hyphens=False))

    def http_job(self):
        self.placeholder("shop.example")
        self.step("A domain and a certificate job for it, with an alias; then one run of the job.")
        self.type("zelvek domain add shop.example --user anna")
        self.type("zelvek job add shop.example --user anna --alias www.shop.example")
        self.type("zelvek job run 1 --quiet")
        self.installed("shop.example")
        self.step("The notifications, for the administrator and for the domain's user.")
        self.type("zelvek problem list --state all")

    def second_job(self):
        # Pebble takes no account check, so the job leaves it out; the account is the one that the first job registered.
        self.step("A second job: it takes the panel's default account, which the first job registered.")
        self.type("zelvek account show")
        self.type("zelvek domain add blog.example --user anna")
        self.type("zelvek job add blog.example --user anna --skip-account-check")
        self.type("zelvek job run 2 --quiet")
        self.installed("blog.example")
        self.step("Both jobs.")
        self.type("zelvek job list")

    def dns_job(self):
        record = f"dig +noall +answer @{RESOLVERS[0]} TXT _acme-challenge.shop.example"
        self.placeholder("shop.example")
        self.step("A domain and a dns-01 job for it and every name below. The first run publishes the TXT records.")
        self.type("zelvek domain add shop.example --user anna")
        self.type("zelvek job add shop.example --user anna --alias '*.shop.example' --check dns")
        self.type("zelvek job run 1 --quiet", WAITING)
        self.type(record)
        self.step("The next run looks the records up, and goes on to the certificate. The records are gone then.")
        self.type("zelvek job run 1 --quiet")
        self.type(record)
        self.installed("shop.example")
        self.step("The history of the job.")
        self.type("zelvek job show 1")

    def placeholder(self, name):
        self.step(f"What a TLS client sees at https://{name}/ before: a self-signed placeholder.")
        self.type(LOOK.format(name=name))

    def installed(self, name):
        self.step(f"What a TLS client sees at https://{name}/ now; it accepts the certificate if it trusts the authority.")
        root = self.world.path("pebble-root.pem")
        self.world.web.wait_trusted(name, root)
        self.type(LOOK.format(name=name))
        self.type(CHECK.format(name=name, root=root))

    def step(self, text):
        self.steps += 1
        print("\n" + textwrap.fill(f"== {self.steps}. {text}", 110, subsequent_indent="   "), flush=True)

    def type(self, line, status=INSTALLED):
        """Runs a command line as it is shown."""
        print(f"    $ {line}", flush=True)
        done = subprocess.run(["sh", "-c", line], env=self.environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, check=False)
        print(textwrap.indent(done.stdout, "      "), end="", flush=True)
        if done.returncode != status:
            raise SystemExit(f"demo: that command ended with status {done.returncode}, not {status}")


if __name__ == "__main__":
    main()
