"""Holds the includes of the tree against the rooms in ARCHITECTURE.md: a room uses only what stands
above it in the table, and its row names the rooms that it uses, no more and no fewer. SQLite is
for its wrapper and the storage room.

usage: rooms_test.py TREE
"""
import pathlib
import re
import sys
import unittest

TREE = pathlib.Path(sys.argv.pop(1))
INCLUDE = re.compile(r'\s*#\s*include "([^"]+)"')
SQLITE = re.compile(r"\bCppSQLite3\w*|\bsqlite3\w*|\bcppsqlite3\b", re.I)


def table():
    """The rooms in their order, each with those that it may use; and the public headers without a
    source of their own, each with its room."""
    text = (TREE / "ARCHITECTURE.md").read_text(encoding="utf-8")
    section = re.search(r"^## Rooms\n(.*?)^## ", text, re.S | re.M)[1]
    rooms = {}
    for folder, uses in re.findall(r"^\| `([\w/]+)/` \|[^|]*\|([^|]*)\|", section, re.M):
        rooms[folder] = re.findall(r"`([\w/]+)/`", uses)
    bare = {}
    for header, room in re.findall(r"`(\w+\.h)` is\s+of\s+`([\w/]+)/`", section):
        bare[f"include/keelstone/{header}"] = room
    return rooms, bare


ROOMS, BARE = table()
SOURCES = {path.stem: path for path in TREE.glob("src/**/*.cpp")}


def room_of(path):
    """The room of a file; a public header lives with its source."""
    if path in BARE:
        return BARE[path]
    if path.startswith("include/keelstone/"):
        source = SOURCES.get(pathlib.PurePath(path).stem)
        path = str(source.relative_to(TREE)) if source else path
    for room in ROOMS:
        if path.startswith(f"{room}/"):
            return room
    return None


def target(name):
    """The file that an include names."""
    for base in ("include/", "src/", ""):
        if (TREE / base / name).is_file():
            return base + name
    return name


def lines():
    """Every line of the rooms: (file, number, text)."""
    files = [path for folder in ("include/keelstone", "src", "bindings", "program")
             for path in (TREE / folder).rglob("*") if path.suffix in (".h", ".cpp", ".c")]
    for path in sorted(files):
        for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
            yield str(path.relative_to(TREE)), number, line


def includes():
    """Every include of one room by another: (room, used room, where)."""
    for name, number, line in lines():
        found = INCLUDE.match(line)
        if found and room_of(name) != room_of(target(found[1])):
            yield room_of(name), room_of(target(found[1])), f"{name}:{number}: {found[1]}"


class RoomsTest(unittest.TestCase):
    def test_includes_follow_the_order(self):
        order = list(ROOMS)
        self.assertGreater(len(order), 10)
        wrong = [f"{where} ({room} uses {used})" for room, used, where in includes()
                 if room is None or used is None or order.index(used) > order.index(room)]
        self.assertEqual(wrong, [])

    def test_the_table_says_what_is_used(self):
        used = {room: {} for room in ROOMS}
        for room, other, where in includes():
            if room is not None:
                used[room].setdefault(other, where)
        self.assertGreater(sum(map(len, used.values())), 20)
        for room, allowed in ROOMS.items():
            for other, where in used[room].items():
                self.assertIn(other, allowed, f"{where}: the table does not let {room} use {other}")
            for other in allowed:
                self.assertIn(other, used[room], f"the table lets {room} use {other}; nothing does")

    def test_sqlite_is_for_storage(self):
        places = {name: f"{name}:{number}: {line.strip()}" for name, number, line in lines()
                  if SQLITE.search(line)}
        wrapper = ("include/keelstone/cppsqlite3.h", "src/base/sqlite/cppsqlite3.cpp")
        self.assertTrue(all(name in places for name in wrapper))
        self.assertEqual([where for name, where in places.items()
                          if name not in wrapper and room_of(name) != "src/storage"], [])

    def test_the_public_face_needs_nothing_else(self):
        private = [f"{path.name}:{number}: {found[1]}"
                   for path in sorted((TREE / "include/keelstone").glob("*.h"))
                   for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1)
                   if (found := INCLUDE.match(line)) and not found[1].startswith("keelstone/")]
        self.assertEqual(private, [])


if __name__ == "__main__":
    unittest.main()
