#!/usr/bin/env python3
"""Holds the worked examples of docs/rules.md to what the program does, their arithmetic to
their input, and the drawings to the command that makes them.

usage: learning_test.py TREE PROGRAM

The commands of the examples are run by documents_test.py.
"""
import collections
import json
import operator
import pathlib
import re
import statistics
import subprocess
import sys
import tempfile
import unittest

TREE, PROGRAM = pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2]).resolve()
sys.path.insert(0, str(TREE / "scripts"))
sys.dont_write_bytecode = True
from drawing.evaluation import KINDS, Evaluation
from drawing.learning import prescriptions

RULES = (TREE / "docs/rules.md").read_text()
ONLY_PRESCRIBED = {"strNoEqual", "strRegex", "intNoEqual", "intLEQ", "intGEQ"}
ASKED = {"more than": operator.gt, "at least": operator.ge, "at most": operator.le, "below": operator.lt}


def measured(name, values):
    """What the first columns of the examples' tables name, of one history."""
    steps = list(zip(values, values[1:]))
    zero = sum(a == b for a, b in steps)
    runs = [1]
    for a, b in steps:
        runs.append(runs[-1] + 1 if a == b else 1)
    simple = {"values": len(values), "distinct values": len(set(values)), "longest run of equal values": max(runs)}
    if name in simple:
        return simple[name]
    if name in ("falls", "mean", "standard deviation σ", "mean − 3 σ", "mean + 3 σ"):
        mean, deviation = statistics.fmean(values), statistics.pstdev(values)
        return {"falls": sum(b < a for a, b in steps), "mean": mean, "standard deviation σ": deviation,
                "mean − 3 σ": mean - 3 * deviation, "mean + 3 σ": mean + 3 * deviation}[name]
    share = {"zero steps": (zero, len(steps)), "steps that change": (len(steps) - zero, len(steps)),
             "zero steps by values": (zero, len(values)),
             "rarest value by distinct values": (min(collections.Counter(values).values()), len(set(values)))}
    return share[name]


def sections():
    """Kind, text of its section."""
    for text in re.split(r"^##+ ", RULES, flags=re.M):
        picture = re.search(r"\]\(pictures/rule-(\w+)\.svg\)", text)
        if picture and picture[1] != "prescribed":
            yield picture[1], text


def settings():
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run([PROGRAM, "init", "--root", folder], check=True, stdout=subprocess.DEVNULL)
        told = subprocess.run([PROGRAM, "settings", "get", "--root", folder, "--format", "json"], check=True,
                              text=True, stdout=subprocess.PIPE).stdout
    return {row["path"]: row["value"] for row in map(json.loads, told.splitlines())}


class LearningTest(unittest.TestCase):
    def test_the_command_draws_the_pictures_of_the_tree(self):
        with tempfile.TemporaryDirectory() as folder:
            subprocess.run([sys.executable, TREE / "scripts/drawings", PROGRAM, folder], check=True)
            drawn = {file.name: file.read_bytes() for file in pathlib.Path(folder).iterdir()}
        kept = {file.name: file.read_bytes() for file in (TREE / "docs/pictures").glob("*.svg")}
        self.assertEqual(drawn.keys(), kept.keys())
        self.assertEqual([name for name in drawn if drawn[name] != kept[name]], [])

    def test_every_kind_has_its_example(self):
        described = [kind for kind, _ in sections()]
        self.assertEqual(sorted(described), sorted(set(KINDS) - ONLY_PRESCRIBED))
        prescribed = {arguments[arguments.index("--type") + 1] for arguments in prescriptions(RULES)}
        self.assertEqual(prescribed, ONLY_PRESCRIBED)

    def test_examples_say_what_is_learned_when_and_what_alerts(self):
        for kind, text in sections():
            with self.subTest(kind):
                evaluation = Evaluation(PROGRAM, (TREE / f"docs/learning/{kind}.jsonl").read_text())
                (_, points), = evaluation.points.items()
                told = re.search(r"^Learned with run (\d+): `(\w+)`", text, flags=re.M)
                learned = [i + 1 for i, point in enumerate(points) if point.rule]
                self.assertEqual(([int(told[1])], told[2]), (learned, points[learned[0] - 1].rule[0]))
                parameter = json.loads(re.search(r'"parameter":(\{.*?\}),"learned"', text)[1])
                self.assertEqual(parameter, points[learned[0] - 1].rule[1])
                sentence = next(point.sentence for point in points if point.sentence)
                self.assertIn(sentence.split(" (learned")[0].split("expected ", 1)[-1], text)
                self.assertIn(sentence[sentence.index("(learned"):], text)

    def test_the_arithmetic_is_that_of_the_history(self):
        stored, counted = settings(), 0
        for kind, text in sections():
            runs = map(json.loads, (TREE / f"docs/learning/{kind}.jsonl").read_text().splitlines())
            values = [json.dumps(v) if isinstance(v, dict) else v for v in
                      (run["variables"][0]["value"] for run in runs)]
            history = values[:int(re.search(r"Learned with run (\d+)", text)[1]) - 1]
            verdicts = {}
            rows = re.findall(r"^\| `(\w+)` \| (.*?) \| (.*?) \| (.*?) \| `?([\w.]*)`? \| (\w*) \|$", text,
                              flags=re.M)
            for candidate, name, here, asked, setting, verdict in rows:
                counted += 1
                with self.subTest(kind=kind, candidate=candidate, name=name):
                    value = measured(name, history)
                    if isinstance(value, tuple):
                        self.assertTrue(here.startswith(f"{value[0]}/{value[1]} = "), here)
                        value = value[0] / value[1]
                    self.assertAlmostEqual(float(here.split()[-1]), value, delta=0.0051)
                    if not asked:
                        continue
                    words, limit = asked.rsplit(" ", 1)
                    self.assertAlmostEqual(float(limit), stored[f"{candidate}.{setting}"], 6)
                    self.assertEqual(verdict, "yes" if ASKED[words](value, float(limit)) else "no")
                    verdicts.setdefault(candidate, []).append(verdict)
            # The last candidate accepts, those before it refuse.
            *refused, accepted = verdicts.items()
            self.assertEqual((accepted[0], set(accepted[1])), (kind, {"yes"}))
            self.assertTrue(all("no" in answers for _, answers in refused), kind)
        self.assertGreater(counted, 40)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
