"""Whatever an authority answers, a run ends in order, says what happened, and the next run can finish the job."""
from fixture import SharedWorldTest, WorldTest
from tls_server import Answer, json_answer
from authority import problem
from ca import CertificateAuthority
from world import FAILURE, INSTALLED, SITES

HUGE = b'{"status": "valid", "padding": "' + b"x" * 200_000_000 + b'"}'


def html(status):
    return Answer(status, {"Content-Type": "text/html"}, b"<html><h1>not what you asked for</h1></html>")


def redirect(_):
    return Answer(302, {"Location": "https://blog.example/elsewhere"}, b"")


def cut(proper):
    proper.cut_at = len(proper.body) // 2
    return proper


def busy(_):
    return json_answer({"status": "processing"}, **{"Retry-After": "1"})


def paced(proper):
    proper.pace = 0.002
    return proper


class Failure(SharedWorldTest):
    """Jobs that use the account of an earlier one, and an authority that misbehaves once."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.world.start_authority()
        cls.authority = cls.world.authority
        cls.world.start_service()
        cls.world.add_domain("shop.example")
        if cls.world.run_job(cls.add_job()) != INSTALLED:
            raise AssertionError(f"no account to begin with\n{cls.world.describe()}")

    @classmethod
    def add_job(cls):
        return cls.world.add_job("shop.example", "--skip-account-check", "--csr", "key_type=ec",
                                 "--certname", f"job-{len(cls.world.ask('job', 'list'))}")

    def setUp(self):
        self.job = self.add_job()
        self.addCleanup(self.authority.unscript)

    def outcome_of(self, resource, answer):
        """The failed events of a run in which that answer comes, once, in place of the proper one."""
        job = self.add_job()
        self.authority.script(resource, answer, occurrence=1)
        self.assertEqual(self.world.run_job(job), FAILURE)
        record = self.world.job(job)
        self.assertFalse(record["processing"] or record["verified"])
        self.assertEqual(self.world.answer_files(), [])
        failed = [event for state, event in self.world.events(job) if state == "failed"]
        self.assertEqual(self.world.run_job(job), INSTALLED)
        return failed

    def test_exchange_that_breaks_is_a_failed_query(self):
        for resource in ("directory", "new-order", "authorization", "challenge", "finalize", "certificate"):
            with self.subTest(resource, how="dropped"):
                self.assertEqual(self.outcome_of(resource, Answer(drop=True)), ["http_query_error"])
            with self.subTest(resource, how="cut"):
                self.assertEqual(self.outcome_of(resource, cut), ["http_query_error"])

    def test_error_answer_is_told_under_the_name_of_its_step(self):
        steps = {"directory": "acme_request_error", "new-order": "order_failed", "authorization": "authorization_fail",
                 "challenge": "challenge_fail", "finalize": "cert_order_fail", "certificate": "cert_recive_failed"}
        for resource, event in steps.items():
            with self.subTest(resource, kind="problem"):
                self.assertEqual(self.outcome_of(resource, problem("serverInternal", "not today", 500)), [event])
            with self.subTest(resource, kind="page"):
                self.assertEqual(self.outcome_of(resource, html(502)), [event])

    def test_redirect_is_not_followed(self):
        for resource in ("directory", "new-order", "certificate"):
            with self.subTest(resource):
                self.outcome_of(resource, redirect)

    def test_missing_nonce_is_refused_by_the_authority_and_told(self):
        self.assertEqual(self.outcome_of("nonce", Answer(204)), ["order_failed"])
        refused = [exchange for exchange in self.authority.requests("new-order") if exchange.answer.status == 400]
        self.assertEqual([exchange.protected["nonce"] for exchange in refused], [""])

    def test_huge_answer_is_given_up(self):
        self.assertEqual(self.outcome_of("directory", Answer(200, {"Content-Type": "application/json"}, HUGE)), ["http_query_error"])

    def test_deeply_nested_answer_ends_no_run_by_surprise(self):
        self.outcome_of("new-order", Answer(201, {"Content-Type": "application/json"}, b"[" * 5000 + b"]" * 5000))

    def test_answer_that_comes_byte_by_byte_is_read_in_full(self):
        self.authority.script("certificate", paced)
        self.assertEqual(self.world.run_job(self.job), INSTALLED)

    def test_authority_that_takes_its_time_is_polled_until_it_is_done(self):
        for resource in ("challenge", "finalize"):
            for occurrence in (1, 2):
                self.authority.script(resource, busy, occurrence)
        self.assertEqual(self.world.run_job(self.job), INSTALLED)
        for resource in ("challenge", "finalize"):
            exchanges = self.authority.requests(resource)[-3:]
            self.assertEqual([exchange.raw_payload == b"" for exchange in exchanges], [False, True, True])

    def test_order_that_turns_invalid_gives_no_certificate(self):
        self.assertEqual(self.outcome_of("finalize", json_answer({"status": "invalid"})), ["cert_order_req_attempt"])

    def test_certificate_that_is_none_is_not_installed(self):
        self.authority.script("certificate", html(200))
        self.assertEqual(self.world.run_job(self.job), FAILURE)
        self.assertIn(("failed", "hardreplace_error"), self.world.events(self.job))
        self.assertTrue(self.world.job(self.job)["failed"])


class ForeignAuthority(WorldTest):
    """Somebody else answers at the authority's address: nobody is told anything."""

    def outcome(self):
        self.world.start_service()
        self.world.add_domain("shop.example")
        job = self.world.add_job("shop.example", "--csr", "key_type=ec")
        self.assertEqual(self.world.run_job(job), FAILURE)
        self.assertEqual(self.world.events(job), [("failed", "http_query_error")])
        self.assertEqual(self.world.authority.requests(), [])

    def test_certificate_of_an_unknown_root_is_not_accepted(self):
        self.world.trusted_roots = CertificateAuthority(self.world.path("other-ca")).root
        self.world.start_authority()
        self.outcome()

    def test_certificate_for_another_name_is_not_accepted(self):
        self.world.start_authority(certified_name=SITES[0])
        self.outcome()
