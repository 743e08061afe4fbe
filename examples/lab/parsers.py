"""Small parsers: the output of a router's commands in, the variables of a parser run out.

A parser takes the texts of its commands and a dictionary of its own that lasts from poll to poll
(for differences of counters) and answers a list of variables. Anything it cannot read raises; the
caller turns that into a run without variables, as it does with a command that failed.
"""

import json
import re
import time


def variable(name, value, interface="", **fields):
    made = {"name": name, "value": value, **fields}
    if interface:
        made["interface"] = interface
    return made


def table(name, rows, columns, volatile=()):
    """A table whose volatile columns are in the rows but not in the digest."""
    value = {"columns": list(columns) + list(volatile),
             "rows": [[row[column] for column in (*columns, *volatile)] for row in rows]}
    return variable(name, value, keys=list(columns))


def change(memory, key, value):
    """How much a counter has grown since the last poll; nothing at the first, at least 0."""
    before, memory[key] = memory.get(key), value
    return None if before is None else max(0, value - before)


def system(outputs, _):
    version, host_name, daemons = outputs
    match = re.search(r"^FRRouting (\S+) \(([^)]*)\)", version, re.MULTILINE)
    return [
        variable("version", match.group(1)),
        variable("configured_name", match.group(2)),
        variable("host_name", host_name.strip()),
        variable("daemons", " ".join(sorted(daemons.split()))),
    ]


def processes(outputs, _):
    rows = []
    for line in outputs[0].splitlines():
        pid, name, resident = line.split()
        rows.append({"name": name, "pid": int(pid), "resident_kib": int(resident)})
    return [
        variable("count", len(rows)),
        table("processes", rows, ("name", "pid"), ("resident_kib",)),
    ]


def config(outputs, _):
    text = outputs[0]
    text = text[text.index("frr version") :].strip()
    return [variable("text", text), variable("lines", len(text.splitlines()))]


def interfaces(outputs, memory):
    rows, variables = [], []
    for name, data in sorted(json.loads(outputs[0]).items()):
        ups, downs = data["linkUps"], data["linkDowns"]
        row = {
            "name": name,
            "admin": data["administrativeStatus"],
            # Left out by zebra when the interface is administratively down.
            "oper": data.get("operationalStatus", "down"),
            "mtu": data["mtu"],
            "mac": data.get("hardwareAddress", ""),
            "addresses": " ".join(item["address"] for item in data.get("ipAddresses", [])),
            "link_ups": ups,
            "link_downs": downs,
        }
        rows.append(row)
        variables += [
            variable("admin", row["admin"], name),
            variable("oper", row["oper"], name),
            variable("mtu", row["mtu"], name),
            variable("link_changes", change(memory, name, ups + downs), name),
        ]
    columns = ("name", "admin", "oper", "mtu", "mac", "addresses")
    return [*variables, table("interfaces", rows, columns, ("link_ups", "link_downs"))]


def traffic(outputs, memory):
    """Counters as they stand, their rates since the last poll, and new errors and drops."""
    now = time.monotonic()
    passed, memory["time"] = now - memory.get("time", now), now
    variables = []
    for link in json.loads(outputs[0]):
        name = link["ifname"]
        if name == "lo":
            continue
        for side in ("rx", "tx"):
            counters = link["stats64"][side]
            data = change(memory, (name, side, "bytes"), counters["bytes"])
            packets = change(memory, (name, side, "packets"), counters["packets"])
            lost = change(memory, (name, side, "lost"), counters["errors"] + counters["dropped"])
            byte_rate = None if data is None else round(data / passed, 1)
            packet_rate = None if packets is None else round(packets / passed, 2)
            variables += [
                variable(f"{side}_bytes", counters["bytes"], name),
                variable(f"{side}_byte_rate", byte_rate, name),
                variable(f"{side}_packet_rate", packet_rate, name, type="float"),
                variable(f"{side}_lost", lost, name),
            ]
    return variables


def shapers(outputs, memory):
    variables = []
    for discipline in json.loads(outputs[0]):
        if discipline["kind"] != "tbf":
            continue
        name = discipline["dev"]
        variables += [
            variable("rate", discipline["options"]["rate"], name),
            variable("drops", change(memory, name, discipline["drops"]), name),
        ]
    return variables


def neighbors(outputs, _):
    rows = [
        {"address": item["dst"], "interface": item["dev"], "mac": item["lladdr"],
         "state": " ".join(item["state"])}
        for item in json.loads(outputs[0]) if "lladdr" in item
    ]
    return [
        variable("count", len(rows)),
        table("neighbors", rows, ("address", "interface", "mac"), ("state",)),
    ]


def addresses(outputs, _):
    rows = [
        {"interface": link["ifname"], "address": f"{item['local']}/{item['prefixlen']}",
         "scope": item["scope"]}
        for link in json.loads(outputs[0]) for item in link["addr_info"]
    ]
    return [table("addresses", rows, ("interface", "address", "scope"))]


def routes(outputs, _):
    rows = []
    for prefix, entries in json.loads(outputs[0]).items():
        for entry in entries:
            if not entry.get("selected"):
                continue
            hops = [
                " ".join(filter(None, (hop.get("ip"), hop.get("interfaceName")))) or "null"
                for hop in entry["nexthops"] if hop.get("fib")
            ]
            rows.append({
                "prefix": prefix,
                "protocol": entry["protocol"],
                "metric": entry["metric"],
                "next_hops": ", ".join(sorted(hops)),
                "uptime": entry["uptime"],
            })
    counts = [
        variable("count", sum(row["protocol"] == protocol for row in rows), protocol)
        for protocol in ("connected", "static", "ospf", "bgp")
    ]
    columns = ("prefix", "protocol", "metric", "next_hops")
    return [*counts, table("routes", rows, columns, ("uptime",))]


def bgp_summary(outputs, memory):
    rows, variables = [], []
    for address, peer in json.loads(outputs[0])["peers"].items():
        rows.append({
            "neighbor": address,
            "remote_as": peer["remoteAs"],
            "state": peer["state"],
            "uptime": peer["peerUptime"],
            "messages": peer["msgRcvd"] + peer["msgSent"],
        })
        variables += [
            variable("state", peer["state"], address),
            variable("prefixes_received", peer.get("pfxRcd"), address),
            variable("prefixes_sent", peer.get("pfxSnt"), address),
            variable("new_messages", change(memory, address, peer["msgRcvd"]), address),
        ]
    established = sum(row["state"] == "Established" for row in rows)
    columns = ("neighbor", "remote_as", "state")
    return [
        *variables,
        variable("established", established),
        table("peers", rows, columns, ("uptime", "messages")),
    ]


def bgp_routes(outputs, _):
    rows = []
    for prefix, paths in json.loads(outputs[0])["routes"].items():
        for path in paths:
            rows.append({
                "prefix": prefix,
                "next_hop": path["nexthops"][0]["ip"],
                "as_path": path["path"],
                "valid": path.get("valid", False),
                "best": path.get("bestpath", False),
                "version": path["version"],
            })
    columns = ("prefix", "next_hop", "as_path", "valid", "best")
    return [
        variable("prefixes", len({row["prefix"] for row in rows})),
        variable("paths", len(rows)),
        table("routes", rows, columns, ("version",)),
    ]


def ospf_neighbors(outputs, _):
    rows, variables = [], []
    for router, entries in json.loads(outputs[0])["neighbors"].items():
        for entry in entries:
            rows.append({
                "router": router,
                "address": entry["ifaceAddress"],
                "interface": entry["ifaceName"].partition(":")[0],
                "state": entry["nbrState"],
                "dead_time": entry["deadTime"],
            })
            variables.append(variable("state", entry["nbrState"], router))
    full = sum(row["state"].startswith("Full") for row in rows)
    columns = ("router", "address", "interface", "state")
    return [*variables, variable("full", full), table("neighbors", rows, columns, ("dead_time",))]


def ospf_database(outputs, memory):
    data = json.loads(outputs[0])
    area = data["areas"]["0.0.0.0"]
    return [
        variable("area_lsas", area["lsaNumber"]),
        variable("external_lsas", data["lsaExternalCounter"]),
        variable("spf_runs", change(memory, "spf", area["spfExecutedCounter"])),
    ]


def ping(outputs, _):
    variables = []
    for text in outputs:
        target = re.search(r"^PING (\S+)", text, re.MULTILINE).group(1)
        sent, received = re.search(r"(\d+) packets transmitted, (\d+) received", text).groups()
        lost = 100.0 * (int(sent) - int(received)) / int(sent)
        variables += [
            variable("received", int(received), target),
            variable("loss_percent", lost, target, type="float"),
        ]
    return variables
