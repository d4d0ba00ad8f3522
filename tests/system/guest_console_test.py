#!/usr/bin/env python3
"""scripts/system-test: what it makes of a guest's console, and of one that does not get on."""

import contextlib
import importlib.machinery
import importlib.util
import io
import subprocess
import sys
import time
import unittest
from pathlib import Path

SCRIPT = Path(__file__).resolve().parents[2] / "scripts/system-test"


def load_script():
    sys.dont_write_bytecode = True
    loader = importlib.machinery.SourceFileLoader("system_test", str(SCRIPT))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("system_test", loader))
    loader.exec_module(module)
    return module


class GuestConsole(unittest.TestCase):
    def follow(self, console, limits=None, boot_seconds=60, overtime_seconds=60):
        """Follows a shell script in the place of a guest: (why it ended, what was printed)."""
        script = load_script()
        script.OVERTIME_SECONDS = overtime_seconds
        guest = subprocess.Popen(["timeout", "-k", "1", "60", "sh", "-c", console],
                                 stdout=subprocess.PIPE, text=True)
        self.addCleanup(guest.stdout.close)
        self.addCleanup(guest.wait)
        self.addCleanup(guest.terminate)
        results = script.Results(["Suite.First", "Suite.Second"])
        output = io.StringIO()
        with contextlib.redirect_stdout(output):
            why = script.Console(guest, results, limits or {},
                                 Path("/nowhere")).follow(boot_seconds)
            results.fail_rest("was not run")
        return why, output.getvalue()

    def test_results_are_told_as_they_come(self):
        why, output = self.follow("printf '\\033[2JGUEST BOOTED 2.5\\n'; echo GUEST START Suite.First;"
                                  "echo GUEST RESULT Suite.First 0 7; echo GUEST DONE")
        self.assertEqual(why, "")
        self.assertIn("guest ready after 2.5 s", output)
        self.assertIn("PASS Suite.First\n    7 s\n", output)
        self.assertIn("FAIL Suite.Second\n    was not run\n", output)

    def test_a_scenario_that_failed_is_one(self):
        _, output = self.follow("echo GUEST BOOTED 2; echo GUEST RESULT Suite.First 1 7;"
                                "echo GUEST DONE")
        self.assertIn("FAIL Suite.First\n", output)

    def test_guest_that_hangs_while_booting_is_ended_soon(self):
        begin = time.monotonic()
        why, output = self.follow("echo last words; sleep 50", boot_seconds=1)
        self.assertLess(time.monotonic() - begin, 20)
        self.assertRegex(why, r"^the guest did not boot within 1 s; .*:\nlast words$")
        self.assertEqual(output.count("FAIL"), 2)

    def test_guest_that_ends_while_booting_is_told_at_once(self):
        why, _ = self.follow("echo no init found")
        self.assertRegex(why, r"^the guest did not boot; .*:\nno init found$")

    def test_scenario_that_blocks_the_guest_is_named(self):
        why, output = self.follow("echo GUEST BOOTED 2; echo GUEST START Suite.First; sleep 50",
                                  limits={"Suite.First": 1}, overtime_seconds=1)
        self.assertRegex(why, r"^Suite\.First did not end, not even when it was killed, within 2 s;")
        self.assertIn("FAIL Suite.First", output)

    def test_guest_that_stops_between_scenarios_is_ended(self):
        why, output = self.follow("echo GUEST BOOTED 2; echo GUEST RESULT Suite.First 0 7; sleep 50",
                                  overtime_seconds=1)
        self.assertRegex(why, r"^the guest did not go on within 1 s;")
        self.assertIn("PASS Suite.First", output)

    def test_trouble_of_the_kernel_is_told(self):
        why, _ = self.follow("echo GUEST BOOTED 2; echo 'BUG: bad page'; echo GUEST DONE")
        self.assertIn("BUG: bad page", why)


if __name__ == "__main__":
    unittest.main()
