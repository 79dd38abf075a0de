#!/usr/bin/env python3
"""Proves that the checks of this folder can fail: each runs on a small tree with one fault planted in it."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

import check_before_main
import check_exports
import check_hardening

HERE = pathlib.Path(__file__).resolve().parent


def run(check, files):
    with tempfile.TemporaryDirectory() as root:
        for name, text in files.items():
            path = pathlib.Path(root, name)
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text)
        return subprocess.run([sys.executable, HERE / check], cwd=root, capture_output=True).returncode


class Floors(unittest.TestCase):
    def fails(self, name, include):
        self.assertEqual(run("check_floors.py", {name: f"#include {include}\n"}), 1)

    def passes(self, name, include):
        self.assertEqual(run("check_floors.py", {name: f"#include {include}\n"}), 0)

    def test_allowed_edges_pass(self):
        self.passes("Sources/Queue/A.cpp", '"JSON/JSONWriter.h"')
        self.passes("Sources/Upload/A.cpp", '"Queue/EventStorage.h"')
        self.passes("Sources/Queue/AImpl.cpp", '"Queue/AImpl.h"')
        self.passes("Sources/Facade/A.cpp", '"Queue/AImpl.h"')
        self.passes("Sources/Linux/A.cpp", "<curl/curl.h>")
        self.passes("Tools/kite/A.cpp", '"JSON/JSONWriter.h"')
        self.passes("Tools/kite/A.cpp", '"Events/EventKinds.h"')

    def test_upward_edges_fail(self):
        self.fails("Sources/JSON/A.cpp", '"Queue/EventManager.h"')
        self.fails("Sources/Events/A.cpp", '"Queue/EventList.h"')
        self.fails("Sources/Queue/A.cpp", '"Facade/KiteState.h"')
        self.fails("Sources/Queue/A.cpp", '"Linux/Storage/RowLog.h"')
        self.fails("Sources/Linux/A.cpp", '"Queue/EventList.h"')
        self.fails("Sources/Linux/A.cpp", '"LegacyArchive/PropertyList.h"')
        self.fails("Sources/LegacyArchive/A.cpp", '"Linux/Storage/RowLog.h"')
        self.fails("Sources/LegacyArchive/A.cpp", '"JSON/UTF8.h"')
        self.fails("Sources/Facade/A.cpp", "<Kite/Linux/LinuxPlatform.h>")
        self.fails("Sources/Base/A.cpp", "<Kite/Platform/Larder.h>")
        self.fails("Tools/kite/A.cpp", '"Events/EventType.h"')
        self.fails("Tests/Support/A.h", '"Linux/Storage/RowLog.h"')
        self.fails("Toolkits/Qt6/A.cpp", '"Facade/KiteState.h"')

    def test_system_headers_in_the_logic_fail(self):
        self.fails("Sources/Queue/A.cpp", "<unistd.h>")

    def test_another_managers_implementation_fails(self):
        self.fails("Sources/Queue/A.cpp", '"Queue/EventManagerImpl.h"')

    def test_third_party_types_in_headers_fail(self):
        self.fails("Include/Kite/A.h", "<simdjson.h>")
        self.fails("Sources/JSON/A.h", "<simdjson.h>")


class Clocks(unittest.TestCase):
    def test_a_clock_in_the_logic_fails(self):
        self.assertEqual(run("check_clocks.py", {"Sources/Queue/A.cpp": "std::chrono::system_clock::now();"}), 1)

    def test_a_sleep_in_a_test_fails(self):
        self.assertEqual(run("check_clocks.py", {"Tests/Queue/A.cpp": "std::this_thread::sleep_for(1s);"}), 1)

    def test_a_clock_in_the_platform_passes(self):
        self.assertEqual(run("check_clocks.py", {"Sources/Linux/A.cpp": "std::chrono::steady_clock::now();"}), 0)


class Samples(unittest.TestCase):
    def run_with(self, code):
        document = "<!-- sample: Examples/A.cpp -->\n```cpp\nint main() {}\n```\n"
        return run("check_samples.py", {"README.md": document, "Examples/A.cpp": code})

    def test_the_compiled_sample_passes(self):
        self.assertEqual(self.run_with("#include <a>\nint main() {}\n"), 0)

    def test_another_sample_fails(self):
        self.assertEqual(self.run_with("int main() { return 1; }\n"), 1)


class TestMap(unittest.TestCase):
    def result(self, readme):
        return run("check_test_map.py", {"Tests/README.md": readme, "Tests/Death/A.cpp": "", "Tests/Base/A.cpp": "",
                                         "Sources/Base/A.cpp": ""})

    def test_a_page_that_names_the_folders_passes(self):
        self.assertEqual(self.result("| messages | `Tests/Death` |"), 0)

    def test_a_folder_that_is_not_there_fails(self):
        self.assertEqual(self.result("`Tests/Death`, `Tests/Life`"), 1)

    def test_a_folder_that_is_not_named_fails(self):
        self.assertEqual(self.result("`Tests/Base`"), 1)

    def test_a_folder_of_sources_without_tests_fails(self):
        self.assertEqual(run("check_test_map.py", {"Tests/README.md": "`Tests/Death`", "Tests/Death/A.cpp": "",
                                                   "Sources/Base/A.cpp": ""}), 1)


class Architecture(unittest.TestCase):
    def result(self, row, source="void A::run() {}"):
        return run("check_architecture.py", {"Docs/Architecture.md": row, "Sources/A.cpp": source})

    def test_a_step_that_is_there_passes(self):
        self.assertEqual(self.result("| 1 | caller | `A::run` | `Sources/A.cpp` | runs |"), 0)

    def test_a_function_that_is_not_there_fails(self):
        self.assertEqual(self.result("| 1 | caller | `A::runs` | `Sources/A.cpp` | runs |"), 1)

    def test_a_file_that_is_not_there_fails(self):
        self.assertEqual(self.result("| 1 | caller | `A::run` | `Sources/A.cpp` | see `Docs/B.md` |"), 1)

    def test_a_way_without_steps_fails(self):
        self.assertEqual(self.result("none"), 1)


HEADER = "namespace kite {\nclass KITE_EXPORT A {};\nKITE_EXPORT std::vector<A> make(int);\n}\n"


class Exports(unittest.TestCase):
    def faults(self, *symbols):
        return list(check_exports.faults(symbols, [HEADER]))

    def test_what_a_header_marks_passes(self):
        self.assertEqual(self.faults("kite::A::A(int)", "vtable for kite::A", "kite::make(int)"), [])

    def test_another_symbol_fails(self):
        self.assertEqual(len(self.faults("kite::A::A()", "kite::make(int)", "kite::Hidden::run()")), 1)
        self.assertEqual(len(self.faults("kite::A::A()", "kite::make(int)", "sqlite3_open")), 1)

    def test_a_function_that_is_missing_fails(self):
        self.assertEqual(len(self.faults("kite::A::A()")), 1)

    def test_arguments_of_templates_do_not_count(self):
        self.assertEqual(len(self.faults("kite::A::A()", "kite::make(int)", "kite::Map<kite::A>::at(int)")), 1)


class Hardening(unittest.TestCase):
    HEADERS = ("  Type: DYN (Shared object file)\n  GNU_STACK 0x0 0x0 0x0 0x0 0x0 RW 0x10\n"
               "  GNU_RELRO 0x0 0x0 0x0 0x0 0x0 R 0x1\n")
    SYMBOLS = "__stack_chk_fail@GLIBC_2.4 __memcpy_chk@GLIBC_2.3.4"

    def count(self, headers=HEADERS, dynamic="(FLAGS) BIND_NOW", symbols=SYMBOLS):
        return len(list(check_hardening.faults(headers, dynamic, symbols, True)))

    def test_a_hardened_file_passes(self):
        self.assertEqual(self.count(), 0)

    def test_each_thing_that_is_missing_fails(self):
        self.assertEqual(self.count(headers=self.HEADERS.replace("DYN", "EXEC")), 1)
        self.assertEqual(self.count(headers=self.HEADERS.replace("GNU_RELRO", "OTHER")), 1)
        self.assertEqual(self.count(headers=self.HEADERS.replace("RW", "RWE")), 1)
        self.assertEqual(self.count(dynamic=""), 1)
        self.assertEqual(self.count(symbols="__memcpy_chk@GLIBC_2.3.4"), 1)
        self.assertEqual(self.count(symbols="__stack_chk_fail@GLIBC_2.4"), 1)


class BeforeMain(unittest.TestCase):
    FUNCTION = "0000000000001000 T start\n"

    def count(self, symbols):
        return len(list(check_before_main.faults(symbols)))

    def test_functions_pass(self):
        self.assertEqual(self.count(self.FUNCTION), 0)

    def test_a_global_object_fails(self):
        self.assertEqual(self.count(self.FUNCTION + "0000000000002000 t _GLOBAL__sub_I_A.cpp\n"), 1)

    def test_a_library_without_symbols_fails(self):
        self.assertEqual(self.count(""), 1)


if __name__ == "__main__":
    unittest.main()
