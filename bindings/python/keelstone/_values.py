"""What parsers give, as the variables of a run.

A call that takes several names takes a list of them, or one name as a text. The rule is one for all shapes of data: the key of a value is the variable's name, and the
path to it, its keys joined by "/", is the interface. A list of dictionaries is a table.
"""

from __future__ import annotations

import json
from collections.abc import Iterable, Iterator, Mapping, Sequence
from typing import Any, Optional, Union

from ._errors import InputError

Row = Mapping[str, Any]
Names = Union[str, Iterable[str]]
Variable = dict[str, Any]


def names(given: Names, what: str) -> list[str]:
    """The names of a list of them, or the one name that a text is."""
    if isinstance(given, str):
        return [given]
    if isinstance(given, Iterable):
        several = list(given)
        if all(isinstance(name, str) for name in several):
            return several
    raise InputError(f"{what}: must be a name or a list of names, not {given!r:.100}")


def json_text(value: Any) -> str:
    """The value as the engine reads it."""
    try:
        return json.dumps(value, allow_nan=False)
    except (TypeError, ValueError) as error:
        raise InputError(str(error)) from error
    except RecursionError as error:
        raise InputError("nested too deeply") from error


def is_table(value: object) -> bool:
    """Whether a value becomes a table: a list or tuple, of whatever."""
    return isinstance(value, Sequence) and not isinstance(value, (str, bytes, bytearray))


def variable(
    name: str,
    value: Any,
    interface: str = "",
    *,
    type: Optional[str] = None,
    keys: Optional[Names] = None,
    sort: bool = True,
) -> Variable:
    """One variable; a list of rows, or of anything else, becomes a table."""
    entry: Variable = {"name": name, "interface": interface}
    if is_table(value):
        entry["value"] = table(value)
        if keys is not None:
            entry["keys"] = names(keys, f"{name}: keys")
        entry["sort"] = sort
    elif keys is not None:
        raise InputError(f"{name}: keys are for tables, which are lists of rows")
    elif isinstance(value, (bytes, bytearray)):
        entry["value"] = value.decode("utf-8", "backslashreplace")
    else:
        entry["value"] = value
    if type is not None:
        entry["type"] = type
    return entry


def table(rows: Sequence[Any]) -> Any:
    """Rows as the engine takes them; values that are no rows get a column "value"."""
    if all(isinstance(row, Mapping) for row in rows):
        return [dict(row) for row in rows]
    if any(isinstance(row, Mapping) for row in rows):
        raise InputError("a table has either rows or single values, not both")
    return {"columns": ["value"], "rows": [[value] for value in rows]}


def variables(values: Mapping[str, Any], keys: Mapping[str, Names]) -> Iterator[Variable]:
    """The variables of nested dictionaries, as NAPALM's getters and Genie's parsers give."""
    for given, what in ((values, "values"), (keys, "keys")):
        if not isinstance(given, Mapping):
            raise InputError(f"{what}: must be a dictionary, not {given!r:.100}")
    unused = set(keys)
    try:
        for path, name, value in _leaves(values, ()):
            unused.discard(name)
            yield variable(name, value, "/".join(path), keys=keys.get(name))
    except RecursionError as error:
        raise InputError("nested too deeply") from error
    if unused:
        raise InputError(f"no such table to give keys for: {', '.join(sorted(unused))}")


def _leaves(
    values: Mapping[str, Any], path: tuple[str, ...]
) -> Iterator[tuple[tuple[str, ...], str, Any]]:
    for key, value in values.items():
        if isinstance(value, Mapping):
            yield from _leaves(value, (*path, str(key)))
        else:
            yield path, str(key), value


def listed(rows: Iterable[Any]) -> list[Any]:
    """The rows of a list, or of whatever gives them one by one."""
    if isinstance(rows, Iterable) and not isinstance(rows, (str, bytes, bytearray)):
        return list(rows)
    raise InputError(f"must be a list of rows, not {rows!r:.100}")


def rows(rows: Iterable[Row], interface: Names) -> Iterator[Variable]:
    """The variables of rows, as TextFSM gives: the columns `interface` name the object of a
    row, all others are variables of it."""
    columns = names(interface, "interface")
    for number, row in enumerate(listed(rows)):
        if not isinstance(row, Mapping):
            raise InputError(f"row {number} must be a dictionary, not {row!r:.100}")
        missing = [name for name in columns if name not in row]
        if missing:
            raise InputError(f"row {number} has no column {missing[0]!r}")
        where = "/".join(str(row[name]) for name in columns)
        for name, value in row.items():
            if name not in columns:
                yield variable(str(name), value, where)
