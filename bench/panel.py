"""What a panel of a given size keeps, written straight into a database that the service has made."""
import base64
import os
import random
import sqlite3
from datetime import datetime, timedelta, timezone

BIG_USER = "reseller"  # owns a fifth of all jobs
JOBS_OF_A_USER = 20  # of anybody else, at the least
EVENTS_OF_A_RUN = 7  # a run writes its events together, so a job's history lies in several places of the file
FAILED, WAITING = {0}, {1, 2, 3}  # of ten jobs; the others are verified
DEAD = (4194303, 1)  # process id and start time of nobody
DEFAULT_ACCOUNT = 1
# What a job's folder and names are, the service finds out by itself where it is told that they are missing.
SETTINGS = {"default_account": str(DEFAULT_ACCOUNT), "folders_missing": "", "names_missing": ""}


def date_time(days_from_now=0.0):
    return (datetime.now(timezone.utc) + timedelta(days=days_from_now)).strftime("%Y-%m-%d %H:%M:%S")


class Panel:
    """So many jobs with all that belongs to them. Same size, same content."""

    def __init__(self, jobs, events):
        self.jobs, self.events = jobs, events
        self.users = max(1, jobs // 25)
        self.accounts = max(2, jobs // 40)
        self.notifications = jobs // 2
        self.waiting_jobs = [job for job in range(1, jobs + 1) if kind(job) in WAITING]
        # Half of those that are made due are the big user's.
        big = [job for job in self.waiting_jobs if self.owner(job) == BIG_USER]
        self.due_jobs = [job for job in self.waiting_jobs if job not in big[:5]][:9] + big[:5]

    def __str__(self):
        return (f"{self.jobs:,} jobs, {self.events} events each, {self.accounts:,} accounts, "
                f"{self.notifications:,} notifications")

    def fill(self, file):
        connection = sqlite3.connect(file, isolation_level=None)
        # Nobody else has the file, and if this fails it is thrown away.
        connection.execute("PRAGMA journal_mode = OFF")
        connection.execute("PRAGMA synchronous = OFF")
        named = "SELECT name, sql FROM sqlite_master WHERE type = 'index' AND sql <> ''"
        indexes = connection.execute(named).fetchall()
        connection.execute("BEGIN")
        for name, _ in indexes:
            connection.execute(f"DROP INDEX {name}")
        self._fill_jobs(connection)
        self._fill_events(connection)
        self._fill_rest(connection)
        for _, sql in indexes:
            connection.execute(sql)
        connection.execute("COMMIT")
        connection.execute("PRAGMA journal_mode = WAL")
        connection.close()
        # What is still on its way to the disk would slow the first commits down.
        os.sync()

    def _fill_jobs(self, connection):
        insert(connection, "account", ({"id": number, **account(number)} for number in range(1, self.accounts + 1)))
        insert(connection, "setting", [{"name": name, "value": value} for name, value in SETTINGS.items()])
        insert(connection, "job", (job_row(job, self) for job in range(1, self.jobs + 1)))

    def account_of(self, job):
        """Half of the jobs use the panel-wide account."""
        return DEFAULT_ACCOUNT if job % 2 else 2 + job % (self.accounts - 1)

    def _fill_events(self, connection):
        def rows():
            for first in range(0, self.events, EVENTS_OF_A_RUN):
                time = date_time(-300 + 250 * first / self.events)
                for job in range(1, self.jobs + 1):
                    for event in range(first, min(first + EVENTS_OF_A_RUN, self.events)):
                        yield {"job": job, "time": time, "state": "processing", "event": EVENTS[event % len(EVENTS)],
                               "detail": f"https://authority.example/order/{job}/{event}" if event % 3 == 0 else ""}

        insert(connection, "job_event", rows())

    def _fill_rest(self, connection):
        insert(connection, "domain", ({"name": site(job), "ascii": site(job), "user_name": self.owner(job)}
                                      for job in range(1, self.jobs + 1)))
        insert(connection, "problem", (
            {"number": number, "id": f"ambrin_{number}", "name": "ambrin_failed", "level": "error",
             "owner": self.owner(number), "time": date_time(-300 + 250 * number / self.notifications),
             "state": "raised", "unsolved": 1, "user_name": self.owner(number), "about": site(number)}
            for number in range(1, self.notifications + 1)))
        insert(connection, "problem_parameter", (
            {"problem": number, "name": name, "value": f"{name} of {site(number)}"}
            for number in range(1, self.notifications + 1) for name in ("certname", "domain", "error")))
        insert(connection, "publication", (
            {"zone": zone, "name": f"token-{job}", "value": f"value-{job}", "user_name": self.owner(job), "job": job,
             "pid": DEAD[0], "start": DEAD[1], "kept": 1, "unwanted": 0}
            for job in self.waiting_jobs[::10] for zone in ("", site(job))))

    def owner(self, job):
        return BIG_USER if job % 5 == 0 else f"user{job % self.users}"


EVENTS = ["registration_try", "registration_success", "order_success", "challenge_success", "finalize_success",
          "cert_order_success", "cert_recived"]


def kind(job):
    """Spreads the states over jobs and owners, without chance."""
    return (job * 7 + job // 10) % 10


def site(job):
    return f"site{job}.example"


def account(number):
    """The texts of an RSA key of 4096 bits, in size; nobody signs with them."""
    chance = random.Random(number)
    body = base64.encodebytes(chance.randbytes(2360)).decode()
    public = base64.urlsafe_b64encode(chance.randbytes(512)).decode().rstrip("=")
    return {"kid": f"https://authority.example/account/{number}",
            "acmekey": f"-----BEGIN {'PRIVATE'} KEY-----\n{body}-----END {'PRIVATE'} KEY-----\n",
            "modulus": f'{{"e":"AQAB","kty":"RSA","n":"{public}"}}'}


def job_row(job, panel):
    waiting, failed = kind(job) in WAITING, kind(job) in FAILED
    order = f"https://authority.example/order/{job}"
    ends = {} if waiting or failed else {"expires": date_time(60 + job % 30), "renew": renewal(job),
                                         "notice_due": renewal(job)}
    fresh = {"expires": "", "renew": "", "notice_due": ""}
    return {"id": job, "certname": site(job), "domain": site(job), "user_name": panel.owner(job),
            "aliases": f"{site(job)} www.{site(job)}", "check_type": "http" if job % 3 else "dns",
            "csr_internal_request": f"certname_ascii={site(job)}&key_type=rsa", "time_started": date_time(-40),
            "account": panel.account_of(job), "due": due(job),
            "next_attempt": due(job) if waiting else "", "finalize": order + "/finalize", "finalize_check": order,
            "challenges": challenges(job) if waiting else "", "attempt_count": job % 5,
            "verified": int(not waiting and not failed), "failed": int(failed), "last_run": date_time(-1),
            **fresh, **ends}


def renewal(job):
    return date_time(30 + job % 30)


def challenges(job):
    return "".join(f'{{"auth":"https://authority.example/authz/{job}/{name}","digest":"{"d" * 43}",'
                   f'"domain":"{name}.{site(job)}","token":"{"t" * 43}","type":"http-01"}},' for name in ("a", "b"))


def due(job):
    """Later than any measurement lasts, and within the day that a job may wait."""
    return date_time(0.2 + job % 1000 / 2000)


def insert(connection, table, rows):
    rows = iter(rows)
    first = next(rows, None)
    if first is None:
        return
    columns = ", ".join(first)
    places = ", ".join(":" + column for column in first)
    statement = f"INSERT INTO {table} ({columns}) VALUES ({places})"
    connection.execute(statement, first)
    connection.executemany(statement, rows)


def change(file, statement, rows):
    """The service must be stopped."""
    connection = sqlite3.connect(file)
    connection.executemany(statement, rows)
    connection.commit()
    connection.close()


def set_due(file, jobs, time):
    """Has these jobs wait for a run at that time. The service must be stopped."""
    change(file, "UPDATE job SET last_run = '', next_attempt = :time, due = :time, processing = 0, failures = 0"
                 " WHERE id = :job", [{"time": time, "job": job} for job in jobs])


def forget_accounts(file, jobs):
    """Nobody has registered for these jobs, or for the panel, yet. The service must be stopped."""
    change(file, "UPDATE job SET account = NULL WHERE id = ?", [(job,) for job in jobs])
    change(file, "DELETE FROM setting WHERE name = ?", [("default_account",)])


def restore_accounts(file, jobs):
    """Undoes `forget_accounts`."""
    change(file, "UPDATE job SET account = ? WHERE id = ?", [(DEFAULT_ACCOUNT, job) for job in jobs])
    change(file, "INSERT INTO setting (name, value) VALUES (?, ?)", [("default_account", str(DEFAULT_ACCOUNT))])
