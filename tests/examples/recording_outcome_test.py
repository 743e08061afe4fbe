"""The recorded inputs, evaluated, against what came of them when their digests were taken:
nothing that makes evaluation faster may change a byte of its results or of what is stored.

    recording_outcome_test.py EXAMPLES PROGRAM [--print]

With --print it writes the digests of this program instead, for recording_outcome.json."""

import base64
import ctypes
import hashlib
import json
import os
import re
import sqlite3
import sys
import tempfile
import unittest

import recordings

PRINT = "--print" in sys.argv and not sys.argv.remove("--print")
EXAMPLES, PROGRAM = sys.argv.pop(1), sys.argv.pop(1)
EXPECTED = os.path.join(os.path.dirname(os.path.abspath(__file__)), "recording_outcome.json")

# In one process most of what a run meets still waits to be written; in many, each run reads
# what the one before has stored.
PIECES = (1, 12)
FRAME = re.compile(rb"KLUv/[0-9A-Za-z+/]+=*")  # zstd's first bytes in base64


def digest(pieces):
    sha = hashlib.sha256()
    for piece in pieces:
        sha.update(piece)
        sha.update(b"\n")
    return sha.hexdigest()


def decompressed(frame):
    """The digest of a compressed text: another zstd makes other frames of the same text."""
    packed = base64.b64decode(frame[0])
    zstd = ctypes.CDLL("libzstd.so.1")
    zstd.ZSTD_getFrameContentSize.restype = ctypes.c_ulonglong
    zstd.ZSTD_decompress.restype = ctypes.c_size_t
    zstd.ZSTD_decompress.argtypes = [ctypes.c_char_p, ctypes.c_size_t] * 2
    text = ctypes.create_string_buffer(zstd.ZSTD_getFrameContentSize(packed, len(packed)))
    if zstd.ZSTD_decompress(text, len(text), packed, len(packed)) != len(text):
        raise ValueError("a damaged frame")
    return hashlib.sha256(text.raw).hexdigest().encode()


def stored_rows(root):
    """Every row of every table, sorted: row ids and pages may differ, contents may not."""
    rows = []
    for folder, _, names in sorted(os.walk(os.path.join(root, "data"))):
        for name in sorted(names):
            if not name.endswith(".db"):
                continue
            with sqlite3.connect(os.path.join(folder, name)) as database:
                database.text_factory = bytes
                tables = database.execute("SELECT name FROM sqlite_master WHERE type = 'table'")
                for (table,) in tables.fetchall():
                    label = (name.encode(), table)
                    for row in database.execute(f'SELECT * FROM "{table.decode()}"'):
                        rows.append(FRAME.sub(decompressed, repr((label, row)).encode()))
    return sorted(rows)


def outcome(example, pieces):
    folder = os.path.join(EXAMPLES, example)
    runs = recordings.lines_of(folder).splitlines(keepends=True)
    output = []
    with tempfile.TemporaryDirectory() as work:
        root = os.path.join(work, "root")
        recordings.make_root(PROGRAM, folder, root)
        size = -(-len(runs) // pieces)
        for first in range(0, len(runs), size):
            piece = b"".join(runs[first:first + size])
            output += recordings.evaluate(PROGRAM, root, piece, "--format", "json").splitlines()
        return {"output": digest(output), "databases": digest(stored_rows(root))}


class RecordingOutcome(unittest.TestCase):
    def test_results_and_stored_rows_are_the_same_to_the_byte(self):
        with open(EXPECTED, encoding="utf-8") as file:
            expected = json.load(file)
        self.assertEqual(set(expected), {"lab", "linux-host"})
        for example, digests in expected.items():
            for pieces in PIECES:
                with self.subTest(example=example, pieces=pieces):
                    self.assertEqual(outcome(example, pieces), digests)


if __name__ == "__main__":
    if PRINT:
        print(json.dumps({name: outcome(name, 1) for name in ("lab", "linux-host")}, indent=2))
    else:
        unittest.main()
