"""Whatever an authority does, a run ends in order, says what happened, and the next run can finish the job."""
import os
import signal
from datetime import datetime, timedelta

from authority import problem
from ca import CertificateAuthority
from fixture import WorldTest
from misbehaviour import (BASE, NONCE_REFUSED, AuthorityTest, broken, changed, date_in, later, limited, no_url, told)
from process import LONG, wait_until
from tls_server import json_answer
from world import DIRECTORY_HOST, FAILURE, INSTALLED, SITES

WHOLE = ["directory", "new-order", "authorization", "challenge", "finalize", "certificate"]
READY = [resource for resource in WHOLE if resource != "challenge"]  # what an order asks for whose challenges are done
PENDING = ("cert_order_fail", told(403, "the order is pending"))


def busy(delay="0"):
    """The request has been served, and the authority says that it will take its time."""
    return lambda _: later(json_answer({"status": "processing"}), delay)


# Behaviours of: Failing and recovering
class Failure(AuthorityTest):
    """Stories of single answers; the tables are in authority_answers_test.py."""

    def assert_ends(self, run, status, asked, failed):
        self.assertEqual((run.status, run.asked, run.failed), (status, asked, failed))
        self.assertEqual(self.world.answer_files(), [])

    # Nonces.

    # Behaviour: A nonce is sent back as it came, whatever it holds; one that is missing is refused by the authority and
    #   told
    def test_nonce_of_any_form_is_sent_back_as_it_came(self):
        for nonce in ("", 'a","alg":"none","x":"\\', "n" * 60_000):
            with self.subTest(nonce=nonce[:30]):
                self.authority.script("nonce", json_answer({}, 200, **{"Replay-Nonce": nonce}), occurrence=1)
                self.assert_ends(self.run_job(), FAILURE, WHOLE[:2], [("order_failed", told(400, NONCE_REFUSED))])
                protected = self.authority.requests("new-order")[-1].protected
                self.assertEqual((protected["nonce"], protected["alg"]), (nonce, "RS256"))
                self.assertEqual(sorted(protected), ["alg", "kid", "nonce", "url"])
        self.assert_next_run_installs()

    # Waiting.

    # Behaviour: An authority that takes its time is polled until it is done
    def test_authority_that_takes_its_time_is_polled_until_it_is_done(self):
        for resource in ("challenge", "finalize"):
            self.authority.script(resource, busy("1"), occurrence=1)
            self.authority.script(resource, busy(date_in(3600)), occurrence=2)  # a date is no number of seconds
        self.assert_ends(self.run_job(), INSTALLED, [*WHOLE[:3], *["challenge"] * 3, *["finalize"] * 3, "certificate"], [])
        for resource in ("challenge", "finalize"):
            exchanges = self.authority.requests(resource)[-3:]
            self.assertEqual([exchange.raw_payload == b"" for exchange in exchanges], [False, True, True])

    # Behaviour: An object that stays "processing" is given up after sixty polls; a "retry-after" date is no delay
    def test_authority_that_never_gets_done_is_given_up(self):
        for resource, delay in (("challenge", date_in(3600)), ("finalize", "0")):
            self.authority.script(resource, later(json_answer({"status": "processing"}), delay))
            before = WHOLE[:WHOLE.index(resource)]
            run = self.run_job()
            self.authority.unscript()
            if resource == "challenge":  # its order is asked for all the same
                self.assert_ends(run, FAILURE, [*before, *[resource] * 61, "finalize"], [("challenge_req_attempt", ""), PENDING])
            else:
                self.assert_ends(run, FAILURE, [*before, *[resource] * 61], [("cert_order_req_attempt", "")])
        self.assert_next_run_installs()

    # Behaviour: A refusal with "retry-after", in seconds ...
    def test_refused_poll_is_told_and_not_repeated(self):
        for resource, event in (("challenge", "challenge_fail"), ("finalize", "cert_order_fail")):
            self.authority.script(resource, busy(), occurrence=1)
            self.authority.script(resource, later(limited(429), "3600"), occurrence=2)
            asked = [*WHOLE[:WHOLE.index(resource) + 1], resource]
            self.assert_ends(self.run_job(), FAILURE, asked, [(event, told(429, "too many requests of late"))])
        self.assert_next_run_installs()

    # Behaviour: A terminated wait for the authority ends ...
    def test_only_a_signal_ends_a_wait_that_the_authority_asks_for(self):
        log = os.path.join(self.world.logs, "ambrin.log")
        # A run that had challenges to answer leaves them and the answer file to the next one.
        for resource, delay, left in (("challenge", "99999999999", 1), ("challenge", "-1", 1), ("finalize", "3601", 0)):
            with self.subTest(resource, delay=delay):
                self.job = self.add_job()
                self.authority.script(resource, later(json_answer({"status": "processing"}), delay))
                run = self.world.start_run(self.job)
                wait_until(lambda: f"Retry-After: {delay}\r\n".encode() in open(log, "rb").read(), "the wait begins")
                asked = len(self.authority.requests(resource))
                os.kill(self.world.plugin(), signal.SIGTERM)
                self.assertEqual(run.process.wait(LONG), FAILURE)
                self.world.wait_run_over(self.job)
                self.authority.unscript()

                self.assertEqual(len(self.authority.requests(resource)), asked)
                record = self.world.job(self.job)
                self.assertEqual((record["kid"], record["attempt_count"]), (self.kid, left))
                self.assertEqual((record["challenges"] != [], len(self.world.answer_files())), (left == 1, left))
                self.assertEqual([entry for entry in record["events"] if entry["state"] == "failed"], [])
                self.assert_next_run_installs()

    # Orders.

    # Behaviour: An order that turns invalid gives no certificate
    def test_order_that_turns_invalid_gives_no_certificate(self):
        run = self.meet("finalize", json_answer({"status": "invalid"}))
        self.assert_ends(run, FAILURE, WHOLE[:5], [("cert_order_req_attempt", "")])
        self.assert_next_run_installs()

    # Behaviour: An order that is offered again is taken up ...
    def test_order_that_is_ready_already_is_finalized_at_once(self):
        for status in (200, 201):
            self.job = self.add_job()
            self.assertEqual(self.meet("finalize", problem("serverInternal", "not today", 500)).status, FAILURE)
            self.authority.offer_last_order_again(status)
            run = self.run_job()
            self.assert_ends(run, INSTALLED, READY, [])
            self.assertNotIn("challenge_created", run.reached)

    # Behaviour: An order that is offered again is taken up where it stands: pending, half done, or ready
    def test_pending_order_that_is_offered_again_is_finished(self):
        self.assertEqual(self.meet("challenge", problem("serverInternal", "not today", 500)).status, FAILURE)
        self.authority.offer_last_order_again(200)
        self.assert_ends(self.run_job(), INSTALLED, WHOLE, [])
        first, second = self.authority.requests("challenge")[-2:]
        self.assertEqual(first.path, second.path)

    # Behaviour: An order that is offered again is taken up ...
    def test_of_an_order_that_is_half_done_only_the_other_half_is(self):
        self.world.add_domain("blog.example")
        self.job = self.add_job("--skip-account-check", "--alias", "blog.example")
        self.authority.script("challenge", problem("serverInternal", "not today", 500), occurrence=2)
        self.assertEqual(self.run_job().status, FAILURE)
        refused = self.authority.requests("challenge")[-1].path
        self.authority.offer_last_order_again(200)
        run = self.run_job()
        self.assert_ends(run, INSTALLED, [*WHOLE[:2], "authorization", *WHOLE[2:]], [])
        self.assertEqual(self.authority.requests("challenge")[-1].path, refused)

    # Behaviour: An order that is over is refused and told, its certificate is not installed with another key, and the
    #   next order is good
    def test_order_that_is_over_is_refused_and_the_next_one_is_good(self):
        self.assertEqual(self.meet("certificate", problem("serverInternal", "not today", 500)).status, FAILURE)
        self.authority.offer_last_order_again(200)
        self.assert_ends(self.run_job(), FAILURE, READY[:4], [("cert_order_fail", told(403, "the order is valid"))])

        self.authority.last_order()["status"] = ["invalid"]
        self.authority.last_order()["certificate"] = None
        self.authority.offer_last_order_again(201)
        reason = "the answer file does not hold the key authorization"
        self.assert_ends(self.run_job(), FAILURE, WHOLE[:4], [("challenge_fail", told(403, reason))])
        self.assert_next_run_installs()

    # Behaviour: An order that is over is refused and told ...
    def test_certificate_of_an_earlier_request_is_not_installed(self):
        self.assertEqual(self.meet("certificate", problem("serverInternal", "not today", 500)).status, FAILURE)
        self.authority.offer_last_order_again(200)
        earlier = f"{BASE}/certificate/{self.authority.requests('certificate')[-1].path.rpartition('/')[2]}"
        run = self.meet("finalize", json_answer({"status": "valid", "certificate": earlier}))
        certname = run.record["certname"]
        text = f"installing the certificate of {certname}: key and certificate do not belong together"
        self.assert_ends(run, FAILURE, READY, [("hardreplace_error", text)])
        self.assertTrue(run.record["failed"])
        self.assert_next_run_installs()

    # Answers that are good and unusual.

    # Behaviour: Wrong content types, large headers, slow bytes, delays and other line ends change nothing in a good
    #   answer
    def test_unusual_form_of_good_answers_changes_nothing(self):
        def everywhere(spoil):
            self.job = self.add_job()
            for resource in [*WHOLE, "nonce"]:
                self.authority.script(resource, spoil)
            self.assert_ends(self.run_job(), INSTALLED, WHOLE, [])
            self.authority.unscript()

        def header(**lines):
            def spoil(proper):
                proper.headers.update({name.replace("_", "-"): value for name, value in lines.items()})
                return proper
            return spoil

        def pace(proper):
            proper.pace = 0.001
            return proper

        def delay(proper):
            proper.delay = 0.2
            return proper

        def replaced(what, by):  # there are lines in the certificate only
            def spoil(proper):
                proper.body = proper.body.replace(what, by)
                return proper
            return spoil

        def blank_lines(proper):
            proper.body = b"\r\n\n " + proper.body + b"\n\n\n" if proper.body else b""
            return proper

        forms = {"wrong content type": header(Content_Type="text/html; charset=utf-16"),
                 "60 kB of header": header(X_Padding="x" * 60_000), "no content type": header(Content_Type=None),
                 "wish to wait": header(Retry_After="3600"), "byte by byte": pace, "delay": delay, "blank lines": blank_lines,
                 "other line ends": replaced(b"\n", b"\r\n"), "chain in one block": replaced(b"\n\n", b"\n")}
        for what, spoil in forms.items():
            with self.subTest(what):
                everywhere(spoil)

    # Behaviour: Unknown members and unknown challenges are passed over, whatever they hold
    def test_unknown_members_and_challenges_are_passed_over(self):
        def members(value):
            value.update({"new": {"status": "invalid", "error": {"detail": "no"}}, "Status": "invalid", "Error": {}, "": [None]})

        unknown = [{"type": "tls-alpn-01", "url": f"{BASE}/elsewhere", "token": "t", "status": "pending"},
                   {"type": "dns-account-01"}, {"type": "device-attest-01", "url": 7}, {"type": None}, {"type": ["http-01"]},
                   {}, None, "http-01", 7, []]

        def challenges(value):
            members(value)
            known = [{**challenge, "validated": "never", "": [{}]} for challenge in value["challenges"]]
            value["challenges"] = [*unknown, *known, *unknown]

        for resource in WHOLE[:-1]:
            self.authority.script(resource, changed(challenges if resource == "authorization" else members))
        gate = self.authority.hold("challenge")
        run = self.world.start_run(self.job)
        gate.wait_reached()
        self.assertEqual(len(self.world.answer_files()), 1)
        gate.open()
        self.assertEqual(run.process.wait(LONG), INSTALLED)
        self.assertEqual(self.authority.resources()[-6:], WHOLE)
        self.assertTrue(self.authority.requests("challenge")[-1].path.endswith("/http-01"))

    # Behaviour: A challenge without a URL, or that cannot be published, fails its run and holds up no later order
    def test_challenge_without_a_url_fails_the_run(self):
        run = self.meet("authorization", changed(lambda found: found["challenges"][0].pop("url")))
        self.assert_ends(run, FAILURE, WHOLE[:3], [("http_query_error", no_url(""))])
        self.assert_next_run_installs()

    # Behaviour: A challenge without a URL, or that cannot ...
    def test_challenge_that_cannot_be_published_holds_up_no_later_order(self):
        """The second one of the right type is without a token, which makes no name of a file."""
        extra = {"type": "http-01", "url": f"{BASE}/elsewhere"}
        run = self.meet("authorization", changed(lambda found: found["challenges"].append(extra)))
        refused = [("panel_error", 'ambrin_challenge: "" is no token')]
        self.assertEqual((run.status, run.asked, run.failed), (FAILURE, WHOLE[:3], refused))
        self.assertIn("challenge_start", run.reached)

        run = self.run_job()  # the stored challenges
        no_such = [("challenge_fail", told(404, "no such resource"))]
        self.assert_ends(run, FAILURE, ["directory", "challenge", "elsewhere"], refused + no_such)
        self.assertEqual(run.record["challenges"], [])
        self.assert_next_run_installs()


class LateAuthority(WorldTest):
    """An authority that finishes orders after it has answered the finalization: a real one, without the front's help."""

    # Behaviour: Of an authority that finishes orders later than the program asks no further order is placed the same day,
    #   though each failed run is tried again at once otherwise; the administrator and whoever asks for the job are told
    def test_authority_that_finishes_orders_later_is_asked_for_one_order_a_day(self):
        self.world.start_web()
        self.world.start_pebble()
        self.world.front.finishes_later = True
        self.world.start_service("--retry-interval", "1", "--sweep-interval", "0.2", scheduler="on")
        jobs = {}
        for site in ("shop.example", "blog.example"):
            self.world.add_domain(site)
            jobs[site] = self.world.add_job(site, "--csr", "key_type=ec", "--skip-account-check")
            wait_until(lambda job=jobs[site]: self.world.job(job)["failures"], f"a run for {site} has failed")
        records = [self.world.job(job) for job in jobs.values()]
        self.assertEqual([record["failures"] for record in records], [1, 1])
        self.assertEqual({event["event"] for record in records for event in record["events"] if event["state"] == "failed"},
                         {"cert_order_fail"})
        for record in records:
            # With a retry interval of a second a day has 1440 of them.
            due, ended = (datetime.fromisoformat(time) for time in (record["due"], record["events"][-1]["time"]))
            self.assertGreaterEqual(due - ended, timedelta(seconds=1200))
            self.assertIn("docs/authorities.md", record["sentence"])
        told = [("certificate_not_fetched", "root")] * 2
        self.assertEqual(self.world.problems("open"), told)
        wait_until(lambda: len(self.world.pebble.issued()) == 2, "the certificates are issued all the same")

        self.world.front.finishes_later = False
        for job in jobs.values():
            self.world.ask("job", "retry", job)
            wait_until(lambda job=job: self.world.job(job)["verified"], "a person's retry installs")
        self.assertEqual(self.world.problems("open"), [])


class ForeignAuthority(WorldTest):
    """Somebody else answers at the authority's address: nobody is told anything."""

    def assert_not_trusted(self, reason):
        self.world.start_service()
        self.world.add_domain("shop.example")
        job = self.world.add_job("shop.example", "--csr", "key_type=ec")
        self.assertEqual(self.world.run_job(job), FAILURE)
        self.assertEqual(self.world.events(job), [("failed", "http_query_error")])
        self.assertEqual(broken("directory", reason), self.world.event_detail(job, "http_query_error"))
        self.assertEqual(self.world.authority.requests(), [])

    # Behaviour: An authority whose certificate is of an unknown root, for another name or has ended is told nothing,
    #   and the record says which
    def test_certificate_of_an_unknown_root_is_not_accepted(self):
        self.world.trusted_roots = CertificateAuthority(self.world.path("other-ca")).root
        self.world.start_authority()
        self.assert_not_trusted(".*certificate.*issuer.*")

    # Behaviour: An authority whose certificate is of an unknown ...
    def test_certificate_for_another_name_is_not_accepted(self):
        self.world.start_authority(certified_name=SITES[0])
        self.assert_not_trusted(f".*'{DIRECTORY_HOST}'")

    # Behaviour: An authority whose certificate is of an unknown ...
    def test_certificate_that_has_ended_is_not_accepted(self):
        self.world.start_authority()
        self.world.authority.server.present(*self.world.ca.server(DIRECTORY_HOST, days=-1))
        self.assert_not_trusted(".*certificate has expired")
