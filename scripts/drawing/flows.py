"""The way of one value through the house, and the order in which candidates are asked."""
import json
import subprocess
import tempfile

from drawing.svg import Svg

HOST, ENGINE, MODEL, STORE = (24, 178), (226, 238), (488, 176), (688, 168)  # left, width


class Flow:
    def __init__(self, svg):
        self.svg = svg

    def box(self, column, y, height, head, lines=(), css="panel", sign=""):
        x, width = column
        self.svg.box(x, y, width, height, css, 7)
        left = x + 12
        if sign:
            self.svg.add(f'<circle class="value" cx="{x + 18}" cy="{y + 20}" r="11"/>')
            self.svg.text(x + 18, y + 24.5, sign, "bg", 13, "middle", bold=True)
            left = x + 38
        self.svg.text(left, y + 24.5, head, size=13, bold=True)
        for place, words in enumerate(lines):
            self.svg.text(left, y + 43 + 16 * place, words, "pale", 12)

    def column(self, column, name, rooms):
        x, width = column
        self.svg.text(x, 70, name, "rule", 14, bold=True)
        self.svg.text(x, 87, rooms, "pale", 11.5, mono=True)
        self.svg.line(x, 95, x + width, 95, "rule-line", 2)

    def across(self, start, end, y, both=False):
        """An arrow from one column to the next; with both, also back."""
        x1, x2 = (start[0] + start[1], end[0]) if start[0] < end[0] else (start[0], end[0] + end[1])
        sign = 1 if x2 > x1 else -1
        self.svg.line(x1 + 3 * sign, y, x2 - 3 * sign, y, "axis", 1.6, arrow=True)
        if both:
            self.svg.line(x2 - 3 * sign, y + 12, x1 + 3 * sign, y + 12, "axis", 1.6, arrow=True)

    def down(self, column, y1, y2, at=0.5):
        x = column[0] + column[1] * at
        self.svg.line(x, y1 + 2, x, y2 - 3, "axis", 1.6, arrow=True)


def way():
    svg = Svg(880, 768, "The way of one value")
    flow = Flow(svg)
    svg.text(24, 34, "The way of one value", size=17, bold=True)
    flow.column(HOST, "the host", "one KSRuleInstance a run")
    flow.column(ENGINE, "engine", "engine/ results/")
    flow.column(MODEL, "rules", "model/ learn/")
    flow.column(STORE, "storage", "storage/")

    flow.box(HOST, 112, 66, "InitCacheData", ["InitHistoryData"])
    flow.box(ENGINE, 112, 66, "load the unit", ["its rules and histories, once a run"])
    flow.box(STORE, 112, 66, "SQLite", ["KSObjectRule.db", "KSObjectHistory.db"], "band")
    flow.across(HOST, ENGINE, 145)
    svg.line(ENGINE[0] + ENGINE[1] + 3, 139, STORE[0] - 3, 139, "axis", 1.6, arrow=True)
    svg.line(STORE[0] - 3, 152, ENGINE[0] + ENGINE[1] + 3, 152, "axis", 1.6, arrow=True)

    svg.box(207, 192, 661, 408, "bg", 9)
    svg.add('<rect class="learn-line" x="207" y="192" width="661" height="408" rx="9" fill="none" '
            'stroke-width="1.5" stroke-dasharray="6 4"/>')
    svg.text(856, 591, "for each value: no lock of a table, no database is opened", "learn", 12, "end", bold=True)

    flow.box(HOST, 204, 52, "ProcessVariable", ["one value"])
    flow.across(HOST, ENGINE, 230)
    steps = [
        ("find its definition", ["where the newest is"]),
        ("filter, type code", ["the text becomes a data point"]),
        ("meet its rule", ["made from its kind and its texts"]),
        ("is it time to learn?", ["the value joins the history"]),
        ("judge: does it fit?", ["if not: an alert"]),
        ("keep what changed", ["for results and databases"]),
    ]
    tops = [204 + 66 * i for i in range(6)]
    for place, (head, lines) in enumerate(steps):
        css = "alert-box" if place == 4 else "panel"
        flow.box(ENGINE, tops[place], 52, head, lines, css, str(place + 1))
        if place:
            flow.down(ENGINE, tops[place - 1] + 52, tops[place])
    svg.path([(ENGINE[0] - 1, tops[0] + 44), (ENGINE[0] - 9, tops[0] + 44),
              (ENGINE[0] - 9, tops[4] + 26), (ENGINE[0] - 2, tops[4] + 26)], "axis", 1.6, arrow=True)
    for place, words in enumerate(["The short way: a rule", "that is not due, with", "texts of the library's",
                                   "own, judges by its", "parameter alone."]):
        svg.text(HOST[0] + 12, 326 + 17 * place, words, "pale", 12.5)
    svg.line(HOST[0] + 150, 348, ENGINE[0] - 12, 348, "grid", 1.2)
    flow.box(STORE, tops[0], 78, "pending rows,", ["what was loaded,", "variable rules"])
    svg.line(ENGINE[0] + ENGINE[1] + 3, tops[0] + 20, STORE[0] - 3, tops[0] + 20, "axis", 1.6, arrow=True)
    svg.line(STORE[0] - 3, tops[0] + 32, ENGINE[0] + ENGINE[1] + 3, tops[0] + 32, "axis", 1.6, arrow=True)
    flow.box(MODEL, tops[2], 52, "GetRuleByType, Init", ["history, feature, rule data"])
    flow.box(MODEL, tops[3], 52, "LearnRule", ["candidates in their order"])
    flow.box(MODEL, tops[4], 52, "CheckAlert", ["value against parameter"])
    flow.box(STORE, tops[3], 52, "settings", ["one snapshot a run"])
    for place in (2, 3, 4):
        flow.across(ENGINE, MODEL, tops[place] + 20, both=True)
    flow.across(STORE, MODEL, tops[3] + 26)

    flow.down(ENGINE, tops[5] + 52, 622, 0.25)
    flow.box(HOST, 622, 52, "GetUpdateResultData", [])
    svg.text(HOST[0] + 12, 665, "at the end of the run", "pale", 12)
    flow.box(ENGINE, 622, 52, "one JSON document", ["rules, golden values, alerts"], "band")
    flow.across(ENGINE, HOST, 648)
    flow.box(HOST, 694, 52, "SerializeLocalDB", ["what is to be kept"])
    flow.box(ENGINE, 694, 52, "the run's rows", ["rules and histories"])
    flow.box(MODEL, 694, 52, "DBWriteWrapper", ["pending rows, in memory"])
    flow.box(STORE, 694, 52, "its worker", ["one commit a flush"], "band")
    flow.across(HOST, ENGINE, 720)
    flow.across(ENGINE, MODEL, 720)
    flow.across(MODEL, STORE, 720)
    return svg.render()


def defaults(program):
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run([program, "init", "--root", folder], check=True, stdout=subprocess.DEVNULL)
        told = subprocess.run([program, "settings", "get", "--root", folder, "--format", "json"], check=True,
                              text=True, stdout=subprocess.PIPE).stdout
    return {row["path"]: row["value"] for row in map(json.loads, told.splitlines())}


def families(d):
    """(family, candidates as (kind, its test in two lines))."""
    def ratio(path):
        return f"{d[path]:.2g}"
    return [
        ("numbers", [
            ("intEqual", f"{d['intEqual.dataCountThreshold']} values: at least {ratio('intEqual.condition0.deltaEZero')}"
             " of the steps zero;", f"fewer: above {ratio('intEqual.condition1.deltaEZero')}, and "
             f"{d['intEqual.countEqualValueLimit']} equal in a row"),
            ("intIncrease", f"{d['intIncrease.dataCountMinLimit']} values, hardly ever falls,",
             f"stands still in at most {ratio('intIncrease.deltaEZero')} of them"),
            ("intConstant", f"{d['intConstant.dataCountMinLimit']} values, hardly ever falls,",
             f"stands still in more than {ratio('intConstant.deltaEZero')} of them"),
            ("intRange", f"{d['intRange.dataCountMinLimit']} values,",
             f"more than {d['intRange.valueStatusCount']} distinct ones"),
            ("intEnum", f"{d['intEnum.dataCountMinLimit']} values, at most "
             f"{d['intEnum.valueStatusCount']} distinct,",
             f"stands still in at most {ratio('intEnum.deltaEZero')} of them"),
            ("intEqual", f"{d['intEqual.dataCountThreshold']} values, at most "
             f"{d['intEqual.valueStatusCount']} distinct,",
             f"more than {ratio('intEqual.condition2.deltaEZero')} of the steps zero"),
        ]),
        ("strings", [
            ("strEqual", f"more than {d['strEqual.dataCountMinLimit']} values, at most "
             f"{d['strEqual.valueStatusCount']} distinct,",
             f"under {ratio('strEqual.changeFrequency')} change, {d['strEqual.countEqualValueLimit']} equal in a row"),
            ("strEnum", f"{d['strEnum.dataCountMinLimit']} values, at most "
             f"{d['strEnum.valueStatusCount']} distinct,",
             f"{ratio('strEnum.changeFrequency')} or more of the steps change"),
        ]),
        ("tables, by their digests", [
            ("tableMd5", f"more than {d['tableMd5.dataCountMinLimit']} values, at most "
             f"{d['tableMd5.valueStatusCount']} distinct,",
             f"under {ratio('tableMd5.changeFrequency')} change, {d['tableMd5.countEqualValueLimit']} equal in a row"),
        ]),
    ]


def candidates(program):
    wide, high, gap, left, top = 266, 66, 26, 24, 84
    svg = Svg(880, top + 6 * (high + gap) + 52, "The candidates in their order")
    flow = Flow(svg)
    svg.text(left, 34, "The first candidate that accepts the history becomes the rule", size=17, bold=True)
    for column, (family, tests) in enumerate(families(defaults(program))):
        x = left + column * (wide + 17)
        svg.text(x, top - 12, family, "rule", 14, bold=True)
        for place, (kind, first, second) in enumerate(tests):
            y = top + place * (high + gap)
            svg.box(x, y, wide, high, "panel", 7)
            svg.text(x + 12, y + 22, f"{place + 1}", "pale", 13)
            svg.text(x + 28, y + 22, kind, "rule", 13.5, bold=True, mono=True)
            svg.text(x + 12, y + 41, first, size=11.5)
            svg.text(x + 12, y + 57, second, size=11.5)
            flow.down((x, wide), y + high, y + high + gap)
            svg.text(x + wide / 2 + 10, y + high + 17, "no", "pale", 12)
        y = top + len(tests) * (high + gap)
        svg.box(x, y, wide, 30, "band", 7)
        svg.text(x + wide / 2, y + 20, "the old rule stays, or none yet", size=12.5, anchor="middle")
    words = ["A step is the difference between a value of the history and the one before it.",
             "“Hardly ever falls”: at most one step down, and that one so deep that a counter",
             "began anew. All numbers are the defaults of settings."]
    for place, line in enumerate(words):
        svg.text(left + wide + 17, svg.height - 72 + 18 * place, line, "pale", 12.5)
    return svg.render()


def draw_all(program, _):
    return {"way.svg": way(), "candidates.svg": candidates(program)}
