"""The style rfc8555 against pebble as it is: strict, finalizing in its own time, refusing nonces, reusing authorizations."""
from ca import names_of
from fixture import SharedWorldTest
from pebble import ISSUED
from process import wait_until
from world import FAILURE, INSTALLED, WAITING, WEB_ADDRESS

REFUSED_NONCES = 15  # of a hundred
EC = ("--csr", "key_type=ec")
HTTP, DNS, RENEWED = "shop.example", "wild.example", "blog.example"
HTTP_NAMES = [f"mail.{HTTP}", HTTP, f"www.{HTTP}"]


# Behaviours of: Issuing
class ByTheLetter(SharedWorldTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.world.start_dns({domain: {"@": WEB_ADDRESS, "www": WEB_ADDRESS, "mail": WEB_ADDRESS} for domain in (HTTP, DNS, RENEWED)})
        cls.world.start_web({HTTP: HTTP_NAMES, DNS: [DNS, f"*.{DNS}"], RENEWED: [RENEWED]})
        cls.world.start_bare_pebble(refused_nonces=REFUSED_NONCES)
        cls.world.start_service()
        for domain in (HTTP, DNS, RENEWED):
            cls.world.add_domain(domain)

    def issue(self, job):
        """Runs the job until its certificate is installed. A run that was refused three nonces in a row costs another run;
        nothing else does, and no run orders again what the one before has ordered."""
        issued, lost = self.issued(), 0
        for _ in range(10):
            status = self.world.run_job(job)
            if status == INSTALLED:
                break
            self.assertIn(status, (FAILURE, WAITING))
            lost += status == FAILURE
        self.assertEqual(status, INSTALLED)
        failures = [event["detail"] for event in self.world.job(job)["events"] if event["state"] == "failed"]
        self.assertEqual([detail for detail in failures if "anti-replay nonce" not in detail], [])
        self.assertLessEqual(self.issued() - issued, 1 + lost)

    def issued(self):
        return len(ISSUED.findall(self.world.pebble.log()))

    def trusted(self, name):
        """The certificate that the web server shows for the name, which has to be pebble's."""
        return self.world.web.wait_trusted(name, self.world.path("pebble-root.pem"))

    # Behaviour: In the style rfc8555 a strict authority that finalizes in its own time, and refuses one nonce in seven, issues
    #   for three names over http-01, no certificate twice
    def test_three_names_over_http(self):
        self.issue(self.world.add_job(HTTP, "--alias", f"www.{HTTP}", "--alias", f"mail.{HTTP}", *EC))
        for name in HTTP_NAMES:
            self.assertEqual(names_of("x509", self.trusted(name).encode()), HTTP_NAMES)
        self.assertEqual(self.world.answer_files(), [])

    # Behaviour: In the style rfc8555 it issues for a wildcard and its domain over dns-01
    def test_wildcard_and_its_domain_over_dns(self):
        self.issue(self.world.add_job(DNS, "--alias", f"*.{DNS}", "--check", "dns", *EC))
        self.assertEqual(names_of("x509", self.trusted(f"any.{DNS}").encode()), [f"*.{DNS}", DNS])
        self.assertEqual(self.world.dns.look_up(f"_acme-challenge.{DNS}", "TXT"), [])

    # Behaviour: In the style rfc8555 it renews with the authorization of the first time, once the account is checked
    def test_renewal_with_the_authorization_of_the_first_time(self):
        job = self.world.add_job(RENEWED, *EC)
        self.issue(job)
        first, published = self.trusted(RENEWED), self.world.events(job).count(("processing", "challenge_start"))
        self.assertEqual(self.world.zelvek("job", "renew", job).process.returncode, 0)
        self.issue(job)
        wait_until(lambda: self.trusted(RENEWED) != first, "the new certificate is shown")
        self.assertEqual(self.world.events(job).count(("processing", "challenge_start")), published)
        log = self.world.pebble.log()
        for said in (f"reject {REFUSED_NONCES}% of good nonces", "POST /my-account/", "POST /my-order/"):
            self.assertIn(said, log)
