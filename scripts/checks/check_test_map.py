#!/usr/bin/env python3
"""Checks that Tests/README.md names every folder of tests, and none that is not there. Run from the project's root."""

import pathlib
import re
import sys

NAMED = re.compile(r"`(Tests/\w+)(?:/\w+)*`")


def main():
    text = pathlib.Path("Tests/README.md").read_text()
    named = set(NAMED.findall(text)) - {"Tests/X"}
    there = {f"Tests/{path.name}" for path in pathlib.Path("Tests").iterdir() if path.is_dir()}
    mirrored = {f"Tests/{path.name}" for path in pathlib.Path("Sources").glob("*") if path.is_dir()}
    for folder in sorted(named - there):
        print(f"Tests/README.md: there is no {folder}")
    for folder in sorted(there - named - mirrored):
        print(f"Tests/README.md: {folder} is not named")
    for folder in sorted(mirrored - there):
        print(f"{folder} is missing: tests mirror Sources")
    print(f"test map: {len(named)} folders named")
    return 0 if named and named <= there and there <= named | mirrored and mirrored <= there else 1


if __name__ == "__main__":
    sys.exit(main())
