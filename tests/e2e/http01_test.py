"""http-01 jobs against a real authority that fetches the answer files from a real web server."""
import os

from ca import names_of, read
from fixture import WorldTest, account_key
from process import LONG, wait_until
from world import DIRECTORY_HOST, FAILURE, INSTALLED, NOTHING_TO_DO

EC = ("--csr", "key_type=ec", "--skip-account-check")  # quicker made than the default's RSA; pebble takes no check


# Behaviours of: Issuing
class Http01(WorldTest):
    def setUp(self):
        super().setUp()
        self.world.start_web({"shop.example": ["shop.example", "www.shop.example", "mail.shop.example"],
                              "blog.example": ["blog.example"], "xn--bcher-kva.example": ["xn--bcher-kva.example"]})
        self.world.start_pebble()
        self.world.start_service()

    def trusted(self, name):
        """The certificate that the web server shows for the name, which has to be pebble's."""
        return self.world.web.wait_trusted(name, self.world.path("pebble-root.pem"))

    # Behaviour: A first http-01 job registers, is validated, and the web server shows its certificate
    def test_first_job_registers_and_ends_with_the_web_server_showing_its_certificate(self):
        self.world.add_domain("shop.example")
        job = self.world.add_job("shop.example")
        self.assertEqual(self.world.run_job(job), INSTALLED)

        shown = self.trusted("shop.example")
        self.assertEqual(names_of("x509", shown.encode()), ["shop.example"])
        self.assertIn(shown.strip(), read(self.world.installed("shop.example")))
        self.assertEqual(os.stat(self.world.installed("shop.example", file="privkey.pem")).st_mode & 0o777, 0o600)
        self.assertEqual(self.world.answer_files(), [])
        record = self.world.job(job)
        self.assertTrue(record["verified"])
        self.assertFalse(record["failed"] or record["processing"])
        self.assertTrue(record["kid"].startswith(f"https://{DIRECTORY_HOST}/"))
        self.assertEqual([event for _, event in self.world.events(job)], [
            "registration_try", "registration_success", "order_success", "authorization_try", "authorization_success",
            "challenge_start", "challenge_created", "challenge_success", "cert_order_success", "cert_recived"])
        self.assertCountEqual(self.world.problems(), [("ambrin_success", "root"), ("ambrin_success", "anna")])
        self.assertTrue(self.world.account_keys())

    # Behaviour: A second job uses the account that the first has registered
    def test_second_job_uses_the_account_that_the_first_registered(self):
        for name in ("shop.example", "blog.example"):
            self.world.add_domain(name)
        first = self.world.add_job("shop.example", *EC)
        self.assertEqual(self.world.run_job(first), INSTALLED)
        second = self.world.add_job("blog.example", *EC)
        self.assertEqual(self.world.run_job(second), INSTALLED)

        self.trusted("blog.example")
        self.assertNotIn(("processing", "registration_try"), self.world.events(second))
        self.assertEqual(self.world.job(second)["kid"], self.world.job(first)["kid"])
        self.assertEqual(self.world.ask("account", "show"), {"kid": self.world.job(first)["kid"], "key": True})

    # Behaviour: One certificate names the domain and all its aliases
    def test_one_certificate_names_the_domain_and_all_its_aliases(self):
        self.world.take_account(account_key())
        self.world.add_domain("shop.example")
        job = self.world.add_job("shop.example", "--alias", "www.shop.example", "--alias", "mail.shop.example", *EC)
        self.assertEqual(self.world.run_job(job), INSTALLED)

        names = ["mail.shop.example", "shop.example", "www.shop.example"]
        for name in names:
            self.assertEqual(names_of("x509", self.trusted(name).encode()), names)
        self.assertEqual(self.world.events(job).count(("processing", "challenge_success")), 3)

    # Behaviour: An internationalised name is certified in its ASCII form
    def test_internationalised_name_is_certified_in_its_ascii_form(self):
        self.world.take_account(account_key())
        self.world.add_domain("bücher.example")
        job = self.world.add_job("bücher.example", *EC)
        self.assertEqual(self.world.run_job(job), INSTALLED)

        shown = self.trusted("xn--bcher-kva.example")
        self.assertEqual(names_of("x509", shown.encode()), ["xn--bcher-kva.example"])

    # Behaviour: A later certificate takes the place of the one before
    def test_later_certificate_takes_the_place_of_the_one_before(self):
        self.world.take_account(account_key())
        self.world.add_domain("shop.example")
        first = self.world.add_job("shop.example", *EC)
        self.assertEqual(self.world.run_job(first), INSTALLED)
        before = self.trusted("shop.example")
        self.world.ask("job", "remove", first)

        second = self.world.add_job("shop.example", "--alias", "www.shop.example", *EC)
        self.assertEqual(self.world.run_job(second), INSTALLED)
        shown = self.trusted("www.shop.example")
        self.assertNotEqual(shown, before)
        self.assertIn(shown.strip(), read(self.world.installed("shop.example")))

    # Behaviour: A verified job sends nothing more
    def test_verified_job_sends_nothing_more(self):
        self.world.take_account(account_key())
        self.world.add_domain("shop.example")
        job = self.world.add_job("shop.example", *EC)
        self.assertEqual(self.world.run_job(job), INSTALLED)
        before, record = list(self.world.front.server.seen), self.world.job(job)

        self.assertEqual(self.world.run_job(job), NOTHING_TO_DO)
        self.assertEqual(self.world.front.server.seen, before)
        self.assertEqual(self.world.job(job), record)

    # Behaviour: A certificate that is renewed is replaced by a new one, and the old one is served until then
    def test_renewed_certificate_replaces_the_old_one(self):
        self.world.take_account(account_key())
        self.world.add_domain("shop.example")
        job = self.world.add_job("shop.example", *EC)
        self.assertEqual(self.world.run_job(job), INSTALLED)
        first = read(self.world.installed("shop.example"))
        self.assertEqual(self.world.run_job(job), NOTHING_TO_DO)

        self.assertEqual(self.world.zelvek("job", "renew", job).process.returncode, 0)
        self.assertFalse(self.world.job(job)["verified"])
        self.assertEqual(read(self.world.installed("shop.example")), first)
        self.assertEqual(self.world.run_job(job), INSTALLED)
        self.assertNotEqual(read(self.world.installed("shop.example")), first)
        self.world.web.wait_trusted("shop.example", self.world.path("pebble-root.pem"))

    # Behaviour: An unreachable authority fails the run, and the record says why
    def test_unreachable_authority_fails_the_run_and_the_record_says_why(self):
        self.world.front.stop()
        self.world.add_domain("shop.example")
        job = self.world.add_job("shop.example", *EC)
        self.assertEqual(self.world.run_job(job), FAILURE)

        self.assertEqual(self.world.events(job), [("failed", "http_query_error")])
        self.assertIn(f"<br>url: https://{DIRECTORY_HOST}/directory", self.world.event_detail(job, "http_query_error"))
        record = self.world.job(job)
        self.assertEqual(record["attempt_count"], 1)
        self.assertFalse(record["processing"] or record["verified"] or record["failed"])

    # Behaviour: A failing reload command is no failed issuance: the administrator is told, and it is tried again
    def test_failing_reload_command_is_no_failed_issuance(self):
        self.world.stop_service()
        mended = os.path.join(self.world.folder, "mended")
        self.world.start_service("--reload-pause", "0.1", "--sweep-interval", "0.1",
                                 reload_command=f"echo the web server is ill; test -e {mended}")
        self.world.take_account(account_key())
        self.world.add_domain("shop.example")
        job = self.world.add_job("shop.example", *EC)
        self.assertEqual(self.world.run_job(job), INSTALLED)

        self.assertTrue(self.world.job(job)["verified"])
        self.assertIn(("web_server_reload", "root"), self.world.problems())
        open(mended, "w", encoding="utf-8").close()
        wait_until(lambda: ("web_server_reload", "root") not in self.world.problems("open"), "the reload to be mended")

    # Behaviour: A job older than a day is stopped, and ...
    def test_job_older_than_a_day_is_stopped(self):
        self.world.add_domain("shop.example")
        job = self.world.add_job("shop.example", *EC)
        self.world.age_job(job, hours=25)
        self.assertEqual(self.world.run_job(job), FAILURE)

        self.assertEqual(self.world.events(job), [("failed", "timeout_error")])
        self.assertTrue(self.world.job(job)["failed"])
        self.assertCountEqual(self.world.problems(), [("ambrin_failed_admin", "root"), ("ambrin_failed_user", "anna")])
        self.assertEqual(self.world.front.server.seen, [])

    # Behaviour: The scheduler carries new jobs to their certificates
    def test_scheduler_carries_new_jobs_to_their_certificates(self):
        self.world.stop_service()
        self.world.start_service("--scheduler-interval", "1", scheduler="on")
        self.world.take_account(account_key())
        for name in ("shop.example", "blog.example"):
            self.world.add_domain(name)
        jobs = [self.world.add_job(name, *EC) for name in ("shop.example", "blog.example")]
        wait_until(lambda: all(self.world.job(job)["verified"] for job in jobs), "the scheduler has run both jobs", 2 * LONG)
        self.trusted("shop.example")
        self.trusted("blog.example")


# Behaviours of: Failing and recovering
class UnservedAnswers(WorldTest):
    """The web server does not serve the answer files."""

    def setUp(self):
        super().setUp()
        os.makedirs(self.world.path("elsewhere"))
        self.world.start_web(answers=self.world.path("elsewhere"))
        self.world.start_pebble()
        self.world.start_service()
        self.world.take_account(account_key())

    # Behaviour: A failed validation is told, and the answer files are removed
    def test_failed_validation_is_told_and_the_answer_files_are_removed(self):
        self.world.add_domain("shop.example")
        job = self.world.add_job("shop.example", *EC)
        self.assertEqual(self.world.run_job(job), FAILURE)

        self.assertIn(("failed", "challenge_fail"), self.world.events(job))
        self.assertEqual(self.world.answer_files(), [])
        record = self.world.job(job)
        self.assertEqual((record["challenges"], record["attempt_count"]), ([], 0))
        self.assertFalse(os.path.exists(self.world.installed("shop.example")))

    # Behaviour: The next run after the repair installs the certificate
    def test_run_after_the_web_server_is_repaired_installs_the_certificate(self):
        self.world.add_domain("shop.example")
        job = self.world.add_job("shop.example", *EC)
        self.assertEqual(self.world.run_job(job), FAILURE)
        os.rmdir(self.world.path("elsewhere"))
        os.symlink(self.world.answers, self.world.path("elsewhere"))

        self.assertEqual(self.world.run_job(job), INSTALLED)
        self.world.web.wait_trusted("shop.example", self.world.path("pebble-root.pem"))
