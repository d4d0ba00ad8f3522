#!/usr/bin/env python3
"""scripts/system_guest.py: finds the libraries of a program without running it, as the loader would.

usage: guest_libraries_test.py PROGRAM...
"""

import re
import subprocess
import sys
import sysconfig
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "scripts"))
sys.dont_write_bytecode = True
from system_guest import Binaries, GuestError, element_of  # noqa: E402

PROGRAMS = [Path(argument) for argument in sys.argv[1:]]
LIBRARIES = Path("/usr/lib") / sysconfig.get_config_var("MULTIARCH")


def libraries_of_the_loader(program):
    listing = subprocess.run(["ldd", program], stdout=subprocess.PIPE, text=True, check=True).stdout
    return set(re.findall(r"^\s*(\S+) => /", listing, re.MULTILINE))


class GuestLibraries(unittest.TestCase):
    def test_those_that_the_loader_takes(self):
        self.assertGreaterEqual(len(PROGRAMS), 2)
        for program in PROGRAMS:
            with self.subTest(program=program.name):
                found = Binaries("", [LIBRARIES]).needed_libraries([program])
                self.assertTrue(all(path.is_file() for path in found))
                names = {path.name for path in found}
                self.assertGreaterEqual(len(names), 3)
                self.assertEqual({name for name in names if not name.startswith("ld-linux")},
                                 libraries_of_the_loader(program))

    def test_the_first_folder_wins(self):
        with tempfile.TemporaryDirectory() as folder:
            first = Path(folder)
            (first / "libc.so.6").symlink_to(LIBRARIES / "libc.so.6")
            found = Binaries("", [first, LIBRARIES]).needed_libraries(PROGRAMS[:1])
            self.assertIn(first / "libc.so.6", found)
            self.assertNotIn(LIBRARIES / "libc.so.6", found)

    def test_a_library_that_is_nowhere(self):
        with tempfile.TemporaryDirectory() as nothing, self.assertRaises(GuestError) as caught:
            Binaries("", [Path(nothing)]).needed_libraries(PROGRAMS[:1])
        self.assertIn(f"{PROGRAMS[0]} needs lib", str(caught.exception))

    def test_no_element_where_no_pipeline_can_be_played(self):
        with tempfile.TemporaryDirectory() as folder:
            build, sysroot = Path(folder) / "build", Path(folder) / "sysroot"
            element, player = build / "gst/libgstaitcam.so", sysroot / "usr/bin/gst-launch-1.0"
            self.assertIsNone(element_of(build, sysroot))
            element.parent.mkdir(parents=True)
            element.touch()
            self.assertIsNone(element_of(build, sysroot))
            player.parent.mkdir(parents=True)
            player.touch()
            self.assertEqual(element_of(build, sysroot), element)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
