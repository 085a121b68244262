"""Plants one violation of each kind in a list of equivalent changes that is in order."""
import importlib.util
import io
import json
import tempfile
import unittest
from contextlib import redirect_stdout
from importlib.machinery import SourceFileLoader
from pathlib import Path
from unittest import mock

SCRIPT = str(Path(__file__).parents[2] / "scripts" / "mutate")
LOADER = SourceFileLoader("mutate", SCRIPT)
MODULE = importlib.util.module_from_spec(importlib.util.spec_from_loader("mutate", LOADER))
LOADER.exec_module(MODULE)

SOURCE = "libvek/src/one.cpp"
ENTRY = {"file": SOURCE, "before": "if (a == b) return;", "after": "if (a != b) return;", "reason": "both are empty"}


class CheckMutationList(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        for name in ("libvek/src", "libvek/include", "plugins_int_build/ambrin", "tests/mutation"):
            (self.root / name).mkdir(parents=True)
        (self.root / SOURCE).write_text("void f() {\n    if (a == b) return;\n}\n", encoding="utf-8")

    def outcome(self, *entries):
        """The text that the check ends with, or its status."""
        file = self.root / "tests/mutation/equivalent.json"
        file.write_text(json.dumps(entries), encoding="utf-8")
        with mock.patch.multiple(MODULE, ROOT=self.root, EQUIVALENT=file), redirect_stdout(io.StringIO()):
            try:
                return MODULE.main(["--check-list"])
            except SystemExit as end:
                return end.code

    def test_list_in_order_passes(self):
        self.assertEqual(self.outcome(ENTRY), 0)

    def test_line_that_is_gone_is_found(self):
        self.assertIn("no such change any more: libvek/src/one.cpp: if (a == c)", self.outcome(ENTRY | {"before": "if (a == c)"}))

    def test_change_that_is_not_made_is_found(self):
        self.assertIn("no such change any more", self.outcome(ENTRY | {"after": "if (a << b) return;"}))

    def test_file_that_is_gone_is_found(self):
        self.assertIn("no such change any more", self.outcome(ENTRY, ENTRY | {"file": "libvek/src/two.cpp"}))

    def test_entry_that_stands_twice_is_found(self):
        self.assertIn("listed twice", self.outcome(ENTRY, ENTRY))

    def test_entry_without_a_reason_is_found(self):
        self.assertIn("without a reason", self.outcome(ENTRY | {"reason": ""}))


if __name__ == "__main__":
    unittest.main()
