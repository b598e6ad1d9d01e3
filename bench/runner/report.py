"""The result as tables in Markdown, and as JSON."""

import json

BEGIN = "<!-- figures: begin -->"
END = "<!-- figures: end -->"


def number(value):
    """With three digits that count, or all before the point."""
    if value is None:
        return ""
    size = abs(value)
    if size >= 1000:
        return "{:,.0f}".format(value)
    digits = 0 if size >= 100 else 1 if size >= 10 else 2
    return "%.*f" % (digits, value)


def _figure(verdict):
    if verdict.figure is None:
        return ""
    if verdict.lowest == verdict.highest:
        return number(verdict.figure) + verdict.unit
    return _with_interval(verdict.figure, verdict.lowest, verdict.highest)


def _with_interval(*figures):
    return "%s (%s to %s)" % tuple(map(number, figures))


def _row(comparison, who):
    found = comparison.summary(who)
    median, lower, upper, lowest, highest = map(number, found.values())
    ratio = comparison.ratio(who)
    return "| %s | %s | %s to %s | %s, %s | %s |" % (
        who, median, lower, upper, lowest, highest,
        _with_interval(*ratio.values()) if ratio else "")


def table(comparison):
    """The lines of one comparison."""
    lines = ["### %s: %s" % (comparison.name, comparison.title), "",
             "| | median, %s | quartiles | lowest, highest | ratio "
             "(interval) |" % comparison.unit, "|---|---|---|---|---|"]
    lines += [_row(comparison, who) for who in comparison.figures] + [""]
    for verdict in comparison.verdicts():
        figure = _figure(verdict)
        lines.append("- %s: %s%s" % (verdict.text, verdict.word(),
                                     figure and ", " + figure))
    lines += ["- " + note for note in comparison.notes]
    return lines + ([""] if lines[-1] else [])


def goal_table(comparisons):
    """All goals beside their figures."""
    return ["| measurement | goal | figure | |", "|---|---|---|---|",
            *["| %s | %s | %s | %s |" % (comparison.name, verdict.text,
                                         _figure(verdict), verdict.word())
              for comparison in comparisons
              for verdict in comparison.verdicts()], ""]


def _list(title, lines):
    return [title, "", *["- " + line for line in lines], ""] if lines else []


def markdown(facts, comparisons, problems, repeated):
    """A whole result. The facts say where and when; see Session for the
    rest."""
    lines = ["Measured %s: %s." % (facts["date"], "; ".join(
        "%s: %s" % (name, value) for name, value in facts.items()
        if name != "date")), ""]
    if any(comparison.goals for comparison in comparisons):
        lines += goal_table(comparisons)
    for comparison in comparisons:
        lines += table(comparison)
    lines += _list("Not measured:", problems)
    lines += _list("Measured at the second try:", repeated)
    return "\n".join(lines)


def _as_data(comparison):
    return {
        "name": comparison.name, "title": comparison.title,
        "unit": comparison.unit, "baseline": comparison.baseline,
        "contestants": [
            {"name": who, "rounds": rounds, **comparison.summary(who),
             "ratio": comparison.ratio(who)}
            for who, rounds in comparison.figures.items()],
        "goals": [{"goal": verdict.text, "figure": verdict.figure,
                   "interval": [verdict.lowest, verdict.highest],
                   "reached": verdict.reached}
                  for verdict in comparison.verdicts()],
        "notes": comparison.notes}


def as_json(facts, comparisons, problems, repeated):
    return json.dumps({
        "facts": facts, "problems": problems, "repeated": repeated,
        "comparisons": [_as_data(each) for each in comparisons]},
        indent=2) + "\n"


def put_between(document, text):
    """The document with the text in place of what stands between the marks."""
    head, begin, rest = document.partition(BEGIN)
    _, end, tail = rest.partition(END)
    if not begin or not end:
        raise ValueError("the document lacks %s or %s" % (BEGIN, END))
    return "%s%s\n\n%s\n\n%s%s" % (head, BEGIN, text.strip("\n"), END, tail)
