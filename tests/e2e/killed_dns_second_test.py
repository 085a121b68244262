"""dns-01 jobs of which the second run, which looks and installs, is ended at any of its steps outside: they all finish."""
from killed_dns import DnsStepTest
from steps import KILLED_PLUGIN, TERMINATED_PLUGIN


# Behaviours of: Ending runs from outside
class KilledDnsSecondRun(DnsStepTest):
    # Behaviour: A dns-01 job's second run, killed at any of its 21 steps, costs further runs: records that it has
    #   withdrawn stay until its write-back
    # Behaviour: After all of these the database is sound ...
    def test_second_run_killed_is_made_up_for(self):
        self.end_at_every_step(KILLED_PLUGIN, self.check_finished, run=1)

    # Behaviour: Terminated at any step it is made up for by later runs
    def test_second_run_terminated_is_made_up_for(self):
        self.end_at_every_step(TERMINATED_PLUGIN, self.check_finished, run=1)
