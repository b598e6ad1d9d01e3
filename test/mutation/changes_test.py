# Unit: what is changed in a source, what is left alone, and who must notice.
import tempfile
import unittest
from pathlib import Path

from changes import choose, find_changes, in_turns
from rooms import ROOMS, files, testers


def made(source, kind=None):
    """What the changes make of a source, those of one kind or all."""
    return [source[:c.start] + c.new + source[c.end:]
            for c in find_changes("net", "src/net/x.cpp", source)
            if kind in (None, c.kind)]


def made_of(kind, *lines):
    """The same for the body of a function, as lists of its lines."""
    source = "".join(f"  {line}\n" for line in lines)
    return [[line.strip() for line in each.splitlines()[1:-1]]
            for each in made(f"void F() {{\n{source}}}\n", kind)]


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
        for call in ("::Call(a);", "(void)x.Call(a, {1});", "delete x;",
                     "::operator delete(static_cast<void*>(this));"):
            self.assertEqual(made_of("call removed", call), [[";"]], call)
        self.assertIn("  ;\n", made("  if (a) return b;\n"))

    def test_removes_calls_that_a_condition_guards(self):
        self.assertEqual(made_of("guarded call removed", "if (!a) Close(b);"),
                         [["if (!a) ;"]])
        self.assertEqual(made_of("guarded call removed", "if (!a)", "x->C(b);"),
                         [["if (!a)", ";"]])
        self.assertEqual(made_of("guarded call removed", "if (a) return b(c);"),
                         [])

    def test_removes_what_works_by_being_there(self):
        self.assertEqual(
            made_of("object removed", "const Keeper keeper;", "Use(a);"),
            [[";", "Use(a);"]])
        self.assertEqual(
            made_of("object removed", "Buffer bytes(3);", "Use(bytes);"), [])

    def test_removes_assignments(self):
        self.assertEqual(made_of("assignment removed", "m_x = a;"), [[";"]])
        self.assertEqual(made_of("assignment removed", "const X x = a;"), [])

    def test_keeps_what_must_be_read_anew(self):
        self.assertEqual(made_of("value kept", "const X x = y.Call(a);"),
                         [["static const X x = y.Call(a);"]])
        for same in ("const X x = y;", "const X x = sizeof(Y);",
                     "static const X x = F(a);", "X x = uint32_t(y);"):
            self.assertEqual(made_of("value kept", same), [], same)

    def test_swaps_steps(self):
        self.assertEqual(
            made_of("steps swapped", 'Log("a");', "Call(", "    1);"),
            [["Call(", "1);", 'Log("a");']])
        self.assertEqual(
            made_of("steps swapped", "if (!a) return;", "m_x = 1;"),
            [["m_x = 1;", "if (!a) return;"]])

    def test_swaps_no_steps_that_depend_or_do_nothing(self):
        for pair in (("const X x = F(a);", "G(x);"), ("m_x = 1;", "m_y = 2;"),
                     ("F(a);", "return b;"), ("F(a);", "if (a) {", "G();", "}"),
                     ("const X x = F(a);", "const Y y = G(a);")):
            self.assertEqual(made_of("steps swapped", *pair), [], pair)

    def test_changes_flags(self):
        for old, new in (("F(a, TRUE);", "F(a, FALSE);"),
                         ("F(A_B | C_D, x);", "F(0 | C_D, x);"),
                         ("F(0, REG_OPTION_NON_VOLATILE);",
                          "F(0, REG_OPTION_VOLATILE);"),
                         ("G(E::kA); G(E::kB);", "G(E::kB); G(E::kB);")):
            self.assertIn([new], made_of("flag changed", old), old)
        for same in ("F(sizeof(DWORD));", "DWORD x = F(a);", "F(kA);",
                     "KOVA_MACRO(x);", 'F("TRUE");'):
            self.assertEqual(made_of("flag changed", same), [], same)

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
                       "class X {\n  void Method(int a);\n  Y y;\n};\n",
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


class RoomsTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        for room in ROOMS:
            self.write(f"{room}/CMakeLists.txt", f"kova_room({room})\n")
        self.write("base/CMakeLists.txt",
                   "kova_room(base SOURCES\n  a.cpp)\n\n"
                   "kova_tests(t SOURCES a_test.cpp)\n")
        self.write("base/a.cpp", '#include "base/used.h"\n')
        self.write("base/used.h", '#include "base/deep.h"\n')
        self.write("base/deep.h", "")
        self.write("base/a_test.cpp", '#include "base/fixture.h"\n')
        self.write("base/fixture.h", "")
        self.write("http/x_test.cpp", '#include "base/deep.h"\n')

    def write(self, name, text):
        path = self.root / "src" / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)

    def test_headers_of_the_product_are_changed(self):
        self.assertEqual(files(self.root, "base"), [
            "src/base/a.cpp", "src/base/deep.h", "src/base/used.h"])

    def test_every_room_that_includes_a_header_must_notice(self):
        self.assertEqual(testers(self.root, "src/base/deep.h"),
                         ["base", "http"])
        self.assertEqual(testers(self.root, "src/base/a.cpp"), ["base"])


if __name__ == "__main__":
    unittest.main()
