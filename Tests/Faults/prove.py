#!/usr/bin/env python3
"""Injects faults into real processes and checks that what Kite promises holds (scripts/prove)."""

import argparse
import datetime
import importlib
import json
import os
import pathlib
import platform
import pkgutil
import shutil
import signal
import sys
import tempfile
import time
import traceback

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
sys.dont_write_bytecode = True

import families
from harness import disks
from harness.case import CASES, Failed, NotRun, Outcome, Run

ORDER = ("kill", "exits", "power", "disk", "rot", "owners", "threads", "data", "replies", "tls", "clock",
         "backlog", "secrets", "collector", "cluster")


class Progress:
    """One line of standard error: the case under way, rewritten on a terminal."""

    def __init__(self, title: str):
        self._title = title
        self._is_terminal = sys.stderr.isatty()
        self._begin = self._last = time.monotonic()

    def __call__(self, done: int, count: int):
        now = time.monotonic()
        if now - self._last < (0.2 if self._is_terminal else 30):
            return
        self._last = now
        line = f"{self._title}: {done}/{count}, {now - self._begin:.0f} s"
        begin, end = ("\r\033[K", "") if self._is_terminal else ("", "\n")
        print(begin + line, end=end, file=sys.stderr, flush=True)

    def end(self, outcome: Outcome):
        clear = "\r\033[K" if self._is_terminal else ""
        line = f"{clear}{self._title}: {outcome.status}, {outcome.seconds:.1f} s"
        print(line, file=sys.stderr)
        if outcome.detail:
            print("    " + outcome.detail.replace("\n", "\n    "), file=sys.stderr, flush=True)


def load_families():
    for module in pkgutil.iter_modules(families.__path__):
        importlib.import_module(f"families.{module.name}")
    known = {name: place for place, name in enumerate(ORDER)}
    CASES.sort(key=lambda case: (known.get(case.family, len(known)), case.family))


def matches(case, names) -> bool:
    full = f"{case.family}/{case.name}"
    return any(name in (case.family, case.name) or full.startswith(name + "/") or name == full
               for name in names)


def chosen(arguments) -> list:
    cases = CASES
    if arguments.only:
        unknown = [name for name in arguments.only if not any(matches(c, [name]) for c in cases)]
        if unknown:
            sys.exit(f"prove: no such case or family: {', '.join(unknown)}")
        cases = [case for case in cases if matches(case, arguments.only)]
    if arguments.smoke:
        cases = [case for case in cases if case.smoke is not None]
    return cases


def run_case(case, arguments, scratch: pathlib.Path, place: str) -> Outcome:
    count = case.smoke if arguments.smoke else case.full
    progress = Progress(f"[{place}] {case.family}: {case.name}")
    folder = scratch / f"{case.family}-{CASES.index(case)}"
    folder.mkdir()
    outcome = Outcome(case.family, case.name, "passed")
    begin = time.monotonic()
    try:
        outcome.counts = case.body(Run(
            kite=arguments.kite, build=arguments.build, scratch=folder, count=count,
            is_smoke=arguments.smoke, progress=progress, seed=arguments.seed)) or {}
    except NotRun as reason:
        outcome.status, outcome.detail = "not run", str(reason)
    except Failed as failure:
        outcome.status, outcome.detail = "failed", str(failure)
    except Exception:  # pylint: disable=broad-except  # a case that breaks has proved nothing
        outcome.status, outcome.detail = "failed", traceback.format_exc()
    outcome.seconds = round(time.monotonic() - begin, 1)
    if outcome.status != "failed" and not arguments.keep:
        shutil.rmtree(folder, ignore_errors=True)
    progress.end(outcome)
    return outcome


def print_table(outcomes: list[Outcome]):
    lines = [("family", "fault", "", "seconds", "counts")]
    for outcome in outcomes:
        counts = ", ".join(f"{number:,} {name}" for name, number in outcome.counts.items())
        text = counts if outcome.status == "passed" else outcome.detail.split("\n")[0]
        lines.append((outcome.family, outcome.name, outcome.status.replace("failed", "FAILED"),
                      f"{outcome.seconds:.1f}", text))
    widths = [max(len(line[column]) for line in lines) for column in range(4)]
    for line in lines:
        cells = [cell.ljust(width) for cell, width in zip(line, widths)]
        cells[3] = line[3].rjust(widths[3])
        print("  ".join([*cells, line[4]]).rstrip())


def summary(outcomes: list[Outcome]) -> str:
    by_status = {status: sum(outcome.status == status for outcome in outcomes)
                 for status in ("passed", "failed", "not run")}
    seconds = sum(outcome.seconds for outcome in outcomes)
    return (f"{by_status['passed']} passed, {by_status['failed']} failed, "
            f"{by_status['not run']} not run, in {seconds / 60:.1f} minutes")


def report(outcomes: list[Outcome], arguments) -> dict:
    return {"date": datetime.date.today().isoformat(), "kernel": platform.release(),
            "cores": os.cpu_count(), "preset": arguments.preset, "smoke": arguments.smoke, "seed": arguments.seed,
            "seconds": round(sum(outcome.seconds for outcome in outcomes), 1),
            "cases": [vars(outcome) for outcome in outcomes]}


def parse_arguments():
    parser = argparse.ArgumentParser(
        prog="scripts/prove", description="Proves by injected faults what Kite promises.")
    parser.add_argument("--only", metavar="NAME", action="append",
                        help="a family, or one of its cases (repeatable)")
    parser.add_argument("--smoke", action="store_true", help="few of each, below five minutes")
    parser.add_argument("--json", metavar="FILE", type=pathlib.Path, help="write the table as JSON")
    parser.add_argument("--list", action="store_true", help="say which cases there are")
    parser.add_argument("--seed", type=int, help="of an earlier run, for the same choices")
    parser.add_argument("--keep", action="store_true", help="keep the folders of passed cases, too")
    parser.add_argument("--needs", choices=("asan", "cluster"), help=argparse.SUPPRESS)
    parser.add_argument("--build", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--preset", default="release", help="the build to prove, release by default")
    arguments = parser.parse_args()
    arguments.build = arguments.build.resolve()
    arguments.kite = arguments.build / arguments.preset / "kite"
    if arguments.seed is None:
        arguments.seed = int.from_bytes(os.urandom(4), "big")
    return arguments


def main() -> int:
    arguments = parse_arguments()
    load_families()
    cases = chosen(arguments)
    if arguments.needs:  # tells scripts/prove what to install and build
        is_needed = {"asan": lambda case: case.asan, "cluster": lambda case: case.family == "cluster"}[arguments.needs]
        return 0 if any(map(is_needed, cases)) else 1
    if arguments.list:
        print("\n".join(f"{case.family}/{case.name}: {case.full}" for case in cases))
        return 0
    if not cases:
        sys.exit("prove: nothing to run")
    if os.geteuid() == 0:
        disks.keep_mounts_private()
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    scratch = pathlib.Path(tempfile.mkdtemp(prefix="kite-prove-"))
    print(f"prove: {len(cases)} cases, seed {arguments.seed}", file=sys.stderr)
    outcomes: list[Outcome] = []
    try:
        for at, case in enumerate(cases, 1):
            outcomes.append(run_case(case, arguments, scratch, f"{at}/{len(cases)}"))
    finally:
        if outcomes:
            print_table(outcomes)
            print(summary(outcomes))
        if arguments.json:
            arguments.json.write_text(json.dumps(report(outcomes, arguments), indent=1) + "\n")
        has_failure = any(outcome.status == "failed" for outcome in outcomes)
        if has_failure:
            print(f"prove: what failed left its files in {scratch}", file=sys.stderr)
        elif not arguments.keep:
            shutil.rmtree(scratch, ignore_errors=True)
    return 1 if has_failure else 0


if __name__ == "__main__":
    sys.exit(main())
