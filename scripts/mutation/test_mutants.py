#!/usr/bin/env python3
"""Tests of the mutants: each is the text of one change."""

import pathlib
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))

from mutants import mutants


def changed(source):
    return {one.of(source) for one in mutants(source)}


class Operators(unittest.TestCase):
    def test_comparisons_move_by_one_or_turn_round(self):
        self.assertEqual(changed("x = a < b;"), {"x = a <= b;"})
        self.assertEqual(changed("x = a >= b;"), {"x = a > b;"})
        self.assertEqual(changed("x = a == b;"), {"x = a != b;"})

    def test_and_becomes_or(self):
        self.assertEqual(changed("x = a && b;"), {"x = a || b;"})

    def test_sums_and_steps_turn_round(self):
        self.assertEqual(changed("x = a + b;"), {"x = a - b;"})
        self.assertEqual(changed("int f() { return ++i; }"), {"int f() { return --i; }"})

    def test_templates_references_and_shifts_stay(self):
        self.assertEqual(changed("std::vector<int> a(T&& b, int* c);\nauto operator<=>(A) -> B;\nx = a << b;"), set())


class Constants(unittest.TestCase):
    def test_numbers_grow_by_one(self):
        self.assertEqual(changed("x = 1'000U;"), {"x = 1001U;"})
        self.assertEqual(changed("x = 0x7F;"), {"x = 128;"})
        self.assertEqual(changed("x = 0.5;"), {"x = 1.5;"})

    def test_truth_turns_round(self):
        self.assertEqual(changed("bool x = true;"), {"bool x = false;"})

    def test_names_texts_and_comments_stay(self):
        self.assertEqual(changed('#if A == 1\n// 1 < 2\nx = int64("1 == 2 \\" 3", \'4\', R"(5 " 6)"); /* 7 */'), set())


class Conditions(unittest.TestCase):
    def test_a_condition_is_negated(self):
        self.assertEqual(changed("if (a) return b;"), {"if (!(a)) return b;"})
        self.assertEqual(changed("while (f(a)) {\n}"), {"while (!(f(a))) {\n}"})

    def test_after_a_declaration_it_is_the_condition_that_is_negated(self):
        self.assertEqual(changed("if (auto a = f(); a) return b;"), {"if (auto a = f(); !(a)) return b;"})

    def test_a_declaration_is_not_negated(self):
        self.assertEqual(changed("if (const auto* a = f()) return b;"), set())

    def test_what_a_comparison_or_a_negation_turns_round_is_not_negated_too(self):
        self.assertEqual(changed("if (a == b) return c;"), {"if (a != b) return c;"})
        self.assertEqual(changed("if (!a) return b;"), {"if (a) return b;"})

    def test_a_negation_is_left_out(self):
        self.assertEqual(changed("x = !a;"), {"x = a;"})


class Statements(unittest.TestCase):
    def test_calls_assignments_and_leaps_are_removed(self):
        self.assertEqual(changed("void f() { a->b(c); }"), {"void f() { {} }"})
        self.assertEqual(changed("void f() { _a = b; }"), {"void f() { {} }"})
        self.assertEqual(changed("void f() { for (;;) break; }"), {"void f() { for (;;) {} }"})

    def test_the_condition_of_a_removed_statement_stays(self):
        self.assertIn("void f() { if (a) {} }", changed("void f() { if (a) g(); }"))

    def test_statements_of_closures_are_removed(self):
        source = "void f() { run([this] { g(); }); }"
        self.assertEqual(changed(source), {"void f() { {} }", "void f() { run([this] { {} }); }"})

    def test_declarations_and_results_stay(self):
        self.assertEqual(changed("int f() { const int a = g(); B b(a); using C = D; return a; }"), set())
        self.assertEqual(changed("class A { A(const A&) = delete; int f(int); };"), set())

    def test_neighbours_change_places(self):
        self.assertIn("void f() { b(); a(); }", changed("void f() { a(); b(); }"))

    def test_statements_of_two_blocks_stay_in_their_places(self):
        self.assertNotIn("void f() { b(); }\nvoid g() { a(); }", changed("void f() { a(); }\nvoid g() { b(); }"))

    def test_nothing_changes_places_with_a_leap(self):
        self.assertNotIn("for (;;) { break; a(); }", changed("for (;;) { a(); break; }"))


class Places(unittest.TestCase):
    def test_a_mutant_knows_its_line_its_column_and_its_change(self):
        source = "int f() {\n  return a < b;\n}\n"
        (one,) = mutants(source)
        self.assertEqual((one.place(source), one.describe(source)), ("2:12", "< -> <="))


if __name__ == "__main__":
    unittest.main()
