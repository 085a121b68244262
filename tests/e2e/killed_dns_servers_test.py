"""dns-01 jobs that lose the service or the name server at any step outside of one of their two runs: they all finish."""
from killed_dns import DnsStepTest
from steps import KILLED_SERVICE, NAME_SERVER_AWAY
from world import NOTHING_TO_DO


# Behaviours of: Ending runs from outside
class KilledDnsServers(DnsStepTest):
    # Behaviour: A dns-01 job finishes, too, when its publication is lost with the service
    def test_first_run_finishes_after_the_service_was_killed(self):
        self.end_at_every_step(KILLED_SERVICE, self.check_finished)

    # Behaviour: A service that is killed in the second run, and comes back at once, costs nothing, and everybody is told
    #   once
    def test_second_run_finishes_though_the_service_was_killed(self):
        def check(certname, statuses, *_):
            self.assertEqual(statuses, [NOTHING_TO_DO])
            self.check_finished(certname, statuses)

        self.end_at_every_step(KILLED_SERVICE, check, run=1, may_repeat=lambda _: False)

    # Behaviour: A name server that is away from any step of a run to its end costs further runs at most
    def test_name_server_away_is_made_up_for(self):
        for run in (0, 1):
            with self.subTest(run=run):
                # Whoever looks the records up in vain tells people of the pause.
                self.end_at_every_step(NAME_SERVER_AWAY, self.check_finished, run=run, perhaps=["ambrin_pause"])
