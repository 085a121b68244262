"""A scripted certificate authority: small, synchronous and correct, until a test replaces one of its answers.

Resources go by name: directory, nonce, new-account, account, new-order, order, authorization, challenge, finalize,
certificate. Every request is checked as RFC 8555 asks (form, signature, URL, single-use nonce, key or account) and kept.
"""
import base64
import dataclasses
import hashlib
import http.client
import json
import re
import secrets
import threading

from client import encode
from tls_server import Answer, TlsServer, json_answer

SHA256_PREFIX = bytes.fromhex("3031300d060960864801650304020105000420")  # DigestInfo of RFC 8017, section 9.2


class Problem(Exception):
    def __init__(self, kind, detail, status=400):
        super().__init__(detail)
        self.answer = problem(kind, detail, status)


def problem(kind, detail, status=400):
    answer = json_answer({"type": f"urn:ietf:params:acme:error:{kind}", "detail": detail, "status": status}, status)
    answer.headers["Content-Type"] = "application/problem+json"
    return answer


@dataclasses.dataclass
class Exchange:
    """One request as it was understood, and what was answered."""
    resource: str
    method: str
    path: str
    headers: dict
    protected: dict | None = None
    payload: object = None
    raw_payload: bytes | None = None  # b"" for a POST-as-GET
    answer: Answer | None = None


class Authority:
    def __init__(self, address, host, certificates, certified_name):
        self._host, self._certificates = host, certificates
        self._base = f"https://{host}"
        self._lock = threading.RLock()
        self._scripts = {}   # resource name: {occurrence or None: answer}
        self._nonces, self._accounts, self._orders = set(), {}, {}
        self.exchanges = []
        self.renewal_window = None  # when certificates are to be renewed, (RFC 3339, RFC 3339); None: nothing is suggested
        self.validation_host = None  # where answer files are fetched from; None: every challenge is valid
        self.server = TlsServer(address, 443, *certificates.server(certified_name), self._serve)

    def script(self, resource, answer, occurrence=None):
        """Replaces what a resource answers: always, or at its n-th request from now on (counted from 1).

        An `Answer` is given without the request being looked at; a function is called with the proper answer, after
        the request has been served, and gives what is sent.
        """
        with self._lock:
            at = None if occurrence is None else occurrence + len(self.requests(resource))
            self._scripts.setdefault(resource, {})[at] = answer

    def unscript(self):
        """Everything is answered properly again."""
        with self._lock:
            self._scripts.clear()

    def hold(self, resource):
        """A gate before the next request to a resource."""
        return self.server.hold(lambda request: self._resource(request.path)[0] == resource)

    def requests(self, resource=None):
        with self._lock:
            return [exchange for exchange in self.exchanges if resource in (None, exchange.resource)]

    def resources(self):
        """The resources asked for, in order, without the nonces."""
        return [exchange.resource for exchange in self.requests() if exchange.resource != "nonce"]

    def register(self, key):
        """The URL of an account that nobody has to ask for."""
        with self._lock:
            return self._add_account(key.jwk)

    def set_account_status(self, kid, status):
        with self._lock:
            self._accounts[kid]["status"] = status

    def last_order(self):
        """The order that was placed last, for a look and for changes: "names", "status" of each, "certificate"."""
        return self._orders[str(len(self._orders))]

    def offer_last_order_again(self, status):
        """The next order that somebody places is this one once more."""
        number = str(len(self._orders))
        self.script("new-order", lambda _: self._order_answer(number, status), occurrence=1)

    def stop(self):
        self.server.stop()

    # The exchange.

    def _serve(self, request):
        with self._lock:
            resource, names = self._resource(request.path)
            exchange = Exchange(resource, request.method, request.path, request.headers)
            self.exchanges.append(exchange)
            scripts = self._scripts.get(resource, {})
            answer = scripts.get(len(self.requests(resource)), scripts.get(None, lambda proper: proper))
            exchange.answer = answer(self._proper(exchange, request, names)) if callable(answer) else answer
            return exchange.answer

    @staticmethod
    def _resource(path):
        first, *names = path.strip("/").split("/")
        return first, names

    def _proper(self, exchange, request, names):
        try:
            if exchange.resource == "directory":
                return self._directory()
            if exchange.resource == "nonce":
                return self._nonce()
            if exchange.resource == "renewal-info" and self.renewal_window:
                start, end = self.renewal_window
                return json_answer({"suggestedWindow": {"start": start, "end": end}}, 200, **{"Retry-After": "86400"})
            answers = {"new-account": self._new_account, "account": self._account, "new-order": self._new_order,
                       "order": self._order, "authorization": self._authorization, "challenge": self._challenge,
                       "finalize": self._finalize, "certificate": self._certificate}
            if exchange.resource not in answers:
                raise Problem("malformed", "no such resource", 404)
            caller = self._check_signed(exchange, request)
            answer = answers[exchange.resource](exchange, caller, *names)
        except Problem as error:
            answer = error.answer
        answer.headers["Replay-Nonce"] = self._fresh_nonce()
        return answer

    def _fresh_nonce(self):
        nonce = secrets.token_urlsafe(16)
        self._nonces.add(nonce)
        return nonce

    def _check_signed(self, exchange, request):
        """The JWS of RFC 8555, section 6.2. Returns the caller: the account's URL, or the key for a new account."""
        if request.method != "POST" or request.headers.get("content-type") != "application/jose+json":
            raise Problem("malformed", "not a POST of application/jose+json", 405)
        if not request.headers.get("user-agent"):
            raise Problem("malformed", "no user agent")
        jws = json.loads(request.body)
        protected = json.loads(decode(jws["protected"]))
        exchange.protected, exchange.raw_payload = protected, decode(jws["payload"])
        exchange.payload = json.loads(exchange.raw_payload) if exchange.raw_payload else None
        if protected.get("url") != self._base + request.path:
            raise Problem("unauthorized", "the signed URL is another one", 401)
        if ("jwk" in protected) == ("kid" in protected) or ("jwk" in protected) != (exchange.resource == "new-account"):
            raise Problem("malformed", "a key for a new account, an account's URL for everything else")
        if protected.get("nonce") not in self._nonces:
            raise Problem("badNonce", "this nonce was not given, or has been used")
        self._nonces.remove(protected["nonce"])
        key = protected.get("jwk") or self._accounts.get(protected.get("kid"), {}).get("key")
        if key is None:
            raise Problem("accountDoesNotExist", "no such account")
        signed = f"{jws['protected']}.{jws['payload']}".encode()
        if protected.get("alg") != "RS256" or not signature_holds(key, signed, decode(jws["signature"])):
            raise Problem("malformed", "the signature does not hold")
        account = self._accounts.get(protected.get("kid"))
        if account and account["status"] != "valid" and exchange.resource != "account":
            raise Problem("unauthorized", f"the account is {account['status']}", 403)
        return protected.get("kid") or key

    # The resources.

    def _directory(self):
        names = {"newNonce": "nonce", "newAccount": "new-account", "newOrder": "new-order"}
        names |= {"renewalInfo": "renewal-info"} if self.renewal_window else {}
        return json_answer({name: f"{self._base}/{path}" for name, path in names.items()})

    def _nonce(self):
        return Answer(204, {"Replay-Nonce": self._fresh_nonce(), "Cache-Control": "no-store"})

    def _new_account(self, exchange, key):
        if not exchange.payload.get("termsOfServiceAgreed"):
            raise Problem("userActionRequired", "the terms were not agreed to", 403)
        for kid, account in self._accounts.items():
            if account["key"] == key:
                return json_answer({"status": account["status"]}, 200, Location=kid)
        return json_answer({"status": "valid"}, 201, Location=self._add_account(key))

    def _add_account(self, jwk):
        kid = f"{self._base}/account/{len(self._accounts) + 1}"
        self._accounts[kid] = {"key": jwk, "status": "valid"}
        return kid

    def _account(self, exchange, kid, *_):
        if self._base + exchange.path != kid:
            raise Problem("unauthorized", "somebody else's account", 403)
        return json_answer({"status": self._accounts[kid]["status"]})

    def _new_order(self, exchange, kid):
        names = [identifier["value"] for identifier in exchange.payload["identifiers"]]
        if not names or not all(re.fullmatch(r"[a-z0-9.*-]+", name) for name in names):
            raise Problem("rejectedIdentifier", f"names that cannot be certified: {names}")
        number = str(len(self._orders) + 1)
        challenges = [{kind: secrets.token_urlsafe(24) for kind in ("http-01", "dns-01")} for _ in names]
        self._orders[number] = {"account": kid, "names": names, "tokens": challenges, "status": ["pending"] * len(names),
                                "certificate": None}
        return self._order_answer(number, 201)

    def _order_answer(self, number, status):
        return json_answer(self._order_body(number), status, Location=f"{self._base}/order/{number}")

    def _order_body(self, number):
        order = self._orders[number]
        body = {"status": self._order_status(order), "finalize": f"{self._base}/finalize/{number}",
                "identifiers": [{"type": "dns", "value": name} for name in order["names"]],
                "authorizations": [f"{self._base}/authorization/{number}/{i}" for i in range(len(order["names"]))]}
        return body | ({"certificate": f"{self._base}/certificate/{number}"} if order["certificate"] else {})

    @staticmethod
    def _order_status(order):
        if order["certificate"]:
            return "valid"
        if "invalid" in order["status"]:
            return "invalid"
        return "ready" if set(order["status"]) == {"valid"} else "pending"

    def _own_order(self, kid, number):
        if self._orders.get(number, {}).get("account") != kid:
            raise Problem("malformed", "no such order", 404)
        return self._orders[number]

    def _order(self, _, kid, number):
        self._own_order(kid, number)
        return json_answer(self._order_body(number))

    def _authorization(self, _, kid, number, index):
        order = self._own_order(kid, number)
        return json_answer({"status": order["status"][int(index)],
                            "identifier": {"type": "dns", "value": order["names"][int(index)]},
                            "challenges": [self._challenge_body(number, index, kind) for kind in ("http-01", "dns-01")]})

    def _challenge_body(self, number, index, kind):
        order = self._orders[number]
        body = {"type": kind, "url": f"{self._base}/challenge/{number}/{index}/{kind}", "status": order["status"][int(index)],
                "token": order["tokens"][int(index)][kind]}
        if body["status"] == "invalid":
            body["error"] = {"type": "urn:ietf:params:acme:error:unauthorized", "status": 403,
                             "detail": "the answer file does not hold the key authorization"}
        return body

    def _challenge(self, exchange, kid, number, index, kind):
        order = self._own_order(kid, number)
        if exchange.raw_payload != b"" and order["status"][int(index)] == "pending":
            holds = self._answered(order["names"][int(index)], order["tokens"][int(index)][kind], self._accounts[kid]["key"])
            order["status"][int(index)] = "valid" if holds else "invalid"
        return json_answer(self._challenge_body(number, index, kind))

    def _answered(self, name, token, key):
        if self.validation_host is None:
            return True
        connection = http.client.HTTPConnection(self.validation_host, 80, timeout=10)
        try:
            connection.request("GET", f"/.well-known/acme-challenge/{token}", headers={"Host": name})
            return connection.getresponse().read().decode() == f"{token}.{thumbprint(key)}"
        except OSError:
            return False
        finally:
            connection.close()

    def _finalize(self, exchange, kid, number):
        order = self._own_order(kid, number)
        if exchange.raw_payload == b"":  # who waits for the certificate asks here again
            return json_answer(self._order_body(number))
        if self._order_status(order) != "ready":
            raise Problem("orderNotReady", f"the order is {self._order_status(order)}", 403)
        names, certificate = self._certificates.issue(decode(exchange.payload["csr"]))
        if set(names) != set(order["names"]):
            raise Problem("badCSR", "the request is for other names than the order")
        order["certificate"] = certificate
        return json_answer(self._order_body(number))

    def _certificate(self, _, kid, number):
        leaf, chain = self._own_order(kid, number)["certificate"] or (None, None)
        if leaf is None:
            raise Problem("malformed", "no certificate yet", 404)
        return Answer(200, {"Content-Type": "application/pem-certificate-chain"}, f"{leaf}\n{chain}".encode())


def decode(text):
    """Base64url without padding."""
    if not re.fullmatch(r"[A-Za-z0-9_-]*", text):
        raise Problem("malformed", "not base64url without padding")
    return base64.urlsafe_b64decode(text + "=" * (-len(text) % 4))


def thumbprint(key):
    """RFC 7638."""
    return encode(hashlib.sha256(json.dumps(key, sort_keys=True, separators=(",", ":")).encode()).digest())


def signature_holds(key, data, signature):
    """RSASSA-PKCS1-v1_5 with SHA-256, RFC 8017 section 8.2.2."""
    modulus, exponent = (int.from_bytes(decode(key[name]), "big") for name in ("n", "e"))
    size = (modulus.bit_length() + 7) // 8
    digest = SHA256_PREFIX + hashlib.sha256(data).digest()
    expected = b"\x00\x01" + b"\xff" * (size - len(digest) - 3) + b"\x00" + digest
    return len(signature) == size and pow(int.from_bytes(signature, "big"), exponent, modulus).to_bytes(size, "big") == expected
