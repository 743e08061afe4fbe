"""What goes wrong, as exceptions."""


class Error(Exception):
    """Base of everything that Keelstone raises."""


class UsageError(Error):
    """A call that cannot be: a wrong argument, a closed domain, a wrong order of calls."""


class InputError(Error, ValueError):
    """A value, a run or settings that are none."""


class DatabaseError(Error):
    """A database is missing or cannot be used."""


class WriteError(Error):
    """Not everything could be written."""


class InternalError(Error):
    """A fault of the library, or no memory."""


# By the status of the C interface.
_CLASSES: dict[int, type[Error]] = {
    1: UsageError,
    2: UsageError,
    3: UsageError,
    4: UsageError,
    5: InputError,
    6: DatabaseError,
    7: WriteError,
    10: UsageError,
}


def of_status(status: int, what: str) -> Error:
    """The exception for a call that answered with this status."""
    return _CLASSES.get(status, InternalError)(what)
