# Unit: what is changed in a source, and what is left alone.
import unittest

from changes import choose, find_changes, in_turns


def made(source):
    """The lines that the changes make of a one-line source."""
    return [source[:c.start] + c.new + source[c.end:]
            for c in find_changes("net", "src/net/x.cpp", source)]


class ChangesTest(unittest.TestCase):
    def test_flips_operators(self):
        self.assertEqual(made("x = a < b;"), ["x = a <= b;"])
        self.assertEqual(made("x = a >= b;"), ["x = a > b;"])
        self.assertEqual(made("x = a == b;"), ["x = a != b;"])
        self.assertEqual(made("x = a && b;"), ["x = a || b;"])
        self.assertEqual(made("x = a + b;"), ["x = a - b;"])

    def test_changes_constants(self):
        self.assertEqual(made("x = 15u;"), ["x = 16u;"])
        self.assertEqual(made("x = 0x0F;"), ["x = 0x10;"])
        self.assertEqual(made("x = true;"), ["x = false;"])

    def test_removes_calls_and_early_returns(self):
        self.assertEqual(made("{\n  ::Call(a);\n"), ["{\n  ;\n"])
        self.assertIn("  ;\n", made("  if (a) return b;\n"))

    def test_negates_conditions(self):
        self.assertEqual(made("if (Is(a)) {"), ["if (!(Is(a))) {"])
        self.assertEqual(made("if (!a) {"), ["if (a) {"])
        self.assertEqual(made("if (!a && b) {"),
                         ["if (!a || b) {", "if (!(!a && b)) {"])

    def test_swaps_returned_names(self):
        self.assertEqual(made("return E::kA; return E::kB;"),
                         ["return E::kB; return E::kB;",
                          "return E::kA; return E::kA;"])

    def test_leaves_texts_comments_and_declarations_alone(self):
        for source in ('x = f("a < 1");', "// a < 1", "/* 1\n2 */",
                       "static_assert(sizeof(a) == 4);", "#if A == 1",
                       "DWORD taken = 0;", "std::vector<int> x;",
                       "void Method(int a);", "x = f('a');", "T&& x = y;",
                       "uint32_t x;"):
            self.assertEqual(made(source), [], source)

    def test_counts_lines_from_one(self):
        found = find_changes("net", "x.cpp", "\n\nx = 1;\n")
        self.assertEqual([c.line for c in found], [3])

    def test_choice_takes_kinds_in_turns_and_stays(self):
        source = "x = 1;\ny = 2;\nz = a < b;\n"
        chosen = choose(find_changes("net", "x.cpp", source), 2)
        self.assertEqual({c.kind for c in chosen}, {"constant", "operator"})
        later = choose(find_changes("net", "x.cpp", "\n" + source), 2)
        self.assertEqual([c.key for c in chosen], [c.key for c in later])

    def test_rooms_take_turns(self):
        self.assertEqual(in_turns([[1, 2, 3], [4], [5, 6]]),
                         [1, 4, 5, 2, 6, 3])


if __name__ == "__main__":
    unittest.main()
