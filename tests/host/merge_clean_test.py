"""The commands merge and clean from outside: what they print, answer and leave on disk.

Usage: merge_clean_test.py PROGRAM
"""
import json
import os
import pathlib
import sqlite3
import subprocess
import sys
import tempfile
import unittest

PROGRAM = sys.argv.pop(1)
RULES, HISTORIES = "KSObjectRule", "KSObjectHistory"


def runs(source, count, start=1700000000, **values):
    """A device's runs, one an hour, each with the same values."""
    variables = [{"name": name, "interface": "e0", "value": value}
                 for name, value in values.items()]
    return "".join(json.dumps({"time": start + 3600 * number, "device": "r1", "source": source,
                               "variables": variables}) + "\n" for number in range(count))


class MergeCleanTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def path(self, *parts):
        return os.path.join(self.folder, *parts)

    def database(self, root, name):
        return self.path(root, "data", "FSParserData", "default", name + ".db")

    def query(self, root, name, sql):
        connection = sqlite3.connect(self.database(root, name))
        try:
            with connection:
                return connection.execute(sql).fetchall()
        finally:
            connection.close()

    def sources(self, root, table):
        return {row[0] for row in
                self.query(root, table, "select variableSource from " + table)}

    def contents(self, root):
        return {file: file.read_bytes() for file in pathlib.Path(self.path(root)).rglob("*.db*")}

    def call(self, root, *arguments, input="", code=0):
        done = subprocess.run([PROGRAM, arguments[0], "--root", self.path(root), *arguments[1:]],
                              input=input, capture_output=True, text=True, timeout=300)
        self.assertEqual(done.returncode, code, done.stderr)
        self.assertEqual(code == 0, bool(done.stdout), done.stdout)
        return done.stdout if code == 0 else done.stderr

    def learn(self, root="hub", *sources):
        lines = "".join(runs(source, 30, state="up", peers=5) for source in sources)
        self.call(root, "evaluate", "--enroll", input=lines)

    def refuses(self, root, *arguments, says, code=2):
        before = self.contents(root)
        self.assertIn(says, self.call(root, *arguments, code=code))
        self.assertEqual(self.contents(root), before)

    # merge

    def test_a_domain_learned_elsewhere_carries_on(self):
        self.learn("hub", "bgp")
        self.learn("site", "ospf")
        own = self.query("site", RULES, "select * from KSObjectRule order by 5")
        histories = self.query("site", HISTORIES, "select * from KSObjectHistory order by 5")
        probe = runs("bgp", 1, start=1700500000, state="down", peers=5)
        self.assertEqual(json.loads(self.call("site", "evaluate", input=probe))["rejected"],
                         ["state", "peers"])

        variables, rules = self.database("hub", "KSVariableRule"), self.database("hub", RULES)
        out = self.call("site", "merge", "--type", "variable-rule", "--format", "json", variables)
        self.assertEqual(json.loads(out), {"domain": "default", "type": "variable-rule",
                                           "from": variables, "rows": 2,
                                           "to": self.database("site", "KSVariableRule")})
        out = self.call("site", "merge", "--type", "object-rule", "--format", "text", rules)
        self.assertEqual(out, "merged 2 rows of %s into %s\n" %
                         (rules, self.database("site", RULES)))
        self.assertEqual(self.query("site", RULES, "select * from KSObjectRule where "
                                    "variableSource = 'ospf' order by 5"), own)
        self.assertEqual(self.query("site", HISTORIES,
                                    "select * from KSObjectHistory order by 5"), histories)

        found = json.loads(self.call("site", "evaluate", input=probe))
        self.assertEqual(found["rejected"], [])
        self.assertEqual([(alert["SourcePath"], alert["VaraibleName"], alert["InterfaceValue"])
                          for alert in found["result"]["alertItems"]], [("bgp", "state", "e0")])

    def test_a_delivered_rule_takes_the_place_of_the_own(self):
        self.learn("hub", "bgp")
        self.learn("site", "bgp")
        self.query("hub", RULES, "update KSObjectRule set ruleAlgParameter = '{\"ruleParam\":7}' "
                   "where variableName = 'peers'")
        self.call("site", "merge", "--type", "object-rule", self.database("hub", RULES))
        self.assertEqual(self.query("site", RULES, "select variableName, ruleAlgParameter from "
                                    "KSObjectRule order by 1"),
                         [("peers", '{"ruleParam":7}'), ("state", '{"ruleParam":"up"}')])

    def test_settings_are_replaced_as_a_whole(self):
        self.call("hub", "init")
        self.call("site", "init")
        with sqlite3.connect(self.database("hub", "KSInterfaceType")) as names:
            names.execute("create table KSInterfaceType (id integer primary key, data text)")
        names.close()
        for kind, name in [("global-setting", "KSGlobalSetting"),
                           ("block-setting", "KSBlockSetting"),
                           ("interface-type", "KSInterfaceType")]:
            self.query("hub", name, "insert into %s (data) values ('{\"name\":\"x\"}')" % name)
            everything = "select * from %s order by id" % name
            self.call("site", "merge", "--type", kind, self.database("hub", name))
            self.assertEqual(self.query("site", name, everything),
                             self.query("hub", name, everything))
        # Also one that was damaged.
        pathlib.Path(self.database("site", "KSBlockSetting")).write_bytes(b"no database" * 100)
        self.call("site", "merge", "--type", "block-setting",
                  self.database("hub", "KSBlockSetting"))
        self.assertEqual(self.query("site", "KSBlockSetting", "select data from KSBlockSetting"),
                         [('{"name":"x"}',)])

    def test_what_cannot_be_merged_changes_nothing(self):
        self.learn("hub", "bgp")
        self.call("site", "init")
        own, rules = self.database("site", RULES), self.database("hub", RULES)
        text = self.path("text")
        pathlib.Path(text).write_text("no database " * 100)
        for source, says in [(own, "own database"), (text, "not a database"),
                             (self.folder, "is no file"), (self.path("none"), "No such file"),
                             (self.database("hub", HISTORIES), "no table KSObjectRule")]:
            self.refuses("site", "merge", "--type", "object-rule", source, says=says)
        self.refuses("site", "merge", "--type", "rules", rules, says="--type")
        self.refuses("site", "merge", rules, says="--type")
        self.refuses("site", "merge", "--type", "object-rule", says="FROM")
        self.refuses("site", "merge", "--domain", "other", "--type", "object-rule", rules,
                     says="keelstone init")
        self.assertFalse(os.path.exists(self.path("site", "data", "FSParserData", "other")))
        self.refuses("nowhere", "merge", "--type", "object-rule", rules, says="keelstone init")
        self.assertFalse(os.path.exists(self.path("nowhere")))

    def test_a_merge_that_fails_half_way_is_taken_back(self):
        self.learn("hub", "bgp")
        self.call("site", "init")
        [[sql]] = self.query("site", RULES, "select sql from sqlite_master where type = 'table'")
        self.query("site", RULES, "drop table KSObjectRule")
        self.query("site", RULES, sql[:-1] + ", constraint no check (variableName <> 'state'))")
        said = self.call("site", "merge", "--type", "object-rule", self.database("hub", RULES),
                         code=3)
        self.assertIn("keelstone.log", said)
        self.assertEqual(self.query("site", RULES, "select * from KSObjectRule"), [])
        self.assertIn("no", pathlib.Path(self.path("site", "log", "keelstone.log")).read_text())

    # clean

    def test_sources_that_are_gone_are_removed(self):
        self.learn("hub", "bgp", "ospf", "lldp")
        self.call("hub", "evaluate", "--all", "--enroll", input=runs("young", 1, mtu=1500))
        self.assertEqual(self.sources("hub", HISTORIES), {"bgp", "lldp", "ospf", "young"})
        self.assertNotIn("young", self.sources("hub", RULES))
        before = self.contents("hub")
        out = self.call("hub", "clean", "--keep", "bgp", "lldp", "--dry-run", "--format", "text")
        self.assertEqual(out, "would remove ospf: 2 rules, 2 histories\n"
                              "would remove young: 0 rules, 1 history\n")
        self.assertEqual(self.contents("hub"), before)

        names = self.path("names")
        pathlib.Path(names).write_bytes(b"\xef\xbb\xbfbgp\r\n\r\n")
        gone = [{"source": "ospf", "rules": 2, "histories": 2},
                {"source": "young", "rules": 0, "histories": 1}]
        for removed in [gone, []]:
            out = self.call("hub", "clean", "--keep", "lldp", "--keep-file", names)
            self.assertEqual(json.loads(out),
                             {"domain": "default", "dryRun": False, "removed": removed})
        for table in [RULES, HISTORIES]:
            self.assertEqual(self.sources("hub", table), {"bgp", "lldp"})
        out = self.call("hub", "clean", "--keep-file", "-", "--format", "text", input="bgp")
        self.assertEqual(out, "removed lldp: 2 rules, 2 histories\n")
        out = self.call("hub", "clean", "--keep", "bgp", "--format", "text")
        self.assertEqual(out, "nothing to remove\n")

    def test_lists_and_domains_that_cannot_be_used(self):
        self.learn("hub", "bgp")
        for arguments in [[], ["--keep", ""], ["--keep-file", os.devnull]]:
            self.refuses("hub", "clean", *arguments, says="no source to keep")
        for file in [self.path("none"), self.folder]:
            self.refuses("hub", "clean", "--keep", "x", "--keep-file", file, says=file)
        self.refuses("hub", "clean", "--keep", "x", "--domain", "other", says="other")
        pathlib.Path(self.database("hub", HISTORIES)).write_bytes(b"no database " * 100)
        self.refuses("hub", "clean", "--keep", "x", says="KSObjectHistory.db")

    def test_a_removal_that_fails_is_told(self):
        self.learn("hub", "bgp")
        conf = pathlib.Path(self.path("hub", "conf"))
        conf.mkdir(exist_ok=True)
        (conf / "fix_frontserver.ini").write_text("[Keelstone]\nBusyTimeout=50\n")
        other = sqlite3.connect(self.database("hub", HISTORIES))
        other.execute("begin immediate")
        self.assertIn("keelstone.log", self.call("hub", "clean", "--keep", "x", code=3))
        other.close()

    def test_help_shows_examples(self):
        for command in ["merge", "clean"]:
            done = subprocess.run([PROGRAM, command, "--help"], capture_output=True, text=True)
            self.assertEqual((done.returncode, done.stderr), (0, ""))
            self.assertIn("Examples:\n  keelstone " + command, done.stdout)
            self.assertIn("Exit codes:", done.stdout)


if __name__ == "__main__":
    unittest.main()
