#!/usr/bin/env python3
"""The arithmetic and the words of the benchmark's report."""

import json
import pathlib
import sys
import unittest
import xml.etree.ElementTree

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "bench"))

from chart import chart  # noqa: E402
from measure import Comparison, Sample, compare, process  # noqa: E402
from report import Fact, json_text, table_text  # noqa: E402

WHERE = {"processor": "P", "cores": 2, "huge pages": "never", "kernel": "6", "load": 0.0, "versions": ["a 1", "b 2"]}


def comparison(ours, theirs, goal):
    made = Comparison("job & more", "peer", goal)
    made.ours = [Sample(ms, ms / 2) for ms in ours]
    made.theirs = [Sample(ms, ms) for ms in theirs]
    return made


class Ratios(unittest.TestCase):
    def test_are_taken_pair_by_pair(self):
        # The second pair was disturbed; the medians of the times alone would say 20 / 40.
        pairs = comparison([10, 90, 20], [40, 90, 40], goal=0.5)
        self.assertEqual(pairs.ratios(), [0.25, 1.0, 0.5])
        self.assertEqual((pairs.ratio(), pairs.cpu_ratio()), (0.5, 0.25))

    def test_goals(self):
        for theirs, goal, reached in ((20, 0.5, True), (19, 0.5, False), (19, None, None)):
            with self.subTest(theirs=theirs, goal=goal):
                self.assertIs(comparison([10], [theirs], goal).reached(), reached)

    def test_runs_take_turns_after_a_warm_up(self):
        calls = []

        def run(name):
            return lambda: calls.append(name) or Sample(1, 1)

        compare("job", "peer", run("a"), run("b"), rounds=2)
        self.assertEqual("".join(calls), "ababab")


class Processes(unittest.TestCase):
    def test_memory_and_processor_time_are_the_childs(self):
        busy = process(sys.executable, "-c", "x = bytearray(300_000_000); sum(range(1_000_000))")()
        self.assertGreater(busy.peak_kilobytes, 290_000)
        self.assertGreater(busy.cpu_milliseconds, 0)

    def test_failure_is_not_measured(self):
        with self.assertRaises(RuntimeError):
            process(sys.executable, "-c", "raise SystemExit(3)")()


class Reports(unittest.TestCase):
    def setUp(self):
        self.rows = [comparison([10], [200], 1 / 12), comparison([30], [20], 1.2)]
        self.facts = [Fact("memory", "50", {"peer": "60"}, "below 40", False)]

    def test_table(self):
        text = table_text(self.rows, self.facts, WHERE)
        cells = [[cell.strip() for cell in line.split("|")[1:-1]] for line in text.splitlines() if line.startswith("|")]
        self.assertEqual(cells[2][3:], ["200.0 ms", "1/20.0", "1/20.0 – 1/20.0", "1/40.0", "≤ 1/12", "yes"])
        self.assertEqual(cells[3][4:], ["1.50", "1.50 – 1.50", "0.75", "≤ 1.2", "**no**"])
        self.assertEqual(cells[-1], ["memory", "50", "peer 60", "below 40", "**no**"])
        self.assertNotIn("other work disturbed", text)
        self.assertIn("other work disturbed", table_text(self.rows, [], WHERE | {"load": 3.0}))

    def test_json(self):
        record = json.loads(json_text(self.rows, self.facts, WHERE))
        self.assertEqual([c["reached"] for c in record["comparisons"]], [True, False])
        self.assertEqual(record["comparisons"][1]["ratio"], {"median": 1.5, "min": 1.5, "max": 1.5})

    def test_bars_point_to_who_is_faster(self):
        tree = xml.etree.ElementTree.fromstring(chart(self.rows))
        bars = [e for e in tree.iter("{http://www.w3.org/2000/svg}rect")][1:]
        even = float(bars[0].get("x"))
        self.assertAlmostEqual(float(bars[1].get("x")) + float(bars[1].get("width")), even, delta=0.2)
        self.assertGreater(float(bars[0].get("width")), float(bars[1].get("width")))


if __name__ == "__main__":
    unittest.main()
