"""Plants one violation of each rule in a small tree that keeps them all."""
import shutil
import tempfile
import unittest
from pathlib import Path

from check_includes import check

GOOD = {
    "plugins_int_build/ambrin/ambrin_bin.cpp": '#include <string>\n#include "flow/order.h"\n#include "problem.h"\n'
    '#include "ambrin_data.h"\n#include "ambrin_log.h"\n#include "vek/client.h"\n',
    "plugins_int_build/ambrin/ambrin_data.h": '#include "vek/client.h"\n',
    "plugins_int_build/ambrin/ambrin_log.h": "#include <string>\n",
    "plugins_int_build/ambrin/problem.h": '#include "ambrin_data.h"\n',
    "plugins_int_build/ambrin/flow/order.h": '#include "acme/response.h"\n#include "challenges/list.h"\n'
    '#include "encoding/encoding.h"\n#include "flow/order.h"\n#include "ambrin_log.h"\n',
    "plugins_int_build/ambrin/challenges/list.h": '#include "acme/response.h"\n#include "encoding/encoding.h"\n',
    "plugins_int_build/ambrin/acme/response.h": '#include <json/json.h>\n#include "encoding/encoding.h"\n',
    "plugins_int_build/ambrin/csr/csr.h": '#include "encoding/encoding.h"\n',
    "plugins_int_build/ambrin/encoding/encoding.h": "/* #include <curl/curl.h>\n*/\n#include <map>\n",
    "libvek/include/vek/client.h": '#include <string>\n#include "vek/xml.h"\n',
    "libvek/include/vek/xml.h": "// #include <pugixml.hpp>\n#include <memory>\n",
    "libvek/src/xml.cpp": '#include <pugixml.hpp>\n#include "vek/xml.h"\n#include "socket.h"\n',
    "libvek/src/socket.h": '#include <sys/socket.h>\n#include "vek/xml.h"\nstd::unique_ptr<int> From(); // std::set\n',
    "libvek/double/double.h": '#include <gtest/gtest.h>\n#include "vek/xml.h"\n#include "double/double.h"\n',
    "libvek/examples/example.cpp": '#include <gmock/gmock.h>\n#include "vek/xml.h"\n#include "double/double.h"\n',
    "zelvek/main.cpp": '#include <socket.h>\n#include "zelvek/base/error.h"\n#include "zelvek/cli/cli.h"\n#include "zelvek/service/serve.h"\n',
    "zelvek/base/error.h": '#include <vector>\n#include "vek/client.h"\n',
    "zelvek/store/store.h": '#include "zelvek/base/error.h"\n',
    "zelvek/certificates/install.h": '#include "zelvek/base/error.h"\n#include "zelvek/store/store.h"\n',
    "zelvek/publishing/publisher.h": '#include "zelvek/base/error.h"\n#include "zelvek/store/store.h"\n',
    "zelvek/jobs/scheduler.h": '#include "zelvek/base/error.h"\n#include "zelvek/store/store.h"\n',
    "zelvek/notices/watch.h": '#include "zelvek/base/error.h"\n#include "zelvek/store/store.h"\n',
    "zelvek/panel/functions.h": '#include "zelvek/base/error.h"\n#include "zelvek/store/store.h"\n'
    '#include "zelvek/certificates/install.h"\n#include "zelvek/publishing/publisher.h"\n#include "zelvek/jobs/scheduler.h"\n'
    '#include "zelvek/notices/watch.h"\n',
    "zelvek/service/serve.h": '#include <microhttpd.h>\n#include "zelvek/panel/functions.h"\n#include "zelvek/jobs/scheduler.h"\n',
    "zelvek/cli/cli.h": '#include "zelvek/base/error.h"\n',
}

PLANTED = [
    ("plugins_int_build/ambrin/encoding/encoding.h", '#include "acme/response.h"', "encoding must not include acme"),
    ("plugins_int_build/ambrin/acme/response.h", '#include "challenges/list.h"', "acme must not include challenges"),
    ("plugins_int_build/ambrin/acme/response.h", '#include "flow/order.h"', "acme must not include flow"),
    ("plugins_int_build/ambrin/challenges/list.h", '#include "flow/order.h"', "challenges must not include flow"),
    ("plugins_int_build/ambrin/csr/csr.h", '#include "acme/response.h"', "csr must not include acme"),
    ("plugins_int_build/ambrin/flow/order.h", '#include "csr/csr.h"', "flow must not include csr"),
    ("plugins_int_build/ambrin/flow/order.h", '#include "../problem.h"', "flow must not include problem"),
    ("plugins_int_build/ambrin/ambrin_bin.cpp", '#include "encoding/encoding.h"', "driver must not include encoding"),
    ("plugins_int_build/ambrin/problem.h", '#include "acme/response.h"', "problem must not include acme"),
    ("plugins_int_build/ambrin/ambrin_data.h", '#include "problem.h"', "record must not include problem"),
    ("plugins_int_build/ambrin/flow/order.h", "#include <curl/curl.h>", "the program includes"),
    ("plugins_int_build/ambrin/flow/order.h", "#include <json/value.h>", "the program includes"),
    ("plugins_int_build/ambrin/flow/order.h", "  #  include <unistd.h>", "the program includes"),
    ("plugins_int_build/ambrin/flow/order.h", '#include "socket.h"', "the program includes"),
    ("plugins_int_build/ambrin/flow/order.h", '#include "zelvek/store/store.h"', "the program includes"),
    ("plugins_int_build/ambrin/flow/order.h", "#include HEADER", "a macro names"),
    ("plugins_int_build/ambrin/flow/order.h", '#include "gone.h"', "no such file"),
    ("plugins_int_build/ambrin/utils.h", "#include <string>", "has no place"),
    ("plugins_int_build/ambrin/tools/tool.h", "#include <string>", "has no place"),
    ("libvek/include/vek/xml.h", "#include <pugixml.hpp>", "public headers"),
    ("libvek/include/vek/xml.h", '#include "../../src/socket.h"', "public headers"),
    ("libvek/src/xml.cpp", '#include "ambrin_data.h"', "neither program nor service"),
    ("libvek/src/xml.cpp", '#include "store/store.h"', "neither program nor service"),
    ("libvek/src/xml.cpp", "#include <zelvek/store/store.h>", "neither program nor service"),
    ("libvek/double/double.h", '#include "../src/socket.h"', "double and examples"),
    ("libvek/double/double.h", "#include <curl/curl.h>", "double and examples"),
    ("libvek/examples/example.cpp", '#include "ambrin_data.h"', "double and examples"),
    ("zelvek/main.cpp", '#include "plugins_int_build/ambrin/ambrin_data.h"', "the service includes"),
    ("zelvek/main.cpp", '#include "socket.h"', "the service includes"),
    ("zelvek/main.cpp", '#include "zelvek/store/store.h"', "main must not include store"),
    ("zelvek/base/error.h", '#include "zelvek/store/store.h"', "base must not include store"),
    ("zelvek/store/store.h", '#include "zelvek/jobs/scheduler.h"', "store must not include jobs"),
    ("zelvek/certificates/install.h", '#include "zelvek/publishing/publisher.h"', "certificates must not include publishing"),
    ("zelvek/publishing/publisher.h", '#include "zelvek/jobs/scheduler.h"', "publishing must not include jobs"),
    ("zelvek/jobs/scheduler.h", '#include "zelvek/panel/functions.h"', "jobs must not include panel"),
    ("zelvek/jobs/scheduler.h", '#include "zelvek/notices/watch.h"', "jobs must not include notices"),
    ("zelvek/notices/watch.h", '#include "zelvek/jobs/scheduler.h"', "notices must not include jobs"),
    ("zelvek/notices/watch.h", '#include "zelvek/panel/functions.h"', "notices must not include panel"),
    ("zelvek/panel/functions.h", '#include "../service/serve.h"', "panel must not include service"),
    ("zelvek/service/serve.h", '#include "zelvek/cli/cli.h"', "service must not include cli"),
    ("zelvek/cli/cli.h", '#include "zelvek/store/store.h"', "cli must not include store"),
    ("zelvek/cli/cli.h", '#include "zelvek/service/serve.h"', "cli must not include service"),
    ("zelvek/tools/tool.h", "#include <string>", "has no place"),
    ("zelvek/tool.h", "#include <string>", "has no place"),
    ("zelvek/base/error.h", "inline std::set<int> Numbers();", "takes from <set>"),
    ("libvek/src/socket.h", "std::unique_ptr<int> made; std::vector<int> not_included; // std::map", "takes from <vector>"),
]


class CheckIncludes(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        for path, text in GOOD.items():
            self.add(path, text)

    def add(self, path, text):
        file = self.root / path
        file.parent.mkdir(parents=True, exist_ok=True)
        with file.open("a", encoding="utf-8") as stream:
            stream.write(text)

    def test_tree_that_keeps_the_rules_passes(self):
        self.assertEqual(check(self.root), [])

    def test_each_planted_violation_is_the_one_finding(self):
        for path, line, complaint in PLANTED:
            with self.subTest(path=path, line=line):
                file = self.root / path
                before = file.read_text(encoding="utf-8") if file.exists() else None
                self.add(path, line + "\n")
                findings = check(self.root)
                self.assertEqual(len(findings), 1, findings)
                number = len((before or "").splitlines()) + 1
                self.assertTrue(findings[0].startswith(f"{path}:{number}: "), findings)
                self.assertIn(complaint, findings[0])
                file.write_text(before, encoding="utf-8") if before is not None else file.unlink()

    def test_folder_without_sources_is_a_finding(self):
        shutil.rmtree(self.root / "zelvek")
        self.assertEqual(check(self.root), ["zelvek: no sources found"])


if __name__ == "__main__":
    unittest.main()
