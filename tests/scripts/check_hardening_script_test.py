#!/usr/bin/env python3
"""scripts/check-hardening: each protection that a library lacks is named."""

import subprocess
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
SOURCE = """
#include <stdio.h>
#include <string.h>
extern int printed(const char* text, int count);
int printed(const char* text, int count) {
    char line[100];
    snprintf(line, sizeof line, "%s", text);
    memset(line, 0, count);
    return puts(line);
}
"""
COMPILE = {"-fstack-protector-strong": "stack protector", "-D_FORTIFY_SOURCE=2": "_FORTIFY_SOURCE"}
LINK = {"-Wl,-z,relro": "-z relro", "-Wl,-z,now": "-z now", "-Wl,-z,noexecstack": "-z noexecstack"}
OFF = {"-fstack-protector-strong": "-fno-stack-protector", "-D_FORTIFY_SOURCE=2": "-U_FORTIFY_SOURCE",
       "-Wl,-z,relro": "-Wl,-z,norelro", "-Wl,-z,now": "-Wl,-z,lazy",
       "-Wl,-z,noexecstack": "-Wl,-z,execstack"}


class CheckHardening(unittest.TestCase):
    def check(self, options):
        with tempfile.TemporaryDirectory() as folder:
            source, library = Path(folder, "a.c"), Path(folder, "a.so")
            source.write_text(SOURCE)
            subprocess.run(["g++", "-x", "c++", "-O2", "-shared", "-fPIC", "-U_FORTIFY_SOURCE",
                            *options, source, "-o", library], check=True, timeout=60)
            return subprocess.run([ROOT / "scripts/check-hardening", library],
                                  capture_output=True, text=True, timeout=60)

    def test_all_of_them(self):
        run = self.check([*COMPILE, *LINK])
        self.assertEqual((run.returncode, run.stdout), (0, ""), run)

    def test_each_that_is_missing(self):
        every = {**COMPILE, **LINK}
        for left_out, word in every.items():
            run = self.check([OFF[option] if option == left_out else option for option in every])
            self.assertEqual(run.returncode, 1, left_out)
            self.assertIn(word, run.stdout, left_out)

    def test_a_search_path(self):
        run = self.check([*COMPILE, *LINK, "-Wl,-rpath,/tmp"])
        self.assertEqual((run.returncode, run.stdout.strip()), (1, "a search path of its own"))

    def test_no_library(self):
        self.assertEqual(subprocess.run([ROOT / "scripts/check-hardening", "/nowhere"],
                                        capture_output=True, timeout=60).returncode, 2)


if __name__ == "__main__":
    unittest.main()
