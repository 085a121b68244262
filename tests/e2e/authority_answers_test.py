"""Every answer of every resource replaced: the run ends in bounded time, the record says why, a later run installs.

No table has the resource "order": who waits for a certificate asks the finalize resource, and nobody asks for the order.
"""
from authority import problem
from misbehaviour import (NONCE_REFUSED, AuthorityTest, breaks, broken, changed, html, no_url, nonsense, odd_refusals,
                          redirect, refusals, told)
from process import LONG
from tls_server import Answer, json_answer
from world import DIRECTORY_HOST, FAILURE, INSTALLED, SITES, WAITING

# In the order in which they are asked, with the event that tells of a refusal. The nonce is the order's.
STEPS = {"directory": "acme_request_error", "nonce": "acme_request_error", "new-order": "order_failed",
         "authorization": "authorization_fail", "challenge": "challenge_fail",
         "finalize": "cert_order_fail", "certificate": "cert_recive_failed"}
ANSWERED = ("challenge", "finalize", "certificate")  # the next run begins with a new order
# What a run has reached that gets no proper answer there.
REACHED = {"directory": [], "nonce": [], "new-order": [], "authorization": ["order_success", "authorization_try"]}
REACHED["challenge"] = REACHED["authorization"] + ["authorization_success", "challenge_start", "challenge_created"]
REACHED["finalize"] = REACHED["challenge"] + ["challenge_success"]
REACHED["certificate"] = REACHED["finalize"] + ["cert_order_success"]

NO_NONCE = ("order_failed", told(400, NONCE_REFUSED))  # what comes of an order without a nonce
FURTHER = {"nonce": [NO_NONCE]}
NOT_READY = ("cert_order_fail", told(403, "the order is pending"))
# What comes of an answer that is a good one and says nothing: events that fail, events beyond those reached.
SAYS_NOTHING = {"directory": ([("http_query_error", no_url(""))] * 2, []),  # no address for a nonce, none for the order
                "nonce": ([NO_NONCE], []), "new-order": ([], ["order_success"]),
                "authorization": ([NOT_READY], ["authorization_success"]),
                "challenge": ([("challenge_req_attempt", ""), NOT_READY], []),
                "finalize": ([("cert_order_req_attempt", "")], [])}


# Behaviours of: Failing and recovering
class AuthorityAnswers(AuthorityTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        # A minute passes until a silent authority is given up: this run waits while the tests go on.
        cls.stalled_job = cls.add_job()
        gate = cls.authority.hold("directory")
        cls.stalled_run = cls.world.start_run(cls.stalled_job)
        gate.wait_reached()

    def assert_kept(self, run, resource, attempts):
        """What the record holds after a run that got no further than to this resource."""
        reset = resource in ANSWERED
        ordered = resource not in ("directory", "nonce", "new-order")
        order = self.authority.requests("new-order")[-1].answer.headers["Location"] if ordered else ""
        kid = "" if resource == "directory" else self.kid
        kept = {"kid": kid, "attempt_count": 0 if reset else attempts, "finalize_check": order, "challenges": [],
                "verified": False, "failed": False}
        self.assertEqual({key: run.record[key] for key in kept}, kept)
        self.assertEqual(self.world.answer_files(), [])

    def assert_ended(self, run, resource, failed):
        self.assertEqual((run.status, run.failed), (FAILURE, failed))
        self.assertEqual(run.reached, REACHED[resource])
        if resource != "nonce":  # nothing is asked twice, and nothing else after it
            self.assertEqual((run.asked[-1], run.asked.count(resource)), (resource, 1))

    def assert_refusals_are_told(self, resource, event, cases):
        for attempts, (what, answer, code, details) in enumerate(cases, 1):
            with self.subTest(resource, answer=what):
                run = self.meet(resource, answer)
                self.assert_ended(run, resource, [(event, told(code, details)), *FURTHER.get(resource, [])])
                self.assert_kept(run, resource, attempts)
        self.assert_next_run_installs()

    # Behaviour: A refusal at any resource is told once, under the name of its step, in the authority's words, badNonce
    #   and problems with subproblems included; what was reached is kept, and a later run installs
    # Behaviour: A refusal with "retry-after", in seconds or as a date, is not waited for
    def test_refusal_at_any_resource_is_told_in_the_authoritys_words(self):
        for resource, event in STEPS.items():
            self.job = self.add_job()
            self.assert_refusals_are_told(resource, event, refusals())

    # Behaviour: A refusal's text of any form is told; what no XML can carry is marked in it
    def test_refusal_of_any_form_is_told_and_kept(self):
        for resource in ("directory", "new-order"):
            self.job = self.add_job()
            self.assert_refusals_are_told(resource, STEPS[resource], odd_refusals())

    # Behaviour: An exchange that breaks at any resource (dropped, cut, 100 MB, 600 kB of header) is a failed query with
    #   reason and URL; what was reached is kept, and a later run installs
    def test_break_at_any_resource_is_told_with_its_reason(self):
        for resource in STEPS:
            self.job = self.add_job()
            for attempts, (what, answer, reason) in enumerate(breaks(), 1):
                with self.subTest(resource, answer=what):
                    run = self.meet(resource, answer)
                    self.assert_ended(run, resource, [("http_query_error", broken(resource, reason)), *FURTHER.get(resource, [])])
                    self.assert_kept(run, resource, attempts)
            self.assert_next_run_installs()

    # Behaviour: A good answer that says nothing (a page, a redirect, nothing, JSON of another form or too deep) gives
    #   no certificate at any resource, and a later run installs
    # Behaviour: A redirect is an answer and never followed ...
    def test_good_answer_that_says_nothing_gives_no_certificate(self):
        for resource, (failed, further) in SAYS_NOTHING.items():
            self.job = self.add_job()
            for what, answer in nonsense():
                with self.subTest(resource, answer=what):
                    run = self.meet(resource, answer)
                    self.assertEqual((run.status, run.failed), (FAILURE, failed))
                    self.assertEqual(run.reached, REACHED[resource] + further)
                    self.assertNotIn("elsewhere", run.asked)  # where the redirect leads
                    self.assertEqual(run.record["challenges"], [])
                    self.assertEqual(self.world.answer_files(), [])
            self.assert_next_run_installs()

    # Behaviour: A certificate that is none is not installed, and stops the job until a run installs a good one
    def test_certificate_that_is_none_is_not_installed_and_stops_the_job(self):
        for what, answer in nonsense():
            with self.subTest(what):
                run = self.meet("certificate", answer)
                text = f"installing the certificate of {run.record['certname']}: "
                text += "something that is no certificate stands among the certificates" if answer.body \
                    else "there is no certificate"
                self.assertEqual(run.failed, [("hardreplace_error", text)])
                self.assertEqual((run.status, run.reached), (FAILURE, REACHED["certificate"] + ["cert_recived"]))
                self.assertEqual((run.record["failed"], run.record["verified"]), (True, False))
        self.assert_next_run_installs()

    # Behaviour: An authority whose certificate turns bad in mid-run is told nothing more
    def test_server_certificate_that_turns_bad_in_mid_run_ends_it(self):
        """It is shown after the nonce of the step's request has been given, to the request itself."""
        bad = {"certificate has expired": self.world.ca.server(DIRECTORY_HOST, days=-1),
               f".*'{DIRECTORY_HOST}'": self.world.ca.server(SITES[0])}
        good = self.world.ca.server(DIRECTORY_HOST)
        signed = [resource for resource in STEPS if resource not in ("directory", "nonce")]
        for reason, files in bad.items():
            self.job = self.add_job()
            for number, resource in enumerate(signed, 1):
                def present(proper):
                    self.authority.server.present(*files)
                    return proper

                with self.subTest(resource, reason=reason):
                    self.authority.script("nonce", present, occurrence=number)
                    run = self.run_job()
                    self.authority.server.present(*good)
                    self.assertEqual((run.status, run.failed), (FAILURE, [("http_query_error", broken(resource, f".*{reason}"))]))
                    self.assertEqual((run.reached, resource in run.asked), (REACHED[resource], False))
            self.assert_next_run_installs()

    # Behaviour: An account check that fails in any way (refused, broken, another status, no status) keeps the account
    #   for the next run
    def test_account_check_that_fails_in_any_way_keeps_the_account(self):
        self.job = self.add_job("--max-account-checks", "100")
        self.meet("new-order", json_answer({}, 503))  # the job has an account of its own from now on
        statuses = [(f"status {status!r}", json_answer({"status": status})) for status in ("revoked", "Valid", ["valid"], 1, None)]
        cases = [(what, answer, [("acme_request_error", told(code, details))]) for what, answer, code, details in refusals()]
        cases += [(what, answer, [("http_query_error", broken("account", reason))]) for what, answer, reason in breaks()]
        cases += [(what, answer, []) for what, answer in nonsense() + statuses]
        for attempts, (what, answer, failed) in enumerate(cases, 2):
            with self.subTest(answer=what):
                run = self.meet("account", answer)
                self.assertEqual((run.status, run.asked, run.reached, run.failed), (WAITING, ["directory", "account"], [], failed))
                self.assertEqual((run.record["kid"], run.record["attempt_count"]), (self.kid, attempts))
        self.assert_next_run_installs()
        self.assertEqual(self.authority.requests("new-account"), [])

    # Behaviour: A registration that fails in any way leaves the default account, and the next run goes on with that
    def test_registration_that_fails_leaves_the_default_account_to_the_next_run(self):
        told_as = {what: (answer, [("registration_fail", told(code, details))]) for what, answer, code, details in refusals()}
        cases = {what: told_as[what] for what in ("429, date", "subproblems")}
        cases["dropped"] = (Answer(drop=True), [("http_query_error", broken("new-account"))])
        cases["redirect"] = (redirect(), [])
        # A good status makes an account of it, whose URL is missing from the order's signature.
        cases["page"] = (html(200), [("order_failed", told(400, "a key for a new account, an account's URL for everything else"))])
        for what, (answer, failed) in cases.items():
            with self.subTest(what):
                self.job = self.add_job("--max-account-checks", "0")
                self.meet("new-order", json_answer({}, 503))  # the job has the default account now
                self.authority.script("account", problem("unauthorized", "no longer", 401), occurrence=1)
                run = self.meet("new-account", answer)
                self.assertEqual((run.status, run.failed), (FAILURE, [("acme_request_error", told(401, "no longer")), *failed]))
                self.assertEqual(run.reached, ["registration_try"] + ["registration_exist"] * (what == "page"))
                self.assertEqual((run.record["kid"], self.world.ask("account", "show")["kid"]), ("", self.kid))
                self.assert_next_run_installs()
                self.assertEqual(self.world.job(self.job)["kid"], self.kid)

    # Behaviour: A resource's URL that is none of the web is not asked
    def test_url_that_is_none_of_the_web_is_not_asked(self):
        url = "file:///etc/passwd"
        not_asked = ("http_query_error", no_url(url))
        members = {
            "newNonce": ("directory", lambda directory: directory.update(newNonce=url), [not_asked, NO_NONCE]),
            "newOrder": ("directory", lambda directory: directory.update(newOrder=url), [not_asked]),
            "authorizations": ("new-order", lambda order: order.update(authorizations=[url]), [not_asked]),
            "finalize": ("new-order", lambda order: order.update(finalize=url), [not_asked]),
            "challenge": ("authorization", lambda found: found["challenges"][0].update(url=url), [not_asked]),
            "certificate": ("finalize", lambda order: order.update(certificate=url), [not_asked])}
        for member, (resource, change, failed) in members.items():
            with self.subTest(member):
                run = self.meet(resource, changed(change))
                self.assertEqual((run.status, run.failed), (FAILURE, failed))
                self.assertEqual(self.world.answer_files(), [])
        self.assert_next_run_installs()

    # Behaviour: An authority that sends no byte for a minute is given up
    def test_when_no_byte_comes_for_a_minute_the_exchange_is_given_up(self):
        self.assertEqual(self.stalled_run.process.wait(3 * LONG), FAILURE)
        record = self.world.job(self.stalled_job)
        failed = [(entry["event"], entry["detail"]) for entry in record["events"]]
        self.assertEqual(failed, [("http_query_error", broken("directory", ".*60 seconds"))])
        self.assertEqual((record["processing"], record["attempt_count"]), (False, 1))
