"""What examples/linux-host/record writes."""

import json
import os
import re
import signal
import subprocess
import sys
import unittest

FOLDER = sys.argv.pop()
NEUTRAL = re.compile(r"(lo|(eth|wlan|veth|ifb|bond|br|tun|tap|if|disk|cpu|thermal_zone)\d+|"
                     r"all|root|cpu|io|memory|hwmon\d+/temp\d+)$")


def record(*arguments):
    done = subprocess.run([os.path.join(FOLDER, "record"), *arguments], check=True,
                          capture_output=True, text=True, timeout=30)
    return [json.loads(line) for line in done.stdout.splitlines()]


class RunsOfTheHostsFormat(unittest.TestCase):
    def check(self, runs):
        for run in runs:
            self.assertEqual(set(run), {"time", "device", "source", "variables"})
            self.assertIs(type(run["time"]), int)
            self.assertTrue(run["variables"], run["source"])
            keys = [(v["name"], v.get("interface")) for v in run["variables"]]
            self.assertEqual(len(keys), len(set(keys)), "a variable stands twice in a run")
            for variable in run["variables"]:
                self.assertLessEqual(set(variable), {"name", "interface", "type", "value"})
                self.assertIn(type(variable["value"]), (int, float))
                if "type" in variable:
                    self.assertEqual(variable["type"], "float")
                self.assertRegex(variable.get("interface", "lo"), NEUTRAL)

    def kinds(self, runs):
        """Every variable must keep its type, or the engine refuses it."""
        kinds = {}
        for run in runs:
            for variable in run["variables"]:
                written = "int64" if type(variable["value"]) is int else "double"
                kind = variable.get("type", written)
                seen = kinds.setdefault((run["source"], variable["name"]), kind)
                self.assertEqual(seen, kind, variable)
        return set(kinds.values())

    def test_two_rounds(self):
        runs = record("--rounds", "2", "--interval", "0.1", "--simulate-start", "1000",
                      "--device", "d1")
        self.check(runs)
        self.assertEqual(self.kinds(runs), {"int64", "float", "double"})
        self.assertEqual({run["device"] for run in runs}, {"d1"})
        self.assertEqual(runs[0]["time"], 1000)
        self.assertLess(runs[-1]["time"], 1030)
        by_round = [run["source"] for run in runs]
        half = len(by_round) // 2
        self.assertEqual(by_round[:half], by_round[half:])
        self.assertLessEqual({"load", "memory", "cpu", "disk"}, set(by_round))
        # Rates need a round before them.
        rates = ["per_second" in json.dumps(run) for run in runs if run["source"] == "system"]
        self.assertEqual(rates, [False, True])

    def test_a_signal_ends_with_a_whole_line(self):
        # Unbuffered, so that no line waits in a buffer that communicate() passes over.
        process = subprocess.Popen([os.path.join(FOLDER, "record"), "--interval", "60"],
                                   stdout=subprocess.PIPE, bufsize=0)
        first = process.stdout.readline()
        process.send_signal(signal.SIGINT)
        rest = process.communicate(timeout=30)[0]
        self.assertEqual(process.returncode, 0)
        self.assertTrue((first + rest).endswith(b"}\n"))
        self.check(json.loads(line) for line in (first + rest).splitlines())



if __name__ == "__main__":
    unittest.main()
