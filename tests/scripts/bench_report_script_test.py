#!/usr/bin/env python3
"""Whether a figure past its gate is called missed, with results that nothing measured."""

import sys
import unittest
import xml.etree.ElementTree
from itertools import product
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "scripts"))
import bench_report  # noqa: E402

FRAMES, PAYLOADS = (20_000, 200_000, 1_500_000), (8192, 16384, 65536)


def run_of(side, window, mb_per_s, median_us, cpu):
    return {"side": side, "window": window, "mb_per_s": mb_per_s, "median_us": median_us,
            "cpu_ns_per_byte": cpu, "event_ns_per_byte": 0.10, "switches_per_frame": 2.0}


def closed_cell(cores, read, frame, payload):
    return {"cores": cores, "read": read, "frame": frame, "payload": payload,
            "copy_ns_per_byte": 0.10,
            "runs": [run_of("plugin", 1, 2400, 10, 0.05), run_of("plugin", 4, 3000, 10, 0.05),
                     run_of("libuvc", 1, 1000, 200, 0.10), run_of("bare", 1, 2500, 10, 0.05)] * 3}


def paced_cell(frame, rate):
    return {"frame": frame, "rate": rate,
            "runs": [{"side": "plugin", "median_us": 5.5}, {"side": "bare", "median_us": 5.0}] * 3}


def micro():
    parser = {f"parser/substreams:{n}": {"cpu_time": 50.0 * n, "time_unit": "ns"}
              for n in range(1, 8)}
    return parser | {f"dispatch/observers:{n}": {"cpu_time": 0.02 * n, "time_unit": "us"}
                     for n in (1, 64)}


def growth():
    return {name: [{key: 10 * i, "cpu_ms_per_s": float(i)} for i in (1, 2, 3)]
            for name, (_, key) in bench_report.GROWTH.items()}


def good_result():
    """Reaches every goal."""
    return {
        "counters": {"video_copied_per_byte": 1, "video_allocations": 0, "audio_allocations": 0,
                     "video_signals": 1, "parser_copied_bytes": 0, "parser_allocations": 0},
        "instructions": {"video": 124},
        "micro": micro(),
        "compare": {
            "closed": [closed_cell(*cell)
                       for cell in product((1, 2), (True, False), FRAMES, PAYLOADS)],
            "paced": [paced_cell(frame, rate) for frame, rate in product(FRAMES, (30, 200))],
            "end": {"plugin": {"share_of_period": 0.005}},
            "stalls": {"plugin": {"lost": 0}},
            "growth": growth(),
            "resources": {"start_ms": 1, "stop_ms": 1, "resident_beyond_buffers_mib": 1}}}


def runs(result, side, window=None, **cell):
    return [run for one in bench_report.cells(result, **cell)
            for run in bench_report.runs_of(one, side, window)]


def put(values, name, number):
    for each in values:
        each[name] = number


# What is made worse than its gate, and words of the only row that says so.
WORSE = {
    "a second copy": ("bytes copied per byte", lambda r: put([r["counters"]],
                                                             "video_copied_per_byte", 2)),
    "no copy": ("bytes copied per byte", lambda r: put([r["counters"]], "video_copied_per_byte", 0)),
    "an allocation for sound": ("allocations per frame", lambda r: put([r["counters"]],
                                                                       "audio_allocations", 0.01)),
    "two signals": ("wake-ups", lambda r: put([r["counters"]], "video_signals", 2)),
    "instructions": ("instructions per payload", lambda r: put([r["instructions"]], "video", 251)),
    "one lost frame": ("frames lost", lambda r: put([r["compare"]["stalls"]["plugin"]], "lost", 1)),
    "a late end": ("end of frame", lambda r: put([r["compare"]["end"]["plugin"]],
                                                 "share_of_period", 0.06)),
    "a slow parser, one size": ("parser, per", lambda r: put([r["micro"]["parser/substreams:3"]],
                                                             "cpu_time", 601.0)),
    "a parser that copies": ("parser: bytes", lambda r: put([r["counters"]],
                                                            "parser_copied_bytes", 1)),
    "dispatch": ("dispatch", lambda r: put([r["micro"]["dispatch/observers:64"]], "cpu_time", 6.4)),
    "switches, one cell": ("context switches", lambda r: put(
        runs(r, "plugin", 1, cores=1, read=True, frame=20_000, payload=8192),
        "switches_per_frame", 2.3)),
    "event thread, one cell": ("event thread", lambda r: put(
        runs(r, "plugin", 1, cores=1, read=False, frame=200_000, payload=65536),
        "event_ns_per_byte", 0.17)),
    "two cores": ("200 KB, two cores", lambda r: put(
        runs(r, "plugin", 1, cores=2, frame=200_000), "mb_per_s", 1400)),
    "lock step, one cell": ("read, lock step (worst", lambda r: put(
        runs(r, "plugin", 1, cores=1, read=True, frame=20_000, payload=8192), "mb_per_s", 800)),
    "queue, one cell": ("deep as it goes", lambda r: put(
        runs(r, "plugin", 4, cores=1, read=True, frame=20_000, payload=8192), "mb_per_s", 1200)),
    "CPU": ("CPU per byte", lambda r: put(
        runs(r, "plugin", 4, cores=1, read=True), "cpu_ns_per_byte", 0.09)),
    "latency, 200 KB": ("libuvc / plug-in, 200 KB", lambda r: put(
        runs(r, "plugin", 1, frame=200_000), "median_us", 150)),
    "latency, 1.5 MB": ("libuvc / plug-in, 1.5 MB", lambda r: put(
        runs(r, "plugin", 1, frame=1_500_000), "median_us", 50)),
    "waking": ("bare condition variable", lambda r: [put(
        bench_report.runs_of(cell, "plugin"), "median_us", 11)
        for cell in r["compare"]["paced"]]),
    "start": ("start of recording", lambda r: put([r["compare"]["resources"]], "start_ms", 21)),
    "stop": ("stop of recording", lambda r: put([r["compare"]["resources"]], "stop_ms", 21)),
    "memory": ("resident memory", lambda r: put([r["compare"]["resources"]],
                                                "resident_beyond_buffers_mib", 4.1)),
}


class Gates(unittest.TestCase):
    def test_all_that_is_well_reaches_its_goal(self):
        rows = bench_report.rows(good_result())
        self.assertEqual([row.name for row in rows if not row.passes or row.reaches is False], [])
        judged = [row for row in rows if row.reaches is not None]
        self.assertEqual(len(judged), len({words for words, _ in WORSE.values()}))
        self.assertNotIn("missed", bench_report.table(rows))

    def test_each_figure_that_is_worse_misses_its_own_gate(self):
        for name, (words, worsen) in WORSE.items():
            with self.subTest(name):
                result = good_result()
                worsen(result)
                rows = bench_report.rows(result)
                missed = [row.name for row in rows if not row.passes]
                self.assertEqual(len(missed), 1, missed)
                self.assertIn(words, missed[0])
                self.assertEqual(bench_report.table(rows).count("**missed**"), 1)

    def test_between_goal_and_gate_is_said(self):
        result = good_result()
        result["instructions"]["video"] = 131
        line, = [line for line in bench_report.table(bench_report.rows(result)).splitlines()
                 if "instructions" in line]
        self.assertIn("| 131 | at most 250 | at most 130 | gate |", line)

    def test_without_a_measurement_no_gate_is_passed(self):
        result = good_result()
        for cell in bench_report.cells(result, cores=2):
            cell["runs"] = [run for run in cell["runs"] if run["side"] != "libuvc"]
        with self.assertRaises(ValueError):
            bench_report.rows(result)
        for cell in bench_report.cells(result, cores=2):
            cell["runs"] = []
        with self.assertRaises(ValueError):
            bench_report.rows(result)

    def test_counted_rows_are_the_exact_ones(self):
        result = good_result()
        self.assertTrue(all(row.exact for row in bench_report.counted_rows(result)))
        self.assertFalse(any(row.exact for row in bench_report.timed_rows(result)))

    def test_short_run_has_its_counted_rows(self):
        result = good_result()
        del result["compare"]["resources"]
        self.assertEqual(bench_report.rows(result), list(bench_report.counted_rows(result)))

    def test_median_is_of_pairs(self):
        cell = {"runs": [{"side": side, "window": 1, "x": x}
                         for ours, theirs in ((2, 1), (20, 10), (9, 3))
                         for side, x in (("plugin", ours), ("libuvc", theirs))]}
        self.assertEqual(bench_report.ratio(cell, "x", bench_report.LOCK_STEP, bench_report.LIBUVC),
                         2)


class Pictures(unittest.TestCase):
    def test_each_is_well_formed_and_shows_its_cells(self):
        pictures = bench_report.pictures(good_result())
        self.assertEqual(sorted(pictures), ["growth.svg", "latency.svg", "one-core-unread.svg",
                                            "one-core.svg", "two-cores.svg"])
        for name, picture in pictures.items():
            with self.subTest(name):
                root = xml.etree.ElementTree.fromstring(picture)
                width = float(root.get("width"))
                for bar in root.iter("{http://www.w3.org/2000/svg}rect"):
                    self.assertLessEqual(float(bar.get("x", 0)) + float(bar.get("width")), width)
                if name != "growth.svg":
                    for cell in ("20 KB in 8 KB", "1.5 MB in 64 KB"):
                        self.assertIn(cell, picture)

    def test_what_was_not_measured_has_none(self):
        result = good_result()
        result["compare"] = {}
        self.assertEqual(bench_report.pictures(result), {})


if __name__ == "__main__":
    unittest.main()
