"""Processes that a test starts, and waiting for what they do."""
import os
import signal
import socket
import subprocess
import time

LONG = 60  # seconds; a limit for loaded machines, never a time that is waited in full


class NeverHappened(AssertionError):
    pass


def wait_until(condition, what, limit=LONG, pause=0.02):
    """Polls until the condition gives something true, and returns that. With a long pause where asking costs something."""
    deadline = time.monotonic() + limit
    while not (value := condition()):
        if time.monotonic() > deadline:
            raise NeverHappened(f"waited {limit} s in vain: {what}")
        time.sleep(pause)
    return value


def accepts(address, port):
    try:
        socket.create_connection((address, port), timeout=5).close()
        return True
    except OSError:
        return False


class Background:
    """A process whose output goes to a log file and which is ended, at the latest, by `stop`."""

    def __init__(self, name, command, log, env=None):
        self.name, self.command, self.log_path = name, command, log
        with open(log, "ab") as output:
            self.process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=output, stderr=output, env=env)

    @property
    def pid(self):
        return self.process.pid

    def wait_ready(self, condition):
        def ready():
            if self.process.poll() is not None:
                raise NeverHappened(f"{self.name} ended with status {self.process.returncode}:\n{self.log()}")
            return condition()

        wait_until(ready, f"{self.name} ready")
        return self

    def log(self):
        with open(self.log_path, encoding="utf-8", errors="replace") as file:
            return file.read()

    def stop(self, name=signal.SIGTERM):
        """Returns the exit status; a process that does not end when told to is killed, which shows in the status."""
        if self.process.poll() is None:
            self.process.send_signal(name)
            try:
                self.process.wait(LONG)
            except subprocess.TimeoutExpired:
                self.process.kill()
        return self.process.wait()


def running(executable, among):
    """Of the processes `among`, those that run this executable."""
    found = []
    for pid in among:
        try:
            if os.path.realpath(f"/proc/{pid}/exe") == os.path.realpath(executable):
                found.append(pid)
        except OSError:
            continue
    return found
