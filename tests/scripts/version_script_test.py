#!/usr/bin/env python3
"""One version everywhere: each program says the one of project(), and so do the pages."""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
PROGRAMS = [Path(argument) for argument in sys.argv[1:]]  # built ones


def project_version():
    text = (ROOT / "CMakeLists.txt").read_text()
    return re.search(r"^project\(aitorixcamera VERSION (\d+\.\d+\.\d+) ", text, re.MULTILINE)[1]


def scripts():
    return [path for path in (ROOT / "demo", ROOT / "test", *sorted((ROOT / "scripts").iterdir()))
            if path.is_file() and os.access(path, os.X_OK)]


def ask(program):
    return subprocess.run([program, "--version"], stdin=subprocess.DEVNULL, capture_output=True,
                          text=True, timeout=30)


def source_number(pattern, name):
    return re.search(pattern, (ROOT / name).read_text())[1]


class Version(unittest.TestCase):
    def test_each_program_says_it(self):
        self.assertGreaterEqual(len(PROGRAMS), 2)
        for program in [*scripts(), *PROGRAMS]:
            with self.subTest(program=program.name):
                run = ask(program)
                self.assertEqual((run.returncode, run.stderr), (0, ""))
                self.assertRegex(run.stdout, rf"^\S+ {re.escape(project_version())}\n$")

    def test_an_installed_script_has_it_in_a_file(self):
        with tempfile.TemporaryDirectory() as folder:
            root = Path(folder)
            (root / "version").write_text("8.7.6\n")
            for name in ("print-version", "print-help", "publish-bus-listing", "sandbox",
                         "project_version.py"):
                (root / "scripts").mkdir(exist_ok=True)
                shutil.copy(ROOT / "scripts" / name, root / "scripts")
            (root / "linked").symlink_to("scripts/publish-bus-listing")
            self.assertEqual(ask(root / "scripts/sandbox").stdout, "sandbox 8.7.6\n")
            self.assertEqual(ask(root / "linked").stdout, "linked 8.7.6\n")
            self.assertFalse((root / "scripts/__pycache__").exists())

    def test_the_hosts_number_is_made_of_it(self):
        major, minor, _ = map(int, project_version().split("."))
        number = source_number(r"kPluginVersion = (\d+);", "Src/AitOrixCamera_Entry.cpp")
        self.assertEqual(int(number), 100 * major + minor)

    def test_the_changelog_begins_with_it(self):
        newest = re.findall(r"^## (\S+)", (ROOT / "CHANGELOG.md").read_text(), re.MULTILINE)[0]
        self.assertEqual(newest, project_version())


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
