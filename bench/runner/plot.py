"""A picture of the result: bars in SVG, one panel for each comparison."""

from xml.sax.saxutils import escape

from report import number

WIDTH = 900
NAMES = 250  # for the contestants' names
BARS = 480
ROW = 20
HEAD = 34


def _text(x, y, text, more=""):
    return '<text x="%.1f" y="%.1f"%s>%s</text>' % (x, y, more, escape(text))


def _row(y, who, found, scale, is_baseline):
    """A bar to the median, a line from the lowest to the highest."""
    middle = y + ROW / 2
    bar = max(found.median, 0) * scale
    low, high = (NAMES + max(value, 0) * scale
                 for value in (found.lowest, found.highest))
    return [
        _text(NAMES - 8, middle + 4, who, ' text-anchor="end"'),
        '<rect x="%d" y="%.1f" width="%.1f" height="%d" fill="%s"/>' % (
            NAMES, y + 3, bar, ROW - 6,
            "#9aa5b1" if is_baseline else "#3b7dd8"),
        '<line x1="%.1f" y1="%.1f" x2="%.1f" y2="%.1f" stroke="#222"/>' % (
            low, middle, high, middle),
        _text(NAMES + BARS + 12, middle + 4, number(found.median))]


def _panel(comparison, top):
    found = {who: comparison.summary(who) for who in comparison.figures}
    most = max([each.highest for each in found.values()] + [1e-9])
    parts = [_text(10, top + 20, "%s: %s (%s)" % (
        comparison.name, comparison.title, comparison.unit),
        ' font-weight="bold"')]
    for index, (who, each) in enumerate(found.items()):
        parts += _row(top + HEAD + index * ROW, who, each, BARS / most,
                      who == comparison.baseline)
    return parts, top + HEAD + len(found) * ROW + 10


def draw(comparisons):
    parts = []
    top = 0
    for comparison in comparisons:
        more, top = _panel(comparison, top)
        parts += more
    return "\n".join([
        '<svg xmlns="http://www.w3.org/2000/svg" width="%d" height="%d" '
        'font-family="sans-serif" font-size="12">' % (WIDTH, top + 10),
        '<rect width="100%" height="100%" fill="#fff"/>',
        *parts, "</svg>", ""])
