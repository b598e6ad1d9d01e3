"""Finds what can be broken in a C++ source, and chooses a fair share of it.

A change is one replaced stretch, nearly always of one line. Comments, the texts
of strings, preprocessor lines and static assertions are left alone, and so is
the zero a local variable begins with: nearly always an out parameter.
"""
import hashlib
import re
from dataclasses import dataclass

from statements import KEYWORD, end_of_block, statements

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
NAME = r"(?:::)?[A-Za-z_][\w.:]*(?:->\w+)*"
CALL = re.compile(rf"(?:(?:\(void\)|static_cast<void>\()?{NAME}\(|"
                  r"::operator delete\(|delete )[^;]*;$")
GUARDED = re.compile(rf"(?:if|while) \(.*\)\s+({NAME}\([^;]*\);)$", re.S)
ELSE = re.compile(rf"(?m)^ *else ({NAME}\([^;{{}}]*\);)$")
SET = re.compile(r"\*?[A-Za-z_][\w.\[\]]*(?:->\w+)* = [^;]*;$")
CONDITION = re.compile(r"\bif \(([^;{}]*?)\)(?= (?:\{|return|continue|break|\w))")
EARLY = re.compile(r"(?m)^ *(if \([^;{}]*\) return[^;{}]*;)$")
RETURN = re.compile(r"\breturn (\w+)::(k\w+);")
ENUMERATOR = re.compile(r"(?<=[(, ])(\w+)::(k?[A-Z]\w*)(?=[,)])")
# What Windows calls its constants; most types are told from them by what
# stands around.
FLAG = re.compile(r"(?:(?<=[(,=|&?:~{]\s)|(?<=[({!~])|(?<=\breturn )|"
                  r"(?m:(?<=^    ) *))([A-Z][A-Z0-9_]{2,})(?=\s*[,);|&?:=!}])")
TYPE = re.compile(r"(KOVA_|LP|D?WORD|BYTE|BOOL|U?LONG|UINT|HANDLE|HKEY|HMODULE|"
                  r"HINSTANCE|SOCKET|WSAEVENT|LSTATUS|REGSAM|SIZE_T)|\w*_T$")
OTHER_FLAG = {
    "TRUE": "FALSE", "FALSE": "TRUE", "NO_ERROR": "1", "ERROR_SUCCESS": "1",
    "WAIT_OBJECT_0": "WAIT_TIMEOUT", "WSA_WAIT_EVENT_0": "WSA_WAIT_TIMEOUT",
    "REG_OPTION_NON_VOLATILE": "REG_OPTION_VOLATILE",
    "OPEN_EXISTING": "OPEN_ALWAYS", "CREATE_NEW": "CREATE_ALWAYS",
    "CREATE_ALWAYS": "OPEN_ALWAYS", "HKEY_LOCAL_MACHINE": "HKEY_CURRENT_USER",
    "HKEY_CURRENT_USER": "HKEY_LOCAL_MACHINE", "CP_ACP": "CP_UTF8",
    "CP_UTF8": "CP_ACP", "INVALID_HANDLE_VALUE": "nullptr"}


@dataclass(frozen=True)
class Change:
    room: str
    path: str  # below the root, e.g. "src/net/connection_loop.cpp"
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
    for each in statements(code):
        guarded = GUARDED.match(each.text)
        if CALL.match(each.text) and not SET.match(each.text):
            yield "call removed", each.start, each.end, ";"
        elif guarded:
            yield "guarded call removed", each.start + guarded.start(1), \
                each.end, ";"
    for m in ELSE.finditer(code):
        yield "guarded call removed", *m.span(1), ";"


def _objects(code):
    """Locks, keepers, whatever works by being there and is never named."""
    for each in statements(code):
        if each.declares and re.search(r"(\)|\w);$", each.text) and \
                "=" not in each.text and not re.search(
                    rf"\b{each.declares}\b",
                    code[each.end:end_of_block(code, each.end)]):
            yield "object removed", each.start, each.end, ";"


def _kept(code):
    """What a call gives is asked for once, not anew each time."""
    for each in statements(code):
        if each.declares and " =" in each.text and each.has_call() and \
                not re.match(r"static\b|constexpr\b", each.text):
            first = each.text.split()[0]
            yield "value kept", each.start, each.start + len(first), \
                f"static {first}"


def _sets(code):
    for each in statements(code):
        if SET.match(each.text):
            yield "assignment removed", each.start, each.end, ";"


def _swaps(code):
    """Two steps in the other order, where both would compile and one of them
    does more than to give a name to a value."""
    found = statements(code)
    for a, b in zip(found, found[1:]):
        between = code[a.end:b.start]
        names = a.declares and re.search(rf"\b{a.declares}\b", b.text)
        alone = all(s.declares or SET.match(s.text) and not s.has_call()
                    for s in (a, b))
        if between.strip() or a.indent != b.indent or names or alone or \
                KEYWORD.match(a.text) or KEYWORD.match(b.text) or \
                a.is_condition() and b.is_condition() or \
                code[b.end:].lstrip().startswith("else"):
            continue
        cut = a.end - a.start, b.start - a.start
        yield "steps swapped", a.start, b.end, lambda old, cut=cut: (
            old[cut[1]:] + old[cut[0]:cut[1]] + old[:cut[0]])


def _flags(code):
    for m in FLAG.finditer(code):
        name = m[1]
        if not TYPE.match(name) and code[:m.start(1)][-7:] != "sizeof(":
            yield "flag changed", *m.span(1), OTHER_FLAG.get(name, "0")
    found = list(ENUMERATOR.finditer(code))
    for m in found:
        others = sorted({o[2] for o in found if o[1] == m[1]} - {m[2]})
        if others:
            yield "flag changed", *m.span(2), others[0]


def _conditions(code):
    for m in CONDITION.finditer(code):
        inside = m[1]
        whole = inside.count("(") == inside.count(")")
        # == and != are flipped as operators already.
        if whole and not re.search(r"[=!]=|[^=<>!]=[^=]", inside):
            yield "condition negated", *m.span(1), _negated


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
    for rule in (_operators, _constants, _calls, _conditions, _returns,
                 _objects, _kept, _sets, _swaps, _flags):
        for kind, start, end, new in rule(code):
            first = source.rfind("\n", 0, start) + 1
            context = source[first:source.find("\n", end)].strip()
            old = source[start:end]
            new = new(old) if callable(new) else new
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
