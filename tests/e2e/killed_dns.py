"""The common ground of dns-01 jobs that are disturbed: one domain, and what must hold after each."""
from process import wait_until
from steps import StepTest
from world import INSTALLED, NOTHING_TO_DO, WEB_ADDRESS


class DnsStepTest(StepTest):
    check_type = "dns"

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

    def check_finished(self, certname, statuses, *_):
        self.assertIn(statuses[-1], (INSTALLED, NOTHING_TO_DO), statuses)
        wait_until(lambda: self.world.dns.look_up(self.record, "TXT") == [], "no record stays")
        wait_until(lambda: self.world.recorded_publications(self.record) == [], "no publication stays")
