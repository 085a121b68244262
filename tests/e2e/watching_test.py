"""Who watches the service: a real Prometheus server with the shipped alerts, and the journal."""
import json
import os
import socket
import subprocess
import urllib.parse
import urllib.request

from ca import read, self_signed
from fixture import WorldTest
from process import Background, wait_until

METRICS = "127.0.0.1:9117"
ROOT = os.path.realpath(os.path.join(os.path.dirname(__file__), "../.."))
RULES = os.path.join(ROOT, "packaging/prometheus/zelvek.rules.yml")
PAGE = os.path.join(ROOT, "docs/watching.md")

CONFIG = """
global: {{scrape_interval: 1s, evaluation_interval: 1s}}
rule_files: ["{rules}"]
scrape_configs:
  - job_name: zelvek
    static_configs: [{{targets: ["{metrics}"]}}]
"""


# Behaviours of: Watching the service
class Watching(WorldTest):
    def setUp(self):
        super().setUp()
        self.world.start_service("--metrics-listen", METRICS)
        self.world.add_domain("shop.example")
        self.world.add_job("shop.example")
        config = self.world.path("prometheus.yml")
        with open(config, "w", encoding="utf-8") as file:
            file.write(CONFIG.format(rules=RULES, metrics=METRICS))
        self.prometheus = Background("prometheus", ["prometheus", f"--config.file={config}", "--web.listen-address=127.0.0.1:9090",
                                                    f"--storage.tsdb.path={self.world.path('tsdb')}"],
                                     self.world.log_path("prometheus"))
        self.addCleanup(self.prometheus.stop)
        self.prometheus.wait_ready(lambda: "Server is ready to receive web requests" in self.prometheus.log())

    def asked(self, path, **parameters):
        url = f"http://127.0.0.1:9090/api/v1/{path}?{urllib.parse.urlencode(parameters)}"
        with urllib.request.build_opener(urllib.request.ProxyHandler({})).open(url, timeout=30) as answer:
            return json.load(answer)["data"]

    def value(self, query):
        result = self.asked("query", query=query)["result"]
        return [float(each["value"][1]) for each in result]

    # Behaviour: A Prometheus server reads the metrics as they are, and evaluates both shipped alerts over them
    def test_prometheus_reads_the_metrics_and_evaluates_the_alerts(self):
        wait_until(lambda: self.value('zelvek_jobs{state="waiting"}') == [1], "the waiting job is seen")
        self.assertEqual(self.value('up{job="zelvek"}'), [1])
        self.assertEqual(len(self.value("zelvek_build_info")), 1)
        self.assertEqual(self.value("zelvek_run_duration_seconds_count"), [0])

        def rules():
            (group,) = self.asked("rules")["groups"]
            return group["rules"] if all(rule["health"] != "unknown" for rule in group["rules"]) else None

        found = {rule["name"]: (rule["health"], rule["state"]) for rule in wait_until(rules, "the alerts are evaluated")}
        self.assertEqual(found, {"ZelvekCertificateEnds": ("ok", "inactive"), "ZelvekJobsNotStarted": ("ok", "inactive")})


class Journal:
    """Takes what is sent to the system's journal, in the socket's native protocol; the rest of /run is out of sight."""

    def __init__(self):
        subprocess.run(["mount", "-t", "tmpfs", "tmpfs", "/run"], check=True)
        os.makedirs("/run/systemd/journal")
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.bind("/run/systemd/journal/socket")
        self._socket.setblocking(False)
        self.entries = []

    def close(self):
        self._socket.close()
        subprocess.run(["umount", "/run"], check=True)

    def events(self):
        """By their word, the last one of each."""
        try:
            while True:
                lines = self._socket.recv(65536).decode().splitlines()
                self.entries.append(dict(line.split("=", 1) for line in lines))
        except BlockingIOError:
            return {entry["EVENT"]: entry for entry in self.entries}


class Journalled(WorldTest):
    def setUp(self):
        super().setUp()
        self.journal = Journal()
        self.addCleanup(self.journal.close)
        log = self.world.log_path("service")
        with open(log, "wb") as file:
            there = os.fstat(file.fileno())
        os.environ["JOURNAL_STREAM"] = f"{there.st_dev}:{there.st_ino}"
        self.addCleanup(os.environ.pop, "JOURNAL_STREAM")

    # Behaviour: Where standard error is the journal, what people watch for has its job, certificate, kind and outcome in fields
    #   of their own, and no line besides
    def test_what_people_watch_for_has_fields_in_the_journal(self):
        self.world.start_service(scheduler="on", reload_command="echo no web server; exit 7")
        self.world.add_domain("shop.example")
        job = self.world.add_job("shop.example")
        # No authority is there.
        ended = wait_until(lambda: self.journal.events().get("run_ended"), "the run has ended")
        of_job = {"JOB_ID": str(job), "CERTNAME": "shop.example", "CERTUSER": "anna", "SYSLOG_IDENTIFIER": "zelvek", "PRIORITY": "6"}
        self.assertLessEqual((of_job | {"OUTCOME": "failing"}).items(), ended.items())
        began = self.journal.events()["run_began"]
        self.assertLessEqual(of_job.items(), began.items())
        self.assertTrue(began["MESSAGE"].startswith(f"job {job}: run started, process "))
        self.assertNotIn("run started", self.world.service.log())
        self.installs_and_fails_to_reload()
        self.assertEqual(self.world.service.stop(), 0)
        self.assertIn("service_began", self.journal.events())
        self.assertEqual(self.journal.events()["service_ends"]["MESSAGE"], "ending on signal 15")
        identities = {entry["EVENT"]: entry["MESSAGE_ID"] for entry in self.journal.entries}
        self.assertEqual(len(set(identities.values())), len(identities))
        with open(PAGE, encoding="utf-8") as page:
            text = page.read()
        for event, identity in identities.items():
            self.assertIn(f"| `{event}` | `{identity}` |", text)

    def installs_and_fails_to_reload(self):
        folder = self.world.path("made")
        self_signed(folder, "other.example")
        self.world.query("sslcert.hardreplace", user="anna", elid="anna%#%other.example", cacrt="",
                         crt=read(f"{folder}/fullchain.pem"), key=read(f"{folder}/privkey.pem"))
        of_certificate = {"CERTNAME": "other.example", "CERTUSER": "anna", "SYSLOG_IDENTIFIER": "zelvek"}
        wanted = {"certificate_installed": {"PRIORITY": "6", "MESSAGE": "anna's certificate other.example is installed"},
                  "notice_raised": {"PRIORITY": "4", "OUTCOME": "web_server_reload"},
                  "reload_failed": {"PRIORITY": "4"}}
        for event, fields in wanted.items():
            entry = wait_until(lambda event=event: self.journal.events().get(event), f"{event} is in the journal")
            self.assertLessEqual((of_certificate | fields).items(), entry.items())
            self.assertNotIn("JOB_ID", entry)
        self.assertIn("no web server", self.journal.events()["reload_failed"]["OUTCOME"])
        self.assertNotIn("PRIVATE KEY", "".join(value for entry in self.journal.entries for value in entry.values()))

    # Behaviour: Where standard error is another file than the one that the service manager has named, lines are plain
    def test_another_file_than_the_journal_has_plain_lines(self):
        os.environ["JOURNAL_STREAM"] += "0"
        self.world.start_service()
        self.assertEqual(self.world.service.stop(), 0)
        self.assertIn(" zelvek: ending on signal 15\n", self.world.service.log())
        self.assertEqual(self.journal.events(), {})
