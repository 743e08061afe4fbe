"""The recordings, evaluated with explanations: the verdict follows from each explanation alone,
and what is found is what is found without.

Usage: explain_test.py EXAMPLES PROGRAM
"""
import collections
import gzip
import json
import os
import re
import struct
import subprocess
import sys
import tempfile
import unittest

EXAMPLES, PROGRAM = sys.argv.pop(1), sys.argv.pop(1)


def breaks(expected, value):
    """A reader's judgement, from what an explanation says and from nothing else."""
    kind = expected["kind"]
    if kind == "value" and "trim" in expected:
        return value.strip(expected["trim"]) != expected["value"].strip(expected["trim"])
    if kind == "pattern":
        flags = re.IGNORECASE if expected["ignoreCase"] else 0
        return re.search(expected["pattern"], value, flags) is None
    return {"value": lambda: value != expected["value"],
            "constant": lambda: value != expected["value"],
            "notValue": lambda: value in expected["values"],
            "set": lambda: value not in expected["values"],
            "bounds": lambda: not expected["min"] <= value <= expected["max"],
            "atMost": lambda: value > expected["value"],
            "atLeast": lambda: value < expected["value"],
            "increasing": lambda: value <= expected["value"],
            "digest": lambda: value != expected["digest"]}[kind]()


def as_judged(variable, value_type):
    value = variable["value"]
    if value_type == "string":
        text = {True: "true", False: "false"}.get(value) if isinstance(value, bool) else str(value)
        return text.strip(" ")
    number = float(value) if value_type != "int64" else int(value)
    return struct.unpack("f", struct.pack("f", number))[0] if value_type == "float" else number


class ExplainTest(unittest.TestCase):
    def evaluate(self, folder, name, lines, *options):
        example = os.path.join(EXAMPLES, name)
        root = os.path.join(folder, "root%d" % len(os.listdir(folder)))
        subprocess.run([PROGRAM, "init", "--root", root, "--interval-time", "2", "--settings",
                        os.path.join(example, "settings.json")], check=True, capture_output=True)
        return subprocess.run([PROGRAM, "evaluate", "--root", root, "--enroll", "--quiet", *options],
                              input=lines, check=True, capture_output=True).stdout

    def check(self, name):
        with gzip.open(os.path.join(EXAMPLES, name, "recording.jsonl.gz")) as file:
            lines = file.read()
        with tempfile.TemporaryDirectory() as folder:
            plain = self.evaluate(folder, name, lines, "--format", "json")
            explained = self.evaluate(folder, name, lines, "--format", "json", "--explain")
            told = self.evaluate(folder, name, lines, "--format", "text").decode()

        # What is found is the same, byte for byte; a run that only cleared something is extra.
        kept = [re.sub(rb',"explanations":\[.*$', b"}", line) for line in explained.splitlines()]
        empty = (b'"rejected":[],"result":{"ruleItems":[],"valueItems":[],"alertItems":[]}}')
        self.assertEqual([line for line in kept if not line.endswith(empty)], plain.splitlines())

        inputs = collections.defaultdict(list)  # runs in the order of the input
        for line in lines.splitlines():
            run = json.loads(line)
            inputs[run["time"], run["device"], run["source"], run.get("param", "")].append(run)
        kinds, cleared, last, opened = collections.Counter(), 0, {}, 0
        for line in explained.splitlines():
            run = json.loads(line)
            unit = (run["device"], run["source"], run["param"])
            self.assertEqual([(a["VaraibleName"], a["InterfaceValue"], a["LiveTime"])
                              for a in run["result"]["alertItems"]],
                             [(e["variable"], e["interface"], e["time"])
                              for e in run["explanations"]])
            for one in run["explanations"]:
                self.assertTrue(breaks(one["expected"], one["observed"]["value"]), one)
                self.assertLessEqual(len(one["history"]["last"]), 10)
                self.assertIn(one["expected"]["words"] if "table" not in one else "rows"
                              if sum(one["table"][k]["count"] for k in ("added", "removed", "changed")) > 1
                              else "row", one["sentence"])
                kinds[one["expected"]["kind"]] += 1
                key = (*unit, one["interface"], one["variable"])
                opened += key not in last
                last[key] = one
            relearned = {(i["strInterfaceName"], i["strVariableName"])
                         for i in run["result"]["ruleItems"]}
            for one in run["cleared"]:
                before = last.pop((*unit, one["interface"], one["variable"]))
                self.assertEqual(one["lastTime"], before["time"])
                # What fits again does so by the rule that was broken, where that one stands.
                given = inputs[(run["time"], *unit)]
                if (one["interface"], one["variable"]) in relearned or len(given) > 1:
                    continue
                values = [v for v in given[0]["variables"] if v["name"] == one["variable"] and
                          v.get("interface", "") == one["interface"]]
                if len(values) == 1 and before["valueType"] != "table":
                    value = as_judged(values[0], before["valueType"])
                    cleared += not breaks(before["expected"], value)
                    self.stale.setdefault(name, []).extend(
                        [(one, value, before["expected"])] if breaks(before["expected"], value) else [])
        self.assertEqual(told.count("Z ALERT  "), opened)
        self.assertEqual(told.count("Z OPEN   "), len(last))
        return kinds, cleared

    stale = {}

    def test_the_recordings(self):
        for name in ("lab", "linux-host"):
            with self.subTest(name):
                kinds, cleared = self.check(name)
                print(name, dict(kinds), "cleared", cleared, "stale", len(self.stale.get(name, [])),
                      self.stale.get(name, [])[:3])
                self.assertGreater(sum(kinds.values()), 50)
                self.assertGreater(cleared, 10)


if __name__ == "__main__":
    unittest.main()
