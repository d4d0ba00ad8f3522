#!/usr/bin/env python3
"""scripts/check-opcodes: numbers of vendor commands are found wherever they could hide."""

import subprocess
import tempfile
import unittest
from pathlib import Path

SCRIPT = Path(__file__).resolve().parents[2] / "scripts/check-opcodes"
TABLE = "Driver/aitcamlib/aitcamlib/VendorCommands.h"


class CheckOpcodes(unittest.TestCase):
    def run_on(self, files):
        """Exit status and lines for a tree of these files: {path: text}."""
        with tempfile.TemporaryDirectory() as folder:
            for name, text in files.items():
                path = Path(folder) / name
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text(text)
            run = subprocess.run([SCRIPT, "--root", folder], capture_output=True, text=True)
        self.assertEqual(run.stderr, "")
        return run.returncode, run.stdout.splitlines()

    def assert_found(self, line, folder="Src"):
        with self.subTest(line=line):
            self.assertEqual(self.run_on({f"{folder}/a.cpp": f"// head\n{line}\n"}),
                             (1, [f"{folder}/a.cpp:2: {line}"]))

    def assert_clean(self, line):
        with self.subTest(line=line):
            self.assertEqual(self.run_on({"Src/a.cpp": line + "\n"}), (0, []))

    def test_a_seeded_literal(self):
        self.assert_found("unsigned char block[8] = {0x08, 0xFF};")
        self.assert_found("unsigned char block[kSize] = {0x01, LowByte(code)};", "Driver/lib")
        self.assert_found("unsigned char block[8] = {8, 255};")
        self.assert_found("uint8_t block[] = {13};")
        self.assert_found("block[0] = 0x0E;")
        self.assert_found("{CAM_PROPERTY_FLIP, P::Option, 0x02},")
        self.assert_found("Send(0x2D);")
        self.assert_found("case 0x12:")
        self.assert_found("if (reply == 0x12) {")
        self.assert_found("int length = 0x10;")

    def test_a_seeded_literal_in_the_virtual_camera(self):
        for line in ("case 0x0E:", "if (block[1] != 0xFF) {", "return block[0] == 0x07;"):
            self.assert_found(line, "virtcam/model")
            self.assertEqual(self.run_on({"virtcam/model/commands.cpp": line + "\n"}), (0, []))

    def test_every_literal_has_its_line(self):
        self.assertEqual(
            self.run_on({"Src/b.h": "x(0x01);\ny(0x02);\n", "Src/a.cpp": "\nz(0x03);\n"}),
            (1, ["Src/a.cpp:2: z(0x03);", "Src/b.h:1: x(0x01);", "Src/b.h:2: y(0x02);"]))

    def test_named_constants_and_larger_numbers(self):
        self.assert_clean("constexpr unsigned char kPFrameNalHeader = 0x41;")
        self.assert_clean("    kNv12 = 0x2A,")
        self.assert_clean("constexpr unsigned char kStartCode[] = {0, 0, 0, 1};")
        self.assert_clean("constexpr uint32_t kLargest = 0x1DF;")
        self.assert_clean("if (pid == 0x205D) {")
        self.assert_clean("unsigned char data[4];")
        self.assert_clean("unsigned char data[8] = {};")

    def test_comments_and_texts(self):
        self.assert_clean("Send(block);  // 0x0E")
        self.assert_clean('AIT_LOG(4, "type = 0x07 \\r\\n");')

    def test_the_table_itself(self):
        self.assertEqual(self.run_on({TABLE: "constexpr Command kA = {kIsp, {0x08, 0xFF}, 2};\n"}),
                         (0, []))


if __name__ == "__main__":
    unittest.main()
