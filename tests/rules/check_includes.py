#!/usr/bin/env python3
"""Holds the sources to the picture of who includes whom.

usage: check_includes.py [ROOT]

The program's folders include downwards only (LAYERS), libvek's public headers, jsoncpp and the standard library; the
framework includes neither program nor service, and its public headers nothing but the standard library; its double and its
examples, which others compile, include public headers alone; the service
includes libvek's public headers, never the program, and its rooms include downwards only (ROOMS). What a file takes of the standard
library is included by it or by a header of this project that it includes (OF_STANDARD): where several sources are compiled as
one, the compiler does not miss it. Prints one line per violation; exit status 1 where there is one.
"""
import re
import sys
from pathlib import Path

PROGRAM = "plugins_int_build/ambrin"
FRAMEWORK = "libvek"
PUBLIC = "libvek/include"
DOUBLE = "libvek/double"
EXAMPLES = "libvek/examples"
SERVICE = "zelvek"

# Layer of the program -> layers that it may include besides itself. Everybody may include the record.
LAYERS = {
    "driver": {"flow", "acme", "challenges", "csr", "problem"},
    "flow": {"acme", "challenges", "encoding"},
    "challenges": {"acme", "encoding"},
    "acme": {"encoding"},
    "csr": {"encoding"},
    "encoding": set(),
    "problem": set(),
    "record": set(),
}
# Room of the service -> rooms that it may include besides itself.
ROOMS = {
    "base": set(),
    "store": {"base"},
    "postgresql": {"base", "store"},
    "certificates": {"base", "store"},
    "publishing": {"base", "store"},
    "jobs": {"base", "store"},
    "notices": {"base", "store"},
    "examination": {"base", "store", "publishing", "jobs"},
    "metrics": {"base", "store", "jobs"},
    "panel": {"base", "store", "certificates", "publishing", "jobs", "notices"},
    "page": {"base", "store", "certificates", "publishing", "jobs", "notices", "panel", "records"},
    "service": {"base", "store", "certificates", "publishing", "jobs", "notices", "examination", "metrics", "page", "panel"},
    "moving": {"base", "store", "certificates"},
    "records": {"base"},
    "cli": {"base", "records"},
    "doctor": {"base", "store", "certificates", "publishing", "notices", "examination", "service", "cli"},
    "setup": {"base", "certificates", "service", "cli"},
    "main": {"base", "cli", "doctor", "moving", "service", "setup"},
}
RECORD = {"ambrin_data", "ambrin_log"}
PROGRAM_THIRD_PARTY = {"json/json.h"}
TESTS_THIRD_PARTY = {"gtest/gtest.h", "gmock/gmock.h"}

STANDARD = set(
    """algorithm any array atomic barrier bit bitset charconv chrono compare complex concepts condition_variable coroutine
    deque exception execution filesystem forward_list fstream functional future initializer_list iomanip ios iosfwd iostream
    istream iterator latch limits list locale map memory memory_resource mutex new numbers numeric optional ostream queue
    random ranges ratio regex scoped_allocator semaphore set shared_mutex source_location span sstream stack stdexcept
    stop_token streambuf string string_view strstream syncstream system_error thread tuple type_traits typeindex typeinfo
    unordered_map unordered_set utility valarray variant vector version
    cassert cctype cerrno cfenv cfloat cinttypes climits clocale cmath csetjmp csignal cstdarg cstddef cstdint cstdio cstdlib
    cstring ctime cuchar cwchar cwctype""".split()
)

# Header: names of its own that are in use here.
OF_STANDARD = {
    "algorithm": "all_of any_of copy count count_if find find_if max max_element min min_element none_of remove_if reverse sort stable_sort "
                 "transform unique clamp lower_bound upper_bound",
    "array": "array", "atomic": "atomic atomic_bool", "charconv": "from_chars to_chars", "chrono": "chrono",
    "condition_variable": "condition_variable", "deque": "deque", "filesystem": "filesystem", "fstream": "ifstream ofstream",
    "functional": "function", "future": "async future promise", "iostream": "cerr cin cout", "limits": "numeric_limits", "list": "list",
    "map": "map multimap", "memory": "make_shared make_unique shared_ptr unique_ptr weak_ptr", "mutex": "lock_guard mutex",
    "numeric": "accumulate", "optional": "nullopt optional", "random": "mt19937 random_device", "regex": "regex smatch",
    "set": "multiset set", "shared_mutex": "shared_lock shared_mutex", "sstream": "istringstream ostringstream stringstream",
    "stdexcept": "logic_error out_of_range runtime_error", "string": "string to_string", "string_view": "string_view",
    "system_error": "error_code system_category system_error", "thread": "jthread this_thread thread", "tuple": "tie tuple",
    "unordered_map": "unordered_map", "unordered_set": "unordered_set", "variant": "variant visit", "vector": "vector",
}
HEADER_OF = {name: header for header, names in OF_STANDARD.items() for name in names.split()}
STANDARD_NAME = re.compile(r"\bstd::(\w+)")
NOT_CODE = re.compile(r'//[^\n]*|/\*.*?\*/|R"(\w*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"', re.DOTALL)
INCLUDE = re.compile(r'^\s*#\s*include\b\s*(?:<([^>]*)>|"([^"]*)"|(.*))')
COMMENT = re.compile(r"/\*.*?\*/", re.DOTALL)


def includes(source):
    """(line number, header, in quotes) of each include; the header is None where a macro names it."""
    text = COMMENT.sub(lambda comment: "\n" * comment.group().count("\n"), source.read_text(encoding="utf-8"))
    for number, line in enumerate(text.splitlines(), 1):
        match = INCLUDE.match(line)
        if match:
            angled, quoted, _ = match.groups()
            yield number, angled if quoted is None else quoted, quoted is not None


def resolve(root, source, header, quoted):
    """The file of this project that an include means, relative to the root; None where there is none."""
    folders = [root / PUBLIC, root / PROGRAM, root / SERVICE, root]
    if quoted:  # <spawn.h> is the system's, even where a source has a spawn.h beside it
        folders = [source.parent, *folders, root / FRAMEWORK, root / FRAMEWORK / "src"]
    for folder in folders:
        target = (folder / header).resolve()
        if target.is_file() and target.is_relative_to(root):
            return target.relative_to(root).as_posix()
    return None


def inside(path, folder):
    return path is not None and path.startswith(folder + "/")


def layer(path):
    """The layer of a file of the program, None for a file that the picture does not know."""
    rest = Path(path).relative_to(PROGRAM)
    if len(rest.parts) > 1:
        return rest.parts[0] if rest.parts[0] in LAYERS else None
    if rest.stem in RECORD:
        return "record"
    return {"ambrin_bin": "driver", "problem": "problem"}.get(rest.stem)


def program_rule(path, header, target):
    own = layer(path)
    if own is None:
        return "has no place in the picture of the program's layers"
    if inside(target, PROGRAM):
        other = layer(target)
        if other in (own, "record") or other in LAYERS[own]:
            return None
        return f"{own} must not include {other}: {header}"
    if inside(target, PUBLIC) or (target is None and header in STANDARD | PROGRAM_THIRD_PARTY):
        return None
    return f"the program includes libvek's public headers, json/json.h and the standard library alone: {header}"


def public_rule(_, header, target):
    if inside(target, PUBLIC) or (target is None and header in STANDARD):
        return None
    return f"libvek's public headers include the standard library alone: {header}"


def framework_rule(_, header, target):
    if target is None or inside(target, FRAMEWORK):
        return None
    return f"the framework must include neither program nor service: {header}"


def outsider_rule(_, header, target):
    """For what is installed as sources: there is nothing of the framework beside it but its public headers."""
    if inside(target, PUBLIC) or inside(target, DOUBLE) or (target is None and header in STANDARD | TESTS_THIRD_PARTY):
        return None
    return f"double and examples include libvek's public headers, the double's, googletest and the standard library alone: {header}"


def room(path):
    """The room of a file of the service, None for a file that the picture does not know."""
    rest = Path(path).relative_to(SERVICE)
    if len(rest.parts) > 1:
        return rest.parts[0] if rest.parts[0] in ROOMS else None
    return "main" if rest.name == "main.cpp" else None


def service_rule(path, header, target):
    own = room(path)
    if own is None:
        return "has no place in the picture of the service's rooms"
    if inside(target, SERVICE):
        other = room(target)
        if other == own or other in ROOMS[own]:
            return None
        return f"{own} must not include {other}: {header}"
    if target is None or inside(target, PUBLIC):
        return None
    return f"the service includes its own headers and libvek's public ones: {header}"


RULES = [(PROGRAM, program_rule), (PUBLIC, public_rule), (FRAMEWORK + "/src", framework_rule), (DOUBLE, outsider_rule),
         (EXAMPLES, outsider_rule), (SERVICE, service_rule)]


def check_file(root, source, rule):
    path = source.relative_to(root).as_posix()
    for number, header, quoted in includes(source):
        if header is None:
            yield f"{path}:{number}: a macro names the included file"
            continue
        target = resolve(root, source, header, quoted)
        if quoted and target is None:
            yield f"{path}:{number}: no such file in this project: {header}"
            continue
        complaint = rule(path, header, target)
        if complaint:
            yield f"{path}:{number}: {complaint}"


def headers_of(root, source, read):
    """All headers of the standard library and others that a file includes, itself or through this project's. `read`: what
    the files that were read before include."""
    found, new, known = set(), [source], set()
    while new:
        file = new.pop()
        if file in known:
            continue
        known.add(file)
        if file not in read:
            read[file] = [(header, resolve(root, file, header, quoted)) for _, header, quoted in includes(file) if header]
        new.extend(root / target for _, target in read[file] if target)
        found.update(header for header, target in read[file] if not target)
    return found


def check_standard(root, source, read):
    """One line for each header of the standard library that a file lacks, with the first place where it is needed."""
    text = NOT_CODE.sub(lambda match: "\n" * match[0].count("\n"), source.read_text(encoding="utf-8"))
    first = {}
    for number, line in enumerate(text.splitlines(), 1):
        for name in STANDARD_NAME.findall(line):
            first.setdefault(HEADER_OF.get(name), number)
    for header in sorted(first.keys() - headers_of(root, source, read) - {None}):
        yield f"{source.relative_to(root).as_posix()}:{first[header]}: takes from <{header}> and does not include it"


def check(root):
    root = Path(root).resolve()
    findings, read = [], {}
    for folder, rule in RULES:
        sources = sorted(file for file in (root / folder).rglob("*") if file.suffix in {".h", ".cpp"})
        # a folder that moved would otherwise pass for ever
        if not sources:
            findings.append(f"{folder}: no sources found")
        for source in sources:
            findings.extend(check_file(root, source, rule))
            findings.extend(check_standard(root, source, read))
    return findings


def main():
    root = sys.argv[1] if len(sys.argv) > 1 else Path(__file__).parents[2]
    findings = check(root)
    print("\n".join(findings), end="\n" if findings else "")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
