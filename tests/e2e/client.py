"""What an ACME client signs with: for requests that a sound one would not send, and for the account of tests that are not
about registration."""
import base64
import json

from ca import openssl, read


def encode(data):
    """Base64url without padding."""
    return base64.urlsafe_b64encode(data).rstrip(b"=").decode()


class Key:
    """An account's key, shorter and so sooner made than the plug-in's own."""

    def __init__(self, path, bits=2048):
        self._path = path
        openssl("genpkey", "-algorithm", "RSA", "-pkeyopt", f"rsa_keygen_bits:{bits}", "-out", path)
        modulus = openssl("rsa", "-in", path, "-noout", "-modulus").decode().strip().partition("=")[2]
        self.jwk = {"e": "AQAB", "kty": "RSA", "n": encode(bytes.fromhex(modulus))}

    def pem(self):
        return read(self._path)

    def header(self):
        """What the plug-in keeps beside the key."""
        return json.dumps({"alg": "RS256", "jwk": self.jwk}, sort_keys=True, separators=(",", ":"))

    def sign(self, header, payload):
        """The JWS of RFC 8555, section 6.2, with RS256."""
        protected, body = (encode(json.dumps(part).encode()) for part in ({"alg": "RS256"} | header, payload))
        signature = encode(openssl("dgst", "-sha256", "-sign", self._path, data=f"{protected}.{body}".encode()))
        return json.dumps({"protected": protected, "payload": body, "signature": signature})
