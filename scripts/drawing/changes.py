"""What happens over days: the life of a variable, and rules that are learned again."""
import json
import random

from drawing.evaluation import Evaluation
from drawing.svg import Svg, text_width

START, STEP = 1767571200, 1860  # s; a little more than the default of IntervalTime, 1800 s
LEFT, RIGHT, TOP, BOTTOM, WIDTH, HEIGHT = 70, 24, 92, 74, 880, 372


def evaluate(program, values, settings):
    runs = "".join(json.dumps({"time": START + i * STEP, "device": "r1", "source": "s",
                               "variables": [{"name": "v", "value": value}]}) + "\n"
                   for i, value in enumerate(values))
    return Evaluation(program, runs, settings).points["v"]


class Chart:
    """Values over hours with the rule in force, what joined the history and the alerts."""

    def __init__(self, points, title, low, high, ticks):
        self.svg, self.points, self.low, self.high = Svg(WIDTH, HEIGHT, title), points, low, high
        self.hours = (points[-1].time - START) / 3600
        self.svg.text(24, 32, title, size=16, bold=True)
        for tick in ticks:
            self.svg.line(LEFT, self.y(tick), WIDTH - RIGHT, self.y(tick), "grid")
            self.svg.text(LEFT - 10, self.y(tick) + 4.5, f"{tick:g}", "pale", 12, "end")

    def x(self, seconds):
        return LEFT + 8 + (WIDTH - RIGHT - LEFT - 16) * (seconds - START) / 3600 / self.hours

    def y(self, value):
        share = (value - self.low) / (self.high - self.low)
        return HEIGHT - BOTTOM - (HEIGHT - TOP - BOTTOM) * min(max(share, 0), 1)

    def draw_rules(self):
        kind, name_ends, rules = None, 0, [(i, p.rule) for i, p in enumerate(self.points) if p.rule]
        for place, (i, rule) in enumerate(rules):
            after = rules[place + 1][0] if place + 1 < len(rules) else len(self.points) - 1
            left, right = self.x(self.points[i].time), self.x(self.points[after].time)
            self.draw_expected(*rule, left, right)
            self.svg.flag(left, TOP - 8, HEIGHT - BOTTOM)
            if rule[0] != kind:
                level = TOP - 24 if left > name_ends else TOP - 40
                self.svg.text(left - 5, level, rule[0], "learn", 12, mono=True, bold=True)
                kind, name_ends = rule[0], left + 8 * len(rule[0])

    def draw_expected(self, kind, parameter, left, right):
        svg = self.svg
        if kind == "intRange":
            top, foot = self.y(parameter["maxValue"]), self.y(parameter["minValue"])
            svg.box(left, top, right - left, foot - top, "band")
            svg.line(left, top, right, top, "rule-line", 2)
            svg.line(left, foot, right, foot, "rule-line", 2)
            return
        at = parameter["ruleParam"]
        if kind == "intIncrease":
            svg.box(left, TOP, right - left, self.y(at) - TOP, "band")
        for value in at if isinstance(at, list) else [at]:
            svg.line(left, self.y(value), right, self.y(value), "rule-line", 3)

    def draw_points(self):
        for point in self.points:
            x, y = self.x(point.time), self.y(point.value)
            if point.joined:
                self.svg.line(x, HEIGHT - BOTTOM, x, HEIGHT - BOTTOM - 8, "value-line", 2)
            if point.sentence:
                self.svg.alert(x, y, 5.5)
            elif point.joined:
                self.svg.joined(x, y, 4)
            else:
                self.svg.judged(x, y, 4)

    def draw_axis(self, every):
        bottom = HEIGHT - BOTTOM
        self.svg.line(LEFT, bottom, WIDTH - RIGHT, bottom)
        for hour in range(0, int(self.hours) + 1, every):
            x = self.x(START + hour * 3600)
            self.svg.line(x, bottom, x, bottom + 5)
            self.svg.text(x, bottom + 20, f"{hour} h", "pale", 12, "middle")

    def note(self, seconds, y, lines):
        wide = max(text_width(words, 12.5) for words in lines)
        self.svg.box(self.x(seconds) - 3, y - 13, wide * 0.97, 17 * len(lines) + 2, "bg")
        for place, words in enumerate(lines):
            self.svg.text(self.x(seconds), y + 17 * place, words, "pale", 12.5)

    def render(self, region, every, notes=()):
        self.draw_rules()
        self.draw_points()
        self.draw_axis(every)
        for note in notes:
            self.note(*note)
        self.svg.legend(24, HEIGHT - 20, [("joined", "joined the history"), ("judged", "only judged"),
                                          ("flag", "rule learned or changed"), region,
                                          ("alert", "alert")])
        return self.svg.render()


def level(program):
    values = [12] * 24 + [11] + [12] * 27 + [14] * 50
    points = evaluate(program, values, {"intEqual": {"timeIntervalLimit": 21600}})
    chart = Chart(points, "A value that moves to a new level: prefixes, learned again every 6 h",
                  10, 15, range(10, 16))
    return chart.render(("line", "expected"), 6)


def spread(program):
    source = random.Random(11)
    values = [round(source.gauss(40, 4), 1) for _ in range(110)]
    for place in (32, 33, 62, 90):
        values[place] = round(values[place] + 24, 1)
    points = evaluate(program, values, {"intRange": {"timeIntervalLimit": 21600}})
    chart = Chart(points, "A value that moves about: load in percent, learned again every 6 h",
                  20, 80, range(20, 90, 10))
    return chart.render(("band", "bounds"), 6)


def counter(program):
    source = random.Random(3)
    values, total = [], 9000
    for place in range(70):
        total = 40 if place == 44 else total + source.randrange(80, 240)
        values.append(total)
    points = evaluate(program, values, {"intIncrease": {"timeIntervalLimit": 7200}})
    chart = Chart(points, "A counter that starts anew, learned again every 2 h",
                  0, 20000, range(0, 25000, 5000))
    return chart.render(("band", "must be above"), 3)


def life(program):
    values = [30 + (i * 7) % 5 for i in range(11)] + [31 + (i * 3) % 4 for i in range(33)]
    points = evaluate(program, values, {"intRange": {"valueStatusCount": 4, "timeIntervalLimit": 7200},
                                        "intEnum": {"timeIntervalLimit": 7200}})
    learned = next(point.time for point in points if point.rule)
    chart = Chart(points, "The life of a variable", 25, 42, (25, 30, 35))
    notes = [(START, chart.y(41), ["No rule: values more than", "IntervalTime apart join", "the history."]),
             (learned + 900, chart.y(41), [
                 "A rule: every value is judged. Every live interval the rule is learned anew",
                 "from what was collected, and the value at hand joins the history."])]
    return chart.render(("band", "bounds"), 3, notes)


def draw_all(program, _):
    return {"life.svg": life(program), "change-level.svg": level(program),
            "change-spread.svg": spread(program), "change-counter.svg": counter(program)}
