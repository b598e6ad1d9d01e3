"""Finds what can be broken in a C++ source, and chooses a fair share of it.

A change is one replaced stretch of one line. Comments, the texts of strings,
preprocessor lines and static assertions are left alone, and so is the zero a
local variable begins with: nearly always an out parameter.
"""
import hashlib
import re
from dataclasses import dataclass

HIDDEN = re.compile(
    r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])+\'|'
    r"^[ \t]*#[^\n]*|\bstatic_assert\s*\(.*?\);", re.S | re.M)

OPERATORS = {
    "<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==",
    "&&": "||", "||": "&&", "+": "-", "-": "+", "+=": "-=", "-=": "+="}
# The formatter sets blanks around binary operators, and around nothing else.
OPERATOR = re.compile(r"(?<= )(<=?|>=?|==|!=|&&|\|\||[+-]=?)(?=\s)")
NUMBER = re.compile(r"(?<![\w.])(0x[0-9A-Fa-f]+|\d+)(?=[uUlL]*\b)(?!\.)")
TRUTH = re.compile(r"\b(true|false)\b")
FIRST_ZERO = re.compile(r"[\w>*] +\w+ = 0;")
CALL = re.compile(r"(?m)^ *((?:::)?[A-Za-z_][\w.:]*(?:->\w+)*\([^;{}]*\);)$")
CONDITION = re.compile(r"\bif \(([^;{}]*?)\)(?= (?:\{|return|continue|break|\w))")
EARLY = re.compile(r"(?m)^ *(if \([^;{}]*\) return[^;{}]*;)$")
RETURN = re.compile(r"\breturn (\w+)::(k\w+);")


@dataclass(frozen=True)
class Change:
    room: str
    path: str  # below the root, e.g. "src/net/client_run.cpp"
    line: int
    kind: str
    start: int  # offsets in the file's text
    end: int
    old: str
    new: str
    key: str  # where it stands among the room's changes; kept by other edits

    def text(self):
        squeeze = lambda s: " ".join(s.split())
        return f"{squeeze(self.old)} -> {squeeze(self.new) or '(nothing)'}"


def masked(source):
    """The source with everything hidden replaced by as many blanks."""
    return HIDDEN.sub(lambda m: re.sub(r"[^\n\"]", " ", m[0]), source)


def _operators(code):
    for m in OPERATOR.finditer(code):
        line = code[code.rfind("\n", 0, m.start()) + 1:code.find("\n", m.end())]
        joins_text = '"' in line and m[1] in "+-"
        if not joins_text:
            yield "operator", m.start(1), m.end(1), OPERATORS[m[1]]


def _constants(code):
    zeros = [m.span() for m in FIRST_ZERO.finditer(code)]
    for m in NUMBER.finditer(code):
        if any(a <= m.start() < b for a, b in zeros):
            continue
        base = 16 if m[1].startswith("0x") else 10
        more = int(m[1], base) + 1
        yield "constant", *m.span(1), hex(more) if base == 16 else str(more)
    for m in TRUTH.finditer(code):
        yield "constant", *m.span(), "false" if m[0] == "true" else "true"


def _calls(code):
    for m in CALL.finditer(code):
        # A line that continues a statement is part of an initializer or sum.
        before = code[:m.start()].rstrip()
        if before[-1:] in ";{}":
            yield "call removed", *m.span(1), ";"


def _conditions(code):
    for m in CONDITION.finditer(code):
        inside = m[1]
        whole = inside.count("(") == inside.count(")")
        # == and != are flipped as operators already.
        if whole and not re.search(r"[=!]=|[^=<>!]=[^=]", inside):
            yield "condition negated", *m.span(1), None


def _returns(code):
    for m in EARLY.finditer(code):
        yield "early return removed", *m.span(1), ";"
    found = list(RETURN.finditer(code))
    for m in found:
        others = sorted({o[2] for o in found if o[1] == m[1]} - {m[2]})
        if others:
            yield "return swapped", *m.span(2), others[0]


def _negated(condition):
    alone = not re.search(r"&&|\|\|", condition)
    return condition[1:] if condition[0] == "!" and alone else f"!({condition})"


def find_changes(room, path, source):
    """Every change that the rules above allow in one source."""
    code = masked(source)
    found = []
    times = {}
    for rule in (_operators, _constants, _calls, _conditions, _returns):
        for kind, start, end, new in rule(code):
            first = source.rfind("\n", 0, start) + 1
            context = source[first:source.find("\n", end)].strip()
            old = source[start:end]
            new = _negated(old) if new is None else new
            mark = f"{path}|{kind}|{context}|{start - first}|{new}"
            times[mark] = times.get(mark, 0) + 1
            key = hashlib.sha256(f"{mark}|{times[mark]}".encode()).hexdigest()
            found.append(Change(room, path, source.count("\n", 0, start) + 1,
                                kind, start, end, old, new, key))
    return found


def choose(changes, count):
    """As many as wanted, the kinds in turns, in an order that edits elsewhere
    in the room do not disturb."""
    kinds = {}
    for change in sorted(changes, key=lambda c: c.key):
        kinds.setdefault(change.kind, []).append(change)
    chosen = []
    queues = [kinds[kind] for kind in sorted(kinds)]
    while any(queues) and len(chosen) < count:
        for queue in queues:
            if queue and len(chosen) < count:
                chosen.append(queue.pop(0))
    return chosen


def in_turns(lists):
    """One of each list, again and again: a run cut short is fair to all."""
    longest = max((len(each) for each in lists), default=0)
    return [each[i] for i in range(longest) for each in lists if i < len(each)]
