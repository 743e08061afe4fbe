"""Prints random tables as members of a variable, and on the next line each one's digest."""
import hashlib
import json
import math
import random
import struct
import sys


def real(rng):
    while True:
        value = struct.unpack("<d", struct.pack("<Q", rng.getrandbits(64)))[0]
        if math.isfinite(value):
            return value


def text(rng):
    pool = "ab\"\\/\n\t\r\b\f\x00\x01\x1f\x7f éλ\u2028\U0001F600"
    return "".join(rng.choice(pool) for _ in range(rng.randrange(6)))


def cell(rng, depth=0):
    kind = rng.randrange(10 if depth < 3 else 8)
    if kind == 8:
        return [cell(rng, depth + 1) for _ in range(rng.randrange(3))]
    if kind == 9:
        return {text(rng): cell(rng, depth + 1) for _ in range(rng.randrange(3))}
    return [None, True, False, rng.randrange(-9, 10), rng.getrandbits(rng.randrange(1, 200)),
            real(rng), round(rng.uniform(-1e17, 1e17), 2) * 10.0 ** -rng.randrange(24),
            text(rng)][kind]


def compact(value):
    return json.dumps(value, ensure_ascii=False, separators=(",", ":"))


def table(rng):
    columns = list({text(rng): 0 for _ in range(rng.randrange(1, 6))})
    rows = [[cell(rng) for _ in columns] for _ in range(rng.randrange(6))]
    keys = rng.sample(columns, rng.randrange(len(columns) + 1)) if rng.random() < 0.5 else None
    sort = rng.random() < 0.7
    entering = sorted(columns if keys is None else keys, key=lambda name: name.encode())
    texts = [compact([row[columns.index(name)] for name in entering]).encode() for row in rows]
    if sort:
        texts.sort()
    members = {"value": {"columns": columns, "rows": rows}, "sort": sort}
    if keys is not None:
        members["keys"] = keys
    return members, hashlib.md5(b"\n".join(texts)).hexdigest()


rng = random.Random(20240229)
for number in range(int(sys.argv[1])):
    members, digest = table(rng)
    print(json.dumps(members, ensure_ascii=number % 2 == 0)[1:-1])
    print(digest)
