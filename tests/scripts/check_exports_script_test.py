#!/usr/bin/env python3
"""scripts/check-exports: a fourth entry point, another library and a descriptor are found."""

import subprocess
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
MAP = "AITORIXCAMERA_1 { global: cam_*; local: *; };\n"
SOURCE = "void cam_create(void) {}\nvoid cam_destroy(void) {}\nvoid cam_version(void) {}\n"


class CheckExports(unittest.TestCase):
    def check(self, more="", version=MAP, options=()):
        with tempfile.TemporaryDirectory() as folder:
            source, script, library = (Path(folder, name) for name in ("a.c", "a.map", "a.so"))
            source.write_text(SOURCE + more)
            script.write_text(version)
            subprocess.run(["gcc", "-shared", "-fPIC", source, "-o", library, *options,
                            f"-Wl,--version-script={script}"], check=True, timeout=60)
            run = subprocess.run([ROOT / "scripts/check-exports", library], capture_output=True,
                                 text=True, timeout=60)
            return run.returncode, run.stdout

    def test_what_is_shipped(self):
        self.assertEqual(self.check("int libusb_get_device_descriptor(void);\n"
                                    "void ask(void) { libusb_get_device_descriptor(); }\n"),
                         (0, ""))

    def test_another_entry_point(self):
        status, text = self.check("void cam_reset(void) {}\n")
        self.assertEqual(status, 1)
        self.assertIn("cam_reset@@AITORIXCAMERA_1", text)

    def test_an_entry_point_without_its_version(self):
        status, text = self.check(version="{ global: cam_*; local: *; };\n")
        self.assertEqual((status, text), (1, "exports: cam_create cam_destroy cam_version \n"))

    def test_another_library(self):
        status, text = self.check(options=["-Wl,--no-as-needed", "-l:librt.so.1"])
        self.assertEqual((status, text), (1, "needs librt.so.1\n"))

    def test_a_descriptor(self):
        self.assertEqual(self.check("int libusb_get_active_config_descriptor(void);\nvoid ask(void)"
                                    " { libusb_get_active_config_descriptor(); }\n"),
                         (1, "asks for libusb_get_active_config_descriptor\n"))


if __name__ == "__main__":
    unittest.main()
