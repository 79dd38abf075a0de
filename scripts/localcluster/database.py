"""Three servers of PostgreSQL, each under a Patroni of its own, which makes one of them the primary."""

import json
import subprocess
import urllib.error
import urllib.request

from . import processes
from .layout import COLLECTOR, NUMBERS, OWNER, READER, REPLICATION, SUPERUSER, Layout
from .problem import Problem

PROGRAMS = "/usr/lib/postgresql/15/bin"
# A dead primary's lease ends after `ttl`. A loop and two retries must fit into it.
TIMES = {"ttl": 12, "loop_wait": 2, "retry_timeout": 4}


def user(layout: Layout, name: str) -> dict:
    return {"username": name, "password": layout.password(name), "sslmode": "verify-full", "sslrootcert": str(layout.ca)}


def configuration(layout: Layout, number: int) -> dict:
    address, folder = layout.database(number), layout.member(f"db{number}")
    return {
        "scope": "kite", "name": f"db{number}",
        "restapi": {"listen": f"{address}:8008", "connect_address": f"{address}:8008"},
        "etcd": {"hosts": [f"{layout.etcd(each)}:2379" for each in NUMBERS]},
        "bootstrap": {
            "dcs": TIMES | {
                "synchronous_mode": True, "synchronous_mode_strict": True, "master_start_timeout": 10,
                "maximum_lag_on_failover": 1 << 20,
                "postgresql": {"use_pg_rewind": True, "use_slots": True, "parameters": {
                    "max_connections": 60, "shared_buffers": "64MB", "max_wal_size": "512MB", "wal_keep_size": "256MB"}}},
            "initdb": [{"encoding": "UTF8"}, {"locale": "C.UTF-8"}, "data-checksums"]},
        "postgresql": {
            "listen": f"{address}:5432", "connect_address": f"{address}:5432",
            "data_dir": str(folder / "data"), "bin_dir": PROGRAMS, "pgpass": str(folder / "pgpass"),
            "authentication": {"superuser": user(layout, SUPERUSER), "replication": user(layout, REPLICATION)},
            "pg_hba": ["hostssl replication replicator all scram-sha-256", "hostssl all all all scram-sha-256"],
            "parameters": {"unix_socket_directories": str(folder), "password_encryption": "scram-sha-256", "ssl": "on",
                           "ssl_cert_file": str(layout.tls / "server.pem"), "ssl_key_file": str(layout.tls / "server.key")}},
    }


def start(layout: Layout, number: int):
    folder = layout.member(f"db{number}")
    folder.mkdir(exist_ok=True)
    file = folder / "patroni.json"  # JSON is YAML
    file.touch(0o600)
    file.write_text(json.dumps(configuration(layout, number), indent=1) + "\n")
    processes.give_away(file)
    processes.start(layout, f"db{number}", ["/usr/bin/patroni", file])


def members(layout: Layout) -> list[dict]:
    """What the first Patroni that answers knows of all: name, role, state and lag."""
    for number in NUMBERS:
        try:
            with urllib.request.urlopen(f"http://{layout.database(number)}:8008/cluster", timeout=1) as reply:
                return json.load(reply)["members"]
        except (OSError, ValueError):
            continue
    return []


def numbers_of(layout: Layout, *roles: str) -> list[int]:
    return [int(member["name"][2:]) for member in members(layout)
            if member["role"] in roles and member["state"] in ("running", "streaming")]


def is_whole(layout: Layout) -> bool:
    """A primary, a synchronous replica, and another one that follows. One of another timeline has yet to be rewound."""
    known = members(layout)
    running = [member for member in known if member["state"] in ("running", "streaming")]
    followers = [member for member in running if member["role"] != "leader" and isinstance(member.get("lag"), int)]
    is_one_line = len({member.get("timeline") for member in running}) == 1
    if len(running) < len(NUMBERS) or len(followers) < len(NUMBERS) - 1 or not is_one_line:
        return False
    heirs = [member["name"] for member in followers if member["role"] == "sync_standby"]
    try:  # what Patroni knows is as old as the member's last loop; only whom both call synchronous can be the next primary
        streaming = query(layout, "SELECT sync_state || ' ' || application_name FROM pg_stat_replication "
                                  "WHERE state = 'streaming'", database="postgres")
    except Problem:
        return False
    synchronous = [name for state, name in map(str.split, streaming) if state == "sync"]
    return len(streaming) == len(NUMBERS) - 1 and bool(heirs) and heirs == synchronous


def query(layout: Layout, sql: str, name: str = SUPERUSER, database: str = "kite", writes: bool = True) -> list[str]:
    """The lines of the result."""
    done = subprocess.run([f"{PROGRAMS}/psql", "-XqAt", "-v", "ON_ERROR_STOP=1", "-d",
                           layout.database_address(name, writes, database) + "&connect_timeout=10", "-c", sql],
                          capture_output=True, text=True, timeout=120)
    if done.returncode != 0:
        raise Problem(f"the database refused: {done.stderr.strip()}")
    return done.stdout.splitlines()


def make_tables(layout: Layout):
    """The owner makes them; collectors and readers have users of their own."""
    query(layout, f"CREATE ROLE {OWNER} LOGIN CREATEROLE PASSWORD '{layout.password(OWNER)}'", database="postgres")
    query(layout, f"CREATE DATABASE kite OWNER {OWNER}", database="postgres")
    migrate(layout)
    for name, group in ((COLLECTOR, "kite_collector"), (READER, "kite_reader")):
        query(layout, f"CREATE ROLE {name} LOGIN PASSWORD '{layout.password(name)}' IN ROLE {group}", OWNER)


def migrate(layout: Layout, *options: str):
    done = subprocess.run([layout.kite, "collect", "migrate", "--db", layout.database_address(OWNER), *options],
                          capture_output=True, text=True, timeout=120)
    if done.returncode != 0:
        raise Problem(f"the tables cannot be made: {done.stderr.strip()}")
