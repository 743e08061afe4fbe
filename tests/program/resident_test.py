"""Units that stay in memory from run to run: what comes out and what is stored is what comes of
reading and writing them for each run, and what others change is seen.

Usage: resident_test.py PROGRAM
"""
import itertools
import json
import os
import pathlib
import random
import sqlite3
import subprocess
import sys
import tempfile
import time
import unittest

PROGRAM = sys.argv.pop(1)
ROUNDS = 45


def varied(rng, number, device, late):
    """The variables of one run: every type, drifting, breaking, coming and going."""
    eth = "eth%d" % (device % 3)
    yield {"name": "constant", "interface": eth, "value": 5 if number % 17 else 6}
    yield {"name": "wave", "interface": eth, "value": 50 + rng.randrange(-9, 10)}
    yield {"name": "counter", "value": 7 * number if number != 30 else 1}
    yield {"name": "load", "type": "float", "value": round(rng.uniform(0.2, 0.4), 3)}
    yield {"name": "temperature", "interface": eth, "type": "double",
           "value": 20.0 + (number // 15) * 7 + rng.random()}
    yield {"name": "state", "interface": eth, "value": rng.choice(["up", "up", "up", "down"])}
    yield {"name": "version", "value": "v%d" % (number // 20)}
    yield {"name": "table", "value": {"columns": ["prefix", "via"],
                                      "rows": [["10.%d.0.0/16" % (number // 12), "a"], ["::", "b"]]},
           "keys": ["prefix"]}
    if number > late:
        yield {"name": "new", "interface": "eth9", "value": number % 2}
    if number > 25:
        yield {"name": "retyped", "value": str(number % 2), "typeCode": 3}
    else:
        yield {"name": "retyped", "value": number % 2}
    yield {"name": "fixed", "interface": eth, "value": rng.randrange(100)}
    if rng.random() < 0.2:
        yield {"name": "wave", "interface": eth, "value": rng.randrange(200)}
    if rng.random() < 0.1:
        yield {"name": "new", "interface": "eth9", "value": rng.randrange(9)}


def recording(devices=7, seed=3):
    """Runs of several domains, sources and parameters, some on demand, some twice, some with a
    time ahead of the clock: a history that such a time has got into is repaired."""
    rng = random.Random(seed)
    start = int(time.time()) - 100 * 86400
    for number, device in itertools.product(range(ROUNDS), range(devices)):
        run = {"time": start + rng.choice([1900, 3600, 40000]) + 40000 * number, "device":
               "r%d" % device, "domain": "d%d" % (device % 2), "source": "s%d" % (device % 3),
               "param": "p" * (device % 2), "nodePathSchema": "n%d" % (number // 9),
               "variables": list(varied(rng, number, device, 20 + device))}
        if rng.random() < 0.05:
            run["onDemand"] = True
        if device == 1 and number == 20:
            run["time"] = 2200000000
        yield json.dumps(run) + "\n"
        if rng.random() < 0.05:
            yield json.dumps(run) + "\n"


class ResidentTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.root = str(self.folder / "root")

    def call(self, *arguments, input="", code=0):
        done = subprocess.run([PROGRAM, *arguments, "--root", self.root],
                              input=input.encode(), capture_output=True, timeout=300)
        self.assertEqual(done.returncode, code, done.stderr.decode(errors="replace"))
        self.said = done.stderr
        return done.stdout

    def make(self, name, *domains):
        """A root of its own, with a prescribed rule and little patience between values."""
        self.root = str(self.folder / name)
        for domain in domains:
            self.call("init", "--domain", domain)
            self.call("rule", "set", "--domain", domain, "--device", "r1", "--interface", "eth1",
                      "--source", "s1", "--param", "p", "--variable", "fixed", "--type", "intLEQ",
                      "--parameter", '{"ruleParam":80}')

    def database(self, name, domain="default"):
        return os.path.join(self.root, "data", "FSParserData", domain, name + ".db")

    def query(self, name, sql, domain="default"):
        connection = sqlite3.connect(self.database(name, domain))
        try:
            return connection.execute(sql).fetchall()
        finally:
            connection.close()

    def stored(self, *domains):
        return [sorted(self.query(table, "select * from " + table, domain))
                for domain in domains for table in ("KSObjectRule", "KSObjectHistory")]

    # What comes out, and what is stored

    def test_units_in_memory_give_what_units_on_disk_give(self):
        lines = list(recording())
        for at in range(len(lines) - 1, 0, -7):  # and lines that are none
            lines.insert(at, ['{"time":1}\n', "\n", "{" * at + "\n", '"%s"\n' % ("x" * 9000)][at % 4])
        options = [("--enroll", "--all", "--explain"),
                   ("--enroll", "--all", "--allow-duplicates", "--judge-repeated",
                    "--max-ahead", "0")]
        for stages in options:
            expected = None
            # One process; and so many that each begins with an empty memory.
            for memory, threads, cuts in [("0", "1", 1), ("1gb", "1", 1), ("1gb", "2", 1),
                                          ("1gb", "8", 1), ("1", "1", 1), ("1", "8", 1),
                                          ("60kb", "2", 1), ("1gb", "2", 6), ("1", "2", 3)]:
                with self.subTest(stages=stages, memory=memory, threads=threads, cuts=cuts):
                    self.make("%d-%s-%s-%d" % (options.index(stages), memory, threads, cuts),
                              "d0", "d1")
                    size = -(-len(lines) // cuts)
                    out = b"".join(
                        self.call("evaluate", *stages, "--memory", memory, "--threads", threads,
                                  "--quiet", "--max-line", "8000",
                                  input="".join(lines[at:at + size]), code=1)
                        for at in range(0, len(lines), size))
                    found = (out, self.stored("d0", "d1"), self.said)
                    if expected is None:
                        expected = found
                        for kind in (b'"nRuleId"', b'\\"_t\\"'):
                            self.assertGreater(out.count(kind), 50, kind)
                    # What was judged before is known to one process only.
                    if cuts == 1 or "--judge-repeated" in stages:
                        self.assertEqual(found[0], expected[0])
                        self.assertEqual(found[1], expected[1])
                    if cuts == 1:
                        self.assertEqual(found[2], expected[2])

    # Changes from outside

    def start(self, *arguments):
        begun = subprocess.Popen([PROGRAM, "evaluate", "--root", self.root, "--all", *arguments],
                                 stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                 stderr=subprocess.PIPE)
        self.addCleanup(lambda: (begun.kill(), begun.wait(), begun.stdin.close(),
                                 begun.stdout.close(), begun.stderr.close()))
        return begun

    @staticmethod
    def when(number):
        return 1600000000 + 4 * 86400 * number  # each value joins the history

    def feed(self, begun, number, value, source="s"):
        line = {"time": self.when(number), "device": "r", "source": source,
                "variables": [{"name": "v", "value": value}]}
        begun.stdin.write(json.dumps(line).encode() + b"\n")
        begun.stdin.flush()
        return json.loads(begun.stdout.readline())["result"]

    def write_soon(self, **settings):
        path = pathlib.Path(self.root, "conf", "fix_frontserver.ini")
        text = "".join("%s=%s\n" % setting for setting in settings.items())
        path.parent.mkdir(parents=True, exist_ok=True)
        old = path.read_text() if path.exists() else "[Keelstone]\n"
        path.write_text(old.replace("[Keelstone]\n", "[Keelstone]\n" + text))

    def wait_for(self, condition, what):
        for _ in range(200):
            if condition():
                return
            time.sleep(0.05)
        self.fail(what)

    def points(self):
        [[text]] = self.query("KSObjectHistory", "select HistoryData from KSObjectHistory "
                              "where variableName = 'v' and variableSource = 's'") or [["[]"]]
        return text

    def test_what_others_change_is_seen_within_a_second(self):
        self.make("root", "default")
        self.write_soon(CacheTime=1)
        begun = self.start("--enroll")
        for number in range(12):
            self.feed(begun, number, 5)
        self.assertEqual(self.feed(begun, 12, 5)["alertItems"], [])
        key = ("--device", "r", "--interface", "", "--source", "s", "--param", "",
               "--variable", "v")
        self.wait_for(lambda: str(self.when(12)) in self.points(), "nothing is written")
        time.sleep(2.5)  # its own commits are no others'

        self.call("rule", "set", *key, "--type", "intLEQ", "--parameter", '{"ruleParam":3}')
        time.sleep(1.1)
        self.assertEqual(len(self.feed(begun, 13, 5)["alertItems"]), 1)
        # Beside rows that are not written yet.
        self.call("rule", "unset", *key)
        time.sleep(1.1)
        self.assertEqual(len(self.feed(begun, 14, 5)["alertItems"]), 0)
        self.wait_for(lambda: self.points() != "[]", "nothing is written")
        self.feed(begun, 15, 5, source="t")
        self.wait_for(lambda: ("t",) in self.query(
            "KSObjectHistory", "select variableSource from KSObjectHistory"), "nothing is written")
        self.call("clean", "--keep", "t", "--yes")
        time.sleep(1.1)
        self.feed(begun, 16, 5)
        self.wait_for(lambda: str(self.when(16)) in self.points(), "nothing is written")
        self.assertNotIn(str(self.when(14)), self.points())

    def test_what_others_change_stands_against_what_is_unwritten(self):
        self.make("root", "default")
        begun = self.start("--enroll")
        for number in range(12):
            self.feed(begun, number, 5)
        self.assertEqual(self.points(), "[]")  # nothing is written yet
        self.call("rule", "set", "--device", "r", "--interface", "", "--source", "s", "--param",
                  "", "--variable", "v", "--type", "intLEQ", "--parameter", '{"ruleParam":3}')
        time.sleep(1.1)
        self.assertEqual(len(self.feed(begun, 12, 5)["alertItems"]), 1)
        begun.communicate()
        rule = self.query("KSObjectRule", "select ruleAlgParameter from KSObjectRule "
                          "where variableName = 'v' and variableSource = 's'")
        self.assertEqual(rule, [('{"ruleParam":3}',)])
        self.assertIn(str(self.when(11)), self.points())

    def test_what_could_not_be_written_is_written_later(self):
        self.make("root", "default")
        self.write_soon(CacheTime=1, BusyTimeout=50)
        begun = self.start("--enroll")
        self.feed(begun, 0, 5)
        held = sqlite3.connect(self.database("KSObjectHistory"))
        held.execute("begin immediate")
        for number in range(1, 8):
            self.feed(begun, number, 5)
        time.sleep(2.5)
        self.assertNotIn(str(self.when(7)), self.points())
        held.rollback()
        held.close()
        self.wait_for(lambda: str(self.when(7)) in self.points(), "it is lost")
        _, said = begun.communicate()
        self.assertEqual(begun.returncode, 3)
        self.assertIn(b"writes to the databases have failed", said)


if __name__ == "__main__":
    unittest.main(verbosity=2)
