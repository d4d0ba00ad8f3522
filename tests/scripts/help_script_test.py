#!/usr/bin/env python3
"""Every program of scripts/, and ./demo and ./test, says what it is for when asked with --help."""

import itertools
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


def ask(program, cwd=None):
    return subprocess.run([program, "--help"], cwd=cwd, stdin=subprocess.DEVNULL,
                          capture_output=True, text=True, timeout=30)


def head_comment(script):
    """The comment below a shell script's first line, without its marks."""
    comment = itertools.takewhile(lambda line: line.startswith("#"),
                                  script.read_text().splitlines()[1:])
    return [line[1:].removeprefix(" ") for line in comment]


class Help(unittest.TestCase):
    def test_each_program_answers(self):
        for program in programs():
            with self.subTest(program=program.name):
                run = ask(program)
                self.assertEqual((run.returncode, run.stderr), (0, ""))
                self.assertIn("usage:", run.stdout.lower())
                self.assertGreaterEqual(len(run.stdout.splitlines()), 3)

    def test_shell_scripts_answer_with_their_whole_comment_from_everywhere(self):
        shell = [program for program in programs() if program.read_text().startswith("#!/bin/sh")]
        self.assertGreaterEqual(len(shell), 7)
        for program in shell:
            if program.name == "test":
                continue  # answers with the help of scripts/run-tests, which takes its options
            with self.subTest(program=program.name):
                run = ask(Path(ROOT.name) / program.relative_to(ROOT), cwd=ROOT.parent)
                self.assertEqual((run.returncode, run.stderr), (0, ""))
                self.assertEqual(run.stdout.splitlines(), head_comment(program))


if __name__ == "__main__":
    unittest.main()
