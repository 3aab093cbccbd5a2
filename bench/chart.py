"""The comparison as bars, drawn as SVG: how many times longer the peers take, on a logarithmic axis."""

import math
from xml.sax.saxutils import escape

ROW, LABEL, WIDTH, BAR, HEAD = 22, 430, 940, 12, 46
AXIS = (0.25, 0.5, 1, 2, 5, 10, 20, 50)


def position(factor):
    low, high = math.log(AXIS[0]), math.log(AXIS[-1])
    share = (min(max(math.log(factor), low), high) - low) / (high - low)
    return LABEL + share * (WIDTH - LABEL - 60)


def text(x, y, words, extra=""):
    return f'<text x="{x:.1f}" y="{y:.1f}" {extra}>{escape(words)}</text>'


def axis(height):
    parts = []
    for factor in AXIS:
        x = position(factor)
        colour = "#555" if factor == 1 else "#ddd"
        parts.append(f'<line x1="{x:.1f}" y1="{HEAD}" x2="{x:.1f}" y2="{height}" stroke="{colour}"/>')
        parts.append(text(x, HEAD - 6, f"{factor:g}×", 'text-anchor="middle" fill="#555"'))
    return parts


def bar(comparison, y):
    factor = 1 / comparison.ratio()
    slow, fast = (1 / edge for edge in (max(comparison.ratios()), min(comparison.ratios())))
    begin, end = sorted((position(1), position(factor)))
    colour = "#2a7f62" if factor >= 1 else "#b5482f"
    middle = y + BAR / 2
    return [
        text(LABEL - 10, y + BAR - 1, f"{comparison.job} — {comparison.peer}", 'text-anchor="end"'),
        f'<rect x="{begin:.1f}" y="{y}" width="{end - begin:.1f}" height="{BAR}" fill="{colour}"/>',
        f'<line x1="{position(slow):.1f}" y1="{middle}" x2="{position(fast):.1f}" y2="{middle}" stroke="#111"/>',
        text(max(position(fast), position(1)) + 6, y + BAR - 1, f"{factor:.1f}×"),
    ]


def chart(comparisons):
    height = HEAD + ROW * len(comparisons) + 8
    parts = [
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{height}" viewBox="0 0 {WIDTH} {height}" '
        'font-family="sans-serif" font-size="12">',
        f'<rect width="{WIDTH}" height="{height}" fill="#fff"/>',
        text(LABEL, 16, "The peer's time over ours (median; the line is the spread); right of 1× we are faster"),
        *axis(height),
    ]
    for row, comparison in enumerate(comparisons):
        parts += bar(comparison, HEAD + ROW * row + 5)
    return "\n".join([*parts, "</svg>"]) + "\n"
