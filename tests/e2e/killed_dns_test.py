"""dns-01 jobs of which one of the two runs is ended at any of its steps outside: they finish, or their day ends them."""
from process import wait_until
from steps import FAILED_TOLD, INSTALLED_TOLD, KILLED_PLUGIN, KILLED_SERVICE, TERMINATED_PLUGIN, StepTest
from world import FAILURE, INSTALLED, NOTHING_TO_DO, WAITING, WEB_ADDRESS

STOPPED_TOLD = [("ambrin_pause", "anna"), ("ambrin_pause", "root"), *FAILED_TOLD]


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

    def check_finished(self, certname, statuses, *_, more_told=()):
        self.assertIn(statuses, ([INSTALLED], [WAITING, INSTALLED], [NOTHING_TO_DO]))
        self.check(certname, statuses, [*INSTALLED_TOLD, *more_told])

    def check_stopped(self, certname, statuses):
        """The records are looked for in vain until the day is over; what was installed before stays installed."""
        self.assertEqual(statuses, [WAITING, FAILURE])
        self.check(certname, statuses, STOPPED_TOLD, perhaps=INSTALLED_TOLD)

    # Behaviour: A dns-01 job's first run, killed at any of its 17 steps, costs one more run
    def test_first_run_killed_costs_one_more_run(self):
        self.end_at_every_step(KILLED_PLUGIN, self.check_finished)

    # Behaviour: Terminated between the last authorization and the publication (steps 13 and 14 of 17), its challenges
    #   are stored and never published: later runs look for the records in vain, and the day ends the job with everybody
    #   told
    def test_first_run_terminated_finishes_unless_its_order_was_stored_and_not_published(self):
        # The challenges are in the record from the last authorization on, and later runs only look for their records.
        first = self.publishing.index("authorization") + 1

        def check(certname, statuses, number, step, end):
            if first < number < self.publishing.index("domain.record.edit") and step == "child":
                self.check_stopped(certname, statuses)
            elif (number, end.moment) == (first, "answered") and FAILURE in statuses:
                self.check_stopped(certname, statuses)  # the answer came in one piece, and the signal was seen after it
            else:
                self.check_finished(certname, statuses)

        self.end_at_every_step(TERMINATED_PLUGIN, check)

    # Behaviour: So does the day when the publication is lost with the service (steps 15 and 16 of 17), since the record
    #   is stored before it is published
    def test_first_run_finishes_after_the_service_was_killed_unless_its_publication_was_lost(self):
        def check(certname, statuses, number, step, end):
            if (step, end.moment) in (("domain", "sent"), ("domain", "answered"), ("domain.record.edit", "sent")):
                self.check_stopped(certname, statuses)
            else:
                self.check_finished(certname, statuses)

        self.end_at_every_step(KILLED_SERVICE, check)

    # Behaviour: A dns-01 job's second run, killed at any of its 21 steps before the records are removed, costs one more
    #   run; killed between that and its write-back (steps 13 to 21), the stored challenges have no records any more,
    #   and the day ends the job with everybody told
    # Behaviour: After all of these the database is sound ...
    def test_second_run_killed_is_made_up_for_unless_it_has_removed_the_records_already(self):
        removal = self.checking.index("domain.record.delete") + 1

        def check(certname, statuses, number, step, end):
            written = statuses == [NOTHING_TO_DO]
            if end.moment == "sent" and step in ("domain.record.delete", "ambrin.data.edit"):
                stopped = FAILURE in statuses  # the service may have been told in time, or may not
            else:
                stopped = number > removal or (number, end.moment) == (removal, "answered")
            if stopped and not written:
                self.check_stopped(certname, statuses)
            else:
                self.check_finished(certname, statuses)

        self.end_at_every_step(KILLED_PLUGIN, check, run=1)

    # Behaviour: Terminated at any step it is made up for by later runs
    def test_second_run_terminated_is_made_up_for(self):
        self.end_at_every_step(TERMINATED_PLUGIN, self.check_finished, run=1)

    # Behaviour: A service that is killed in the second run costs further runs, unless the final write-back is lost with
    #   it (step 21 of 21): then the day ends the job
    # Behaviour: A stopped job that somebody runs gets another ...
    # Behaviour: An installation whose answer is lost with ...
    def test_second_run_is_made_up_for_after_the_service_was_killed_unless_its_write_back_was_lost(self):
        telling = self.checking.index("problems.register") + 1

        def check(certname, statuses, number, step, end):
            if (number, end.moment) == (len(self.checking), "sent"):
                self.check_stopped(certname, statuses)
            elif end.moment != "ahead" and step == "problems.register":
                # A notification that fails is not sent again, and those after it are not sent at all.
                self.check(certname, statuses, INSTALLED_TOLD[:number - telling + (end.moment == "answered")])
            elif end.moment != "ahead" and step == "sslcert.hardreplace":
                self.check_finished(certname, statuses, more_told=FAILED_TOLD)
            else:
                self.check_finished(certname, statuses)

        self.end_at_every_step(KILLED_SERVICE, check, run=1)
