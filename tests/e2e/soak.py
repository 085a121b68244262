"""Many jobs through the scheduler with an authority that refuses every tenth nonce, while something is killed again and
again. Started by scripts/soak, which says what it takes."""
import argparse
import collections
import json
import os
import random
import signal
import sys
import threading
import time

import sandbox
from process import running
from world import AUTHORITY_ADDRESS, DIRECTORY_HOST, RESOLVERS, WEB_ADDRESS, World

REFUSED_NONCES = 10    # of a hundred
BETWEEN_KILLS = (1, 5)  # seconds, by chance
BETWEEN_RETRIES = 60   # seconds
BETWEEN_LOOKS = 0.05   # at the processes


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--binaries", required=True, type=os.path.abspath)
    parser.add_argument("--jobs", type=int, default=200)
    parser.add_argument("--kill", choices=["service", "plugin"], required=True)
    parser.add_argument("--limit", type=int, default=1800, help="seconds")
    parser.add_argument("--inside", help=argparse.SUPPRESS)
    options = parser.parse_args()
    if options.inside is None:
        sys.exit(sandbox.run([sys.executable, os.path.abspath(__file__), *sys.argv[1:], "--inside"]))
    sandbox.as_init(lambda: Soak(options).run())


class Soak:
    def __init__(self, options):
        self.options = options
        self.names = [f"site{number}.example" for number in range(options.jobs)]
        hosts = {DIRECTORY_HOST: AUTHORITY_ADDRESS} | {name: WEB_ADDRESS for name in self.names}
        sandbox.set_up_network(options.inside, hosts, RESOLVERS)
        self.world = World(os.path.join(options.inside, "world"), options.binaries)
        self.told = os.path.join(options.inside, "told")
        self.kills = 0
        self.twice = set()    # jobs of which two runs were seen at once
        self.runs = set()     # (job, process) seen
        self.ended = threading.Event()

    def run(self):
        try:
            self.start()
            watch = threading.Thread(target=self.watch)
            watch.start()
            begin = time.monotonic()
            verified = self.kill_until_all_are_verified(begin)
            self.ended.set()
            watch.join()
            return self.report(verified, time.monotonic() - begin)
        finally:
            self.ended.set()
            self.world.close()

    def start(self):
        self.world.start_pebble(refused_nonces=REFUSED_NONCES)
        # The limits of the production authority would be reached within the first minute.
        self.world.start_service(
            "--http-responder", f"{WEB_ADDRESS}:80", "--retry-interval", "1", "--runs-at-once", "8",
            "--failures-limit", "1000", "--orders-limit", "100000", "--public-resolvers", "off",
            "--notify-command", f"cat >> {self.told}; echo >> {self.told}", "--notify-interval", "1", scheduler="on")
        for name in self.names:
            self.world.add_domain(name)
            self.world.add_job(name, "--skip-account-check", "--csr", "key_type=ec")

    def kill_until_all_are_verified(self, begin):
        """Returns how many are."""
        next_retry = begin + BETWEEN_RETRIES
        while True:
            time.sleep(random.uniform(*BETWEEN_KILLS))
            jobs = self.world.ask("status")["jobs"]
            late = time.monotonic() - begin > self.options.limit
            print(f"  {time.monotonic() - begin:4.0f} s  {self.kills:3} kills  {jobs}", flush=True)
            if jobs["verified"] == len(self.names) or late:
                return jobs["verified"]
            self.kill()
            # A job whose nonces were refused four times in a row would wait for the better part of an hour.
            if time.monotonic() > next_retry:
                self.world.ask("job", "retry", "--all")
                next_retry = time.monotonic() + BETWEEN_RETRIES

    def kill(self):
        if self.options.kill == "service":
            self.world.service.process.send_signal(signal.SIGKILL)
            self.world.service.process.wait()
            self.world.restart_service()
        else:
            plugins = self.plugins()
            if not plugins:
                return
            try:
                os.kill(random.choice(plugins), signal.SIGKILL)
            except ProcessLookupError:
                return  # it was faster
        self.kills += 1

    def plugins(self):
        return running(self.world.binary("ambrin"), sandbox.others())

    def watch(self):
        """Two runs of one job at once would be seen here: a run takes seconds."""
        while not self.ended.wait(BETWEEN_LOOKS):
            jobs = collections.Counter()
            found = self.plugins()
            for pid in found:
                try:
                    with open(f"/proc/{pid}/cmdline", "rb") as file:
                        job = file.read().split(b"\0")[1].decode()
                    with open(f"/proc/{pid}/stat", "rb") as file:
                        parent = int(file.read().rpartition(b")")[2].split()[1])
                except (OSError, IndexError):
                    continue
                # A run that starts a tool is there twice for a moment.
                if parent not in found:
                    self.runs.add((job, pid))
                    jobs[job] += 1
            self.twice |= {job for job, count in jobs.items() if count > 1}

    def report(self, verified, seconds):
        delivered = collections.Counter()
        doubtful = 0
        if os.path.exists(self.told):
            with open(self.told, encoding="utf-8") as file:
                for line in filter(str.strip, file):
                    digest = json.loads(line)
                    doubtful += digest["doubtful"]
                    delivered.update((digest["recipient"], notice["number"]) for notice in digest["notices"])
        doubled = sum(1 for count in delivered.values() if count > 1)
        news = self.world.ask("problem", "list", "--state", "news")
        told = collections.Counter((notice["owner"], notice["parameters"]["name"]) for notice in news)
        rows = [("Jobs", len(self.names)), ("Verified", verified), (f"Kills of the {self.options.kill}", self.kills),
                ("Runs seen", len(self.runs)), ("Jobs of which two runs were seen at once", len(self.twice)),
                ("Successes told twice", sum(1 for count in told.values() if count > 1)),
                ("Notices delivered", len(delivered)), ("Notices delivered twice", doubled),
                ("Notices of which nobody knows whether they arrived", doubtful), ("Seconds", round(seconds))]
        for what, value in rows:
            print(f"{what:52} {value:>6}")
        return 0 if verified == len(self.names) and not self.twice and not doubled and max(told.values()) == 1 else 1


if __name__ == "__main__":
    main()
