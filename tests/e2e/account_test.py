"""Which account a run uses, with an authority that answers account checks as the production one does."""
from client import Key
from fixture import WorldTest, account_key
from misbehaviour import changed, told
from tls_server import Answer
from world import FAILURE, INSTALLED, WAITING

EC = ("--csr", "key_type=ec")


# Behaviours of: Failing and recovering
class Account(WorldTest):
    def setUp(self):
        super().setUp()
        self.world.start_authority()
        self.authority = self.world.authority
        self.world.start_service()
        self.names = iter(["shop.example", "blog.example", "www.shop.example"])

    def add_job(self, *options):
        name = next(self.names)
        self.world.add_domain(name)
        return self.world.add_job(name, *EC, *options)

    def job_with_stored_account(self, *options):
        """A job that took the default account and then failed at its order, so that it keeps the account and goes on."""
        self.world.take_account(account_key())
        job = self.add_job(*options)
        self.authority.script("new-order", Answer(503), occurrence=1)
        self.assertEqual(self.world.run_job(job), FAILURE)
        return job

    def registrations(self):
        return len(self.authority.requests("new-account"))

    # Behaviour: A valid account is checked and used again
    def test_valid_account_is_checked_and_used_again(self):
        job = self.job_with_stored_account()
        kid = self.world.job(job)["kid"]
        self.assertEqual(self.world.run_job(job), INSTALLED)

        checks = self.authority.requests("account")  # one for each run
        self.assertEqual([(check.protected["kid"], check.answer.status) for check in checks], [(kid, 200)] * 2)
        self.assertEqual((self.registrations(), self.world.job(job)["kid"]), (0, kid))

    # Behaviour: A second job uses the account that the first ...
    def test_second_job_checks_the_default_account_and_uses_it(self):
        self.assertEqual(self.world.run_job(self.add_job()), INSTALLED)
        second = self.add_job()
        self.assertEqual(self.world.run_job(second), INSTALLED)

        self.assertEqual((self.registrations(), len(self.authority.requests("account"))), (1, 1))
        self.assertEqual(self.world.job(second)["kid"], self.world.ask("account", "show")["kid"])

    # Behaviour: A deactivated account gives way to the default account
    def test_deactivated_account_gives_way_to_the_default_account(self):
        job = self.job_with_stored_account()
        old = self.world.job(job)["kid"]
        self.authority.set_account_status(old, "deactivated")
        default = self.world.take_account(Key(self.world.path("other.key")))
        self.assertNotEqual(default, old)

        self.assertEqual(self.world.run_job(job), INSTALLED)
        self.assertEqual((self.registrations(), self.world.job(job)["kid"]), (0, default))

    # Behaviour: A failing account is tried again in later runs before a new one is registered
    def test_failing_account_is_tried_again_in_later_runs_before_a_new_one_is_registered(self):
        job = self.job_with_stored_account("--max-account-checks", "2")
        kid = self.world.job(job)["kid"]
        self.authority.set_account_status(kid, "deactivated")
        for _ in range(2):
            self.assertEqual(self.world.run_job(job), WAITING)
            self.assertEqual(self.world.job(job)["kid"], kid)
        self.assertEqual(self.registrations(), 0)

        self.assertEqual(self.world.run_job(job), INSTALLED)
        self.assertEqual(self.registrations(), 1)
        self.assertNotEqual(self.world.job(job)["kid"], kid)
        self.assertEqual(self.world.ask("account", "show")["kid"], self.world.job(job)["kid"])

    # Behaviour: An account survives an authority that is down for a while
    def test_account_survives_an_authority_that_is_down_for_a_while(self):
        job = self.job_with_stored_account("--max-account-checks", "3")
        kid = self.world.job(job)["kid"]
        self.authority.script("account", Answer(503))
        self.assertEqual(self.world.run_job(job), WAITING)
        self.assertEqual(self.world.event_detail(job, "acme_request_error"), told(503, ""))
        self.authority.unscript()

        self.assertEqual(self.world.run_job(job), INSTALLED)
        self.assertEqual((self.registrations(), self.world.job(job)["kid"]), (0, kid))

    # Behaviour: An account that the authority knows already is taken, whatever else its answer says
    def test_account_that_the_authority_knows_is_taken_whatever_else_it_says(self):
        def known(proper):
            proper.status = 200
            return changed(lambda account: account.update(error={"status": 400, "detail": "known"}, unknown=[{}]))(proper)

        self.authority.script("new-account", known)
        job = self.add_job()
        self.assertEqual(self.world.run_job(job), INSTALLED)
        self.assertEqual(self.world.events(job)[:3], [("processing", "registration_try"), ("failed", "registration_fail"),
                                                      ("processing", "registration_exist")])
        self.assertEqual(self.world.event_detail(job, "registration_fail"), told(400, "known"))
        kid = self.authority.requests("new-account")[-1].answer.headers["Location"]
        self.assertEqual((self.world.job(job)["kid"], self.world.ask("account", "show")["kid"]), (kid, kid))

    # Behaviour: A refused registration fails the run, and the next one registers
    def test_refused_registration_fails_the_run_and_the_next_one_registers(self):
        self.authority.script("new-account", Answer(503), occurrence=1)
        job = self.add_job()
        self.assertEqual(self.world.run_job(job), FAILURE)
        self.assertEqual(self.world.events(job), [("processing", "registration_try"), ("failed", "registration_fail")])
        self.assertEqual(self.world.event_detail(job, "registration_fail"), told(503, ""))
        self.assertEqual((self.world.job(job)["kid"], self.world.ask("account", "show")["kid"]), ("", ""))

        self.assertEqual(self.world.run_job(job), INSTALLED)
