"""Runs every misuse of the program that docs/bad-inputs.md lists, as it stands there.

Usage: bad_inputs_test.py PROGRAM DOCUMENT
"""
import json
import os
import pathlib
import re
import shlex
import shutil
import sqlite3
import subprocess
import sys
import tempfile
import unittest

DOCUMENT = pathlib.Path(sys.argv.pop()).read_text(encoding="utf-8")
PROGRAM = sys.argv.pop()
RULES = "create table KSVariableRule (id INTEGER PRIMARY KEY, data TEXT%s)"
KEYS = ("deviceName, interfaceValue, variableSource, param, variableName, variableSourceType, "
        "variableDataType, interfacePath, vxNodePathSchema, ruleGenerateType, ruleTypeId, "
        "ruleAlgParameter, isEnable, isDel")


def table(heading):
    """The rows below a heading, as lists of cells; a cell in backquotes is what they quote."""
    section = DOCUMENT.split("\n## " + heading + "\n", 1)[1].split("\n## ", 1)[0]
    rows = [line[2:-2].split(" | ") for line in section.splitlines() if line.startswith("| ")]
    return [[cell[1:-1] if cell[:1] == "`" else cell for cell in row] for row in rows[1:]]


def spelled_out(cell):
    """The bytes of a cell: <FF> and <text × count> replaced."""
    cell = re.sub(r"<(\D[^<>]*) × (\d+)>", lambda m: m[1] * int(m[2]), cell)
    parts = re.split(r"<([0-9A-F]{2})>", cell)
    return b"".join(bytes.fromhex(part) if at % 2 else part.encode()
                    for at, part in enumerate(parts))


def run_line(time, variables):
    return json.dumps({"time": time, "device": "r1", "source": "s", "variables": variables})


def make_database(path, *statements):
    connection = sqlite3.connect(path)
    connection.execute("pragma page_size=512")
    for statement in statements:
        connection.execute(statement)
    connection.commit()
    connection.close()


def put_page_in_two_places(path):
    """Has two entries of the first table's root page name one page."""
    image = bytearray(path.read_bytes())
    page = 512  # the table's root, page 2, an interior page
    cells = [int.from_bytes(image[page + 12 + 2 * i:page + 14 + 2 * i], "big") for i in range(2)]
    assert image[page] == 5 and int.from_bytes(image[page + 3:page + 5], "big") >= 2
    first, second = (page + cell for cell in cells)
    image[second:second + 4] = image[first:first + 4]
    path.write_bytes(image)


class BadInputsTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.template = pathlib.Path(folder.name)
        cls.make_fixtures(cls.template)
        for number in range(12):
            cls.run_in(cls.template, "evaluate --enroll --quiet",
                       run_line(1600000000 + 300000 * number, [{"name": "v", "value": 5}]))
        cls.run_in(cls.template, "rule set --device r2 --source s --variable v --type intLEQ "
                                 "--parameter '{\"ruleParam\":80}'")

    @classmethod
    def make_fixtures(cls, at):
        (at / "folder").mkdir()
        for name, text in [("garbage.db", "garbage " * 100), ("empty.db", ""),
                           ("bad.json", '{"a":'), ("array.json", "[]"),
                           ("typo.json", '{"intRange":{"stdCoeficient":4}}'),
                           ("utf16.txt", "s\0\n\0"),
                           ("runs.jsonl", run_line(1700000000, [{"name": "v", "value": 5}]))]:
            (at / name).write_text(text + ("\n" if text else ""))
        row = "insert into KSVariableRule (data) values ('{}')"
        make_database(at / "other.db", "create table other (a)")
        make_database(at / "seven.db", RULES % "", row,
                      """insert into KSVariableRule (data) values ('{"ruleTypeId":"seven"}')""")
        trigger = ("create trigger t after insert on KSVariableRule begin "
                   "delete from KSVariableRule; end")
        make_database(at / "trigger.db", RULES % "", row, trigger)
        make_database(at / "disguised.db", RULES % "", row, trigger, "pragma writable_schema=on",
                      "update sqlite_master set type = 'index' where name = 't'")
        make_database(at / "view.db", "create view KSVariableRule as select 1 as data")
        make_database(at / "virtual.db", "create virtual table KSVariableRule using fts5(data)")
        make_database(at / "computed.db", "create table KSVariableRule (id INTEGER PRIMARY KEY, "
                      "x TEXT, data TEXT generated always as (x || x) virtual)")
        make_database(at / "functions.db", RULES % " check(length(data) > 0)", row)
        make_database(at / "rows.db", "create table KSObjectRule (%s)" % KEYS,
                      *["insert into KSObjectRule (deviceName) values ('%s')" % ("x" * 200 + str(i))
                        for i in range(40)])
        put_page_in_two_places(at / "rows.db")
        make_database(at / "cut.db", RULES % "",
                      *["insert into KSVariableRule (data) values ('%s')" % ("x" * 300)] * 20)
        whole = (at / "cut.db").read_bytes()
        (at / "cut.db").write_bytes(whole[:len(whole) // 2])

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name) / "work"
        shutil.copytree(self.template, self.folder)

    @staticmethod
    def run_in(folder, command, text=b""):
        return subprocess.run([PROGRAM, *(command if isinstance(command, list)
                                          else shlex.split(command))],
                              cwd=folder, input=text if isinstance(text, bytes) else text.encode(),
                              env=dict(os.environ, KEELSTONE_ROOT="root"), capture_output=True,
                              timeout=120, check=False)

    def database(self, name, domain="default"):
        return self.folder / "root/data/FSParserData" / domain / name

    def stored(self):
        """All rows of the domain, and the files outside its root."""
        rows = {}
        for path in sorted(self.database("").glob("*.db")):
            connection = sqlite3.connect(path)
            rows[path.name] = list(connection.iterdump())
            connection.close()
        outside = {str(path): path.is_file() and path.read_bytes()
                   for path in sorted(self.folder.parent.rglob("*"))
                   if self.folder / "root" not in [path, *path.parents]}
        return rows, outside

    def test_lines(self):
        rows = table("Lines of the input of `evaluate`")
        self.assertGreaterEqual(len(rows), 25)
        for number, (line, answer) in enumerate(rows):
            device = "line%d" % number
            sound = [run_line(time, [{"name": "v", "value": 5}]).replace("r1", device)
                     for time in (1700000000, 1750000000)]
            with self.subTest(line=line):
                done = self.run_in(self.folder, "evaluate --all", b"\n".join(
                    [sound[0].encode(), spelled_out(line), sound[1].encode(), b""]))
                self.assertEqual(done.returncode, 1, done.stderr)
                self.assertIn("<stdin>:2: " + answer, done.stderr.decode())
                self.assertEqual(len(done.stdout.splitlines()), 2)
                connection = sqlite3.connect(self.database("KSObjectHistory.db"))
                histories = connection.execute("select deviceName, HistoryData from "
                                               "KSObjectHistory where deviceName in (?, 'd')",
                                               (device,)).fetchall()
                connection.close()
                self.assertEqual([name for name, _ in histories], [device])
                self.assertEqual(len(json.loads(histories[0][1])["dataList"]), 2)

    def test_values(self):
        for value, because in table("Values that are refused"):
            with self.subTest(value=value, because=because):
                before = self.stored()
                run = run_line(1700000000, ["value"]).replace('"value"',
                                                              spelled_out(value).decode())
                done = self.run_in(self.folder, "evaluate", run)
                self.assertEqual(done.returncode, 0, done.stderr)
                [refused] = json.loads(done.stdout)["refused"]
                self.assertEqual(refused["reason"], because)
                self.assertEqual(self.stored(), before)

    def test_commands(self):
        rows = table("Commands")
        self.assertGreaterEqual(len(rows), 25)
        for command, code, answer, _ in rows:
            with self.subTest(command=command):
                before = self.stored()
                done = self.run_in(self.folder, command.split()[1:])
                said = (done.stdout + done.stderr).decode()
                self.assertEqual(done.returncode, int(code), said)
                self.assertIn(answer, said)
                self.assertEqual(self.stored(), before)

    def test_files(self):
        for file, holds, command, code, answer in table("Files of the root"):
            with self.subTest(file=file, holds=holds):
                self.doCleanups()
                self.setUp()
                path = (self.folder / "root" / file if "/" in file else self.database(file))
                path.unlink(missing_ok=True)
                if (self.folder / holds).is_dir():
                    path.mkdir()
                elif holds.endswith(".db"):
                    shutil.copy(self.folder / holds, path)
                else:
                    path.parent.mkdir(parents=True, exist_ok=True)
                    path.write_text(holds.replace(" ", "\n", 1) + "\n")
                held = path.is_file() and path.read_bytes()
                done = self.run_in(self.folder, command.split()[1:])
                said = done.stderr.decode()
                log = self.folder / "root/log/keelstone.log"
                if log.exists():
                    said += log.read_text()
                self.assertEqual(done.returncode, int(code), said)
                self.assertIn(answer, said)
                self.assertEqual(path.is_file() and path.read_bytes(), held)
                other = run_line(1, [{"name": "v", "value": 1}])
                done = self.run_in(self.folder, "evaluate --enroll --domain other", other)
                self.assertEqual(done.returncode, 0, done.stderr)


if __name__ == "__main__":
    unittest.main()
