"""Users: the service's own, root, and a neighbour who may do nothing."""
import fcntl
import json
import os
import shutil
import signal
import socket
import stat
import subprocess
import unittest

from ca import self_signed
from deployment import USER, DeployedWorld, as_user, possible
from fixture import account_key, make_world
from process import LONG, wait_until
from world import INSTALLED, WAITING

NEIGHBOUR = 64322
EC = ("--csr", "key_type=ec", "--skip-account-check")  # pebble takes no check


class DeployedTest(unittest.TestCase):
    """A web server, an authority, and the service of a user of its own with these further options."""

    longMessage = True
    maxDiff = None
    options_of_service = {}

    def setUp(self):
        self.assertTrue(possible(), "these tests need root, or a namespace with several users")
        self.world = make_world(DeployedWorld)
        self.addCleanup(self.world.close)
        self.world.start_web()
        self.world.start_pebble()
        self.world.start_service(**self.options_of_service)


class DeploymentTest(DeployedTest):
    def setUp(self):
        super().setUp()
        self.world.take_account(account_key())
        self.world.add_domain("shop.example")

    def command(self, user, *arguments):
        return subprocess.run(as_user(user, [self.world.binary("zelvek"), *arguments]), env=self.world.environment(),
                              stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=LONG, check=False)

    # Behaviours of: Deployment

    # Behaviour: Root's command line becomes the service's user: what a run makes belongs to that user, and the web
    #   server, which only root may reload, shows the certificate
    def test_roots_command_line_becomes_the_services_user(self):
        job = self.world.add_job("shop.example", *EC)
        self.assertEqual(self.world.run_job(job), INSTALLED)
        self.world.web.wait_trusted("shop.example", self.world.path("pebble-root.pem"))
        made = [self.world.installed("shop.example", file="privkey.pem"), os.path.join(self.world.plugin_logs, "ambrin.log")]
        self.assertEqual([os.stat(path).st_uid for path in made], [USER, USER])
        self.assertNotIn("web_server_reload", [name for name, _ in self.world.problems("open")])

    # Behaviour: The service's user may use the command line too; a neighbour is told who may
    def test_the_services_user_may_use_the_command_line_and_no_neighbour(self):
        self.assertEqual(json.loads(self.command(USER, "domain", "list", "--json").stdout)[0]["name"], "shop.example")
        refused = self.command(NEIGHBOUR, "domain", "list")
        self.assertEqual(refused.returncode, 5)
        self.assertEqual(refused.stdout, "")
        self.assertIn(self.world.path("run"), refused.stderr)
        os.chmod(self.world.path("run"), 0o755)
        os.chmod(self.world.path("run/zelvek.sock"), 0o666)
        refused = self.command(NEIGHBOUR, "domain", "list")
        self.assertEqual(refused.returncode, 5)
        for user in (USER, NEIGHBOUR):
            self.assertIn(str(user), refused.stderr)

    # Behaviour: A neighbour reads no secret, writes nothing, reaches no socket, and holds nothing up by locks on all
    #   that can be opened
    def test_a_neighbour_reaches_nothing_and_holds_nothing_up(self):
        first = self.world.add_job("shop.example", *EC)
        self.assertEqual(self.world.run_job(first), INSTALLED)
        own = [self.world.path(name) for name in ("state", "answers", "certs", "run", "plugin-log", "reload")]
        with Neighbour(own) as neighbour:
            readable = {os.path.basename(path) for path in neighbour.found["readable"]}
            self.assertLessEqual({"cert.pem", "chain.pem", "fullchain.pem"}, readable)
            for name in ("privkey.pem", "zelvek.db", "zelvek.db-wal", "ambrin.log", ".lock", "zelvek.lock"):
                self.assertNotIn(name, readable)
            self.assertEqual((neighbour.found["written"], neighbour.found["reached"]), ([], []))
            self.assertGreater(neighbour.found["locked"], 5)
            self.world.add_domain("blog.example")
            second = self.world.add_job("blog.example", *EC)
            self.assertEqual(self.world.run_job(second), INSTALLED)

    # Behaviour: Root's command line does not speak to a socket that a neighbour has put into a folder open to all, nor
    #   through a link; and no service starts there
    def test_root_does_not_speak_to_a_neighbours_socket(self):
        trap, link = self.world.path("trap"), self.world.path("link")
        self.world.make("trap", mode=0o777, owner=USER)
        os.symlink(trap, link)
        with socket.socket(socket.AF_UNIX) as listener:
            pid = os.fork()
            if pid == 0:
                os.setresuid(NEIGHBOUR, NEIGHBOUR, NEIGHBOUR)
                listener.bind(os.path.join(trap, "zelvek.sock"))
                listener.listen()
                os.chmod(os.path.join(trap, "zelvek.sock"), 0o777)
                os._exit(signal.pause() or 0)
            self.addCleanup(os.waitpid, pid, 0)
            self.addCleanup(os.kill, pid, signal.SIGKILL)
            wait_until(lambda: os.path.exists(os.path.join(trap, "zelvek.sock")), "the neighbour listens")
            for place in (trap, link):
                environment = self.world.environment() | {"VEK_RUN_DIR": place}
                for command in (["job", "list"], ["serve", "--database", self.world.path("other.db")]):
                    done = subprocess.run([self.world.binary("zelvek"), *command], env=environment, timeout=4 * LONG,
                                          stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
                    self.assertEqual((done.returncode, done.stdout), (1, ""), done.stderr)
                    self.assertIn(place, done.stderr)

    # Behaviour: After a reboot, which empties the folders of sockets and requests, everything is there again
    def test_a_reboot_loses_nothing(self):
        job = self.world.add_job("shop.example", *EC)
        self.world.stop_service()
        shutil.rmtree(self.world.path("run"))
        os.makedirs(self.world.path("run"), mode=0o700)
        os.chown(self.world.path("run"), USER, USER)
        self.world.restart_service()
        self.assertEqual(self.world.run_job(job), INSTALLED)

    # Behaviour: A log that is rotated while the service runs is begun anew by the next run
    def test_a_rotated_log_is_begun_anew(self):
        job = self.world.add_job("shop.example", *EC)
        log = os.path.join(self.world.plugin_logs, "ambrin.log")
        self.assertEqual(self.world.run_job(job), INSTALLED)
        os.rename(log, log + ".1")
        self.world.run_job(job)
        self.assertEqual(os.stat(log).st_uid, USER)
        self.assertEqual(stat.S_IMODE(os.stat(log).st_mode) & 0o007, 0)


class FirstHour(DeployedTest):
    """Root's commands on a server that has a web server and the service of another user, and no certificate yet."""

    options_of_service = {"scheduler": "on"}

    def options(self):
        """What the package installs below /etc: the service's options, and nginx's folder."""
        os.makedirs(self.world.path("etc/nginx"))
        config = self.world.path("zelvek.conf")
        with open(config, "w", encoding="ascii") as file:
            file.write(f"answers-dir={self.world.answers}\ncerts-dir={self.world.certificates}\n"
                       f"reload-command={self.world.reload_command()}\n")
        return "--config", config, "--etc", self.world.path("etc"), "--user", "anna"

    # Behaviour: Root's set-up leads from a running service of another user to the first certificate, which takes the place of
    #   a placeholder, and the web server shows it; a certificate of another client is taken over as the service's user's
    def test_root_gets_the_first_certificate_and_takes_another_over(self):
        words = ("setup", *self.options(), "--domain", "shop.example", "--alias", "www.shop.example")
        run = self.world.zelvek(*words)
        self.assertEqual(run.process.returncode, WAITING, run.log())
        key = self.world.installed("shop.example", file="privkey.pem")
        placeholder = os.stat(key)
        self.assertEqual((placeholder.st_uid, stat.S_IMODE(placeholder.st_mode)), (USER, 0o600))
        run = self.world.zelvek(*words, "--make-site")
        self.assertEqual(run.process.returncode, INSTALLED, run.log())
        self.assertEqual(os.stat(self.world.path("etc/nginx/snippets/zelvek.conf")).st_uid, 0)
        self.world.web.wait_trusted("shop.example", self.world.path("pebble-root.pem"))

        old = self.world.path("old")
        self_signed(old, "blog.example")
        os.chmod(f"{old}/privkey.pem", 0o600)
        run = self.world.zelvek("import", "certificate", "--user", "anna", "--cert", f"{old}/fullchain.pem",
                                "--key", f"{old}/privkey.pem")
        self.assertEqual(run.process.returncode, 0, run.log())
        self.assertEqual(os.stat(self.world.installed("blog.example", file="privkey.pem")).st_uid, USER)
        self.assertEqual([job["state"] for job in self.world.ask("job", "list")], ["verified"] * 2)


class Neighbour:
    """A process of another user that opens, locks, writes and connects wherever it can below the folders, and holds its
    locks until the end."""

    def __init__(self, folders):
        self._folders, self.found = folders, None

    def __enter__(self):
        told, tell = os.pipe()
        waited, self._end = os.pipe()
        self._child = os.fork()
        if self._child == 0:
            try:
                os.close(self._end)
                os.setgroups([])
                os.setresgid(NEIGHBOUR, NEIGHBOUR, NEIGHBOUR)
                os.setresuid(NEIGHBOUR, NEIGHBOUR, NEIGHBOUR)
                held = []
                os.write(tell, json.dumps(self.try_all(held)).encode())
                os.close(tell)
                os.read(waited, 1)
            finally:
                os._exit(0)
        os.close(tell)
        os.close(waited)
        with os.fdopen(told) as answer:
            self.found = json.loads(answer.read())
        return self

    def __exit__(self, *_):
        os.close(self._end)
        os.waitpid(self._child, 0)

    def try_all(self, held):
        found = {"readable": [], "written": [], "reached": [], "locked": 0}
        for folder in self._folders:
            for path, _, files in os.walk(folder):
                found["locked"] += self.lock(path, held)
                if self.makes(path):
                    found["written"].append(path)
                for file in (os.path.join(path, name) for name in files):
                    if self.lock(file, held):
                        found["locked"] += 1
                        found["readable"].append(file)
                    if os.access(file, os.W_OK) or self.removes(file):
                        found["written"].append(file)
        for name in ("run/zelvek.sock",):
            with socket.socket(socket.AF_UNIX) as client:
                if client.connect_ex(os.path.join(os.path.dirname(self._folders[0]), name)) == 0:
                    found["reached"].append(name)
        return found

    @staticmethod
    def lock(path, held):
        try:
            opened = os.open(path, os.O_RDONLY)
            held.append(opened)
            fcntl.flock(opened, fcntl.LOCK_EX | fcntl.LOCK_NB)
            return 1
        except OSError:
            return 0

    @staticmethod
    def makes(folder):
        try:
            os.mkdir(os.path.join(folder, "made-by-a-neighbour"))
            return True
        except OSError:
            return False

    @staticmethod
    def removes(file):
        try:
            os.rename(file, file + ".moved")
            return True
        except OSError:
            return False
