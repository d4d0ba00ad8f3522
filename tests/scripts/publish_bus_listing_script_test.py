#!/usr/bin/env python3
"""scripts/publish-bus-listing: what it keeps is of one moment, and each change of it shows.

The kernel's listing is played by a pipe, whose reads can be told apart.
"""

import os
import subprocess
import tempfile
import time
import unittest
from pathlib import Path

SCRIPT = Path(__file__).resolve().parent.parent.parent / "scripts/publish-bus-listing"
LIMIT = 20  # seconds


class PublishBusListing(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.source = Path(folder.name) / "source"
        self.target = Path(folder.name) / "devices"
        os.mkfifo(self.source)
        # Held open both ways: neither side waits for the other to open it.
        self.pipe = os.open(self.source, os.O_RDWR)
        self.addCleanup(os.close, self.pipe)
        helper = subprocess.Popen([str(SCRIPT), "0.01", str(self.source), str(self.target)])
        self.addCleanup(helper.wait)
        self.addCleanup(os.write, self.pipe, b"end\n")  # ends a read that waits
        self.addCleanup(helper.kill)

    def list(self, text):
        """The kernel answers one read with this; returns the target's state afterwards."""
        os.write(self.pipe, text.encode())
        deadline = time.monotonic() + LIMIT
        while time.monotonic() < deadline:
            if self.target.exists():
                state = self.target.stat()
                if self.target.read_text() == text:
                    return state
            time.sleep(0.005)
        self.fail(f"{text[:40]!r} was not published")

    def test_takes_the_listing_in_one_read(self):
        self.list("one camera\n")
        self.list("nothing\n")

    def test_takes_a_long_listing_whole(self):
        self.list("T: a device of many lines\n" * 1000)

    def test_keeps_texts_of_one_length_a_second_apart(self):
        before = self.list("device 1\n")
        for number in range(2, 5):
            after = self.list(f"device {number}\n")
            self.assertGreater(int(after.st_ctime), int(before.st_ctime))
            before = after

    def test_does_not_wait_where_the_length_tells_them_apart(self):
        states = [self.list("device\n" * count) for count in range(1, 7)]
        self.assertLess(states[-1].st_ctime - states[0].st_ctime, 5 - 1)


class Source(unittest.TestCase):
    def test_names_a_listing_that_is_not_there(self):
        with tempfile.TemporaryDirectory() as folder:
            run = subprocess.run([str(SCRIPT), "1", f"{folder}/none", f"{folder}/devices"],
                                 capture_output=True, text=True, timeout=LIMIT)
        self.assertEqual(run.returncode, 1)
        self.assertIn(f"cannot read {folder}/none", run.stderr)


if __name__ == "__main__":
    unittest.main()
