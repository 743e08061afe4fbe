#!/usr/bin/env python3
"""Holds docs/assurance.md to the tests: each promise names some, and each of them exists.

usage: assurance_test.py TREE BUILD CTEST
"""
import json
import pathlib
import re
import subprocess
import sys
import unittest

TREE, BUILD, CTEST = pathlib.Path(sys.argv[1]), sys.argv[2], sys.argv[3]


def promises():
    """(promise, names of tests) of every row of the tables."""
    for line in (TREE / "docs/assurance.md").read_text().splitlines():
        cells = [cell.strip() for cell in line.strip("|").split("|")]
        if line.startswith("| ") and cells[1] != "shown by":
            yield cells[0], re.findall(r"`([^`]+)`", cells[1])


def known_tests():
    """What ctest would run: plain names, without what parameters add to them, and the
    methods of test scripts as SCRIPT/METHOD; and the fuzz targets."""
    yield from (target.stem for target in (TREE / "tests/fuzz").glob("*.cpp"))
    listed = subprocess.run([CTEST, "--test-dir", BUILD, "--show-only=json-v1"], check=True,
                            text=True, stdout=subprocess.PIPE).stdout
    for test in json.loads(listed)["tests"]:
        name = test["name"]
        yield name
        parts = re.fullmatch(r"(?:\w+/)?(\w+)(?:/\w+)?\.(\w+)(?:[/<].*)?", name)
        if parts:
            yield ".".join(parts.groups())
        for argument in test.get("command", [])[1:]:
            if argument.endswith("_test.py"):
                text = pathlib.Path(argument).read_text()
                yield from (f"{name}/{method}" for method in re.findall(r"def (test_\w+)", text))


class AssuranceTest(unittest.TestCase):
    def test_every_promise_names_tests_that_exist(self):
        known, found = set(known_tests()), list(promises())
        self.assertGreater(len(known), 100)
        self.assertGreater(len(found), 20)
        self.assertEqual([promise for promise, tests in found if not tests], [])
        named = {test for _, tests in found for test in tests}
        self.assertEqual(named - known, set())


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
