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


# Kind, the lines of a function's body, what a change makes of them.
RULES = (
    ("operator", ["x = a < b;"], ["x = a <= b;"]),
    ("operator", ["x = a >= b;"], ["x = a > b;"]),
    ("operator", ["x = a == b;"], ["x = a != b;"]),
    ("operator", ["x = a && b;"], ["x = a || b;"]),
    ("operator", ["x = a + b;"], ["x = a - b;"]),
    ("constant", ["x = 15u;"], ["x = 16u;"]),
    ("constant", ["x = 0x0F;"], ["x = 0x10;"]),
    ("constant", ["x = true;"], ["x = false;"]),
    ("call removed", ["::Call(a);"], [";"]),
    ("call removed", ["(void)x.Call(a, {1});"], [";"]),
    ("call removed", ["delete x;"], [";"]),
    ("call removed",
     ["::operator delete(static_cast<void*>(this));"], [";"]),
    ("guarded call removed", ["if (!a) Close(b);"], ["if (!a) ;"]),
    ("guarded call removed", ["if (!a)", "x->C(b);"], ["if (!a)", ";"]),
    ("early return removed", ["if (a) return b;"], [";"]),
    ("object removed", ["const Keeper keeper;", "Use(a);"], [";", "Use(a);"]),
    ("assignment removed", ["m_x = a;"], [";"]),
    ("value kept", ["const X x = y.Call(a);"],
     ["static const X x = y.Call(a);"]),
    ("steps swapped", ['Log("a");', "Call(", "    1);"],
     ["Call(", "1);", 'Log("a");']),
    ("steps swapped", ["if (!a) return;", "m_x = 1;"],
     ["m_x = 1;", "if (!a) return;"]),
    ("flag changed", ["F(a, TRUE);"], ["F(a, FALSE);"]),
    ("flag changed", ["F(A_B | C_D, x);"], ["F(0 | C_D, x);"]),
    ("flag changed", ["F(0, REG_OPTION_NON_VOLATILE);"],
     ["F(0, REG_OPTION_VOLATILE);"]),
    ("flag changed", ["G(E::kA); G(E::kB);"], ["G(E::kB); G(E::kB);"]),
    ("condition negated", ["if (Is(a)) {", "}"], ["if (!(Is(a))) {", "}"]),
    ("condition negated", ["if (!a) {", "}"], ["if (a) {", "}"]),
    ("condition negated", ["if (!a && b) {", "}"], ["if (!(!a && b)) {", "}"]),
    ("return swapped", ["return E::kA; return E::kB;"],
     ["return E::kB; return E::kB;"]),
)
# Kind, lines that it leaves alone: what depends, or would be the same.
LEFT_ALONE = (
    ("guarded call removed", "if (a) return b(c);"),
    ("object removed", "Buffer bytes(3);", "Use(bytes);"),
    ("assignment removed", "const X x = a;"),
    ("value kept", "const X x = y;"),
    ("value kept", "const X x = sizeof(Y);"),
    ("value kept", "static const X x = F(a);"),
    ("value kept", "X x = uint32_t(y);"),
    ("steps swapped", "const X x = F(a);", "G(x);"),
    ("steps swapped", "m_x = 1;", "m_y = 2;"),
    ("steps swapped", "F(a);", "return b;"),
    ("steps swapped", "F(a);", "if (a) {", "G();", "}"),
    ("steps swapped", "const X x = F(a);", "const Y y = G(a);"),
    ("flag changed", "F(sizeof(DWORD));"),
    ("flag changed", "DWORD x = F(a);"),
    ("flag changed", "F(kA);"),
    ("flag changed", "KOVA_MACRO(x);"),
    ("flag changed", 'F("TRUE");'),
)


class ChangesTest(unittest.TestCase):
    def test_each_rule_breaks_what_it_should(self):
        for kind, before, after in RULES:
            self.assertIn(after, made_of(kind, *before), before)

    def test_what_depends_or_would_be_the_same_is_left_alone(self):
        for kind, *lines in LEFT_ALONE:
            self.assertEqual(made_of(kind, *lines), [], lines)

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
