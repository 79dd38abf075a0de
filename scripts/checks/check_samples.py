#!/usr/bin/env python3
"""Checks that every marked code sample of the documents is the compiled file that it names. Run from the project's root.

A sample is marked by a line `<!-- sample: PATH -->` in front of its fence.
"""

import pathlib
import re
import sys

SAMPLE = re.compile(r"<!-- sample: (\S+) -->\n```\w*\n(.*?)```", re.DOTALL)


def main():
    faults, count = [], 0
    for document in [pathlib.Path("README.md"), *sorted(pathlib.Path("Docs").glob("**/*.md"))]:
        for path, text in SAMPLE.findall(document.read_text()):
            count += 1
            if text.strip() not in pathlib.Path(path).read_text():
                faults.append(f"{document}: the sample differs from {path}")
    print("\n".join(faults) if faults else f"samples: {count} as compiled")
    return 1 if faults or count == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
