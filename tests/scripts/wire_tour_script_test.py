#!/usr/bin/env python3
"""scripts/wire-tour compare: finds what differs between two recordings, and nothing else."""

import subprocess
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
REQUESTS = """   12.345 21 01 0100 0600 0008 | 02 1e 00 | 5000 ms | 8 | 0.0 ms | ISP 0x02/0x1E frame rate 30/s
   12.400 kernel 01 0b 0001 0003 0000 | | 5000 ms | 0 | SET_INTERFACE 3 alternate 1
"""
LOG = "[TARLO 1.45/Info] [Init:48] opened 0x7F00AA11\n"


class WireTour(unittest.TestCase):
    def compare(self, requests, log):
        """Compares the recording above with one of these texts."""
        with tempfile.TemporaryDirectory() as folder:
            for side, texts in (("before", (REQUESTS, LOG)), ("after", (requests, log))):
                tour = Path(folder, side, "tour")
                tour.mkdir(parents=True)
                for name, text in zip(("requests.trace", "plugin.log"), texts):
                    (tour / name).write_text(text)
            return subprocess.run([ROOT / "scripts/wire-tour", "compare", Path(folder, "before"),
                                   Path(folder, "after")], capture_output=True, text=True,
                                  timeout=60)

    def test_times_and_places_do_not_count(self):
        requests = REQUESTS.replace("12.", "99.").replace("| 0.0 ms |", "| 17.3 ms |")
        run = self.compare(requests, LOG.replace("Init:48", "Start:7").replace("00AA11", "55BB22"))
        self.assertEqual(run.returncode, 0, run.stdout)
        self.assertEqual(run.stdout, "tour: requests: 2 lines, the same\ntour: log: 1 lines, the same\n")

    def test_each_other_column_counts(self):
        for old, new in (("0600", "0601"), ("02 1e 00", "02 1f 00"), ("| 5000 ms |", "| 1000 ms |"),
                         ("| 8 |", "| -9 |"), ("frame rate", "bit rate")):
            run = self.compare(REQUESTS.replace(old, new, 1), LOG)
            self.assertEqual(run.returncode, 1, f"{old} -> {new}: {run.stdout}")
            self.assertIn("tour: requests: 2 lines, DIFFERENT", run.stdout)

    def test_the_order_and_the_texts_count(self):
        backwards = "".join(reversed(REQUESTS.splitlines(keepends=True)))
        self.assertEqual(self.compare(backwards, LOG).returncode, 1)
        self.assertEqual(self.compare(REQUESTS, LOG.replace("opened", "closed")).returncode, 1)
        self.assertEqual(self.compare("", LOG).returncode, 1)


if __name__ == "__main__":
    unittest.main()
