#!/usr/bin/env python3
"""scripts/foreign-hosts: nothing that goes wrong with a host passes."""

import contextlib
import io
import tempfile
import unittest
import unittest.mock
from pathlib import Path

from script_module import load_script

foreign_hosts = load_script("foreign-hosts")

COMPLAINT = {"code": "double_submit", "text": "already in flight"}
LSUSB = "Device Descriptor:\n  idVendor           0x114d\n    Interface Descriptor:\n"


def status(complaints=(), leaks=()):
    return {"bus": {"complaints": list(complaints), "leaks": list(leaks)}}


def outcome(code=0, out="", err="", of_bus=None):
    return foreign_hosts.Outcome(code, out, err, of_bus or status())


def wrong(result, name="libuvc"):
    return foreign_hosts.judge(foreign_hosts.HOSTS[name], result)


class Judgement(unittest.TestCase):
    def test_all_is_well(self):
        self.assertEqual(wrong(outcome()), [])

    def test_what_it_says_itself(self):
        self.assertEqual(wrong(outcome(1, "not so: start\n", "oh\n")),
                         ["it ended with 1", "not so: start", "oh"])

    def test_complaints_and_leaks(self):
        for kind in ("complaints", "leaks"):
            self.assertEqual(wrong(outcome(of_bus=status(**{kind: [COMPLAINT]}))),
                             ["complaint of the bus: already in flight"])

    def test_what_the_bus_says(self):
        line = "virtbus: cannot write the status \"s\""
        self.assertEqual(wrong(outcome(0, "", f"{line}\nvirtbus: complaint: known\n")), [line])

    def test_known_ways_are_not_wrong_for_those_who_have_them(self):
        known = status(leaks=[{"code": "leaked_transfer", "text": "never freed"}])
        self.assertEqual(wrong(outcome(of_bus=known), "pyusb"), [])
        self.assertNotEqual(wrong(outcome(of_bus=known), "libuvc"), [])

    def test_a_host_that_went_round_the_bus(self):
        self.assertEqual(foreign_hosts.complaints(None, set()),
                         ["it never called the virtual bus"])


class Lsusb(unittest.TestCase):
    def test_says_nothing(self):
        known = "can't get debug descriptor: Invalid argument\nvirtbus: complaint: exit\n"
        self.assertEqual(wrong(outcome(0, LSUSB, known), "lsusb"), [])

    def test_says_something(self):
        self.assertEqual(wrong(outcome(0, LSUSB + "  ** UNRECOGNIZED:  02 10\n"), "lsusb"),
                         ["** UNRECOGNIZED:  02 10"])
        self.assertEqual(wrong(outcome(0, LSUSB, "cannot read device status\n"), "lsusb"),
                         ["cannot read device status"])

    def test_shows_no_camera(self):
        self.assertEqual(len(wrong(outcome(0, "Bus 001 Device 001\n"), "lsusb")), 1)


class Source(unittest.TestCase):
    def test_mirror_is_the_machine_s(self):
        targets = ("Debian-Security main http://s/\nNodeSource main http://n/\n"
                   "Debian main http://mirror/debian/\nDebian main http://later/\n")
        self.assertEqual(foreign_hosts.mirror(targets), "http://mirror/debian/")
        self.assertEqual(foreign_hosts.mirror("Debian contrib http://c/\n"),
                         foreign_hosts.DEFAULT_MIRROR)

    def test_what_is_there_is_not_fetched(self):
        with tempfile.TemporaryDirectory() as cache, \
                unittest.mock.patch.object(foreign_hosts, "run") as fetch:
            tests = Path(cache) / "libusb-1.0.28/tests"
            tests.mkdir(parents=True)
            (tests / "stress_mt.c").touch()
            self.assertEqual(foreign_hosts.fetch_source(Path(cache)), tests.parent)
            fetch.assert_not_called()

    def test_nothing_that_was_fetched(self):
        with tempfile.TemporaryDirectory() as cache, \
                unittest.mock.patch.object(foreign_hosts, "run", return_value=""):
            with self.assertRaises(foreign_hosts.Trouble):
                foreign_hosts.fetch_source(Path(cache))


class Running(unittest.TestCase):
    def result_of(self, seconds=60, **changes):
        host = foreign_hosts.HOSTS["lsusb"]._replace(expected=set(), judge=lambda _: [], **changes)
        with tempfile.TemporaryDirectory() as cache, \
                unittest.mock.patch.object(foreign_hosts, "CACHE", Path(cache)), \
                unittest.mock.patch.dict(foreign_hosts.HOSTS, {"lsusb": host}), \
                unittest.mock.patch.object(foreign_hosts, "SECONDS", seconds), \
                contextlib.redirect_stdout(io.StringIO()) as output:
            passed = foreign_hosts.try_host("lsusb")
        return passed, output.getvalue()

    def test_passes(self):
        write = 'echo \'{"bus": {"complaints": [], "leaks": []}}\' >"$VIRTBUS_STATUS"'
        passed, output = self.result_of(command=["sh", "-c", write])
        self.assertEqual((passed, output), (True, "PASS lsusb\n"))

    def test_each_way_to_fail(self):
        def refuse(_):
            raise foreign_hosts.Trouble("no network")

        for changes, text in (({"command": ["sh", "-c", "exit 3"]}, "it ended with 3"),
                              ({"command": ["true"]}, "it never called the virtual bus"),
                              ({"command": ["/no/such/program"]}, "No such file"),
                              ({"command": ["sleep", "30"], "seconds": 0.2}, "does not end"),
                              ({"prepare": refuse}, "no network")):
            passed, output = self.result_of(**changes)
            self.assertFalse(passed, text)
            self.assertTrue(output.startswith("FAIL lsusb\n    "), output)
            self.assertIn(text, output)


if __name__ == "__main__":
    unittest.main()
