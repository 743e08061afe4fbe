"""The commands merge and clean from outside: what they print, answer and leave on disk.

Usage: merge_clean_test.py PROGRAM
"""
import json
import os
import pathlib
import pty
import shutil
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
        self.assertIn(self.database("site", RULES), said)
        self.assertIn("CHECK constraint failed", said)
        self.assertEqual(self.query("site", RULES, "select * from KSObjectRule"), [])
        self.assertIn("no", pathlib.Path(self.path("site", "log", "keelstone.log")).read_text())

    def test_a_delivered_file_is_only_read(self):
        self.call("hub", "init")
        self.call("site", "init")
        source = self.path("delivered")
        file = os.path.join(source, "rules.db")
        for kind, left in [("variable-rule", False), ("object-rule", False), ("object-rule", True)]:
            table = "KSVariableRule" if kind == "variable-rule" else RULES
            shutil.rmtree(source, ignore_errors=True)
            os.mkdir(source)
            writer = sqlite3.connect(self.path("writer.db"))
            writer.execute("pragma journal_mode=wal")
            writer.execute("attach ? as hub", (self.database("hub", table),))
            writer.execute("create table %s as select * from hub.%s" % (table, table))
            writer.commit()
            if left:  # as a writer leaves it that was killed
                for suffix in ["", "-wal"]:
                    shutil.copy(self.path("writer.db" + suffix), file + suffix)
            writer.close()
            if not left:
                shutil.copy(self.path("writer.db"), file)
            os.remove(self.path("writer.db"))
            before = {path.name: path.read_bytes() for path in pathlib.Path(source).iterdir()}
            self.assertEqual(len(before), 2 if left else 1)
            mounted = subprocess.run(["mount", "--bind", "-o", "ro", source, source],
                                     capture_output=True).returncode == 0
            try:
                self.call("site", "merge", "--type", kind, file)
            finally:
                if mounted:
                    subprocess.run(["umount", source], check=True)
            self.call("site", "merge", "--type", kind, file)
            self.assertEqual({path.name: path.read_bytes()
                              for path in pathlib.Path(source).iterdir()}, before)

    # clean

    def test_sources_that_are_gone_are_removed(self):
        # Names that SQL could take for something else are names like all others.
        odd = ["oid", "param", 'quo"te', "it's"]
        self.learn("hub", "bgp", "ospf", "lldp", "isis", "mpls", *odd)
        self.call("hub", "evaluate", "--all", "--enroll", input=runs("young", 1, mtu=1500))
        self.assertNotIn("young", self.sources("hub", RULES))
        kept = ["isis", "lldp", "mpls", "bgp"]
        before = self.contents("hub")
        out = self.call("hub", "clean", "--keep", *kept[:3], *odd, "--dry-run", "--format", "text")
        self.assertEqual(out.splitlines()[:4], [
            "would remove bgp: 2 rules, 2 histories", "would remove ospf: 2 rules, 2 histories",
            "would remove young: 0 rules, 1 history", "would keep isis: 2 rules, 2 histories"])
        self.assertEqual(self.contents("hub"), before)

        names = self.path("names")
        pathlib.Path(names).write_bytes(b"\xef\xbb\xbfbgp\r\n\r\n")
        gone = [{"source": source, "rules": 2, "histories": 2} for source in
                sorted([*odd, "ospf"])] + [{"source": "young", "rules": 0, "histories": 1}]
        stays = [{"source": source, "rules": 2, "histories": 2} for source in sorted(kept)]
        for removed in [gone, []]:
            out = self.call("hub", "clean", "--yes", "--keep", *kept[:3], "--keep-file", names)
            self.assertEqual(json.loads(out), {"domain": "default", "dryRun": False,
                                               "removed": removed, "kept": stays})
        for table in [RULES, HISTORIES]:
            self.assertEqual(self.sources("hub", table), set(kept))
        out = self.call("hub", "clean", "--keep-file", "-", "--format", "text",
                        input="bgp\nlldp\nmpls")
        self.assertEqual(out.splitlines()[0], "removed isis: 2 rules, 2 histories")

    def test_a_slip_removes_nothing(self):
        self.learn("hub", "bgp", "ospf", "lldp")
        for arguments in [[], ["--keep", ""], ["--keep-file", os.devnull]]:
            self.refuses("hub", "clean", *arguments, says="no source to keep")
        for file in [self.path("none"), self.folder]:
            self.refuses("hub", "clean", "--keep", "bgp", "--keep-file", file, says=file)
        names = self.path("names")
        for text, says in [("BGP\nospf_\n", '"BGP", "ospf_"; known: "bgp", "lldp", "ospf"'),
                           ("bgp,ospf\n", "commas do not separate"), ("", "names no source"),
                           ("bgp\nospf\n".encode("utf-16"), "UTF-16"),
                           ("bgp\nospf\n".encode("utf-16-be"), "UTF-16")]:
            pathlib.Path(names).write_bytes(text if isinstance(text, bytes) else text.encode())
            self.refuses("hub", "clean", "--yes", "--keep", "bgp", "--keep-file", names, says=says)
        self.refuses("hub", "clean", "--yes", "--keep", "bgp,ospf", says="commas")
        self.refuses("hub", "clean", "--keep", "x", "--domain", "other", says="other")
        self.refuses("hub", "clean", "--keep", "bgp", says='2 sources of 3 would go: "lldp", "ospf"')
        for answer, code, left in [(b"n\n", 2, 3), (b"y\n", 0, 1)]:
            terminal, own = pty.openpty()
            os.write(terminal, answer)
            done = subprocess.run([PROGRAM, "clean", "--root", self.path("hub"), "--keep", "bgp"],
                                  stdin=own, stderr=own, stdout=subprocess.DEVNULL, timeout=60)
            os.close(own)
            self.assertIn(b"Remove 2 sources of 3", os.read(terminal, 4096))
            os.close(terminal)
            self.assertEqual(done.returncode, code)
            self.assertEqual(len(self.sources("hub", RULES)), left)
        pathlib.Path(self.database("hub", HISTORIES)).write_bytes(b"no database " * 100)
        self.refuses("hub", "clean", "--keep", "x", says="KSObjectHistory.db")

    def test_a_removal_that_fails_is_told(self):
        self.learn("hub", "bgp", "ospf")
        conf = pathlib.Path(self.path("hub", "conf"))
        conf.mkdir(exist_ok=True)
        (conf / "fix_frontserver.ini").write_text("[Keelstone]\nBusyTimeout=50\n")
        for database, rules in [(RULES, 2), (HISTORIES, 1)]:
            other = sqlite3.connect(self.database("hub", database))
            other.execute("begin immediate")
            said = self.call("hub", "clean", "--keep", "bgp", code=3)
            self.assertIn(self.database("hub", database), said)
            self.assertIn("database is locked", said)
            other.close()
            # Histories never go before the rules that are learned from them.
            self.assertEqual(len(self.sources("hub", RULES)), rules)
            self.assertEqual(len(self.sources("hub", HISTORIES)), 2)

    def test_an_output_that_is_full_is_told(self):
        self.learn("hub", "bgp", "ospf")
        for command, says in [(["init"], ""), (["clean", "--keep", "bgp"], "1 source was removed"),
                              (["merge", "--type", "variable-rule",
                                self.database("hub", "KSVariableRule")], "merged all the same")]:
            root = self.path("site" if command[0] == "merge" else "hub")
            with open("/dev/full", "w") as full:
                done = subprocess.run([PROGRAM, *command, "--root", root], stdout=full,
                                      stderr=subprocess.PIPE, text=True, timeout=60)
            self.assertEqual(done.returncode, 3, done.stderr)
            self.assertIn("standard output: No space left on device", done.stderr)
            self.assertIn(says, done.stderr)
            self.call("site", "init")

    def test_help_shows_examples(self):
        for command in ["merge", "clean"]:
            done = subprocess.run([PROGRAM, command, "--help"], capture_output=True, text=True)
            self.assertEqual((done.returncode, done.stderr), (0, ""))
            self.assertIn("Examples:\n  keelstone " + command, done.stdout)
            self.assertIn("Exit codes:", done.stdout)


if __name__ == "__main__":
    unittest.main()
