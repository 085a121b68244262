"""Where runs are measured: the parts of the end-to-end tests, with an authority that is watched and the system's trust store."""
import dataclasses
import json
import os
import shutil
import subprocess
import time

import ca
from pebble import Front
from world import AUTHORITY_ADDRESS, DIRECTORY_HOST, World

TRUST_FOLDER, TRUST_FILE = "/etc/ssl/certs", "/etc/ssl/certs/ca-certificates.crt"
UNFINISHED = ("pending", "processing")


@dataclasses.dataclass
class Exchange:
    path: str
    begin: float
    end: float
    finished: bool  # the answer does not ask the client to come again


class WatchedFront(Front):
    """Keeps when each request came and was answered."""

    def __init__(self, *arguments, **options):
        self.exchanges = []
        super().__init__(*arguments, **options)

    def _answer(self, request):
        begin = time.monotonic()
        answer = super()._answer(request)
        self.exchanges.append(Exchange(request.path, begin, time.monotonic(), not is_unfinished(answer.body)))
        return answer

    def forget(self):
        self.exchanges.clear()

    def seconds(self):
        """What the requests took here."""
        return sum(exchange.end - exchange.begin for exchange in self.exchanges)

    def seconds_asked_for(self):
        """Time between an answer that says "not yet" and the request that asks again for what was asked for before."""
        waited, seen, since = 0.0, set(), None
        for number, exchange in enumerate(self.exchanges):
            if since is not None and self._object_from(number) in seen:
                waited += exchange.begin - since
            seen.add(exchange.path)
            since = None if exchange.finished else exchange.end
        return waited

    def _object_from(self, number):
        """What the next request is about that fetches more than a nonce."""
        paths = (exchange.path for exchange in self.exchanges[number:])
        return next((path for path in paths if not path.startswith("/nonce")), None)


def is_unfinished(body):
    try:
        answer = json.loads(body)
    except ValueError:
        return False
    return isinstance(answer, dict) and answer.get("status") in UNFINISHED


class Stage(World):
    """Everything that one certificate needs, whoever asks for it. Connections to the authority stay open for clients that
    want them, where nothing else is said."""

    directory = f"https://{DIRECTORY_HOST}/directory"

    def __init__(self, folder, binaries, keeps_connections=True):
        super().__init__(folder, binaries)
        self._keeps_connections = keeps_connections
        self.webroot = self.path("webroot")
        os.makedirs(self.path("webroot/.well-known"))
        os.symlink(self.answers, self.path("webroot/.well-known/acme-challenge"))
        trust(self.path("trust"), self.ca.root)
        self.start_web({"first.example": ["first.example"]})  # it shows no certificate without a site
        self.start_pebble()
        # Of an installation only the files are wanted: a reload is the web server's affair.
        self.start_service(reload_command="true")

    def start_pebble(self, **kind):
        self._start_pebble(kind)
        self.front = WatchedFront(AUTHORITY_ADDRESS, DIRECTORY_HOST, self.ca, self.pebble,
                                  keeps_connections=self._keeps_connections)
        self._stopping.callback(self.front.stop)

    def environment(self):
        """As on a server: the system's trust store, and what the service has its runs log."""
        named = super().environment() | {"VEK_LOG_LEVEL": "8"}
        return {name: value for name, value in named.items()
                if name not in ("VEK_CA_FILE", "https_proxy", "http_proxy")}

    def service_cpu(self):
        """Seconds that the service has used so far."""
        return time.clock_gettime((~self.service.pid << 3) | 2)  # the clock that clock_getcpuclockid(3) names


def trust(folder, root):
    """The system's trust store with one more root in it, as folder and as file, in this mount namespace alone."""
    shutil.copytree(TRUST_FOLDER, folder, symlinks=True)
    shutil.copy(root, os.path.join(folder, "bench.pem"))
    name = ca.openssl("x509", "-in", root, "-noout", "-hash").decode().strip()
    os.symlink("bench.pem", os.path.join(folder, f"{name}.0"))
    with open(os.path.join(folder, os.path.basename(TRUST_FILE)), "a", encoding="ascii") as file:
        file.write(ca.read(root))
    subprocess.run(["mount", "--bind", folder, TRUST_FOLDER], check=True)
