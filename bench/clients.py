"""Clients that fetch a certificate for one fresh name: the program, and those of the distribution that are installed.

Each has an account with an RSA key of 4096 bits at the authority before it is measured, proves the name by http-01 and gets a
certificate for an EC key.
"""
import os
import shutil
import subprocess

from ca import EC, openssl
from client import Key
from process import LONG
from world import DIRECTORY_HOST

ACCOUNT_BITS = 4096

# Publishes what uacme gives it: event, kind of challenge, name, token, key authorization.
HOOK = """#!/bin/sh
[ "$2" = http-01 ] || exit 1
case $1 in begin) printf %s "$5" >"{answers}/$4" ;; *) rm -f "{answers}/$4" ;; esac
"""


class Client:
    """`prepare` once, `provide(name)` before each run, whose command is `command(name)`; only the command is measured."""

    def __init__(self, stage, folder):
        self.stage, self.folder = stage, folder
        os.makedirs(folder)

    def path(self, name):
        return os.path.join(self.folder, name)

    def prepare(self):
        pass

    def provide(self, name):
        pass

    def register(self, *command):
        subprocess.run(command, check=True, capture_output=True, stdin=subprocess.DEVNULL, timeout=4 * LONG,
                       env=self.stage.environment())


class Ambrin(Client):
    """A run as the service's scheduler starts it. The service makes key and request, and installs."""

    def __init__(self, stage, folder, binary):
        super().__init__(stage, folder)
        self._binary, self._jobs = binary, {}

    def prepare(self):
        if not self.stage.ask("account", "show")["kid"]:
            self.stage.take_account(Key(self.path("account.key"), ACCOUNT_BITS))

    def provide(self, name):
        self.stage.add_domain(name)
        self._jobs[name] = self.stage.add_job(name, "--csr", "key_type=ec", "--skip-account-check")

    def command(self, name):
        return [self._binary, str(self._jobs[name])]


class Lego(Client):
    def prepare(self):
        # Its first run makes the account, with a key of the certificate's kind.
        self.register(*self._run("first.example", "rsa4096"))

    def command(self, name):
        return self._run(name, "ec256")

    def _run(self, name, kind):
        return ["lego", "--server", self.stage.directory, "--path", self.folder, "--accept-tos", "--email", "a@lego.example",
                "--domains", name, "--key-type", kind, "--http", "--http.webroot", self.stage.webroot, "run"]


class Uacme(Client):
    def prepare(self):
        with open(self.path("hook"), "w", encoding="ascii") as file:
            file.write(HOOK.format(answers=self.stage.answers))
        os.chmod(self.path("hook"), 0o755)
        self.register("uacme", *self._place(), "-y", "-t", "RSA", "-b", str(ACCOUNT_BITS), "new")

    def command(self, name):
        return ["uacme", *self._place(), "-t", "EC", "-h", self.path("hook"), "issue", name]

    def _place(self):
        return ["-a", self.stage.directory, "-c", self.path("state")]


class AcmeTiny(Client):
    """It has no state: each run asks for its account, and gets the request ready-made."""

    def prepare(self):
        self._key = Key(self.path("account.key"), ACCOUNT_BITS)
        self.stage.pebble.register(self._key, DIRECTORY_HOST)

    def provide(self, name):
        openssl("req", "-new", *EC, "-keyout", self.path(f"{name}.key"), "-out", self.path(f"{name}.csr"),
                "-subj", f"/CN={name}", "-addext", f"subjectAltName=DNS:{name}")

    def command(self, name):
        return ["acme-tiny", "--quiet", "--account-key", self.path("account.key"), "--csr", self.path(f"{name}.csr"),
                "--acme-dir", self.stage.answers, "--directory-url", self.stage.directory]


class Certbot(Client):
    def prepare(self):
        self.register(*self._command("register"), "--rsa-key-size", str(ACCOUNT_BITS), "--agree-tos", "--email", "a@bot.example",
                      "--no-eff-email")

    def command(self, name):
        return [*self._command("certonly"), "--webroot", "--webroot-path", self.stage.webroot, "--domain", name,
                "--key-type", "ecdsa"]

    def _command(self, verb):
        folders = [part for name in ("config", "work", "logs") for part in (f"--{name}-dir", self.path(name))]
        return ["certbot", verb, "--non-interactive", "--server", self.stage.directory, *folders]


OTHERS = {"lego": Lego, "uacme": Uacme, "acme-tiny": AcmeTiny, "certbot": Certbot}


def installed():
    return [name for name in OTHERS if shutil.which(name)]
