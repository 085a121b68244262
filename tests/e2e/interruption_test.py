"""Runs that are ended from outside: nothing that was reached before is lost, nothing published stays behind."""
import signal
import os

from fixture import WorldTest, account_key
from process import wait_until
from tls_server import Answer, json_answer
from world import FAILURE, INSTALLED

EC = ("--csr", "key_type=ec")


# Behaviours of: Ending runs from outside
class Interruption(WorldTest):
    def setUp(self):
        super().setUp()
        self.world.start_authority()
        self.authority = self.world.authority
        self.world.start_service()
        self.world.add_domain("shop.example")
        self.job = self.world.add_job("shop.example", *EC)

    def end_run(self, resource, how):
        """Starts a run, holds it at the next request to the resource, and ends the plug-in there."""
        gate = self.authority.hold(resource)
        run = self.world.start_run(self.job)
        gate.wait_reached()
        os.kill(self.world.plugin(), how)
        self.assertNotEqual(run.process.wait(60), INSTALLED)
        self.world.wait_run_over(self.job)
        gate.open()

    def keep_account(self):
        """A first run that takes the default account and fails at its order."""
        self.world.take_account(account_key())
        self.authority.script("new-order", Answer(503), occurrence=1)
        self.assertNotEqual(self.world.run_job(self.job), INSTALLED)
        return self.world.job(self.job)["kid"]

    # Behaviour: A terminated account check leaves the account alone, and the record is written back
    def test_terminated_account_check_leaves_the_account_alone(self):
        kid = self.keep_account()
        self.end_run("account", signal.SIGTERM)

        record = self.world.job(self.job)
        self.assertEqual((record["kid"], record["attempt_count"]), (kid, 2))  # the record was written back
        self.assertEqual(self.authority.requests("new-account"), [])
        self.assertEqual(self.world.run_job(self.job), INSTALLED)
        self.assertEqual(self.world.job(self.job)["kid"], kid)

    # Behaviour: A terminated order is placed anew by the next run
    def test_terminated_order_is_placed_anew_by_the_next_run(self):
        self.end_run("new-order", signal.SIGINT)

        self.assertIn(("processing", "registration_success"), self.world.events(self.job))
        self.assertEqual(self.world.run_job(self.job), INSTALLED)
        self.assertEqual(len(self.authority.requests("new-account")), 1)

    # Behaviour: A terminated wait for the authority ends at once, however long it was to be
    def test_terminated_wait_for_the_authority_ends_at_once(self):
        self.world.take_account(account_key())
        self.authority.script("challenge", lambda proper: json_answer({"status": "processing"}, **{"Retry-After": "3600"}))
        run = self.world.start_run(self.job)
        wait_until(lambda: self.authority.requests("challenge"), "the challenge is answered")
        os.kill(self.world.plugin(), signal.SIGTERM)
        run.process.wait(60)
        self.world.wait_run_over(self.job)

        self.assertEqual(len(self.authority.requests("challenge")), 1)
        self.assertEqual(self.world.job(self.job)["attempt_count"], 1)
        self.authority.unscript()
        self.assertEqual(self.world.run_job(self.job), INSTALLED)

    # Behaviour: A killed run leaves no answer file and no half-written record
    def test_killed_run_leaves_no_answer_file_and_no_half_written_record(self):
        self.world.take_account(account_key())
        gate = self.authority.hold("challenge")
        run = self.world.start_run(self.job)
        gate.wait_reached()
        self.assertEqual(len(self.world.answer_files()), 1)
        os.kill(self.world.plugin(), signal.SIGKILL)
        self.assertNotEqual(run.process.wait(60), INSTALLED)
        gate.open()

        wait_until(lambda: self.world.answer_files() == [], "the service removes the answer file")
        self.world.wait_run_over(self.job)
        self.assertEqual(self.world.job(self.job)["attempt_count"], 0)
        self.assertEqual(self.world.run_job(self.job), INSTALLED)

    # Behaviour: A second run of a job keeps out of the first one's way
    def test_second_run_of_a_job_keeps_out_of_the_first_ones_way(self):
        self.world.take_account(account_key())
        gate = self.authority.hold("challenge")
        first = self.world.start_run(self.job)
        gate.wait_reached()
        asked = len(self.authority.requests())
        self.assertEqual(self.world.run_job(self.job), FAILURE)
        self.assertEqual(len(self.authority.requests()), asked)

        gate.open()
        self.assertEqual(first.process.wait(60), INSTALLED)
        self.assertTrue(self.world.job(self.job)["verified"])

    # Behaviour: A stored account survives a killed run
    def test_stored_account_survives_a_killed_run(self):
        kid = self.keep_account()
        self.end_run("new-order", signal.SIGKILL)

        self.assertEqual(self.world.job(self.job)["kid"], kid)
        self.assertEqual(self.world.run_job(self.job), INSTALLED)
        self.assertEqual(self.authority.requests("new-account"), [])

    # Behaviour: A service that is killed in mid-run goes on with the job after its restart
    def test_service_that_is_killed_in_mid_run_goes_on_with_the_job_after_its_restart(self):
        self.world.take_account(account_key())
        gate = self.authority.hold("challenge")
        self.world.start_run(self.job)
        gate.wait_reached()
        plugin = self.world.plugin()
        self.world.stop_service(signal.SIGKILL)
        self.world.start_service()
        gate.open()

        wait_until(lambda: not os.path.exists(f"/proc/{plugin}"), "the run ends")
        wait_until(lambda: self.world.answer_files() == [], "no answer file stays")
        self.world.wait_run_over(self.job)
        if not self.world.job(self.job)["verified"]:
            self.assertEqual(self.world.run_job(self.job), INSTALLED)
        self.assertTrue(os.path.exists(self.world.installed("shop.example")))
