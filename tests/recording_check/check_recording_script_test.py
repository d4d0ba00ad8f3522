#!/usr/bin/env python3
"""scripts/check-recording accepts a good recording and names each way in which one can be bad.

Arguments: the build folder that holds recording_check and draw_counters.
"""

import json
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

SCRIPT = Path(__file__).resolve().parents[2] / "scripts/check-recording"
BUILD = Path(sys.argv.pop(1)).resolve()
DRAW = BUILD / "tests/recording_check/draw_counters"


def ffmpeg(*arguments):
    subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-y", *map(str, arguments)], check=True)


class CheckRecording(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name) / "h264-gray"
        self.folder.mkdir()

    def film(self, name, counters):
        path = self.folder / name
        with open(path, "wb") as file:
            subprocess.run([DRAW, "320", "240", *map(str, counters)], stdout=file, check=True)
        return path

    def h264(self, name, counters):
        source = self.film("source.y4m", counters)
        ffmpeg("-i", source, "-c:v", "libx264", "-bf", "0", "-g", "10", "-f", "h264",
               self.folder / name)
        source.unlink()

    def check(self, *arguments):
        run = subprocess.run([SCRIPT, "--build", BUILD, *arguments, self.folder],
                             capture_output=True, text=True, timeout=60)
        self.assertEqual(run.stderr, "")
        return run.returncode, run.stdout

    def assert_good(self, *arguments):
        code, output = self.check(*arguments)
        self.assertEqual(code, 0, output)

    def assert_bad(self, reason, *arguments):
        code, output = self.check(*arguments)
        self.assertEqual(code, 1, output)
        self.assertIn(reason, output)

    def test_good_files(self):
        self.h264("main.h264", range(1, 31))
        source = self.film("gray.y4m", range(5, 15))
        ffmpeg("-i", source, "-q:v", "3", self.folder / "jpeg-%04d.jpg")
        ffmpeg("-f", "lavfi", "-i", "sine=frequency=1000:sample_rate=16000:duration=1", "-ac", "2",
               self.folder / "audio.wav")
        self.assert_good()

    def test_lost_picture(self):
        self.h264("main.h264", [1, 2, 3, 5, 6])
        self.assert_bad("picture 4: counter 5 after 3")

    def test_damaged_stream(self):
        self.h264("main.h264", range(1, 31))
        data = bytearray((self.folder / "main.h264").read_bytes())
        data[len(data) // 2:len(data) // 2 + 40] = bytes(range(40))
        (self.folder / "main.h264").write_bytes(data)
        self.assert_bad("FAILED")

    def test_fewer_pictures_than_camhost_counted(self):
        self.film("gray.y4m", range(1, 6))
        report = self.folder.parent / "report.json"
        report.write_text(json.dumps({"recordings": [
            {"name": "h264-gray", "streams": {"gray": {"pictures": 6, "restarts": 0}}}]}))
        self.assert_bad("5 pictures decoded, 6 counted by camhost", "--report", report)

    def test_missing_still(self):
        source = self.film("source.y4m", range(1, 6))
        ffmpeg("-i", source, self.folder / "jpeg-%04d.jpg")
        source.unlink()
        (self.folder / "jpeg-0003.jpg").unlink()
        self.assert_bad("FAILED")

    def test_stills_out_of_a_stream_may_skip_counters(self):
        source = self.film("source.y4m", [10, 25, 40])
        ffmpeg("-i", source, self.folder / "jpeg-%04d.jpg")
        source.unlink()
        self.assert_bad("counter 25 after 10")
        self.folder = self.folder.rename(self.folder.parent / "h264-mjpeg")
        report = self.folder.parent / "report.json"
        report.write_text(json.dumps({"selector": "signal-type", "recordings": []}))
        self.assert_good("--report", report)
        report.write_text(json.dumps({"selector": "video-mode", "recordings": []}))
        self.assert_bad("counter 25 after 10", "--report", report)

    def test_another_tone(self):
        ffmpeg("-f", "lavfi", "-i", "sine=frequency=700:sample_rate=16000:duration=1",
               self.folder / "audio.wav")
        self.assert_bad("no tone of 1000")

    def test_kind_that_is_missing(self):
        self.film("gray.y4m", range(1, 6))
        self.assert_good()
        self.assert_bad("missing: main, sub, jpeg, yuy2, nv12, nv21, pcm", "--all-kinds")

    def test_folder_without_a_recording(self):
        self.assert_bad("nothing is recorded here")
        (self.folder / "report.txt").write_text("no camera\n")
        self.assert_bad("nothing is recorded here")

    def test_stream_that_was_counted_and_has_no_file(self):
        self.film("gray.y4m", range(1, 6))
        report = self.folder.parent / "report.json"
        report.write_text(json.dumps({"recordings": [
            {"name": "h264-gray", "streams": {"gray": {"pictures": 5}, "main": {"pictures": 5},
                                              "sub": {"pictures": 0}}}]}))
        self.assert_bad("counted by camhost, but without a file: main", "--report", report)

    def test_empty_file(self):
        (self.folder / "main.h264").write_bytes(b"")
        self.assert_bad("ffprobe finds no picture")


if __name__ == "__main__":
    unittest.main()
