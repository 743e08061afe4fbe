"""A canvas for drawings that are read in light and in dark, and without telling colours
apart: every meaning has a shape of its own beside its colour."""
import math

# class: (what it colours, light, dark)
COLOURS = {
    "bg": ("fill", "#ffffff", "#14181d"),
    "panel": ("fill", "#f3f5f8", "#1d232a"),
    "grid": ("stroke", "#dde2e8", "#2e363f"),
    "axis": ("stroke", "#6b7480", "#8d98a5"),
    "ink": ("fill", "#1b1f24", "#e8ecf1"),
    "pale": ("fill", "#56606b", "#a3aebb"),
    "value": ("fill", "#0b5fa5", "#6db3f2"),
    "value-line": ("stroke", "#0b5fa5", "#6db3f2"),
    "rule": ("fill", "#00694f", "#4fd1a8"),
    "rule-line": ("stroke", "#00694f", "#4fd1a8"),
    "band": ("fill", "#d3eee4", "#123b30"),
    "alert": ("fill", "#b93a0f", "#ff9466"),
    "alert-box": ("fill", "#fdeee8", "#3a2018"),
    "learn": ("fill", "#7a5200", "#e8bf58"),
    "learn-line": ("stroke", "#7a5200", "#e8bf58"),
    "golden-line": ("stroke", "#7440b0", "#cdaaff"),
    "golden": ("fill", "#7440b0", "#cdaaff"),
}
FONT = "DejaVu Sans, Verdana, Helvetica, sans-serif"
MONO = "DejaVu Sans Mono, Menlo, Consolas, monospace"


def style():
    def rules(shade):
        return "".join(f".{name}{{{colour[0]}:{colour[shade]}}}" for name, colour in COLOURS.items())
    return (f"text{{font-family:{FONT}}}.mono{{font-family:{MONO}}}"
            f"{rules(1)}@media (prefers-color-scheme:dark){{{rules(2)}}}")


def escaped(words):
    return words.replace("&", "&amp;").replace("<", "&lt;").replace(">", "&gt;")


def number(value):
    return f"{value:.1f}".removesuffix(".0")


def text_width(words, size, mono=False):
    """About what the words take in the fonts above; with room to spare."""
    if mono:
        return 0.61 * size * len(words)
    return size * sum(0.36 if c in " .,:;'|il()[]" else 0.9 if c in "mwMW@" else 0.62 for c in words)


class Svg:
    """Elements in the order in which they are added; the height may be set until `text()`."""

    def __init__(self, width, height, title):
        self.width, self.height, self.title, self.parts = width, height, title, []

    def add(self, element):
        self.parts.append(element)

    def text(self, x, y, words, css="ink", size=13, anchor="start", bold=False, mono=False):
        css += " mono" if mono else ""
        weight = ' font-weight="bold"' if bold else ""
        anchored = f' text-anchor="{anchor}"' if anchor != "start" else ""
        self.add(f'<text class="{css}" x="{number(x)}" y="{number(y)}" font-size="{number(size)}"'
                 f'{anchored}{weight}>{escaped(words)}</text>')

    def line(self, x1, y1, x2, y2, css="axis", width=1.0, dash="", arrow=False):
        extra = f' stroke-dasharray="{dash}"' if dash else ""
        extra += ' marker-end="url(#tip)"' if arrow else ""
        self.add(f'<path class="{css}" d="M{number(x1)},{number(y1)}L{number(x2)},{number(y2)}" '
                 f'stroke-width="{width}" fill="none"{extra}/>')

    def path(self, points, css="axis", width=1.5, arrow=False):
        d = "L".join(f"{number(x)},{number(y)}" for x, y in points)
        tip = ' marker-end="url(#tip)"' if arrow else ""
        self.add(f'<path class="{css}" d="M{d}" fill="none" stroke-width="{width}"{tip}/>')

    def box(self, x, y, width, height, css, radius=0.0, stroke=0.0):
        outline = f' stroke-width="{stroke}"' if stroke else ""
        self.add(f'<rect class="{css}" x="{number(x)}" y="{number(y)}" width="{number(width)}" '
                 f'height="{number(height)}" rx="{number(radius)}"{outline}/>')

    # Signs: what joined the history, what was only judged, an alert, the golden value, a
    # rule that was learned.

    def joined(self, x, y, radius=5.0):
        self.add(f'<circle class="value" cx="{number(x)}" cy="{number(y)}" r="{radius}"/>')

    def judged(self, x, y, radius=5.0):
        self.add(f'<circle class="bg value-line" cx="{number(x)}" cy="{number(y)}" '
                 f'r="{radius - 1}" stroke-width="2"/>')

    def alert(self, x, y, size=8.0):
        """A triangle with a stroke in it; its middle is the value."""
        half, top, foot = size, y - size, y + 0.75 * size
        self.add(f'<path class="alert" d="M{number(x)},{number(top)}L{number(x + half)},'
                 f'{number(foot)}H{number(x - half)}z"/>')
        if size > 6:
            self.add(f'<path class="bg" d="M{number(x - 1)},{number(y - 0.35 * size)}h2v5h-2z'
                     f'm0,6.5h2v2h-2z"/>')

    def golden(self, x, y, size=10.0):
        self.add(f'<path class="golden-line" d="M{number(x)},{number(y - size)}l{size},{size}'
                 f'l{-size},{size}l{-size},{-size}z" fill="none" stroke-width="2"/>')

    def flag(self, x, top, bottom):
        self.line(x, top, x, bottom, "learn-line", 1.5, "5 3")
        self.add(f'<path class="learn" d="M{number(x - 6)},{number(top - 9)}h12l-6,10z"/>')

    def tick(self, x, y, yes):
        """A check mark or a cross, drawn so that no font is needed."""
        d = "m0,4l4,4l7,-9" if yes else "m1,-1l8,8m0,-8l-8,8"
        self.add(f'<path class="{"rule-line" if yes else "alert-line"}" '
                 f'd="M{number(x)},{number(y)}{d}" fill="none" stroke-width="2.2"/>')

    def legend(self, x, y, entries):
        """(sign, words) beside each other; a sign is the name of a method, or of a class."""
        for sign, words in entries:
            if sign == "band":
                self.box(x, y - 9, 22, 10, "band")
                self.line(x, y - 9, x + 22, y - 9, "rule-line", 2)
                room = 28
            elif sign == "line":
                self.line(x, y - 4, x + 22, y - 4, "rule-line", 3)
                room = 28
            elif sign == "flag":
                self.add(f'<path class="learn" d="M{number(x)},{number(y - 9)}h12l-6,10z"/>')
                room = 18
            else:
                getattr(self, sign)(x + 7, y - 4, *((6.5,) if sign == "golden" else ()))
                room = 20
            self.text(x + room, y, words, size=12)
            x += room + text_width(words, 12) + 16

    def render(self):
        head = (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {number(self.width)} '
                f'{number(self.height)}" width="{number(self.width)}" '
                f'height="{number(self.height)}" role="img">')
        tip = ('<defs><marker id="tip" viewBox="0 0 8 8" refX="7" refY="4" markerWidth="7" '
               'markerHeight="7" orient="auto"><path class="pale" d="M0,0L8,4L0,8z"/></marker></defs>')
        shades = f"<style>{style()}.alert-line{{stroke:{COLOURS['alert'][1]}}}" \
                 f"@media (prefers-color-scheme:dark){{.alert-line{{stroke:{COLOURS['alert'][2]}}}}}</style>"
        ground = f'<rect class="bg" width="{number(self.width)}" height="{number(self.height)}" rx="8"/>'
        return "\n".join([head, f"<title>{escaped(self.title)}</title>", shades, tip, ground,
                          *self.parts, "</svg>", ""])


def wrapped(words, size, width, mono=False):
    lines, line = [], ""
    for word in words.split(" "):
        longer = f"{line} {word}".strip()
        if line and text_width(longer, size, mono) > width:
            lines.append(line)
            line = word
        else:
            line = longer
    return [*lines, line]


def nice_ticks(low, high, count=5):
    """Round numbers between two bounds."""
    raw = (high - low) / count
    size = 10 ** math.floor(math.log10(raw))
    step = next(size * m for m in (1, 2, 2.5, 5, 10) if size * m >= raw)
    first = math.ceil(low / step)
    return [n * step for n in range(first, math.floor(high / step) + 1)]
