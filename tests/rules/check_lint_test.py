"""Plants one violation of each kind in sources that are linted as a group, and what must keep sources apart."""
import importlib.util
import io
import json
import re
import tempfile
import unittest
from contextlib import redirect_stderr, redirect_stdout
from importlib.machinery import SourceFileLoader
from pathlib import Path
from unittest import mock

ROOT = Path(__file__).parents[2]
LOADER = SourceFileLoader("lint", str(ROOT / "scripts" / "lint"))
MODULE = importlib.util.module_from_spec(importlib.util.spec_from_loader("lint", LOADER))
LOADER.exec_module(MODULE)

OPTIONS = ["-std=c++20", "-Wall"]
# check: (what is included, the code). Of each family; checks of a file's whole text, of functions, of paths, of the preprocessor.
VIOLATIONS = {
    "bugprone-branch-clone": ("", "int Same(int a) {\n    if (a == 1) {\n        return 5;\n    } else {\n        return 5;\n    }\n}"),
    "bugprone-macro-parentheses": ("", "#define TWICE(x) x * 2\nint Twice(int n) { return TWICE(n); }"),
    "bugprone-narrowing-conversions": ("", "int Cut(int i, double d) {\n    i += d;\n    return i;\n}"),
    "bugprone-use-after-move": ("<utility>", "int Taken(Box from) {\n    Box to = std::move(from);\n    return to.n + from.n;\n}"),
    "clang-analyzer-core.DivideZero": ("", "int Share(int parts) {\n    if (parts == 0) return 1 / parts;\n    return 0;\n}"),
    "clang-analyzer-core.NullDereference": ("", "int At(int* p) {\n    if (p == nullptr) return *p;\n    return 0;\n}"),
    "clang-analyzer-cplusplus.NewDeleteLeaks": ("", "int Leak(int n) {\n    int* kept = new int(n);\n    if (n > 2) return 1;\n"
                                                "    delete kept;\n    return 0;\n}"),
    "misc-redundant-expression": ("", "bool Equal(int e) { return e == e; }"),
    "misc-unused-alias-decls": ("", "namespace unused = things;\nint Alias() { return 1; }"),
    "misc-unused-parameters": ("", "int Unused(int argument) { return 1; }"),
    "misc-unused-using-decls": ("", "using things::Thing;\nint Using() { return 1; }"),
    "modernize-deprecated-headers": ("<stddef.h>", "int Old() { return 1; }"),
    "modernize-use-nullptr": ("", "int* Nothing() { return 0; }"),
    "performance-unnecessary-value-param": ("", "int Copied(const Box c) { return c.n; }"),
    "readability-else-after-return": ("", "int Else(int c) {\n    if (c > 1) {\n        return 1;\n    } else {\n        c = 2;\n    }\n"
                                      "    return c;\n}"),
    "readability-function-size": ("", "int Many(int a, int b, int c, int d, int e, int f) { return a + b + c + d + e + f; }"),
    "readability-redundant-control-flow": ("", "void Twofold() {\n    Twofold();\n    return;\n}"),
}
THINGS = "#pragma once\nnamespace things {\nstruct Thing {};\n}  // namespace things\nstruct Box {\n    Box(const Box&);\n    Box(Box&&) noexcept;\n    ~Box();\n    int n;\n};\n"


class Planted(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        (self.root / ".clang-tidy").write_text((ROOT / ".clang-tidy").read_text(encoding="utf-8"), encoding="utf-8")
        self.write("things.h", THINGS)

    def write(self, name, text):
        (self.root / name).write_text(text, encoding="utf-8")
        return self.root / name

    def source(self, name, text, options=()):
        MODULE.read.cache_clear()
        for known in (MODULE.code, MODULE.words, MODULE.names, MODULE.namespaces):
            known.cache_clear()
        return MODULE.Source(self.write(name, text), OPTIONS + list(options))

    def outcome(self, **texts):
        """(status, what was said) of a run over these sources."""
        files = [self.write(f"{name}.cpp", text) for name, text in texts.items()]
        commands = [{"directory": str(self.root), "file": str(file), "command": f"c++ {' '.join(OPTIONS)} -o x.o -c {file}"}
                    for file in files]
        self.write("compile_commands.json", json.dumps(commands))
        said = io.StringIO()
        with mock.patch.multiple(MODULE, ROOT=self.root, listed_files=lambda: files), redirect_stdout(said):
            return MODULE.main([str(self.root)]), said.getvalue()


class Findings(Planted):
    def test_each_kind_is_found_in_a_group(self):
        group = []
        for number, (include, code) in enumerate(VIOLATIONS.values()):
            text = '#include "things.h"\n' + (f"#include {include}\n" if include else "") + code + "\n"
            group.append(self.source(f"source{number}.cpp", text))
        passes = MODULE.passes(group)
        self.assertEqual([len(sources) for sources, _ in passes], [len(group)] * 2)
        outcomes = [MODULE.lint_group(sources, self.root / ".clang-tidy", checks) for sources, checks in passes]
        self.assertEqual([content for content, _ in outcomes], [False, False])
        said = "".join(said for _, said in outcomes)
        self.assertEqual(set(VIOLATIONS) - set(re.findall(r"\[([\w.-]+)", said)), set(), said)

    def test_finding_is_said_of_its_file(self):
        status, said = self.outcome(one="int One() { return 1; }\n", two="int* Two() { return 0; }\n")
        self.assertEqual(status, 1)
        self.assertRegex(said, r"two\.cpp:1:21: error: use nullptr")
        self.assertIn("linted 2 files in 2 groups, 2 of them one by one", said)

    def test_finding_of_a_header_is_said(self):
        folder = self.root / "zelvek"
        folder.mkdir()
        (folder / "wrong.h").write_text("#pragma once\ninline int* Wrong() { return 0; }\n", encoding="utf-8")
        status, said = self.outcome(one='#include "zelvek/wrong.h"\nint One() { return 1; }\n')
        self.assertEqual(status, 1)
        self.assertIn("wrong.h:2:30: error: use nullptr", said)

    def test_clean_sources_pass(self):
        status, said = self.outcome(one="int One() { return 1; }\n", two="int Two() { return 2; }\n")
        self.assertEqual((status, said), (0, "linted 2 files in 2 groups, 0 of them one by one\n"))

    def test_sources_that_do_not_compile_together_are_linted_one_by_one(self):
        self.write("define.h", "#pragma once\n#define ONE int One() { return both; }\n#define TWO int Two() { return both; }\n")
        both = '#include "define.h"\nstatic int\n    both = 1;\n'
        status, said = self.outcome(one=both + "ONE\n", two=both + "TWO\n")
        self.assertEqual(status, 0, said)
        self.assertIn("each clean, but not in a group", said)
        self.assertIn("linted 2 files in 2 groups, 2 of them one by one", said)

    def test_sources_that_are_compiled_as_one_are_found(self):
        (self.root / "Unity").mkdir()
        files = [self.write("one.cpp", "int One() { return 1; }\n"), self.write("two.cpp", "int* Two() { return 0; }\n")]
        both = self.write("Unity/unity_0_cxx.cxx", "".join(f'#include "{file}"\n\n' for file in files))
        self.write("compile_commands.json", json.dumps(
            [{"directory": str(self.root), "file": str(both), "command": f"c++ {' '.join(OPTIONS)} -o x.o -c {both}"}]))
        said = io.StringIO()
        with mock.patch.multiple(MODULE, ROOT=self.root, listed_files=lambda: files), redirect_stdout(said):
            self.assertEqual(MODULE.main([str(self.root)]), 1)
        self.assertRegex(said.getvalue(), r"two\.cpp:1:21: error: use nullptr")

    def test_source_that_nothing_compiles_fails(self):
        stranger = self.write("stranger.cpp", "int Stranger() { return 1; }\n")
        self.write("compile_commands.json", "[]")
        with mock.patch.multiple(MODULE, ROOT=self.root, listed_files=lambda: [stranger]), redirect_stderr(io.StringIO()) as said:
            self.assertEqual(MODULE.main([str(self.root)]), 1)
        self.assertIn("compiles", said.getvalue())


class Groups(Planted):
    def together(self, one, two, options=()):
        return len(MODULE.groups([self.source("one.cpp", one), self.source("two.cpp", two, options)])) == 1

    def test_strangers_share_one(self):
        self.assertTrue(self.together("int One() { return 1; }\n", "int Two() { return 2; }\n"))
        both = "void {}() try {{\n    throw 1;\n}} catch (int) {{\n}}\n"
        self.assertTrue(self.together(both.format("One"), both.format("Two")))

    def test_own_header_of_the_other_keeps_apart(self):
        self.write("one.h", "#pragma once\nstruct Guard {\n    ~Guard();\n};\n")
        self.write("middle.h", '#pragma once\n#include "one.h"\n')
        one = '#include "one.h"\nGuard::~Guard() = default;\n'
        self.assertFalse(self.together(one, '#include "middle.h"\nauto two = 1;\n'))
        self.assertTrue(self.together(one, '#include "things.h"\nauto two = 1;\n'))

    def test_name_of_the_other_keeps_apart(self):
        for one in ("int Help(int n) {\n    return n;\n}\n", "namespace {\n\nstd::vector<int>& Help(int n) {\n}\n\n}  // namespace\n",
                    "const int Help = 1;\n", "using std::Help;\n", "using Help = int;\n", "namespace Help = std::chrono;\n",
                    "struct Help {\n};\n", "enum class Help { kOne };\n", "#define Help 1\n", "void Help::Go() {\n}\n",
                    "static std::map<std::string, int> Help{};\n", "Box::Box(int n)\n    : Help(n) {\n}\nint Help[3];\n"):
            self.assertFalse(self.together(one, "int Help(int n);\nint Two() {\n    return Help(2);\n}\n"), one)
            self.assertTrue(self.together(one, "int Two() {\n    return 2;  // no Help\n}\nconst char* two = \"Help\";\n"), one)

    def test_hidden_name_of_a_header_of_the_other_keeps_apart(self):
        one = "namespace {\n\nint Box() { return 1; }\n\n}  // namespace\n"
        self.assertFalse(self.together(one, '#include "things.h"\nint Two() { return 2; }\n'))
        self.assertTrue(self.together(one, "int Two() { return 2; }\n"))

    def test_clash_keeps_apart_where_no_stranger_is_needed(self):
        def together(one, two):
            sources = [self.source("one.cpp", one), self.source("two.cpp", two)]
            return len(MODULE.groups(sources, MODULE.Source.clashes)) == 1
        hidden = ("namespace {place} {{\n\nnamespace {{\n\nint Help() {{ return 1; }}\n\n}}  // namespace\n\n"
                  "}}  // namespace {place}\n")
        called = "namespace {place} {{\n\nint Two() {{ return Help(2); }}\n\n}}  // namespace {place}\n"
        self.assertTrue(together("int Help(int n) {\n}\n", "int Help(int n);\nint Two() { return Help(2); }\n"))
        self.assertTrue(together(hidden.format(place="here"), called.format(place="there")))
        for place in ("here", "here::inside"):
            self.assertFalse(together(hidden.format(place="here"), called.format(place=place)))
        self.assertFalse(together(hidden.format(place="here"), "using namespace here;\n" + called.format(place="there")))
        member = "namespace here {\n\nint inside::Two() { return Help(2); }\n\n}  // namespace here\n"
        self.assertFalse(together(hidden.format(place="here::inside"), member))
        self.assertFalse(together("#define Help 1\n", called.format(place="there")))
        self.write("help.h", "#pragma once\nnamespace here {\n\nint Help();\n\n}  // namespace here\n")
        self.assertFalse(together(hidden.format(place="here"), '#include "help.h"\nint Two() { return 2; }\n'))
        self.assertTrue(together(hidden.format(place="there"), '#include "help.h"\nint Two() { return 2; }\n'))
        self.assertFalse(together("using one::Help;\n", "int Two() { return Help(2); }\n"))
        self.assertTrue(together("using one::Help;\n", "int Two() { return one::Help(2); }\n"))

    def test_other_options_keep_apart_and_other_folders_do_not(self):
        one, two = "int One() { return 1; }\n", "int Two() { return 2; }\n"
        self.assertFalse(self.together(one, two, ["-fno-exceptions"]))
        self.assertTrue(self.together(one, two, ["-I/somewhere", "-isystem/elsewhere", "-DMORE=1"]))

    def test_macro_of_two_values_keeps_apart(self):
        sources = [self.source(f"{name}.cpp", f"int {name} = 1;\n", [option])
                   for name, option in (("one", "-DVALUE=1"), ("two", "-DVALUE=2"), ("three", "-DVALUE=1"))]
        self.assertEqual([[source.path.stem for source in group] for group in MODULE.groups(sources)],
                         [["one", "three"], ["two"]])


if __name__ == "__main__":
    unittest.main()
