"""The stores of a state folder, as the tool and the file system show them."""

import json
import pathlib

from .case import Failed
from .lines import run

PENDING = "kite_pending_events"


def _refuse(constant: str):
    raise ValueError(f"{constant} is no number of JSON")


def queue(kite, state, lines: list[str] | None = None) -> list[dict]:
    """The pending events. Torn JSON is a failure, and so is a number that is not finite. `lines`
    gets what the console was told."""
    done = run([kite, "queue", "--state", state])
    if done.returncode != 0:
        raise Failed(f"the queue cannot be read: {done.stderr.strip()}")
    if lines is not None:
        lines += done.stderr.splitlines()
    try:
        events = json.loads(done.stdout, parse_constant=_refuse)
    except ValueError as error:
        raise Failed(f"the queue is no JSON text: {error}: {done.stdout[:200]!r}") from None
    if not isinstance(events, list):
        raise Failed(f"the queue is no array: {done.stdout[:200]!r}")
    return events


def queue_or_none(kite, state) -> list[dict]:
    """The pending events of a folder in which perhaps no store was ever begun."""
    return queue(kite, state) if values_file(state).exists() else []


def keys(kite, state, secrets: bool = False) -> list[str]:
    return _store(kite, state, secrets, "keys").splitlines()


def value(kite, state, key: str, secrets: bool = False) -> str:
    """One value as it is stored."""
    return _store(kite, state, secrets, "get", key)


def values_file(state, secrets: bool = False) -> pathlib.Path:
    name = "secrets/secrets.values.log" if secrets else "app/kv.values.log"
    return pathlib.Path(state) / name


def segments(state) -> list[pathlib.Path]:
    """The files of the lists."""
    return sorted(pathlib.Path(state).glob("app/kv.rows-*.log"),
                  key=lambda path: int(path.stem.split("-")[1]))


def files(state) -> list[pathlib.Path]:
    """All files of both stores."""
    return sorted(path for path in pathlib.Path(state).glob("*/*") if path.is_file())


def set_aside(state) -> list[pathlib.Path]:
    """Files that were found to be another store's, of another format, or unusable."""
    return sorted(path for mark in ("foreign", "former", "unusable")
                  for path in pathlib.Path(state).glob(f"*/*.{mark}-*"))


def _store(kite, state, secrets: bool, *what: str) -> str:
    done = run([kite, "store", "--state", state, *(["--secrets"] if secrets else []), *what])
    if done.returncode != 0:
        raise Failed(f"kite store {' '.join(what)}: {done.stderr.strip()}")
    return done.stdout
