#!/usr/bin/env python3
"""Checks that programs and shared libraries are built to withstand faults of memory.

    check_hardening.py [--optimized] FILE…

--optimized: calls of the C library are checked for the size of what they write to, too; compilers do so only when they
optimize.
"""

import subprocess
import sys


def readelf(file, *options):
    return subprocess.run(["readelf", "-W", *options, file], capture_output=True, text=True, check=True).stdout


def faults(headers, dynamic, symbols, is_optimized):
    """What is missing, in the words of readelf's program headers, dynamic section and dynamic symbols."""
    segments = {line.split()[0]: line.split() for line in headers.splitlines() if line.startswith("  ") and line.split()}
    if "DYN" not in headers:
        yield "it is not position-independent"
    if "GNU_RELRO" not in segments:
        yield "what the loader has written stays writable (no GNU_RELRO)"
    if not ("BIND_NOW" in dynamic or "Flags: NOW" in dynamic):
        yield "functions are bound late, so that their table stays writable (no BIND_NOW)"
    if "GNU_STACK" not in segments or "E" in segments["GNU_STACK"][6]:
        yield "the stack may hold code (GNU_STACK)"
    if "__stack_chk_fail" not in symbols:
        yield "nothing guards the stack (no __stack_chk_fail)"
    if is_optimized and "_chk@" not in symbols.replace("__stack_chk_fail", ""):
        yield "calls of the C library are not checked (no __…_chk)"


def main(arguments):
    is_optimized = "--optimized" in arguments
    files = [argument for argument in arguments if argument != "--optimized"]
    found = [f"{file}: {fault}" for file in files
             for fault in faults(readelf(file, "-hl"), readelf(file, "-d"), readelf(file, "--dyn-syms"), is_optimized)]
    if not files:
        found.append("no file to check")
    print("\n".join(found) if found else f"hardening: nothing is missing from {len(files)} files")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
