#!/usr/bin/env python3
"""Checks that a shared library shows what the installed headers mark with KITE_EXPORT, and nothing else.

    check_exports.py LIBRARY INCLUDE_FOLDER
"""

import pathlib
import re
import subprocess
import sys

IGNORED = re.compile(r"//[^\n]*|/\*.*?\*/|^#[^\n]*", re.DOTALL | re.MULTILINE)
NAMESPACE = re.compile(r"\bnamespace\s+(kite[\w:]*)\s*\{")
TYPE = re.compile(r"\b(?:class|struct)\s+KITE_EXPORT\s+(\w+)")
FUNCTION = re.compile(r"KITE_EXPORT\s+(?!\w+\s*(?:final\b|:[^:]|\{))[^;{}()]*?\b(operator[^\s(]+|\w+)\s*\(")
KIND = re.compile(r"^(?:vtable|VTT|typeinfo|typeinfo name|guard variable|construction vtable) for ")


def marked(header):
    """The full names of the types and of the functions that a header marks, each in its innermost namespace."""
    text = IGNORED.sub("", header)
    opened = [(place.start(), place.group(1)) for place in NAMESPACE.finditer(text)]

    def names(pattern):
        for found in pattern.finditer(text):
            around = [name for start, name in opened if start < found.start()]
            yield f"{around[-1] if around else 'kite'}::{found.group(1)}"

    return set(names(TYPE)), set(names(FUNCTION))


def without_arguments(symbol):
    """`kite::A<b::C>::d[abi:cxx11](int) const` becomes `kite::A::d`."""
    name, depth = "", 0
    for position, letter in enumerate(symbol):
        if letter == "<" and not name.endswith("operator"):
            depth += 1
        elif letter == ">" and depth:
            depth -= 1
        elif depth == 0 and letter == "(":
            break
        elif depth == 0:
            name += letter
    return re.sub(r"\[abi:\w+\]", "", name).strip()


def entity(symbol):
    name = without_arguments(KIND.sub("", symbol))
    place = name.find("kite::")  # the type that a template function returns comes first
    return name[place:] if place >= 0 else name


def is_meant(symbol, types, functions):
    name = entity(symbol)
    return name in types or name in functions or any(name.startswith(f"{one}::") for one in types)


def faults(symbols, headers):
    types, functions = set(), set()
    for header in headers:
        more_types, more_functions = marked(header)
        types |= more_types
        functions |= more_functions
    for symbol in symbols:
        if not is_meant(symbol, types, functions):
            yield f"shown, but marked in no header: {symbol}"
    shown = {entity(symbol) for symbol in symbols}
    for name in sorted(types | functions):
        if not any(other == name or other.startswith(f"{name}::") for other in shown):
            yield f"marked in a header, but not shown: {name}"


def main(library, folder):
    listing = subprocess.run(["nm", "-D", "-C", "--defined-only", library], capture_output=True, text=True, check=True)
    symbols = [line.split(" ", 2)[2] for line in listing.stdout.splitlines() if line.split(" ")[1] != "A"]
    headers = [path.read_text() for path in pathlib.Path(folder).glob("**/*.h")]
    found = list(faults(symbols, headers))
    if not symbols:
        found.append(f"{library} shows nothing")
    print("\n".join(found) if found else f"exports: all of {len(symbols)} symbols are meant")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
