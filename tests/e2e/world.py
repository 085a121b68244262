"""One test's world: the service with the shipped plug-in, and around it whatever parts the test asks for."""
import base64
import contextlib
import http.client
import json
import os
import re
import signal
import socket
import sqlite3
import ssl
import subprocess
import urllib.parse
from datetime import datetime, timedelta, timezone

import sandbox
from authority import Authority
from ca import CertificateAuthority, openssl, read
from nameserver import NameServer
from pebble import Front, Pebble
from process import LONG, Background, NeverHappened, running, wait_until
from web import WebServer

DIRECTORY_HOST = "acme-v02.api.letsencrypt.org"
AUTHORITY_ADDRESS = "127.0.0.2"
# Of the plug-in "ambrin-trial", which is built for tests alone.
TRIAL_HOST, TRIAL_ADDRESS = "ca-for-trials.example", "127.0.0.5"
WEB_ADDRESS = "127.0.0.3"
RESOLVERS = ("8.8.8.8", "8.8.4.4", "1.1.1.1", "1.0.0.1", "9.9.9.9")
SITES = ("shop.example", "www.shop.example", "mail.shop.example", "blog.example", "xn--bcher-kva.example")
HOSTS = {DIRECTORY_HOST: AUTHORITY_ADDRESS, TRIAL_HOST: TRIAL_ADDRESS} | {site: WEB_ADDRESS for site in SITES}

# The statuses of `zelvek job run`.
INSTALLED, FAILURE, WAITING, NOTHING_TO_DO = 0, 1, 3, 4

PRIVATE_KEY = re.compile(r"-----BEGIN [A-Z ]*PRIVATE KEY-----.*?-----END [A-Z ]*PRIVATE KEY-----", re.S)


class World:
    authority_address = AUTHORITY_ADDRESS

    def __init__(self, folder, binaries):
        self.folder, self._binaries = folder, binaries
        self.answers, self.certificates = self.path("answers"), self.path("certs")
        self.logs, self.database = self.path("log"), self.path("zelvek.db")
        self.plugin_logs = self.logs
        for name in (self.answers, self.certificates, self.logs):
            os.makedirs(name)
        os.makedirs(self.path("run"), mode=0o700)
        self.ca = CertificateAuthority(self.path("ca"))
        self.trusted_roots = self.ca.root
        self.plugin_name = "ambrin"
        self.search_path = os.environ["PATH"]  # of what is started from now on
        self.web = self.pebble = self.front = self.authority = self.dns = self.service = None
        self._stopping = contextlib.ExitStack()
        self._commands = 0
        self._service_start = None
        self._preloaded = {}

    def path(self, name):
        return os.path.join(self.folder, name)

    # The parts.

    def start_web(self, sites=None, answers=None):
        """`sites`: names per certificate; each site has one of its own where nothing is said."""
        sites = {site: [site] for site in SITES} if sites is None else sites
        self.web = WebServer(self.path("web"), WEB_ADDRESS, answers or self.answers, sites)
        self._stopping.callback(self.web.stop)

    def start_dns(self, zones, resolvers=RESOLVERS):
        self.dns = NameServer(self.path("dns"), self.log_path("named"), zones, resolvers)
        self._stopping.callback(self.dns.stop)

    def start_pebble(self, **kind):
        """Pebble, of a kind of its own perhaps, with the synchronous front at the production directory's address."""
        self._start_pebble(kind)
        self.front = Front(self.authority_address, DIRECTORY_HOST, self.ca, self.pebble)
        self._stopping.callback(self.front.stop)

    def start_bare_pebble(self, plugin="ambrin-pebble", **kind):
        """Pebble as it is; from now on runs are those of a plug-in that is built for it."""
        self.plugin_name = plugin
        self._start_pebble(kind | {"bare": True})

    def start_quiet_pebble(self, plugin):
        """As `start_bare_pebble`, but every validation begins at once, and no authorization serves twice."""
        self.plugin_name = plugin
        self._start_pebble({})

    def _start_pebble(self, kind):
        self.pebble = Pebble(self.path("pebble"), self.ca, self.log_path("pebble"), "127.0.0.1:53" if self.dns else None, **kind)
        self._stopping.callback(self.pebble.stop)
        with open(self.path("pebble-root.pem"), "w", encoding="ascii") as file:
            file.write(self.pebble.root())

    def start_trial_authority(self):
        """The pebble that runs at a second authority's address, too: its URLs, and so its accounts, are others there."""
        self._stopping.callback(Front(TRIAL_ADDRESS, TRIAL_HOST, self.ca, self.pebble).stop)

    def start_authority(self, certified_name=DIRECTORY_HOST):
        """The scripted authority, at the production directory's address."""
        self.authority = Authority(AUTHORITY_ADDRESS, DIRECTORY_HOST, self.ca, certified_name)
        self._stopping.callback(self.authority.stop)

    def start_service(self, *options, scheduler="off", reload_command=None, renewal_info="off"):
        """Without its scheduler, jobs run when the test says so. Where it asks for renewal information, the authority is
        asked by others than runs, too."""
        self._service_start = lambda: self.start_service(*options, scheduler=scheduler, reload_command=reload_command,
                                                         renewal_info=renewal_info)
        command = [self.binary("zelvek"), "serve", "--database", self.database, "--answers-dir", self.answers,
                   "--certs-dir", self.certificates, "--scheduler", scheduler, "--renewal-info", renewal_info,
                   *self._plugin_options()]
        if reload_command or self.web:
            command += ["--reload-command", reload_command or self.reload_command()]
        if self.dns:
            command += ["--dns-server", "127.0.0.1", "--dns-port", "53", "--dns-key-file", self.dns.key_file]
            command += [part for zone in self.dns.zones for part in ("--dns-zone", zone)]
        log = self.log_path("service")
        ready_before = read(log).count("zelvek: ready") if os.path.exists(log) else 0
        self.service = Background("zelvek", self.as_service([*command, *options]), log, self.environment())
        self.service.wait_ready(lambda: self.service.log().count("zelvek: ready") > ready_before)

    def as_service(self, command):
        """The command, run as the service's user: here everything is this process's own."""
        return command

    def reload_command(self):
        return self.web.reload_command

    def binary(self, name):
        return os.path.join(self._binaries, name)

    def preload(self, library, **variables):
        """What is started from now on loads this library first, and has these variables."""
        self._preloaded = {"LD_PRELOAD": library, **variables}

    def _plugin_options(self):
        return ["--plugin", self.binary(self.plugin_name)] if self.plugin_name != "ambrin" else []

    def environment(self):
        # A proxy of the environment is nobody's business here: nothing listens there.
        return os.environ | {"VEK_RUN_DIR": self.path("run"), "VEK_LOG_DIR": self.plugin_logs,
                             "VEK_CA_FILE": self.trusted_roots, "PATH": self.search_path,
                             "https_proxy": "http://127.0.0.1:9", "http_proxy": "http://127.0.0.1:9", **self._preloaded}

    def log_path(self, name):
        return os.path.join(self.logs, f"{name}.out")

    # What a person does at the command line.

    def zelvek(self, *arguments):
        """Runs a client command; its status is the caller's to look at."""
        run = self.start_zelvek(*arguments)
        run.process.wait(4 * LONG)
        return run

    def start_zelvek(self, *arguments):
        self._commands += 1
        command = [self.binary("zelvek"), *map(str, arguments)]
        return Background(" ".join(command), command, self.log_path(f"command-{self._commands:02}"), self.environment())

    def ask(self, *arguments):
        """The JSON answer of a client command that succeeds."""
        done = subprocess.run([self.binary("zelvek"), *map(str, arguments), "--json"], env=self.environment(),
                              stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=LONG, check=False)
        if done.returncode != 0:
            raise AssertionError(f"zelvek {arguments}: status {done.returncode}\n{done.stdout}{done.stderr}")
        return json.loads(done.stdout)

    def query(self, function, **parameters):
        """The service's answer, XML, as plug-in and command line get it; without their process, for what is asked often."""
        with contextlib.closing(http.client.HTTPConnection("localhost", timeout=LONG)) as connection:
            connection.sock = socket.socket(socket.AF_UNIX)
            connection.sock.connect(self.path("run/zelvek.sock"))
            connection.request("POST", "/", urllib.parse.urlencode({"func": function, **parameters}),
                               {"Content-Type": "application/x-www-form-urlencoded"})
            answer = connection.getresponse().read().decode()
        if "<error" in answer:
            raise AssertionError(f"{function} {parameters}: {answer}")
        return answer

    def add_domain(self, name, user="anna"):
        self.ask("domain", "add", name, "--user", user)

    def add_job(self, name, *options, user="anna"):
        return self.ask("job", "add", name, "--user", user, *options)["id"]

    def take_account(self, key):
        """An account that the authority knows is the default one from now on, without a run's registering and without the
        seconds that its own key takes. Returns its URL."""
        kid = self.authority.register(key) if self.authority else self.pebble.register(key, DIRECTORY_HOST)
        with contextlib.closing(sqlite3.connect(self.database, timeout=LONG)) as database, database:
            row = database.execute("insert into account (kid, acmekey, modulus) values (?, ?, ?)", (kid, key.pem(), key.header()))
            database.execute("insert or replace into setting (name, value) values ('default_account', ?)", (str(row.lastrowid),))
        return kid

    def run_job(self, job):
        """Returns the status; the output lies among the logs."""
        return self.start_run(job).process.wait(4 * LONG)

    def start_run(self, job):
        return self.start_zelvek("job", "run", job, *self._plugin_options())

    def job(self, job):
        return self.ask("job", "show", job)

    def events(self, job):
        return [(entry["state"], entry["event"]) for entry in self.job(job)["events"]]

    def event_detail(self, job, event):
        """The detail of the latest event of this name."""
        return [entry["detail"] for entry in self.job(job)["events"] if entry["event"] == event][-1]

    def problems(self, state="all"):
        return [(problem["name"], problem["owner"]) for problem in self.ask("problem", "list", "--state", state)]

    # Looking around.

    def installed(self, certname, user="anna", file="fullchain.pem"):
        return os.path.join(self.certificates, user, certname, file)

    def answer_files(self):
        return sorted(os.listdir(self.answers))

    def plugin(self):
        """The process of the run that is under way."""
        def only():
            return running(self.binary(self.plugin_name), sandbox.descendants(os.getpid()))

        return wait_until(only, "the plug-in runs")[0]

    def age_job(self, job, hours):
        """Has the job begun earlier. Only the service's own clock could do it otherwise."""
        began = datetime.now(timezone.utc) - timedelta(hours=hours)
        with contextlib.closing(sqlite3.connect(self.database, timeout=LONG)) as database, database:
            database.execute("update job set time_started = ? where id = ?", (began.strftime("%Y-%m-%d %H:%M:%S"), job))

    def recorded_publications(self, name):
        """What the service remembers to have outside under this name: answer files, values of TXT records."""
        with contextlib.closing(sqlite3.connect(f"file:{self.database}?mode=ro", uri=True)) as database:
            return [value for (value,) in database.execute("select value from publication where name = ?", (name,))]

    def count_events(self, job):
        with contextlib.closing(sqlite3.connect(f"file:{self.database}?mode=ro", uri=True)) as database:
            return database.execute("select count(*) from job_event where job = ?", (job,)).fetchone()[0]

    def wait_run_over(self, job):
        wait_until(lambda: not self.job(job)["processing"], f"the run of job {job} is over")

    def account_keys(self):
        """The private keys in the service's database, whatever it calls its tables."""
        with contextlib.closing(sqlite3.connect(f"file:{self.database}?mode=ro", uri=True)) as database:
            tables = [name for (name,) in database.execute("select name from sqlite_master where type = 'table'")]
            values = {str(value) for table in tables for row in database.execute(f'select * from "{table}"') for value in row}
        return {key for value in values for key in PRIVATE_KEY.findall(value)}

    def leaked_secrets(self):
        """Places in any log where a private key, or a line of one, is to be read."""
        keys = {key: public_half(key) for key in (self.account_keys() if os.path.exists(self.database) else ())}
        for folder, _, files in os.walk(self.certificates):
            if "privkey.pem" in files:
                for key in PRIVATE_KEY.findall(read(os.path.join(folder, "privkey.pem"))):
                    keys[key] = public_half_beside(folder) or public_half(key)
        lines = {"PRIVATE KEY"} | {line for key, public in keys.items() for line in secret_lines(key, public)}
        lines |= {self.dns.secret} if self.dns else set()
        logs = {name: read(os.path.join(folder, name)) for folder in {self.logs, self.plugin_logs} for name in os.listdir(folder)}
        return sorted({f"{name} (…{line[-8:]})" for name, text in logs.items() for line in lines if line in text})

    def describe(self):
        """The ends of the logs, for the report on a failed test."""
        parts = []
        for name in sorted(os.listdir(self.logs)):
            with open(os.path.join(self.logs, name), encoding="utf-8", errors="replace") as file:
                parts.append(f"--- {name}\n" + "".join(file.readlines()[-40:]))
        return "\n".join(parts)

    # The end.

    def restart_service(self):
        """A service that has ended comes back as it was started."""
        self._service_start()

    def stop_service(self, name=signal.SIGTERM):
        return self.service.stop(name)

    def close(self):
        """Ends everything; complains about what a sound run does not leave behind."""
        complaints = []
        if self.service and self.service.process.poll() is None and (status := self.stop_service()) != 0:
            complaints.append(f"the service ended with status {status}")
        for part in (self.front, self.authority):
            complaints += part.server.faults if part else []
        self._stopping.close()
        if leaks := self.leaked_secrets():
            complaints.append(f"secrets in the logs {leaks}")
        if left := sandbox.others():
            complaints.append(f"processes left: {left}")
        if complaints:
            raise AssertionError("\n".join(complaints))


def public_half(key):
    return openssl("pkey", "-pubout", "-outform", "DER", data=key.encode())


def public_half_beside(folder):
    """What a key's certificate shows of it, without a process for each; nothing where there is none."""
    path = os.path.join(folder, "cert.pem")
    return ssl.PEM_cert_to_DER_cert(read(path)) if os.path.exists(path) else b""


def secret_lines(key, public):
    """The lines of a private key's PEM that do not hold its public half alone: that may be read everywhere."""
    return [line for line in key.splitlines()[1:-1] if base64.b64decode(line) not in public]
