"""dns-01 jobs of which the first run, which publishes, is ended at any of its steps outside: they all finish."""
from killed_dns import DnsStepTest
from steps import KILLED_PLUGIN, TERMINATED_PLUGIN


# Behaviours of: Ending runs from outside
class KilledDnsFirstRun(DnsStepTest):
    # Behaviour: A dns-01 job's first run, killed at any of its 17 steps, costs one more run
    def test_first_run_killed_costs_one_more_run(self):
        self.end_at_every_step(KILLED_PLUGIN, self.check_finished)

    # Behaviour: Terminated at any of its steps, it finishes: an order whose challenges were stored and never published is
    #   placed anew
    def test_first_run_terminated_finishes(self):
        self.end_at_every_step(TERMINATED_PLUGIN, self.check_finished)
