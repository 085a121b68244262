"""An administrator's day at the command line, with a real authority and web server."""
import os
import re

from ca import names_of, read
from fixture import WorldTest, account_key
from world import DIRECTORY_HOST, FAILURE, INSTALLED, TRIAL_HOST

EC = ("--csr", "key_type=ec", "--skip-account-check")  # quicker made than the default's RSA; pebble takes no check


# Behaviours of: Issuing
class Administration(WorldTest):
    def setUp(self):
        super().setUp()
        self.world.start_web({"shop.example": ["shop.example", "www.shop.example"], "blog.example": ["blog.example"]})
        self.world.start_pebble()
        self.world.start_service()
        self.world.take_account(account_key())
        for name in ("shop.example", "blog.example"):
            self.world.add_domain(name)
        self.job = self.world.add_job("shop.example", *EC)

    def shown(self, *arguments):
        run = self.world.zelvek(*arguments)
        self.assertEqual(run.process.returncode, 0, run.log())
        return run.log()

    # Behaviour: Status, lists of jobs and of certificates show what has been issued, and what waits
    def test_status_and_lists_show_what_has_been_issued_and_what_waits(self):
        run = self.world.zelvek("job", "run", self.job)
        self.assertEqual(run.process.returncode, INSTALLED)
        steps = re.findall(r"^\d\d:\d\d:\d\d  (.*)$", run.log(), re.MULTILINE)
        for step in ("the run begins for the certificate shop.example", "places the order", "has to prove shop.example",
                     "tells the authority that the answers are there", "asks for the certificate",
                     "the certificate has come, and is installed"):
            self.assertIn(step, steps)
        waiting = self.world.add_job("blog.example", *EC)
        self.assertEqual([job["id"] for job in self.world.ask("job", "list")], [waiting, self.job])
        self.assertRegex(self.shown("job", "list"), r"\n1   shop.example  anna  http   verified  [\d-]{10}  renews ")

        status = self.world.ask("status")
        self.assertEqual((status["jobs"]["verified"], status["jobs"]["waiting"], status["jobs"]["failed"]), (1, 1, 0))
        self.assertEqual([job["id"] for job in status["ending"]], [self.job])
        self.assertTrue(status["authority"].startswith(f"https://{DIRECTORY_HOST}/"))
        self.assertTrue(status["kid"].startswith(f"https://{DIRECTORY_HOST}/"))
        self.assertIn("What expires next", self.shown("status"))

        (certificate,) = self.world.ask("certificate", "list")
        self.assertEqual(certificate["names"], ["shop.example"])
        self.assertEqual((certificate["key_kind"], certificate["key_size"]), ("ec", 256))
        self.assertIn("CN=Pebble Intermediate CA", certificate["issuer"])
        self.assertTrue(os.path.samefile(os.path.join(certificate["path"], "cert.pem"),
                                         self.world.installed("shop.example", file="cert.pem")))
        self.assertEqual(certificate["served"], "unknown")

    # Behaviour: An edited job gets a certificate for its new names, and its old one stays until then
    def test_edited_job_gets_a_certificate_for_its_new_names(self):
        self.assertEqual(self.world.run_job(self.job), INSTALLED)
        before = read(self.world.installed("shop.example"))
        self.shown("job", "edit", self.job, "--alias", "www.shop.example")
        self.assertEqual(read(self.world.installed("shop.example")), before)
        self.assertFalse(self.world.job(self.job)["verified"])
        self.assertEqual(self.world.run_job(self.job), INSTALLED)
        after = read(self.world.installed("shop.example"))
        self.assertEqual(names_of("x509", after.encode()), ["shop.example", "www.shop.example"])

    # Behaviour: A certificate is tried with one authority and then issued by another, which know nothing of each other: each
    #   has an account of its own, and the first certificate stays until the second is there
    def test_certificate_is_tried_with_one_authority_and_then_issued_by_another(self):
        self.world.start_trial_authority()
        self.assertEqual(self.world.run_job(self.job), INSTALLED)
        job = self.world.add_job("blog.example", *EC, "--authority", "ambrin-trial")
        self.assertEqual(self.world.run_job(job), INSTALLED)
        trial = self.world.job(job)["kid"]
        self.assertTrue(trial.startswith(f"https://{TRIAL_HOST}/"))
        self.assertIn(("processing", "registration_success"), self.world.events(job))
        before = read(self.world.installed("blog.example"))
        self.shown("job", "edit", job, "--authority", "ambrin")
        self.assertEqual(read(self.world.installed("blog.example")), before)

        self.assertEqual(self.world.run_job(job), INSTALLED)
        self.assertNotEqual(read(self.world.installed("blog.example")), before)
        production = self.world.job(self.job)["kid"]
        self.assertEqual(self.world.job(job)["kid"], production)
        used = {one["name"]: (one["kid"], one["jobs"]) for one in self.world.ask("status")["authorities"]}
        self.assertEqual(used, {"ambrin": (production, 2), "ambrin-trial": (trial, 0)})

    # Behaviour: A paused job is not run, by hand neither, ...
    def test_paused_job_is_not_run_until_it_is_resumed(self):
        self.shown("job", "pause", self.job)
        refused = self.world.zelvek("job", "run", self.job)
        self.assertEqual(refused.process.returncode, FAILURE)
        self.assertIn(f"job {self.job} is paused", refused.log())
        self.assertEqual([job["id"] for job in self.world.ask("job", "list", "--state", "paused")], [self.job])
        self.assertEqual(self.world.events(self.job), [])
        self.shown("job", "resume", self.job)
        self.assertEqual(self.world.run_job(self.job), INSTALLED)

    # Behaviour: A removed job's certificate stays, or goes where that is asked for
    def test_removed_jobs_certificate_goes_where_that_is_asked_for(self):
        self.assertEqual(self.world.run_job(self.job), INSTALLED)
        place = os.path.dirname(self.world.installed("shop.example"))
        self.assertIn(place, self.shown("job", "remove", self.job))
        self.assertTrue(os.path.exists(os.path.join(place, "privkey.pem")))
        again = self.world.add_job("shop.example", *EC)
        self.assertIn(place, self.shown("job", "remove", again, "--certificate"))
        self.assertFalse(os.path.lexists(place))
        self.shown("domain", "remove", "shop.example")
