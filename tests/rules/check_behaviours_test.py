"""Plants one violation of each kind in a table and results that are in order."""
import importlib.util
import json
import os
import tempfile
import unittest
from importlib.machinery import SourceFileLoader
from pathlib import Path

SCRIPT = str(Path(__file__).parents[2] / "scripts" / "check-behaviours")
LOADER = SourceFileLoader("check_behaviours", SCRIPT)
MODULE = importlib.util.module_from_spec(importlib.util.spec_from_loader("check_behaviours", LOADER))
LOADER.exec_module(MODULE)

HEAD = "# Behaviours\n\n## One\n\n| behaviour | test |\n|---|---|\n"
ROWS = "".join(f"| thing {number} happens | `Suite.Name` |\n" for number in range(MODULE.LEAST))


def passed(name):
    return {"name": name, "status": "RUN", "result": "COMPLETED"}


class CheckBehaviours(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.build = Path(folder.name)
        (self.build / "results").mkdir()
        (self.build / "bin").mkdir()
        self.write("e2e_world", Suite=[passed("Name")])

    def write(self, program, **suites):
        groups = [{"name": suite, "testsuite": tests} for suite, tests in suites.items()]
        file = self.build / "results" / f"{program}.json"
        file.write_text(json.dumps({"testsuites": groups}), encoding="utf-8")
        return file

    def program(self, name, age):
        file = self.build / "bin" / name
        file.touch()
        moment = file.stat().st_mtime - age
        os.utime(file, (moment, moment))

    def findings(self, rows):
        return MODULE.check(HEAD + ROWS + rows, self.build)[0]

    def only_finding(self, rows):
        findings = self.findings(rows)
        self.assertEqual(len(findings), 1, findings)
        return findings[0]

    def test_table_in_order_passes(self):
        self.write("unit", **{"Prefix/Suite": [passed("Instance/0"), passed("Instance/1")]})
        self.program("unit", age=60)
        self.assertEqual(self.findings("| `code`, a \\| b | `Suite.Name`, `Suite.Instance` |\n"), [])

    def test_lines_outside_the_tables_are_no_behaviours(self):
        self.assertEqual(self.findings("\ntext with `Suite.Gone`\n\n| word | meaning |\n|---|---|\n| a | `Suite.Gone` |\n"), [])

    def test_line_without_a_test_is_found(self):
        self.assertIn("names no test", self.only_finding("| nobody holds this | |\n"))
        self.assertIn("names no test", self.only_finding("| somebody will hold this | later |\n"))
        self.assertIn("names no test", self.only_finding("| one holds this, one will | `Suite.Name`, later |\n"))

    def test_line_of_another_shape_is_found(self):
        self.assertIn("not a behaviour and its tests", self.only_finding("| one | `Suite.Name` | three |\n"))
        self.assertIn("not a behaviour and its tests", self.only_finding("| `Suite.Name` |\n"))
        self.assertIn("not a behaviour and its tests", self.only_finding("| | `Suite.Name` |\n"))

    def test_name_of_another_form_is_found(self):
        self.assertIn("not of the form", self.findings("| this happens | `Name` |\n")[0])

    def test_missing_test_is_found(self):
        self.assertEqual(self.only_finding("| this happens | `Suite.Gone` |\n").rpartition(": ")[2], "Suite.Gone")

    def test_failed_test_is_found(self):
        self.write("e2e_other", Suite=[passed("Other") | {"failures": [{"failure": "text"}]}])
        self.assertIn("Suite.Other has failed", self.only_finding("| this happens | `Suite.Other` |\n"))

    def test_test_that_was_not_run_is_found(self):
        for outcome in ({"status": "NOTRUN", "result": "SUPPRESSED"}, {"status": "RUN", "result": "SKIPPED"}):
            self.write("e2e_other", Suite=[passed("Other") | outcome])
            self.assertIn("Suite.Other was not run", self.only_finding("| this happens | `Suite.Other` |\n"))

    def test_every_instance_has_to_pass(self):
        self.write("e2e_other", **{"All/Suite": [passed("Other/0"), passed("Other/1") | {"failures": ["text"]}]})
        self.assertIn("has failed", self.only_finding("| this happens | `Suite.Other` |\n"))

    def test_every_program_has_to_pass(self):
        self.write("e2e_other", Suite=[passed("Name") | {"failures": ["text"]}])
        self.assertEqual(len(self.findings("")), MODULE.LEAST)

    def test_result_older_than_its_program_is_none(self):
        self.write("unit", Suite=[passed("Other")])
        self.program("unit", age=-60)
        self.assertEqual(len(self.findings("| this happens | `Suite.Other` |\n")), 2)

    def test_result_of_a_program_that_is_gone_is_none(self):
        self.write("unit", Suite=[passed("Other")])
        self.assertEqual(len(self.findings("| this happens | `Suite.Other` |\n")), 2)

    def test_repeated_behaviour_is_found(self):
        self.assertIn("the same behaviour as line 7", self.only_finding("| thing 0 happens | `Suite.Name` |\n"))

    def test_table_that_has_shrunk_is_found(self):
        text = HEAD + "".join(ROWS.splitlines(keepends=True)[:-1])
        findings, _ = MODULE.check(text, self.build)
        self.assertEqual(findings, [f"only {MODULE.LEAST - 1} behaviours are listed, of at least {MODULE.LEAST}"])

    def test_folder_without_results_holds_nothing(self):
        (self.build / "results" / "e2e_world.json").unlink()
        self.assertEqual(len(self.findings("")), MODULE.LEAST)


if __name__ == "__main__":
    unittest.main()
