"""Kills `keelstone evaluate` at random moments and looks at what it left.

    crash_driver.py PROGRAM [--kills N] [--stops N] [--seed S]

The input is the growing series of runs of some devices, every value of which follows from
its run. Each round hands the program what is not on disk yet and kills it (SIGKILL) at a
random moment. After each, both databases pass the integrity check, every history is a
piece of the series, and those of a unit end at the same run: a batch is there whole or
not at all. Rounds that end by SIGTERM and SIGINT have everything on disk that was printed.
At the end the histories and the rules are those of a root that saw the whole input
undisturbed.
"""

import argparse
import collections
import contextlib
import json
import pathlib
import random
import shutil
import signal
import sqlite3
import subprocess
import sys
import tempfile
import time

DEVICES = [f"r{n}" for n in range(12)]
SOURCES = ["bgp", "system"]
UNITS = [(device, source) for device in DEVICES for source in SOURCES]
START, STEP = 1_700_000_000, 2000  # s; longer than IntervalTime
HISTORY = 30
TABLES_WITHOUT_RULE = 5  # while it has none, a table keeps fewer values
RUNS_A_ROUND = 8
SETTINGS = {name: {"timeIntervalLimit": 100, "dataCountHistory": HISTORY}
            for name in ("intEqual", "intEnum", "intRange", "intConstant", "intIncrease",
                         "strEqual", "strEnum", "tableMd5")}


def values(unit, run):
    """The variables of one run; every kind of value, steady or moving as it would."""
    device, source = unit
    chance = random.Random(f"{device} {source} {run}")
    rows = [[f"10.{n}.0.0/16", device] for n in range(4)]
    if chance.random() < 0.02:
        rows.append(["0.0.0.0/0", device])
    return {
        "state": "Established" if chance.random() < 0.97 else "Idle",
        "uptime": run * STEP,
        "load": round(chance.uniform(0.2, 0.6), 3),
        "peers": chance.choice([3, 4, 4, 4]),
        "routes": {"columns": ["prefix", "via"], "rows": rows},
    }


def line(unit, run):
    variables = [{"name": name, "value": value} for name, value in values(unit, run).items()]
    return json.dumps({"time": START + run * STEP, "device": unit[0], "source": unit[1],
                       "variables": variables})


class Root:
    """One root folder and what is stored there."""

    def __init__(self, program, folder):
        self.program, self.folder = program, folder
        settings = folder.parent / "settings.json"
        settings.write_text(json.dumps(SETTINGS))
        subprocess.run([program, "init", "--root", folder, "--settings", settings],
                       check=True, stdout=subprocess.DEVNULL)

    def have_worker_write(self):
        """The write-behind worker then writes beside the flushes between a unit's runs."""
        ini = self.folder / "conf" / "fix_frontserver.ini"
        ini.parent.mkdir(parents=True, exist_ok=True)
        ini.write_text("[Keelstone]\nCacheSize=40\nCacheTime=1\n")

    def start(self, lines, *options, stdout=subprocess.DEVNULL):
        source = tempfile.TemporaryFile("w+")
        source.write("".join(text + "\n" for text in lines))
        source.seek(0)
        return subprocess.Popen(
            [self.program, "evaluate", "--root", self.folder, "--enroll", "--threads", "3",
             "--quiet", *options], stdin=source, stdout=stdout, stderr=subprocess.PIPE)

    def rows(self, database, query):
        path = self.folder / "data/FSParserData/default" / database
        with contextlib.closing(sqlite3.connect(path)) as connection:
            verdict = connection.execute("pragma integrity_check").fetchall()
            assert verdict == [("ok",)], f"{database}: {verdict}"
            return connection.execute(query).fetchall()

    def histories(self):
        return {((device, source), name): text for device, source, name, text in self.rows(
            "KSObjectHistory.db",
            "select deviceName, variableSource, variableName, HistoryData from KSObjectHistory")}

    def rules(self):
        return {((device, source), name): (kind, parameter) for device, source, name, kind, parameter
                in self.rows("KSObjectRule.db",
                             "select deviceName, variableSource, variableName, ruleTypeId, "
                             "ruleAlgParameter from KSObjectRule")}


def newest_runs(root):
    """How many runs of each unit are stored; fails on anything that no run can have left."""
    ends = collections.defaultdict(dict)
    for (unit, name), text in root.histories().items():
        points = json.loads(text)["dataList"]
        runs = [(point["liveTime"] - START) // STEP for point in points]
        last = runs[-1]
        kept = TABLES_WITHOUT_RULE if name == "routes" else HISTORY
        assert len(runs) >= min(kept, last + 1), f"{unit} {name}: lost values: {runs}"
        assert runs == list(range(last + 1 - len(runs), last + 1)), f"{unit} {name}: {runs}"
        if name != "routes":
            seen = [point["dataValue"] for point in points]
            expected = [values(unit, run)[name] for run in runs]
            assert seen == expected, f"{unit} {name}: {seen} instead of {expected}"
        ends[unit][name] = last
    stored = {}
    for unit in UNITS:
        lasts = [ends[unit].get(name, -1) for name in values(unit, 0)]
        assert min(lasts) == max(lasts), f"{unit}: a batch in pieces: {ends[unit]}"
        stored[unit] = 1 + min(lasts)
    for (unit, name), (kind, parameter) in root.rules().items():
        assert name in values(unit, 0) and 0 <= kind <= 12, f"{unit} {name}: rule type {kind}"
        json.loads(parameter)
    return stored


def missing_lines(stored, horizon):
    """What is not on disk, as polling would bring it: device after device, run after run."""
    first = min(stored.values())
    return [line(unit, run) for run in range(first, horizon) for unit in UNITS
            if run >= stored[unit]]


def finish(root, lines, *options):
    process = root.start(lines, *options)
    errors = process.communicate()[1].decode()
    assert process.returncode == 0, f"exit code {process.returncode}: {errors}"


def kill_rounds(root, kills, chance):
    horizon, landed, took = 0, 0, 0.05
    stored = newest_runs(root)
    rounds = 0
    while landed < kills:
        rounds += 1
        assert rounds <= 3 * kills, "too few kills met the program at work"
        if landed == kills // 2:
            root.have_worker_write()
        horizon = max(horizon, min(stored.values()) + RUNS_A_ROUND)
        before = time.monotonic()
        process = root.start(missing_lines(stored, horizon))
        try:
            # Late enough at times for the program to come to its end.
            process.wait(chance.uniform(0, took * 1.2))
            took = time.monotonic() - before
            assert process.returncode == 0, process.stderr.read().decode()
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
            landed += 1
            took *= 1.02
        process.stderr.close()
        stored = newest_runs(root)
    return rounds, horizon, stored


def stop_rounds(root, stops, chance, horizon, stored):
    for number in range(stops):
        horizon = max(horizon, min(stored.values())) + RUNS_A_ROUND
        with tempfile.TemporaryFile("w+") as printed:
            process = root.start(missing_lines(stored, horizon), "--all", "--format", "json",
                                 stdout=printed)
            with contextlib.suppress(subprocess.TimeoutExpired):
                process.wait(chance.uniform(0.02, 0.3))
            process.send_signal((signal.SIGTERM, signal.SIGINT)[number % 2])
            errors = process.communicate()[1].decode()
            # 3: reading was broken off. -N: the signal came before anything was evaluated.
            assert process.returncode in (0, 3, -signal.SIGTERM, -signal.SIGINT), \
                f"exit code {process.returncode}: {errors}"
            printed.seek(0)
            for text in printed:
                run = json.loads(text)
                unit = (run["device"], run["source"])
                stored[unit] = max(stored[unit], 1 + (run["time"] - START) // STEP)
        assert newest_runs(root) == stored, "printed and stored differ after a signal"
    return horizon, stored


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("program")
    parser.add_argument("--kills", type=int, default=200)
    parser.add_argument("--stops", type=int, default=10)
    parser.add_argument("--seed", default=str(time.time_ns()))
    arguments = parser.parse_args()
    print(f"seed {arguments.seed}", flush=True)
    chance = random.Random(arguments.seed)
    folder = pathlib.Path(tempfile.mkdtemp(prefix="keelstone-crash-"))
    try:
        root = Root(arguments.program, folder / "killed")
        rounds, horizon, stored = kill_rounds(root, arguments.kills, chance)
        print(f"{rounds} rounds, {arguments.kills} of them killed at work, "
              f"{sum(stored.values())} runs on disk")
        horizon, stored = stop_rounds(root, arguments.stops, chance, horizon, stored)
        horizon += HISTORY
        finish(root, missing_lines(stored, horizon))
        whole = Root(arguments.program, folder / "undisturbed")
        finish(whole, missing_lines(dict.fromkeys(UNITS, 0), horizon))
        assert set(newest_runs(root).values()) == {horizon}
        assert root.histories() == whole.histories(), "the histories differ"
        ours, theirs = root.rules(), whole.rules()
        differ = {key: (ours.get(key), theirs.get(key)) for key in ours.keys() | theirs.keys()
                  if ours.get(key) != theirs.get(key)}
        assert not differ, f"the rules differ: {differ}"
        print(f"{len(theirs)} rules and {len(whole.histories())} histories as undisturbed, "
              f"after {horizon} runs of each of {len(UNITS)} units")
    finally:
        shutil.rmtree(folder, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
