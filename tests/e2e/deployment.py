"""The world as docs/deployment.md lays it out: service and plug-ins have a user of their own, and root reloads the web server."""
import os
import pwd
import subprocess
import threading

import sandbox
from ca import read
from world import World

USER, NAME = 64321, "zelvek"  # the service's; nobody's on the machine
PACKAGING = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", "..", "packaging"))


def possible():
    """Whether processes can have other users here: not where a user has become root in a namespace of their own."""
    with open("/proc/self/uid_map", encoding="ascii") as file:
        return any(int(line.split()[0]) <= USER < int(line.split()[0]) + int(line.split()[2]) for line in file)


def as_user(user, command):
    return ["setpriv", "--reuid", str(user), "--regid", str(user), "--clear-groups", "--", *command]


class DeployedWorld(World):
    def __init__(self, folder, binaries):
        super().__init__(folder, binaries)
        self.make_user()
        for path in (os.path.dirname(folder), folder):
            os.chmod(path, 0o755)
        self.plugin_logs = self.path("plugin-log")
        self.database = self.path("state/zelvek.db")
        self.reload_folder = self.path("reload")
        self.make("reload", "reload/results", mode=0o755)
        self.make("state", mode=0o755, owner=USER)
        self.make("plugin-log", mode=0o750, owner=USER)
        self.make("reload/requests", mode=0o700, owner=USER)
        for path in (self.answers, self.certificates, self.path("run")):
            os.chown(path, USER, USER)

    def make_user(self):
        """In this mount namespace alone."""
        if USER not in [user.pw_uid for user in pwd.getpwall()]:
            lines = {"passwd": f"{NAME}:x:{USER}:{USER}::/nonexistent:/usr/sbin/nologin\n", "group": f"{NAME}:x:{USER}:\n"}
            for name, line in lines.items():
                sandbox.bind_over(f"/etc/{name}", self.path(name), read(f"/etc/{name}") + line)
                os.chmod(self.path(name), 0o644)

    def make(self, *names, mode, owner=0):
        for name in names:
            os.makedirs(self.path(name))
            os.chmod(self.path(name), mode)
            os.chown(self.path(name), owner, owner)

    def start_web(self, sites=None, answers=None):
        super().start_web(sites, answers)
        # What the path unit does on a machine with systemd.
        command = [f"{PACKAGING}/answer-reloads", self.web.reload_all_command, self.certificates]
        ended = threading.Event()
        answering = threading.Thread(target=self.answer_reloads, args=(command, ended))
        answering.start()
        self._stopping.callback(answering.join)
        self._stopping.callback(ended.set)

    def answer_reloads(self, command, ended):
        while not ended.wait(0.1):
            subprocess.run(command, env=self.environment(), stdin=subprocess.DEVNULL, check=True)

    def start_dns(self, *arguments, **options):
        super().start_dns(*arguments, **options)
        os.chown(self.dns.key_file, USER, USER)
        os.chmod(os.path.dirname(self.dns.key_file), 0o755)

    def environment(self):
        return super().environment() | {"ZELVEK_RELOAD_DIR": self.reload_folder}

    def reload_command(self):
        return f"{PACKAGING}/ask-for-reload"

    def as_service(self, command):
        return as_user(USER, command)
