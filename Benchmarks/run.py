#!/usr/bin/env python3
"""Runs kite_bench, one process for each group of rows, and prints the figures beside their limits.

Misses are printed as such; they fail the run only with --check.
"""

import argparse
import datetime
import json
import os
import pathlib
import platform
import re
import shutil
import statistics
import subprocess
import sys
import tempfile

from rows import GROUPS, ROWS

DECORATION = re.compile(r"/(iterations:\d+|repeats:\d+|manual_time|real_time|process_time)")
NOT_COUNTERS = {"family_index", "per_family_instance_index", "repetitions", "repetition_index", "threads", "iterations"}


class Failure(Exception):
    pass


def run_group(program, group, is_smoke, folder):
    repetitions = 1 if is_smoke else GROUPS[group]
    environment = dict(os.environ, TMPDIR=folder)
    if is_smoke:
        environment["KITE_BENCH_SMOKE"] = "1"
    done = subprocess.run([program, f"--benchmark_filter=^{group}(/|$)", "--benchmark_format=json",
                           "--benchmark_enable_random_interleaving=true", f"--benchmark_repetitions={repetitions}"], env=environment, capture_output=True, text=True)
    if done.returncode != 0:
        raise Failure(f"{group}: exit code {done.returncode}\n{done.stderr}")
    runs = [run for run in json.loads(done.stdout)["benchmarks"] if run["run_type"] == "iteration"]
    for run in runs:
        if run.get("error_occurred"):
            raise Failure(f"{run['name']}: {run['error_message']}")
    if not runs:
        raise Failure(f"{group}: nothing ran")
    return runs


def medians(runs):
    """Benchmark -> counter -> the median over its repetitions."""
    values = {}
    for run in runs:
        counters = values.setdefault(DECORATION.sub("", run["name"]), {})
        for name, value in run.items():
            if isinstance(value, (int, float)) and name not in NOT_COUNTERS:
                counters.setdefault(name, []).append(value)
    return {name: {counter: statistics.median(all) for counter, all in counters.items()}
            for name, counters in values.items()}


def judged(row, measured):
    def value(source):
        return measured[source.benchmark][source.counter] * source.scale

    figure = value(row.figure)
    limit = value(row.limit) if row.limit else None
    bars = [{"text": bar.text, "reached": bool(bar.is_reached(figure, limit, value))} for bar in row.bars]
    return {"name": row.name, "unit": row.unit, "figure": figure, "limit": limit,
            "ratio": figure / limit if limit else None, "bars": bars}


def judge_all(measured, is_whole):
    """A whole run has a figure for every row; others leave out what is of a group, or beside one, that did not run."""
    rows = []
    for row in ROWS:
        try:
            rows.append(judged(row, measured))
        except KeyError as missing:
            if is_whole:
                raise Failure(f"{row.name}: {missing} was not measured") from None
    return rows


def number(value):
    if value is None:
        return ""
    if abs(value) >= 1000:
        return f"{value:,.0f}"
    return f"{value:.3g}" if abs(value) < 100 else f"{value:.0f}"


def print_table(rows, is_smoke):
    lines = [("name", "figure", "limit", "ratio", "to reach", "")]
    for row in rows:
        verdict = "ran" if is_smoke else "; ".join("pass" if bar["reached"] else "MISS" for bar in row["bars"])
        lines.append((row["name"], f"{number(row['figure'])} {row['unit']}".strip(), number(row["limit"]),
                      number(row["ratio"]), "; ".join(bar["text"] for bar in row["bars"]), verdict))
    widths = [max(len(line[column]) for line in lines) for column in range(len(lines[0]))]
    for line in lines:
        print("  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip())


def machine():
    cpu = re.search(r"model name\s*:\s*(.+)", pathlib.Path("/proc/cpuinfo").read_text())
    memory = re.search(r"MemTotal:\s*(\d+)", pathlib.Path("/proc/meminfo").read_text())
    return {"cpu": cpu.group(1) if cpu else platform.machine(), "cores": os.cpu_count(),
            "memory_gib": round(int(memory.group(1)) / 2**20), "kernel": platform.release(),
            "load_before": os.getloadavg()[0], "date": datetime.date.today().isoformat()}


def processor_ticks():
    """How long the processors worked, and how long their host gave them to others meanwhile, since the machine began."""
    user, nice, system, _, _, interrupts, soft_interrupts, stolen = map(
        int, pathlib.Path("/proc/stat").read_text().split("\n", 1)[0].split()[1:9])
    return user + nice + system + interrupts + soft_interrupts, stolen


def stolen_share(before, after):
    """Of the time that there was work to do, what a virtual machine's host took."""
    worked, stolen = (later - earlier for earlier, later in zip(before, after))
    return stolen / (worked + stolen) if worked + stolen else 0.0


def machine_line(facts):
    return ("{cpu}, {cores} cores, {memory_gib} GiB, Linux {kernel}, load {load_before:.1f}, {stolen:.0%} stolen by the host, "
            "{date}".format(**facts))


def parse_arguments():
    parser = argparse.ArgumentParser(prog="scripts/bench", description="Measures Kite against its physical limits.")
    parser.add_argument("--build", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--json", metavar="FILE", type=pathlib.Path, help="write the figures as JSON")
    parser.add_argument("--only", metavar="NAME", action="append", choices=GROUPS,
                        help="one group of rows (repeatable): " + ", ".join(GROUPS))
    parser.add_argument("--smoke", action="store_true", help="tiny counts: shows only that everything runs")
    parser.add_argument("--check", action="store_true", help="exit 1 when a bar is missed")
    return parser.parse_args()


def main():
    arguments = parse_arguments()
    program = arguments.build / "Benchmarks" / "kite_bench"
    facts, ticks = machine(), processor_ticks()
    folder = tempfile.mkdtemp(prefix="work-", dir=arguments.build)  # on the disk, which /tmp may not be
    measured = {}
    try:
        for group in arguments.only or GROUPS:
            print(f"bench: {group}", file=sys.stderr)
            measured.update(medians(run_group(program, group, arguments.smoke, folder)))
        rows = judge_all(measured, is_whole=not arguments.only)
    except Failure as failure:
        print(f"bench: {failure}", file=sys.stderr)
        return 1
    finally:
        shutil.rmtree(folder, ignore_errors=True)

    facts["stolen"] = stolen_share(ticks, processor_ticks())
    print(machine_line(facts))
    print_table(rows, arguments.smoke)
    if arguments.json:
        arguments.json.write_text(json.dumps({"machine": facts, "rows": rows, "measured": measured}, indent=1) + "\n")
    is_missed = any(not bar["reached"] for row in rows for bar in row["bars"])
    return 1 if arguments.check and is_missed and not arguments.smoke else 0


if __name__ == "__main__":
    sys.exit(main())
