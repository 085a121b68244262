"""A service under measurement: its process, its database, and what the kernel says of it."""
import os
import signal
import socket
import subprocess
import time
from pathlib import Path
from urllib.parse import urlencode

import kernel

NEVER = 86400  # seconds: the longest interval that the service takes
LONG = 600  # seconds that a service may take to end
# Runs that fail all the time would reach the authority's limits, and the network is nobody's business here.
FIXED = {"runs_at_once": 4, "orders_limit": 1000000, "failures_limit": 1000, "renewal_info": "off",
         "public_resolvers": "off"}
# Plug-ins that do nothing: one keeps its slot, one ends at once.
STUBS = {"sleeper": "#!/bin/sh\nexec sleep 1000000\n", "ender": "#!/bin/sh\n"}


class Service:
    """One binary with one database in a folder of its own."""

    def __init__(self, binary, folder, panel):
        self.binary, self.folder, self.panel = Path(binary), Path(folder), panel
        self.database = self.folder / "zelvek.db"
        self.folder.mkdir(parents=True)
        for name, text in STUBS.items():
            (self.folder / name).write_text(text, encoding="utf-8")
            (self.folder / name).chmod(0o755)
        self._process = None
        self._environment = dict(os.environ, VEK_RUN_DIR=str(self.folder / "run"), VEK_LOG_DIR=str(self.folder))

    def make_database(self):
        """The service makes it, so that its tables are the service's own; then it is filled, and completed by the service."""
        self.start_quiet()
        self.stop()
        self.panel.fill(self.database)
        self.start_quiet()
        self.stop()

    def start(self, stub="sleeper", **options):
        """Returns the seconds until the service is ready. Options as `serve` has them, with "_" for "-"."""
        command = [self.binary, "serve", "--database", self.database, "--plugin", self.folder / stub,
                   "--answers-dir", self.folder / "answers", "--certs-dir", self.folder / "certs"]
        for name, value in (FIXED | options).items():
            command += ["--" + name.replace("_", "-"), str(value)]
        with open(self.folder / "log", "ab") as log:
            begin = time.perf_counter()
            self._process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=log,
                                             env=self._environment)
            line = self._process.stdout.readline()
            seconds = time.perf_counter() - begin
        if line != b"zelvek: ready\n":
            self._fail("does not start")
        return seconds

    def start_quiet(self):
        """Nothing but queries happens in it."""
        self.start(scheduler="off", sweep_interval=NEVER)

    def stop(self):
        if self._process is None:
            return
        process, self._process = self._process, None
        process.send_signal(signal.SIGTERM)
        try:
            process.wait(LONG)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
        process.stdout.close()
        if process.returncode != 0:
            self._fail(f"ended with status {process.returncode}")

    def _fail(self, how):
        last = (self.folder / "log").read_text(encoding="utf-8", errors="replace")[-2000:]
        raise RuntimeError(f"{self.binary} {how}; its log ends with:\n{last}")

    def connect(self, text):
        """Sends a query; the answer is to be read from the socket, up to its end."""
        head = (f"POST / HTTP/1.1\r\nHost: zelvek\r\nX-Vek-Module: bench\r\nContent-Length: {len(text)}\r\n"
                "Content-Type: application/x-www-form-urlencoded\r\nConnection: close\r\n\r\n")
        connection = socket.socket(socket.AF_UNIX)
        connection.connect(str(self.folder / "run" / "zelvek.sock"))
        connection.sendall((head + text).encode())
        return connection

    def ask(self, text):
        """The XML of the answer. Errors: RuntimeError for anything but a result."""
        parts = []
        with self.connect(text) as connection:
            while part := connection.recv(1 << 20):
                parts.append(part)
        head, _, body = b"".join(parts).partition(b"\r\n\r\n")
        if not head.startswith(b"HTTP/1.1 200") or b"<error" in body:
            raise RuntimeError(f"{text[:80]}: {head[:40]!r} {body[:400]!r}")
        return body

    def runs_started(self):
        """Since the first start."""
        return (self.folder / "log").read_bytes().count(b": run started,")

    def journal_size(self):
        """Bytes of the database's write-ahead log, which grows up to its limit and is then used again."""
        journal = Path(f"{self.database}-wal")
        return journal.stat().st_size if journal.exists() else 0

    def command(self, *arguments):
        """A command of the command line; its output is to be read."""
        return subprocess.Popen([self.binary, *arguments], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                env=self._environment)

    @property
    def pid(self):
        return self._process.pid

    def cpu(self):
        return kernel.cpu(self.pid)

    def memory(self):
        return kernel.memory(self.pid)


def query(function, **parameters):
    return urlencode({"func": function, **parameters})
