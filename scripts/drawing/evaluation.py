"""What the program makes of a series of runs: the drawings show nothing else."""
import json
import pathlib
import subprocess
import tempfile

KINDS = ["strEqual", "strNoEqual", "strEnum", "strRegex", "intEqual", "intNoEqual", "intEnum",
         "intRange", "intConstant", "intIncrease", "intLEQ", "intGEQ", "tableMd5"]


class Point:
    """One value of one variable and what became of it."""

    def __init__(self, run, variable):
        self.time, self.value = run["time"], variable["value"]
        self.rule = None       # (kind, parameter) that was learned with it
        self.golden = None     # the time of the golden value that was taken with it
        self.sentence = None   # of its alert
        self.expected = None   # what it broke
        self.joined = False


class Evaluation:
    """The points of every variable of a file of runs, by its name, and how `show` tells of
    it in the end."""

    def __init__(self, program, runs, settings=None, rules=()):
        with tempfile.TemporaryDirectory() as folder:
            self.root, self.program = pathlib.Path(folder) / "root", program
            overlay = pathlib.Path(folder) / "settings.json"
            overlay.write_text(json.dumps(settings or {}))
            self.call("init", "--settings", overlay)
            for arguments in rules:
                self.call("rule", "set", *arguments)
            self.points = {}
            for run in map(json.loads, runs.splitlines()):
                for variable in run["variables"]:
                    self.points.setdefault(variable["name"], []).append(Point(run, variable))
            for line in self.call("evaluate", "--enroll", "--all", "--explain", "--quiet", "--threads",
                                  "1", "--format", "json", text=runs).splitlines():
                self.take(json.loads(line))
            shown = self.call("show", "--device", "r1", "--format", "json").splitlines()
            self.shown = {row["variable"]: row for row in map(json.loads, shown)}
        for name, row in self.shown.items():
            times = {point["time"] for point in row["history"]}
            for point in self.points[name]:
                point.joined = point.time in times

    def broken(self, name):
        """What the first alert of a variable expected."""
        return next(point.expected for point in self.points[name] if point.expected)

    def call(self, *command, text=None):
        named = 2 if command[0] == "rule" else 1
        return subprocess.run([self.program, *command[:named], "--root", self.root, "--log-level", "4",
                               *command[named:]], input=text, text=True, check=True,
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout

    def take(self, line):
        def point(name):
            return next(p for p in self.points[name] if p.time == line["time"])
        for item in line["result"]["ruleItems"]:
            point(item["strVariableName"]).rule = (KINDS[item["nRuleId"]],
                                                   json.loads(item["strRuleAlgParam"]))
        for item in line["result"]["valueItems"]:
            point(item["strVariableName"]).golden = item["nValueTime"]
        for item in line["explanations"]:
            alert = point(item["variable"])
            alert.sentence, alert.expected = item["sentence"], item["expected"]
