"""Instructions of a process, counted by valgrind's callgrind, by the objects that they belong to."""
import os
import re
import subprocess

# Whose instructions count beside the program's own: libraries that a release of the distribution leaves alone, and that do the
# same on every processor. The C library and OpenSSL choose their code by the processor; SQLite, libcurl and OpenSSL get
# other code with security updates.
COUNTED = ("libstdc++.so", "libjsoncpp.so", "libpugixml.so", "libsoci_")

OBJECT = re.compile(r"(c?)ob=\((\d+)\)(?: (.*))?")


def count(command, out, options=(), environment=None):
    """Runs the command under callgrind, which writes to the files `out` and `out`.1, `out`.2, ..."""
    valgrind = ["valgrind", "--tool=callgrind", "--quiet", f"--callgrind-out-file={out}", *options]
    done = subprocess.run([*valgrind, *command], env=environment, stdin=subprocess.DEVNULL, capture_output=True, text=True,
                          check=False)
    if done.returncode != 0:
        raise RuntimeError(f"{' '.join(valgrind[:2] + list(command))}: status {done.returncode}\n"
                           f"{done.stdout[-2000:]}{done.stderr[-2000:]}")
    return done.stdout


def instructions(out):
    """{object: instructions} of one of the files; the object by the file's name."""
    names, totals, place, called = {}, {}, None, False
    with open(out, encoding="utf-8", errors="replace") as file:
        for line in file:
            if match := OBJECT.match(line):
                of_callee, number, name = match.groups()
                if name:
                    names[number] = os.path.basename(name)
                place = place if of_callee else number
            elif line.startswith("calls="):
                called = True  # the next line is what the callee took
            elif line[0].isdigit() or line[0] in "+-*":
                if not called:
                    totals[place] = totals.get(place, 0) + int(line.split()[1])
                called = False
    return {names[number]: total for number, total in totals.items()}


def own(counts, program):
    return sum(total for name, total in counts.items() if name == program or name.startswith(COUNTED))
