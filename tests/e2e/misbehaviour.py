"""What an authority can do wrong, what the record then says, and the common ground of the tests about it."""
import dataclasses
import email.utils
import itertools
import json
import os
import re
import time

from authority import problem
from fixture import SharedWorldTest, account_key
from process import LONG
from tls_server import Answer, json_answer
from world import DIRECTORY_HOST, INSTALLED

BASE = f"https://{DIRECTORY_HOST}"
HUGE = b'{"status": "valid", "padding": "' + b"x" * 100_000_000 + b'"}'
NONCE_REFUSED = "this nonce was not given, or has been used"


class Matching:
    """Equals every text that the pattern describes as a whole."""

    def __init__(self, pattern):
        self._pattern = pattern

    def __eq__(self, text):
        return re.fullmatch(self._pattern, text, re.S) is not None

    def __repr__(self):
        return f"<{self._pattern}>"


def told(code, details):
    """The detail of the event that tells of an authority's refusal."""
    return f"<p><b>Return code:</b> {code}</p></br><p><b>Details:</b> {details}</p>"


def broken(resource, reason=".+"):
    """The detail of the event that tells of an exchange that broke: host, reason, URL."""
    url = f"{BASE}/{resource}"
    return Matching(f".*{re.escape(DIRECTORY_HOST)}: {reason}<br>url: {re.escape(url)}(/[^ ]*)?")


def no_url(text):
    """The detail of the event where what should be asked is no URL of the web."""
    return f'http: url: "{text}" is no http or https URL<br>url: {text}'


def html(status):
    return Answer(status, {"Content-Type": "text/html"}, b"<html><h1>not what you asked for</h1></html>")


def redirect(status=302):
    return Answer(status, {"Location": f"{BASE}/elsewhere"}, b"")


def cut(proper):
    if not proper.body:
        proper.status, proper.body = 200, b"nothing of use"
    proper.cut_at = len(proper.body) // 2
    return proper


def changed(change):
    """The proper answer, after `change(value)` of the JSON in it."""
    def spoil(proper):
        value = json.loads(proper.body)
        change(value)
        proper.body = json.dumps(value).encode()
        return proper

    return spoil


def later(answer, delay):
    """The answer, with the wish to be asked again after the delay only."""
    answer.headers["Retry-After"] = delay
    return answer


def date_in(seconds):
    """The other form of "retry-after" (RFC 9110, section 10.2.3)."""
    return email.utils.formatdate(time.time() + seconds, usegmt=True)


def limited(status):
    return problem("rateLimited", "too many requests of late", status)


def with_members(**members):
    """A problem document with further members."""
    answer = json_answer({"type": "urn:ietf:params:acme:error:malformed", "status": 403, **members}, 403)
    answer.headers["Content-Type"] = "application/problem+json"
    return answer


def refusals():
    """(what, answer, code and details as people are told them)."""
    subproblems = [{"type": "urn:ietf:params:acme:error:caa", "detail": "inner", "status": 499,
                    "identifier": {"type": "dns", "value": "shop.example"}}, "no problem", None]
    page = html(502).body.decode()
    return [
        ("problem", problem("serverInternal", "not today", 500), 500, "not today"),
        ("page", html(502), 502, page),
        ("nonce", problem("badNonce", "an old nonce", 400), 400, "an old nonce"),
        ("429, seconds", later(limited(429), "3600"), 429, "too many requests of late"),
        ("429, date", later(limited(429), date_in(3600)), 429, "too many requests of late"),
        ("503, seconds", later(limited(503), "3600"), 503, "too many requests of late"),
        ("503, date", later(html(503), date_in(3600)), 503, page),
        ("subproblems", with_members(detail="outer", subproblems=subproblems), 403, "outer"),
    ]


def odd_refusals():
    """The same of refusals whose text is one that a sound authority would not send."""
    text = "a;b,c <i>&amp;\"' %41 \u00fc \U0001f512 ]]>\t\r\n end"
    marked = "a\ufffdb\ufffdc"  # what XML cannot carry
    return [
        ("nothing", Answer(500), 500, ""),
        ("unknown members", with_members(detail="known", instance=[1, {}], extra={"detail": "no"}), 403, "known"),
        ("any text", with_members(detail=text), 403, text),
        ("control characters", with_members(detail="a\0b\x1bc"), 403, marked),
        ("no UTF-8", Answer(500, {}, b"a\0b\xffc"), 500, marked),
        ("neither detail nor status", json_answer({"type": "about:blank"}, 418), 0, ""),
        ("other types", json_answer({"status": "gone", "detail": ["a"]}, 410), "gone", ""),
        ("error in a good answer", json_answer({"status": "valid", "error": {"status": 403, "detail": "within"}}), 403, "within"),
    ]


def nonsense():
    """(what, answer) of good answers that say nothing of use."""
    return [("page", html(200)), ("redirect", redirect()), ("nothing", Answer(204)), ("empty object", json_answer({})),
            ("text", json_answer("valid")),
            ("nested", Answer(201, {"Content-Type": "application/json"}, b"[" * 5000 + b"]" * 5000))]


def breaks():
    """(what, answer, reason as people are told it) of exchanges that come to no good end.

    The reason of one that the authority ends is the HTTP library's.
    """
    lines = {f"X-Line-{number}": "x" * 60_000 for number in range(10)}
    too_large = "the answer is too large"
    return [("dropped", Answer(drop=True), ".+"), ("cut", cut, ".+"),
            ("100 MB", Answer(200, {"Content-Type": "application/json"}, HUGE), too_large),
            ("100 MB, not announced", Answer(200, {"Content-Length": None}, HUGE), too_large),
            ("600 kB of header", Answer(200, lines, b"{}"), too_large)]


@dataclasses.dataclass
class Run:
    """What a run came to."""
    status: int
    asked: list    # the resources, in order, without the nonces
    reached: list  # events of what was done
    failed: list   # (event, detail) of what was not
    record: dict   # the job's afterwards


class AuthorityTest(SharedWorldTest):
    """Jobs that use the default account, and an authority that misbehaves when told to."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.world.start_authority()
        cls.authority, cls.numbers = cls.world.authority, itertools.count(1)
        cls.world.start_service("--sweep-interval", "0.5")
        cls.world.add_domain("shop.example")
        cls.kid = cls.world.take_account(account_key())

    @classmethod
    def add_job(cls, *options):
        """A job that asks nothing about its account, unless told otherwise."""
        return cls.world.add_job("shop.example", "--csr", "key_type=ec", "--certname", f"job-{next(cls.numbers)}",
                                 *(options or ["--skip-account-check"]))

    def setUp(self):
        self.job = self.add_job()
        self.addCleanup(self.authority.unscript)

    def run_job(self):
        """A run of the test's job, which has to end in bounded time with the record written back."""
        events, asked = self.world.count_events(self.job), len(self.authority.resources())
        status = self.world.start_run(self.job).process.wait(LONG)
        record = self.world.job(self.job)
        self.assertFalse(record["processing"])
        events = record["events"][events:]
        return Run(status, self.authority.resources()[asked:], [event["event"] for event in events if event["state"] != "failed"],
                   [(event["event"], event["detail"]) for event in events if event["state"] == "failed"], record)

    def meet(self, resource, answer):
        """A run with that answer, once, in place of the resource's proper one."""
        self.authority.script(resource, answer, occurrence=1)
        try:
            return self.run_job()
        finally:
            self.authority.unscript()

    def assert_next_run_installs(self):
        self.assertEqual((run := self.run_job()).status, INSTALLED, run)
        record = run.record
        self.assertEqual((record["verified"], record["failed"], record["finalize_check"]), (True, False, ""))
        self.assertTrue(os.path.exists(self.world.installed(record["certname"])))
        self.assertEqual(self.world.answer_files(), [])
