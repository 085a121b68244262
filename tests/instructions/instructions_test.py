"""That the guard of instruction counts reads callgrind's files, and notices what it is there for."""
import importlib.machinery
import importlib.util
import sys
import tempfile
import unittest
from pathlib import Path

BENCH = Path(__file__).resolve().parents[2] / "bench"
sys.path[:0] = [str(BENCH)]

import callgrind

loader = importlib.machinery.SourceFileLoader("instructions", str(BENCH / "instructions"))
instructions = importlib.util.module_from_spec(importlib.util.spec_from_loader("instructions", loader))
loader.exec_module(instructions)

# Two functions of the program, one of which calls into three libraries; names are given once, numbers afterwards.
FILE = """# callgrind format
version: 1
events: Ir

ob=(1) /somewhere/ambrin
fl=(1) one.cpp
fn=(1) One()
10 100
cob=(2) /usr/lib/libstdc++.so.6.0.30
cfn=(2) std::two()
calls=3 0
11 5000
cob=(3) /usr/lib/libc.so.6
cfn=(3) memcpy
calls=1 0
+1 70
-2 20

ob=(2)
fn=(2)
0 4930

ob=(3)
fn=(3)
0 70

ob=(1)
fn=(4) Other()
* 7

totals: 5127
"""


class Counting(unittest.TestCase):
    def counts(self):
        with tempfile.NamedTemporaryFile("w", suffix=".out") as file:
            file.write(FILE)
            file.flush()
            return callgrind.instructions(file.name)

    def test_instructions_are_those_of_each_object_without_what_it_calls(self):
        self.assertEqual(self.counts(), {"ambrin": 127, "libstdc++.so.6.0.30": 4930, "libc.so.6": 70})

    def test_the_processors_libraries_do_not_count(self):
        self.assertEqual(callgrind.own(self.counts(), "ambrin"), 127 + 4930)


class Table(unittest.TestCase):
    COUNTS = {"run": [1000000], "job.list, a page of 100": [20000, 30000]}

    def differences(self, counts):
        return instructions.differences(instructions.read_table(instructions.text_of(self.COUNTS)), counts)

    def test_a_table_is_read_as_it_is_written(self):
        self.assertEqual(instructions.read_table(instructions.text_of(self.COUNTS)), self.COUNTS)

    def test_three_hundredths_more_or_less_are_nothing(self):
        self.assertEqual(self.differences({"run": [1029000], "job.list, a page of 100": [19500, 30800]}), [])

    def test_more_and_less_than_that_are_told(self):
        told = self.differences({"run": [1031000], "job.list, a page of 100": [20000, 29000]})
        self.assertEqual([line.split(":")[0] for line in told], ["job.list, a page of 100", "run"])
        self.assertIn("+3.1%", told[1])

    def test_what_is_not_in_the_table_is_told(self):
        self.assertTrue(self.differences({"run": [1000000]}))
        self.assertTrue(self.differences(self.COUNTS | {"more": [1]}))


if __name__ == "__main__":
    unittest.main()
