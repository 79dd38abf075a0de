#!/usr/bin/env python3
"""Writes what a JSON text on standard input describes to standard output, as a binary property list.

    write_archives.py keyed   a keyed archive, as NSKeyedArchiver writes them
    write_archives.py plain   a property list of the values themselves

Objects become dictionaries, arrays and strings, numbers and booleans stand for themselves; null is NSNull. For what JSON has
no form of, an object with one member stands:

    {"$date": SECONDS}            a date, so many seconds after 2001-01-01T00:00:00Z
    {"$data": HEXADECIMAL}        bytes

and in keyed archives also

    {"$mutable": VALUE}           a dictionary, array or string of the mutable class
    {"$entries": [[KEY, VALUE]]}  a dictionary with keys of any kind
    {"$instance": NAME}           an object of that class, without contents
    {"$reference": NUMBER}        the object of that number: they count in the order of the text, the root being 1
"""

import datetime
import json
import plistlib
import sys


def form_of(value):
    """The name and the contents of a form such as {"$date": 0}, or nothing."""
    if isinstance(value, dict) and len(value) == 1:
        (name, contents), = value.items()
        if name.startswith("$"):
            return name, contents
    return None, None


def plain(value):
    name, contents = form_of(value)
    if name == "$date":
        return datetime.datetime(2001, 1, 1) + datetime.timedelta(seconds=contents)
    if name == "$data":
        return bytes.fromhex(contents)
    if name or value is None:
        sys.exit(f"a property list has no {name or 'null'}")
    if isinstance(value, dict):
        return {key: plain(member) for key, member in value.items()}
    if isinstance(value, list):
        return [plain(element) for element in value]
    return value


class KeyedArchive:
    """The objects of an archive, which refer to each other by number. Those that describe classes come last."""

    def __init__(self, root):
        self.objects = ["$null"]
        self.instances = []
        self.add(root)
        self.add_classes()

    def document(self):
        return {"$version": 100000, "$archiver": "NSKeyedArchiver", "$top": {"root": plistlib.UID(1)},
                "$objects": self.objects}

    def add(self, value):
        name, contents = form_of(value)
        if name == "$reference":
            return plistlib.UID(contents)
        number = len(self.objects)
        self.objects.append(None)
        self.objects[number] = self.archived(value, name, contents)
        return plistlib.UID(number)

    def archived(self, value, name, contents):
        if name == "$date":
            return self.instance("NSDate", {"NS.time": float(contents)})
        if name == "$data":
            return bytes.fromhex(contents)
        if name == "$mutable":
            return self.mutable(contents)
        if name == "$entries":
            return self.dictionary("NSDictionary", contents)
        if name == "$instance":
            return self.instance(contents, {})
        if value is None:
            return self.instance("NSNull", {})
        if isinstance(value, dict):
            return self.dictionary("NSDictionary", value.items())
        if isinstance(value, list):
            return self.array("NSArray", value)
        return value

    def mutable(self, value):
        if isinstance(value, dict):
            return self.dictionary("NSMutableDictionary", value.items())
        if isinstance(value, list):
            return self.array("NSMutableArray", value)
        return self.instance("NSMutableString", {"NS.string": value})

    def dictionary(self, class_name, entries):
        pairs = [(self.add(key), self.add(value)) for key, value in entries]
        return self.instance(class_name, {"NS.keys": [key for key, _ in pairs],
                                          "NS.objects": [value for _, value in pairs]})

    def array(self, class_name, elements):
        return self.instance(class_name, {"NS.objects": [self.add(element) for element in elements]})

    def instance(self, class_name, members):
        self.instances.append((members, class_name))
        return members

    def add_classes(self):
        references = {}
        for members, name in self.instances:
            if name not in references:
                references[name] = plistlib.UID(len(self.objects))
                self.objects.append({"$classname": name, "$classes": [name, "NSObject"]})
            members["$class"] = references[name]


def main():
    sys.setrecursionlimit(100_000)  # what is written may be nested more deeply than any reader would follow
    value = json.load(sys.stdin)
    document = KeyedArchive(value).document() if sys.argv[1] == "keyed" else plain(value)
    sys.stdout.buffer.write(plistlib.dumps(document, fmt=plistlib.FMT_BINARY, sort_keys=False))


if __name__ == "__main__":
    main()
