"""Kills `keelstone` with its default settings, `evaluate` and each command that writes, and
looks at what it left.

    kill_commands.py PROGRAM [--evaluations N] [--commands N] [--seed S]

`evaluate` gets the same input again after each kill; in the end its rules and histories are
those of a root that saw it once and undisturbed. A command is killed N times at random moments,
each time in a new copy of one root. What is left passes the integrity check; each table is as
it was before or as it is after, but for `clean`, which works source by source; and the command
given again ends as an undisturbed one does.
"""

import argparse
import contextlib
import pathlib
import random
import shutil
import sqlite3
import subprocess
import sys
import tempfile
import time

from crash_driver import SOURCES, line

PIECEWISE = {"init", "clean"}  # each row, or each file, by itself


def lines(devices, runs):
    """Polling, device after device."""
    return "".join(line((f"r{device}", source), run) + "\n"
                   for run in range(runs) for device in range(devices) for source in SOURCES)


class Killer:
    def __init__(self, program, folder, chance):
        self.program, self.folder, self.chance = program, folder, chance
        self.took = {}  # s, by command

    def run(self, root, arguments, source=None, kill=False):
        """Whether the command came to its end."""
        before = time.monotonic()
        with contextlib.ExitStack() as files:
            given = files.enter_context(open(source)) if source else subprocess.DEVNULL
            process = subprocess.Popen([self.program, *arguments, "--root", root], stdin=given,
                                       stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
            files.enter_context(process.stderr)
            if kill:
                try:
                    process.wait(self.chance.uniform(0, self.took[arguments[0]]))
                except subprocess.TimeoutExpired:
                    process.kill()
                    process.wait()
                    return False
            errors = process.stderr.read().decode()
            process.wait()
        assert process.returncode == 0, f"{arguments}: exit code {process.returncode}: {errors}"
        self.took[arguments[0]] = time.monotonic() - before
        return True

    def fresh(self, base=None):
        """A root folder of its own; a copy of `base` where there is one."""
        root = self.folder / "root"
        shutil.rmtree(root, ignore_errors=True)
        if base:
            shutil.copytree(base, root)
        return root


def state(root):
    """The rows of every table, and that each database is whole."""
    tables = {}
    for path in sorted(root.glob("data/FSParserData/*/*.db")):
        with contextlib.closing(sqlite3.connect(path)) as connection:
            verdict = connection.execute("pragma integrity_check").fetchall()
            assert verdict == [("ok",)], f"{path.name}: {verdict}"
            if connection.execute("select 1 from sqlite_master").fetchone():
                tables[path.stem] = sorted(connection.execute(f"select * from {path.stem}"), key=str)
    return tables


def differences(found, wanted):
    return {name: [row for row in rows if row not in wanted.get(name, [])][:3]
            for name, rows in found.items() if rows != wanted.get(name)}


def kill_evaluations(killer, kills):
    source = killer.folder / "runs.jsonl"
    source.write_text(lines(devices=6, runs=40))
    evaluate = ["evaluate", "--enroll", "--quiet", "--threads", "3"]
    whole = killer.folder / "undisturbed"
    killer.run(whole, evaluate, source)
    wanted, landed, roots, differ = state(whole), 0, 0, 0
    took = killer.took["evaluate"]
    while landed < kills:
        root, roots = killer.fresh(), roots + 1
        for _ in range(10):
            killer.took["evaluate"] = took
            if killer.run(root, evaluate, source, kill=True):
                break
            landed += 1
            state(root)
        killer.run(root, evaluate, source)
        found = state(root)
        assert {name: len(rows) for name, rows in found.items()} == \
            {name: len(rows) for name, rows in wanted.items()}
        rest = differences(found, wanted)
        differ += bool(rest)
        if rest:
            print(f"root {roots}, after kills: {rest}", flush=True)
    print(f"evaluate: {landed} kills on {roots} roots", flush=True)
    assert differ == 0, f"{differ} of {roots} roots do not end as an undisturbed one"


def commands(hub, page):
    data = hub / "data/FSParserData/default"
    key = ["--device", "r1", "--source", "bgp", "--variable", "peers"]
    yield ["init"]
    yield ["clean", "--keep", "bgp"]
    yield ["rule", "set", *key, "--type", "intLEQ", "--parameter", '{"ruleParam":80}']
    yield ["rule", "unset", *key]
    yield ["settings", "set", "intRange.stdCoefficient", "4"]
    yield ["block", "add", "--device", "r1", "--from", "1700000000", "--to", "1700003600"]
    yield ["block", "remove", "1"]
    yield ["report", "--output", str(page)]
    for kind in ("GlobalSetting", "VariableRule", "BlockSetting", "ObjectRule"):
        name = kind.replace("S", "-s").replace("R", "-r").lower()
        yield ["merge", "--type", name, str(data / f"KS{kind}.db")]


def kill_commands(killer, kills):
    source = killer.folder / "few.jsonl"
    roots = {}
    for name, runs in (("base", 12), ("hub", 14)):
        roots[name] = killer.folder / name
        source.write_text(lines(devices=3, runs=runs))
        killer.run(roots[name], ["evaluate", "--enroll", "--quiet"], source)
        killer.run(roots[name], ["block", "add", "--device", name, "--from", "5", "--to", "6"])
    page = killer.folder / "report.html"
    for command in commands(roots["hub"], page):
        base = None if command[0] == "init" else roots["base"]
        before = state(base) if base else {}
        root = killer.fresh(base)
        killer.run(root, command)
        after, landed, tries = state(root), 0, 0
        took = killer.took[command[0]]
        while landed < kills and tries < 4 * kills:
            root, tries = killer.fresh(base), tries + 1
            page.unlink(missing_ok=True)
            killer.took[command[0]] = took
            if killer.run(root, command, kill=True):
                continue
            landed += 1
            found = state(root)
            if command[0] not in PIECEWISE:
                for name, rows in found.items():
                    assert rows in (before[name], after[name]), f"{command}: {name} in pieces"
            assert not page.exists() or page.read_text().rstrip().endswith("</html>")
            if command[0] != "block" or found == before:
                killer.run(root, command)  # periods have numbers: once is not twice
            assert state(root) == after, f"{command}: {differences(state(root), after)}"
        print(f"{' '.join(command[:2])}: {landed} kills", flush=True)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("program")
    parser.add_argument("--evaluations", type=int, default=100)
    parser.add_argument("--commands", type=int, default=17, help="kills of each command")
    parser.add_argument("--seed", default=str(time.time_ns()))
    arguments = parser.parse_args()
    print(f"seed {arguments.seed}", flush=True)
    with tempfile.TemporaryDirectory(prefix="keelstone-kill-") as folder:
        killer = Killer(arguments.program, pathlib.Path(folder), random.Random(arguments.seed))
        if arguments.commands:
            kill_commands(killer, arguments.commands)
        if arguments.evaluations:
            kill_evaluations(killer, arguments.evaluations)


if __name__ == "__main__":
    sys.exit(main())
