#!/usr/bin/env python3
"""scripts/mutate on a tiny project: it tells what the tests notice from what they do not."""

import json
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

SCRIPTS = Path(__file__).resolve().parents[2] / "scripts"
CMAKE = """cmake_minimum_required(VERSION 3.25)
project(tiny CXX)
enable_testing()
add_subdirectory(Src)
add_executable(tiny_test test.cpp)
target_link_libraries(tiny_test aitorixcamera)
add_test(NAME tiny_test COMMAND tiny_test)
"""
SOURCE = """int clamp(int value) {
    if (value > 10) {
        return 10;
    }
    return value;
}
int never_tested(int value) { return value * 7; }
"""
TEST = """int clamp(int value);
int main() { return clamp(9) == 9 && clamp(10) == 10 && clamp(11) == 10 ? 0 : 1; }
"""


class Mutate(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        for name, content in {"CMakeLists.txt": CMAKE, "test.cpp": TEST, "Src/clamp.cpp": SOURCE,
                              "Src/CMakeLists.txt":
                                  "add_library(aitorixcamera SHARED clamp.cpp)\n"}.items():
            (self.root / name).parent.mkdir(exist_ok=True)
            (self.root / name).write_text(content)
        (self.root / "scripts").mkdir()
        for name in ("project_version.py", "mutate", "mutation_places.py"):
            shutil.copy(SCRIPTS / name, self.root / "scripts")
        self.git("init", "-q")
        self.commit()

    def git(self, *arguments):
        subprocess.run(["git", "-c", "user.name=t", "-c", "user.email=t@localhost", *arguments],
                       cwd=self.root, check=True)

    def commit(self):
        self.git("add", "-A")
        self.git("commit", "-q", "-m", "state")

    def mutate(self, *arguments, path="Src"):
        run = subprocess.run([self.root / "scripts/mutate", *arguments, path], cwd=self.root,
                             capture_output=True, text=True, timeout=100)
        report = self.root / "build/mutate-default/report.json"
        places = json.loads(report.read_text())["places"] if report.is_file() else []
        return run, {(p["line"], p["kind"]): p["outcome"] for p in places if p["outcome"]}

    def test_a_change_of_a_program_counts_like_one_of_the_library(self):
        (self.root / "virtcam").mkdir()
        (self.root / "virtcam/main.cpp").write_text("int main() { return 3; }\n")
        (self.root / "virtcam/CMakeLists.txt").write_text("add_executable(virtcam main.cpp)\n")
        (self.root / "CMakeLists.txt").write_text(CMAKE + "add_subdirectory(virtcam)\n")
        self.commit()
        _, outcomes = self.mutate("--count", "1", "--survivors", "1", path="virtcam")
        self.assertEqual(outcomes, {(1, "constant"): "survived"})

    def test_noticed_and_survived(self):
        run, outcomes = self.mutate("--count", "20", "--survivors", "3")
        self.assertEqual(outcomes[(2, "condition")], "noticed", run.stdout + run.stderr)
        self.assertEqual(outcomes[(7, "operator")], "survived")
        self.assertEqual(outcomes[(7, "constant")], "survived")
        self.assertEqual({key for key, outcome in outcomes.items() if outcome == "survived"},
                         {(7, "operator"), (7, "constant")})
        # `value >= 10` behaves as `value > 10` and compiles to the same code: it does not count.
        self.assertNotIn((2, "operator"), outcomes)
        self.assertEqual((self.root / "Src/clamp.cpp").read_text(), SOURCE)

        # With a better test, one of the survivors is noticed.
        (self.root / "test.cpp").write_text(
            "int never_tested(int);\n" + TEST.replace("clamp(9)", "never_tested(2) == 14 && clamp(9)"))
        self.commit()
        first = self.root / "build/first.json"
        shutil.copy(self.root / "build/mutate-default/report.json", first)
        run, outcomes = self.mutate("--repeat", first, "--survivors", "0")
        self.assertEqual(run.returncode, 0, run.stdout + run.stderr)
        self.assertEqual(outcomes, {(7, "operator"): "noticed", (7, "constant"): "noticed"})

    def test_same_seed_same_places(self):
        lists = [self.mutate("--list", "--seed", seed, "--count", "5")[0].stdout
                 for seed in ("4", "4", "5")]
        self.assertEqual(len(lists[0].splitlines()), 5)
        self.assertEqual(lists[0], lists[1])
        self.assertNotEqual(lists[0], lists[2])

    def test_slices_are_a_whole_run_in_pieces(self):
        _, whole = self.mutate("--count", "4", "--survivors", "4")
        reports = []
        for draws in ("1-3", "4-6"):
            run, _ = self.mutate("--draws", draws, "--survivors", "9")
            self.assertEqual(run.returncode, 0, run.stdout + run.stderr)
            reports.append(self.root / f"build/{draws}.json")
            shutil.copy(self.root / "build/mutate-default/report.json", reports[-1])
        self.assertTrue((self.root / "build/mutate-default/durations.json").is_file())

        run, outcomes = self.mutate("--count", "4", "--survivors", "4", "--merge", *reports, "--")
        self.assertEqual(run.returncode, 0, run.stdout + run.stderr)
        self.assertEqual(outcomes, whole)

        run, _ = self.mutate("--count", "4", "--merge", reports[1], "--")
        self.assertEqual((run.returncode, run.stderr), (2, "mutate: draw 1 is missing\n"))
        run, _ = self.mutate("--count", "100", "--merge", *reports, "--")
        self.assertEqual(run.returncode, 2)
        self.assertIn("of 100 places so far, by 6 draws", run.stderr)
        run, _ = self.mutate("--draws", "5-1")
        self.assertIn("FROM-TO is wanted", run.stderr)

    def test_failing_tests_are_no_start(self):
        (self.root / "test.cpp").write_text("int main() { return 1; }\n")
        self.commit()
        run, _ = self.mutate()
        self.assertEqual(run.returncode, 2, run.stdout + run.stderr)


if __name__ == "__main__":
    unittest.main()
