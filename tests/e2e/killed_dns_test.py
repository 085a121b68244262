"""dns-01 jobs of which one of the two runs is ended at any of its steps outside, or loses its name server: they all finish."""
from process import wait_until
from steps import INSTALLED_TOLD, KILLED_PLUGIN, KILLED_SERVICE, NAME_SERVER_AWAY, TERMINATED_PLUGIN, StepTest
from world import INSTALLED, NOTHING_TO_DO, WEB_ADDRESS


# Behaviours of: Ending runs from outside
class KilledDns(StepTest):
    job_options = ("--check", "dns")

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.record = f"_acme-challenge.{cls.domain}"
        cls.world.start_dns({cls.domain: {"@": WEB_ADDRESS}})
        cls.world.start_authority()
        cls.world.start_service("--sweep-interval", "0.2", reload_command="true")
        cls.world.add_domain(cls.domain)
        cls.prepare_steps()
        cls.publishing, cls.checking = cls.runs

    def check(self, certname, statuses, told, perhaps=()):
        wait_until(lambda: self.world.dns.look_up(self.record, "TXT") == [], "no record stays")
        wait_until(lambda: self.world.recorded_publications(self.record) == [], "no publication stays")
        self.assertEqual(sorted(set(self.told(certname)) - set(perhaps)), sorted(told))

    def check_finished(self, certname, statuses, *_):
        self.assertIn(statuses[-1], (INSTALLED, NOTHING_TO_DO), statuses)
        self.check(certname, statuses, INSTALLED_TOLD)

    # Behaviour: A dns-01 job's first run, killed at any of its 17 steps, costs one more run
    def test_first_run_killed_costs_one_more_run(self):
        self.end_at_every_step(KILLED_PLUGIN, self.check_finished)

    # Behaviour: Terminated at any of its steps, it finishes: an order whose challenges were stored and never published is
    #   placed anew
    def test_first_run_terminated_finishes(self):
        self.end_at_every_step(TERMINATED_PLUGIN, self.check_finished)

    # Behaviour: So it does when the publication is lost with the service
    def test_first_run_finishes_after_the_service_was_killed(self):
        self.end_at_every_step(KILLED_SERVICE, self.check_finished)

    # Behaviour: A dns-01 job's second run, killed at any of its 21 steps, costs further runs: records that it has
    #   withdrawn stay until its write-back
    # Behaviour: After all of these the database is sound ...
    def test_second_run_killed_is_made_up_for(self):
        self.end_at_every_step(KILLED_PLUGIN, self.check_finished, run=1)

    # Behaviour: Terminated at any step it is made up for by later runs
    def test_second_run_terminated_is_made_up_for(self):
        self.end_at_every_step(TERMINATED_PLUGIN, self.check_finished, run=1)

    # Behaviour: A name server that is away from any step of a run to its end costs further runs at most
    def test_name_server_away_is_made_up_for(self):
        for run in (0, 1):
            with self.subTest(run=run):
                # Whoever looks the records up in vain tells people of the pause.
                self.end_at_every_step(NAME_SERVER_AWAY, self.check_finished_after_pauses, run=run)

    def check_finished_after_pauses(self, certname, statuses, *_):
        self.assertIn(statuses[-1], (INSTALLED, NOTHING_TO_DO), statuses)
        pauses = {entry for entry in self.told(certname) if entry[0] == "ambrin_pause"}
        self.check(certname, statuses, INSTALLED_TOLD, perhaps=pauses)

    # Behaviour: A service that is killed in the second run, and comes back at once, costs nothing, and everybody is told
    #   once
    def test_second_run_finishes_though_the_service_was_killed(self):
        def check(certname, statuses, *_):
            self.assertEqual(statuses, [NOTHING_TO_DO])
            self.check_finished(certname, statuses)

        self.end_at_every_step(KILLED_SERVICE, check, run=1)
