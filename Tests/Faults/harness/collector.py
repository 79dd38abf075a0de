"""A collection service: `kite collect` with a certificate of its own."""

import json
import os
import pathlib
import signal
import sqlite3
import subprocess

from .case import KEY, Failed
from .lines import Gathered, LineSource, Silence, eventually

COLUMNS = ("id", "type", "timestamp", "request_timestamp", "received_at", "app", "client_id",
           "tester", "user_info", "user_ids", "data", "duplicates")
JSON_COLUMNS = {"user_info", "user_ids", "data"}


class Collector:
    """One process over a folder: database `events.db`, certificates in `tls`.

    `certificate` (of harness.certificates) replaces the one of its own. Started again over the same
    folder and `listen`, it is the same service."""

    def __init__(self, kite, folder, *, key: str = KEY, faults=(), listen: str = "127.0.0.1:0",
                 certificate=None, prefix=(), environment: dict | None = None,
                 seconds: float = 30):
        folder = pathlib.Path(folder)
        self.db = folder / "events.db"
        command = [*map(str, prefix), str(kite), "collect", "--listen", listen, "--key", key,
                   "--db", str(self.db)]
        if certificate:
            command += ["--cert", str(certificate.chain), "--cert-key", str(certificate.key)]
        else:
            command += ["--self-signed", str(folder / "tls")]
        for fault in faults:
            command += ["--fault", fault]
        self.process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                        stderr=subprocess.PIPE,
                                        env=dict(os.environ, **(environment or {})))
        self._errors = Gathered(self.process.stderr)
        try:
            first = LineSource(self.process.stdout.fileno()).next(seconds)
        except Silence:
            first = None
        if first is None:
            self.kill()
            raise Failed("the collector does not start: " + " ".join(self.stderr))
        ready = json.loads(first)
        self.url = ready["url"]
        self.ca = certificate.ca if certificate else pathlib.Path(ready["ca"])
        self._lines = Gathered(self.process.stdout)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    @property
    def pid(self) -> int:
        return self.process.pid

    @property
    def address(self) -> str:
        """HOST:PORT, for another one in its place."""
        return self.url.split("/")[2]

    @property
    def stderr(self) -> list[str]:
        return self._errors.lines

    @property
    def requests(self) -> list[dict]:
        """What it said about every request so far."""
        return [json.loads(line) for line in self._lines.text.split("\n")[:-1]]

    @property
    def request_count(self) -> int:
        return self._lines.text.count("\n")

    def events(self) -> list[dict]:
        """The rows of its table in the order in which they arrived, JSON columns as values."""
        return rows(self.db)

    def count(self) -> int:
        return count(self.db)

    def wait_for(self, number: int, seconds: float = 30) -> bool:
        """Whether so many events arrive in time."""
        return bool(eventually(lambda: self.count() >= number, seconds, 0.02))

    def close(self) -> int:
        """Ends it as a person would: its status."""
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
            try:
                self.process.wait(10)
            except subprocess.TimeoutExpired:
                self.process.kill()
        return self._finish()

    def kill(self) -> int:
        if self.process.poll() is None:
            self.process.kill()
        return self._finish()

    def _finish(self) -> int:
        status = self.process.wait()
        self._errors.finish()
        if hasattr(self, "_lines"):
            self._lines.finish()
        else:
            self.process.stdout.close()
        return status


def _connect(database) -> sqlite3.Connection:
    return sqlite3.connect(f"file:{database}?mode=ro", uri=True, timeout=30)


def rows(database) -> list[dict]:
    """The events of a collector's database."""
    connection = _connect(database)
    try:
        found = connection.execute(f"SELECT {', '.join(COLUMNS)} FROM events ORDER BY rowid")
        return [{name: json.loads(value) if name in JSON_COLUMNS and value is not None else value
                 for name, value in zip(COLUMNS, row)} for row in found]
    finally:
        connection.close()


def count(database) -> int:
    connection = _connect(database)
    try:
        return connection.execute("SELECT count(*) FROM events").fetchone()[0]
    finally:
        connection.close()
