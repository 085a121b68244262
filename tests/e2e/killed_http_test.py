"""http-01 runs that are ended at any of their steps outside: the next runs finish the job, and nothing stays behind."""
from process import wait_until
from steps import KILLED_PLUGIN, KILLED_SERVICE, TERMINATED_PLUGIN, StepTest
from world import FAILURE, INSTALLED, NOTHING_TO_DO, WEB_ADDRESS


# Behaviours of: Ending runs from outside
class KilledHttp(StepTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.world.start_web({cls.domain: [cls.domain]})
        cls.world.start_authority()
        cls.world.authority.validation_host = WEB_ADDRESS
        cls.world.start_service("--sweep-interval", "0.2", reload_command="true")
        cls.world.add_domain(cls.domain)
        cls.prepare_steps()
        cls.names, = cls.runs
        cls.telling = cls.names.index("problems.register") + 1

    def check(self, statuses):
        self.assertIn(statuses, ([INSTALLED], [NOTHING_TO_DO], [FAILURE, INSTALLED]))
        wait_until(lambda: self.world.answer_files() == [], "no answer file stays")

    # Behaviour: An http-01 run does 26 things outside; killed at any of them it costs one more run
    def test_steps_are_all_that_a_run_does_outside(self):
        self.assertEqual(self.names, [
            "ambrin.data.edit", "sslcert.csr.edit", "sslcert.csr.edit", "sslcert.csr.delete", "directory", "child", "nonce",
            "account", "nonce", "new-order", "nonce", "authorization", "child", "ambrin_challenge", "nonce", "challenge",
            "ambrin_challenge", "child", "nonce", "finalize", "nonce", "certificate", "sslcert.hardreplace",
            "problems.register", "problems.register", "ambrin.data.edit"])

    # Behaviour: Who is told of an installation is told again by the next run when the first was killed before its
    #   write-back (steps 24 to 26 of 26), and by nothing else
    # Behaviour: After all of these the database is sound, key and certificate are of one pair or not there, and nothing
    #   stays published
    # Behaviour: An http-01 run does 26 things outside; killed ...
    def test_killed_plug_in_costs_one_more_run(self):
        def check(certname, statuses, number, step, end):
            self.assertNotIn(FAILURE, statuses)
            if number < len(self.names):  # nobody has written anything back
                self.assertEqual(statuses, [INSTALLED])
            self.check(statuses)

        # A run that is killed after it has told is followed by one that tells again.
        self.end_at_every_step(KILLED_PLUGIN, check, may_repeat=lambda number: number >= self.telling)

    # Behaviour: Terminated at any of them it writes its record back; the next run finishes, after one that gives the
    #   order up where the signal came between the last authorization and the publication (steps 12 and 13 of 26)
    # Behaviour: Who is told of an installation is told again ...
    def test_terminated_plug_in_writes_back_and_costs_one_more_run_or_two(self):
        def check(certname, statuses, number, step, end):
            # Only an order whose answer file was never published has to be given up first. An answer that comes in one
            # piece is still taken when the signal comes with it.
            if statuses == [FAILURE, INSTALLED]:
                self.assertIn((self.names[number - 2], step, end.moment),
                              [("nonce", "authorization", "answered"), ("authorization", "child", "ahead"),
                               ("authorization", "child", "answered")])
            self.check(statuses)

        self.end_at_every_step(TERMINATED_PLUGIN, check, may_repeat=lambda _: False)

    # Behaviour: A service that is killed at any of them and comes back at once costs nothing, and everybody is told once
    # Behaviour: After all of these the database is sound ...
    def test_service_that_is_killed_and_comes_back_costs_nothing(self):
        def check(certname, statuses, *_):
            self.assertEqual(statuses, [NOTHING_TO_DO])
            self.check(statuses)

        self.end_at_every_step(KILLED_SERVICE, check, may_repeat=lambda _: False)
