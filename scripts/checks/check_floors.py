#!/usr/bin/env python3
"""Checks that every source file includes only what its floor may see. Run from the project's root."""

import pathlib
import re
import sys

# Each folder of Sources and how high it stands. A folder includes its own headers, those of lower floors, and of its own
# floor the interfaces, which end in no "Impl.h".
HEIGHT = {"Base": 0, "JSON": 1, "Events": 3, "Queue": 4, "Upload": 4, "Sessions": 4, "Profile": 4, "Install": 4, "Facade": 5}
# Beside the house: the platform's parts, which only the start in one call sees; the archives' readers stand on the installed
# headers alone.
SIDE = {"Linux": {"Base", "JSON"}, "LegacyArchive": set(), "Application": {"Base", "Linux"}}
THIRD_PARTY = {"JSON": ("simdjson.h",), "Queue": ("simdjson.h",)}  # in .cpp files
OTHERS = {
    "Tests/Support": {*HEIGHT, "Support"} - {"Facade"},
    "Tools": {"Collector", "Inspector", "Expect", "Host", "Queue", "Report", "Store", "Demo", "Common", "JSON"},
    "Toolkits": {"Common", "Qt6", "Gtk4"},
    "Tests/Toolkits": {"Commands.h"},
    "Examples": set(),
    "Tests/Package": set(),
}
# Single headers of other folders that they include as well.
OTHER_HEADERS = {"Tools": {"Events/EventKinds.h"}}
LINUX = "Kite/Linux/"
FACADE_HEADERS = ("Kite/KiteManager", "Kite/KiteDependencies")


def public_headers_above(folder):
    """The public headers that a folder must not see, by how they begin."""
    if folder == "Linux":
        return FACADE_HEADERS
    if folder == "Application":
        return ("-",)
    below_platform = ("Kite/Platform/",) if HEIGHT.get(folder, 9) < 2 else ()
    below_facade = FACADE_HEADERS if HEIGHT.get(folder, 9) < 3 else ()
    return (LINUX, *below_platform, *below_facade)


STANDARD = re.compile(r"^[a-z_]+$")
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.MULTILINE)


def is_allowed(folder, path, target):
    """Whether a file of the folder of Sources may include a header of the library's own."""
    other = target.split("/")[0]
    if folder in SIDE or other in SIDE:
        return other == folder or other in SIDE.get(folder, ())
    if other not in HEIGHT or HEIGHT[other] > HEIGHT[folder]:
        return False
    is_own = path.stem == pathlib.PurePath(target).stem
    return folder == "Facade" or is_own or not target.endswith("Impl.h")


def source_faults_of(path, text):
    folder = path.parts[1]
    for bracket, target in INCLUDE.findall(text):
        if bracket == '"':
            if not is_allowed(folder, path, target):
                yield f"{path}: {folder} may not include \"{target}\""
        elif target.startswith("Kite/"):
            if target.startswith(public_headers_above(folder)):
                yield f"{path}: {folder} may not include <{target}>"
        elif not STANDARD.match(target) and folder not in SIDE:
            if path.suffix == ".h" or not target.startswith(THIRD_PARTY.get(folder, ("-",))):
                yield f"{path}: {folder} may not include <{target}>"


def other_faults_of(path, text):
    top = next((top for top in OTHERS if path.as_posix().startswith(top + "/")), None)
    for bracket, target in INCLUDE.findall(text) if top else ():
        is_known = target.split("/")[0] in OTHERS[top] or target in OTHER_HEADERS.get(top, ())
        if bracket == '"' and not is_known:
            yield f"{path}: {top} may not include \"{target}\""
        elif top == "Tests/Support" and target.startswith(LINUX):
            yield f"{path}: {top} may not include <{target}>"


def public_faults_of(path, text):
    for bracket, target in INCLUDE.findall(text):
        if bracket == '"' or not (target.startswith("Kite/") or STANDARD.match(target)):
            yield f"{path}: an installed header may not include {target}"


def main():
    faults = []
    for path in sorted(pathlib.Path(".").glob("Include/Kite/**/*.h")):
        faults += public_faults_of(path, path.read_text())
    for top in ("Sources", "Tests", "Tools", "Toolkits", "Examples"):
        for path in sorted(pathlib.Path(top).glob("**/*")):
            if path.suffix in (".h", ".cpp"):
                check = source_faults_of if top == "Sources" else other_faults_of
                faults += check(path, path.read_text())
    print("\n".join(faults) if faults else "floors: every include is allowed")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
