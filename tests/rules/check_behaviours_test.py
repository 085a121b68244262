"""Plants one violation of each kind in sources and results that are in order."""
import importlib.util
import io
import json
import os
import tempfile
import unittest
from contextlib import redirect_stderr, redirect_stdout
from importlib.machinery import SourceFileLoader
from pathlib import Path
from unittest import mock

SCRIPT = str(Path(__file__).parents[2] / "scripts" / "behaviours")
LOADER = SourceFileLoader("behaviours", SCRIPT)
MODULE = importlib.util.module_from_spec(importlib.util.spec_from_loader("behaviours", LOADER))
LOADER.exec_module(MODULE)

SECTIONS = "A part\n  One\n\nAnother part\n  Two\n"
ONE = "// Behaviours of: One\n\n" + "".join(f"// Behaviour: thing {n} happens\n" for n in range(MODULE.LEAST))
ONE += "TEST(Suite, Name) {}\n"
TWO = "# Behaviours of: Two\nclass Whole(Base):\n    # Behaviour: all of it\n    #   happens | ends\n    def test_it(self):\n"
OUTCOMES = {"Suite.Name": {}, "Whole.test_it": {}}


class Planted(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        self.build = self.root / "build"
        for name in ("build/results", "build/bin", "docs", "tests/e2e", "tests/unit/part", "tests/fuzz"):
            (self.root / name).mkdir(parents=True)
        self.write("tests/behaviour_sections.txt", SECTIONS)
        self.write("tests/unit/part/one_test.cpp", ONE)
        self.write("tests/e2e/two_test.py", TWO)
        self.outcomes("e2e_world", **OUTCOMES)

    def write(self, name, text):
        (self.root / name).write_text(text, encoding="utf-8")

    def more(self, text):
        """Another source of tests in the section "One"."""
        self.write("tests/unit/part/other_test.cpp", "// Behaviours of: One\n\n" + text)

    def findings(self, build=None):
        return MODULE.check(self.root, build)[0]

    def only_finding(self, build=None):
        findings = self.findings(build)
        self.assertEqual(len(findings), 1, findings)
        return findings[0]

    def outcomes(self, program, **tests):
        groups = {}
        for name, change in tests.items():
            suite, _, test = name.rpartition(".")
            groups.setdefault(suite, []).append({"name": test, "status": "RUN", "result": "COMPLETED"} | change)
        groups = [{"name": suite, "testsuite": list_of_tests} for suite, list_of_tests in groups.items()]
        (self.build / "results" / f"{program}.json").write_text(json.dumps({"testsuites": groups}), encoding="utf-8")

    def program(self, name, age):
        file = self.build / "bin" / name
        file.touch()
        moment = file.stat().st_mtime - age
        os.utime(file, (moment, moment))


class Sentences(Planted):
    def test_sources_in_order_pass(self):
        self.more("TEST_F(Alone, Told) {}\n".replace("TEST", "// Behaviour: a third\n//   thing happens\n// reason\nTEST"))
        findings, _, sentences, page = MODULE.check(self.root)
        self.assertEqual(findings, [])
        self.assertEqual(sentences["a third thing happens"].tests, ["Alone.Told"])
        self.assertIn("\n# A part\n\n## One\n\n| behaviour | test |\n|---|---|\n| thing 0 happens | `Suite.Name` |\n", page)
        self.assertIn("\n## Two\n\n| behaviour | test |\n|---|---|\n| all of it happens \\| ends | `Whole.test_it` |\n", page)

    def test_reference_adds_its_test_to_the_sentence(self):
        self.more("// Behaviour: thing 12 happens ...\nTEST_P(Alone,\n       ByTheWay) {}\n")
        findings, _, sentences, _ = MODULE.check(self.root)
        self.assertEqual(findings, [])
        self.assertEqual(sentences["thing 12 happens"].tests, ["Suite.Name", "Alone.ByTheWay"])

    def test_test_without_a_sentence_is_found(self):
        self.more("// Why this is so\nTEST(Alone, Untold) {}\n")
        self.assertEqual(self.only_finding(),
                         "tests/unit/part/other_test.cpp:4: no \"Behaviour:\" above the test Alone.Untold")

    def test_end_to_end_test_without_a_sentence_is_found(self):
        self.write("tests/e2e/two_test.py", TWO + "        pass\n\n    def test_more(self):\n        pass\n")
        self.assertIn("above the test Whole.test_more", self.only_finding())

    def test_misspelt_mark_is_no_sentence(self):
        self.more("// Behavior: this happens\nTEST(Alone, Untold) {}\n")
        self.assertIn("above the test Alone.Untold", self.only_finding())

    def test_sentence_that_stands_twice_is_found(self):
        self.more("// Behaviour: thing 3 happens\nTEST(Alone, Told) {}\n")
        self.assertIn("the same sentence stands above Suite.Name: thing 3 happens", self.only_finding())

    def test_sentence_above_no_test_is_found(self):
        self.more("// Behaviour: this happens\n\n// Behaviour: that happens\nTEST(Alone, Told) {}\n")
        self.assertEqual(self.only_finding(), "tests/unit/part/other_test.cpp:4: no test directly below: this happens")

    def test_sentence_at_the_end_of_a_file_is_found(self):
        self.more("// Behaviour: this happens\n")
        self.assertIn("no test directly below: this happens", self.only_finding())

    def test_reference_to_nothing_is_found(self):
        self.more("// Behaviour: nothing of the kind ...\nTEST(Alone, Told) {}\n")
        self.assertIn("0 sentences begin so: nothing of the kind ...", self.only_finding())

    def test_reference_to_several_is_found(self):
        self.more("// Behaviour: thing 12 h ...\n// Behaviour: thing 1 ...\nTEST(Alone, Told) {}\n")
        self.assertIn("sentences begin so: thing 1 ...", self.only_finding())

    def test_reference_that_stands_twice_is_found(self):
        self.more("// Behaviour: thing 12 h ...\n// Behaviour: thing 12 h ...\nTEST(Alone, Told) {}\n")
        self.assertIn("Alone.Told names the sentence twice", self.only_finding())

    def test_unknown_section_is_found(self):
        self.write("tests/unit/part/other_test.cpp", "// Behaviour: this happens\nTEST(Alone, Told) {}\n")
        self.assertIn("no section \"\" in", self.only_finding())
        self.write("tests/unit/part/other_test.cpp", "// Behaviours of: 1\n\n// Behaviour: this happens\nTEST(Alone, Told) {}\n")
        self.assertIn("no section \"1\" in", self.only_finding())

    def test_section_without_a_sentence_is_found(self):
        self.write("tests/behaviour_sections.txt", SECTIONS + "  Three\n")
        self.assertIn("no sentence in the section \"Three\"", self.only_finding())

    def test_list_that_has_shrunk_is_found(self):
        self.write("tests/unit/part/one_test.cpp", ONE.replace("// Behaviour: thing 0 happens\n// Behaviour: thing 1 happens\n", ""))
        self.assertEqual(self.only_finding(), f"only {MODULE.LEAST - 1} behaviours, of at least {MODULE.LEAST}")

    def test_fuzz_targets_are_no_tests(self):
        self.write("tests/fuzz/target.cpp", "TEST(Alone, Untold) {}\n")
        self.assertEqual(self.findings(), [])


class Page(Planted):
    def status(self, *arguments):
        sink = io.StringIO()
        with mock.patch.object(MODULE, "ROOT", self.root), redirect_stdout(sink), redirect_stderr(sink):
            return MODULE.main(list(arguments))

    def test_written_page_passes_the_check(self):
        self.assertEqual(self.status("--write"), 0)
        self.assertEqual(self.status("--check"), 0)
        self.assertEqual(self.status("--check", str(self.build)), 0)

    def test_page_that_differs_is_found(self):
        self.assertEqual(self.status("--check"), 1)
        self.status("--write")
        self.write("docs/behaviours.md", (self.root / "docs/behaviours.md").read_text(encoding="utf-8") + "by hand\n")
        self.assertEqual(self.status("--check"), 1)

    def test_findings_of_the_results_count(self):
        self.status("--write")
        (self.build / "results" / "e2e_world.json").unlink()
        self.assertEqual(self.status("--check"), 0)
        self.assertEqual(self.status("--check", str(self.build)), 1)

    def test_other_arguments_are_refused(self):
        for arguments in ([], ["--read"], ["--write", "build"], ["--check", "build", "more"]):
            self.assertEqual(self.status(*arguments), 2, arguments)


class Outcomes(Planted):
    def test_results_in_order_pass(self):
        self.more("// Behaviour: this happens\nTEST_P(Alone, Told) {}\n")
        self.outcomes("unit", **{"Prefix/Alone.Told/0": {}, "Prefix/Alone.Told/1": {}})
        self.program("unit", age=60)
        self.assertEqual(self.findings(self.build), [])

    def test_results_of_a_programs_parts_are_the_programs(self):
        self.more("// Behaviour: this happens\nTEST(Alone, Told) {}\n")
        self.outcomes("unit_1", **{"Alone.Told": {}})
        self.program("unit", age=60)
        self.assertEqual(self.findings(self.build), [])
        self.program("unit", age=-60)
        self.assertIn("unit_1.json: older", "\n".join(self.findings(self.build)))

    def test_test_without_an_outcome_is_found(self):
        self.more("// Behaviour: this happens\nTEST(Alone, Told) {}\n")
        self.assertIn("Alone.Told has no outcome", self.only_finding(self.build))

    def test_failed_test_is_found(self):
        self.outcomes("e2e_world", **OUTCOMES | {"Suite.Name": {"failures": [{"failure": "text"}]}})
        self.assertIn("Suite.Name has failed", self.only_finding(self.build))

    def test_test_that_was_not_run_is_found(self):
        for outcome in ({"status": "NOTRUN", "result": "SUPPRESSED"}, {"status": "RUN", "result": "SKIPPED"}):
            self.outcomes("e2e_world", **OUTCOMES | {"Whole.test_it": outcome})
            self.assertIn("Whole.test_it was not run", self.only_finding(self.build))

    def test_every_instance_has_to_pass(self):
        self.outcomes("e2e_other", **{"All/Suite.Name/0": {}, "All/Suite.Name/1": {"failures": ["text"]}})
        self.assertIn("Suite.Name has failed", self.only_finding(self.build))

    def test_every_program_has_to_pass(self):
        self.outcomes("e2e_other", **{"Suite.Name": {"failures": ["text"]}})
        self.assertIn("Suite.Name has failed", self.only_finding(self.build))

    def test_result_older_than_its_program_is_none(self):
        self.more("// Behaviour: this happens\nTEST(Alone, Told) {}\n")
        self.outcomes("unit", **{"Alone.Told": {}})
        self.program("unit", age=-60)
        self.assertEqual(len(self.findings(self.build)), 2)

    def test_result_of_a_program_that_is_gone_is_none(self):
        self.outcomes("unit", **{"Suite.Name": {}})
        self.assertIn("its program is gone", self.only_finding(self.build))

    def test_outcome_of_a_test_without_a_source_is_found(self):
        self.outcomes("e2e_other", **{"Hidden.Name": {}})
        self.assertIn("Hidden.Name has run, and no source", self.only_finding(self.build))


if __name__ == "__main__":
    unittest.main()
