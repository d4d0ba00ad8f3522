#!/usr/bin/env python3
"""scripts/build and the project's CMake files on a tiny tree: whom a compiler's warning stops."""

import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
WARNED = "int twice(int value) { int unused; return 2 * value; }\n"


class Build(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        for name in ("CMakeLists.txt", "CMakePresets.json", "scripts/build", "scripts/print-help"):
            (self.root / name).parent.mkdir(exist_ok=True)
            shutil.copy(ROOT / name, self.root / name)
        for name in ("Src", "virtcam", "host", "gst", "tests", "bench", "packaging"):
            (self.root / name).mkdir()
            (self.root / name / "CMakeLists.txt").touch()
        (self.root / "Src/CMakeLists.txt").write_text(
            "add_library(warned STATIC warned.cpp)\n"
            "target_link_libraries(warned PRIVATE aitcam_flags)\n")
        (self.root / "Src/warned.cpp").write_text(WARNED)

    def build(self, *arguments):
        run = subprocess.run([self.root / "scripts/build", *arguments], stdout=subprocess.PIPE,
                             stderr=subprocess.STDOUT, text=True, timeout=100)
        return run.returncode == 0, run.stdout

    def test_users_are_warned_and_go_on(self):
        good, output = self.build()
        self.assertTrue(good, output)
        self.assertIn("[-Wunused-variable]", output)

    def test_own_checks_stop(self):
        self.build()
        for arguments in (["--strict"], ["--strict", "release", "warned"], [], ["asan"], ["tsan"]):
            with self.subTest(arguments=arguments):
                good, output = self.build(*arguments)
                self.assertFalse(good, output)
                self.assertIn("[-Werror=unused-variable]", output)


if __name__ == "__main__":
    unittest.main()
