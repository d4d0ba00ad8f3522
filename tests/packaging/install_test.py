#!/usr/bin/env python3
"""Installs the build into a folder and uses it from there, as an integrator does."""

import os
import re
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path(sys.argv.pop(1))
EXAMPLE = ROOT / "examples/minimal_host.cpp"
PROJECT = """cmake_minimum_required(VERSION 3.25)
project(minimal LANGUAGES CXX)
find_package(aitorixcamera 1.69 REQUIRED)
add_executable(minimal {example})
target_link_libraries(minimal PRIVATE aitorixcamera::host)
target_compile_definitions(minimal PRIVATE PLUGIN="${{aitorixcamera_PLUGIN}}")
"""
FRAME = re.compile(r"^stream 1: ([1-9]\d*) bytes$", re.MULTILINE)
# Through readline, completions are asked for by these variables.
COMPLETE = """
. /usr/share/bash-completion/bash_completion
. {file}
COMP_WORDS=({words}) COMP_CWORD={last} COMP_LINE="{words}" COMP_POINT={length}
_aitorixcamera
printf '%s\\n' "${{COMPREPLY[@]}}"
"""


def run(*command, **options):
    done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, text=True, timeout=100, **options)
    if done.returncode != 0:
        raise AssertionError(f"{command}\n{done.stdout[-2000:]}\n{done.stderr[-2000:]}")
    return done


class Install(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = Path(folder.name)
        cls.prefix = cls.folder / "prefix"
        run("cmake", "--install", BUILD, "--prefix", cls.prefix)
        cls.pc_folder = cls.one("lib*/**/pkgconfig")
        cls.plugin = cls.one("lib*/**/aitorixcamera/libaitorixcamera.so")

    @classmethod
    def one(cls, pattern):
        found = list(cls.prefix.glob(pattern))
        assert len(found) == 1, (pattern, found)
        return found[0]

    def pkg_config(self, *arguments):
        environment = dict(os.environ, PKG_CONFIG_PATH=str(self.pc_folder))
        return run("pkg-config", *arguments, "aitorixcamera", env=environment).stdout.split()

    def assert_prints_frames(self, program):
        config = self.folder / "running.json"
        config.write_text('{"camera": {"identity": "run-time"}}')
        environment = dict(os.environ, LD_LIBRARY_PATH=str(self.one("lib*/**/virtual-bus")),
                           VIRTBUS_CONFIG=str(config))
        log = run(ROOT / "scripts/sandbox", "--tv", BUILD / "tv", "--", program, env=environment)
        sizes = [int(size) for size in FRAME.findall(log.stderr)]
        self.assertGreaterEqual(len(sizes), 30, log.stderr[-2000:])
        self.assertGreater(max(sizes), 1000)

    def test_minimal_host_with_pkg_config(self):
        [plugin] = self.pkg_config("--variable=plugin")
        self.assertTrue(Path(plugin).samefile(self.plugin))
        program = self.folder / "with-pkg-config"
        run(os.environ.get("CXX", "c++"), "-std=c++17", "-Wall", "-Wextra", "-Wshadow", "-Werror",
            *self.pkg_config("--cflags"), f'-DPLUGIN="{plugin}"', "-o", program, EXAMPLE)
        self.assert_prints_frames(program)

    def test_minimal_host_with_cmake(self):
        project = self.folder / "project"
        project.mkdir()
        (project / "CMakeLists.txt").write_text(PROJECT.format(example=EXAMPLE))
        run("cmake", "-G", "Ninja", "-S", project, "-B", project / "build",
            f"-DCMAKE_PREFIX_PATH={self.prefix}")
        run("cmake", "--build", project / "build")
        self.assert_prints_frames(project / "build/minimal")

    def test_minimal_host_is_minimal(self):
        self.assertLessEqual(len(EXAMPLE.read_text().splitlines()), 60)

    def test_camhost_finds_what_was_installed_with_it(self):
        out = self.folder / "out"
        run(ROOT / "scripts/sandbox", "--tv", BUILD / "tv", "--", self.prefix / "bin/camhost",
            "record", "--virtual=running", "--duration", "1s", "--streams", "main", "--output", out)
        self.assertGreater((out / "main.h264").stat().st_size, 1000)

    def test_gstreamer_finds_the_element_that_was_installed_and_that_the_plugin(self):
        folder = self.one("lib*/**/gstreamer-1.0")
        config = self.folder / "gst-running.json"
        config.write_text('{"camera": {"identity": "run-time"}}')
        environment = dict(os.environ, LD_LIBRARY_PATH=str(self.one("lib*/**/virtual-bus")),
                           VIRTBUS_CONFIG=str(config), GST_PLUGIN_PATH=str(folder),
                           GST_PLUGIN_SYSTEM_PATH_1_0=str(BUILD / "tests/gst/plugins"),
                           GST_REGISTRY=str(self.folder / "registry"), GST_DEBUG="aitcamsrc:4")
        environment.pop("AITCAM_PLUGIN", None)
        inside = (ROOT / "scripts/sandbox", "--tv", BUILD / "tv", "--")
        page = run(*inside, "gst-inspect-1.0", "aitcamsrc", env=environment).stdout
        self.assertIn(str(folder / "libgstaitcam.so"), page)
        played = run(*inside, "gst-launch-1.0", "aitcamsrc", "name=camera", "!", "fakesink",
                     "num-buffers=3", env=environment)
        self.assertIn("PLAYING", played.stdout)

    def test_installed_programs_say_their_version(self):
        version = (self.one("share/aitorixcamera/version")).read_text()
        for name in ("bin/camhost", "bin/virtcam", "sbin/publish-bus-listing"):
            output = run(self.prefix / name, "--version").stdout
            self.assertEqual(output, f"{Path(name).name} {version}")

    def test_a_page_for_every_command(self):
        pages = {path.name for path in self.prefix.glob("share/man/man?/*.gz")}
        wanted = {"publish-bus-listing.8.gz"}
        for program in ("camhost", "virtcam"):
            text = run(self.prefix / "bin" / program, "--help").stdout
            commands = re.findall(r"^  ([a-z][a-z-]*) ", text.split("Subcommands:")[1], re.MULTILINE)
            self.assertGreaterEqual(len(commands), 2)
            wanted |= {f"{program}.1.gz", *(f"{program}-{name}.1.gz" for name in commands)}
        self.assertEqual(pages, wanted)

    def complete(self, *words):
        """What bash offers for the last word."""
        line = " ".join(words)
        file = self.one("share/bash-completion/completions/camhost")
        script = COMPLETE.format(file=file, words=" ".join(word or '""' for word in words),
                                 last=len(words) - 1, length=len(line))
        return run("bash", "-c", script, cwd=self.folder,
                   env=dict(os.environ, PATH=f"{self.prefix / 'bin'}:{os.environ['PATH']}")
                   ).stdout.split()

    def test_bash_completes_commands_and_options(self):
        self.assertIn("record", self.complete("camhost", ""))
        self.assertEqual(self.complete("camhost", "cap"), ["capabilities"])
        self.assertIn("--duration", self.complete("camhost", "record", "--d"))
        self.assertNotIn("--duration", self.complete("camhost", "get", "--d"))
        self.assertIn("never-returns", self.complete("camhost", "record", "--virtual", ""))
        self.assertEqual(self.complete("virtcam", "serve", "--us"), ["--usbip"])

    def test_the_rule_names_the_camera_of_the_build(self):
        rule = self.one("lib/udev/rules.d/60-aitorixcamera.rules").read_text()
        cache = (BUILD / "CMakeCache.txt").read_text()
        vendor = re.search(r"^AITCAM_VENDOR_ID:STRING=0x(\w+)$", cache, re.MULTILINE)[1]
        self.assertIn(f'ATTR{{idVendor}}=="{vendor.lower()}"', rule)
        self.assertIn('ATTR{idProduct}=="2065|2066"', rule)


if __name__ == "__main__":
    unittest.main()
