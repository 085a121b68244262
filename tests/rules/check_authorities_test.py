"""Plants one mistake of each kind in what a packager says about the plug-ins to build."""
import subprocess
import tempfile
import unittest
from pathlib import Path

CHECK = Path(__file__).parents[2] / "cmake" / "Authorities.cmake"


class CheckAuthorities(unittest.TestCase):
    def outcome(self, **options):
        """The plug-ins that are to be built, or what is wrong."""
        with tempfile.NamedTemporaryFile("w", suffix=".cmake", encoding="utf-8") as script:
            script.write(f'cmake_minimum_required(VERSION 3.25)\ninclude("{CHECK}")\nforeach(name ${{AMBRIN_PLUGINS}})\n'
                         '  message("${name} ${${name}_DIRECTORY_URL} ${${name}_STYLE}")\nendforeach()\n')
            script.flush()
            command = ["cmake", *(f"-D{name}={value}" for name, value in options.items()), "-P", script.name]
            done = subprocess.run(command, capture_output=True, text=True, check=False)
        self.assertEqual(done.returncode != 0, "CMake Error" in done.stderr, done.stderr)
        return " ".join(done.stderr.split())

    def test_nothing_said_is_one_plugin_in_the_classic_style(self):
        self.assertEqual(self.outcome(), "ambrin https://acme-v02.api.letsencrypt.org/directory classic")

    def test_further_plugins_stand_beside_it(self):
        self.assertEqual(self.outcome(AMBRIN_DIRECTORY_URL="https://ca.example/dir", AMBRIN_AUTHORITY="rfc8555",
                                      AMBRIN_MORE="ambrin-a|https://a.example/d?x=1|classic;ambrin-b-2|https://b.example:14000/d|rfc8555"),
                         "ambrin https://ca.example/dir rfc8555 ambrin-a https://a.example/d?x=1 classic "
                         "ambrin-b-2 https://b.example:14000/d rfc8555")

    def test_mistakes_are_named(self):
        for said, options in {
            'the style of ambrin is neither classic nor rfc8555: "rfc"': {"AMBRIN_AUTHORITY": "rfc"},
            'the style of ambrin is neither classic nor rfc8555: ""': {"AMBRIN_AUTHORITY": ""},
            'the style of ambrin-a is neither classic nor rfc8555: "new"': {"AMBRIN_MORE": "ambrin-a|https://a.example/d|new"},
            'no https:// URL as directory of ambrin: "http://ca.example/d"': {"AMBRIN_DIRECTORY_URL": "http://ca.example/d"},
            'no https:// URL as directory of ambrin: "https://ca.example/\\"': {"AMBRIN_DIRECTORY_URL": "https://ca.example/\\"},
            'no https:// URL as directory of ambrin: "https://ca.example/""': {"AMBRIN_DIRECTORY_URL": 'https://ca.example/"'},
            'no name like "ambrin-staging": "zelvek"': {"AMBRIN_MORE": "zelvek|https://a.example/d|rfc8555"},
            'no name like "ambrin-staging": "ambrin-../a"': {"AMBRIN_MORE": "ambrin-../a|https://a.example/d|rfc8555"},
            'not of the form NAME|DIRECTORY_URL|STYLE: "ambrin-a|rfc8555"': {"AMBRIN_MORE": "ambrin-a|rfc8555"},
            'a second plug-in of the name "ambrin"': {"AMBRIN_MORE": "ambrin|https://a.example/d|rfc8555"},
        }.items():
            with self.subTest(said):
                self.assertIn(said, self.outcome(**options))


if __name__ == "__main__":
    unittest.main()
