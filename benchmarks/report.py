#!/usr/bin/env python3
"""report.py [--quick] BUILD: runs the benchmarks of a build, compares what belongs together, and
writes docs/performance.md with a table and a plot for each claim.

The rounds of all that is compared are interleaved at random by Google Benchmark. A ratio is made for
each round; its median and quartiles are told. Times by themselves are not: they are the machine's.
"""

import json
import os
import platform
import statistics
import subprocess
import sys
import textwrap
from dataclasses import dataclass
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent))
import size  # noqa: E402
from claims import CLAIMS  # noqa: E402

SOURCE = Path(__file__).resolve().parent.parent
FAR_OFF = 3  # times the goal: no noise of a busy machine, but a change of the code
UNITS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


@dataclass
class Result:
    """One row as it was measured."""
    row: object
    text: str
    median: float
    low: float
    high: float

    @property
    def is_met(self):
        return self.row.goal is None or self.median <= self.row.goal


def run(build, claim, pattern, is_quick):
    """The rounds of each benchmark whose name matches, by name."""
    options = [f"--benchmark_filter={pattern}", "--benchmark_format=json",
               "--benchmark_enable_random_interleaving=true",
               f"--benchmark_repetitions={5 if is_quick else claim.rounds}",
               f"--benchmark_min_time={0.02 if is_quick else 0.1}"]
    done = subprocess.run([build / "benchmarks" / claim.program, *options], stdout=subprocess.PIPE,
                          timeout=1800)
    if done.returncode:
        sys.exit(f"{claim.program} failed")
    rounds = {}
    for entry in json.loads(done.stdout)["benchmarks"]:
        if entry.get("error_occurred"):
            sys.exit(f"{claim.program}: {entry['name']}: {entry['error_message']}")
        if entry["run_type"] == "iteration":
            name = entry["run_name"]
            for suffix in ("/real_time", "/manual_time", "/process_time", "/iterations"):
                name = name.split(suffix)[0]
            rounds.setdefault(name, []).append(entry)
    return rounds


def value(entry, measure):
    if measure in ("real_time", "cpu_time"):
        return entry[measure] * UNITS[entry["time_unit"]]
    return entry[measure]


def compare(row, rounds):
    """A row's ratios, a round each; None where there was no round, for want of a free processor."""
    def values(name):
        return [value(entry, row.measure) for entry in rounds.get(name, [])]

    upper = values(row.name)
    lower = values(row.beside) if row.beside else [row.unit] * len(upper)
    ratios = sorted(a / b for a, b in zip(upper, lower))
    if not ratios:
        return None
    low, median, high = statistics.quantiles(ratios, n=4) if len(ratios) > 1 else ratios * 3
    label = rounds[row.name][0].get("label")
    return Result(row, f"{row.text} ({label})" if label else row.text, median, low, high)


def machine():
    names = [line.split(":")[1].strip() for line in Path("/proc/cpuinfo").read_text().splitlines()
             if line.startswith("model name")]
    compiler = subprocess.run(["c++", "--version"], stdout=subprocess.PIPE, text=True).stdout
    return (f"{os.cpu_count()} × {names[0] if names else platform.machine()}, "
            f"Linux {platform.release().split('-')[0]}, {compiler.splitlines()[0]}")


def table(results):
    lines = ["| | ratio | quartiles | goal |", "|---|---|---|---|"]
    for result in results:
        goal = "" if result.row.goal is None else f"≤ {result.row.goal:g}"
        if not result.is_met:
            goal += " (missed)"
        lines.append(f"| {result.text} | {result.median:.2f} | "
                     f"{result.low:.2f} to {result.high:.2f} | {goal} |")
    return "\n".join(lines)


def plot(name, results, directory):
    """Bars with quartiles, and a line where both sides are equal."""
    def label(text):
        return "\\n".join(textwrap.wrap(text, 44))

    data = "\n".join(f'"{label(result.text)}" {result.median} {result.low} {result.high}'
                     for result in results)
    script = f"""
set terminal svg size 900,{90 + 36 * len(results)} font "sans,12" background "white"
set output "{directory / name}.svg"
$rows << EOD
{data}
EOD
set yrange [{len(results) - 0.4}:-0.6]
set xrange [0:*]
set xtics nomirror
set grid xtics
set ytics scale 0
set lmargin 46
unset key
set arrow from 1, graph 0 to 1, graph 1 nohead lw 1 lc "black"
plot $rows using 2:0:(0):2:($0-0.3):($0+0.3):ytic(1) with boxxyerror fs solid 0.6 noborder lc "#3b6ea5", \\
     "" using 2:0:3:4 with xerrorbars pt 0 lw 2 lc "black"
"""
    subprocess.run(["gnuplot"], input=script, text=True, check=True)


def section_on_size(sizes):
    missed = " (missed)" if size.total(sizes) > size.GOAL else ""
    return ["", "## Size", "",
            "The two libraries of the same build, without debug information; the files have also what fills",
            f"up their pages. Goal of both: ≤ {size.GOAL}{missed}.", "", size.table(sizes)]


def page(all_results, sizes, directory):
    parts = ["# Performance", "",
             "Made by `scripts/bench.sh` in one run; what is compared ran in interleaved rounds. A ratio",
             "is the core's cost by the other side's, the median of the rounds, with its quartiles: below",
             "1 the core is the quicker one. Times in themselves are not told, since they are this",
             "machine's. Where a row has a unit, it is that figure by itself.", "",
             f"Machine: {machine()}."]
    for claim, results in all_results:
        parts += ["", f"## {claim.title}", "", claim.text, "", table(results)]
        if claim.plot:
            plot(claim.plot, results, directory)
            parts += ["", f"![{claim.title}](performance/{claim.plot}.svg)"]
    return "\n".join(parts + section_on_size(sizes)) + "\n"


def main():
    is_quick = "--quick" in sys.argv
    build = Path(sys.argv[-1])
    all_results = []
    for claim in CLAIMS:
        rows = [row for row in claim.rows if row.is_quick or not is_quick]
        if not rows:
            continue
        names = {name for row in rows for name in (row.name, row.beside) if name}
        rounds = run(build, claim, "^(" + "|".join(sorted(names)) + ")(/|$)", is_quick)
        results = [result for row in rows if (result := compare(row, rounds))]
        print(f"{claim.title}\n{table(results)}\n", flush=True)
        all_results.append((claim, results))
    sizes = size.measure(build)
    print(size.table(sizes))
    if is_quick:
        far = [result for _, results in all_results for result in results
               if result.row.goal and result.median > FAR_OFF * result.row.goal]
        for result in far:
            print(f"far off: {result.text}: {result.median:.2f}, goal {result.row.goal:g}")
        is_large = size.total(sizes) > size.CEILING
        if is_large:
            print(f"both libraries have more than {size.CEILING} kB")
        return 1 if far or is_large else 0
    directory = SOURCE / "docs/performance"
    directory.mkdir(exist_ok=True)
    (SOURCE / "docs/performance.md").write_text(page(all_results, sizes, directory))
    return 0


if __name__ == "__main__":
    sys.exit(main())
