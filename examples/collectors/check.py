#!/usr/bin/env python3
"""Checks that the recordings hold what README.md says, and prints the table that it shows.

Needs none of the tools. Ends with 1 and says what is otherwise.
"""

import csv
import gzip
import io
import ipaddress
import json
import math
import os
import re
import sys
import tarfile

HERE = os.path.dirname(os.path.abspath(__file__))
POLLS = 50
ALLOWED = [ipaddress.ip_network(text) for text in
           ("0.0.0.0/32", "10.0.0.0/16", "10.99.0.0/16", "10.255.0.0/16", "127.0.0.0/8",
            "192.0.2.0/24", "198.51.100.0/24", "203.0.113.0/24", "255.0.0.0/8")]
PRIVATE = re.compile(r"/(?:root|home|work|tmp|build|opt|srv)\b")
rows = []


def need(found, expected, what):
    if found != expected:
        raise AssertionError(f"{what}: {found!r} instead of {expected!r}")


def load(name):
    with gzip.open(os.path.join(HERE, name), "rb") as file:
        return file.read().decode()


def note(name, text):
    """A line of the table, and no word of the machine that recorded."""
    content = load(name)
    foreign = {found for found in re.findall(r"\b\d{1,3}(?:\.\d{1,3}){3}\b(?!\.\d)", content)
               if not any(ipaddress.ip_address(found) in network for network in ALLOWED)}
    need(foreign, set(), f"{name}: addresses outside of the lab")
    need(PRIVATE.findall(content), [], f"{name}: paths")
    kilobytes = math.ceil(os.path.getsize(os.path.join(HERE, name)) / 1000)
    rows.append(f"{name:38} {kilobytes:4} kB  {text}")


def objects(name):
    return [json.loads(line) for line in load(name).splitlines()]


def faults(folder):
    """(fault, from, to) of the two that lab.py injects."""
    with open(os.path.join(HERE, folder, "faults.jsonl"), encoding="utf-8") as file:
        found = [json.loads(line) for line in file]
    need([entry["fault"] for entry in found], ["link down", "session shut"], f"{folder}: faults")
    return [(entry["from"], entry["to"]) for entry in found]


def only_during(folder, number, times, what):
    """`what` was seen at `times`: all of them during a fault, and at least four polls."""
    begin, end = faults(folder)[number]
    need([time for time in times if not begin <= time <= end + 1], [], f"{what} without the fault")
    need(len(times) >= 4, True, f"{what} in four polls of the fault")


def scrapes(name):
    """(time, device, text) of each."""
    parts = re.split(r"^# scraped (\S+) (\S+)\n", load(name), flags=re.M)[1:]
    found = [(float(parts[at]), parts[at + 1], parts[at + 2]) for at in range(0, len(parts), 3)]
    need([device for _, device, _ in found], ["r1", "r2"] * POLLS, f"{name}: scrapes")
    return found


def samples(text):
    """(name with labels, value) of each sample, without exemplars."""
    for line in text.splitlines():
        if line and not line.startswith("#"):
            name, value = re.fullmatch(r"(\w+(?:\{.*?\})?) (\S+)(?: # .*)?", line).groups()
            float(value)
            yield name, value


def check_node_exporter():
    name = "node-exporter/recording.prom.gz"
    found = scrapes(name)
    values = [(time, dict(samples(text))) for time, device, text in found if device == "r1"]
    only_during("node-exporter", 0, [time for time, entry in values
                                     if entry['node_network_up{device="eth1"}'] == "0"],
                "node_network_up 0")
    size = 'node_filesystem_size_bytes{device="lab",fstype="tmpfs",mountpoint="/run"}'
    need(values[0][1][size], "1.6777216e+07", "a whole number from 1e6")
    each = sum(len(entry) for _, entry in values) // POLLS
    note(name, f"{len(found)} scrapes of 2 devices, {each} samples each")


def check_openmetrics():
    name = "openmetrics/recording.openmetrics.gz"
    found = scrapes(name)
    need({text.endswith("# EOF\n") for _, _, text in found}, {True}, "every scrape ends with EOF")
    need(set(re.findall(r"^# TYPE \w+ (\w+)$", load(name), flags=re.M)),
         {"counter", "gauge", "histogram", "info", "stateset"}, "types")
    down, missing = [], 0
    for time, device, text in found:
        for sample, value in samples(text):
            if device == "r2" and 'neighbor="10.0.24.2"' in sample and "Established" in sample:
                down += [time] if value == "0.0" else []
            missing += value == "NaN"
    only_during("openmetrics", 1, down, "session not established")
    need(missing, len(down), "prefixes that are no number")
    exemplars = len(re.findall(r"_bucket\{.*?\} \S+ # \{", load(name)))
    note(name, f"{len(found)} scrapes of 2 devices, {exemplars} exemplars, {missing} NaN")


def check_snmp():
    name = "snmp/recording.csv.gz"
    found = list(csv.DictReader(io.StringIO(load(name))))
    need(len(found), POLLS * 7, "rows")
    need({len(row) for row in found}, {13}, "columns")
    only_during("snmp", 0, sorted({int(row["time"]) for row in found if row["device"] == "r1"
                                   and row["ifOperStatus"] == "down"}), "ifOperStatus down")
    note(name, f"{len(found)} rows of 7 interfaces on 2 devices")


def check_collectd():
    name = "collectd/recording.jsonl.gz"
    lists = [entry for posted in objects(name) for entry in posted]
    need({tuple(entry) for entry in lists},
         {("values", "dstypes", "dsnames", "time", "interval", "host", "plugin", "plugin_instance",
           "type", "type_instance")}, "members")
    kinds = {kind for entry in lists for kind in entry["dstypes"]}
    need(kinds, {"derive", "gauge"}, "dstypes")
    need({entry["host"] for entry in lists}, {"r1", "r2"}, "hosts")
    names = ("host", "plugin", "plugin_instance", "type", "type_instance")
    series = {tuple(entry[key] for key in names) for entry in lists}
    note(name, f"{len(objects(name))} arrays, {len(lists)} value lists of {len(series)} series")
    name = "collectd/recording.csv.tar.gz"
    with tarfile.open(os.path.join(HERE, name)) as tar:
        files = {entry.name: tar.extractfile(entry).read().decode() for entry in tar}
    lines = 0
    for path, text in files.items():
        header, *data = text.splitlines()
        need(header.split(",")[0], "epoch", path)
        need({len(line.split(",")) for line in data}, {len(header.split(","))}, path)
        lines += len(data)
    unknown = sum("nan" in text for text in files.values())
    note(name, f"{len(files)} files, {lines} rows, {unknown} files with nan")


def influx_keys(lines):
    """Measurement, tags and time of each line."""
    return [(re.match(r"(?:[^ \\]|\\.)+", line)[0], line.rsplit(" ", 1)[1]) for line in lines]


def check_telegraf():
    single = objects("telegraf/recording.jsonl.gz")
    batches = objects("telegraf/recording.batches.json.gz")
    lines = load("telegraf/recording.influx.gz").splitlines()
    given = load("telegraf/recording.execd.influx.gz").splitlines()
    need(sum(len(batch["metrics"]) for batch in batches), len(single), "metrics in the batches")
    need(influx_keys(given), influx_keys(lines), "lines to execd")
    need(len(lines), len(single), "lines")
    need(all(entry["timestamp"] < 1e10 for entry in single), True, "seconds")
    need(all(metric["timestamp"] > 1e12 for batch in batches for metric in batch["metrics"]), True,
         "milliseconds")
    need({len(line.rsplit(" ", 1)[1]) for line in lines}, {19}, "nanoseconds")
    kinds = {}
    for entry in single:
        for field, value in entry["fields"].items():
            kinds.setdefault((entry["name"], field), set()).add(type(value))
    mixed = sum(kind == {int, float} for kind in kinds.values())
    down = [entry["timestamp"] for entry in single if entry["name"] == "interface" and
            entry["fields"]["ifOperStatus"] == 2 and entry["tags"]["sysName"] == "r1"]
    only_during("telegraf", 0, down, "ifOperStatus 2")
    names = sorted({entry["name"] for entry in single})
    note("telegraf/recording.jsonl.gz", f"{len(single)} metrics: {', '.join(names)}")
    note("telegraf/recording.batches.json.gz",
         f"the same in {len(batches)} batches; {mixed} fields with whole numbers and reals")
    note("telegraf/recording.influx.gz", f"the same, {len(lines)} lines")
    unsigned = sum(bool(re.search(r"=\d+u[, ]", line)) for line in given)
    note("telegraf/recording.execd.influx.gz", f"the same, {unsigned} lines with unsigned fields")


def check_telegraf_gnmi():
    name = "telegraf/recording.gnmi.jsonl.gz"
    found = objects(name)
    need(len(load("telegraf/recording.gnmi.influx.gz").splitlines()), len(found), "lines")
    need({type(value) for entry in found if entry["name"] == "counters"
          for value in entry["fields"].values()}, {str}, "64-bit counters")
    states = {entry["fields"]["session_state"] for entry in found if entry["name"] == "bgp"}
    need({"ESTABLISHED", "IDLE"} <= states, True, "session states")
    note(name, f"{len(found)} metrics of 2 devices over gNMI")
    note("telegraf/recording.gnmi.influx.gz", "the same")


def check_gnmic():
    arrays = objects("gnmic/recording.arrays.jsonl.gz")
    events = [event for array in arrays for event in array]
    need(objects("gnmic/recording.events.jsonl.gz"), events, "single events")
    indented = load("gnmic/recording.stdout.json.gz").replace("\n]\n[", "\n],\n[")
    need(json.loads(f"[{indented}]"), arrays, "indented arrays")
    deletes = sum(len(event.get("deletes", [])) for event in events)
    kinds = {type(value).__name__ for event in events for value in event.get("values", {}).values()}
    need(kinds, {"str", "int", "float", "list"}, "types of values")
    states = {value for event in events for name, value in event.get("values", {}).items()
              if name.endswith("/neighbor/state/session-state")}
    need({"ESTABLISHED", "IDLE"} <= states, True, "session states")
    note("gnmic/recording.arrays.jsonl.gz",
         f"{len(arrays)} arrays, {len(events)} events of 2 devices, {deletes} deleted paths")
    note("gnmic/recording.events.jsonl.gz", "the same, an event a line")
    note("gnmic/recording.stdout.json.gz", "the same, indented")


def check_parsers():
    name = "textfsm/recording.jsonl.gz"
    found = objects(name)
    cells = [value for entry in found for row in entry["parsed"] for value in row.values()]
    need({type(value) for value in cells}, {str, list}, "cells")
    states = [(entry["time"], row["state_or_prefixes_received"]) for entry in found
              for row in entry["parsed"]
              if entry["platform"] == "cisco_ios" and entry["device"] == "r2"]
    only_during("textfsm", 1, [time for time, state in states if state == "Idle (Admin)"],
                "Idle (Admin)")
    note("textfsm/texts.jsonl.gz", f"{len(objects('textfsm/texts.jsonl.gz'))} answers of 4 routers")
    note(name, f"{len(found)} lists of dicts, {len(cells)} cells, all texts or lists of texts")
    name = "genie/recording.jsonl.gz"
    found = objects(name)
    down = [entry["time"] for entry in found if entry["command"] == "show interfaces" and
            entry["device"] == "r1" and entry["parsed"]["Ethernet0/1"]["oper_status"] == "down"]
    only_during("textfsm", 0, down, "oper_status down")
    note(name, f"{len(found)} nested dicts of {len({e['command'] for e in found})} commands")
    name = "napalm/recording.jsonl.gz"
    found = objects(name)
    down = [entry["time"] for entry in found if entry["getter"] == "get_bgp_neighbors" and
            entry["device"] == "r2" and
            not entry["result"]["global"]["peers"]["10.0.24.2"]["is_up"]]
    only_during("textfsm", 1, down, "is_up false")
    note(name, f"{len(found)} nested dicts of {len({e['getter'] for e in found})} getters")


def main():
    for check in (check_node_exporter, check_openmetrics, check_snmp, check_collectd,
                  check_telegraf, check_telegraf_gnmi, check_gnmic, check_parsers):
        check()
    print("\n".join(rows))


if __name__ == "__main__":
    try:
        main()
    except AssertionError as error:
        sys.exit(f"check: {error}")
