#!/usr/bin/env python3
"""scripts/run-tests: every way in which a test can go wrong is counted."""

import contextlib
import io
import tempfile
import types
import unittest
import unittest.mock
import xml.etree.ElementTree as ElementTree
from pathlib import Path

from script_module import load_script

run_tests = load_script("run-tests")


def ctest_case(status, output, message=""):
    case = ElementTree.Element("testcase", name="t", status=status)
    if status != "run":
        ElementTree.SubElement(case, "failure", message=message)
    ElementTree.SubElement(case, "system-out").text = output
    return case


class Counting(unittest.TestCase):
    def count(self, *arguments):
        tally = run_tests.Tally()
        bad, _ = run_tests.count_cases(tally, "release", ctest_case(*arguments))
        return tally.passed, len(tally.failures), bad

    def test_each_case_counts(self):
        output = "[ RUN      ] A.b\n[       OK ] A.b (0 ms)\n[       OK ] A.c/0 (12 ms)\n"
        self.assertEqual(self.count("run", output), (2, 0, []))

    def test_result_behind_unfinished_text(self):
        self.assertEqual(self.count("run", "log[       OK ] A.b (0 ms)\n"), (1, 0, []))

    def test_failed_case(self):
        output = ("[       OK ] A.b (0 ms)\n[  FAILED  ] A.c (3 ms)\n[  FAILED  ] 1 test, listed "
                  "below:\n[  FAILED  ] A.c\n")
        self.assertEqual(self.count("fail", output), (1, 1, ["A.c"]))

    def test_failed_case_with_parameter(self):
        output = "[  FAILED  ] All/A.c/1, where GetParam() = \"(x ms)\" (3 ms)\n"
        self.assertEqual(self.count("fail", output), (0, 1, ["All/A.c/1"]))

    def test_skipped_case_is_a_failure(self):
        self.assertEqual(self.count("run", "[  SKIPPED ] A.c (3 ms)\n"), (0, 1, ["A.c"]))

    def test_process_that_dies(self):
        passed, failed, bad = self.count("fail", "[       OK ] A.b (0 ms)\n", "SEGFAULT")
        self.assertEqual((passed, failed), (1, 1))
        self.assertIn("SEGFAULT", bad[0])

    def test_test_without_cases(self):
        self.assertEqual(self.count("run", "fine\n"), (1, 0, []))
        self.assertEqual(self.count("fail", "bad\n", "Failed")[:2], (0, 1))

    def test_test_that_was_not_run(self):
        self.assertEqual(self.count("notrun", "", "Unable to find executable")[:2], (0, 1))


class Stages(unittest.TestCase):
    def test_a_line_for_each(self):
        tally = run_tests.Tally()
        times = iter([10, 20, 22.5])
        with contextlib.redirect_stdout(io.StringIO()), \
                unittest.mock.patch.object(run_tests.time, "monotonic", lambda: next(times)):
            tally.begin("building")
            tally.add("a", True)
            tally.begin("tests of it")
            tally.add("b", True)
            tally.add("c", False)
            lines = list(run_tests.table_of_stages(tally))
        self.assertEqual(lines, ["  passed  building       10.0 s      1 passed    0 failed",
                                 "  FAILED  tests of it     2.5 s      1 passed    1 failed"])

    def test_measurements_are_one(self):
        tally = run_tests.Tally()
        with contextlib.redirect_stdout(io.StringIO()), \
                unittest.mock.patch.object(run_tests, "check") as check:
            run_tests.run_gates(tally)
        self.assertEqual([stage[0] for stage in tally.stages], ["measurements"])
        check.assert_called_once()

    def test_everything_is_run_where_everything_is_asked_for(self):
        """No stage falls over its own feet: every command is made, and counts as passed."""
        def all_is_well(tally, name, *_, **__):
            tally.add(name, True)
            return True

        tally = run_tests.Tally()
        options = types.SimpleNamespace(full=True, only=None, jobs=1, preset="release")
        with contextlib.redirect_stdout(io.StringIO()), \
                unittest.mock.patch.object(run_tests, "build", return_value=True), \
                unittest.mock.patch.object(run_tests, "make_sysroot") as sysroot, \
                unittest.mock.patch.object(run_tests, "run_ctest") as ctest, \
                unittest.mock.patch.object(run_tests, "check", all_is_well), \
                unittest.mock.patch.object(run_tests, "run_scenarios") as scenarios:
            run_tests.run_all(tally, options)
        self.assertEqual(tally.failures, [])
        self.assertEqual([call.args[1] for call in ctest.call_args_list],
                         ["release", "asan", "tsan", "armhf"])
        sysroot.assert_called_once_with(tally, "armhf")
        self.assertEqual([call.args[3] for call in scenarios.call_args_list],
                         ["scripts/foreign-hosts", "scripts/system-test"])
        self.assertIn("measurements", [name for name, *_ in tally.stages])


class LeftOut(unittest.TestCase):
    """What an emulated machine cannot run has a reason, and is left out there only."""

    def test_rows(self):
        with tempfile.TemporaryDirectory() as tree, \
                unittest.mock.patch.object(run_tests, "ROOT", Path(tree)):
            (run_tests.ROOT / "tests").mkdir()
            (run_tests.ROOT / run_tests.LEFT_OUT).write_text(
                "# a comment\n\ntest a_test no such program here\ncase B.c* too slow\n")
            rows = run_tests.left_out("armhf")
            self.assertEqual(run_tests.left_out("release"), [])
        self.assertEqual(rows, [["test", "a_test", "no such program here"],
                                ["case", "B.c*", "too slow"]])
        command, environment = ["ctest"], {}
        with contextlib.redirect_stdout(io.StringIO()) as output:
            run_tests.leave_out(rows, command, environment)
        self.assertEqual(command, ["ctest", "-E", "^(a_test)$"])
        self.assertEqual(environment, {"GTEST_FILTER": "-B.c*"})
        self.assertIn("a_test: no such program here", output.getvalue())


class BesideTheNativeRun(unittest.TestCase):
    """Each case of the native run is among the emulated ones, or has its reason."""

    NATIVE = {"a_test.0": "[       OK ] A.b (0 ms)\n", "a_test.1": "[       OK ] A.c (0 ms)\n",
              "s_script_test": "fine\n", "b_test": "[       OK ] B.slow (9 ms)\n"}
    ROWS = "test .*_script_test a script\ncase B.s* too slow\n"

    def compare(self, here, both_are_new=True, native=True):
        tally = run_tests.Tally()
        with tempfile.TemporaryDirectory() as tree, \
                unittest.mock.patch.object(run_tests, "ROOT", Path(tree)), \
                contextlib.redirect_stdout(io.StringIO()) as output:
            (run_tests.ROOT / "tests").mkdir()
            (run_tests.ROOT / run_tests.LEFT_OUT).write_text(self.ROWS)
            for preset, tests in {"armhf": here, **({"release": self.NATIVE} if native else {})}.items():
                suite = ElementTree.Element("testsuite")
                for name, text in tests.items():
                    case = ctest_case("run", text)
                    case.set("name", name)
                    suite.append(case)
                (run_tests.ROOT / "build" / preset).mkdir(parents=True)
                ElementTree.ElementTree(suite).write(run_tests.ROOT / "build" / preset / "ctest.xml")
            run_tests.compare_with_native(tally, "armhf", both_are_new)
        return output.getvalue().strip(), tally.failures

    def test_all_but_the_listed(self):
        here = {"a_test.0": "[       OK ] A.c (0 ms)\n", "a_test.1": "[  FAILED  ] A.b (0 ms)\n"}
        self.assertEqual(self.compare(here), (
            "2 cases; 4 when build/release ran last, 2 of them left out here", []))

    def test_a_missing_one_has_failed(self):
        here = {"a_test.0": "[       OK ] A.c (0 ms)\n"}
        self.assertEqual(self.compare(here)[1], ["armhf: a_test A.b was not run"])
        self.assertEqual(self.compare(here, both_are_new=False)[1], [])

    def test_nothing_to_compare_with(self):
        said, failures = self.compare({"b_test": "[       OK ] B.slow (0 ms)\n"}, native=False)
        self.assertEqual((said, failures), (
            "1 cases; build/release has not run, to compare with", []))


class Warnings(unittest.TestCase):
    """They stop the project's own checks, and nobody who only wants to see it work."""

    def strict(self, environment, **options):
        with unittest.mock.patch.dict(run_tests.os.environ, environment, clear=True):
            return run_tests.is_strict(types.SimpleNamespace(**options))

    def test_who_is_strict(self):
        self.assertFalse(self.strict({}, full=False))
        self.assertTrue(self.strict({}, full=True))
        self.assertTrue(self.strict({"CI": "true"}, full=False))


class MissingParts(unittest.TestCase):
    """A tree without them must not pass for one in which they pass."""

    def tally_of(self, function):
        tally = run_tests.Tally()
        with tempfile.TemporaryDirectory() as tree, \
                unittest.mock.patch.object(run_tests, "ROOT", Path(tree)):
            function(tally)
        return tally.passed, len(tally.failures)

    def test_no_kernel_test(self):
        self.assertEqual(self.tally_of(run_tests.run_system_test), (0, 1))

    def test_no_foreign_hosts(self):
        self.assertEqual(self.tally_of(run_tests.run_foreign_hosts), (0, 1))

    def test_no_fuzz_targets(self):
        self.assertEqual(self.tally_of(run_tests.run_fuzzers), (0, 1))

    def test_fuzz_targets_that_were_not_built(self):
        def build_nothing(tally):
            (run_tests.ROOT / "fuzz").mkdir()
            (run_tests.ROOT / "fuzz/CMakeLists.txt").touch()
            with unittest.mock.patch.object(run_tests, "build", return_value=True), \
                    contextlib.redirect_stdout(io.StringIO()):
                run_tests.run_fuzzers(tally)
        self.assertEqual(self.tally_of(build_nothing), (0, 1))


if __name__ == "__main__":
    unittest.main()
