#!/usr/bin/env python3
"""Every program of scripts/, and ./demo and ./test, says what it is for when asked with --help."""

import os
import subprocess
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]


def programs():
    found = [ROOT / "demo", ROOT / "test"]
    for path in sorted((ROOT / "scripts").iterdir()):
        if path.is_file() and os.access(path, os.X_OK):
            found.append(path)
    return found


class Help(unittest.TestCase):
    def test_each_program_answers(self):
        for program in programs():
            with self.subTest(program=program.name):
                run = subprocess.run([program, "--help"], stdin=subprocess.DEVNULL,
                                     capture_output=True, text=True, timeout=30)
                self.assertEqual((run.returncode, run.stderr), (0, ""))
                self.assertIn("usage:", run.stdout.lower())
                self.assertGreaterEqual(len(run.stdout.splitlines()), 3)
                self.assertNotIn("set -eu", run.stdout)


if __name__ == "__main__":
    unittest.main()
