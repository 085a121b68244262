"""Terminal pictures: what commands really print on a machine. With PICTURES=docs/pictures.md they are written there."""
import os
import re

TITLES = {
    "zelvek status": "The service and its jobs: two certificates are there, a third cannot come.",
    "zelvek job show 3": "That third job: the first sentence says why, and what a person can do.",
    "zelvek doctor": "All that certificates need, looked at from this server.",
}
HEAD = """# Pictures

What commands print on a terminal, taken on a booted Debian 12 with nginx and a name server. What is another one each time, such
as dates and random texts, has been replaced by fixed ones as long. [testing.md](testing.md#the-package) says how the pictures are
taken again.
"""
COLUMNS = 110
WRAPPED = r"(?:\n +)?"  # a terminal's line may end between any two characters


def wrapped(word):
    return WRAPPED.join(map(re.escape, word))


# In order; each as long as what it stands for, so that columns and lines stay as they are.
FIXED = (
    (re.compile(r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d"), "2031-02-03 11:20:14"),
    (re.compile(r"\d{4}-\d\d-\d\d(?! \d\d:)"), "2031-05-04"),
    (re.compile(r"(?<![:\d])\d\d:\d\d(?= UTC)"), "11:20"),
    (re.compile(r"\b\d+\.\d(?= GiB free)"), "20.5"),
)
RANDOM = [re.compile(f"({wrapped(path)})((?:{WRAPPED}[-\\w]){{{length}}})")
          for path, length in (("/my-account/", 16), ("/my-order/", 43), ("/acme-challenge/", 43))]


def take(machine):
    """{command: what it prints}, and where the environment says so, the page of them."""
    taken = {command: on_terminal(machine, command) for command in TITLES}
    if path := os.environ.get("PICTURES"):
        with open(path, "w", encoding="utf-8") as page:
            page.write(HEAD + "".join(picture(command, text) for command, text in taken.items()))
    return taken


def on_terminal(machine, command):
    # It may fail: that something is wrong is what there is to see.
    words = ("script", "--quiet", "--command", f"stty cols {COLUMNS}; {command}", "/dev/null")
    return machine.run(*words, check=False).stdout.replace("\r\n", "\n")


def picture(command, text):
    lines = f"$ {command}\n{fixed(text)}".splitlines()
    return f"\n{TITLES[command]}\n\n" + "".join(f"    {line}".rstrip() + "\n" for line in lines)


def fixed(text):
    for pattern, value in FIXED:
        text = pattern.sub(value, text)
    for pattern in RANDOM:
        text = pattern.sub(lambda found: found[1] + re.sub(r"[-\w]", "x", found[2]), text)
    return text
