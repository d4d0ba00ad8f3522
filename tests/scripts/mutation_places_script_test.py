#!/usr/bin/env python3
"""scripts/mutation_places.py: what is changed, and what must never be."""

import random
import sys
import unittest
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "scripts"))
from mutation_places import places  # noqa: E402


class Places(unittest.TestCase):
    def changed(self, text):
        return {place.apply(text) for place in places(text, random.Random(1))}

    def test_operators(self):
        self.assertIn("if (a != b)", self.changed("if (a == b)"))
        self.assertIn("x = a || b;", self.changed("x = a && b;"))
        self.assertIn("x = b;", {c.replace("  ", " ") for c in self.changed("x = !b;")})

    def test_constants_move_by_one_and_keep_their_notation(self):
        self.assertTrue(self.changed("x = 7;") <= {"x = 8;", "x = 6;"})
        self.assertTrue(self.changed("x = 0x0Fu;") <= {"x = 0x10u;", "x = 0x0Eu;"})
        self.assertEqual(self.changed("x = 0;"), {"x = 1;"})

    def test_conditions_are_negated(self):
        self.assertIn("if (!(ok(a))) f = g;", self.changed("if (ok(a)) f = g;"))

    def test_calls_are_left_out(self):
        self.assertIn("{ ; }", self.changed("{ queue->Wait(lock, Max(a, b)); }"))
        self.assertNotIn("{ ; }", self.changed("{ return f(x); }"))
        self.assertNotIn("{ ; }", self.changed("{ Lock lock(mutex); }"))

    def test_texts_change_outside_escapes_and_conversions(self):
        self.assertEqual(self.changed(r'f("no %d\r\n")'), {r'f("nx %d\r\n")'})
        self.assertEqual(self.changed(r'f("%s\n")'), {r'f("%s\nx")'})

    def test_words(self):
        self.assertEqual(self.changed("x = true;"), {"x = false;"})

    def test_comments_directives_and_linkage_stay(self):
        for text in ("// a == 1\n", "/* a\n == 1 */", "#define A (1 + 2)\n",
                     "std::vector<int>& f(T&& a, char* b);", "#define A(x) \\\n (x + 2)\n", 'extern "C" f;'):
            self.assertEqual(self.changed(text), set(), text)


if __name__ == "__main__":
    unittest.main()
