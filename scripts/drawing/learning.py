"""How each kind of rule is learned: the values of docs/learning/KIND.jsonl over time, what
joined the history, the moment at which the rule was learned, what it expects, the golden
value, and a value that breaks it."""
import pathlib
import re
import shlex
import time

from drawing.evaluation import Evaluation
from drawing.svg import Svg, nice_ticks, text_width, wrapped

WIDTH, LEFT, RIGHT, TOP = 880, 128, 24, 118
NUMBERS = ["intEqual", "intIncrease", "intConstant", "intRange", "intEnum", "intEqual"]
CANDIDATES = {**{kind: NUMBERS for kind in NUMBERS}, "strEqual": ["strEqual", "strEnum"],
              "strEnum": ["strEqual", "strEnum"], "tableMd5": ["tableMd5"]}
TITLES = {
    "intEqual": "a number that stays what it is",
    "intIncrease": "a counter that rises from value to value",
    "intConstant": "a number that mostly stands still and never falls",
    "intRange": "a number that moves about",
    "intEnum": "a number that changes between a few values",
    "strEqual": "a text that stays what it is",
    "strEnum": "a text that changes between a few values",
    "tableMd5": "a table whose rows stay what they are",
}


def clock(seconds):
    return time.strftime("%H:%M", time.gmtime(seconds))


def laned(expected):
    """Whether values are drawn as lanes, one a value."""
    return expected["kind"] in ("digest", "set", "notValue", "pattern") or "trim" in expected


class Plot:
    """Values against an axis of numbers or against lanes, with what is expected of them."""

    def __init__(self, svg, points, expected, x, top, bottom):
        self.svg, self.points, self.expected, self.x = svg, points, expected, x
        self.top, self.bottom = top, bottom
        self.lanes = None
        if laned(expected):
            self.lanes = list(dict.fromkeys(self.shown(point) for point in points))
            if all(isinstance(point.value, int) for point in points):
                self.lanes = sorted(self.lanes, key=int, reverse=True)
            return
        values = [p.value for p in points] + [v for k, v in expected.items() if k in ("min", "max")]
        low, high = min(values), max(values)
        room = (high - low) * 0.14 or 1
        self.low, self.high = low - room, high + room

    @staticmethod
    def shown(point):
        if isinstance(point.value, dict):
            return "\n".join(" via ".join(row) for row in point.value["rows"])
        return str(point.value)

    def y(self, value):
        if self.lanes is not None:
            high = (self.bottom - self.top) / len(self.lanes)
            return self.top + high * (self.lanes.index(value) + 0.5)
        share = (value - self.low) / (self.high - self.low)
        return self.bottom - (self.bottom - self.top) * share

    def at(self, point):
        return self.y(self.shown(point) if self.lanes is not None else point.value)

    def draw_axis(self, left, right):
        if self.lanes is not None:
            high = (self.bottom - self.top) / len(self.lanes)
            for place, lane in enumerate(self.lanes):
                middle, lines = self.y(lane), lane.split("\n")
                for row, words in enumerate(lines):
                    self.svg.text(left - 12, middle + 4.5 + 16 * (row - (len(lines) - 1) / 2), words,
                                  size=11 if len(lines) > 1 else 13, anchor="end")
                if place:
                    self.svg.line(left, self.top + high * place, right, self.top + high * place, "grid")
            return
        for tick in nice_ticks(self.low, self.high):
            self.svg.line(left, self.y(tick), right, self.y(tick), "grid")
            self.svg.text(left - 12, self.y(tick) + 4.5, f"{tick:g}", size=12, anchor="end", css="pale")

    def allows(self, lane):
        """Whether a lane's value fits what is expected."""
        kind, data = self.expected["kind"], self.expected
        if kind == "digest":
            return lane == self.shown(next(p for p in reversed(self.points) if not p.sentence))
        if kind == "pattern":
            return re.search(data["pattern"], lane) is not None
        values = [str(v) for v in data.get("values", [data.get("value")])]
        return (lane in values) != (kind == "notValue")

    def draw_expected(self, left, right):
        svg, data = self.svg, self.expected
        if self.lanes is not None:
            high = (self.bottom - self.top) / len(self.lanes)
            for lane in filter(self.allows, self.lanes):
                svg.box(left, self.y(lane) - high / 2 + 3, right - left, high - 6, "band")
                for edge in (3, high - 3):
                    svg.line(left, self.y(lane) - high / 2 + edge, right,
                             self.y(lane) - high / 2 + edge, "rule-line", 1.5)
            return
        kind = data["kind"]
        if kind in ("value", "constant"):
            svg.box(left, self.y(data["value"]) - 9, right - left, 18, "band")
            svg.line(left, self.y(data["value"]), right, self.y(data["value"]), "rule-line", 3)
            return
        bounds = {"bounds": (data.get("min"), data.get("max")), "atMost": (None, data.get("value")),
                  "atLeast": (data.get("value"), None), "increasing": (data.get("value"), None)}[kind]
        foot = self.bottom if bounds[0] is None else self.y(bounds[0])
        head = self.top if bounds[1] is None else self.y(bounds[1])
        svg.box(left, head, right - left, foot - head, "band")
        for bound in bounds:
            if bound is not None:
                svg.line(left, self.y(bound), right, self.y(bound), "rule-line", 2.5)

    def draw_points(self, golden_time):
        for point in self.points:
            x, y = self.x(point), self.at(point)
            if point.sentence:
                self.svg.alert(x, y)
            elif point.joined:
                self.svg.joined(x, y)
            else:
                self.svg.judged(x, y)
            if point.time == golden_time:
                self.svg.golden(x, y)


def draw_candidates(svg, kind, y):
    """The candidates that were asked, up to the one that accepted."""
    order = CANDIDATES[kind]
    asked = order[:order.index(kind) + 1]
    svg.text(24, y, "asked in order:", "pale", 12)
    x = 24 + text_width("asked in order:", 12) + 10
    for candidate in asked:
        wide = text_width(candidate, 12, mono=True) + 34
        svg.box(x, y - 15, wide, 21, "band" if candidate == kind else "panel", 10)
        svg.text(x + 11, y, candidate, "rule" if candidate == kind else "pale", 12, mono=True,
                 bold=candidate == kind)
        svg.tick(x + wide - 19, y - 7, candidate == kind)
        x += wide + 8


def draw_rows(svg, plot, y, numbers, alerting):
    """What was handed in, run by run."""
    rows = [("run", [str(i + 1) for i in range(len(plot.points))]),
            ("time", [clock(point.time) for point in plot.points])]
    if numbers:
        rows.append(("value", [str(point.value) for point in plot.points]))
    for place, (name, cells) in enumerate(rows):
        row = y + 17 * place
        svg.text(LEFT - 12, row, name, "pale", 12, "end")
        for point, cell in zip(plot.points, cells):
            loud = alerting and name == "value" and point.sentence
            svg.text(plot.x(point), row, cell, "alert" if loud else "ink" if name != "time" else "pale",
                     11 if name == "time" else 12, "middle", bold=name == "value")
    return y + 17 * len(rows)


def draw_alert(svg, y, sentence):
    said, _, why = sentence.partition(" (learned")
    lines = wrapped(said, 15, WIDTH - 110)
    svg.box(24, y, WIDTH - 48, 38 + 19 * len(lines), "alert-box", 6)
    svg.alert(46, y + 32 + 9 * (len(lines) - 1))
    for place, line in enumerate(lines):
        svg.text(66, y + 24 + 19 * place, line, size=13.5, bold=True)
    svg.text(66, y + 24 + 19 * len(lines), f"(learned{why}", "pale", 12)
    return y + 38 + 19 * len(lines)


def draw_learned(kind, program, folder):
    """The picture of a kind that is learned."""
    evaluation = Evaluation(program, (folder / f"{kind}.jsonl").read_text())
    (name, points), = evaluation.points.items()
    shown = evaluation.shown[name]
    learned = next(i for i, point in enumerate(points) if point.rule)
    if points[learned].rule[0] != kind:
        raise ValueError(f"{kind}.jsonl teaches {points[learned].rule[0]}")
    expected = evaluation.broken(name)
    words = "the same digest" if kind == "tableMd5" else expected["words"]

    svg = Svg(WIDTH, 0, f"{kind}: {TITLES[kind]}")
    left = LEFT + (74 if kind == "tableMd5" else 0)
    step = (WIDTH - RIGHT - left) / len(points)

    def x(point):
        return left + step * (points.index(point) + 0.5)
    numbers = isinstance(points[0].value, int)
    plot = Plot(svg, points, expected, x, TOP, 0)
    plot.bottom = TOP + (150 if plot.lanes is None else max(44 * len(plot.lanes), 92))
    moment = left + step * learned

    svg.text(24, 32, kind, "rule", 17, bold=True, mono=True)
    svg.text(24 + text_width(kind, 17, True) + 8, 32, TITLES[kind], size=15)
    svg.text(WIDTH - RIGHT, 32, " ".join(filter(None, (shown["device"], shown["interface"],
                                                       shown["source"], name))), "pale", 12, "end")
    draw_candidates(svg, kind, 62)

    svg.box(left, TOP, moment - left, plot.bottom - TOP, "panel")
    plot.draw_axis(left, WIDTH - RIGHT)
    plot.draw_expected(moment, WIDTH - RIGHT)
    svg.line(left, plot.bottom, WIDTH - RIGHT, plot.bottom)
    svg.text(left + 4, TOP - 14, "no rule yet: values are collected", "pale", 12)
    svg.flag(moment, TOP - 8, plot.bottom)
    if text_width("expected: " + words, 13.5) < WIDTH - RIGHT - moment - 12:
        svg.text(moment + 11, TOP - 14, "expected: " + words, "rule", 12, bold=True)
    else:
        svg.text(WIDTH - RIGHT, TOP - 30, "expected: " + words, "rule", 12, "end", bold=True)
    plot.draw_points(points[learned].golden)

    y = draw_rows(svg, plot, plot.bottom + 22, numbers, True)
    svg.path([(left + 6, y - 4), (left + 6, y + 3), (moment - 6, y + 3), (moment - 6, y - 4)],
             "learn-line")
    svg.text((left + moment) / 2, y + 19, f"the history when run {learned + 1} came: {learned} values",
             "learn", 12, "middle")
    y = draw_alert(svg, y + 34, next(point.sentence for point in points if point.sentence))
    region = "line" if expected["kind"] in ("value", "constant") and plot.lanes is None else "band"
    svg.legend(24, y + 26, [("joined", "joined the history"), ("judged", "only judged"),
                            ("flag", "rule learned"), (region, "expected"),
                            ("golden", "golden value"), ("alert", "alert")])
    svg.height = y + 44
    return svg.render()


def prescriptions(document):
    """The arguments of `rule set` in the worked example of prescribed rules."""
    lines = re.findall(r"^\$ keelstone rule set --root prescribed (.*?) &> /dev/null$", document, flags=re.M)
    return [shlex.split(line) for line in lines]


def draw_prescribed(program, folder, document):
    """The kinds that are only prescribed, one below the other."""
    rules = prescriptions(document)
    evaluation = Evaluation(program, (folder / "prescribed.jsonl").read_text(), rules=rules)
    svg = Svg(WIDTH, 0, "Prescribed rules judge from the first value on")
    svg.text(24, 32, "Prescribed rules judge from the first value on", size=16, bold=True)
    svg.text(WIDTH - RIGHT, 32, "no history is kept and nothing is learned", "pale", 12, "end")
    y = 52
    for name, points in evaluation.points.items():
        shown = evaluation.shown[name]
        expected, left, right = evaluation.broken(name), 360, WIDTH - RIGHT
        step = (right - left) / len(points)
        plot = Plot(svg, points, expected, lambda p, of=points: left + step * (of.index(p) + 0.5),
                    y + 10, 0)
        plot.bottom = plot.top + (76 if plot.lanes is None else max(24 * len(plot.lanes), 62))
        svg.line(24, y, right, y, "grid")
        svg.text(24, y + 28, shown["rule"]["type"], "rule", 15, bold=True, mono=True)
        svg.text(24, y + 49, " ".join(filter(None, (shown["interface"], name))), size=13)
        svg.text(24, y + 68, expected["words"], "rule", 12, bold=True)
        plot.draw_axis(left, right)
        plot.draw_expected(left, right)
        plot.draw_points(None)
        y = plot.bottom + 12
    svg.line(24, y, right, y, "grid")
    for i, point in enumerate(points):
        svg.text(left + step * (i + 0.5), y + 18, f"run {i + 1}, {clock(point.time)}", "pale", 12, "middle")
    svg.legend(24, y + 44, [("judged", "fits, and becomes the golden value"), ("band", "expected"),
                            ("alert", "alert")])
    svg.height = y + 60
    return svg.render()


def draw_all(program, docs):
    folder = pathlib.Path(docs) / "learning"
    pictures = {f"rule-{kind}.svg": draw_learned(kind, program, folder) for kind in TITLES}
    document = (pathlib.Path(docs) / "rules.md").read_text()
    pictures["rule-prescribed.svg"] = draw_prescribed(program, folder, document)
    return pictures
