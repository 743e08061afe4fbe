"""A root folder with as many variables as wanted and results with alerts of some of them."""
import json
import os
import sqlite3
import subprocess

START = 1_790_000_000
STEP = 1800
POINTS = 30


def history(kind, number):
    def value(i):
        if kind == 1:
            return 12 + number % 7
        if kind == 2:
            return ((number * 7919 + i * 104729) % 4000) / 100
        return "Established" if (i + number) % 9 else "Active"
    points = [{"liveTime": START + i * STEP, "dataValue": value(i)} for i in range(POINTS)]
    return json.dumps({"dataType": {1: 1, 2: 3, 3: 4}[kind], "dataList": points},
                      separators=(",", ":"))


def parameter(kind, number):
    if kind == 1:
        return 4, {"ruleParam": 12 + number % 7}
    if kind == 2:
        return 7, {"maxValue": 40.0, "minValue": 0.0}
    return 2, {"ruleParam": ["Active", "Established"]}


def make(program, root, results, variables, alerts):
    """`alerts` alerts, four to an episode, each episode of a variable of its own."""
    subprocess.run([program, "init", "--root", root], check=True, stdout=subprocess.DEVNULL)
    folder = os.path.join(root, "data", "FSParserData", "default")
    rules, histories, keys = [], [], []
    for number in range(variables):
        kind = number % 3 + 1
        key = (f"edge-{number // 100:03}.example", f"eth{number % 100}/0", "interfaces", "",
               ["neighbors", "load", "state"][kind - 1], 2)
        rule_type, rule = parameter(kind, number)
        rules.append(key + (1, "", "", 0, rule_type, json.dumps(rule), 0, 0))
        histories.append(key + (history(kind, number),))
        keys.append((key, rule_type, json.dumps(rule)))
    for name, rows in (("KSObjectRule", rules), ("KSObjectHistory", histories)):
        with sqlite3.connect(os.path.join(folder, name + ".db")) as db:
            marks = ",".join("?" * len(rows[0]))
            db.executemany(f"insert into {name} values ({marks})", rows)
        db.close()
    with open(results, "w", encoding="utf-8") as out:
        for alert in range(alerts):
            key, rule_type, rule = keys[(alert // 4) * 7 % variables]
            time = START + POINTS * STEP + alert * 60
            info = json.dumps({"_t": rule_type, "_p": rule, "_v": "99"})
            item = {"DeviceName": key[0], "InterfaceValue": key[1], "SourcePath": key[2],
                    "ParserParam": "", "VaraibleName": key[4], "LiveTime": time, "RuleParam": info}
            line = {"time": time, "domain": "default", "device": key[0], "source": key[2],
                    "param": "", "blocked": False, "variables": 100, "rejected": [],
                    "result": {"ruleItems": [], "valueItems": [], "alertItems": [item]}}
            out.write(json.dumps(line) + "\n")
