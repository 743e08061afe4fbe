"""The program and its files: databases that cannot be used, rights, names, a full disk."""
import contextlib
import itertools
import json
import os
import pathlib
import re
import shutil
import sqlite3
import stat
import subprocess
import threading
import time
import unittest

from host import DATABASES, HISTORIES, RULES, ProgramCase

VARIABLE = ["--device", "r1", "--source", "s", "--variable", "v0"]
RULE_SET = ["rule", "set", *VARIABLE, "--type", "strEqual", "--parameter", '{"ruleParam":"x"}']
BLOCK_ADD = ["block", "add", "--device", "r1", "--from", "1", "--to", "2"]
SETTING = ["settings", "set", "KSTableCountLimit", "7"]


def runs(count, domain="default", start=0, variables=3):
    """A device's runs, one an hour."""
    return "".join(json.dumps({
        "time": 1700000000 + 3600 * number, "device": "r1", "source": "s", "domain": domain,
        "variables": [{"name": "v%d" % i, "value": "%d" % (number % 2) + "x" * 40}
                      for i in range(variables)]}) + "\n"
        for number in range(start, start + count))


def garbage(path):
    path.write_bytes(b"this is no database, however long it is. " * 200)


def cut(path):
    with sqlite3.connect(path) as connection:
        connection.execute("create table more as with recursive n(i) as (select 1 union all "
                           "select i + 1 from n where i < 2000) select i, hex(i) from n")
    connection.close()
    os.truncate(path, path.stat().st_size // 2)


def change(sql):
    def changed(path):
        connection = sqlite3.connect(path)
        connection.execute(sql.replace("TABLE", path.stem))
        connection.close()
    return changed


def instead(make):
    def made(path):
        path.unlink()
        make(path)
    return made


FAULTS = {
    "garbage": (garbage, "file is not a database"),
    "cut off": (cut, "malformed"),
    "a folder": (instead(os.mkdir), "it is a folder"),
    "a pipe": (instead(os.mkfifo), "it is no plain file"),
    "a circle of links": (instead(lambda path: path.symlink_to(path)), "symbolic links"),
    "of a newer layout": (change("pragma user_version = 2"),
                          "its version 2 is newer than 1, the newest that is known here"),
    "of another shape": (change("alter table TABLE rename to old"), ""),
}


class SafeFilesTest(ProgramCase):
    def configure(self, text):
        (self.root / "conf").mkdir(parents=True, exist_ok=True)
        (self.root / "conf" / "fix_frontserver.ini").write_text("[Keelstone]\n" + text)

    def others(self, path):
        """What the other databases of the domain hold."""
        return {file: file.read_bytes() for file in path.parent.glob("*.db") if file != path}

    # Databases that cannot be used

    def test_a_domain_that_cannot_be_used_leaves_the_others_working(self):
        for number, ((name, (spoil, reason)), database) in enumerate(
                itertools.product(FAULTS.items(), DATABASES)):
            with self.subTest(database + " is " + name):
                self.evaluate("--enroll", input=runs(6, "bad%d" % number))
                path = self.database(database, "bad%d" % number)
                spoil(path)
                kept = self.others(path)
                mixed = "".join(a + b for a, b in zip(
                    runs(3, "good%d" % number).splitlines(True),
                    runs(3, "bad%d" % number, start=100).splitlines(True)))
                if name == "of another shape":
                    change("create table TABLE (id INTEGER PRIMARY KEY, other TEXT)")(path)
                    reason = "no such column"
                out, said = self.evaluate("--enroll", "--all", input=mixed, code=3)
                found = map(json.loads, out.splitlines())
                self.assertEqual([len(run["rejected"]) for run in found], [0, 3] * 3)
                self.assertEqual(self.others(path), kept)  # nothing is learned over
                self.assertIn("<stdin>:2: domain", said)
                self.assertIn(str(path), said)
                self.assertIn(reason, said)
                stored = self.ask(self.database(HISTORIES, "good%d" % number),
                                  "select count(*) from KSObjectHistory")
                self.assertEqual(stored, [(3,)])
                # Alone it is as if nothing could be used.
                _, said = self.evaluate("--domain", "bad%d" % number, code=2,
                                        input=runs(1, "bad%d" % number))
                self.assertIn(str(path), said)

    def test_every_command_names_the_file_and_the_reason(self):
        self.evaluate("--enroll", input=runs(2))
        commands = [
            (RULES, ["rules"]), (RULES, ["clean", "--keep", "t"]), (RULES, RULE_SET),
            (HISTORIES, ["rule", "unset", *VARIABLE]), ("KSGlobalSetting", ["settings", "get"]),
            ("KSGlobalSetting", ["init"]), ("KSGlobalSetting", SETTING),
            ("KSBlockSetting", ["block", "list"]), ("KSBlockSetting", ["block", "remove", "1"]),
            ("KSBlockSetting", BLOCK_ADD)]
        for name, (database, command) in itertools.product(
                ["garbage", "a pipe", "of a newer layout"], commands):
            with self.subTest(name=name, command=command):
                path = self.database(database)
                kept = path.read_bytes()
                FAULTS[name][0](path)
                _, said = self.call(*command, code=2)
                self.assertIn(str(path), said)
                self.assertIn(FAULTS[name][1], said)
                path.unlink()
                path.write_bytes(kept)

    def test_an_empty_file_is_a_database_without_its_table(self):
        self.call("init")
        self.database(HISTORIES).write_bytes(b"")
        _, said = self.evaluate(input=runs(1))
        self.assertIn(str(self.database(HISTORIES)) + " has no table", said)
        self.evaluate("--enroll", input=runs(2))
        self.assertEqual(self.ask(HISTORIES, "select count(*) from KSObjectHistory"), [(3,)])

    def test_a_file_of_the_known_layout_keeps_its_version(self):
        self.call("init")
        self.assertEqual(self.ask(RULES, "pragma user_version"), [(0,)])
        change("pragma user_version = 1")(self.database(RULES))
        self.evaluate("--enroll", input=runs(12))
        self.assertEqual(self.ask(RULES, "pragma user_version"), [(1,)])

    def test_what_a_crash_has_left_is_rolled_back(self):
        self.call("init")
        path = self.database(HISTORIES)
        journal = pathlib.Path(str(path) + "-journal")
        writer = sqlite3.connect(path, isolation_level=None)
        writer.execute("pragma cache_size = 2")
        writer.execute("begin")
        writer.execute("insert into KSObjectHistory with recursive n(i) as (select 1 union all "
                       "select i + 1 from n where i < 2000) select 'd', '', 's', '', i, 2, "
                       "hex(zeroblob(50)) from n")
        left = path.read_bytes(), journal.read_bytes()
        writer.execute("rollback")
        writer.close()
        for command in [["evaluate", "--enroll"], ["rules"], ["clean", "--keep", "s"]]:
            path.write_bytes(left[0]), journal.write_bytes(left[1])
            self.call(*command, input=runs(2))
            self.assertFalse(journal.exists())
            self.assertEqual(self.ask(path, "pragma integrity_check"), [("ok",)])
            self.assertEqual(self.ask(path, "select count(*) from KSObjectHistory where "
                                      "deviceName = 'd'"), [(0,)])

    def test_a_lock_is_waited_for_as_long_as_is_set(self):
        self.configure("BusyTimeout=300\n")
        self.call("init", "--domain", "held")
        holder = sqlite3.connect(self.database(RULES, "held"), isolation_level=None,
                                 check_same_thread=False)
        holder.execute("begin exclusive")
        begun = time.monotonic()
        found, said = self.evaluate("--enroll", "--all", input=runs(1, "held") + runs(1), code=3)
        self.assertGreater(time.monotonic() - begun, 0.25)
        self.assertLess(time.monotonic() - begun, 5)
        self.assertEqual([len(json.loads(run)["rejected"]) for run in found.splitlines()], [3, 0])
        self.assertIn(str(self.database(RULES, "held")) + ": ", said)
        self.assertIn("database is locked", said)
        self.configure("BusyTimeout=30000\n")
        release = threading.Timer(0.5, holder.execute, ["rollback"])
        release.start()
        found = self.results("--enroll", input=runs(1, "held"))
        self.assertEqual(found[0]["rejected"], [])
        release.join()
        holder.close()

    # Rights and names

    def test_files_are_for_their_owner_and_group_only(self):
        for umask, file_rights, folder_rights in [(0, 0o640, 0o750), (0o077, 0o600, 0o700)]:
            self.root = self.folder / ("root%o" % umask)
            for command in [["init", "--interval-time", "60"], ["evaluate", "--enroll", "--log-level", "0"],
                            RULE_SET, BLOCK_ADD, SETTING, ["clean", "--keep", "s"]]:
                self.call(*command, input=runs(12), umask=umask)
            for kind, name in [("object-rule", "KSObjectRule"), ("block-setting", "KSBlockSetting"),
                               ("interface-type", "KSInterfaceType")]:
                delivered = self.folder / name
                with sqlite3.connect(delivered) as connection:
                    connection.execute("create table if not exists KSInterfaceType (data)")
                connection.close()
                if kind != "interface-type":
                    delivered.write_bytes(self.database(name).read_bytes())
                delivered.chmod(0o666)
                self.call("merge", "--type", kind, str(delivered), umask=umask)
            found = [path for path in self.root.rglob("*")] + [self.root]
            self.assertGreater(len(found), 10)
            self.assertIn(self.root / "log" / "keelstone.log", found)
            for path in found:
                self.assertEqual(oct(stat.S_IMODE(path.stat().st_mode)),
                                 oct(folder_rights if path.is_dir() else file_rights), path)

    def test_no_domain_id_leaves_the_root(self):
        delivered = self.folder / "delivered"
        self.call("init", "--domain", "from")
        delivered.write_bytes(self.database(RULES, "from").read_bytes())
        names = {"..": "%2E%2E", "../../../../x": "..%2F..%2F..%2F..%2Fx", "a/../../b":
                 "a%2F..%2F..%2Fb", str(self.folder): str(self.folder).replace("/", "%2F"),
                 "%2e%2e": "%252e%252e", "a\\..\nb": "a%5C..%0Ab", "": "%"}
        for name in names:
            for command in [["evaluate", "--enroll"], ["init"], ["rules"], RULE_SET,
                            ["rule", "unset", *VARIABLE], BLOCK_ADD, SETTING,
                            ["merge", "--type", "object-rule", str(delivered)],
                            ["clean", "--keep", "s"]]:
                self.call(*command, "--domain", name, input=runs(2, name))
        self.assertEqual({path.name for path in self.folder.iterdir()}, {"root", "delivered"})
        self.assertEqual({path.name for path in self.root.iterdir()}, {"data"})
        self.assertEqual({path.name for path in (self.root / "data").iterdir()}, {"FSParserData"})
        self.assertEqual({path.name for path in (self.root / "data" / "FSParserData").iterdir()},
                         set(names.values()) | {"from"})

    # A full disk

    def test_a_full_disk_ends_in_order_and_the_next_run_carries_on(self):
        self.root.mkdir()
        mounted = subprocess.run(["mount", "-t", "tmpfs", "-o", "size=220k", "tmpfs", self.root],
                                 capture_output=True)
        if mounted.returncode != 0:
            self.skipTest("nothing can be mounted here")
        self.addCleanup(subprocess.run, ["umount", "-l", self.root], check=True)
        self.configure("CacheSize=50\nIntervalTime=60\n")
        lines = runs(60, variables=150)
        _, said = self.evaluate("--enroll", input=lines, code=3)
        self.assertRegex(said, "writes to the databases have failed, first " +
                         re.escape(str(self.root)) + ".*database or disk is full")
        filler = open(self.root / "filler", "wb", buffering=0)
        with contextlib.suppress(OSError):
            while filler.write(b"x" * 4096):
                pass
        filler.close()
        rules = str(self.folder / "KSVariableRule.db")
        shutil.copy(self.database("KSVariableRule"), rules)
        for database, code, command in [
                (RULES, 3, [*RULE_SET[:-1], json.dumps({"ruleParam": "x" * 10000})]),
                ("KSBlockSetting", 3, ["block", "add", "--device", "d" * 9000, "--from", "now",
                                       "--to", "4102444800"]),
                ("KSGlobalSetting", 3, ["settings", "set", "KSRuleType", json.dumps("x" * 9000)]),
                ("KSVariableRule", 3, ["merge", "--type", "variable-rule", rules]),
                ("new", 2, ["init", "--domain", "new"])]:
            _, said = self.call(*command, code=code)
            self.assertRegex(said, "(?s)" + database + ".*(full|No space left)", command)
        os.remove(self.root / "filler")
        for name in (RULES, HISTORIES):
            self.assertEqual(self.ask(name, "pragma integrity_check"), [("ok",)])
        subprocess.run(["mount", "-o", "remount,size=64m", self.root], check=True)
        self.evaluate("--enroll", input=lines)
        self.evaluate("--enroll", input=runs(10, start=60, variables=150))
        for name in (RULES, HISTORIES):
            self.assertEqual(self.ask(name, "pragma integrity_check"), [("ok",)])
            self.assertEqual(self.ask(name, "select count(*) from " + name), [(150,)])


if __name__ == "__main__":
    unittest.main()
