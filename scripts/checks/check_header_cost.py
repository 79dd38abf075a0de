#!/usr/bin/env python3
"""What a host's compiler spends on <Kite/Kite.h>, beside what it spends on the standard headers that it includes.

  check_header_cost.py --include DIR [--compiler g++]      compares gcc's memory, which is the same in every run
  check_header_cost.py --include DIR --write FOLDER        writes the two sources, kite.cpp and standard.cpp, to be timed
"""

import argparse
import pathlib
import re
import subprocess
import sys
import tempfile

MOST = 1.28
INCLUDE = re.compile(r"^#include <([^>]+)>", re.MULTILINE)


def standard_headers(root, header="Kite/Kite.h", seen=None):
    """All that the header needs, however many of the library's own lie between."""
    seen = set() if seen is None else seen
    found = set()
    if header not in seen:
        seen.add(header)
        for name in INCLUDE.findall((root / header).read_text()):
            found |= standard_headers(root, name, seen) if name.startswith("Kite/") else {name}
    return found


def write_sources(root, folder):
    sources = {"kite": ["Kite/Kite.h"], "standard": sorted(standard_headers(root))}
    for name, headers in sources.items():
        (folder / f"{name}.cpp").write_text("".join(f"#include <{header}>\n" for header in headers))


def megabytes(compiler, root, source):
    report = subprocess.run([compiler, "-std=c++20", f"-I{root}", "-ftime-report", "-c", "-o", "/dev/null", source],
                            capture_output=True, text=True, check=True).stderr
    return int(re.search(r"^ TOTAL .*?(\d+)M$", report, re.MULTILINE)[1])


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--include", type=pathlib.Path, required=True)
    parser.add_argument("--compiler", default="g++")
    parser.add_argument("--write", type=pathlib.Path)
    arguments = parser.parse_args()
    if arguments.write:
        return write_sources(arguments.include, arguments.write)
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        write_sources(arguments.include, folder)
        ours, standard = (megabytes(arguments.compiler, arguments.include, folder / f"{source}.cpp")
                          for source in ("kite", "standard"))
    print(f"header cost: {ours} MB, {ours / standard:.2f} times the {standard} MB of its standard headers")
    return f"header cost: more than {MOST} times" if ours > MOST * standard else 0


if __name__ == "__main__":
    sys.exit(main())
