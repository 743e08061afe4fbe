"""Parses texts.jsonl.gz with TextFSM: lists of dicts, as ntc-templates answers them."""

import gzip
import json
import os
import sys

import textfsm
from ntc_templates.parse import parse_output

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.append(os.path.join(HERE, os.pardir))

import lab as stage  # noqa: E402
import vendor  # noqa: E402


def own(command, text):
    """FRR has no templates in ntc-templates; those in this folder are written for its commands."""
    path = os.path.join(HERE, "templates", f"frr_{command.replace(' ', '_')}.textfsm")
    with open(path, encoding="ascii") as file:
        table = textfsm.TextFSM(file)
    names = [name.lower() for name in table.header]
    return [dict(zip(names, row)) for row in table.ParseText(text)]


def parsed(command, text):
    """(platform, rows) for each template that reads the text of a command."""
    if command == "ifconfig":
        return
    if command.startswith("ip "):
        yield "linux", parse_output(platform="linux", command=command, data=text)
        return
    yield "frr", own(command, text)
    if command == "show ip bgp summary":
        yield "cisco_ios", parse_output(platform="cisco_ios", command=command,
                                        data=vendor.bgp_summary(text))


def main():
    lines = []
    with gzip.open(os.path.join(HERE, "texts.jsonl.gz"), "rt", encoding="utf-8") as file:
        for entry in map(json.loads, file):
            for platform, rows in parsed(entry["command"], entry.pop("text")):
                lines.append(stage.line(**entry, platform=platform, parsed=rows))
    stage.write_gzip(os.path.join(HERE, "recording.jsonl.gz"), "".join(lines))


if __name__ == "__main__":
    main()
