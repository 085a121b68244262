"""A real Prometheus server reads the service's metrics, and evaluates the shipped alerts over them."""
import json
import os
import urllib.parse
import urllib.request

from fixture import WorldTest
from process import Background, wait_until

METRICS = "127.0.0.1:9117"
RULES = os.path.realpath(os.path.join(os.path.dirname(__file__), "../../packaging/prometheus/zelvek.rules.yml"))

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
