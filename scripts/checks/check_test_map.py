#!/usr/bin/env python3
"""Checks that every test that Tests/README.md names is there. Run from the project's root."""

import pathlib
import re
import sys

NAMED = re.compile(r"`(\w+)\.(\w+)`")
WRITTEN = re.compile(r"^\s*TEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\s*\)|^\s*TYPED_TEST(?:_P)?\(\s*(\w+),\s*(\w+)\s*\)", re.MULTILINE)


def written_tests():
    tests = set()
    for source in pathlib.Path("Tests").glob("**/*.cpp"):
        for groups in WRITTEN.findall(source.read_text()):
            tests.add((groups[0] or groups[2], groups[1] or groups[3]))
    return tests


def main():
    named = set(NAMED.findall(pathlib.Path("Tests/README.md").read_text()))
    missing = sorted(named - written_tests())
    for suite, test in missing:
        print(f"Tests/README.md: there is no test {suite}.{test}")
    print(f"test map: {len(named)} tests named, {len(missing)} of them missing")
    return 1 if missing or not named else 0


if __name__ == "__main__":
    sys.exit(main())
