"""What the kernel says of a process."""
import time
from pathlib import Path


def cpu(pid):
    """Seconds of CPU that the process has used so far, threads that have ended included."""
    return time.clock_gettime((~pid << 3) | 2)  # the clock that clock_getcpuclockid(3) names


def threads(pid):
    """{thread: (seconds of CPU, times that it went to sleep)}"""
    found = {}
    for task in Path(f"/proc/{pid}/task").iterdir():
        nanoseconds = int((task / "schedstat").read_text().split()[0])
        found[task.name] = nanoseconds / 1e9, number(task / "status", "voluntary_ctxt_switches")
    return found


def memory(pid):
    """Bytes that are resident."""
    return 1024 * number(f"/proc/{pid}/status", "VmRSS")


def peak_memory(pid):
    """The most bytes since `forget_peak`."""
    return 1024 * number(f"/proc/{pid}/status", "VmHWM")


def forget_peak(pid):
    Path(f"/proc/{pid}/clear_refs").write_text("5", encoding="ascii")


def number(file, key):
    """The number after "key:" in a file of /proc."""
    for line in Path(file).read_text(encoding="utf-8").splitlines():
        name, _, value = line.partition(":")
        if name == key:
            return int(value.split()[0])
    raise RuntimeError(f"{file} has no {key}")
