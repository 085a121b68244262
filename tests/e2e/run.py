#!/usr/bin/env python3
"""Runs the tests of one file in namespaces of their own, and writes their names and outcomes as googletest would.

    tests/e2e/run.py --binaries build/dev/bin [--results FILE] [--folder FOLDER] [--repeat N] http01_test [TEST ...]

Another FOLDER than this one may have the tests, which find this one's modules too.
"""
import argparse
import importlib
import json
import os
import sys
import time
import unittest

import sandbox

INTERRUPTED = 130


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--binaries", required=True, type=os.path.abspath)
    parser.add_argument("--results", type=os.path.abspath)
    parser.add_argument("--repeat", type=int, default=1, metavar="N", help="run all of it so many times, and count")
    parser.add_argument("--folder", type=os.path.abspath)
    parser.add_argument("--inside", help=argparse.SUPPRESS)
    parser.add_argument("module")
    parser.add_argument("tests", nargs="*", help="part of a test's name")
    options = parser.parse_args()
    if options.inside is None:
        sys.exit(repeat([sys.executable, os.path.abspath(__file__), *sys.argv[1:], "--inside"], options.repeat))
    sandbox.as_init(lambda: run_tests(options))


def repeat(command, times):
    """Each time in namespaces of its own. Returns the worst status."""
    statuses = []
    while len(statuses) < times and INTERRUPTED not in statuses:
        statuses.append(sandbox.run(command))
        if times > 1:
            print(f"{statuses.count(0)} of {len(statuses)} times without a failure", flush=True)
    return max(statuses)


def run_tests(options):
    import fixture
    fixture.prepare(options.inside, options.binaries)
    if options.folder:
        sys.path.insert(0, options.folder)
    loader = unittest.TestLoader()
    if options.tests:
        loader.testNamePatterns = [f"*{name}*" for name in options.tests]
    suite = loader.loadTestsFromModule(importlib.import_module(options.module))
    result = unittest.TextTestRunner(stream=sys.stdout, verbosity=2, resultclass=Result).run(suite)
    if options.results:
        os.makedirs(os.path.dirname(options.results), exist_ok=True)
        with open(options.results, "w", encoding="utf-8") as file:
            json.dump(result.as_googletest(), file, indent=2)
    # A test that was left out has shown nothing.
    return 0 if result.wasSuccessful() and result.testsRun and not result.skipped else 1


class Result(unittest.TextTestResult):
    """Keeps every outcome, and shows a failed test's logs."""

    def __init__(self, *arguments, **options):
        super().__init__(*arguments, **options)
        self._outcomes = {}

    def startTest(self, test):
        super().startTest(test)
        self._outcomes[test.id()] = {"began": time.monotonic(), "failures": []}

    def stopTest(self, test):
        outcome = self._outcomes[test.id()]
        outcome["time"] = f"{time.monotonic() - outcome['began']:.3f}s"
        super().stopTest(test)

    def addFailure(self, test, err):
        super().addFailure(test, err)
        self._failed(test, self.failures)

    def addError(self, test, err):
        super().addError(test, err)
        self._failed(test, self.errors)

    def addSubTest(self, test, subtest, err):
        super().addSubTest(test, subtest, err)
        if err:
            self._failed(test, self.failures if issubclass(err[0], test.failureException) else self.errors)

    def _failed(self, test, kept):
        text = kept[-1][1]
        if world := getattr(test, "world", None):
            kept[-1] = (test, f"{text}\n{world.describe()}")
        self._outcomes.setdefault(test.id(), {"failures": [], "time": "0s"})["failures"].append({"failure": text, "type": ""})

    def as_googletest(self):
        suites = {}
        for name, outcome in self._outcomes.items():
            _, suite, test = ("", "", *name.split("."))[-3:]
            entry = {"name": test, "classname": suite, "status": "RUN", "result": "COMPLETED", "time": outcome["time"]}
            entry |= {"failures": outcome["failures"]} if outcome["failures"] else {}
            suites.setdefault(suite, []).append(entry)
        groups = [{"name": suite, "tests": len(tests), "failures": sum("failures" in test for test in tests), "testsuite": tests}
                  for suite, tests in suites.items()]
        return {"tests": self.testsRun, "failures": sum(group["failures"] for group in groups), "name": "AllTests",
                "testsuites": groups}


if __name__ == "__main__":
    main()
