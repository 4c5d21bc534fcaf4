#!/usr/bin/env python3
"""Tells how the library's times compare with the floors', and which goals are met.

Reads the JSON files that ixfs_bench writes, prints one table, and writes a JSON file that holds both
the measurements and the table, and data for the drawings.

Each goal of goals.json is about one figure, and about one of these measures:

  ratio          the time of "ours" divided by that of "floor", or of what "against" names
  microseconds   the time of "ours"
  growth         the time of "ours" divided by that of the figure that "from" names
  counter        the counter of "ours" that "counter" names
  counter_ratio  that counter of "ours" divided by that of "floor"

All values are medians over the repetitions. The spread is what the middle half of the repetitions
lie between. Of a quotient it is that of the quotients of repetitions with the same number.
"""
import argparse
import json
import re
import statistics
import sys
from pathlib import Path

SECONDS = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}
# What Google Benchmark puts into a result beside the counters.
OWN_FIELDS = {
    "name", "family_index", "per_family_instance_index", "run_name", "run_type", "repetitions",
    "repetition_index", "threads", "iterations", "real_time", "cpu_time", "time_unit",
}


class Failure(Exception):
    """A measurement that is no use."""


class Measured:
    """What one benchmark, such as prepare_64_disks/ours, came to in each repetition."""

    def __init__(self):
        self.seconds = []
        self.counters = {}


def figures_of(results):
    """Returns {figure: {"ours": Measured, "floor": Measured, ...}}."""
    figures = {}
    runs = [run for run in results if run["run_type"] == "iteration"]
    for run in sorted(runs, key=lambda run: run["repetition_index"]):
        if run.get("error_occurred"):
            raise Failure(f"{run['run_name']}: {run['error_message']}")
        # Behind these two names stand options, such as "/manual_time".
        figure, what = run["run_name"].split("/")[:2]
        measured = figures.setdefault(figure, {}).setdefault(what, Measured())
        measured.seconds.append(run["real_time"] * SECONDS[run["time_unit"]])
        for name in run.keys() - OWN_FIELDS:
            measured.counters.setdefault(name, []).append(run[name])
    return figures


def quartiles(values):
    """Returns what the middle half of the values lie between."""
    if len(values) == 1:
        return values[0], values[0]
    lower, _, upper = statistics.quantiles(values, n=4, method="inclusive")
    return lower, upper


def quotient(upper, lower):
    """Returns the quotient of two lists' medians, and the quartiles of the quotients in pairs."""
    pairs = [one / other for one, other in zip(upper, lower)]
    return statistics.median(upper) / statistics.median(lower), quartiles(pairs)


def numbers_of(figures, figure, what, counter=None):
    """Returns the times or a counter of a benchmark in each repetition, or None."""
    measured = figures.get(figure, {}).get(what)
    if measured is None:
        return None
    return measured.counters.get(counter) if counter else measured.seconds


def row_of(name, unit, ours, floor, is_quotient):
    """Returns a row without a goal. What is judged is a quotient, or else the value of "ours"."""
    row = {"figure": name, "unit": unit, "ours": None, "floor": None, "ratio": None,
           "spread": None, "value": None, "goal": None, "met": None}
    if ours:
        row["ours"] = row["value"] = statistics.median(ours)
        row["spread"] = quartiles(ours)
    if floor:
        row["floor"] = statistics.median(floor)
    if is_quotient:
        row["value"] = row["spread"] = None
        if ours and floor:
            row["ratio"], row["spread"] = quotient(ours, floor)
            row["value"] = row["ratio"]
    return row


def growth_row(figures, goal):
    """Returns the row of a figure's growth from another, with that of the floor beside it."""
    figure, smaller = goal["figure"], goal["from"]
    row = row_of(f"{figure} / {smaller}", "", None, None, False)
    for what in ("ours", "floor"):
        upper, lower = (numbers_of(figures, name, what) for name in (figure, smaller))
        if upper and lower:
            row[what], spread = quotient(upper, lower)
            if what == "ours":
                row["value"], row["spread"] = row[what], spread
    return row


def goal_row(figures, goal):
    """Returns the row of a goal; where it was not measured, it is neither met nor not."""
    figure, measure = goal["figure"], goal["measure"]
    against = goal.get("against", "floor")
    if measure == "growth":
        row = growth_row(figures, goal)
    else:
        counter = goal["counter"] if measure.startswith("counter") else None
        is_quotient = measure in ("ratio", "counter_ratio")
        if not is_quotient and measure not in ("microseconds", "counter"):
            raise Failure(f"{figure}: no such measure: {measure}")
        name = f"{figure}, {counter}" if counter else figure
        name += f", against {against}" if against != "floor" else ""
        row = row_of(name, "" if counter else "s", numbers_of(figures, figure, "ours", counter),
                     numbers_of(figures, figure, against, counter), is_quotient)
    limits = [(key, goal[key]) for key in ("at_most", "at_least") if key in goal]
    if len(limits) != 1:
        raise Failure(f"{figure}: a goal needs at_most or at_least")
    kind, limit = limits[0]
    in_microseconds = measure == "microseconds"
    row["goal"] = f"{'<=' if kind == 'at_most' else '>='} {limit:g}"
    row["goal"] += " us" if in_microseconds else ""
    if row["value"] is not None:
        limit *= 1e-6 if in_microseconds else 1
        row["met"] = row["value"] <= limit if kind == "at_most" else row["value"] >= limit
    return row


def by_numbers(name):
    """Returns a key that sorts names by the numbers in them."""
    return [(int(part), "") if part.isdecimal() else (0, part)
            for part in re.split(r"(\d+)", name)]


def report(figures, goals):
    """Returns the rows: those of the goals, and then what no goal is about, for people."""
    rows = [goal_row(figures, goal) for goal in goals]
    judged = {(goal["figure"], what)
              for goal in goals if goal["measure"] in ("ratio", "microseconds")
              for what in ("ours", "floor", goal.get("against"))}
    for figure, benchmarks in sorted(figures.items(), key=lambda item: by_numbers(item[0])):
        if (figure, "ours") not in judged and "ours" in benchmarks:
            rows.append(row_of(figure, "s", numbers_of(figures, figure, "ours"),
                               numbers_of(figures, figure, "floor"), True))
        for what in sorted(benchmarks.keys() - {"ours", "floor"}):
            if (figure, what) not in judged:
                rows.append(row_of(f"{figure}, {what}", "s",
                                   numbers_of(figures, figure, what), None, False))
    return rows


# ---- Output -------------------------------------------------------------------------------------


def in_unit(value, unit):
    """Returns a number for people: a time with a unit that suits it, another with three digits."""
    if value is None:
        return ""
    if unit != "s":
        return f"{value:.0f}" if abs(value) >= 100 else f"{value:.3g}"
    for name, size in (("s", 1.0), ("ms", 1e-3), ("us", 1e-6)):
        if value >= size:
            return f"{value / size:.3g} {name}" if value < 100 * size else f"{value / size:.0f} {name}"
    return f"{value * 1e9:.3g} ns"


def spread_of(row):
    if row["spread"] is None or row["value"] is None and row["ratio"] is None:
        return ""
    if row["ratio"] is not None:
        return " - ".join(f"{value:.2f}" for value in row["spread"])
    return " - ".join(in_unit(value, row["unit"]) for value in row["spread"])


def cells_of(row):
    ratio = f"{row['ratio']:.2f}" if row["ratio"] is not None else ""
    met = {True: "met", False: "NOT met", None: "not measured" if row["goal"] else ""}[row["met"]]
    return [row["figure"], in_unit(row["ours"], row["unit"]), in_unit(row["floor"], row["unit"]),
            ratio, spread_of(row), row["goal"] or "", met]


def print_table(rows):
    table = [["figure", "ours", "floor", "ratio", "spread", "goal", ""]]
    table += [cells_of(row) for row in rows]
    widths = [max(len(line[column]) for line in table) for column in range(len(table[0]))]
    for line in table:
        first = line[0].ljust(widths[0])
        rest = (cell.rjust(width) for cell, width in zip(line[1:], widths[1:]))
        print("  ".join([first, *rest]).rstrip())
    outcomes = [row["met"] for row in rows if row["goal"]]
    if outcomes:
        print(f"\n{outcomes.count(True)} goals met, {outcomes.count(False)} not met, "
              f"{outcomes.count(None)} not measured")


def write_data(path, figures, pattern, columns):
    """Writes for gnuplot: the number in each figure's name that fits, and the columns' values."""
    lines = []
    for figure, benchmarks in figures.items():
        match = re.fullmatch(pattern, figure)
        number = int(match[1]) if match else 0
        if number > 0 and {"ours", "floor"} <= benchmarks.keys():
            values = [column(benchmarks, number) for column in columns]
            lines.append((number, " ".join(f"{value:.6g}" for value in (number, *values))))
    if lines:
        path.write_text("".join(f"{line}\n" for _, line in sorted(lines)))


def write_drawings_data(directory, figures):
    def per_disk(what):
        return lambda benchmarks, disks: (
            statistics.median(benchmarks[what].seconds) / disks * 1e6)

    def counter(what, name):
        return lambda benchmarks, _: statistics.median(benchmarks[what].counters[name])

    write_data(directory / "prepare.dat", figures, r"prepare_(\d+)_disks",
               [per_disk("ours"), per_disk("floor")])
    write_data(directory / "waiting.dat", figures, r"waiting_(\d+)_processes",
               [counter(what, name) for what in ("ours", "floor")
                for name in ("median_wait", "longest_wait")])


def merged(files):
    """Returns the content of several result files as if of one."""
    contents = [json.loads(Path(file).read_text()) for file in files]
    return {"context": contents[0]["context"],
            "benchmarks": [run for content in contents for run in content["benchmarks"]]}


def main(arguments=None):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--goals", help="goals.json; without it nothing is judged")
    parser.add_argument("--output", type=Path, help="the file to write, in JSON")
    parser.add_argument("--drawings", type=Path, help="the directory for the drawings' data")
    parser.add_argument("results", nargs="+", help="what ixfs_bench has written")
    options = parser.parse_args(arguments)
    content = merged(options.results)
    figures = figures_of(content["benchmarks"])
    goals = json.loads(Path(options.goals).read_text()) if options.goals else []
    rows = report(figures, goals)
    print_table(rows)
    if options.output:
        options.output.write_text(json.dumps({**content, "report": rows}, indent=1) + "\n")
    if options.drawings:
        write_drawings_data(options.drawings, figures)


if __name__ == "__main__":
    try:
        main()
    except Failure as failure:
        sys.exit(f"report.py: {failure}")
