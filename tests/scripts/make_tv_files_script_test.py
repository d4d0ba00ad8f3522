#!/usr/bin/env python3
"""scripts/make-tv-files: the marks that plug-in and virtual camera look at."""

import struct
import subprocess
import tempfile
import unittest
from pathlib import Path

SCRIPT = Path(__file__).resolve().parents[2] / "scripts/make-tv-files"


class TvFiles(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)

    def make(self, *arguments):
        subprocess.run([SCRIPT, self.root, *arguments], check=True, timeout=30)

    def test_same_arguments_same_bytes(self):
        self.make()
        first = {p: p.read_bytes() for p in self.root.rglob("*") if p.is_file()}
        self.make()
        self.assertEqual(first, {p: p.read_bytes() for p in self.root.rglob("*") if p.is_file()})
        self.assertEqual(len(first), 8)

    def test_firmware_of_the_two_sources_differs_and_says_so(self):
        self.make("--fw-size", "4096")
        shipped = (self.root / "mtd_exe/lumo/Tarlo_Ext_FW.bin").read_bytes()
        loaded = (self.root / "mtd_rwcommon/lumo/bin/Tarlo_Ext_FW.bin").read_bytes()
        self.assertEqual([len(shipped), len(loaded)], [4096, 4096])
        self.assertEqual(shipped[64:78], b"AITFWVER" + bytes.fromhex("000100450110"))
        self.assertEqual(loaded[64:78], b"AITFWVER" + bytes.fromhex("000100450120"))

    def test_boot_code_has_its_version_word(self):
        self.make("--boot-version", "0x12345")
        image = (self.root / "mtd_exe/lumo/VespinPlus_BC.bin").read_bytes()
        self.assertEqual(struct.unpack_from("<I", image, 8242)[0], 0xFAC12345)

    def test_platform_is_where_it_is_looked_for(self):
        self.make("--platform", "ruffplus")
        self.assertEqual((self.root / "mtd_exe/.info").read_text()[5:7], "10")
        self.make("--platform", "shads")
        self.assertEqual((self.root / "mtd_exe/.info").read_text()[2:5], "GFS")

    def test_what_is_not_wanted_is_not_made(self):
        self.make("--downloaded-version", "none", "--frequency", "none")
        self.assertFalse((self.root / "mtd_rwcommon").exists())
        self.assertFalse((self.root / "dtv/cm_frequency").exists())

    def test_versions_stand_in_their_element(self):
        self.make("--default-version", "1.5")
        text = (self.root / "mtd_exe/lumo/opxCamera.xml").read_text()
        self.assertIn("<Version>1.5</Version>", text)


if __name__ == "__main__":
    unittest.main()
