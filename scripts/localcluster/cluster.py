"""Begins, shows, breaks and ends a cluster."""

import getpass
import os
import pathlib
import pwd
import secrets
import shutil
import signal
import subprocess

from . import collectors, database, etcd, processes, tls
from .layout import NUMBERS, READER, Layout, user_of_processes
from .problem import Problem
from .processes import eventually

NEEDED = {"etcd": "etcd", "/usr/bin/patroni": "Patroni", f"{database.PROGRAMS}/initdb": "PostgreSQL 15", "openssl": "openssl"}
MEMBERS = [f"{kind}{number}" for kind in ("etcd", "db", "collector") for number in NUMBERS]


def missing_packages() -> list[str]:
    return [what for program, what in NEEDED.items() if not shutil.which(program)]


def require_programs():
    missing = missing_packages()
    if missing:
        raise Problem(f"not installed: {', '.join(missing)} (scripts/setup --cluster)")


def require_access(path: pathlib.Path, how: int):
    """The processes' user gets at the path."""
    user = user_of_processes()
    identity = {"user": user, "group": pwd.getpwnam(user).pw_gid, "extra_groups": []} if user else {}
    test = ["test", "-x" if how & os.X_OK else "-r", str(path)]
    if subprocess.run(test, cwd="/", check=False, **identity).returncode != 0:
        raise Problem(f"the user {user or getpass.getuser()} cannot get at {path}: put it elsewhere (--folder, --kite)")


def prepare(folder: pathlib.Path, kite: pathlib.Path, network: str, key: str | None, has_namespaces: bool = False) -> Layout:
    """The folder with passwords and certificates."""
    require_programs()
    if not kite.is_file():
        raise Problem(f"there is no {kite}: scripts/build, or --kite PATH")
    if len(str(folder)) > 80:
        raise Problem(f"{folder} is too long for the name of a socket: choose a shorter --folder")
    if folder.exists() and any(folder.iterdir()):
        raise Problem(f"{folder} is not empty: scripts/cluster down --folder {folder}")
    folder.mkdir(parents=True, exist_ok=True)
    folder.chmod(0o755)
    layout = Layout(folder, kite, network, key or secrets.token_hex(8), has_namespaces)
    layout.save()
    require_access(folder, os.X_OK)
    require_access(kite, os.X_OK)
    layout.make_passwords()
    processes.give_away(layout.passwords)
    tls.make(layout)
    return layout


def up(layout: Layout, say=lambda text: None):
    """Starts what `prepare` made, and returns when all of it works."""
    say("etcd")
    for number in NUMBERS:
        etcd.start(layout, number)
    wait(layout, lambda: etcd.leader(layout), 60, "etcd finds no leader", "etcd1")
    say("PostgreSQL")
    for number in NUMBERS:
        database.start(layout, number)
    wait(layout, lambda: database.is_whole(layout), 300, "no primary with two replicas", "db1")
    database.make_tables(layout)
    say("collectors")
    for number in NUMBERS:
        collectors.start(layout, number)
    for number in NUMBERS:
        wait(layout, lambda n=number: collectors.is_up(layout, n), 60, f"collector {number} does not answer",
             f"collector{number}")


def wait(layout: Layout, condition, seconds: float, problem: str, name: str):
    if not eventually(condition, seconds):
        raise Problem(f"{problem}; {name} said: {processes.last_words(layout, name)}")


def is_healthy(layout: Layout) -> bool:
    return (all(processes.is_running(layout, name) for name in MEMBERS) and
            all(etcd.state(layout, number) for number in NUMBERS) and database.is_whole(layout) and
            all(collectors.is_up(layout, number) for number in NUMBERS))


def member(layout: Layout, kind: str, number: int | None) -> str:
    """The name of "primary", "replica 2", "collector", "etcd 3", …: the first that is meant."""
    if kind == "db" and number:
        return f"db{number}"
    if kind in ("primary", "replica"):
        roles = ("leader",) if kind == "primary" else ("sync_standby", "replica", "quorum_standby")
        found = database.numbers_of(layout, *roles)
        if number and number not in found or not found:
            raise Problem(f"there is no {kind}{f' {number}' if number else ''} now: scripts/cluster status")
        return f"db{number or found[0]}"
    if kind == "etcd" and not number:
        number = etcd.leader(layout)
    return f"{kind}{number or 1}"


STARTS = {"etcd": etcd.start, "db": database.start, "collector": collectors.start}


def start(layout: Layout, name: str):
    if processes.is_running(layout, name):
        raise Problem(f"{name} is running")
    STARTS[name[:-1]](layout, int(name[-1]))


def strike(layout: Layout, name: str, number: signal.Signals):
    if not processes.is_running(layout, name):
        raise Problem(f"{name} is not running")
    processes.strike(layout, name, number)


def down(layout_or_folder: Layout | pathlib.Path, keep: bool = False):
    """Whatever state it is in, also one that was half begun."""
    layout = layout_or_folder
    if isinstance(layout, pathlib.Path):
        if not (layout / "cluster.json").exists():
            raise Problem(f"there is no cluster in {layout}")
        layout = Layout(layout, pathlib.Path(), "", "")
    processes.strike(layout, "", signal.SIGKILL)
    if not keep:
        shutil.rmtree(layout.folder)


def state_of(layout: Layout, name: str) -> str:
    if not processes.is_running(layout, name):
        return "not running"
    if processes.is_stopped(layout, name):
        return "stopped"
    if name.startswith("etcd"):
        return etcd.state(layout, int(name[-1])) or "without a leader"
    return "running" if collectors.is_up(layout, int(name[-1])) else "does not answer"


def status(layout: Layout) -> list[tuple[str, str, str]]:
    """Name, address and state of each member."""
    lines = [(f"etcd{n}", f"{layout.etcd(n)}:2379", state_of(layout, f"etcd{n}")) for n in NUMBERS]
    known = {each["name"]: each for each in database.members(layout)}
    for number in NUMBERS:
        name = f"db{number}"
        found = known.get(name)
        text = "unknown" if found is None else f"{found['role'].replace('_', ' ')}, {found['state']}"
        if found and "lag" in found:
            text += f", lag {found['lag']}"
        if not processes.is_running(layout, name):
            text = "not running"
        elif processes.is_stopped(layout, name):
            text = "stopped"
        lines.append((name, f"{layout.database(number)}:5432", text))
    return lines + [(f"collector{n}", f"{layout.collector(n)}:8443", state_of(layout, f"collector{n}")) for n in NUMBERS]


def directions(layout: Layout) -> str:
    """What a person pastes."""
    first, *others = (layout.endpoint(number) for number in NUMBERS)
    secondary = " ".join(f"--secondary {each}" for each in others)
    return f"""endpoints  {first}
           {others[0]}
           {others[1]}
CA file    {layout.ca}
key        {layout.key}
database   {layout.database_address(READER, writes=False)}

Send an event:
  printf '%s\\n' '{{"op":"start"}}' '{{"op":"trackUserAction","name":"hello","data":{{}}}}' '{{"op":"drain","deliverWithin":4}}' |
    {layout.kite} host --state {layout.folder}/host --endpoint {first} {secondary} --ca-file {layout.ca} --key {layout.key}
Read it:
  psql '{layout.database_address(READER, writes=False)}' -c 'SELECT id, type, data FROM events'"""
