"""Folders that are full or read-only: a clear error, nothing half done, and a later run succeeds."""
import os
import subprocess

from fixture import SharedWorldTest, account_key
from steps import half_written
from world import FAILURE, INSTALLED, NOTHING_TO_DO


class Folder:
    """A small file system of its own for one folder; it goes with the test program's mounts."""

    def __init__(self, path, size):
        self._path, self._filling = path, os.path.join(path, "filling")
        subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size},mode=755", "tmpfs", path], check=True)

    def fill(self):
        with open(self._filling, "wb", buffering=0) as file:
            try:
                while file.write(b"x" * 4096):
                    pass
            except OSError:  # no space left: as it should be
                pass

    def empty(self):
        os.remove(self._filling)

    def protect(self, mode="ro"):
        subprocess.run(["mount", "-o", f"remount,{mode}", self._path], check=True)


# Behaviours of: Ending runs from outside
class Disk(SharedWorldTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        world = cls.world
        cls.certificates = Folder(world.certificates, "256k")
        world.plugin_logs = world.path("plugin-log")
        os.makedirs(world.plugin_logs)
        cls.logs = Folder(world.plugin_logs, "4m")
        world.start_authority()
        world.start_service(reload_command="true")
        world.take_account(account_key())
        world.add_domain("shop.example")

    def add_job(self):
        return self.world.add_job("shop.example", "--csr", "key_type=ec", "--certname", self.id().rpartition(".")[2])

    def log_size(self):
        return os.path.getsize(os.path.join(self.world.plugin_logs, "ambrin.log"))

    def assert_not_installed(self, job, reason):
        self.assertEqual(self.world.run_job(job), FAILURE)
        certname = self.world.job(job)["certname"]
        self.assertEqual(self.world.events(job)[-1], ("failed", "hardreplace_error"))
        self.assertRegex(self.world.event_detail(job, "hardreplace_error"), reason)
        self.assertFalse(os.path.exists(self.world.installed(certname)))
        told = {entry["owner"]: entry["parameters"]["error"] for entry in self.world.ask("problem", "list")
                if entry["parameters"]["name"] == certname}
        self.assertEqual(sorted(told), ["anna", "root"])
        for error in told.values():
            self.assertRegex(error, reason)

    def assert_installed(self, job):
        self.assertEqual(self.world.run_job(job), INSTALLED)
        self.assertEqual(half_written(self.world.installed(self.world.job(job)["certname"])), [])

    # Behaviour: A disk that is full, or a folder that is read-only, fails the installation with that reason in event
    #   and notifications, and a later run installs
    def test_full_disk_fails_the_installation_and_a_later_run_installs(self):
        job = self.add_job()
        self.certificates.fill()
        self.assert_not_installed(job, "No space left on device")
        self.certificates.empty()
        self.assert_installed(job)

    # Behaviour: A disk that is full, or a folder that is ...
    def test_read_only_folder_fails_the_installation_and_a_later_run_installs(self):
        job = self.add_job()
        self.certificates.protect()
        self.assert_not_installed(job, "Read-only file system")
        self.certificates.protect("rw")
        self.assert_installed(job)

    # Behaviour: At the log it costs one line on standard error, and nothing else
    def test_full_disk_at_the_log_is_told_and_costs_the_run_nothing(self):
        self.assert_installed(self.add_job())
        job = self.world.add_job("shop.example", "--csr", "key_type=ec", "--certname", "unlogged")
        self.logs.fill()
        size = self.log_size()
        run = self.world.zelvek("job", "run", job)
        self.assertEqual(run.process.returncode, INSTALLED)
        self.assertEqual(run.log().count("log: cannot write: No space left on device"), 1)
        self.assertLessEqual(self.log_size() - size, 4096)  # what the last block had left

        self.logs.empty()
        size = self.log_size()
        self.assertEqual(self.world.run_job(job), NOTHING_TO_DO)
        self.assertGreater(self.log_size(), size)

    # Behaviour: At the log it costs one line on standard ...
    def test_read_only_log_folder_is_told_and_costs_the_run_nothing(self):
        job = self.add_job()
        self.logs.protect()
        run = self.world.zelvek("job", "run", job)
        self.logs.protect("rw")
        self.assertEqual(run.process.returncode, INSTALLED)
        self.assertEqual(run.log().count("ambrin.log: Read-only file system"), 1)
