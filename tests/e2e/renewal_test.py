"""When certificates are renewed, with an authority that has a say in it."""
import base64
import contextlib
import sqlite3
import subprocess

from fixture import WorldTest, account_key
from process import LONG, wait_until
from tls_server import Answer
from world import INSTALLED

EC = ("--csr", "key_type=ec")


# Behaviours of: Issuing
class RenewalInformation(WorldTest):
    def setUp(self):
        super().setUp()
        self.world.start_authority()
        self.authority = self.world.authority
        self.authority.renewal_window = ("2031-01-01T00:00:00Z", "2031-01-03T00:00:00+01:00")
        self.world.start_service("--sweep-interval", "0.2", renewal_info="on")
        self.world.take_account(account_key())
        self.world.add_domain("shop.example")
        self.job = self.world.add_job("shop.example", *EC)

    def change_times(self, text):
        """Only the service's own clock could do it otherwise."""
        with contextlib.closing(sqlite3.connect(self.world.database, timeout=LONG)) as database, database:
            database.execute(f"update job set {text}")

    def install(self):
        self.assertEqual(self.world.run_job(self.job), INSTALLED)
        self.before = self.world.job(self.job)["renew"]
        self.change_times("expires = '2031-02-01 00:00:00'")

    def asked(self):
        return self.authority.requests("renewal-info")

    def ask_now(self):
        before = len(self.asked())
        self.change_times("ask_renewal = '2026-01-01 00:00:00'")
        wait_until(lambda: len(self.asked()) > before, "the authority is asked")

    # Behaviour: A certificate is renewed in the window that its authority suggests; it is asked by the certificate's own
    #   name, without a signature, and not again for half a day
    def test_certificate_is_renewed_in_the_window_that_the_authority_suggests(self):
        self.install()
        self.ask_now()
        wait_until(lambda: self.world.job(self.job)["renew"] != self.before, "the suggestion is taken")
        self.assertGreaterEqual(self.world.job(self.job)["renew"], "2031-01-01T00:00:00Z")
        self.assertLess(self.world.job(self.job)["renew"], "2031-01-02T23:00:00Z")
        asked = self.asked()
        self.assertEqual([exchange.method for exchange in asked], ["GET"])
        self.assertEqual(asked[0].path, "/renewal-info/" + self.renewal_name())

    # Behaviour: An authority that does not answer, or answers nonsense, keeps no certificate from being renewed
    def test_authority_that_answers_nonsense_changes_nothing(self):
        self.install()
        for answer in (Answer(500), Answer(200, {}, b"[]"), Answer(200, {}, b'{"suggestedWindow": {"start": "x", "end": 7}}')):
            self.authority.script("renewal-info", answer)
            self.ask_now()
            wait_until(lambda: "asking when to renew" in self.world.service.log(), "the service says so")
        self.assertEqual(self.world.job(self.job)["renew"], self.before)
        self.assertTrue(self.world.job(self.job)["verified"])

    def renewal_name(self):
        """RFC 9773 section 4.1, as another program reads the certificate."""
        shown = subprocess.run(["openssl", "x509", "-noout", "-serial", "-ext", "authorityKeyIdentifier", "-in",
                                self.world.installed("shop.example", file="cert.pem")], capture_output=True, text=True, check=True)
        lines = shown.stdout.split("\n")
        serial = next(line for line in lines if line.startswith("serial=")).removeprefix("serial=")
        key = next(line for line in lines if ":" in line and "X509v3" not in line and "serial" not in line)
        number = bytes.fromhex(serial)
        number = b"\0" + number if number[0] & 0x80 else number  # it is no negative one
        issuer = bytes.fromhex(key.replace("keyid:", "").replace(":", "").strip())
        return ".".join(base64.urlsafe_b64encode(part).rstrip(b"=").decode() for part in (issuer, number))
