#!/usr/bin/env python3
"""Runs every line of docs/gstreamer.md, as it stands, where no display and no sound card is, and the
two lines of README.md that show the picture, on a display that is nowhere.

usage: pipelines_test.py BUILD SHORT_TIME    (the build tree; a library that cuts the plug-in's waits)
"""

import json
import os
import re
import shlex
import signal
import subprocess
import sys
import tempfile
import threading
import time
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
BUILD, SHORT_TIME = Path(sys.argv[1]).absolute(), sys.argv[2]
PATIENCE = 40  # s, for what a line does to show
# What autovideosink and autoaudiosink would find on a machine that has more than this one.
SINKS = ("ximagesink xvimagesink waylandsink glimagesink kmssink fbdevsink gtksink gtkwaylandsink "
         "vulkansink cacasink aasink sdlvideosink vaapisink pulsesink alsasink pipewiresink jacksink "
         "openalsink osssink oss4sink sdlaudiosink jackaudiosink dfbvideosink v4l2sink "
         "decklinkvideosink decklinkaudiosink").split()


def lines_of_the_page():
    """The commands in the blocks of the section "Pipelines"."""
    text = (ROOT / "docs/gstreamer.md").read_text()
    section = text.split("\n## Pipelines\n", 1)[1].split("\n## ", 1)[0]
    return [line for block in re.findall(r"```\n(.*?)```", section, re.S)
            for line in block.splitlines()]


LINES = lines_of_the_page()


def line_with(mark):
    found = [line for line in LINES if mark in line]
    assert len(found) == 1, (mark, found)
    return found[0]


class Run:
    """A line that runs until what is waited for has shown, and is interrupted then. `display`: of an
    X server; otherwise the line finds no sink that needs anything. `camera`: a preset."""

    def __init__(self, line, folder, display=None, camera="running"):
        words = shlex.split(line)
        if words[0] == "scripts/with-virtual-camera":
            words[0:1] = [str(ROOT / words[0]), "--build", str(BUILD), camera]
            preload = SHORT_TIME
        else:
            preload = ""
        environment = dict(
            os.environ, LD_PRELOAD=preload, GST_DEBUG="aitcamsrc:4,GST_TRACER:7",
            GST_DEBUG_NO_COLOR="1", GST_TRACERS="leaks",
            GST_REGISTRY=str(BUILD / "tests/gst/pipelines.registry"), PYTHONUNBUFFERED="1")
        environment["PATH"] = "/usr/bin:" + environment["PATH"]  # the python3 that has gi
        for name in ("DISPLAY", "WAYLAND_DISPLAY"):
            environment.pop(name, None)
        if display:
            environment["DISPLAY"] = display
        else:
            environment["GST_PLUGIN_FEATURE_RANK"] = ",".join(f"{sink}:NONE" for sink in SINKS)
        self.output = ""
        self.ended = False
        self.changed = threading.Condition()
        # A terminal, so that what is printed is there at once.
        self.terminal, inside = os.openpty()
        self.process = subprocess.Popen(words, cwd=folder, env=environment,
                                        stdin=subprocess.DEVNULL, stdout=inside, stderr=inside)
        os.close(inside)
        self.reader = threading.Thread(target=self.read)
        self.reader.start()

    def read(self):
        while True:
            try:
                text = os.read(self.terminal, 65536).decode(errors="replace")
            except OSError:  # nobody has the other end any more
                break
            with self.changed:
                self.output += text.replace("\r\n", "\n")
                self.changed.notify_all()
        with self.changed:
            self.ended = True
            self.changed.notify_all()

    def shows(self, pattern, times=1):
        """Waits for the pattern; false when it does not come."""
        def there():
            return len(re.findall(pattern, self.output)) >= times
        with self.changed:
            self.changed.wait_for(lambda: there() or self.ended, PATIENCE)
            return there()

    def interrupt(self):
        """Ctrl-C. Returns the exit status."""
        self.process.send_signal(signal.SIGINT)
        try:
            return self.process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            self.process.kill()
            raise
        finally:
            self.reader.join()
            os.close(self.terminal)


class Pipelines(unittest.TestCase):
    tried = set()

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def start(self, mark):
        line = line_with(mark)
        self.tried.add(line)
        return Run(line, self.folder)

    def end(self, run, pads):
        """Ends a line properly; each pad has delivered, nothing was dropped."""
        status = run.interrupt()
        self.assertEqual(status, 0, run.output)
        self.assertNotIn("ERROR", run.output)
        # GStreamer's own look at what is left when it ends: elements, pads, buffers, messages ...
        self.assertEqual(re.findall(r"object-alive, type-name=\(string\)[^%].*", run.output), [])
        taken = dict(re.findall(r"<c?[^:<]*:(\w+)> (\d+) taken", run.output))
        for pad in pads:
            self.assertGreater(int(taken.get(pad, 0)), 0, (pad, run.output))

    def assert_caps(self, run, *pads):
        for pad in pads:
            self.assertTrue(run.shows(rf":{pad}> caps"), (pad, run.output))

    def wait_for_file(self, name, size):
        """The file, once it has this many bytes, or after PATIENCE."""
        file = self.folder / name
        deadline = time.monotonic() + PATIENCE
        while not (file.exists() and file.stat().st_size > size) and time.monotonic() < deadline:
            time.sleep(0.05)
        return file

    def test_view(self):
        run = self.start("aitcamsrc ! h264parse ! openh264dec ! videoconvert ! autovideosink")
        self.assert_caps(run, "main")
        self.end(run, ["main"])

    def test_view_with_sound(self):
        run = self.start("autoaudiosink")
        self.assert_caps(run, "main", "audio")
        self.end(run, ["main", "audio"])

    def test_side_by_side(self):
        run = self.start("compositor")
        self.assert_caps(run, "main", "sub", "gray", "nv12")
        self.end(run, ["main", "sub", "gray", "nv12"])

    def test_recording(self):
        run = self.start("recording.mkv")
        self.assert_caps(run, "main", "audio")
        file = self.wait_for_file("recording.mkv", 300_000)
        self.end(run, ["main", "audio"])
        probe = subprocess.run(["ffprobe", "-v", "warning", "-print_format", "json", "-show_streams",
                                "-show_format", file], capture_output=True, text=True, check=True)
        self.assertEqual(probe.stderr, "")
        report = json.loads(probe.stdout)
        kinds = {each["codec_name"]: each for each in report["streams"]}
        self.assertEqual(set(kinds), {"h264", "pcm_s16le"})
        self.assertEqual((kinds["h264"]["width"], kinds["h264"]["height"]), (640, 480))
        self.assertEqual(kinds["h264"]["r_frame_rate"], "30/1")
        self.assertEqual(kinds["pcm_s16le"]["sample_rate"], "16000")
        self.assertGreater(float(report["format"]["duration"]), 0.5)

    def test_stills(self):
        run = self.start("multifilesink")
        file = self.wait_for_file("still-000.jpg", 10_000)
        self.end(run, ["jpeg"])
        still = file.read_bytes()
        self.assertEqual((still[:2], still[-2:]), (b"\xff\xd8", b"\xff\xd9"))

    def test_rtp(self):
        receiver = self.start("udpsrc")
        self.assertTrue(receiver.shows("Setting pipeline to PLAYING"), receiver.output)
        sender = self.start("udpsink")
        self.assert_caps(sender, "main")
        # The decoder's pictures have reached the sink, which then knows its latency.
        self.assertTrue(receiver.shows("Redistribute latency"), receiver.output)
        self.end(sender, ["main"])
        self.assertEqual(receiver.interrupt(), 0, receiver.output)

    def test_count(self):
        run = self.start("fpsdisplaysink")
        self.assertTrue(run.shows(r"last-message = rendered: \d+, dropped: \d+, current: [\d.]+"),
                        run.output)
        self.end(run, ["main"])

    def test_python(self):
        run = self.start("python3 -c")
        self.assertTrue(run.shows(r"format=\(string\)GRAY8.* 76800\n", times=3), run.output)
        run.interrupt()

    def test_device_monitor(self):
        run = self.start("gst-device-monitor-1.0")
        self.assertTrue(run.shows("name  : Television camera"), run.output)
        self.assertTrue(run.shows("gst-launch-1.0 aitcamsrc"), run.output)
        run.process.wait(PATIENCE)
        run.interrupt()

    @classmethod
    def tearDownClass(cls):
        left = set(LINES) - cls.tried
        assert not left, f"lines of the page that no test runs: {left}"


class Display:
    """An X server without a screen that anybody sees."""

    WIDTH, HEIGHT = 800, 600

    def __init__(self):
        into, out = os.pipe()
        self.server = subprocess.Popen(
            ["Xvfb", "-displayfd", str(out), "-noreset", "-nolisten", "tcp",
             "-screen", "0", f"{self.WIDTH}x{self.HEIGHT}x24"],
            pass_fds=[out], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(out)
        with open(into) as number:
            self.name = f":{number.readline().strip()}"

    def close(self):
        self.server.terminate()
        self.server.wait()

    def luma(self):
        """Of the whole screen, row by row."""
        shot = subprocess.run(
            ["gst-launch-1.0", "-q", "ximagesrc", "num-buffers=1", "use-damage=false", "!",
             "videoconvert", "!", "video/x-raw,format=GRAY8", "!", "fdsink"],
            stdout=subprocess.PIPE, check=True, timeout=PATIENCE,
            env=dict(os.environ, DISPLAY=self.name, GST_REGISTRY=str(
                BUILD / "tests/gst/pipelines.registry")))
        return shot.stdout

    def shows_counter(self, width):
        """True when a picture of that width lies in the corner: four blocks of each counter are
        white, black, white, black (virtcam/model/counter_code.h)."""
        luma = self.luma()
        blocks = [luma[10 * self.WIDTH + (2 * block + 1) * width // 40] for block in (0, 1, 18, 19)]
        return [level > 126 for level in blocks] == [True, False, True, False]


def lines_of_the_readme():
    text = (ROOT / "README.md").read_text()
    section = text.split("\n## See it live\n", 1)[1].split("\n## ", 1)[0]
    return re.search(r"```\n(.*?)```", section, re.S)[1].splitlines()


class Readme(unittest.TestCase):
    def test_two_lines_show_the_picture(self):
        prepare, show = lines_of_the_readme()
        build = " ".join(prepare.split(" && ")[1].split()[:2])
        self.assertEqual(build, "scripts/build release")
        if BUILD != ROOT / "build/release":  # nothing is built that is not tested here
            prepare = prepare.replace(build, f"cmake --build {shlex.quote(str(BUILD))} --target")
        subprocess.run(prepare, shell=True, cwd=ROOT, check=True, stdout=subprocess.PIPE)
        display = Display()
        self.addCleanup(display.close)
        with tempfile.TemporaryDirectory() as folder:
            run = Run(show, folder, display.name, camera="boot")
            self.assertTrue(run.shows(":main> caps"), run.output)
            deadline = time.monotonic() + PATIENCE
            while not display.shows_counter(640) and time.monotonic() < deadline:
                time.sleep(0.05)
            seen = display.shows_counter(640)
            self.assertEqual(run.interrupt(), 0, run.output)
            self.assertTrue(seen, run.output)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
