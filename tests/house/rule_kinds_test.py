#!/usr/bin/env python3
"""Compares the names of the rule kinds that other languages list, in the order of their numbers,
with the rows of src/records/rule_kind_rows.h; and looks for each in the document of the rules.

usage: rule_kinds_test.py TREE
"""
import pathlib
import re
import sys
import unittest

TREE = pathlib.Path(sys.argv.pop(1))
LISTS = {"bindings/python/keelstone/_results.py": r"RULE_TYPES = \((.*?)\)",
         "program/report/page/data.js": r"KIND_NAMES = \[(.*?)\]",
         "scripts/drawing/evaluation.py": r"KINDS = \[(.*?)\]"}


def read(path):
    return (TREE / path).read_text(encoding="utf-8")


class RuleKindsTest(unittest.TestCase):
    def test_other_languages_list_the_kinds_of_the_rows(self):
        rows = re.findall(r'\.name = "(\w+)"', read("src/records/rule_kind_rows.h"))
        self.assertGreater(len(rows), 10)
        for path, pattern in LISTS.items():
            listed = re.search(pattern, read(path), re.S)[1]
            self.assertEqual(re.findall(r"\w+", listed), rows, path)
        rules = read("docs/rules.md")
        self.assertEqual([name for name in rows if f"`{name}`" not in rules], [])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
