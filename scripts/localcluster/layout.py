"""Where everything is: folders, addresses and passwords of one cluster."""

import json
import os
import pathlib
import secrets
from dataclasses import dataclass

from .problem import Problem

NUMBERS = (1, 2, 3)
OWNER, COLLECTOR, READER = "kite_owner", "collector", "analyst"
SUPERUSER, REPLICATION = "postgres", "replicator"
USERS = (SUPERUSER, REPLICATION, OWNER, COLLECTOR, READER)


@dataclass(frozen=True)
class Layout:
    """`network` is the first half of all addresses, such as "127.77"."""

    folder: pathlib.Path
    kite: pathlib.Path
    network: str
    key: str
    has_namespaces: bool = False

    # -- addresses

    def etcd(self, number: int) -> str:
        return f"{self.network}.1.{number}"

    def database(self, number: int) -> str:
        return f"{self.network}.2.{number}"

    def collector(self, number: int) -> str:
        return f"{self.network}.3.{number}"

    def endpoint(self, number: int) -> str:
        return f"https://{self.collector(number)}:8443/v4/events"

    def database_address(self, user: str, writes: bool = True, database: str = "kite") -> str:
        """Without a password, which is in a file that it names."""
        hosts = ",".join(f"{self.database(number)}:5432" for number in NUMBERS)
        session = "read-write" if writes else "any"
        return (f"postgresql://{user}@{hosts}/{database}?target_session_attrs={session}"
                f"&sslmode=verify-full&sslrootcert={self.ca}&passfile={self.passwords}")

    def namespace(self, number: int) -> str:
        """Of the network, in which that database is when each has its own."""
        return f"kite{self.network.split('.')[1]}-{number}"

    # -- files

    @property
    def tls(self) -> pathlib.Path:
        return self.folder / "tls"

    @property
    def ca(self) -> pathlib.Path:
        return self.tls / "ca.pem"

    @property
    def passwords(self) -> pathlib.Path:
        return self.folder / "passwords"

    def member(self, name: str) -> pathlib.Path:
        """The folder of a member such as "etcd1", "db1" or "collector1"."""
        return self.folder / name

    def password(self, user: str) -> str:
        for line in self.passwords.read_text().splitlines():
            *_, name, password = line.split(":")
            if name == user:
                return password
        raise Problem(f"{self.passwords} has no password of {user}")

    def make_passwords(self):
        lines = [f"*:*:*:{user}:{secrets.token_hex(16)}\n" for user in USERS]
        self.passwords.touch(0o600)
        self.passwords.write_text("".join(lines))

    # -- the description that later commands read

    def save(self):
        members = {"kite": str(self.kite), "network": self.network, "key": self.key,
                   "has_namespaces": self.has_namespaces}
        (self.folder / "cluster.json").write_text(json.dumps(members, indent=1) + "\n")


def load(folder: pathlib.Path) -> Layout:
    try:
        members = json.loads((folder / "cluster.json").read_text())
    except FileNotFoundError:
        raise Problem(f"there is no cluster in {folder}: scripts/cluster up") from None
    return Layout(folder, **members | {"kite": pathlib.Path(members["kite"])})


def user_of_processes() -> str | None:
    """PostgreSQL refuses to be root's."""
    return "postgres" if os.geteuid() == 0 else None
