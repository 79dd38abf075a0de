"""The stores of a state folder, as the tool and the file system show them."""

import json
import pathlib
import sqlite3

from .case import Failed
from .lines import run

PENDING = "kite_pending_events"


def _refuse(constant: str):
    raise ValueError(f"{constant} is no number of JSON")


def queue(kite, state) -> list[dict]:
    """The pending events. Torn JSON is a failure, and so is a number that is not finite."""
    done = run([kite, "queue", "--state", state])
    if done.returncode != 0:
        raise Failed(f"the queue cannot be read: {done.stderr.strip()}")
    try:
        events = json.loads(done.stdout, parse_constant=_refuse)
    except ValueError as error:
        raise Failed(f"the queue is no JSON text: {error}: {done.stdout[:200]!r}") from None
    if not isinstance(events, list):
        raise Failed(f"the queue is no array: {done.stdout[:200]!r}")
    return events


def queue_or_none(kite, state) -> list[dict]:
    """The pending events of a folder in which perhaps no store was ever begun."""
    return queue(kite, state) if kv_file(state).exists() else []


def keys(kite, state, secrets: bool = False) -> list[str]:
    return _store(kite, state, secrets, "keys").splitlines()


def value(kite, state, key: str, secrets: bool = False) -> str:
    """One value as it is stored."""
    return _store(kite, state, secrets, "get", key)


def kv_file(state) -> pathlib.Path:
    return pathlib.Path(state) / "app" / "kv.sqlite"


def secrets_file(state) -> pathlib.Path:
    return pathlib.Path(state) / "secrets" / "secrets.sqlite"


def files(state) -> list[pathlib.Path]:
    """All files of both stores, the locks aside."""
    return sorted(path for path in pathlib.Path(state).glob("*/*")
                  if path.is_file() and path.suffix != ".lock")


def set_aside(state) -> list[pathlib.Path]:
    """Stores that were found damaged and put aside."""
    return sorted(path for path in pathlib.Path(state).glob("*/*.corrupt-*")
                  if not path.name.endswith(("-wal", "-shm")))


def checkpoint(file):
    """Moves what a store's log holds into its file; no process may have it open."""
    connection = sqlite3.connect(file)
    try:
        connection.execute("PRAGMA wal_checkpoint(TRUNCATE)")
    finally:
        connection.close()


def _store(kite, state, secrets: bool, *what: str) -> str:
    done = run([kite, "store", "--state", state, *(["--secrets"] if secrets else []), *what])
    if done.returncode != 0:
        raise Failed(f"kite store {' '.join(what)}: {done.stderr.strip()}")
    return done.stdout
