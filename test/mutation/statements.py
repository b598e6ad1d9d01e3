"""Finds the simple statements of a C++ source, and what they declare.

Works on text with comments and strings blanked, as the formatter leaves it.
"""
import re
from dataclasses import dataclass

TYPE_SCOPE = re.compile(r"\b(class|struct|namespace|enum|union|extern)\b[^()]*$")
LIST = re.compile(r"(=|,|\(|\{|\breturn|[\w>\]])\s*$")
BODY_WORD = re.compile(r"\b(else|do|try|const|noexcept|override|mutable)\s*$")
# Stands on lines of its own; the one before it has ended.
STATEMENT = re.compile(
    r"(?m)^( *)([^\s;{}](?:[^;{}]|\{[^;{}\n]*\})*;)$")
KEYWORD = re.compile(
    r"(return|delete|throw|goto|else|case|default|using|typedef|friend|break|"
    r"continue|public|private|protected|template|extern|(?:::)?operator)\b")
DECLARATION = re.compile(
    r"(?:(?:const|constexpr|static) )*[\w:]+(?:<[^;()]*>)?[*&]*"
    r"(?: const)?[*&]* (\w+)(?:\[\w*\])?(?: =\s|\(|;)")
# What looks like a call and gives the same whenever it is made.
NO_CALL = re.compile(r"\b(?:sizeof|\w+_cast<[^()]*>|u?int\d+_t|size_t|DWORD)\(")


@dataclass(frozen=True)
class Statement:
    start: int
    end: int
    indent: int
    text: str
    declares: str  # a name, or nothing

    def is_condition(self):
        return self.text.startswith("if ")

    def has_call(self):
        return bool(re.search(r"[\w>]\(", NO_CALL.sub("", self.called())))

    def called(self):
        """What is left of it when `if (` and the like are no calls."""
        return re.sub(r"\b(if|while) \(", "", self.text)


def bodies(code):
    """For each character, whether it stands in a function's body."""
    inside, stack = [], [False]
    last = 0  # where the text that leads to a brace begins
    for i, c in enumerate(code):
        if c == "{":
            lead = code[last:i].rstrip()
            if TYPE_SCOPE.search(lead):
                stack.append(False)
            elif LIST.search(lead) and not BODY_WORD.search(lead):
                stack.append(stack[-1])
            else:
                stack.append(True)
        elif c == "}" and len(stack) > 1:
            stack.pop()
        if c in ";{}":
            last = i + 1
        inside.append(stack[-1])
    return inside


def end_of_block(code, start):
    """Where the block ends that `start` stands in."""
    depth = 0
    for i in range(start, len(code)):
        depth += (code[i] == "{") - (code[i] == "}")
        if depth < 0:
            return i
    return len(code)


def statements(code):
    """Those in bodies of functions, without blocks of their own."""
    inside = bodies(code)
    found = []
    for m in STATEMENT.finditer(code):
        before = code[:m.start()].rstrip()
        if before[-1:] not in ";{}" or not inside[m.start(2)]:
            continue
        text = m[2]
        if text.count("(") != text.count(")"):
            continue
        named = None if KEYWORD.match(text) else DECLARATION.match(text)
        found.append(Statement(*m.span(2), len(m[1]), text,
                               named[1] if named else ""))
    return found
