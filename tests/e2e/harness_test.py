"""The harness itself: what the other tests rely on to notice a fault does notice it."""
import contextlib
import http.client
import json
import os
import ssl
import subprocess
import sys
import textwrap

import sandbox
from authority import problem
from ca import openssl
from client import encode
from fixture import WorldTest, account_key
from process import wait_until
from tls_server import Answer
from world import AUTHORITY_ADDRESS, DIRECTORY_HOST, World

HOST = f"https://{DIRECTORY_HOST}"


class Client:
    """Just enough of an ACME client to send what a sound one would not."""

    def __init__(self, world):
        self._context = ssl.create_default_context(cafile=world.ca.root)
        self.key, self.kid = account_key(), None

    def exchange(self, method, path, body=None, headers=None):
        # The name resolves to the loopback device: that is part of what is tried here.
        with contextlib.closing(http.client.HTTPSConnection(DIRECTORY_HOST, context=self._context, timeout=30)) as connection:
            connection.request(method, path, body, {"User-Agent": "harness-test", **(headers or {})})
            answer = connection.getresponse()
            return answer.status, dict(answer.getheaders()), answer.read()

    def nonce(self):
        return self.exchange("GET", "/nonce")[1]["Replay-Nonce"]

    def post(self, path, payload, **replaced):
        """A signed request, with members of its protected header replaced."""
        header = {"nonce": replaced.get("nonce") or self.nonce(), "url": HOST + path}
        header |= {"kid": self.kid} if self.kid else {"jwk": self.key.jwk}
        return self.send(path, self.key.sign(header | replaced, payload))

    def send(self, path, jws):
        status, headers, body = self.exchange("POST", path, jws.encode(), {"Content-Type": "application/jose+json"})
        return status, headers, json.loads(body)

    def register(self):
        status, headers, _ = self.post("/new-account", {"termsOfServiceAgreed": True})
        self.kid = headers["Location"]
        return status


# Behaviours of: The end-to-end harness
class ScriptedAuthority(WorldTest):
    def setUp(self):
        super().setUp()
        self.world.start_authority()
        self.authority = self.world.authority
        self.client = Client(self.world)

    def refused(self, answer):
        return answer[2]["type"].rpartition(":")[2]

    # Behaviour: The scripted authority answers a sound request like an authority
    def test_sound_request_is_answered(self):
        self.assertEqual(self.client.register(), 201)
        status, headers, order = self.client.post("/new-order", {"identifiers": [{"type": "dns", "value": "shop.example"}]})
        self.assertEqual((status, order["status"], len(order["authorizations"])), (201, "pending", 1))
        self.assertTrue(headers["Location"].startswith(HOST))

    # Behaviour: The scripted authority refuses what a sound authority refuses: used nonces, wrong signatures,
    #   addresses, keys and accounts
    def test_nonce_is_good_once(self):
        nonce = self.client.nonce()
        self.assertEqual(self.client.post("/new-account", {"termsOfServiceAgreed": True}, nonce=nonce)[0], 201)
        self.assertEqual(self.refused(self.client.post("/new-account", {"termsOfServiceAgreed": True}, nonce=nonce)), "badNonce")
        self.assertEqual(self.refused(self.client.post("/new-account", {}, nonce="invented")), "badNonce")

    # Behaviour: The scripted authority refuses what a sound ...
    def test_signature_of_something_else_is_refused(self):
        header = {"nonce": self.client.nonce(), "url": HOST + "/new-account", "jwk": self.client.key.jwk}
        jws = json.loads(self.client.key.sign(header, {"termsOfServiceAgreed": True}))
        answer = self.client.send("/new-account", json.dumps(jws | {"signature": encode(b"\x01" * 256)}))
        self.assertEqual((self.refused(answer), answer[2]["detail"]), ("malformed", "the signature does not hold"))

    # Behaviour: The scripted authority refuses what a sound ...
    def test_signed_url_has_to_be_the_one_asked_for(self):
        self.assertEqual(self.refused(self.client.post("/new-account", {}, url=HOST + "/new-order")), "unauthorized")

    # Behaviour: The scripted authority refuses what a sound ...
    def test_key_is_for_new_accounts_and_an_account_for_everything_else(self):
        self.assertEqual(self.client.post("/new-order", {"identifiers": []})[0], 400)
        self.client.register()
        self.assertEqual(self.client.post("/new-account", {})[0], 400)
        self.assertEqual(self.refused(self.client.post("/new-order", {}, kid=HOST + "/account/99")), "accountDoesNotExist")

    # Behaviour: The scripted authority refuses what a sound ...
    def test_deactivated_account_places_no_order(self):
        self.client.register()
        self.authority.set_account_status(self.client.kid, "deactivated")
        self.assertEqual(self.client.post("/new-order", {"identifiers": []})[0], 403)

    # Behaviour: An answer that a test replaces comes at its turn, and at no other
    def test_replaced_answer_comes_at_its_turn_only(self):
        self.client.exchange("GET", "/directory")
        self.authority.script("directory", problem("serverInternal", "now", 500), occurrence=2)
        self.assertEqual([self.client.exchange("GET", "/directory")[0] for _ in range(3)], [200, 500, 200])
        self.authority.script("directory", Answer(418))
        self.assertEqual(self.client.exchange("GET", "/directory")[0], 418)

    # Behaviour: An answer that is dropped or cut breaks the exchange
    def test_spoiled_answers_break_the_exchange(self):
        self.authority.script("directory", Answer(drop=True))
        with self.assertRaises((http.client.HTTPException, OSError)):
            self.client.exchange("GET", "/directory")
        self.authority.script("directory", Answer(body=b"x" * 100, cut_at=50))
        with self.assertRaises(http.client.IncompleteRead):
            self.client.exchange("GET", "/directory")

    # Behaviour: A client that does not trust the harness's certificate is not served
    def test_client_that_does_not_trust_the_harness_is_not_served(self):
        context = ssl.create_default_context()
        with self.assertRaises(ssl.SSLCertVerificationError):
            http.client.HTTPSConnection(DIRECTORY_HOST, context=context, timeout=30).request("GET", "/directory")
        self.assertEqual(self.authority.requests(), [])


class Surroundings(WorldTest):
    # Behaviour: Nothing but the loopback device is there, and the production host is the tests' own authority
    def test_nothing_but_loopback_is_there(self):
        links = subprocess.run(["ip", "-brief", "link"], capture_output=True, text=True, check=True).stdout
        up = [line.split()[0] for line in links.splitlines() if "LOWER_UP" in line]
        self.assertEqual(up, ["lo"])
        routes = subprocess.run(["ip", "route"], capture_output=True, text=True, check=True).stdout
        self.assertEqual(routes, "")

    # Behaviour: Nothing but the loopback device is there ...
    def test_production_host_is_the_front(self):
        hosts = subprocess.run(["getent", "ahostsv4", DIRECTORY_HOST], capture_output=True, text=True, check=True).stdout
        self.assertEqual({line.split()[0] for line in hosts.splitlines()}, {AUTHORITY_ADDRESS})


class Complaints(WorldTest):
    """A world of its own per test, which must not end in peace."""

    def other_world(self):
        return World(self.world.path("other"), "no-binaries")

    # Behaviour: No process and no private key in a log is ...
    def test_key_in_a_log_is_noticed(self):
        other = self.other_world()
        folder = os.path.dirname(other.installed("shop.example"))
        os.makedirs(folder)
        openssl("genpkey", "-algorithm", "EC", "-pkeyopt", "ec_paramgen_curve:P-256",
                "-out", os.path.join(folder, "privkey.pem"))
        with open(os.path.join(folder, "privkey.pem"), encoding="ascii") as file:
            line = file.read().splitlines()[1]
        with open(other.log_path("service"), "w", encoding="ascii") as file:
            file.write(f"query: key={line}\n")
        with self.assertRaisesRegex(AssertionError, "secrets in the logs .*service.out"):
            other.close()

    # Behaviour: No process and no private key in a log is left by any of this
    def test_process_that_stays_is_noticed(self):
        other = self.other_world()
        with subprocess.Popen(["sleep", "600"]) as stays:
            with self.assertRaisesRegex(AssertionError, f"processes left: .*{stays.pid}"):
                other.close()
            stays.kill()
        wait_until(lambda: not sandbox.others(), "the process is gone")

    # Behaviour: A fault inside the harness fails the test
    def test_fault_inside_the_authority_is_noticed(self):
        other = self.other_world()
        other.start_authority()
        other.authority.script("directory", lambda proper: 1 // 0)
        with self.assertRaises((http.client.HTTPException, OSError)):
            Client(other).exchange("GET", "/directory")
        with self.assertRaisesRegex(AssertionError, "ZeroDivisionError"):
            other.close()


class Runner(WorldTest):
    def run_file(self, body):
        """Status and results of a run of a test file with this body, in namespaces within these."""
        folder = self.world.path("tests")
        os.makedirs(folder)
        with open(os.path.join(folder, "sample_test.py"), "w", encoding="utf-8") as file:
            file.write("import unittest\nclass Sample(unittest.TestCase):\n" + textwrap.indent(textwrap.dedent(body), "    "))
        run = os.path.join(os.path.dirname(os.path.abspath(__file__)), "run.py")
        results = self.world.path("results.json")
        done = subprocess.run([sys.executable, run, "--binaries", folder, "--results", results, "sample_test"],
                              env=os.environ | {"PYTHONPATH": folder}, capture_output=True, text=True, check=False)
        with open(results, encoding="utf-8") as file:
            suite = json.load(file)["testsuites"][0]
        return done.returncode, {test["name"]: "failures" in test for test in suite["testsuite"]}

    # Behaviour: A test that fails, breaks, or is left out fails its run and is named
    def test_failed_test_fails_the_run_and_is_named(self):
        status, outcomes = self.run_file("""
            def test_that_holds(self): pass
            def test_that_does_not(self): self.fail()
            def test_that_breaks(self): 1 / 0
            def test_with_a_part_that_does_not_hold(self):
                with self.subTest("part"): self.fail()
            """)
        self.assertEqual(status, 1)
        self.assertEqual(outcomes, {"test_that_holds": False, "test_that_does_not": True, "test_that_breaks": True,
                                    "test_with_a_part_that_does_not_hold": True})

    # Behaviour: A test that fails, breaks, or is left out ...
    def test_file_whose_preparation_breaks_fails(self):
        status, _ = self.run_file("""
            @classmethod
            def setUpClass(cls): 1 / 0
            def test_that_holds(self): pass
            """)
        self.assertEqual(status, 1)

    # Behaviour: A test that fails, breaks, or is left out ...
    def test_test_that_is_left_out_fails_the_run(self):
        status, _ = self.run_file("""
            @unittest.skip("not today")
            def test_that_holds(self): pass
            """)
        self.assertEqual(status, 1)

    # Behaviour: A test that fails, breaks, or is left out ...
    def test_sound_file_succeeds(self):
        self.assertEqual(self.run_file("def test_that_holds(self): pass"), (0, {"test_that_holds": False}))
