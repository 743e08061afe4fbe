#!/usr/bin/env python3
"""Holds the documents to what is true: their links, their defaults and the output of their
commands.

usage: documents_test.py TREE PROGRAM

A block marked "console" is run line by line in a scratch folder, one folder a document;
what stands below each "$ command" must be what the command prints.
"""
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

TREE, PROGRAM = pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2]).resolve()
DOCUMENTS = sorted([*TREE.glob("*.md"), *TREE.glob("docs/*.md"), *TREE.glob("examples/*/*.md")])


def prose(document):
    """The text without its blocks of code."""
    return re.sub(r"^```.*?^```$", "", document.read_text(), flags=re.M | re.S)


def anchors(document):
    heads = re.findall(r"^#+ (.*)$", prose(document), flags=re.M)
    return {re.sub(r"[^\w\- ]", "", head.lower()).replace(" ", "-") for head in heads}


def transcripts(document):
    """(command, expected output) of all console blocks."""
    for block in re.findall(r"^```console\n(.*?)^```$", document.read_text(), flags=re.M | re.S):
        for step in re.split(r"^\$ ", block, flags=re.M)[1:]:
            command, _, output = step.partition("\n")
            yield command, output


def untimed(text):
    return re.sub(r"\d+\.\d s, \d+ values/s", "TIME", text)


class DocumentsTest(unittest.TestCase):
    def test_links_lead_somewhere(self):
        dead, count = [], 0
        for document in DOCUMENTS:
            for target in re.findall(r"\]\(([^)]+)\)", prose(document)):
                if re.match(r"\w+:", target):
                    continue
                count += 1
                path, _, anchor = target.partition("#")
                file = (document.parent / path).resolve() if path else document
                if not file.exists() or (anchor and anchor not in anchors(file)):
                    dead.append(f"{document.relative_to(TREE)}: {target}")
        self.assertGreater(count, 20)
        self.assertEqual(dead, [])

    def test_commands_print_what_is_shown(self):
        environment = dict(os.environ, PATH=f"{PROGRAM.parent}:{os.environ['PATH']}", LC_ALL="C")
        count = 0
        for document in DOCUMENTS:
            with tempfile.TemporaryDirectory() as folder:
                for name in ("docs", "examples"):
                    (pathlib.Path(folder) / name).symlink_to(TREE / name)
                for command, expected in transcripts(document):
                    ran = subprocess.run(["bash", "-c", command], cwd=folder, env=environment,
                                         text=True, stdout=subprocess.PIPE,
                                         stderr=subprocess.STDOUT, check=False)
                    with self.subTest(document=document.name, command=command):
                        self.assertEqual(untimed(ran.stdout), untimed(expected))
                    count += 1
        self.assertGreater(count, 15)

    def test_settings_are_listed_with_their_defaults(self):
        text = (TREE / "docs/settings.md").read_text()
        sections = dict(re.findall(r"^### (.*?)\n(.*?)(?=^##)", text, flags=re.M | re.S))
        for kind, members in self.stored_defaults().items():
            section = "".join(body for head, body in sections.items() if f"`{kind}`" in head)
            listed = dict(re.findall(r"^\| `([\w.]+)` \| \w+ \| ([-\d.]+) \|", section, flags=re.M))
            written = {key: value for key, value in flattened(members)
                       if key not in ("timeIntervalLimit", "dataCountHistory")}
            self.assertEqual(listed.keys(), written.keys(), kind)
            for key, value in written.items():
                self.assertAlmostEqual(float(listed[key]), value, 6, f"{kind}.{key}")

    def stored_defaults(self):
        with tempfile.TemporaryDirectory() as folder:
            subprocess.run([PROGRAM, "init", "--root", folder], check=True,
                           stdout=subprocess.DEVNULL)
            file = pathlib.Path(folder) / "data/FSParserData/default/KSGlobalSetting.db"
            rows = subprocess.run(["sqlite3", file, "select data from KSGlobalSetting"],
                                  check=True, text=True, stdout=subprocess.PIPE).stdout
        settings = {row["name"]: row["value"] for row in map(json.loads, rows.splitlines())}
        return settings["KSGeneralSetting"]


def flattened(members):
    for key, value in members.items():
        if isinstance(value, dict):
            yield from ((f"{key}.{inner}", number) for inner, number in value.items())
        else:
            yield key, value


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
