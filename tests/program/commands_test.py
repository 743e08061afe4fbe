"""Commands that show and steer a domain, as transcripts: what is typed, what is answered.

In a transcript "$ " begins a command (without the program's name and --root), "! " a line
of standard error and "? " the exit code when it is not 0; every other line is standard
output.
"""
import json
import os
import resource
import shlex
import sqlite3
import subprocess
import unittest

from host import HISTORIES, RULES, VARIABLES, ProgramCase

OPTIONS = "--device r1 --source bgp --variable peers"

LISTED = r"""
$ rules --format json
{"device":"r1","interface":"","source":"bgp","param":"","variable":"peers","type":"intEqual","parameter":{"ruleParam":12},"learned":true,"points":5,"newest":1700018000}
{"device":"r1","interface":"eth\u001b0","source":"bgp","param":"","variable":"state","type":"strEqual","parameter":{"ruleParam":"up"},"learned":true,"points":5,"newest":1700018000}
$ rules --format text
DEVICE  INTERFACE  SOURCE  PARAM  VARIABLE  TYPE      ORIGIN   POINTS  NEWEST                PARAMETER
r1      -          bgp     -      peers     intEqual  learned  5       2023-11-15T03:13:20Z  {"ruleParam":12}
r1      eth\x1b0   bgp     -      state     strEqual  learned  5       2023-11-15T03:13:20Z  {"ruleParam":"up"}
$ rules --variable state --device r2
$ rules --domain other
! keelstone rules: domain "other" cannot be used: there is no ROOT/data/FSParserData/other; `keelstone init` makes what is missing
? 2
"""

RULE_SET = r"""
$ rule set --device r1 --source bgp --variable peers --type intLEQ --parameter '{"ruleParam": 80}'
{"device":"r1","interface":"","source":"bgp","param":"","variable":"peers","type":"intLEQ","parameter":{"ruleParam":80}}
$ rules --interface ''
{"device":"r1","interface":"","source":"bgp","param":"","variable":"peers","type":"intLEQ","parameter":{"ruleParam":80},"learned":false,"points":5,"newest":1700018000}
$ evaluate --quiet --format text alert.jsonl
2023-11-15 22:13:20Z ALERT  r1 bgp peers is 99, expected at most 80 (prescribed; 5 values since 2023-11-14 23:13:20Z)
2023-11-15 22:13:20Z OPEN   r1 bgp peers is 99, expected at most 80 (prescribed; 5 values since 2023-11-14 23:13:20Z); 1 alert since 2023-11-15 22:13:20Z
$ rule unset --device r1 --source bgp --variable peers --dry-run
{"device":"r1","interface":"","source":"bgp","param":"","variable":"peers","rule":true,"history":true,"dryRun":true}
$ rule unset --device r1 --source bgp --variable peers --format text
removed: rule and history: r1 bgp peers
$ rule unset --device r1 --source bgp --variable peers
{"device":"r1","interface":"","source":"bgp","param":"","variable":"peers","rule":false,"history":false,"dryRun":false}
$ rules --interface ''
$ rule set --device r9 --interface e0 --source new --variable v --type strEnum --parameter '{"ruleParam":["a"]}' --format text
fixed: r9 e0 new v strEnum {"ruleParam":["a"]}
! keelstone rule set: note: no variable "v" of source "new" is defined yet; `keelstone evaluate --enroll` does so
"""

SHOW = r"""
$ show --device r1 --variable state --format text
r1 eth\x1b0 bgp state
  rule       strEqual: always "up" (learned)
  parameter  {"ruleParam":"up"}
  reference  "up" of 2023-11-15T03:13:20Z
  learns     with the first value after 2023-11-17T15:13:20Z (216000 s after the newest value of the history)
  history    5 values, 2023-11-14T23:13:20Z to 2023-11-15T03:13:20Z
             AAAAA
             A = "up", 5 times
  settings   strEqual.dataCountMinLimit = 3 (default)
             strEqual.valueStatusCount = 6 (default)
             strEqual.changeFrequency = 0.33 (default)
             strEqual.countEqualValueLimit = 3 (default)
             strEqual.timeIntervalLimit = 216000 (default)
             strEqual.dataCountHistory = 30 (default)
             KSStrRowCountLimit = 100 (default)
$ rule set --device r1 --source bgp --variable peers --type intGEQ --parameter '{"ruleParam":13}' --format text
fixed: r1 bgp peers intGEQ {"ruleParam":13}
$ block add --device r1 --from 0 --to 99999999999
{"id":1,"devices":["r1"],"from":0,"to":99999999999,"active":true}
$ show --device r1 --interface '' --format text
r1 bgp peers
  rule       intGEQ: at least 13 (prescribed)
  parameter  {"ruleParam":13}
  reference  none of the values that are kept
  learns     never: the rule is prescribed
  blocked    until 5138-11-16T09:46:39Z
  history    5 values, 2023-11-14T23:13:20Z to 2023-11-15T03:13:20Z
             _____
             !!!!!
             all 12
$ evaluate --quiet --enroll young.jsonl
$ settings set strEqual.countEqualValueLimit 4 --format text
strEqual.countEqualValueLimit = 4
$ show --device r2 --source bgp --param '' --variable peers
{"domain":"default","device":"r2","interface":"","source":"bgp","param":"","variable":"peers","valueType":"int64","rule":null,"reference":null,"learning":{"after":1700005400,"words":"with the first value after 2023-11-14T23:43:20Z (1800 s after the newest value of the history)"},"blockedUntil":null,"history":[{"time":1700003600,"value":7,"fits":true}],"settings":[{"path":"IntervalTime","value":1800,"from":"default"}]}
$ rule set --device r3 --source bgp --variable peers --type intRange --parameter '{"minValue":1,"maxValue":80}' --format text
fixed: r3 bgp peers intRange {"minValue":1,"maxValue":80}
$ show --device r3 --format text
r3 bgp peers
  rule       intRange: between 1 and 80 (prescribed)
  parameter  {"minValue":1,"maxValue":80}
  reference  none of the values that are kept
  learns     never: the rule is prescribed
  history    empty
$ show --device r9 --interface e0 --source s
! keelstone show: nothing is known of device "r9", interface "e0", source "s" in domain "default"; `keelstone rules` lists what is
? 2
$ show
! --device is required
! Run with --help for more information.
? 2
"""

BLOCKS = r"""
$ block list
$ block add --device r2 r1 r2 --from "2023-11-14 23:13:20 +01:00" --to 2023-11-14T18:43:20-04:30
{"id":1,"devices":["r1","r2"],"from":1700000000,"to":1700003600,"active":false}
$ block add --device r3 --from 0 --to 99999999999
{"id":2,"devices":["r3"],"from":0,"to":99999999999,"active":true}
$ block list --format text
ID  FROM                  TO                    NOW     DEVICES
1   2023-11-14T22:13:20Z  2023-11-14T23:13:20Z  -       r1, r2
2   1970-01-01T00:00:00Z  5138-11-16T09:46:39Z  active  r3
$ block remove 1 9
! keelstone block remove: there is no block period 9; nothing is removed
? 2
$ block remove 1 --dry-run --format text
would remove:
ID  FROM                  TO                    NOW  DEVICES
1   2023-11-14T22:13:20Z  2023-11-14T23:13:20Z  -    r1, r2
$ block remove 1
{"id":1,"devices":["r1","r2"],"from":1700000000,"to":1700003600,"active":false}
$ block list
{"id":2,"devices":["r3"],"from":0,"to":99999999999,"active":true}
$ block add --device r3 --from 5 --to 4
! keelstone block add: --to lies before --from
? 2
"""

SETTINGS = r"""
$ settings set intRange.stdCoefficient 4
{"path":"intRange.stdCoefficient","value":4}
$ settings set intEqual.condition0.deltaEZero 0.5 --format text
intEqual.condition0.deltaEZero = 0.5
$ settings set -- intRange.lowerBoundMinValue -100
{"path":"intRange.lowerBoundMinValue","value":-100}
$ settings set .timeIntervalLimit 3600
{"path":".timeIntervalLimit","value":3600}
$ settings set KSTableCountLimit 7
{"path":"KSTableCountLimit","value":7}
$ settings set EnableKSFunction false
{"path":"EnableKSFunction","value":"false"}
$ settings get intEqual.condition0 --format text
intEqual.condition0.deltaEZero = 0.5
$ settings get KSRuleType
! keelstone settings get: KSRuleType is not stored
? 2
$ settings set intEqual.condition0 4
! keelstone settings set: there is no setting "intEqual.condition0"; there is intEqual.condition0.deltaEZero
? 2
$ settings set intRange.stdCoefficient 4.5
! keelstone settings set: intRange.stdCoefficient must be a whole number from 0 to 2147483647
? 2
$ settings set intRange.upperBoundMaxValue 99999999999
! keelstone settings set: intRange.upperBoundMaxValue must be a whole number from 0 to 2147483647
? 2
$ settings set strEnum.alertThreshold 0
! keelstone settings set: strEnum.alertThreshold must be a number above 0, at most 10000
? 2
$ settings set intEqual.condition1.deltaEZero 1.5
! keelstone settings set: intEqual.condition1.deltaEZero must be a number from 0 to 1
? 2
$ settings set -- KSStrRowCountLimit -5
! keelstone settings set: KSStrRowCountLimit must be a whole number from 0 to 2147483647
? 2
$ settings set KSInterfaceFilter '["Vlan"]'
! keelstone settings set: KSInterfaceFilter must be an object such as {"value":["Vlan","Loopback"]}
? 2
"""

BAD_RULES = [("intLEQ", '{"ruleParam":"80"}', '"ruleParam" must be a number'),
             ("intLEQ", '{"ruleParam":8,"x":1}', '"x" is no member'),
             ("strEnum", '{"ruleParam":[1]}', "an array of texts"),
             ("intRange", '{"minValue":2,"maxValue":1}', '"minValue" is above "maxValue"')]

# A document for `init --settings`, and what is said of it.
BAD_SETTINGS = [
    ({"intRange": {"stdCoefficient": "4"}}, "intRange.stdCoefficient must be a whole number"),
    ({"intRange": 4}, "intRange must be an object"),
    ({"": 4}, '"" must be an object'),
    ({"intEqual": {"condition0": 0.9}}, "intEqual.condition0 must be an object"),
    ({"intEqual": {"condition0": {"deltaEZero": 1.5}}}, "must be a number from 0 to 1"),
    ({"intRange.stdCoefficient": 4}, "each part of a path must be an object"),
    ({"KSTableCountLimit": 9}, "KSTableCountLimit is no general setting"),
    ({"strEqual": {"dataCountHistory": 20000}}, "a whole number from 1 to 10000")]

# A rule, its parameter, the values that the variable holds, its history's and its type code's.
FITTING = [
    ("intLEQ", '{"ruleParam":80}', 1, 1, {"ruleParam": 80}),
    ("intLEQ", '{"ruleParam":80.0}', 1, 1, {"ruleParam": 80}),
    ("intLEQ", '{"ruleParam":80}', 2, 1, {"ruleParam": 80.0}),
    ("intLEQ", '{"ruleParam":80}', 25, 1, {"ruleParam": 80.0}),
    ("intEnum", '{"ruleParam":[1,2.5]}', 2, 3, {"ruleParam": [1.0, 2.5]}),
    ("intEnum", '{"ruleParam":[1,2.5]}', None, 3, {"ruleParam": [1.0, 2.5]}),
    ("intLEQ", '{"ruleParam":80}', 2, 2, {"ruleParam": 80.0}),
    ("strEqual", '{"ruleParam":"x"}', 3, 1, {"ruleParam": "x"}),
    ("intLEQ", '{"ruleParam":80.5}', 1, 1, "the variable holds whole numbers, and 80.5 is none"),
    ("intEnum", '{"ruleParam":[1,2.5]}', None, 1, "whole numbers, and 2.5 is none"),
    ("intLEQ", '{"ruleParam":1e300}', 25, 1, "single-precision numbers, and 1e+300 is none"),
    ("intLEQ", '{"ruleParam":80}', 1, 3, "is one of real numbers, and the variable is defined"),
    ("intLEQ", '{"ruleParam":80}', 25, 3, "is one of real numbers, and the variable is defined"),
    ("intLEQ", '{"ruleParam":80}', 3, 1, "holds texts, and the rule judges whole numbers"),
    ("strEqual", '{"ruleParam":"x"}', None, 1, "holds whole numbers, and the rule judges texts"),
    ("intLEQ", '{"ruleParam":80}', 1, 9, "the stored history cannot be read")]

BAD_TIMES = [("yesterday", "nor seconds"), ("2026-02-29 08:00 Z", "a day"),
             ("2026-11-21", "lacks the time of day"), ("2026-11-21 24:00 Z", "no clock shows"),
             ("2026-11-21 08:00", "lacks its zone"), ("2026-11-21 08:00 Zulu", "after its zone"),
             ("9" * 20, "beyond 64 bits")]


class CommandsTest(ProgramCase):
    def setUp(self):
        super().setUp()
        self.write_runs("runs.jsonl", [(1700000000 + 3600 * i, 12) for i in range(1, 7)])
        self.write_runs("alert.jsonl", [(1700086400, 99)])
        self.write_runs("young.jsonl", [(1700003600, 7)], "r2")
        self.call("evaluate", "--enroll", "runs.jsonl")

    def write_runs(self, name, runs, device="r1"):
        self.write(name, "".join(json.dumps({
            "time": time, "device": device, "source": "bgp", "variables": [
                {"name": "peers", "value": peers},
                {"name": "state", "interface": "eth\x1b0", "value": "up"}]}) + "\n" for time, peers in runs))

    def refuses(self, *arguments, says):
        self.assertIn(says, self.call(*arguments, code=2)[1])

    def play(self, transcript):
        actual = ""
        for line in transcript.strip().splitlines():
            if not line.startswith("$ "):
                continue
            begun = self.process(*shlex.split(line[2:]), text=True, stdout=subprocess.PIPE,
                                 stderr=subprocess.PIPE)
            output, errors = begun.communicate(timeout=60)
            actual += line + "\n" + output
            actual += "".join("! " + error + "\n"
                              for error in errors.replace(str(self.root), "ROOT").splitlines())
            actual += "? %d\n" % begun.returncode if begun.returncode else ""
        self.assertEqual(actual, transcript.strip() + "\n")

    def test_transcripts(self):
        for transcript in (LISTED, RULE_SET, BLOCKS, SETTINGS, SHOW):
            with self.subTest(transcript.splitlines()[1]):
                self.doCleanups()
                self.setUp()
                self.play(transcript)

    def test_bad_rules_and_times_change_nothing(self):
        for kind, parameter, why in BAD_RULES:
            self.refuses("rule", "set", *OPTIONS.split(), "--type", kind, "--parameter", parameter, says=why)
        for time, why in BAD_TIMES:
            self.refuses("block", "add", "--device", "r1", "--from", time, "--to", "9", says=why)
        self.play(LISTED)
        self.assertEqual(self.call("block", "list")[0], "")

    def test_settings_of_a_new_domain_are_checked(self):
        for document, why in BAD_SETTINGS:
            self.write("bad.json", json.dumps(document))
            self.refuses("init", "--domain", "bad", "--settings", "bad.json", says="bad.json: ")
            self.refuses("init", "--domain", "bad", "--settings", "bad.json", says=why)
        self.assertFalse(self.database(RULES, "bad").parent.exists())

    def test_a_rule_suits_the_values_of_its_variable(self):
        for kind, parameter, code, history, answer in FITTING:
            with self.subTest(kind=kind, parameter=parameter, code=code, history=history):
                value = "7" if history == 1 else "7.5"
                text = '{"dataType":%d,"dataList":[{"liveTime":1700000000,"dataValue":%s}]}' % (
                    history, value)
                self.ask(RULES, "delete from KSObjectRule")
                self.ask(HISTORIES, "update KSObjectHistory set HistoryData = ? where "
                         "variableName = 'peers'", (text,))
                self.ask(VARIABLES, "update KSVariableRule set data = json_set(data, "
                         "'$.variableName', ?, '$.variableDataType', ?) where id = 1",
                         ("peers" if code else "other", code or 1))
                isRefused = isinstance(answer, str)
                _, errors = self.call("rule", "set", *OPTIONS.split(), "--type", kind, "--parameter",
                                      parameter, code=2 if isRefused else 0)
                stored = self.ask(RULES, "select ruleAlgParameter from KSObjectRule")
                [[kept]] = self.ask(HISTORIES, "select HistoryData from KSObjectHistory where "
                                    "variableName = 'peers'")
                if isRefused:
                    self.assertEqual((stored, kept), ([], text))
                    self.assertIn(answer, errors)
                    continue
                self.assertEqual(repr(json.loads(stored[0][0])), repr(answer))
                if code in (2, 25) and history < 3:
                    self.assertEqual(json.loads(kept)["dataType"], 3 if code == 2 else 2)
                    self.assertIn('"dataValue":7.' + ("0" if history == 1 else "5"), kept)
                else:
                    self.assertEqual(kept, text)

    def test_report_says_why_it_finds_no_domain(self):
        def few_files():
            resource.setrlimit(resource.RLIMIT_NOFILE, (6, 6))

        def nobody():
            if os.geteuid() == 0:
                os.setuid(65534)

        data = self.root / "data"
        self.folder.chmod(0o755)
        data.chmod(0o700 if os.geteuid() == 0 else 0)
        self.addCleanup(data.chmod, 0o700)
        for limit, why in [(few_files, "Too many open files"), (nobody, "Permission denied")]:
            _, said = self.call("report", "--output", "-", preexec_fn=limit, code=2)
            self.assertIn(why, said)
            self.assertNotIn("there is no domain", said)

    def test_blocks_reach_the_next_evaluation(self):
        self.call("block", "add", "--device", "r1", "--from", "now", "--to", "99999999999")
        run = json.loads(self.call("evaluate", "--all", "alert.jsonl")[0])
        self.assertEqual((run["blocked"], run["variables"]), (True, 2))

    def test_many_rules_come_in_order_page_by_page(self):
        keys = sorted(("d%d" % (i % 7), "v%d" % i) for i in range(1001))
        with sqlite3.connect(self.database(RULES)) as rules:
            rules.executemany("insert into KSObjectRule values "
                              "(?, '', 's', '', ?, 2, 1, '', '', 0, 4, '', 0, 0)", keys)
        rules.close()
        rows = map(json.loads, self.call("rules", "--source", "s")[0].splitlines())
        self.assertEqual([(row["device"], row["variable"]) for row in rows], keys)

    def test_commands_explain_themselves(self):
        for command in ("evaluate", "report", "merge", "clean", "rules", "show", "rule set",
                        "rule unset", "block list", "block add", "block remove", "settings get",
                        "settings set"):
            output, errors = self.call(*command.split(), "--help")
            self.assertEqual(errors, "")
            self.assertIn("Examples:\n  keelstone " + command, output)
            self.assertIn("Exit codes:", output)
            group = self.call(command.split()[0], "--help")[0]
            self.assertIn("Examples:\n  keelstone " + command.split()[0], group)


if __name__ == "__main__":
    unittest.main()
