#!/usr/bin/env python3
"""Puts the latest results into docs/performance.md, between its marks.

    update_docs.py RESULTS DOCUMENT

RESULTS is the JSON file that report.py has written. A part of the document begins with a line such
as "<!-- queue -->", ends with "<!-- end -->", and is replaced as a whole.
"""
import json
import math
import platform
import re
import statistics
import sys
from pathlib import Path

sys.dont_write_bytecode = True
import report  # noqa: E402

HOUR = 3600
HELPER_TIMES = [0.02, 1, 10]  # seconds that a run of the helper takes
WORK_TIMES = [0, 60]  # seconds between a mount and its unmount
PROCESSES = [1, 10, 100]


class Results:
    def __init__(self, content):
        self.context = content["context"]
        self.rows = content["report"]
        self.figures = report.figures_of(content["benchmarks"])

    def median(self, figure, what, counter=None):
        values = report.numbers_of(self.figures, figure, what, counter)
        if not values:
            raise report.Failure(f"not measured: {figure}/{what}")
        return statistics.median(values)


def two_digits(number):
    rounded = float(f"{number:.1e}")
    decimals = max(0, 1 - math.floor(math.log10(rounded)))
    return f"{rounded:,.{decimals}f}"


def time_text(seconds):
    """Returns a time with two digits and a unit for people; minutes from two on, hours likewise."""
    for name, size, least in (("h", HOUR, 2 * HOUR), ("min", 60, 120), ("s", 1, 0.9995),
                              ("ms", 1e-3, 0.9995e-3), ("µs", 1e-6, 0.9995e-6)):
        if seconds >= least:
            return f"{two_digits(seconds / size)} {name}"
    return "0"


def count_text(number):
    """Returns a count with about two digits, and commas."""
    return two_digits(number) if number >= 10 else f"{number:.0f}"


def table(lines):
    header, *rest = lines
    rule = ["---"] + ["---:"] * (len(header) - 1)
    return "".join("| " + " | ".join(line) + " |\n" for line in [header, rule, *rest])


# ---- Parts --------------------------------------------------------------------------------------


def cpu_model():
    text = Path("/proc/cpuinfo").read_text()
    model = re.search(r"^model name\s*:\s*(.*)$", text, re.MULTILINE)
    return model[1] if model else platform.machine()


def machine_part(results):
    return (f"Measured on: {results.context['num_cpus']} CPUs ({cpu_model()}), "
            f"Linux {platform.release()}; all files in a tmpfs.\n")


def table_part(results):
    rows = [report.cells_of(row) for row in results.rows]
    header = ["figure", "libixfs", "floor", "ratio", "spread", "goal", "met?"]
    return table([header, *rows])


def comparison(results, figure, names, least, header, digits):
    """Returns a table of a figure's kinds: the time of each, and by how much it is that of one."""
    times = {what: results.median(figure, what) for what in names}
    return table([header, *([name, time_text(times[what]), f"{times[what] / times[least]:.{digits}f}"]
                            for what, name in names.items())])


def alternatives_part(results):
    names = {"library_wall": "`ixfs_prepare_vmir`", "python": "`bench/alternatives/prepare.py`",
             "shell": "`bench/alternatives/prepare.sh`"}
    return comparison(results, "prepare_512_disks", names, "library_wall",
                      ["", "512 disks", "as many times as long"], 1)


def log_part(results):
    names = {"nowhere": "none", "counted": "counts the lines",
             "buffered": "`fprintf` into a buffered file", "written": "`dprintf`: a `write` a line"}
    return comparison(results, "prepare_512_disks_logged", names, "nowhere",
                      ["callback", "512 disks", "as many times as long"], 2)


def threads_part(results):
    in_turn, at_once = (results.median("prepare_2_images_of_4096", what)
                        for what in ("in_turn", "at_once"))
    return (f"Two images of 4,096 disks take {time_text(in_turn)} in turn and {time_text(at_once)} "
            f"on two threads, with a helper that takes no time.\n")


def vms_part(results):
    lines = [["8 VMs of 4 disks each", "CPU time", "wall time", "runs of the helper"]]
    for what, name, runs in (("mount_each", "8 calls of `ixfs_prepare_vmir`", 16),
                             ("mount_once", "all in one mount", 2)):
        lines.append([name, time_text(results.median("prepare_8_vms", what)),
                      time_text(results.median("prepare_8_vms", what, "wall_seconds")),
                      str(runs)])
    return table(lines)


def turn_seconds(results):
    """Returns what a mount or an unmount takes beside the helper's own time."""
    return results.median("mount_unmount_10_MiB", "ours", "wall_seconds") / 2


def queue(processes, turn, work):
    """Returns the pairs a second of a host, and for how long one of its calls waits.

    Mean value analysis of a closed queue: each process works, takes a turn, works, and so on. Who
    comes finds the queue as long as it is on average with one process fewer.
    """
    length = pairs = stay = 0.0
    for number in range(1, processes + 1):
        stay = turn * (1 + length)
        pairs = number / (work + 2 * stay)
        length = pairs * 2 * stay
    return pairs, stay - turn


def queue_part(results):
    lines = [["helper", "work in the mount", *(f"{count} at once" for count in PROCESSES)]]
    for helper in HELPER_TIMES:
        for work in WORK_TIMES:
            cells = []
            for processes in PROCESSES:
                pairs, wait = queue(processes, helper + turn_seconds(results), work)
                cells.append(f"{count_text(pairs * HOUR)}; {time_text(wait)}")
            lines.append([time_text(helper), time_text(work) if work else "none", *cells])
    return table(lines)


def model_part(results):
    turn = turn_seconds(results)
    _, wait = queue(32, 0.02 + turn, 0)
    measured = results.median("waiting_32_processes", "ours", "median_wait")
    return (f"A call's own time, besides the helper's, is {time_text(turn)} (half of "
            f"`mount_unmount_10_MiB`, wall time). For 32 processes that do nothing else, with a "
            f"helper of 20 ms, the model says a wait of {wait * 1000:.0f} ms; measured are "
            f"{measured * 1000:.0f} ms.\n")


PARTS = {"machine": machine_part, "table": table_part, "alternatives": alternatives_part,
         "log": log_part, "threads": threads_part, "vms": vms_part, "queue": queue_part,
         "model": model_part}


def main():
    results = Results(json.loads(Path(sys.argv[1]).read_text()))
    document = Path(sys.argv[2])
    text = document.read_text()
    for name, part in PARTS.items():
        pattern = rf"(<!-- {name} -->\n).*?(<!-- end -->)"
        content = part(results)
        text, count = re.subn(pattern, lambda match: match[1] + content + match[2], text,
                              flags=re.DOTALL)
        if count != 1:
            raise report.Failure(f"{document} has {count} parts with the mark {name}")
    document.write_text(text)


if __name__ == "__main__":
    try:
        main()
    except report.Failure as failure:
        sys.exit(f"update_docs.py: {failure}")
