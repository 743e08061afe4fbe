"""Runs every misuse of the program that docs/bad-inputs.md lists, as it stands there.

Usage: bad_inputs_test.py PROGRAM DOCUMENT
"""
import contextlib
import json
import pathlib
import re
import shutil
import sqlite3
import sys
import unittest

from host import HISTORIES, ProgramCase

DOCUMENT = pathlib.Path(sys.argv.pop()).read_text(encoding="utf-8")
RULE_TABLE = "create table KSVariableRule (id INTEGER PRIMARY KEY, data TEXT%s)"
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


class BadInputsTest(ProgramCase):
    def setUp(self):
        super().setUp()
        self.folder = self.folder / "work"
        self.root = self.folder / "root"
        self.folder.mkdir()
        self.make_fixtures(self.folder)
        for number in range(12):
            self.evaluate("--enroll", "--quiet",
                          input=run_line(1600000000 + 300000 * number, [{"name": "v", "value": 5}]))
        self.call(*"rule set --device r2 --source s --variable v --type intLEQ --parameter".split(),
                  '{"ruleParam":80}')

    @staticmethod
    def make_fixtures(at):
        (at / "folder").mkdir()
        for name, text in [("garbage.db", "garbage " * 100), ("empty.db", ""),
                           ("bad.json", '{"a":'), ("array.json", "[]"),
                           ("typo.json", '{"intRange":{"stdCoeficient":4}}'),
                           ("utf16.txt", "s\0\n\0"),
                           ("runs.jsonl", run_line(1700000000, [{"name": "v", "value": 5}]))]:
            (at / name).write_text(text + ("\n" if text else ""))
        row = "insert into KSVariableRule (data) values ('{}')"
        make_database(at / "other.db", "create table other (a)")
        make_database(at / "seven.db", RULE_TABLE % "", row,
                      """insert into KSVariableRule (data) values ('{"ruleTypeId":"seven"}')""")
        trigger = ("create trigger t after insert on KSVariableRule begin "
                   "delete from KSVariableRule; end")
        make_database(at / "trigger.db", RULE_TABLE % "", row, trigger)
        make_database(at / "disguised.db", RULE_TABLE % "", row, trigger, "pragma writable_schema=on",
                      "update sqlite_master set type = 'index' where name = 't'")
        make_database(at / "view.db", "create view KSVariableRule as select 1 as data")
        make_database(at / "virtual.db", "create virtual table KSVariableRule using fts5(data)")
        make_database(at / "computed.db", "create table KSVariableRule (id INTEGER PRIMARY KEY, "
                      "x TEXT, data TEXT generated always as (x || x) virtual)")
        make_database(at / "functions.db", RULE_TABLE % " check(length(data) > 0)", row)
        make_database(at / "rows.db", "create table KSObjectRule (%s)" % KEYS,
                      *["insert into KSObjectRule (deviceName) values ('%s')" % ("x" * 200 + str(i))
                        for i in range(40)])
        put_page_in_two_places(at / "rows.db")
        make_database(at / "cut.db", RULE_TABLE % "",
                      *["insert into KSVariableRule (data) values ('%s')" % ("x" * 300)] * 20)
        whole = (at / "cut.db").read_bytes()
        (at / "cut.db").write_bytes(whole[:len(whole) // 2])

    def stored(self):
        """All rows of the domain, and the files outside its root."""
        rows = {}
        for path in sorted(self.database("").parent.glob("*.db")):
            with contextlib.closing(sqlite3.connect(path)) as connection:
                rows[path.name] = list(connection.iterdump())
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
                out, said = self.evaluate("--all", code=1, input=b"\n".join(
                    [sound[0].encode(), spelled_out(line), sound[1].encode(), b""]))
                self.assertIn("<stdin>:2: " + answer, said)
                self.assertEqual(len(out.splitlines()), 2)
                [(name, history)] = self.ask(HISTORIES, "select deviceName, HistoryData from KSObjectHistory "
                                             "where deviceName in (?, 'd')", (device,))
                self.assertEqual((name, len(json.loads(history)["dataList"])), (device, 2))

    def test_values(self):
        for value, because in table("Values that are refused"):
            with self.subTest(value=value, because=because):
                before = self.stored()
                run = run_line(1700000000, ["value"]).replace('"value"',
                                                              spelled_out(value).decode())
                out, _ = self.evaluate(input=run)
                [refused] = json.loads(out)["refused"]
                self.assertEqual(refused["reason"], because)
                self.assertEqual(self.stored(), before)

    def test_commands(self):
        rows = table("Commands")
        self.assertGreaterEqual(len(rows), 25)
        for command, code, answer, _ in rows:
            with self.subTest(command=command):
                before = self.stored()
                self.assertIn(answer, "".join(self.call(*command.split()[1:], code=int(code))))
                self.assertEqual(self.stored(), before)

    def test_files(self):
        for file, holds, command, code, answer in table("Files of the root"):
            with self.subTest(file=file, holds=holds):
                self.doCleanups()
                self.setUp()
                path = (self.root / file if "/" in file else self.database(file[:-3]))
                path.unlink(missing_ok=True)
                if (self.folder / holds).is_dir():
                    path.mkdir()
                elif holds.endswith(".db"):
                    shutil.copy(self.folder / holds, path)
                else:
                    path.parent.mkdir(parents=True, exist_ok=True)
                    path.write_text(holds.replace(" ", "\n", 1) + "\n")
                held = path.is_file() and path.read_bytes()
                _, said = self.call(*command.split()[1:], code=int(code))
                log = self.root / "log/keelstone.log"
                self.assertIn(answer, said + (log.read_text() if log.exists() else ""))
                self.assertEqual(path.is_file() and path.read_bytes(), held)
                self.evaluate("--enroll", "--domain", "other",
                              input=run_line(1, [{"name": "v", "value": 1}]))


if __name__ == "__main__":
    unittest.main()
