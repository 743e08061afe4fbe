"""What parsers give, as the variables of a run.

The rule is one for all shapes of data: the key of a value is the variable's name, and the
path to it, its keys joined by "/", is the interface. A list of dictionaries is a table.
"""

from __future__ import annotations

from collections.abc import Iterable, Iterator, Mapping, Sequence
from typing import Any, Optional, Union

from ._errors import InputError

Scalar = Union[bool, int, float, str, None]
Row = Mapping[str, Any]
Variable = dict[str, Any]


def is_table(value: object) -> bool:
    """Whether a value becomes a table: a list or tuple, of whatever."""
    return isinstance(value, Sequence) and not isinstance(value, (str, bytes, bytearray))


def variable(
    name: str,
    value: Any,
    interface: str = "",
    *,
    type: Optional[str] = None,
    keys: Optional[Sequence[str]] = None,
    sort: bool = True,
) -> Variable:
    """One variable; a list of rows, or of anything else, becomes a table."""
    entry: Variable = {"name": name, "interface": interface}
    if is_table(value):
        entry["value"] = table(value)
        if keys is not None:
            entry["keys"] = list(keys)
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


def variables(values: Mapping[str, Any], keys: Mapping[str, Sequence[str]]) -> Iterator[Variable]:
    """The variables of nested dictionaries, as NAPALM's getters and Genie's parsers give."""
    unused = set(keys)
    for path, name, value in _leaves(values, ()):
        unused.discard(name)
        yield variable(name, value, "/".join(path), keys=keys.get(name))
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


def rows(rows: Iterable[Row], interface: Union[str, Sequence[str]]) -> Iterator[Variable]:
    """The variables of rows, as TextFSM gives: the columns `interface` name the object of a
    row, all others are variables of it."""
    names = [interface] if isinstance(interface, str) else list(interface)
    for number, row in enumerate(rows):
        missing = [name for name in names if name not in row]
        if missing:
            raise InputError(f"row {number} has no column {missing[0]!r}")
        where = "/".join(str(row[name]) for name in names)
        for name, value in row.items():
            if name not in names:
                yield variable(str(name), value, where)
