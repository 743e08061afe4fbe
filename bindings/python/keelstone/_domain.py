"""Domains and runs."""

from __future__ import annotations

import os
import time as clock
from collections.abc import Iterable, Mapping
from datetime import datetime
from types import TracebackType
from typing import Any, Optional, Union

from . import _native, _values
from ._errors import InputError, UsageError
from ._results import Result

Time = Union[int, float, datetime, None]

_DATABASES = {
    "global-setting": 9,
    "variable-rule": 10,
    "object-rule": 11,
    "block-setting": 12,
    "interface-type": 13,
}
_TYPES = {"int64": 1, "float": 2, "double": 3, "string": 4, "table": 5}


def _seconds(time: Time) -> int:
    if time is None:
        return int(clock.time())
    try:
        seconds = int(time.timestamp() if isinstance(time, datetime) else time)
    except (TypeError, ValueError, OverflowError) as error:
        raise InputError(f"time: must be seconds or a datetime, not {time!r:.100}") from error
    if not -(2**63) <= seconds < 2**63:
        raise InputError(f"time: {seconds} is out of range")
    return seconds


class Run:
    """One parser run on one device: add values, evaluate once, take the result.

    Used by one thread, while its domain is open. As a context manager it evaluates at the end
    of the block, unless that has happened or an exception goes through:

        with domain.run("r1", "bgp_summary") as run:
            run.add("prefixes", 12, "10.0.12.2")
        print(run.result)
    """

    def __init__(
        self, domain: Domain, native: _native.Run, device: str, source: str, time: int
    ) -> None:
        self._domain = domain
        self._native = native
        self._pending: list[_values.Variable] = []
        self._result: Optional[Result] = None
        self.device = device
        self.source = source
        self.time = time

    def add(
        self,
        name: str,
        value: Any,
        interface: str = "",
        *,
        type: Optional[str] = None,
        keys: Optional[_values.Names] = None,
        sort: bool = True,
    ) -> Run:
        """Adds one value: a number, a string, a bool, or a list of rows (a table).

        `type` is "int64", "float", "double", "string" or "table" where the value's own does
        not tell. `keys` name the columns by which two tables are compared, all of them when
        left out; `sort=False` where the order of rows counts. None is passed over.
        """
        entry = _values.variable(name, value, interface, type=type, keys=keys, sort=sort)
        return self._take([entry])

    def add_all(
        self, values: Mapping[str, Any], *, keys: Optional[Mapping[str, _values.Names]] = None
    ) -> Run:
        """Adds nested dictionaries: the path to a value is its interface, its key the name."""
        return self._take(_values.variables(values, keys or {}))

    def add_rows(self, rows: Iterable[_values.Row], interface: _values.Names) -> Run:
        """Adds a list of dictionaries; the columns `interface` name the object of each row."""
        return self._take(_values.rows(rows, interface))

    def _require_usable(self) -> None:
        self._domain._require_open()
        if self._result is not None:
            raise UsageError("the run has been evaluated")

    def _take(self, entries: Iterable[_values.Variable]) -> Run:
        self._require_usable()
        self._pending.extend(list(entries))  # all or, when one is refused, none
        return self

    def evaluate(self, *, store: bool = True, explain: bool = True) -> Result:
        """Evaluates, once. With `store=False` nothing of the run is kept; with
        `explain=False` alerts have no explanation and cost less."""
        self._require_usable()
        if self._pending:
            self._native.add_json(_values.json_text(self._pending))
            self._pending = []
        if explain:
            self._native.explain()
        self._native.evaluate()
        try:
            if store:
                self._native.store()
                if self._domain._closed:  # meanwhile, by another thread
                    _native.flush()
        finally:
            self._native.discard()  # what is not stored; the unit's next run waits for it
        explanations = self._native.explanations() if explain else "[]"
        self._result = Result._of(self._native.json(), explanations, self._native.summary())
        return self._result

    @property
    def result(self) -> Result:
        if self._result is None:
            raise UsageError("the run has not been evaluated")
        return self._result

    def __enter__(self) -> Run:
        return self

    def __exit__(
        self,
        kind: Optional[type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        if kind is None and self._result is None:
            self.evaluate()

    def __repr__(self) -> str:
        state = "evaluated" if self._result is not None else f"{len(self._pending)} values"
        return f"<Run of {self.source} on {self.device} at {self.time}: {state}>"


class Domain:
    """What is learned of one set of devices. Any thread; runs of it go side by side, those of
    one device, source and param in the order of the calls.

    As a context manager it writes everything to the disk at the end, and closes.
    """

    def __init__(self, native: _native.Domain, id: str, root: str) -> None:
        self._native = native
        self._process = os.getpid()
        self.id = id
        self.root = root

    def evaluate(
        self,
        device: str,
        source: str,
        values: Union[Mapping[str, Any], Iterable[_values.Row]],
        *,
        interface: Optional[_values.Names] = None,
        table: Optional[str] = None,
        keys: Union[_values.Names, Mapping[str, _values.Names], None] = None,
        time: Time = None,
        param: str = "",
        on_demand: bool = False,
        store: bool = True,
        explain: bool = True,
    ) -> Result:
        """Evaluates what a parser gave.

        - a list of dictionaries with `interface="neighbor"`: one object a row, its other
          columns the variables;
        - a list of dictionaries with `table="routes"`: one table, compared by `keys`;
        - dictionaries, however deep: the path to a value is its interface, its key the
          variable's name. Lists inside are tables; `keys={"routes": ["prefix"]}`.

        `time` is that of the values: seconds since the epoch or a datetime, now when left
        out. `on_demand` checks and learns nothing; `store` and `explain` as in `Run.evaluate`.
        """
        run = self.run(device, source, time=time, param=param, on_demand=on_demand)
        if isinstance(values, Mapping):
            if interface is not None or table is not None:
                raise InputError("interface and table are for lists of rows")
            if keys is not None and not isinstance(keys, Mapping):
                raise InputError("keys of a dictionary's tables: {name: [column, …]}")
            run.add_all(values, keys=keys)
        elif table is not None and interface is None:
            if isinstance(keys, Mapping):
                raise InputError("keys of a table: [column, …]")
            run.add(table, _values.listed(values), keys=keys)
        elif interface is not None and table is None and keys is None:
            run.add_rows(values, interface)
        else:
            raise InputError("a list of rows needs interface=… or table=…, with its keys")
        return run.evaluate(store=store, explain=explain)

    def run(
        self,
        device: str,
        source: str,
        *,
        time: Time = None,
        param: str = "",
        on_demand: bool = False,
        node_id: str = "",
    ) -> Run:
        """Starts a run to which values are added one by one."""
        self._require_open()
        seconds = _seconds(time)
        native = self._native.start(device, source, param, seconds, on_demand, node_id)
        return Run(self, native, device, source, seconds)

    def define(self, source: str, name: str, type: str) -> None:
        """Defines a variable ahead; needed only when the domain does not enroll."""
        if type not in _TYPES:
            raise InputError(f"{type!r} is no type; one of {', '.join(_TYPES)}")
        self._native.define(source, name, _TYPES[type])

    def flush(self) -> None:
        """Writes what is pending; it is on disk afterwards."""
        self._native.flush()

    def merge(self, kind: str, path: Union[str, os.PathLike[str]]) -> None:
        """Takes a delivered database over: "object-rule", "global-setting" and so on."""
        if kind not in _DATABASES:
            raise InputError(f"{kind!r} is no database; one of {', '.join(_DATABASES)}")
        self._native.merge(_DATABASES[kind], os.fspath(path))

    def clean(self, keep: _values.Names) -> None:
        """Removes what was learned of all sources but these; a text is one source."""
        self._native.clean(_values.names(keep, "keep"))

    def reload(self) -> None:
        """Reads settings and definitions anew that another process has changed."""
        self._native.reload()

    def close(self) -> None:
        """Flushes and closes; a second time it does nothing."""
        if self._closed:
            return
        # First of all: a run that is stored from here on is flushed by who stores it.
        self._closed = True
        try:
            self._native.flush()
            self._native.close()
        except BaseException:
            self._closed = False
            raise

    _closed = False

    def _require_open(self) -> None:
        if self._closed:
            raise UsageError("the domain is closed")
        if self._process != os.getpid():
            raise UsageError("the domain was opened before fork(): open it anew in this process")

    def __enter__(self) -> Domain:
        return self

    def __exit__(
        self,
        kind: Optional[type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        try:
            self.close()
        except UsageError:  # a forked child leaves its parent's block, most often by sys.exit()
            if error is None:
                raise

    def __repr__(self) -> str:
        state = ", closed" if self._closed else ""
        return f"<Domain {self.id!r} below {self.root!r}{state}>"


def open(
    root: Union[str, os.PathLike[str]],
    domain: str = "default",
    *,
    create: bool = True,
    settings: Optional[Mapping[str, Any]] = None,
    enroll: bool = True,
    judge_repeated: bool = False,
    allow_duplicates: bool = False,
    max_ahead: int = 86400,
    memory: Optional[int] = None,
) -> Domain:
    """Opens a domain below the folder `root`, made if it is missing.

    `settings` are general settings laid over the defaults of a domain that is made.
    `enroll=False` rejects variables that nobody has defined. All domains that are open at
    one time share one root.

    A value that is earlier than the newest one of its variable, or of the same time and equal
    to it, is counted in `Result.repeated` and not judged again; `judge_repeated` judges it. A
    second value of one variable and interface in a run is refused; `allow_duplicates` takes
    it. A time that is ahead of the clock by more than `max_ahead` seconds, or not later than
    the interval time after 1970, is refused; with 0, times are taken as they come.
    `Result.refused` names what was refused, and why.

    `memory` says how many bytes (about) the state of devices may take that stays in memory from
    run to run, of all domains of the process; 256 MiB when never given. With 0, each run reads
    and writes what it needs.
    """
    if memory is not None and not 0 <= memory < 2**64:
        raise InputError(f"memory: {memory} is out of range")
    folder = os.path.abspath(os.fspath(root))
    if folder != _Root.folder:
        _native.set_root(folder)
        _Root.folder = folder
    text = None if settings is None else _values.json_text(settings)
    native = _native.Domain.open(domain, create, text)
    native.enroll(enroll)
    native.configure(judge_repeated, allow_duplicates, max_ahead)
    if memory is not None:
        _native.set_memory(memory)
    return Domain(native, domain, folder)


class _Root:
    folder: Optional[str] = None
