"""What people are told about jobs whose names lead elsewhere, with what really stands there."""
import subprocess

from fixture import WorldTest, account_key
from process import wait_until
from web import another_server
from world import FAILURE, INSTALLED, RESOLVERS, WAITING, WEB_ADDRESS

EC = ("--csr", "key_type=ec", "--skip-account-check")  # pebble takes no check
ELSEWHERE = "203.0.113.7"


# Behaviours of: What people are told about a job
class Reason(WorldTest):
    def start(self, addresses):
        self.world.start_web({"shop.example": ["shop.example"]})
        self.world.start_dns({"shop.example": addresses})
        self.world.start_pebble()
        self.world.start_service("--sweep-interval", "0.2")
        self.world.take_account(account_key())
        self.world.add_domain("shop.example")

    def told(self, job, words):
        """The job's sentence, as soon as it holds the words."""
        def sentence():
            found = self.world.job(job)["sentence"]
            return found if words in found else None

        return wait_until(sentence, f"the sentence says {words}")

    # Behaviour: Of a name that points to another server a person is told where it points and what stands there
    def test_name_that_points_elsewhere_is_told_with_what_stands_there(self):
        self.start({"@": ELSEWHERE})
        with another_server(ELSEWHERE):
            job = self.world.add_job("shop.example", *EC)
            self.assertEqual(self.world.run_job(job), FAILURE)
            found = f"shop.example points to {ELSEWHERE}, where instead of this server's answer stood: 404 Not Found"
            sentence = self.told(job, found)
        self.assertTrue(sentence.startswith("The authority "), sentence)
        self.assertIn("; see that shop.example points to this server alone, ", sentence)
        self.assertRegex(sentence, r"; the next run is due at 20\d\d-\d\d-\d\d \d\d:\d\d:\d\d UTC\.$")
        self.assertEqual(self.world.zelvek("job", "show", job).log().split("\n")[0], sentence)
        wait_until(lambda: self.world.answer_files() == [], "the service's own answer is gone")

    # Behaviour: Of a record that a name server lacks a person is told which one lacks which
    def test_record_that_a_name_server_lacks_is_told_with_the_server(self):
        self.start({"@": WEB_ADDRESS})
        job = self.world.add_job("shop.example", "--check", "dns", *EC)
        self.assertEqual(self.world.run_job(job), WAITING)
        self.assertIn("TXT records are published", self.world.job(job)["sentence"])
        # Only public addresses are asked; the name server listens there, too.
        self.world.dns.update("delete ns.shop.example. A", f"add ns.shop.example. 5 A {RESOLVERS[4]}",
                              "delete _acme-challenge.shop.example. TXT")
        self.assertEqual(self.world.run_job(job), WAITING)
        self.told(job, f"the name server ns.shop.example ({RESOLVERS[4]}) does not have the TXT record of _acme-challenge.shop.example")

    # Behaviour: Of a web server that goes on serving an older certificate, though its reload has succeeded, the
    #   administrator and whoever asks for the job are told, until it serves the new one
    def test_web_server_that_goes_on_serving_an_older_certificate_is_told(self):
        self.world.start_web({"shop.example": ["shop.example"]})
        self.world.start_pebble()
        self.world.start_service("--sweep-interval", "0.05", "--check-sites", f"{WEB_ADDRESS}:443", "--check-pause", "0.05",
                                 reload_command="true")
        self.world.take_account(account_key())
        self.world.add_domain("shop.example")
        job = self.world.add_job("shop.example", *EC)
        self.assertEqual(self.world.run_job(job), INSTALLED)
        sentence = self.told(job, f"the web server at {WEB_ADDRESS}:443 still serves the one of 20")
        self.assertTrue(sentence.startswith("The new certificate is installed, but "), sentence)
        alarm = ("old_certificate_served", "root")
        wait_until(lambda: alarm in self.world.problems("open"), "the administrator is told")

        subprocess.run([self.world.web.reload_all_command, self.world.certificates], check=True)
        self.told(job, "The certificate is installed and ends at ")
        wait_until(lambda: alarm not in self.world.problems("open"), "the trouble is over")
