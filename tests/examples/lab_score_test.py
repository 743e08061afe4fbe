"""The lab's recording, evaluated, against its labels: what must be found, and how many false
alerts are bearable."""

import json
import os
import subprocess
import sys
import tempfile
import unittest

import recordings

LAB, PROGRAM = sys.argv.pop(1), sys.argv.pop(1)

# Alerts of the whole recording (143,000 values) that belong to no fault and no return.
MOST_FALSE_ALERTS = 10


class LabScoreTest(unittest.TestCase):
    def test_every_fault_is_found_and_little_else(self):
        recording = os.path.join(LAB, "recording.jsonl.gz")
        labels = os.path.join(LAB, "faults.jsonl")
        with open(labels, encoding="utf-8") as file:
            faults = [json.loads(line) for line in file]
        self.assertGreaterEqual(len(faults), 8)

        with tempfile.TemporaryDirectory() as folder:
            root = os.path.join(folder, "root")
            recordings.make_root(PROGRAM, LAB, root)
            results = recordings.evaluate(PROGRAM, root, recordings.lines_of(LAB), "--format", "json")
        scored = subprocess.run([os.path.join(LAB, "score"), "--json", labels, recording],
                                input=results, check=True, capture_output=True)
        score = json.loads(scored.stdout)
        self.assertEqual(score["found"], len(faults), score)
        self.assertEqual(score["missed"], 0, score)
        self.assertLessEqual(score["false"], MOST_FALSE_ALERTS, score)

        # The table that the documents show.
        shown = subprocess.run([os.path.join(LAB, "score"), labels, recording], input=results,
                               check=True, capture_output=True).stdout.decode()
        table = shown[shown.index("fault  "):shown.index("outside the windows")]
        for document in ("README.md", "docs/lab.md"):
            with open(os.path.join(LAB, "../..", document), encoding="utf-8") as file:
                self.assertIn(table, file.read(), document)


if __name__ == "__main__":
    unittest.main()
