"""The certificate authority under test, Debian's pebble, and the front that makes it answer like the production one."""
import contextlib
import http.client
import json
import os
import re
import signal
import ssl

from process import Background, accepts, wait_until
from tls_server import Answer, TlsServer

ADDRESS, PORT, MANAGEMENT_PORT = "127.0.0.1", 14000, 15000
NAME = "localhost"  # in the directory's URL of the plug-in for pebble itself

# What differs from the production authority without need: random waits, reused authorizations.
QUIET = {"PEBBLE_VA_NOSLEEP": "1", "PEBBLE_AUTHZREUSE": "0"}
# What RFC 8555 leaves to an authority, done: validations begin late, authorizations serve again, the chain is a long one and
# there are others to choose from.
FREE = {"PEBBLE_VA_NOSLEEP": "0", "PEBBLE_VA_SLEEPTIME": "3", "PEBBLE_AUTHZREUSE": "100", "PEBBLE_CHAIN_LENGTH": "2",
        "PEBBLE_ALTERNATE_ROOTS": "1"}
EMPTY_UPDATE = b"Use POST-as-GET to retrieve account data instead of doing an empty update"
ISSUED = re.compile(r"Issued certificate serial (\w+) for order (\S+)")


class Pebble:
    """Validates over the network: http-01 on port 80, dns-01 at `dns_server` (or the system's resolver).

    `lifetime`: of its certificates, in seconds; pebble's own five years where nothing is said. `refused_nonces`: how many of a
    hundred good nonces are refused all the same. `bare`: nothing stands in front of it, and it takes every freedom that it has.
    """

    def __init__(self, folder, authority, log, dns_server=None, lifetime=None, refused_nonces=0, bare=False):
        os.makedirs(folder)
        certificate, key = authority.server(ADDRESS, NAME)
        config = os.path.join(folder, "pebble.json")
        with open(config, "w", encoding="utf-8") as file:
            json.dump({"pebble": {
                "listenAddress": f"{ADDRESS}:{PORT}", "managementListenAddress": f"{ADDRESS}:{MANAGEMENT_PORT}",
                "certificate": certificate, "privateKey": key, "httpPort": 80, "tlsPort": 443,
                "ocspResponderURL": "", "externalAccountBindingRequired": False,
                **({"certificateValidityPeriod": lifetime} if lifetime else {})}}, file)
        environment = os.environ | {"PEBBLE_WFE_NONCEREJECT": str(refused_nonces)} | (FREE if bare else QUIET)
        command = ["pebble", "-config", config] + (["-dnsserver", dns_server] if dns_server else []) + ["-strict"] * bare
        self._context = ssl.create_default_context(cafile=authority.root)
        self._process = Background("pebble", command, log, environment)
        self._process.wait_ready(lambda: accepts(ADDRESS, PORT) and accepts(ADDRESS, MANAGEMENT_PORT))

    def ask(self, method, path, body=None, headers=None, port=PORT):
        connection = http.client.HTTPSConnection(ADDRESS, port, context=self._context)
        try:
            connection.request(method, path, body, headers or {})
            answer = connection.getresponse()
            return answer.status, dict(answer.getheaders()), answer.read()
        finally:
            connection.close()

    @property
    def pid(self):
        return self._process.pid

    def log(self):
        return self._process.log()

    @contextlib.contextmanager
    def paused(self):
        """Nothing is answered meanwhile: whoever asks waits."""
        os.kill(self._process.pid, signal.SIGSTOP)
        try:
            yield
        finally:
            os.kill(self._process.pid, signal.SIGCONT)

    def register(self, key, host):
        """The URL, at that host, of an account that nobody has to ask for."""
        nonce = self.ask("HEAD", "/nonce-plz")[1]["Replay-Nonce"]
        path = "/sign-me-up"
        request = key.sign({"nonce": nonce, "url": f"https://{host}{path}", "jwk": key.jwk}, {"termsOfServiceAgreed": True})
        headers = {"Host": host, "Content-Type": "application/jose+json"}
        status, headers, body = self.ask("POST", path, request.encode(), headers)
        if status != 201:
            raise RuntimeError(f"pebble registers no account: {status} {body}")
        return headers["Location"]

    def root(self):
        """The root certificate, PEM, under which it issues; a new one at every start."""
        return self.ask("GET", "/roots/0", port=MANAGEMENT_PORT)[2].decode()

    def wait_issued(self, order):
        """The serial of the order's certificate, once it is issued."""
        def serial():
            return next((serial for serial, name in ISSUED.findall(self._process.log()) if name == order), None)

        return wait_until(serial, f"pebble issues the certificate of order {order}")

    def issued(self):
        """The orders whose certificates it has issued."""
        return [order for _, order in ISSUED.findall(self._process.log())]

    def stop(self):
        self._process.stop()


class Front:
    """What stands at the production host's address: everything passes through to pebble, and finalization is synchronous.

    Pebble answers a finalization with status "processing"; the production authority's answer comes when the certificate
    is there. So that one answer is held until pebble's log says so, and then tells the certificate's URL. With
    `finishes_later` it passes through like every other. Pebble refuses a signed question for an account whose payload is
    "null", once it knows the account and has found all else in order; with `checks_accounts` it is answered as there.
    """

    finishes_later = False
    checks_accounts = False

    def __init__(self, address, host, authority, pebble, keeps_connections=False):
        self._host, self._pebble = host, pebble
        self.server = TlsServer(address, 443, *authority.server(host), self._answer, keeps_connections)

    def stop(self):
        self.server.stop()

    def _answer(self, request):
        path = "/dir" if request.path == "/directory" else request.path
        # With the Host header kept: pebble makes its URLs from it, and checks the signed URL against it.
        status, headers, body = self._pebble.ask(request.method, path, request.body or None, request.headers)
        folder, _, order = path.rpartition("/")
        if folder == "/finalize-order" and status == 200 and not self.finishes_later:
            body = self._finalized(order, json.loads(body))
        if self.checks_accounts and status == 400 and EMPTY_UPDATE in body:
            status, body = 200, b'{"status": "valid"}'
        for name in ("Transfer-Encoding", "Content-Length", "Connection"):
            headers.pop(name, None)
        return Answer(status, headers, body)

    def _finalized(self, order, answer):
        certificate = f"https://{self._host}/certZ/{self._pebble.wait_issued(order)}"
        return json.dumps(answer | {"status": "valid", "certificate": certificate}).encode()
