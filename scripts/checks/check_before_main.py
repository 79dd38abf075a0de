#!/usr/bin/env python3
"""Checks that nothing of a library's own sources runs before main.

    check_before_main.py LIBRARY
"""

import subprocess
import sys


def faults(symbols):
    """In the words of nm: what compilers call the functions that make a source's global objects."""
    if not symbols.strip():
        yield "it has no symbols to look at"
    for line in symbols.splitlines():
        if "_GLOBAL__sub_I_" in line:
            yield f"objects are made before main: {line.split()[-1]}"


def main(library):
    found = list(faults(subprocess.run(["nm", library], capture_output=True, text=True, check=True).stdout))
    print("\n".join(found) if found else "before main: nothing runs")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
