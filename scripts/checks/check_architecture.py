#!/usr/bin/env python3
"""Checks that every function on the way of an event, in Docs/Architecture.md, is in the file that the page names, and that
every path of the page is there. Run from the project's root."""

import pathlib
import re
import sys

STEP = re.compile(r"^\| (\d+) \| \w+ \| `([\w:]+)` \| `([\w./+]+)` \|", re.MULTILINE)
PATH = re.compile(r"`((?:Sources|Include|Docs|Tests|Tools|scripts)/[\w./+]+)`")
MOST_STEPS = 25


def main():
    text = pathlib.Path("Docs/Architecture.md").read_text()
    steps = STEP.findall(text)
    faults = [f"there is no {path}" for path in PATH.findall(text) if not pathlib.Path(path).exists()]
    for number, (step, function, file) in enumerate(steps, 1):
        if int(step) != number:
            faults.append(f"step {step} is the {number}th")
        source = pathlib.Path(file)
        if not source.exists() or not re.search(rf"\b{re.escape(function)}\(", source.read_text()):
            faults.append(f"step {step}: no {function} in {file}")
    if not 1 <= len(steps) <= MOST_STEPS:
        faults.append(f"{len(steps)} steps, of at most {MOST_STEPS}")
    print("\n".join(f"Docs/Architecture.md: {fault}" for fault in faults) or f"architecture: {len(steps)} steps found")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
