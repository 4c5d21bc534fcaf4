"""Tests of bench/update_docs.py: its queue, its texts, and the marks of the document."""
import re
import sys
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.dont_write_bytecode = True
sys.path.insert(0, str(ROOT / "bench"))
import update_docs  # noqa: E402


class Queue(unittest.TestCase):
    def test_of_one_process_is_no_queue(self):
        pairs, wait = update_docs.queue(1, turn=2, work=6)
        self.assertAlmostEqual(pairs, 1 / 10)
        self.assertAlmostEqual(wait, 0)

    def test_is_full_when_nobody_works(self):
        pairs, wait = update_docs.queue(5, turn=2, work=0)
        self.assertAlmostEqual(pairs, 1 / 4)
        self.assertAlmostEqual(wait, 4 * 2)

    def test_of_two_processes_with_work(self):
        # The other process is in its turn for 2 * 1 of 2 * 1 + 2 seconds.
        pairs, wait = update_docs.queue(2, turn=1, work=2)
        self.assertAlmostEqual(wait, 0.5)
        self.assertAlmostEqual(pairs, 2 / (2 + 2 * 1.5))

    def test_manages_no_more_than_one_turn_at_a_time(self):
        pairs, wait = update_docs.queue(1000, turn=1, work=60)
        self.assertAlmostEqual(pairs, 1 / 2, places=6)
        self.assertAlmostEqual(wait, (1000 / pairs - 60) / 2 - 1)


class Texts(unittest.TestCase):
    def test_of_times_have_about_two_digits(self):
        times = {0: "0", 0.00042: "420 µs", 0.0024: "2.4 ms", 0.0666: "67 ms", 1.27: "1.3 s",
                 0.2012: "200 ms", 0.99999: "1.0 s", 99.0: "99 s", 7000: "120 min", 7300: "2.0 h"}
        self.assertEqual([update_docs.time_text(time) for time in times], list(times.values()))

    def test_of_counts_have_about_two_digits(self):
        counts = {0: "0", 7.4: "7", 59.6: "60", 1774: "1,800", 83_456: "83,000"}
        self.assertEqual([update_docs.count_text(count) for count in counts],
                         list(counts.values()))


class Document(unittest.TestCase):
    def test_has_a_place_for_each_part_and_for_no_other(self):
        text = (ROOT / "docs/performance.md").read_text()
        marks = re.findall(r"<!-- (\w+) -->\n.*?<!-- end -->", text, re.DOTALL)
        self.assertEqual(sorted(marks), sorted(update_docs.PARTS))

    def test_shows_drawings_that_are_there(self):
        text = (ROOT / "docs/performance.md").read_text()
        drawings = re.findall(r"!\[[^]]*\]\(([^)]*)\)", text)
        self.assertEqual(len(drawings), 2)
        for drawing in drawings:
            self.assertTrue((ROOT / "docs" / drawing).is_file(), drawing)


if __name__ == "__main__":
    unittest.main()
