"""A panel and an authority that give a run the same answers each time, so that it takes the same way each time."""
import http.server
import json
import socketserver
import threading
import urllib.parse
from xml.sax.saxutils import escape

from ca import openssl, read
from client import encode
from tls_server import Answer, TlsServer, json_answer
from world import AUTHORITY_ADDRESS, DIRECTORY_HOST

NAME = "shop.example"
BASE = f"https://{DIRECTORY_HOST}"
OBJECTS = {name: f"{BASE}/{name}" for name in ("new-account", "new-order", "order", "authorization", "challenge", "finalize",
                                               "certificate")}
TOKEN = "evaGxfADs6pSRb2LAv9IZf17Dt3juxGJ-PCt92wr-oA"  # RFC 8555's own
PEM = "-----BEGIN CERTIFICATE-----\n" + 20 * ("M" * 64 + "\n") + "-----END CERTIFICATE-----\n"


class ScriptedAuthority:
    def __init__(self, certificates):
        self._answers = answers_of_the_authority()
        self._server = TlsServer(AUTHORITY_ADDRESS, 443, *certificates.server(DIRECTORY_HOST), self._answer)

    def stop(self):
        self._server.stop()

    def _answer(self, request):
        return self._answers[request.path]


def answers_of_the_authority():
    challenge = {"type": "http-01", "url": OBJECTS["challenge"], "token": TOKEN}
    authorization = {"identifier": {"type": "dns", "value": NAME}, "status": "pending",
                     "challenges": [challenge | {"status": "pending"}]}
    order = {"status": "pending", "identifiers": [{"type": "dns", "value": NAME}],
             "authorizations": [OBJECTS["authorization"]], "finalize": OBJECTS["finalize"]}
    directory = {"newNonce": f"{BASE}/nonce", "newAccount": OBJECTS["new-account"], "newOrder": OBJECTS["new-order"]}
    return {
        "/directory": json_answer(directory),
        "/nonce": Answer(204, {"Replay-Nonce": TOKEN}),
        "/new-order": json_answer(order, 201, Location=OBJECTS["order"]),
        "/authorization": json_answer(authorization),
        "/challenge": json_answer(challenge | {"status": "valid"}),
        "/finalize": json_answer(order | {"status": "valid", "certificate": OBJECTS["certificate"]}),
        "/certificate": Answer(200, {"Content-Type": "application/pem-certificate-chain"}, (PEM + "\n" + PEM).encode()),
    }


class ScriptedPanel:
    """On the service's socket. The job uses a stored account, whose key is this file's."""

    def __init__(self, socket, key_file):
        self.record = job_record(key_file)
        request = openssl("req", "-new", "-key", key_file, "-subj", f"/CN={NAME}").decode()
        self._answers = {
            "ambrin.data.edit": document(self.record),
            "sslcert.csr.edit": document({"csr_req": request, "csr_pk": read(key_file)}),
        }
        self.written_back = None
        self._server = _PanelServer(socket, self._answer)
        threading.Thread(target=self._server.serve_forever, kwargs={"poll_interval": 0.05}, daemon=True).start()

    def stop(self):
        self._server.shutdown()
        self._server.server_close()

    def _answer(self, form):
        query = dict(urllib.parse.parse_qsl(form, keep_blank_values=True))
        if query["func"] == "ambrin.data.edit" and "sok" in query:
            self.written_back = query
            return document({})
        return self._answers.get(query["func"], document({}))


class _PanelServer(socketserver.ThreadingUnixStreamServer):
    daemon_threads = True

    def __init__(self, socket, answer):
        self.answer = answer
        super().__init__(socket, _PanelQuery)


class _PanelQuery(http.server.BaseHTTPRequestHandler):
    wbufsize = -1  # header and body go out as one

    def address_string(self):
        return ""

    def log_message(self, *_):
        pass

    def do_POST(self):
        body = self.server.answer(self.rfile.read(int(self.headers["Content-Length"])).decode())
        self.send_response(200)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)


def document(values):
    return f"<doc>{''.join(f'<{name}>{escape(value)}</{name}>' for name, value in values.items())}</doc>".encode()


def job_record(key_file):
    modulus = openssl("rsa", "-in", key_file, "-noout", "-modulus").decode().strip().partition("=")[2]
    header = {"alg": "RS256", "jwk": {"e": "AQAB", "kty": "RSA", "n": encode(bytes.fromhex(modulus))}}
    return {"certname": NAME, "kid": f"{BASE}/account/1", "aliases": NAME, "check_type": "http", "domain": NAME,
            "modulus": json.dumps(header), "acmekey": read(key_file), "attempt_count": "0", "verified": "off", "failed": "off",
            "csr_internal_request": "key_type=ec", "time_started": "9999-01-01 00:00:00", "user_name": "anna",
            "account_check_count": "0", "max_account_check_attempts": "3", "skip_account_check": "on"}
