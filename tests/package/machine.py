"""A minimal Debian with its real systemd, booted inside the test's namespaces and joined to their network by a cable."""
import contextlib
import glob
import os
import subprocess

from process import LONG, wait_until

GATEWAY = "198.51.100.1"  # the test's end of the cable
CABLE = "machine"
PATH = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"


class Machine:
    """`base` stays as it is: what the machine writes lies in memory above it, until the machine is gone.

    Its `address` belongs to the gateway's network, and one machine is there at a time.
    """

    def __init__(self, folder, base, address, name_server):
        self._folder, self._nspawn, self._leader = folder, None, None
        os.makedirs(folder)
        command("mount", "-t", "tmpfs", "tmpfs", folder)
        for name in ("written", "work", "root"):
            os.mkdir(self._path(name))
        command("mount", "-t", "overlay", "overlay", "-o",
                f"lowerdir={base},upperdir={self._path('written')},workdir={self._path('work')}", self._path("root"))
        self.write("/etc/hostname", "machine\n")
        self.write("/etc/hosts", "127.0.0.1 localhost\n127.0.1.1 machine\n")
        self.write("/etc/resolv.conf", f"nameserver {name_server}\n")
        self._plug_in(address)

    def _plug_in(self, address):
        """The network is there before the machine boots, and stays while it boots again."""
        network = self._path("network")
        open(network, "w", encoding="ascii").close()
        command("unshare", f"--net={network}", "ip", "link", "set", "lo", "up")
        command("ip", "link", "add", CABLE, "type", "veth", "peer", "name", "eth0", "netns", network)
        command("ip", "address", "add", f"{GATEWAY}/24", "dev", CABLE)
        command("ip", "link", "set", CABLE, "up")
        for words in (("address", "add", f"{address}/24", "dev", "eth0"), ("link", "set", "eth0", "up"),
                      ("route", "add", "default", "via", GATEWAY)):
            command("nsenter", f"--net={network}", "ip", *words)

    def _path(self, name):
        return os.path.join(self._folder, name)

    def path(self, inside):
        """Where a file of the machine lies outside; not for what the running machine has mounted, such as /run."""
        return self._path("root") + inside

    def write(self, inside, text, mode=0o644):
        os.makedirs(os.path.dirname(self.path(inside)), exist_ok=True)
        with open(self.path(inside), "w", encoding="utf-8") as file:
            file.write(text)
        os.chmod(self.path(inside), mode)

    def read(self, inside):
        return read(self.path(inside))

    def append(self, inside, text):
        with open(self.path(inside), "a", encoding="utf-8") as file:
            file.write(text)

    def boot(self):
        with open(self._path("console"), "ab") as console:
            self._nspawn = subprocess.Popen(
                ["systemd-nspawn", "-q", "-D", self._path("root"), "--register=no", "--keep-unit", "--boot", "--console=pipe",
                 "--resolv-conf=off", "--timezone=off", f"--network-namespace-path={self._path('network')}"],
                stdin=subprocess.DEVNULL, stdout=console, stderr=console)
        self._leader = wait_until(self._init, "the machine has an init")
        wait_until(lambda: self.run("systemctl", "is-system-running", check=False).stdout.strip() in ("running", "degraded"),
                   "the machine is up", 4 * LONG, pause=0.1)

    def _init(self):
        self._require_running()
        children = [path for path in glob.glob(f"/proc/{self._nspawn.pid}/task/*/children")]
        pids = [pid for path in children for pid in read(path).split()]
        return next((pid for pid in pids if read(f"/proc/{pid}/comm").strip() == "systemd"), None)

    def _require_running(self):
        if self._nspawn.poll() is not None:
            raise AssertionError(f"the machine does not boot:\n{read(self._path('console'))}")

    def _inside(self, *words):
        return ["nsenter", "-t", self._leader, "-m", "-u", "-i", "-n", "-p", "-C", "-r", "-w", "--", "env", "-i", f"PATH={PATH}",
                "HOME=/root", "LANG=C.UTF-8", "DEBIAN_FRONTEND=noninteractive", *words]

    def run(self, *words, check=True, data=None):
        """Runs a command as the machine's root."""
        done = subprocess.run(self._inside(*words), input=data or "", capture_output=True, text=True, timeout=4 * LONG, check=False)
        if check and done.returncode != 0:
            raise AssertionError(f"{words}: status {done.returncode}\n{done.stdout}{done.stderr}")
        return done

    def start(self, *words):
        """Starts a command, which the caller waits for."""
        return subprocess.Popen(self._inside(*words), stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                text=True)

    def reboot(self):
        self.run("systemctl", "reboot", check=False)
        self._nspawn.wait(4 * LONG)
        self.boot()

    def describe(self):
        """For the report on a failed test."""
        with contextlib.suppress(OSError, subprocess.SubprocessError):
            return self.run("journalctl", "--no-pager", "-n", "80", check=False).stdout
        return ""

    def close(self):
        if not os.path.ismount(self._folder):
            return
        if self._nspawn and self._nspawn.poll() is None:
            self.run("systemctl", "poweroff", "--force", check=False)
            try:
                self._nspawn.wait(LONG)
            except subprocess.TimeoutExpired:
                self._nspawn.kill()
                self._nspawn.wait()
        command("ip", "link", "delete", CABLE)
        command("umount", "--recursive", self._folder)


def command(*words):
    subprocess.run(words, stdin=subprocess.DEVNULL, check=True)


def read(path):
    try:
        with open(path, encoding="utf-8", errors="replace") as file:
            return file.read()
    except OSError:
        return ""
