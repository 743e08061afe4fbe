"""The program from outside: files on disk, bytes written, exit codes."""
import itertools
import json
import os
import random
import signal
import subprocess
import time
import unittest

from host import DATABASES, HISTORIES, RULES, START, VARIABLES, ProgramCase, run_line

EMPTY_RESULT = {"ruleItems": [], "valueItems": [], "alertItems": []}


# The program as the engine alone makes it.
STAGES_OFF = ("--judge-repeated", "--allow-duplicates", "--max-ahead", "0")


def recording(rounds, devices):
    """Runs of several units over time, with values of every numeric kind and some breaks."""
    rng = random.Random(1)
    for number, device in itertools.product(range(rounds), range(devices)):
        values = [("constant", 5), ("wave", 50 + rng.randrange(-9, 10)), ("counter", 7 * number),
                  ("load", round(rng.uniform(0.2, 0.4), 3)), ("state", number % 2)]
        variables = [{"name": name, "interface": "eth%d" % (device % 2),
                      "value": 999 if rng.random() < 0.01 else value,
                      **({"type": "double"} if name == "load" else {})} for name, value in values]
        yield json.dumps({"time": 1700000000 + 3600 * number, "device": "r%d" % device,
                          "domain": "d%d" % (device % 3 % 2), "source": "s", "param": "p",
                          "variables": variables}) + "\n"


class ProgramTest(ProgramCase):
    # init

    def test_init_makes_the_databases_once(self):
        overlay = self.write("s.json", '{"intRange": {"stdCoefficient": 7 /* own */}}')
        self.call("init", "--settings", overlay, "--interval-time", "60")
        columns = [len(self.ask(name, "pragma table_info(%s)" % name)) for name in DATABASES]
        self.assertEqual(columns, [2, 2, 2, 14, 7])
        self.assertEqual((self.root / "conf/fix_frontserver.ini").read_text().split()[-3:],
                         ["IntervalTime", "=", "60"])
        before = [self.database(name).read_bytes() for name in DATABASES]
        other = self.write("t.json", '{"intRange": {"stdCoefficient": 8}}')
        _, said = self.call("init", "--settings", other)
        self.assertIn("left as they are", said)
        self.assertEqual([self.database(name).read_bytes() for name in DATABASES], before)
        # What was begun is made whole.
        self.ask("KSGlobalSetting", "delete from KSGlobalSetting where data like '%KSTableCountLimit%'")
        self.database(RULES).write_bytes(b"")
        self.database(HISTORIES).unlink()
        self.call("init")
        columns = [len(self.ask(name, "pragma table_info(%s)" % name)) for name in DATABASES]
        self.assertEqual(columns, [2, 2, 2, 14, 7])
        rows = map(json.loads, sum(self.ask("KSGlobalSetting", "select data from KSGlobalSetting"), ()))
        settings = {row["name"]: row["value"] for row in rows}
        self.assertEqual(settings["KSTableCountLimit"], 5000)
        self.assertEqual(settings["KSGeneralSetting"]["intRange"],
                         {"dataCountMinLimit": 10, "valueStatusCount": 6, "lowerBoundMinValue": 0,
                          "upperBoundMaxValue": 100, "percentageMaxValue": 95,
                          "stdCoefficient": 7, "timeIntervalLimit": 216000,
                          "dataCountHistory": 30})
        self.assertEqual(settings["KSGeneralSetting"]["intEqual"]["condition1"]["deltaEZero"],
                         0.800000011920929)

    # evaluate: what comes out

    def test_output_depends_on_nothing_but_the_input(self):
        lines = list(recording(40, 12))
        whole = self.write("whole.jsonl", "".join(lines))
        expected, _ = self.evaluate("--enroll", "--all", "--threads", "1", whole)
        found = [json.loads(line) for line in expected.splitlines()]
        self.assertEqual([(r["time"], r["device"]) for r in found],
                         [(r["time"], r["device"]) for r in map(json.loads, lines)])
        for kind in EMPTY_RESULT:
            self.assertGreater(sum(len(r["result"][kind]) for r in found), 20, kind)

        parts = [self.write("part%d" % i, "".join(lines[48 * i:48 * (i + 1)])) for i in range(10)]
        def fresh(*arguments, **keywords):
            self.root = self.folder / ("root%d" % len(os.listdir(self.folder)))
            return self.evaluate("--enroll", "--all", *arguments, **keywords)[0]
        self.assertEqual(fresh("--threads", "8", whole), expected)
        self.assertEqual(fresh("--threads", "3", *parts), expected)
        self.assertEqual(fresh(*parts[:5], "-", input="".join(lines[240:])), expected)
        one_by_one = [fresh(parts[0])]
        one_by_one += [self.evaluate("--enroll", "--all", part)[0] for part in parts[1:]]
        self.assertEqual("".join(one_by_one), expected)
        # Without --all the lines that found something, and nothing else.
        telling = [line for line in expected.splitlines(keepends=True)
                   if json.loads(line)["result"] != EMPTY_RESULT]
        self.root = self.folder / "sparse"
        self.assertEqual(self.evaluate("--enroll", whole)[0], "".join(telling))

    def test_result_lines_have_the_documented_fields(self):
        self.call("init")
        out, _ = self.evaluate(input=run_line(1, param="p\u00e9"))
        line = ('{"time":1700000000,"domain":"default","device":"d","source":"s","param":"p\u00e9",'
                '"blocked":false,"variables":1,"rejected":["v"],"result":{"ruleItems":[],'
                '"valueItems":[],"alertItems":[]}')
        refused = (',"refused":[{"device":"d","source":"s","interface":"","variable":"v",'
                   '"reason":"it has no enabled definition"}]')
        self.assertEqual(out, line + refused + "}\n")
        out, _ = self.evaluate(*STAGES_OFF, input=run_line(1, param="p\u00e9"))
        self.assertEqual(out, line + "}\n")

    def stored(self, domain):
        return [sorted(self.ask(self.database(name, domain), "select * from " + name))
                for name in (RULES, HISTORIES)]

    def histories(self):
        """The times of the history of each variable that has one."""
        rows = self.ask(HISTORIES, "select variableName, HistoryData from KSObjectHistory")
        return {name: [point["liveTime"] for point in json.loads(text)["dataList"]]
                for name, text in rows}

    def test_what_was_judged_is_not_judged_again(self):
        lines = "".join(recording(40, 4)).replace('"d1"', '"d0"')
        once = self.write("once.jsonl", lines)
        out, _ = self.evaluate("--enroll", once)
        first = [json.loads(line) for line in out.splitlines()]
        self.assertGreater(sum(len(run["result"]["alertItems"]) for run in first), 0)
        state = self.stored("d0")
        # After a start the newest value of the history counts, within one start every one.
        out, said = self.evaluate("--all", once)
        again = [json.loads(line) for line in out.splitlines()]
        self.assertEqual(state, self.stored("d0"))
        for before, run in zip(recording(40, 4), again):
            self.assertEqual(run["variables"] + run.get("repeated", 0),
                             len(json.loads(before)["variables"]))
        self.assertGreater(sum(run.get("repeated", 0) for run in again), 200)
        self.assertRegex(said, r"values rejected, \d+ values repeated; ")
        outputs = set()
        for threads in ("1", "7"):
            self.root = self.folder / ("root" + threads)
            out, _ = self.evaluate("--enroll", "--all", "--threads", threads, once, once)
            outputs.add(out)
        [out] = outputs
        runs = [json.loads(line) for line in out.splitlines()]
        self.assertEqual([run for run in runs[:160] if run["result"] != EMPTY_RESULT], first)
        for run in runs[160:]:
            self.assertEqual((run["variables"], run["repeated"], run["result"]),
                             (0, 5, EMPTY_RESULT))
        self.assertEqual(state, self.stored("d0"))
        out, _ = self.evaluate("--all", "--judge-repeated", once)
        self.assertNotIn("repeated", out)

    def test_values_of_one_second_are_judged_when_they_differ(self):
        values = [5, 5, 6, 6, 5]
        lines = "".join(map(run_line, values)) + run_line(7, time=START - 1)
        found = [run.get("repeated", 0) for run in self.results("--enroll", "--all", input=lines)]
        self.assertEqual(found, [0, 1, 0, 1, 0, 1])
        # On demand a value is judged whatever was judged before, and leaves no trace.
        on_demand = self.results("--on-demand", "--all", input=run_line(5) * 2)
        self.assertEqual([run.get("repeated", 0) for run in on_demand], [0, 0])

    def test_a_second_value_of_a_variable_is_refused(self):
        variables = [{"name": "a", "value": 1}, {"name": "b", "value": None},
                     {"name": "a", "value": 2}, {"name": "a", "interface": "e", "value": 3}]
        line = run_line(1, variables=variables)
        [run] = self.results("--enroll", "--all", input=line)
        self.assertEqual((run["variables"], run["rejected"]), (2, ["a"]))
        self.assertEqual(run["refused"], [
            {"device": "d", "source": "s", "interface": "", "variable": "a", "reason":
             "variables[2] has the name and the interface of variables[0]"}])
        self.root = self.folder / "off"
        [run] = self.results("--enroll", "--all", "--allow-duplicates", input=line)
        self.assertEqual((run["variables"], run["rejected"]), (3, []))
        text, _ = self.evaluate("--format", "text", input=line + run_line(
            1, time=START + 60, variables=variables))
        self.assertEqual(text, "2023-11-14 22:13:20Z REFUSE d s a: variables[2] has the "
                         "name and the interface of variables[0]\n")

    def test_times_that_no_device_has_are_refused(self):
        now = int(time.time())
        ahead, early = "is ahead of the clock by more than", "is no device's time"
        for second, options, because in [
                (-5, [], early), (0, [], early), (1800, [], early), (1801, [], None),
                (now, [], None), (now + 80000, [], None), (now + 90000, [], ahead),
                (now + 90000, ["--max-ahead", "100000"], None), (2 ** 62, [], ahead),
                (2200000000, ["--max-ahead", "0"], None), (-5, ["--max-ahead", "0"], None)]:
            with self.subTest(time=second, options=options):
                self.root = self.folder / ("%d%d" % (second, len(options)))
                [run] = self.results("--enroll", "--all", *options, input=run_line(1, time=second))
                self.assertEqual((run["time"], run["rejected"]),
                                 (second, ["v"] if because else []))
                self.assertEqual(run["variables"], 0 if because else 1)
                if because:
                    self.assertIn(because, run["refused"][0]["reason"])
                joins = not because and second > 0
                self.assertEqual(self.histories(), {"v": [second]} if joins else {})

    def test_a_history_ahead_of_the_clock_is_repaired(self):
        self.call("init")
        far = 2200000000
        steady = [run_line(5, time=START + 3600 * i) for i in range(5)]
        bogus = run_line(5, time=far)
        for before, after, expected in [
                # What the history holds counts among the values in order.
                (steady[:2] + [bogus], steady[2:], 5),
                ([bogus], steady[:4], 2), ([bogus], steady[:2], None)]:
            for cut in (False, True):
                with self.subTest(before=len(before), after=len(after), cut=cut):
                    self.root = self.folder / ("%d%d%d" % (len(before), len(after), cut))
                    self.evaluate("--enroll", *STAGES_OFF, input="".join(before))
                    self.assertEqual(self.histories()["v"][-1], far)
                    kept = len(before) > 1 or not cut  # memory ends with the program
                    for lines in after if cut else ["".join(after)]:
                        self.evaluate(input=lines)
                    times = self.histories()["v"]
                    self.assertEqual(times[-1], START + 3600 * (len(after) + len(before) - 2)
                                     if expected and kept else far)
                    if not expected or not kept:
                        continue
                    self.assertEqual(len(times), expected)
                    log = (self.root / "log/keelstone.log").read_text()
                    self.assertEqual(log.count("is repaired"), 1)

    def test_a_domain_that_defines_nothing_is_told_once(self):
        self.call("init")
        out, said = self.evaluate("--format", "text", input=run_line(1) * 3)
        self.assertEqual((out, said.count("--enroll")), ("", 1))
        _, said = self.evaluate("--enroll", input=run_line(1))
        self.assertNotIn("defines no", said)

    def test_faulty_lines_are_told_and_skipped(self):
        lines = self.write("in.jsonl", b"\xef\xbb\xbf\r\n" + run_line(1).encode() + b"{\n  \t\n" +
                           run_line(1, time=2.5).encode() + b"\xef\xbb\xbf{}\n[\xff]\n" +
                           run_line(2).encode().rstrip() + b"\r\n" + run_line(3).encode().rstrip())
        out, said = self.evaluate("--enroll", "--all", lines, code=1)
        self.assertEqual(len(out.splitlines()), 3)
        places = [line.split(": ")[0].rsplit(":", 1)[1] for line in said.splitlines()
                  if line.startswith(lines)]
        self.assertEqual(places, ["3", "5", "6", "7"])
        self.assertIn("4 lines skipped", said)
        self.assertEqual(len(self.results("--strict", lines, code=1)), 1)
        _, said = self.evaluate(input="x", code=1)
        self.assertIn("<stdin>:1: not JSON", said)

    def test_enrollment_defines_variables_once(self):
        lines = run_line(1) + run_line(2.5) + run_line(3, device="e") + run_line(4, param="q")
        found = self.results("--enroll", input=lines, code=0)
        self.assertEqual([r["rejected"] for r in found], [[], ["v"], [], []])
        [[rule]] = self.ask(VARIABLES, "select data from KSVariableRule")
        rule = json.loads(rule)
        self.assertEqual(rule, {**rule, "variableSource": "s", "variableName": "v", "param": "",
                                "variableSourceType": 2, "ruleTypeId": -1, "variableDataType": 1,
                                "isCustomerEnable": 0, "isInitialEnable": True})
        found = self.results(input=run_line(1) + run_line(1, domain="none") * 2)
        self.assertEqual([r["rejected"] for r in found], [[], ["v"], ["v"]])
        self.assertFalse(self.database("x", "none").parent.exists())
        found = self.results(input=run_line(1, domain="x" * 300) + run_line(1))
        self.assertEqual([r["rejected"] for r in found], [["v"], []])

    def test_strict_enrolls_nothing_beyond_the_fault(self):
        later = run_line(1, source="later")
        self.evaluate("--enroll", "--strict", input=run_line(1) + "x\n" + later, code=1)
        self.assertEqual(self.ask(VARIABLES, "select count(*) from KSVariableRule"), [(1,)])

    def test_limits_and_switches_of_the_domain(self):
        self.call("init")
        for name, value in [("KSTableCountLimit", 2), ("KSStrRowCountLimit", 3)]:
            self.call("settings", "set", name, str(value))
        variables = [{"name": "t2", "value": [{"a": 1}] * 2}, {"name": "t3", "value": [{"a": 1}] * 3},
                     {"name": "s3", "value": "a\nb\nc\n"}, {"name": "s4", "value": "a\nb\nc\n\n"}]
        found = self.results("--enroll", input=run_line(1, variables=variables))
        self.assertEqual(found[0]["variables"], 2)
        self.assertTrue({"t3", "s4"}.issubset(found[0]["rejected"]))
        self.call("settings", "set", "EnableKSFunction", "false")
        out, said = self.evaluate("--all", input=run_line(1) * 2)
        self.assertEqual([json.loads(r)["variables"] for r in out.splitlines()], [0, 0])
        self.assertEqual(said.count("EnableKSFunction"), 1)

    def test_giant_lines(self):
        giant = run_line("x" * 20_000_000) + run_line(1, x="[" * 1000) + run_line(1)
        self.assertEqual(len(self.results("--enroll", input=giant)), 3)
        self.evaluate(input=run_line(1) + "[" * 5_000_000, code=1)

    # evaluate: exit codes

    def test_alerts_and_skipped_lines(self):
        lines = "".join(recording(12, 1)).replace('"domain": "d0", ', "")
        self.evaluate("--enroll", input=lines)
        alert = lines.splitlines(keepends=True)[-1].replace('"value": 5', '"value": 6')
        self.assertNotEqual(alert, lines.splitlines(keepends=True)[-1])
        self.evaluate("--on-demand", "--fail-on-alert", input=alert + "x\n", code=4)
        self.evaluate("--on-demand", input=alert + "x\n", code=1)
        self.evaluate("--on-demand", "--fail-on-alert", "--strict", input="x\n" + alert, code=1)

    def test_writes_that_fail(self):
        self.call("init")
        [[sql]] = self.ask(HISTORIES, "select sql from sqlite_master where type = 'table'")
        self.ask(HISTORIES, "drop table KSObjectHistory")
        self.ask(HISTORIES, sql[:-1] + ", check (variableName = 'none'))")
        _, said = self.evaluate("--enroll", input=run_line(1), code=3)
        self.assertRegex(said, "failed, first %s: .*CHECK constraint failed" %
                         self.database(HISTORIES))

    # evaluate: broken off

    def start(self, *arguments):
        return self.process("evaluate", "--enroll", "--all", *arguments, stdin=subprocess.PIPE,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def test_a_pipe_that_nobody_writes_to_can_be_left(self):
        os.mkfifo(self.folder / "pipe")
        begun = self.start(self.write("in", run_line(1)), "pipe")
        begun.stdout.readline()
        begun.send_signal(signal.SIGTERM)
        begun.communicate()
        self.assertEqual(begun.returncode, 3)

    def test_a_signal_ends_it_with_everything_stored(self):
        lines = list(recording(30, 4))
        expected, _ = self.evaluate("--enroll", "--all", input="".join(lines))
        for number in [signal.SIGTERM, signal.SIGINT]:
            self.root = self.folder / str(number)
            begun = self.start("--threads", "4")
            begun.stdin.write("".join(lines[:40]).encode())
            begun.stdin.flush()  # and no end of input
            out = b"".join(begun.stdout.readline() for _ in range(40))
            begun.send_signal(number)
            out += begun.stdout.read()
            self.assertEqual(begun.wait(), 3)
            begun.communicate()
            self.assertEqual(out.count(b"\n"), 40)
            rest, _ = self.evaluate("--enroll", "--all", input="".join(lines[40:]))
            self.assertEqual(out.decode() + rest, expected)

    def test_closed_and_full_output(self):
        lines = self.write("in", "".join(recording(100, 40)))
        begun = self.start(lines)
        begun.stdout.readline()
        begun.stdout.close()
        begun.stdout = None
        _, said = begun.communicate()
        self.assertEqual(begun.returncode, 3)
        self.assertIn(b"standard output", said)
        with open("/dev/full", "w") as full:
            self.evaluate("--enroll", "--all", lines, stdout=full, code=3)
        self.evaluate("--all", lines, preexec_fn=lambda: os.close(1), code=3)
        self.evaluate("--enroll", preexec_fn=lambda: os.close(0), code=2)


if __name__ == "__main__":
    unittest.main()
