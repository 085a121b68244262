"""A real browser without a screen, as a person uses it."""
import contextlib
import os

from selenium import webdriver
from selenium.common.exceptions import StaleElementReferenceException
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

from process import wait_until

SWITCHES = ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--no-proxy-server", "--no-first-run",
            "--disable-background-networking", "--disable-component-update", "--disable-extensions", "--disable-sync",
            "--disable-features=Translate,OptimizationHints,MediaRouter", "--hide-scrollbars")


class Browser:
    def __init__(self, folder, language="en"):
        options = Options()
        for switch in (*SWITCHES, f"--user-data-dir={folder}", f"--lang={language}"):
            options.add_argument(switch)
        options.add_experimental_option("prefs", {"intl.accept_languages": language})
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        os.environ["HOME"] = folder
        self.driver = webdriver.Chrome(options=options, service=Service("/usr/bin/chromedriver"))
        self.size(1200, 900)

    def quit(self):
        self.driver.quit()

    def size(self, width, height):
        """Of what is seen, also where no window is so narrow."""
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})

    def dark(self, on):
        value = "dark" if on else "light"
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [{"name": "prefers-color-scheme", "value": value}]})

    def language(self, name):
        """What the person who sits before it reads."""
        agent = self.script("return navigator.userAgent")
        self.driver.execute_cdp_cmd("Emulation.setUserAgentOverride", {"userAgent": agent, "acceptLanguage": name})

    def open(self, link):
        self.driver.get("about:blank")
        self.driver.get(link)

    def view(self, name):
        self.script("location.hash = arguments[0]", f"#/{name}")

    def script(self, text, *values):
        return self.driver.execute_script(text, *values)

    def text(self):
        return self.script("return document.body.innerText")

    def sees(self, text):
        wait_until(lambda: text in self.text(), f"the page shows \"{text}\"")

    def one(self, css):
        return self.driver.find_element(By.CSS_SELECTOR, css)

    def heading(self):
        return self.script("return document.querySelector('h1')?.textContent")

    def _find(self, words, inside):
        """By what a screen reader calls it, or what stands on it."""
        for found in self.driver.find_elements(By.CSS_SELECTOR, f"{inside} button, {inside} a"):
            if words in (found.accessible_name, found.text):
                return found
        return None

    def _do(self, deed, words, inside):
        """The page changes by itself: what has been found may be another by the time that something is done to it."""
        def done():
            with contextlib.suppress(StaleElementReferenceException):
                if found := self._find(words, inside):
                    deed(found)
                    return True
            return False
        wait_until(done, f"there is \"{words}\" in {inside}")

    def click(self, words, inside="main"):
        self._do(lambda found: found.click(), words, inside)

    def focus(self, words, inside="main"):
        self._do(lambda found: self.script("arguments[0].focus()", found), words, inside)

    def press(self, *keys):
        actions = ActionChains(self.driver)
        for key in keys:
            actions = actions.send_keys(key)
        actions.perform()

    def focused(self):
        # Asked in two steps: it may be gone in between.
        with contextlib.suppress(StaleElementReferenceException):
            return self.driver.switch_to.active_element.accessible_name
        return ""

    def tab_to(self, words):
        """The way of a person without a mouse."""
        for _ in range(60):
            if self.focused() == words:
                return
            self.press(Keys.TAB)
        raise AssertionError(f"no way by the keyboard to \"{words}\"")

    def complaints(self):
        """What the browser's console has from the page's own code, and what its rules have refused."""
        return [entry["message"] for entry in self.driver.get_log("browser") if not entry["message"].startswith("chrome://")
                and "Failed to load resource" not in entry["message"] and "net::ERR" not in entry["message"]]
