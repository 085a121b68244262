"""People are told, by real mails through a real service: all at once, until it is accepted, and nothing twice."""
import email
import email.policy
import json
import os
import signal
import stat
import time

import sandbox
from fixture import WorldTest
from mail_server import MailServer
from process import wait_until

ADDRESS, PORT = "127.0.0.4", 2525
TLS_HOST, TLS_ADDRESS, TLS_PORT = "mail.shop.example", "127.0.0.3", 4650
ADMINISTRATOR = "admin@panel.example"


class Notices(WorldTest):
    def start_mail_server(self, address=ADDRESS, port=PORT, certificate=None):
        server = MailServer(address, port, certificate)
        self.addCleanup(server.stop)
        return server

    def start_service(self, *options, interval=5, url=f"smtp://{ADDRESS}:{PORT}"):
        self.world.start_service("--sweep-interval", "0.1", "--notify-mail", ADMINISTRATOR, "--notify-from",
                                 "zelvek@panel.example", "--notify-interval", str(interval), "--notify-smtp", url, *options)

    def register(self, **parameters):
        """As a plug-in does; each has an id of its own."""
        self.world.query("problems.register", sok="ok", level="error", id=os.urandom(8).hex(), **parameters)

    def fail(self, name, owner="root"):
        self.register(name="ambrin_failed_admin" if owner == "root" else "ambrin_failed_user", owner=owner,
                      param_name=name, param_error="the authority says no")

    def log(self):
        return self.world.service.log()

    def scripted_sendmail(self, name, ending):
        """Keeps each mail in a file of its own, then does `ending`."""
        folder = self.world.path("mails")
        os.makedirs(folder, exist_ok=True)
        program = self.world.path(name)
        with open(program, "w", encoding="ascii") as file:
            file.write(f'#!/bin/sh\nmail=$(mktemp {folder}/.XXXXXX)\ncat > "$mail"\n'
                       f'mv "$mail" {folder}/$(basename "$mail" | tr -d .)\n{ending}\n')
        os.chmod(program, stat.S_IRWXU)
        return program

    def kept_mails(self):
        folder = self.world.path("mails")
        mails = []
        for name in os.listdir(folder):
            if not name.startswith("."):
                with open(os.path.join(folder, name), "rb") as file:
                    mails.append(parsed(file.read()))
        return mails

    # Behaviours of: Notices

    # Behaviour: Forty failures are one mail, which a mail server that has refused it at first gets when it accepts
    #   it, and nothing of it comes a second time
    def test_forty_failures_are_one_mail(self):
        server = self.start_mail_server()
        server.behaviour = "refuse"
        self.start_service()
        names = [f"site{number}.example" for number in range(39)] + ["bücher.example"]
        for name in names:
            self.fail(name)
        wait_until(lambda: self.log().count("451") >= 2, "the server refuses twice")
        self.assertEqual(server.messages, [])
        server.behaviour = "accept"
        wait_until(lambda: server.messages, "the mail is accepted")

        self.fail("later.example")
        wait_until(lambda: len(server.messages) == 2, "the next mail is accepted")
        (recipient, first), (_, second) = ((to, parsed(message)) for to, message in server.messages)
        self.assertEqual(recipient, f"TO:<{ADMINISTRATOR}>")
        self.assertEqual((first["To"], first["From"]), (ADMINISTRATOR, "zelvek@panel.example"))
        self.assertRegex(first["Subject"], "^40 notices, first: The certificate .* could not be issued$")
        self.assertEqual([name for name in names if name not in first.get_content()], [])
        self.assertEqual(second["Subject"], "The certificate later.example could not be issued")
        self.assertNotIn("site1.example", second.get_content())
        self.assertNotEqual(first["Message-ID"], second["Message-ID"])

    # Behaviour: A job that is stopped is told by mail to the administrator, its user and its further addressee, each
    #   at the own address
    def test_stopped_job_is_told_to_everybody_concerned(self):
        server = self.start_mail_server()
        with open(self.world.path("addresses"), "w", encoding="ascii") as file:
            file.write("anna=anna@shop.example\nteam=team@shop.example\n")
        self.start_service("--notify-addresses", self.world.path("addresses"))
        self.world.add_domain("shop.example")
        job = self.world.add_job("shop.example", "--res-name", "team", "--csr", "key_type=ec")
        self.world.age_job(job, hours=25)
        self.world.run_job(job)
        wait_until(lambda: len(server.messages) == 3, "three mails")
        told = {to: parsed(message)["Subject"] for to, message in server.messages}
        subject = "The certificate shop.example could not be issued"
        self.assertEqual(told, {f"TO:<{to}>": subject for to in (ADMINISTRATOR, "anna@shop.example", "team@shop.example")})

    # Behaviour: A mail that a program had when the service was killed does not go out again; the next mail tells that
    #   something may be missing
    def test_killed_service_hands_nothing_over_twice(self):
        released = self.world.path("released")
        slow = self.scripted_sendmail("slow", f"while ! test -e {released}; do sleep 0.1; done")
        quick = self.scripted_sendmail("quick", "exit 0")

        def release():
            open(released, "w", encoding="ascii").close()
            wait_until(lambda: len(sandbox.others()) == 1, "the slow program ends, the service stays")

        self.addCleanup(release)
        options = ("--sweep-interval", "0.1", "--notify-mail", ADMINISTRATOR, "--notify-interval", "5", "--notify-sendmail")
        self.world.start_service(*options, slow)
        self.fail("first.example")
        wait_until(self.kept_mails, "the program has the mail")
        self.world.stop_service(signal.SIGKILL)

        self.world.start_service(*options, quick)
        self.assertIn("it is not known whether", self.log())
        self.fail("second.example")
        wait_until(lambda: len(self.kept_mails()) == 2, "the second mail")
        self.fail("third.example")
        wait_until(lambda: len(self.kept_mails()) == 3, "the third mail")
        texts = sorted(mail["Subject"] + mail.get_content() for mail in self.kept_mails())
        self.assertEqual([[name in text for text in texts].count(True) for name in ("first.", "second.", "third.")], [1, 1, 1])
        self.assertEqual([("whether 1 earlier notices" in " ".join(text.split())) for text in texts], [False, True, False])

    # Behaviour: A mail that a mail server surely did not have when the service was killed goes out with the next
    #   service; a server that says nothing holds up no query
    def test_killed_service_hands_over_what_nobody_has(self):
        server = self.start_mail_server()
        server.behaviour = "mute"
        self.start_service()
        self.fail("first.example")
        wait_until(lambda: server.connections, "the service waits for the mail server")
        before = time.monotonic()
        self.world.add_domain("shop.example")
        self.assertTrue(self.world.add_job("shop.example", "--csr", "key_type=ec"))
        self.assertEqual(len(self.world.ask("problem", "list")), 1)
        self.assertLess(time.monotonic() - before, 30, "a delivery may take sixty seconds")
        self.world.stop_service(signal.SIGKILL)

        server.behaviour = "accept"
        self.start_service()
        wait_until(lambda: server.messages, "the mail")
        self.assertNotIn("it is not known whether", self.log())
        self.assertIn("first.example", parsed(server.messages[0][1])["Subject"])
        self.fail("second.example")
        wait_until(lambda: len(server.messages) == 2, "the next mail")
        self.assertIn("second.example", parsed(server.messages[1][1])["Subject"])

    # Behaviour: A mail that a mail server takes without a word comes again under the same Message-ID
    def test_mail_of_unknown_outcome_bears_the_same_message_id(self):
        server = self.start_mail_server()
        server.behaviour = "vanish"
        self.start_service()
        self.fail("first.example")
        wait_until(lambda: server.messages, "the first trial")
        server.behaviour = "accept"
        wait_until(lambda: "delivered" in self.log(), "the second trial")
        first, second = (parsed(message) for _, message in server.messages[-2:])
        self.assertEqual(first["Message-ID"], second["Message-ID"])
        self.assertEqual(first.get_content(), second.get_content())

    # Behaviour: A mail server is spoken to by TLS where that is asked for, and only one with a trusted certificate
    def test_mail_by_tls(self):
        server = self.start_mail_server(TLS_ADDRESS, TLS_PORT, self.world.ca.server(TLS_HOST))
        self.start_service(url=f"smtps://{TLS_HOST}:{TLS_PORT}")
        self.fail("first.example")
        wait_until(lambda: server.messages, "the mail")
        self.world.stop_service()
        self.start_service(url=f"smtps://{TLS_ADDRESS}:{TLS_PORT}")
        self.fail("second.example")
        wait_until(lambda: "certificate" in self.log(), "the service refuses the server's certificate")
        self.assertEqual(len(server.messages), 1)

    # Behaviour: A command gets each recipient's notifications, and what it does not accept again
    def test_command_gets_json(self):
        out = self.world.path("out")
        self.world.start_service("--sweep-interval", "0.1", "--notify-interval", "5", "--notify-command",
                                 f"cat >> {out}; test $(wc -l < {out}) -gt 1")
        self.fail("shop.example", owner="anna")
        wait_until(lambda: "delivered" in self.log(), "the second trial")
        with open(out, encoding="utf-8") as file:
            digests = [json.loads(line) for line in file]
        self.assertEqual([(digest["recipient"], digest["notices"][0]["parameters"]["name"]) for digest in digests],
                         [("anna", "shop.example")] * 2)

    # Behaviour: A service with notice texts that cannot be read does not start, and says where the mistake is
    def test_mistake_in_texts_is_told(self):
        texts = self.world.path("texts")
        with open(texts, "w", encoding="utf-8") as file:
            file.write("[ambrin_success]\nSubject: {nmae}\nx\n")
        with self.assertRaisesRegex(AssertionError, r"texts:1: \[ambrin_success\] has no parameter \{nmae\}"):
            self.start_service("--notice-texts", texts)
        self.world.service = None


def parsed(message):
    """Every line is short and ASCII."""
    longest = max(len(line) for line in message.splitlines())
    if longest > 78 or not message.isascii():
        raise AssertionError(f"no mail for every server: {message}")
    return email.message_from_bytes(message, policy=email.policy.default)
