#!/usr/bin/env python3
"""Checks that every source file includes only what its floor may see. Run from the project's root."""

import pathlib
import re
import sys

# Folder -> the internal folders that it may include, and the third-party headers that its .cpp files may include.
FLOORS = {
    "Sources/Base": ({"Base"}, ()),
    "Sources/Values": ({"Base", "Values"}, ("simdjson.h",)),
    "Sources/Core": ({"Base", "Values", "Core"}, ("simdjson.h", "zlib.h")),
    "Sources/Linux": ({"Base", "Values", "Linux"}, None),  # None: any
    "Tests/Support": ({"Base", "Values", "Core", "Support"}, None),
    "Tools": ({"Collector", "Host", "Queue", "Store", "Demo", "Common"}, None),
    "Examples": (set(), None),
    "Tests/Install": (set(), None),
}
# Public headers of the parts that a floor must not see.
HIDDEN_PUBLIC = {
    "Sources/Base": ("Kite/Linux/", "Kite/KiteManager", "Kite/KiteDependencies"),
    "Sources/Values": ("Kite/Linux/", "Kite/Platform/", "Kite/KiteManager", "Kite/KiteDependencies"),
    "Sources/Core": ("Kite/Linux/",),
    "Sources/Linux": ("Kite/KiteManager", "Kite/KiteDependencies"),
    "Tests/Support": ("Kite/Linux/",),
}
FACADE = {"Kite.cpp"}  # the only composer: it alone sees the managers' implementations

STANDARD = re.compile(r"^[a-z_]+$")
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.MULTILINE)


def floor_of(path):
    for folder in FLOORS:
        if path.as_posix().startswith(folder + "/"):
            return folder
    return None


def own_header(path, target):
    return target.endswith("Impl.h") and path.stem == pathlib.PurePath(target).stem


def faults_of(path, text):
    folder = floor_of(path)
    internal, third_party = FLOORS[folder]
    for bracket, target in INCLUDE.findall(text):
        if bracket == '"':
            top = target.split("/")[0]
            if top not in internal:
                yield f"{path}: {folder} may not include \"{target}\""
            elif (folder == "Sources/Core" and target.endswith("Impl.h") and path.name not in FACADE
                  and not own_header(path, target)):
                yield f"{path}: only the facade may include another manager's \"{target}\""
        elif target.startswith("Kite/"):
            if any(target.startswith(hidden) for hidden in HIDDEN_PUBLIC.get(folder, ())):
                yield f"{path}: {folder} may not include <{target}>"
        elif not STANDARD.match(target) and third_party is not None:
            if path.suffix == ".h" or not any(target.startswith(allowed) for allowed in third_party):
                yield f"{path}: {folder} may not include <{target}>"


def public_faults_of(path, text):
    for bracket, target in INCLUDE.findall(text):
        if bracket == '"' or not (target.startswith("Kite/") or STANDARD.match(target)):
            yield f"{path}: an installed header may not include {target}"


def main():
    faults = []
    for path in sorted(pathlib.Path(".").glob("Include/Kite/**/*.h")):
        faults += public_faults_of(path, path.read_text())
    for top in ("Sources", "Tests", "Tools", "Examples"):
        for path in sorted(pathlib.Path(top).glob("**/*")):
            if path.suffix in (".h", ".cpp") and floor_of(path) is not None:
                faults += faults_of(path, path.read_text())
    print("\n".join(faults) if faults else "floors: every include is allowed")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
