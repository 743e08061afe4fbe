"""The commands merge and clean from outside: what they print, answer and leave on disk."""
import json
import os
import pty
import shutil
import sqlite3
import subprocess
import unittest

from host import HISTORIES, RULES, VARIABLES, ProgramCase


def runs(source, count, start=1700000000, **values):
    """A device's runs, one an hour, each with the same values."""
    variables = [{"name": name, "interface": "e0", "value": value}
                 for name, value in values.items()]
    return "".join(json.dumps({"time": start + 3600 * number, "device": "r1", "source": source,
                               "variables": variables}) + "\n" for number in range(count))


class MergeCleanTest(ProgramCase):
    def at(self, root):
        """The test itself, on this root folder from now on."""
        self.root = self.folder / root
        return self

    def sources(self, table):
        return {row[0] for row in self.ask(table, "select variableSource from " + table)}

    def contents(self):
        return {file: file.read_bytes() for file in self.root.rglob("*.db*")}

    def learn(self, *sources):
        lines = "".join(runs(source, 30, state="up", peers=5) for source in sources)
        self.evaluate("--enroll", input=lines)

    def refuses(self, *arguments, says):
        before = self.contents()
        out, said = self.call(*arguments, code=2)
        self.assertIn(says, said)
        self.assertEqual((out, self.contents()), ("", before))

    # merge

    def test_a_domain_learned_elsewhere_carries_on(self):
        self.at("hub").learn("bgp")
        variables, rules = self.database(VARIABLES), self.database(RULES)
        self.at("site").learn("ospf")
        own = self.ask(RULES, "select * from KSObjectRule order by 5")
        histories = self.ask(HISTORIES, "select * from KSObjectHistory order by 5")
        probe = runs("bgp", 1, start=1700500000, state="down", peers=5)
        self.assertEqual(self.results(input=probe)[0]["rejected"], ["state", "peers"])

        out, _ = self.call("merge", "--type", "variable-rule", "--format", "json", variables)
        self.assertEqual(json.loads(out), {"domain": "default", "type": "variable-rule",
                                           "from": str(variables), "rows": 2,
                                           "to": str(self.database(VARIABLES))})
        out, _ = self.call("merge", "--type", "object-rule", "--format", "text", rules)
        self.assertEqual(out, "merged 2 rows of %s into %s\n" % (rules, self.database(RULES)))
        self.assertEqual(self.ask(RULES, "select * from KSObjectRule where "
                                  "variableSource = 'ospf' order by 5"), own)
        self.assertEqual(self.ask(HISTORIES, "select * from KSObjectHistory order by 5"), histories)

        [found] = self.results(input=probe)
        self.assertEqual(found["rejected"], [])
        self.assertEqual([(alert["SourcePath"], alert["VaraibleName"], alert["InterfaceValue"])
                          for alert in found["result"]["alertItems"]], [("bgp", "state", "e0")])

    def test_what_cannot_be_merged_changes_nothing(self):
        self.at("hub").learn("bgp")
        rules = self.database(RULES)
        self.refuses("merge", "--type", "object-rule", rules, says="own database")
        for options in [["--domain", "other"], ["--root", "nowhere"]]:
            self.refuses("merge", *options, "--type", "object-rule", rules, says="keelstone init")
        self.assertFalse(self.database(RULES, "other").parent.exists())
        self.assertFalse((self.folder / "nowhere").exists())

    def test_a_delivered_file_is_only_read(self):
        self.call("init")
        self.call("init", "--domain", "hub")
        source, file = self.folder / "delivered", self.folder / "delivered/rules.db"
        log = self.folder / "writer.db"
        for kind, left in [("variable-rule", False), ("object-rule", False), ("object-rule", True)]:
            table = VARIABLES if kind == "variable-rule" else RULES
            shutil.rmtree(source, ignore_errors=True)
            source.mkdir()
            writer = sqlite3.connect(log)
            writer.execute("pragma journal_mode=wal")
            writer.execute("attach ? as hub", (str(self.database(table, "hub")),))
            writer.execute("create table %s as select * from hub.%s" % (table, table))
            writer.commit()
            if left:  # as a writer leaves it that was killed
                for suffix in ["", "-wal"]:
                    shutil.copy(f"{log}{suffix}", f"{file}{suffix}")
            writer.close()
            if not left:
                shutil.copy(log, file)
            log.unlink()
            before = {path: path.read_bytes() for path in source.iterdir()}
            self.assertEqual(len(before), 2 if left else 1)
            mounted = subprocess.run(["mount", "--bind", "-o", "ro", source, source],
                                     capture_output=True).returncode == 0
            try:
                self.call("merge", "--type", kind, file)
            finally:
                if mounted:
                    subprocess.run(["umount", source], check=True)
            self.call("merge", "--type", kind, file)
            self.assertEqual({path: path.read_bytes() for path in source.iterdir()}, before)

    # clean

    def test_sources_that_are_gone_are_removed(self):
        # Names that SQL could take for something else are names like all others.
        odd = ["oid", "param", 'quo"te', "it's"]
        self.learn("bgp", "ospf", "lldp", "isis", "mpls", *odd)
        self.evaluate("--all", "--enroll", input=runs("young", 1, mtu=1500))
        self.assertNotIn("young", self.sources(RULES))
        kept = ["isis", "lldp", "mpls", "bgp"]
        before = self.contents()
        out, _ = self.call("clean", "--keep", *kept[:3], *odd, "--dry-run", "--format", "text")
        self.assertEqual(out.splitlines()[:4], [
            "would remove bgp: 2 rules, 2 histories", "would remove ospf: 2 rules, 2 histories",
            "would remove young: 0 rules, 1 history", "would keep isis: 2 rules, 2 histories"])
        self.assertEqual(self.contents(), before)

        names = self.write("names", b"\xef\xbb\xbfbgp\r\n\r\n")
        gone = [{"source": source, "rules": 2, "histories": 2} for source in
                sorted([*odd, "ospf"])] + [{"source": "young", "rules": 0, "histories": 1}]
        stays = [{"source": source, "rules": 2, "histories": 2} for source in sorted(kept)]
        for removed in [gone, []]:
            out, _ = self.call("clean", "--yes", "--keep", *kept[:3], "--keep-file", names)
            self.assertEqual(json.loads(out), {"domain": "default", "dryRun": False,
                                               "removed": removed, "kept": stays})
        for table in [RULES, HISTORIES]:
            self.assertEqual(self.sources(table), set(kept))
        out, _ = self.call("clean", "--keep-file", "-", "--format", "text", input="bgp\nlldp\nmpls")
        self.assertEqual(out.splitlines()[0], "removed isis: 2 rules, 2 histories")

    def test_a_slip_removes_nothing(self):
        self.learn("bgp", "ospf", "lldp")
        for arguments in [["--keep", ""], ["--keep-file", os.devnull]]:
            self.refuses("clean", *arguments, says="no source to keep")
        for text, says in [("BGP\nospf_\n", '"BGP", "ospf_"; known: "bgp", "lldp", "ospf"'),
                           ("bgp,ospf\n", "commas do not separate"), ("", "names no source"),
                           ("bgp\nospf\n".encode("utf-16"), "UTF-16"),
                           ("bgp\nospf\n".encode("utf-16-be"), "UTF-16")]:
            names = self.write("names", text)
            self.refuses("clean", "--yes", "--keep", "bgp", "--keep-file", names, says=says)
        self.refuses("clean", "--yes", "--keep", "bgp,ospf", says="commas")
        self.refuses("clean", "--keep", "x", "--domain", "other", says="other")
        self.refuses("clean", "--keep", "bgp", says='2 sources of 3 would go: "lldp", "ospf"')
        for answer, code, left in [(b"n\n", 2, 3), (b"y\n", 0, 1)]:
            terminal, own = pty.openpty()
            os.write(terminal, answer)
            done = self.process("clean", "--keep", "bgp", stdin=own, stderr=own,
                                stdout=subprocess.DEVNULL)
            self.assertEqual(done.wait(60), code)
            os.close(own)
            self.assertIn(b"Remove 2 sources of 3", os.read(terminal, 4096))
            os.close(terminal)
            self.assertEqual(len(self.sources(RULES)), left)
        self.database(HISTORIES).write_bytes(b"no database " * 100)
        self.refuses("clean", "--keep", "x", says="KSObjectHistory.db")

    def test_a_removal_that_fails_is_told(self):
        self.learn("bgp", "ospf")
        (self.root / "conf").mkdir(exist_ok=True)
        (self.root / "conf/fix_frontserver.ini").write_text("[Keelstone]\nBusyTimeout=50\n")
        for database, rules in [(RULES, 2), (HISTORIES, 1)]:
            other = sqlite3.connect(self.database(database))
            other.execute("begin immediate")
            _, said = self.call("clean", "--keep", "bgp", code=3)
            self.assertIn(str(self.database(database)), said)
            self.assertIn("database is locked", said)
            other.close()
            # Histories never go before the rules that are learned from them.
            self.assertEqual(len(self.sources(RULES)), rules)
            self.assertEqual(len(self.sources(HISTORIES)), 2)

    def test_an_output_that_is_full_is_told(self):
        self.at("hub").learn("bgp", "ospf")
        variables = self.database(VARIABLES)
        self.at("site").learn("bgp", "ospf")
        for command, says in [(["init"], ""), (["rules"], ""),
                              (["clean", "--keep", "bgp"], "1 source was removed"),
                              (["merge", "--type", "variable-rule", variables],
                               "merged all the same")]:
            with open("/dev/full", "w") as full:
                _, said = self.call(*command, stdout=full, code=3)
            self.assertIn("standard output: No space left on device", said)
            self.assertIn(says, said)


if __name__ == "__main__":
    unittest.main()
