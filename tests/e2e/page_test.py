"""The service's page in a real browser, with real runs against a real authority.

PAGE_SCREENSHOTS names a folder for a picture of every view at two widths.
"""
import contextlib
import os
import sqlite3

from selenium.webdriver.common.keys import Keys

from browser import Browser
from fixture import SharedWorldTest, account_key
from process import LONG, wait_until
from world import INSTALLED

PAGE = "127.0.0.1:8443"
FILES = os.path.realpath(os.path.join(os.path.dirname(__file__), "../../packaging/page"))
EC = ("--csr", "key_type=ec", "--skip-account-check")
HOSTILE = "<img src=x onerror=\"document.title='taken'\"><script>document.title='taken'</script>&lt;b&gt;\u202e{name}" + "x" * 400


# Behaviours of: The page
class Page(SharedWorldTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.world.start_web()
        cls.world.start_pebble()
        cls.world.start_service("--page-listen", PAGE, "--page-files", FILES)
        cls.world.take_account(account_key())
        cls.browser = Browser(cls.world.path("browser"))
        cls.addClassCleanup(cls.browser.quit)
        for name, user in (("shop.example", "anna"), ("blog.example", "bert")):
            cls.world.add_domain(name, user)
        cls.job = cls.world.add_job("shop.example", "--alias", "www.shop.example", *EC)
        cls.other = cls.world.add_job("blog.example", *EC, user="bert")

    def tearDown(self):
        self.assertEqual(self.browser.complaints(), [])

    def log_in(self, *options):
        self.browser.driver.delete_all_cookies()
        self.browser.open(self.world.ask("page", "login", *options)["link"])
        self.browser.sees("Overview")
        wait_until(lambda: self.browser.driver.find_elements("css selector", ".live:not(.off)"), "the page hears of changes")

    def change(self, text, *values):
        with contextlib.closing(sqlite3.connect(self.world.database, timeout=LONG)) as database, database:
            database.execute(text, values)

    def number(self, words):
        return self.browser.script("return [...document.querySelectorAll('.numbers a')].find((a) => a.innerText.includes(arguments[0]))?.querySelector('b').textContent", words)

    # Behaviour: While a job runs, an open page shows by itself what happens, and neither what has the reader's focus nor what
    #   they have scrolled to moves
    def test_changes_appear_by_themselves(self):
        self.log_in()
        self.browser.view(f"job/{self.job}")
        self.browser.sees("Nothing has happened yet")
        self.browser.focus("Pause: shop.example")
        self.assertEqual(self.world.run_job(self.job), INSTALLED)
        self.browser.sees("the certificate has come")
        self.browser.sees("verified")
        self.assertEqual(self.browser.focused(), "Pause: shop.example")
        self.browser.size(1200, 500)
        self.browser.script("window.scrollTo(0, 300); window.opened = document.querySelectorAll('details')[0]; window.opened.open = true")
        self.browser.script("window.read = document.elementFromPoint(600, 250)")
        read = "return [window.read.isConnected, window.read.getBoundingClientRect().top]"
        before = self.browser.script(read)
        self.world.ask("job", "pause", self.job)
        self.browser.sees("nothing until it is resumed")
        self.assertEqual(self.browser.script(read), before, "what is being read stays where it is, whatever grows above it")
        self.assertTrue(self.browser.script("return window.opened.isConnected && window.opened.open"), "what was opened stays open")
        self.world.ask("job", "resume", self.job)
        self.browser.size(1200, 900)
        self.browser.view("")
        wait_until(lambda: self.number("verified") == "1", "the numbers follow")
        self.browser.script("window.asked = performance.getEntriesByType('resource').length")
        self.browser.one(".numbers a").click()
        self.browser.sees("shop.example")
        self.assertNotIn("blog.example", self.browser.text(), "the number leads to what it counts")
        self.picture_every_view()

    # Behaviour: Every action is reached and done with the keyboard alone, and does nothing before what it will do has been said
    #   and agreed to
    def test_everything_is_done_with_the_keyboard(self):
        self.log_in()
        self.browser.press(Keys.TAB)
        for name in ("Certificates", "Notices", "Log", "Certificates"):
            self.browser.script("document.body.focus()")
            self.browser.tab_to(name)
            self.browser.press(Keys.ENTER)
            wait_until(lambda: self.browser.heading() == name, f"the view {name}")
        self.browser.tab_to("blog.example")
        self.browser.press(Keys.ENTER)
        wait_until(lambda: self.browser.heading() == "blog.example", "the job")
        self.browser.tab_to("Pause: blog.example")
        self.browser.press(Keys.ENTER)
        self.browser.sees("No run begins until somebody resumes it")
        self.browser.press(Keys.ESCAPE)
        self.assertFalse(self.world.job(self.other)["paused"])
        wait_until(lambda: self.browser.focused() == "Pause: blog.example", "the focus is where it was")
        self.browser.press(Keys.ENTER, Keys.ENTER)
        self.browser.sees("nothing until it is resumed")
        self.assertTrue(self.world.job(self.other)["paused"])
        self.browser.tab_to("Resume: blog.example")
        self.browser.press(Keys.ENTER, Keys.ENTER)
        wait_until(lambda: not self.world.job(self.other)["paused"], "the job is resumed")
        self.browser.click("Try again: blog.example")
        self.browser.click("Try again", "dialog")
        self.browser.sees("blog.example is tried again")
        what = [deed["what"] for deed in self.world.ask("page", "log")]
        self.assertEqual(what[:3], [f"{action} job {self.other} (blog.example)" for action in ("retry", "resume", "pause")])

    # Behaviour: Texts from outside are shown as they are written, in every view, wherever they stand; nothing of them is carried
    #   out, and none makes the page wider than a small screen
    def test_hostile_texts_are_only_texts(self):
        self.log_in()
        self.change("insert into job_event (job, time, state, event, detail) values (?, '2026-01-01 00:00:00', 'failed', ?, ?)", self.other, HOSTILE, HOSTILE)
        self.change("update job set failures = 3, refusal = ? where id = ?", HOSTILE, self.other)
        self.addCleanup(self.change, "update job set failures = 0, refusal = '' where id = ?", self.other)
        self.world.query("problems.register", id="1", name="x" + HOSTILE, level="1", owner="root", param_name=HOSTILE)
        self.world.query("problems.register", id="2", name="certificate_ending", level="1", owner="root", param_name=HOSTILE)
        for width in (360, 1200):
            self.browser.size(width, 800)
            for view in ("", "jobs", f"job/{self.other}", "notices", "deeds"):
                self.browser.view(view)
                wait_until(lambda: self.browser.script("return document.readyState") == "complete" and self.browser.heading(), "the view")
                self.browser.driver.implicitly_wait(0)
                wait_until(lambda: view not in ("", "notices", f"job/{self.other}") or "xxx" in self.browser.text(), "the hostile text is shown")
                self.assertLessEqual(self.browser.script("return document.documentElement.scrollWidth"), width, view)
                self.assertEqual(self.browser.script("return document.querySelectorAll('main img, main script, main b > *').length"), 0)
                self.assertNotIn("taken", self.browser.driver.title)
                self.picture(f"hostile-{view.split('/')[0] or 'overview'}", width)
        self.browser.size(1200, 900)
        self.browser.view("notices")
        self.browser.sees("<script>")
        for _ in range(2):
            before = len(self.world.ask("problem", "list"))
            self.browser.script("document.querySelector('main [data-key=clear]').click()")
            self.browser.click("Dismiss", "dialog")
            wait_until(lambda: len(self.world.ask("problem", "list")) == before - 1, "the notice is dismissed")
        self.browser.sees("No notices.")

    # Behaviour: Two users see their own jobs alone; a session that has ended leads to the door, and a service that was
    #   restarted under an open page is found again, which then changes what it is told to
    def test_users_sessions_and_restarts(self):
        self.log_in("--user", "bert")
        self.browser.view("jobs")
        self.browser.sees("blog.example")
        self.assertNotIn("shop.example", self.browser.text())
        self.browser.view(f"job/{self.job}")
        self.browser.sees("There is nothing here")
        self.log_in("--user", "anna")
        self.browser.view("jobs")
        self.browser.sees("shop.example")
        self.assertNotIn("blog.example", self.browser.text())
        self.assertEqual(self.world.stop_service(), 0)
        self.browser.sees("Not connected")
        self.world.restart_service()
        wait_until(lambda: "Not connected" not in self.browser.text(), "the page finds the service again")
        self.browser.view(f"job/{self.job}")
        wait_until(lambda: self.browser.heading() == "shop.example", "the job")
        self.browser.click("Pause: shop.example")
        self.browser.click("Pause", "dialog")
        wait_until(lambda: self.world.job(self.job)["paused"], "the change is made with a new token")
        self.world.ask("job", "resume", self.job)
        self.world.ask("page", "sessions", "--end-all")
        self.browser.sees("The session is over.")
        self.assertNotIn("shop.example", self.browser.text())
        self.picture("door", 1200)

    # Behaviour: Whoever reads German has the page in German, in the dark where they like it so
    def test_the_page_speaks_german(self):
        self.log_in()
        self.browser.language("de-AT")
        self.browser.dark(True)
        self.addCleanup(self.browser.dark, False)
        self.addCleanup(self.browser.language, "en")
        self.browser.driver.refresh()
        self.browser.sees("Was jemanden braucht")
        self.assertEqual(self.browser.script("return document.documentElement.lang"), "de")
        colours = self.browser.script("return [getComputedStyle(document.body).color, getComputedStyle(document.body).backgroundColor]")
        self.assertEqual(colours, ["rgb(233, 236, 242)", "rgb(18, 21, 27)"])
        self.picture("dark", 1200)

    def picture_every_view(self):
        if "PAGE_SCREENSHOTS" not in os.environ:
            return
        self.world.query("problems.register", id="0", name="certificate_missing", level="2", owner="root", param_name="blog.example", param_reason="no address")
        for width in (360, 1200):
            self.browser.size(width, 900)
            for view, words in (("", "What needs"), ("jobs", "Search"), (f"job/{self.job}", "Story"), (f"job/{self.other}", "blog"), ("notices", "Dismiss"), ("deeds", "Log")):
                self.browser.view(view)
                self.browser.sees(words)
                wait_until(lambda: self.browser.script("return document.readyState") == "complete", "the view")
                self.picture(view.replace("/", "-") or "overview", width)
        self.world.ask("problem", "clear", "--all")
        self.browser.size(1200, 900)

    def picture(self, name, width):
        if folder := os.environ.get("PAGE_SCREENSHOTS"):
            os.makedirs(folder, exist_ok=True)
            self.browser.driver.save_screenshot(os.path.join(folder, f"{name}-{width}.png"))
