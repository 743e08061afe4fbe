"""The recordings, evaluated with explanations: the verdict follows from each explanation alone,
and what is found is what is found without.

Usage: explain_test.py EXAMPLES PROGRAM
"""
import collections
import json
import os
import re
import struct
import sys
import tempfile
import unittest

import recordings

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
    def evaluate(self, folder, example, lines, *options):
        root = os.path.join(folder, "root%d" % len(os.listdir(folder)))
        recordings.make_root(PROGRAM, example, root)
        return recordings.evaluate(PROGRAM, root, lines, *options)

    def check(self, name):
        example = os.path.join(EXAMPLES, name)
        lines = recordings.lines_of(example)
        with tempfile.TemporaryDirectory() as folder:
            plain = self.evaluate(folder, example, lines, "--format", "json")
            explained = self.evaluate(folder, example, lines, "--format", "json", "--explain")
            told = self.evaluate(folder, example, lines, "--format", "text").decode()

        # What is found is the same, byte for byte; a run that only cleared something is extra.
        kept = [re.sub(rb',"explanations":\[.*$', b"}", line) for line in explained.splitlines()]
        empty = (b'"rejected":[],"result":{"ruleItems":[],"valueItems":[],"alertItems":[]}}')
        self.assertEqual([line for line in kept if not line.endswith(empty)], plain.splitlines())

        inputs = collections.defaultdict(list)  # runs in the order of the input
        for line in lines.splitlines():
            run = json.loads(line)
            inputs[run["time"], run["device"], run["source"], run.get("param", "")].append(run)
        # By variable: the latest explanation of its episode, and what rule stands by now.
        kinds, cleared, last, opened, relearned = collections.Counter(), 0, {}, 0, set()
        for line in explained.splitlines():
            run = json.loads(line)
            unit = (run["device"], run["source"], run["param"])
            self.assertEqual([(a["VaraibleName"], a["InterfaceValue"], a["LiveTime"])
                              for a in run["result"]["alertItems"]],
                             [(e["variable"], e["interface"], e["time"])
                              for e in run["explanations"]])
            relearned |= {(*unit, item["strInterfaceName"], item["strVariableName"])
                          for item in run["result"]["ruleItems"]}
            for one in run["explanations"]:
                self.assertTrue(breaks(one["expected"], one["observed"]["value"]), one)
                self.assertLessEqual(len(one["history"]["last"]), 10)
                changes = [one["table"][kind]["count"] for kind in ("added", "removed", "changed")
                           if one["table"][kind]["count"]] if "table" in one else []
                for part in ["%d row" % count for count in changes] or [one["expected"]["words"]]:
                    self.assertIn(part, one["sentence"])
                kinds[one["expected"]["kind"]] += 1
                key = (*unit, one["interface"], one["variable"])
                opened += key not in last
                last[key] = one
                relearned.discard(key)  # explained is the rule that judged
            for one in run["cleared"]:
                key = (*unit, one["interface"], one["variable"])
                before = last.pop(key)
                self.assertEqual(one["lastTime"], before["time"])
                # What fits again does so by the rule that was broken, where that still stands.
                given = [variable for one_run in inputs[(run["time"], *unit)]
                         for variable in one_run["variables"]
                         if (variable.get("interface", ""), variable["name"]) == key[3:]]
                if key in relearned or len(given) > 1 or before["valueType"] == "table":
                    continue
                value = as_judged(given[0], before["valueType"])
                self.assertFalse(breaks(before["expected"], value), (one, value, before))
                cleared += 1
        self.assertEqual(told.count("Z ALERT  "), opened)
        self.assertEqual(told.count("Z OPEN   "), len(last))
        return kinds, cleared

    def test_the_recordings(self):
        for name in ("lab", "linux-host"):
            with self.subTest(name):
                kinds, cleared = self.check(name)
                self.assertGreater(len(kinds), 3)
                self.assertGreater(sum(kinds.values()), 50)
                self.assertGreater(cleared, 10)


if __name__ == "__main__":
    unittest.main()
