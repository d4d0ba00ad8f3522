#!/usr/bin/env python3
"""scripts/with-emulation: programs of another machine go to the emulator, and only they do."""

import os
import subprocess
import tempfile
import unittest
from pathlib import Path

SCRIPT = Path(__file__).resolve().parents[2] / "scripts/with-emulation"
MACHINES = {"armhf": ("qemu-arm", 1, 40), "arm64": ("qemu-aarch64", 2, 183)}


def header(word_size, machine):
    """What a kernel looks at of a program: ELF, little end first, executable."""
    return (b"\x7fELF" + bytes([word_size, 1, 1]) + bytes(9) + (2).to_bytes(2, "little")
            + machine.to_bytes(2, "little") + bytes(108))


class WithEmulation(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        for emulator, *_ in MACHINES.values():
            # In the place of QEMU, which may not be installed: says what it was called with.
            self.program(emulator, f'#!/bin/sh\necho {emulator} "$@" "$QEMU_LD_PREFIX"\n'.encode())

    def program(self, name, content):
        path = self.folder / name
        path.write_bytes(content)
        path.chmod(0o755)
        return path

    def run_script(self, *words):
        return subprocess.run([SCRIPT, *words], stdin=subprocess.DEVNULL, capture_output=True,
                              text=True, timeout=30,
                              env={**os.environ, "PATH": f"{self.folder}:{os.environ['PATH']}"})

    def test_a_program_of_another_machine(self):
        for machine, (emulator, word_size, number) in MACHINES.items():
            with self.subTest(machine=machine):
                foreign = self.program("foreign", header(word_size, number))
                run = self.run_script(machine, "--", "sh", "-c", f"exec {foreign} a 'b c'")
                if "cannot be told" in run.stderr:  # this machine's kernel, or a plain container
                    self.assertNotEqual(run.returncode, 0)
                    continue
                self.assertEqual((run.returncode, run.stderr), (0, ""))
                words = run.stdout.split()
                self.assertEqual(words[0], emulator)
                self.assertIn(str(foreign), words)
                self.assertEqual(words[-4:-1], ["a", "b", "c"])
                self.assertTrue(words[-1].endswith(f"/build/sysroot/{machine}"), words[-1])

    def test_this_machine_s_own_programs_and_status(self):
        run = self.run_script("armhf", "sh", "-c", 'echo "$1"; exit 7', "sh", "a  b")
        self.assertEqual((run.returncode, run.stdout), (7, "a  b\n"))

    def test_nothing_is_left(self):
        register = Path("/proc/sys/fs/binfmt_misc")
        before = sorted(os.listdir(register)) if register.is_dir() else None
        self.run_script("arm64", "true")
        after = sorted(os.listdir(register)) if register.is_dir() else None
        self.assertEqual(before, after)

    def test_wrong_use(self):
        for words in ((), ("mips", "true"), ("armhf",), ("armhf", "--")):
            with self.subTest(words=words):
                run = self.run_script(*words)
                self.assertEqual((run.returncode, run.stdout), (2, ""))
                self.assertIn("with-emulation: ", run.stderr)


if __name__ == "__main__":
    unittest.main()
