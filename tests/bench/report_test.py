"""Tests of bench/report.py, on made-up measurements."""
import contextlib
import io
import json
import sys
import tempfile
import unittest
from pathlib import Path

BENCH = Path(__file__).resolve().parents[2] / "bench"
sys.dont_write_bytecode = True
sys.path.insert(0, str(BENCH))
import report  # noqa: E402


def runs(name, times, unit="us", **counters):
    """Returns what Google Benchmark writes for one benchmark: a run for each repetition."""
    return [{"name": f"{name}/manual_time", "run_name": f"{name}/manual_time",
             "run_type": "iteration", "repetitions": len(times), "repetition_index": index,
             "threads": 1, "iterations": 7, "real_time": time, "cpu_time": 12345.0,
             "time_unit": unit,
             **{counter: values[index] for counter, values in counters.items()}}
            for index, time in enumerate(times)]


def goal_row(results, **goal):
    return report.goal_row(report.figures_of(results), goal)


# Medians 11 and 5; in pairs 2, 3 and 1.1.
PAIR = runs("copy/ours", [10, 12, 11]) + runs("copy/floor", [5, 4, 10])


class Ratio(unittest.TestCase):
    def test_is_that_of_the_medians(self):
        row = goal_row(PAIR, figure="copy", measure="ratio", at_most=2.5)
        self.assertAlmostEqual(row["ours"], 11e-6)
        self.assertAlmostEqual(row["floor"], 5e-6)
        self.assertAlmostEqual(row["ratio"], 2.2)

    def test_spreads_over_the_middle_half_of_the_pairs(self):
        low, high = goal_row(PAIR, figure="copy", measure="ratio", at_most=2.5)["spread"]
        self.assertAlmostEqual(low, 1.55)
        self.assertAlmostEqual(high, 2.5)

    def test_pairs_runs_by_their_repetition(self):
        shuffled = [PAIR[index] for index in (2, 0, 1, 4, 5, 3)]
        self.assertEqual(goal_row(shuffled, figure="copy", measure="ratio", at_most=2.5),
                         goal_row(PAIR, figure="copy", measure="ratio", at_most=2.5))

    def test_compares_times_of_different_units(self):
        results = runs("copy/ours", [3], "ms") + runs("copy/floor", [1500], "us")
        row = goal_row(results, figure="copy", measure="ratio", at_most=2.5)
        self.assertAlmostEqual(row["ratio"], 2.0)

    def test_is_against_what_the_goal_names(self):
        results = PAIR + runs("copy/cp", [22, 22, 22])
        row = goal_row(results, figure="copy", measure="ratio", against="cp", at_most=1)
        self.assertAlmostEqual(row["ratio"], 0.5)
        self.assertEqual(row["figure"], "copy, against cp")

    def test_does_without_aggregates(self):
        mean = {**PAIR[0], "run_type": "aggregate", "real_time": 1e9}
        row = goal_row(PAIR + [mean], figure="copy", measure="ratio", at_most=2.5)
        self.assertAlmostEqual(row["ratio"], 2.2)

    def test_of_one_repetition_has_no_spread(self):
        results = runs("copy/ours", [4]) + runs("copy/floor", [2])
        row = goal_row(results, figure="copy", measure="ratio", at_most=2.5)
        self.assertEqual(row["spread"], (2.0, 2.0))


class Goal(unittest.TestCase):
    # 4 us beside 2 us, exactly.
    results = runs("copy/ours", [4], calls=[100.0]) + runs("copy/floor", [2], calls=[50.0])

    def is_met(self, **goal):
        return goal_row(self.results, **goal)["met"]

    def test_is_met_up_to_its_limit(self):
        self.assertIs(self.is_met(figure="copy", measure="ratio", at_most=2), True)
        self.assertIs(self.is_met(figure="copy", measure="ratio", at_most=1.99), False)

    def test_may_be_a_least_value(self):
        self.assertIs(self.is_met(figure="copy", measure="counter", counter="calls",
                                  at_least=100), True)
        self.assertIs(self.is_met(figure="copy", measure="counter", counter="calls",
                                  at_least=101), False)

    def test_may_be_a_time_in_microseconds(self):
        self.assertIs(self.is_met(figure="copy", measure="microseconds", at_most=4.1), True)
        self.assertIs(self.is_met(figure="copy", measure="microseconds", at_most=3.9), False)

    def test_may_be_a_ratio_of_counters(self):
        row = goal_row(self.results, figure="copy", measure="counter_ratio", counter="calls",
                       at_most=2)
        self.assertEqual((row["ours"], row["floor"], row["ratio"], row["met"]),
                         (100, 50, 2, True))

    def test_may_be_a_growth_with_the_floors_beside_it(self):
        larger = runs("more/ours", [36]) + runs("more/floor", [16])
        goal = {"figure": "more", "measure": "growth", "from": "copy"}
        row = goal_row(self.results + larger, **goal, at_most=9)
        self.assertEqual((row["value"], row["floor"], row["met"]), (9, 8, True))
        self.assertIs(goal_row(self.results + larger, **goal, at_most=8.9)["met"], False)

    def test_that_was_not_measured_is_neither_met_nor_not(self):
        self.assertIsNone(self.is_met(figure="other", measure="ratio", at_most=2))
        self.assertIsNone(self.is_met(figure="copy", measure="ratio", against="cp", at_most=2))
        self.assertIsNone(self.is_met(figure="copy", measure="counter", counter="other",
                                      at_most=2))
        self.assertIsNone(self.is_met(figure="copy", measure="growth", **{"from": "other"},
                                      at_most=2))

    def test_of_an_unknown_measure_is_refused(self):
        with self.assertRaises(report.Failure):
            self.is_met(figure="copy", measure="seconds", at_most=2)
        with self.assertRaises(report.Failure):
            self.is_met(figure="copy", measure="ratio")


class Report(unittest.TestCase):
    def test_shows_also_what_no_goal_is_about(self):
        results = PAIR + runs("copy/shell", [99]) + runs("log/ours", [1]) + runs("log/floor", [1])
        goals = [{"figure": "copy", "measure": "ratio", "at_most": 3}]
        rows = report.report(report.figures_of(results), goals)
        self.assertEqual([(row["figure"], row["met"]) for row in rows],
                         [("copy", True), ("copy, shell", None), ("log", None)])

    def test_orders_figures_by_their_numbers(self):
        results = [run for disks in (64, 8, 512) for run in runs(f"prepare_{disks}/ours", [1])]
        rows = report.report(report.figures_of(results), [])
        self.assertEqual([row["figure"] for row in rows],
                         ["prepare_8", "prepare_64", "prepare_512"])

    def test_ends_at_a_measurement_that_failed(self):
        failed = {**PAIR[0], "error_occurred": True, "error_message": "no memory"}
        with self.assertRaisesRegex(report.Failure, "copy/ours.*no memory"):
            report.figures_of([failed])

    def test_knows_the_measures_of_the_stored_goals(self):
        for goal in json.loads((BENCH / "goals.json").read_text()):
            self.assertIsNone(report.goal_row({}, goal)["met"])


class Files(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = Path(directory.name)

    def write(self, name, content):
        (self.directory / name).write_text(json.dumps(content))
        return str(self.directory / name)

    def run_report(self, goals, *results):
        """Returns what is printed."""
        arguments = ["--goals", self.write("goals", goals), "--drawings", str(self.directory),
                     "--output", str(self.directory / "all.json")]
        arguments += [self.write(f"results{index}", {"context": {}, "benchmarks": part})
                      for index, part in enumerate(results)]
        printed = io.StringIO()
        with contextlib.redirect_stdout(printed):
            report.main(arguments)
        return printed.getvalue()

    def test_hold_the_measurements_and_the_table(self):
        log = runs("log/ours", [1])
        self.run_report([{"figure": "copy", "measure": "ratio", "at_most": 2}], PAIR, log)
        content = json.loads((self.directory / "all.json").read_text())
        self.assertEqual(content["benchmarks"], PAIR + log)
        self.assertEqual([(row["figure"], row["met"]) for row in content["report"]],
                         [("copy", False), ("log", None)])

    def test_the_table_says_which_goals_are_met(self):
        table = self.run_report([{"figure": "copy", "measure": "ratio", "at_most": 2},
                                 {"figure": "copy", "measure": "microseconds", "at_most": 20},
                                 {"figure": "other", "measure": "ratio", "at_most": 2}], PAIR)
        lines = [line.split("  ") for line in table.splitlines()]
        cells = [[cell.strip() for cell in line if cell.strip()] for line in lines]
        self.assertEqual(cells[1:], [
            ["copy", "11 us", "5 us", "2.20", "1.55 - 2.50", "<= 2", "NOT met"],
            ["copy", "11 us", "5 us", "10.5 us - 11.5 us", "<= 20 us", "met"],
            ["other", "<= 2", "not measured"],
            [],
            ["1 goals met, 1 not met, 1 not measured"],
        ])

    def test_give_the_cost_of_a_disk_to_the_drawing(self):
        results = [run for disks, time in ((64, 640), (8, 160), (0, 50))
                   for what, factor in (("ours", 2), ("floor", 1))
                   for run in runs(f"prepare_{disks}_disks/{what}", [time * factor])]
        self.run_report([], results)
        self.assertEqual((self.directory / "prepare.dat").read_text(), "8 40 20\n64 20 10\n")
        self.assertFalse((self.directory / "waiting.dat").exists())

    def test_give_waits_to_the_drawing(self):
        results = [run for what, wait in (("ours", 0.2), ("floor", 0.1))
                   for run in runs(f"waiting_2_processes/{what}", [1], median_wait=[wait],
                                   longest_wait=[wait * 3])]
        self.run_report([], results)
        self.assertEqual((self.directory / "waiting.dat").read_text(), "2 0.2 0.6 0.1 0.3\n")


if __name__ == "__main__":
    unittest.main()
