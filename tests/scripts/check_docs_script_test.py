#!/usr/bin/env python3
"""scripts/check-docs: says what the pages leave out, name twice or get wrong, and nothing else."""

import subprocess
import tempfile
import unittest
from pathlib import Path

SCRIPT = Path(__file__).resolve().parents[2] / "scripts/check-docs"

FILES = ("Src/Parser.h", "Src/Parser.cpp", "Driver/aitcamlib/aitcamlib/Engine.h",
         "Driver/aitcamlib/aitcamlib/Engine.cpp", "tests/driver/engine_test.cpp", "scripts/build",
         "virtcam/model/scene.cpp")

MAP = """# Architecture

A [recipe](how-to.md#add-a-row), `scripts/build` and the [parser](../Src/Parser.cpp).

## The map of the files
| hop | file | thread | locks | tests |
|---|---|---|---|---|
| in | `Driver/Engine.h/.cpp` | events | producer | `driver/engine_test` |
| apart | `Src/Parser.h/.cpp` | capture | – | – |

## Kept
`Src/Parser.h` may be named again here.
"""

HOW_TO = """# How to

## Add a row
In `Parser.cpp` and `virtcam/model/*.cpp`; a test goes to `tests/GROUP/`.
Its report is `out.json`.
```
scripts/build release
```
"""


class CheckDocs(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        for name in FILES:
            self.write(name, "")
        self.write("README.md", "See [the docs](docs/architecture.md).\n")
        self.write("docs/architecture.md", MAP)
        self.write("docs/how-to.md", HOW_TO)

    def write(self, name, text):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)

    def change(self, name, old, new):
        text = (self.root / name).read_text()
        self.assertIn(old, text)
        self.write(name, text.replace(old, new, 1))

    def expect(self, *findings):
        run = subprocess.run([SCRIPT, "--root", self.root], capture_output=True, text=True,
                             timeout=60)
        self.assertEqual((run.stdout.splitlines(), run.stderr), (list(findings), ""))
        self.assertEqual(run.returncode, 1 if findings else 0)

    def test_pages_that_fit_the_tree(self):
        self.expect()

    def test_lines_of_the_log(self):
        self.write("Src/Parser.cpp", 'AIT_LOG(1, "Frame %d of %s is\\r\\n");\nAIT_LOG(4,\n'
                                     '    "found a usb device. "\n    "It is 0x%X.\\r\\n");\n')
        self.write("docs/integration.md",
                   "| | line of the log | cure |\n|---|---|---|\n"
                   "| 1 | [1] `Frame 17 of main is` or `of main is` | `nothing like that` |\n"
                   "| 2 | [4] `a usb device. It is 0x1F.` | |\n"
                   "| 3 | [4] `Frame x of` and `It is 0xG` | |\n"
                   "| 4 | `Frame` `Sound` | |\n\n| other |\n|---|\n| `Sound` |\n")
        self.expect("docs/integration.md:5: nothing prints \"Frame x of\"",
                    "docs/integration.md:5: nothing prints \"It is 0xG\"",
                    "docs/integration.md:6: nothing prints \"Sound\"")

    def test_tests_that_hold_something(self):
        self.write("tests/driver/engine_test.cpp", "TEST(Engine, Starts) {}\nTEST_F(Engine, Stops)"
                                                   " {}\nTEST_P(\n    Engine, Goes) {}\n")
        self.write("fuzz/fuzz_engine.cpp", "")
        self.write("docs/robustness.md",
                   "| | held by test |\n|---|---|\n"
                   "| 1 | `Engine.Starts` `Engine.Stops`, `Engine.Goes` |\n"
                   "| 2 | `fuzz_engine` `driver/engine_test` `scripts/build` |\n"
                   "| `Engine.Sings` | `Engine.Dances` `fuzz_motor` |\n"
                   "| 4 | `driver/motor_test` `scripts/oil` |\n\n| held by |\n|---|\n| `Them` |\n")
        self.expect("docs/robustness.md:6: scripts/oil does not exist",
                    "docs/robustness.md:5: there is no test Engine.Dances",
                    "docs/robustness.md:5: there is no test fuzz_motor",
                    "docs/robustness.md:6: there is no test driver/motor_test",
                    "docs/robustness.md:6: there is no test scripts/oil")

    def test_a_row_without_a_line_of_the_log(self):
        self.write("docs/integration.md", "| | line of the log |\n|---|:--|\n| 1 | nothing |\n")
        self.expect("docs/integration.md:3: no line of the log is quoted in this row")

    def test_a_file_that_the_map_leaves_out(self):
        self.write("Src/Platform.cpp", "")
        self.expect("docs/architecture.md:6: Src/Platform.cpp is not in the map")

    def test_half_of_a_pair_that_the_map_leaves_out(self):
        self.change("docs/architecture.md", "`Src/Parser.h/.cpp`", "`Src/Parser.cpp`")
        self.expect("docs/architecture.md:6: Src/Parser.h is not in the map")

    def test_a_file_that_the_map_names_twice(self):
        self.change("docs/architecture.md", "| apart | `Src/", "| apart | `Driver/Engine.h` `Src/")
        self.expect("docs/architecture.md:9: Driver/aitcamlib/aitcamlib/Engine.h is in the map "
                    "twice, see line 8")

    def test_a_file_of_the_map_that_is_gone(self):
        (self.root / "Src/Parser.h").unlink()
        (self.root / "Src/Parser.cpp").rename(self.root / "Src/Splitter.cpp")
        self.change("docs/architecture.md", "../Src/Parser.cpp", "../Src/Splitter.cpp")
        self.change("docs/architecture.md", "`Src/Parser.h` may", "It may")
        self.change("docs/how-to.md", "`Parser.cpp` and ", "")
        self.expect("docs/architecture.md:6: Src/Splitter.cpp is not in the map",
                    "docs/architecture.md:9: Src/Parser.h does not exist",
                    "docs/architecture.md:9: Src/Parser.cpp does not exist")

    def test_a_test_of_the_map_that_is_gone(self):
        self.change("docs/architecture.md", "driver/engine_test", "driver/motor_test")
        self.expect("docs/architecture.md:8: there is no test driver/motor_test")

    def test_a_page_without_the_map(self):
        self.change("docs/architecture.md", "## The map of the files", "## The map")
        self.expect('docs/architecture.md: there is no section "The map of the files"')

    def test_a_link_to_nothing(self):
        self.change("README.md", "architecture.md", "structure.md")
        self.expect("README.md:1: link to docs/structure.md, which does not exist")

    def test_a_link_to_a_section_that_is_gone(self):
        self.change("docs/how-to.md", "## Add a row", "## Add a line")
        self.expect("docs/architecture.md:3: link to how-to.md#add-a-row: no such section")

    def test_a_link_over_two_lines(self):
        self.change("README.md", "[the docs](docs/architecture.md)", "[the\ndocs](docs/house.md)")
        self.expect("README.md:2: link to docs/house.md, which does not exist")

    def test_a_path_to_nothing(self):
        self.change("docs/how-to.md", "virtcam/model/*.cpp", "virtcam/modle/*.cpp")
        self.change("docs/how-to.md", "goes to `tests/GROUP/`", "to `tests/group/`")
        self.expect("docs/how-to.md:4: virtcam/modle/*.cpp does not exist",
                    "docs/how-to.md:4: tests/group/ does not exist")

    def test_a_file_name_of_nothing(self):
        self.change("docs/how-to.md", "`Parser.cpp`", "`Splitter.cpp`")
        self.expect("docs/how-to.md:4: there is no file Splitter.cpp")

    def test_a_command_of_nothing(self):
        self.change("docs/how-to.md", "\nscripts/build release", "\nscripts/make release")
        self.expect("docs/how-to.md:7: scripts/make does not exist")

    def test_a_long_line(self):
        self.change("README.md", "See", "x" * 65 + " See")
        self.expect("README.md:1: 103 columns")
        self.write("README.md", f"| {'x' * 120} |\n\n```\n{'x' * 120}\n```\n")
        self.expect()


if __name__ == "__main__":
    unittest.main()
