#!/usr/bin/env python3
"""Checks that clocks, sleeps and randomness are read only where the platform is. Run from the project's root."""

import pathlib
import re
import sys

BANNED = re.compile(r"system_clock::now|steady_clock::now|sleep_for|sleep_until|\bwait_for\b|\bwait_until\b"
                    r"|\btime\((nullptr|NULL|0)\)|random_device|\busleep\(|\bnanosleep\(")
# Where real time is the subject.
ALLOWED = ("Sources/Linux/", "Tests/Contracts/", "Tests/Linux/", "Tests/EndToEnd/",
           "Tests/Faults/", "Tests/Support/TLSTestServer", "Tools/", "Benchmarks/")


def main():
    faults = []
    for top in ("Include", "Sources", "Tests", "Fuzz", "Examples", "Tools", "Benchmarks"):
        for path in sorted(pathlib.Path(top).glob("**/*")):
            if path.suffix not in (".h", ".cpp") or path.as_posix().startswith(ALLOWED):
                continue
            for number, line in enumerate(path.read_text().splitlines(), 1):
                if BANNED.search(line):
                    faults.append(f"{path}:{number}: {line.strip()}")
    print("\n".join(faults) if faults else "clocks: none read outside the platform")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
