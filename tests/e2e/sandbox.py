"""Namespaces of our own: the world outside is neither seen nor changed, and nothing outlives the command.

A supervisor stays outside. It makes the temporary folder, starts the command in private network, mount and (where the
machine allows it) process namespaces, and clears away whatever is left when the command ends, fails or is interrupted.
"""
import contextlib
import ctypes
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import traceback

PR_SET_CHILD_SUBREAPER = 36
OWN_PROCESSES = ["--pid", "--fork", "--mount-proc", "--kill-child"]


def run(command):
    """Runs the command, with a temporary folder as its last argument, in namespaces of its own; returns its status."""
    adopt_orphans()
    os.environ["PATH"] += ":/usr/sbin:/sbin"  # where servers lie, which a user's search path need not have
    unshare = ["unshare", "--mount", "--net"] + ([] if os.geteuid() == 0 else ["--map-root-user"])
    own_processes = works(unshare + OWN_PROCESSES)
    if not own_processes and not works(unshare):
        sys.exit("e2e: no private network and mount namespace to be had here (unshare failed; see above)")
    folder = tempfile.mkdtemp(prefix="e2e-")
    # Without a process namespace the command clears up itself when asked to end; with one, its death ends everything.
    ending = signal.SIGKILL if own_processes else signal.SIGTERM
    command = ["setpriv", "--pdeathsig", signal.Signals(ending).name[3:], "--",
               *unshare, *(OWN_PROCESSES if own_processes else []), *command, folder]
    process = None
    try:
        with interruptions_as_exceptions():
            # A session of its own: Ctrl-C reaches the supervisor alone, which ends the rest in order.
            process = subprocess.Popen(command, start_new_session=True)
            return process.wait()
    except KeyboardInterrupt:
        return 130
    finally:
        if process and process.poll() is None:
            process.send_signal(ending)
            process.wait()
        end_descendants()
        shutil.rmtree(folder, ignore_errors=True)


def works(unshare):
    return subprocess.run([*unshare, "true"], stdin=subprocess.DEVNULL).returncode == 0


@contextlib.contextmanager
def interruptions_as_exceptions():
    def interrupt(*_):
        raise KeyboardInterrupt

    names = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)
    before = {name: signal.signal(name, interrupt) for name in names}
    try:
        yield
    finally:
        for name, handler in before.items():
            signal.signal(name, handler)


def as_init(main):
    """Runs `main` in a child and exits with its status. This process only collects orphans, so that none stays a zombie."""
    adopt_orphans()
    child = os.fork()
    if child == 0:
        status = 70
        try:
            status = main()
        except SystemExit as end:
            print(end, file=sys.stderr)
        except BaseException:
            traceback.print_exc()
        finally:
            sys.stdout.flush()
            sys.stderr.flush()
            os._exit(status)
    signal.signal(signal.SIGTERM, lambda *_: os.kill(child, signal.SIGKILL))
    while True:
        ended, status = os.wait()
        if ended == child:
            end_descendants()
            sys.exit(os.waitstatus_to_exitcode(status) % 256)


def adopt_orphans():
    ctypes.CDLL(None, use_errno=True).prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)


def end_descendants():
    """Ends every process below this one, also those that turn up meanwhile, and reaps them."""
    while living := descendants(os.getpid()):
        for pid in living:
            with contextlib.suppress(ProcessLookupError):
                os.kill(pid, signal.SIGKILL)
        time.sleep(0.02)
        with contextlib.suppress(ChildProcessError):
            while os.waitpid(-1, os.WNOHANG)[0]:
                pass


def descendants(root):
    """The living processes below `root`."""
    parents = {}
    for name in filter(str.isdigit, os.listdir("/proc")):
        with contextlib.suppress(OSError):
            with open(f"/proc/{name}/stat", encoding="utf-8", errors="replace") as file:
                state, parent = file.read().rpartition(")")[2].split()[:2]
            if state not in "ZX":
                parents[int(name)] = int(parent)
    found, fresh = set(), {root}
    while fresh:
        fresh = {pid for pid, parent in parents.items() if parent in fresh} - found
        found |= fresh
    return found


def others():
    """Inside: the living processes besides this one and its init."""
    return sorted(descendants(os.getppid()) - {os.getpid()})


def set_up_network(folder, hosts, further_addresses=()):
    """Inside: the loopback device with the further addresses on it, and an /etc/hosts of our own."""
    subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
    for address in further_addresses:
        subprocess.run(["ip", "address", "add", f"{address}/32", "dev", "lo"], check=True)
    lines = ["127.0.0.1 localhost", *(f"{address} {name}" for name, address in hosts.items())]
    bind_over("/etc/hosts", os.path.join(folder, "hosts"), "\n".join(lines) + "\n")


def bind_over(target, source, text):
    """Puts a file of our own in the place of a system file, for this mount namespace only."""
    with open(source, "w", encoding="utf-8") as file:
        file.write(text)
    if not os.path.exists(target):
        # A minimal machine has no such file, and a mount needs something to lie on: then a copy of its folder does.
        parent = os.path.dirname(target)
        copy = tempfile.mkdtemp(dir=os.path.dirname(source))
        subprocess.run(["cp", "-a", parent + "/.", copy], check=True)
        open(os.path.join(copy, os.path.basename(target)), "w", encoding="utf-8").close()
        subprocess.run(["mount", "--bind", copy, parent], check=True)
    subprocess.run(["mount", "--bind", source, target], check=True)
