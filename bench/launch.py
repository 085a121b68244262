"""Runs a command and writes what it took, the processes that it waited for included, as words into a file:
status, seconds, seconds of CPU, peak resident kilobytes of its largest process.

    python3 -I -S launch.py FILE COMMAND [ARGUMENT ...]

A process of its own, and a small one: a child's peak begins with that of the process which has started it.
"""
import os
import sys
import time

file, *command = sys.argv[1:]
begin = time.monotonic()
pid = os.posix_spawnp(command[0], command, os.environ)
_, status, used = os.wait4(pid, 0)
seconds = time.monotonic() - begin
with open(file, "w", encoding="ascii") as out:
    print(os.waitstatus_to_exitcode(status), seconds, used.ru_utime + used.ru_stime, used.ru_maxrss, file=out)
