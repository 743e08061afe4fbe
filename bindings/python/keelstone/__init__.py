"""Keelstone learns what is normal for every value of a network device.

    import keelstone
    with keelstone.open("/var/lib/keelstone") as domain:
        for alert in domain.evaluate("r1", "bgp", rows, interface="neighbor").alerts: print(alert)
"""

from __future__ import annotations

import atexit
import logging
import os
from typing import Callable, Optional, Union

from . import _native
from ._domain import Domain, Run, open
from ._errors import (
    DatabaseError,
    Error,
    InputError,
    InternalError,
    UsageError,
    WriteError,
    of_status,
)
from ._results import Alert, GoldenValue, Refusal, Result, RuleUpdate

__all__ = [
    "Alert",
    "DatabaseError",
    "Domain",
    "Error",
    "GoldenValue",
    "InputError",
    "InternalError",
    "Refusal",
    "Result",
    "RuleUpdate",
    "Run",
    "UsageError",
    "WriteError",
    "flush",
    "open",
    "set_interval_time",
    "set_logger",
]

__version__ = _native.version()

# The library's levels as Python's.
_LEVELS = {0: logging.DEBUG, 1: logging.INFO, 2: logging.WARNING, 3: logging.ERROR}

_native._set_raiser(of_status)
# The library's threads go on while the interpreter ends: none may call into it by then.
atexit.register(_native._ending)
os.register_at_fork(after_in_child=_native._forked)


def set_logger(
    logger: Union[logging.Logger, Callable[[int, str], object], None], *, level: int = 2
) -> None:
    """Hands the library's log lines to a logging.Logger, or to a callable that takes level
    and text; None goes back to the file log/keelstone.log below the root. Called from several
    threads. `level`: 0 progress, 1 information, 2 notices, 3 errors, and what is above it."""
    _native.set_log_level(level)
    callback: Optional[Callable[[int, str], object]]
    if isinstance(logger, logging.Logger):
        target = logger
        callback = lambda number, text: target.log(_LEVELS.get(number, logging.ERROR), "%s", text)
    else:
        callback = logger
    _native.set_logger(callback)


def set_interval_time(seconds: int) -> None:
    """How many seconds must lie between two values of a variable without a rule for both to
    be kept; 1800 when never set. For all domains of the root that is open."""
    if not 0 <= seconds < 2**31:
        raise InputError(f"seconds: {seconds} is out of range")
    _native.set_interval_time(seconds)


def flush() -> None:
    """Writes what is pending of all domains."""
    _native.flush()
