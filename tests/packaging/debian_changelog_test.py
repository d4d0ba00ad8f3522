#!/usr/bin/env python3
"""packaging/deb/debian-changelog: what Debian's tools read of CHANGELOG.md."""

import gzip
import subprocess
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
CHANGES = """# Changes
An introduction.

## 2.0.0 (2027-01-02)
- First.
- A second one that is longer than a line of a Debian changelog may be, which is eighty
  columns.

## 1.0.0 (2026-12-31)
- Begun.
"""
EXPECTED = """aitorixcamera (2.0.0) unstable; urgency=medium

  * First.
  * A second one that is longer than a line of a Debian changelog may be,
    which is eighty columns.

 -- A Maintainer <a@b.c>  Sat, 02 Jan 2027 12:00:00 +0000

aitorixcamera (1.0.0) unstable; urgency=medium

  * Begun.

 -- A Maintainer <a@b.c>  Thu, 31 Dec 2026 12:00:00 +0000
"""


class DebianChangelog(unittest.TestCase):
    def make(self, text):
        with tempfile.TemporaryDirectory() as folder:
            source, target = Path(folder) / "CHANGELOG.md", Path(folder) / "changelog.gz"
            source.write_text(text)
            run = subprocess.run([ROOT / "packaging/deb/debian-changelog", source,
                                  "A Maintainer <a@b.c>", target],
                                 stderr=subprocess.PIPE, text=True, timeout=30)
            return run, gzip.decompress(target.read_bytes()).decode() if target.exists() else None

    def test_sections_become_entries(self):
        run, text = self.make(CHANGES)
        self.assertEqual((run.returncode, run.stderr, text), (0, "", EXPECTED))

    def test_a_section_without_a_date_is_refused(self):
        run, text = self.make("# Changes\n## 1.0.0\n- Begun.\n")
        self.assertNotEqual(run.returncode, 0)
        self.assertIn("1.0.0", run.stderr)
        self.assertIsNone(text)


if __name__ == "__main__":
    unittest.main()
