#!/usr/bin/env python3
"""scripts/check-includes: the tree passes, and an include that runs upwards does not."""

import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
FOLDERS = ("Src", "Driver", "virtcam", "host", "gst")


class CheckIncludes(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.tree = Path(folder.name)
        for name in FOLDERS:
            shutil.copytree(ROOT / name, self.tree / name)
        (self.tree / "scripts").mkdir()
        shutil.copy(ROOT / "scripts/check-includes", self.tree / "scripts")

    def check(self):
        return subprocess.run([self.tree / "scripts/check-includes"], capture_output=True,
                              text=True, timeout=60)

    def assert_refused(self, file, line, named=None):
        """A file that is given this line is refused, and named."""
        with open(self.tree / file, "a") as source:
            source.write(f"\n{line}\n")
        run = self.check()
        self.assertEqual(run.returncode, 1, run)
        self.assertIn(named or line, run.stdout + run.stderr)

    def test_the_tree_as_it_is(self):
        run = self.check()
        self.assertEqual((run.returncode, run.stdout, run.stderr), (0, "", ""))

    def test_the_judge_shares_nothing_with_the_judged(self):
        self.assert_refused("virtcam/model/scene.cpp", '#include "Src/AitXu.h"')
        self.assert_refused("host/main.cpp", '#include "aitdbg.h"')
        self.assert_refused("gst/channel.cpp", '#include "Src/AitXu.h"')

    def test_the_element_takes_the_core_of_camhost_alone(self):
        self.assert_refused("gst/channel.cpp", '#include "host/commands/options.h"')
        self.assert_refused("gst/channel.h", '#include "virtcam/model/scene.h"')

    def test_the_driver_knows_no_camera(self):
        self.assert_refused("Driver/aitcamlib/aitcamlib/ptasking.h", '#include "AitXu.h"')

    def test_each_floor_of_the_virtual_camera_looks_down(self):
        for file, line in (
                ("virtcam/model/scene.h", '#include "virtcam/faults/rule.h"'),
                ("virtcam/faults/rule.h", '#include "virtcam/line/ending.h"'),
                ("virtcam/line/ending.h", '#include "virtcam/bus/records.h"'),
                ("virtcam/usbip/pdu.h", '#include "virtcam/bus/records.h"'),
                ("virtcam/bus/records.h", '#include "virtcam/usbip/pdu.h"'),
                ("virtcam/usbip/bench.h", '#  include  "virtcam/tool/options.h"'),
                ("virtcam/line/ending.h", '#include "../bus/records.h"'),
                ("virtcam/line/ending.h", '#include "request.h"')):
            with self.subTest(file=file, line=line):
                self.assert_refused(file, line)
                shutil.copy(ROOT / file, self.tree / file)

    def test_each_floor_of_the_host_program_looks_down(self):
        for file, line in (
                ("host/base/exit_code.h", '#include "host/streams/stream_kind.h"'),
                ("host/pictures/picture.h", '#include "host/writers/media_writer.h"'),
                ("host/session/controls.h", '#include "host/recording/report.h"'),
                ("host/recording/report.h", '#include "host/commands/commands.h"')):
            with self.subTest(file=file, line=line):
                self.assertTrue((self.tree / file).exists())
                self.assert_refused(file, line)
                shutil.copy(ROOT / file, self.tree / file)

    def test_a_roof_is_not_for_its_own_folder(self):
        self.assert_refused("virtcam/model/presence.h", '#include "virtcam/model/camera.h"')

    def test_no_circle(self):
        self.assert_refused("virtcam/line/request.h", '#include "virtcam/line/endpoint.h"',
                            "virtcam/line/endpoint")


if __name__ == "__main__":
    unittest.main()
