"""What the tests of the program share: a folder of their own, calls, looks into databases.

Each is run as X_test.py PROGRAM.
"""
import contextlib
import json
import os
import pathlib
import sqlite3
import subprocess
import sys
import tempfile
import unittest

PROGRAM = os.path.abspath(sys.argv.pop(1))
START = 1700000000
RULES, HISTORIES, VARIABLES = "KSObjectRule", "KSObjectHistory", "KSVariableRule"
DATABASES = ["KSGlobalSetting", VARIABLES, "KSBlockSetting", RULES, HISTORIES]


def run_line(value, **fields):
    """A run with one variable, or with those that a field names."""
    return json.dumps({"time": START, "device": "d", "source": "s",
                       "variables": [{"name": "v", "value": value}], **fields}) + "\n"


def alert(name, value, parameter='{"ruleParam":5}', kind=4, device="r1"):
    return {"VaraibleName": name, "InterfaceValue": "", "DeviceName": device, "SourcePath": "s",
            "RuleParam": json.dumps({"_t": kind, "_p": parameter, "_v": value})}


def result_line(time, alerts=(), **more):
    """A line of results of `evaluate`."""
    return json.dumps({"time": time, "domain": "default", "device": "r1", "source": "s",
                       "param": "", "blocked": False, "variables": 2, "rejected": [],
                       "result": {"ruleItems": [], "valueItems": [], "alertItems": list(alerts)},
                       **more})


class ProgramCase(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.root = self.folder / "root"

    def write(self, name, text):
        (self.folder / name).write_bytes(text if isinstance(text, bytes) else text.encode())
        return str(self.folder / name)

    def database(self, name, domain="default"):
        return self.root / "data" / "FSParserData" / domain / (name + ".db")

    def ask(self, database, sql, values=()):
        """The rows of a statement on a database of the domain "default", or on a file."""
        path = self.database(database) if isinstance(database, str) else database
        with contextlib.closing(sqlite3.connect(path)) as connection, connection:
            return connection.execute(sql, values).fetchall()

    def process(self, *arguments, **more):
        return subprocess.Popen([PROGRAM, *arguments], cwd=self.folder, **more, env={
            **os.environ, "KEELSTONE_ROOT": str(self.root), "LC_ALL": "C"})

    def call(self, *arguments, input="", code=0, stdout=subprocess.PIPE, **more):
        """Standard output and standard error of the program, which must end with the code."""
        begun = self.process(*arguments, stdin=subprocess.PIPE, stdout=stdout,
                             stderr=subprocess.PIPE, **more)
        out, said = begun.communicate(input if isinstance(input, bytes) else input.encode(), 300)
        said = said.decode(errors="replace")
        self.assertEqual(begun.returncode, code, (arguments, said))
        return (out or b"").decode(), said

    def evaluate(self, *arguments, **more):
        return self.call("evaluate", *arguments, **more)

    def results(self, *arguments, **more):
        out, _ = self.evaluate("--all", *arguments, **more)
        return [json.loads(line) for line in out.splitlines()]
