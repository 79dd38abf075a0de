"""Events that come again: after a cut connection, to other collectors, days later, after a restored backup."""

import concurrent.futures
import contextlib
import gzip
import json
import os
import shutil
import signal
import subprocess
import time

from harness import Run, case, check, need
from harness.client import Client, sample
from harness.cluster import NUMBERS, Cluster, Feeder, need_cluster, user_of_processes
from harness.cutter import Cutter
from localcluster import collectors, database, processes
from localcluster.layout import OWNER, REPLICATION, SUPERUSER

HOUR = 3600


@case("cluster", "connections cut after the commit", full=100, smoke=None)
def cut_replies(run: Run) -> dict:
    """Three of four replies do not arrive, until so many were cut."""
    with Cluster(run) as cluster, contextlib.ExitStack() as stack:
        cutters = [stack.enter_context(contextlib.closing(
            Cutter(cluster.layout.collector(number), 8443, 9443, 0.75, run.seed + number))) for number in NUMBERS]
        feeder = stack.enter_context(Feeder(run, cluster, "cut", [cutter.url for cutter in cutters]))
        deadline = time.monotonic() + 600
        while (cut := sum(cutter.cut for cutter in cutters)) < run.count:
            check(time.monotonic() < deadline, f"only {cut} connections were cut")
            feeder.check()
            run.progress(cut, run.count)
            time.sleep(2)
        for cutter in cutters:
            cutter.stop_cutting()
        feeder.finish()
        (repeated,) = cluster.query("SELECT sum(duplicates) FROM events")
        check(int(repeated) > 0, "no event came again")
        return {"connections cut": cut, "events": feeder.oracle.tracked, "events that came again": int(repeated)}


def moved(body: bytes, seconds: float) -> bytes:
    """The same events in a request of a later time."""
    batch = json.loads(gzip.decompress(body))
    for event in batch["events"]:
        event["request_timestamp"] += seconds
    return gzip.compress(json.dumps(batch).encode(), 1)


class Senders:
    """A client for each collector."""

    def __init__(self, cluster: Cluster, event):
        self._clients = [Client(cluster.layout.endpoint(number), cluster.layout.ca, *event) for number in NUMBERS]

    def batch(self, size: int):
        return self._clients[0].batch(size)

    def post(self, number: int, body: bytes, ahead: float = 0):
        client = self._clients[number]
        client.close()  # a collector hangs up on who is silent for long
        status, reply = client.post(body, client.headers(body, ahead))
        check(status == 200, f"{status} {reply!r}")

    def close(self):
        for client in self._clients:
            client.close()


def stored(cluster: Cluster) -> list[str]:
    return sorted(cluster.ids())


@case("cluster", "the same events at several collectors at once", full=100, smoke=None)
def overlapping(run: Run) -> dict:
    """Three requests at the same time, each of which has half of its events in common with each other one."""
    event, sent = sample(run), set()
    with Cluster(run) as cluster, contextlib.closing(Senders(cluster, event)) as senders, \
            concurrent.futures.ThreadPoolExecutor(3) as pool:
        for _ in range(run.count):
            ids, body = senders.batch(60)
            sent |= set(ids)
            events = json.loads(gzip.decompress(body))["events"]
            parts = [events[:40], events[20:], events[40:] + events[:20]]
            bodies = [gzip.compress(json.dumps({"events": part}).encode(), 1) for part in parts]
            list(pool.map(senders.post, (0, 1, 2), bodies))
            run.tick()
        check(stored(cluster) == sorted(sent), "not every event is stored exactly once")
    return {"requests": 3 * run.count, "events": len(sent), "events stored twice": 0}


def restart_collectors_ahead(cluster: Cluster, senders: Senders, hours: int):
    """Their clocks go that much before."""
    senders.close()
    for number in NUMBERS:
        cluster.strike(f"collector{number}", signal.SIGKILL)
        collectors.start(cluster.layout, number, ahead=hours)
    cluster.check_healed()


@case("cluster", "the same events days later, and from a restored backup", full=20, smoke=None)
def much_later(run: Run) -> dict:
    """The same identifiers in new requests: after 50 hours, after their day was dropped, and at a restored database."""
    need("faketime")
    event, ahead = sample(run), 50
    with Cluster(run) as cluster, contextlib.closing(Senders(cluster, event)) as senders:
        batches = [senders.batch(20) for _ in range(run.count)]
        for number, (_, body) in enumerate(batches):
            senders.post(number % 3, body)
        sent = sorted(name for ids, _ in batches for name in ids)
        check(stored(cluster) == sent, "not every event is stored once")
        cluster.query("DELETE FROM requests", OWNER)  # as after two days
        restart_collectors_ahead(cluster, senders, ahead)
        later = [moved(body, ahead * HOUR) for _, body in batches]
        for number, body in enumerate(later):
            senders.post((number + 1) % 3, body, ahead * HOUR)
        check(stored(cluster) == sent, f"after {ahead} hours events are stored again")
        (dropped,) = cluster.query(
            f"SELECT drop_partitions(extract(epoch FROM now())::double precision + {(ahead - 24) * HOUR})", OWNER)
        check(int(dropped) > 0 and not stored(cluster), "their day is not dropped")
        for number, body in enumerate(later):
            senders.post((number + 2) % 3, moved(body, 60), ahead * HOUR + 60)
        check(not stored(cluster), "events are stored again after their day was dropped")
        fresh, body = senders.batch(20)
        senders.post(0, moved(body, ahead * HOUR + 120), ahead * HOUR + 120)
        check(stored(cluster) == sorted(fresh), "new events are not stored")
        restore_dump(run, cluster)
        restart_collectors_ahead(cluster, senders, ahead)
        for number in NUMBERS:
            senders.post(number - 1, moved(body, ahead * HOUR + 180), ahead * HOUR + 180)
            senders.post(number - 1, moved(later[0], 180), ahead * HOUR + 180)
        check(stored(cluster) == sorted(fresh), "a restored database takes events again")
    return {"events": len(sent), "hours later": ahead, "stored again": 0}


def restore_dump(run: Run, cluster: Cluster):
    """A dump of the database replaces it, while the collectors are away."""
    layout, file = cluster.layout, run.folder() / "backup"
    for number in NUMBERS:
        cluster.strike(f"collector{number}", signal.SIGKILL)
    run_tool("pg_dump", "-Fc", "-f", file, "-d", layout.database_address(OWNER))
    for sql in ("DROP DATABASE kite WITH (FORCE)", f"CREATE DATABASE kite OWNER {OWNER}"):
        database.query(layout, sql, SUPERUSER, "postgres")
    run_tool("pg_restore", "--exit-on-error", "-d", layout.database_address(OWNER), file)


def run_tool(name: str, *arguments, **how):
    """A program of the database's, or one that has a path."""
    done = subprocess.run([os.path.join(database.PROGRAMS, name), *map(str, arguments)], stdout=subprocess.DEVNULL,
                          stderr=subprocess.PIPE, text=True, timeout=120, **how)
    check(done.returncode == 0, f"{name}: {done.stderr.strip()}")


def run_as_server(name: str, *arguments, **how):
    """As the user of its processes, and with nothing of ours around it."""
    run_tool(name, *arguments, user=user_of_processes(), cwd="/", env={"PATH": os.environ["PATH"], "LC_ALL": "C.UTF-8"}, **how)


@case("cluster", "a base backup restored", full=3, smoke=None)
def base_backup(run: Run) -> dict:
    """What was stored before it is there and known; what came after it is lost, as it is for every backup."""
    need_cluster()
    with Cluster(run) as cluster, contextlib.closing(Senders(cluster, sample(run))) as senders:
        kept: list[str] = []
        for number in range(run.count):
            (ids, body), (late, late_body) = senders.batch(200), senders.batch(200)
            senders.post(number % 3, body)
            kept = sorted(kept + ids)
            replica = take_base_backup(cluster)
            senders.post(number % 3, late_body)
            restore_base_backup(cluster, replica)
            check(stored(cluster) == kept, "not every event of the backup is stored")
            senders.post(0, moved(body, 60), 60)
            check(stored(cluster) == kept, "events of the backup are stored again")
            senders.post(1, moved(late_body, 60), 60)
            kept = sorted(kept + late)
            check(stored(cluster) == kept, "events that were lost with the former cluster are not taken again")
            run.tick()
        return {"restores": run.count, "events": len(kept), "stored again": 0}


def take_base_backup(cluster: Cluster) -> str:
    """From a replica, while all goes on: its name."""
    layout, replica = cluster.layout, cluster.find("replica")
    address = (f"postgresql://{REPLICATION}@{layout.database(int(replica[-1]))}:5432/?sslmode=verify-full&sslrootcert={layout.ca}"
               f"&passfile={layout.passwords}")
    backup = layout.folder / "backup"
    backup.mkdir(0o700)
    processes.give_away(backup)
    run_as_server("pg_basebackup", "-d", address, "-D", backup, "--checkpoint=fast", "--wal-method=stream")
    return replica


def restore_base_backup(cluster: Cluster, heir: str):
    """All databases begin anew with the backup, which one of them has first: whose paths are in its configuration."""
    layout, primary = cluster.layout, cluster.find("primary")
    for number in NUMBERS:
        cluster.end(f"collector{number}")
    databases = [f"db{number}" for number in NUMBERS]
    for name in sorted(databases, key=lambda name: name == primary):
        cluster.end(name)
        shutil.rmtree(layout.member(name) / "data")
    first = layout.member(heir)
    data = shutil.move(layout.folder / "backup", first / "data")
    (data / "standby.signal").rename(data / "recovery.signal")  # it was taken from a replica
    # All of the log that it needs came with it.
    settings = "-c listen_addresses= -c restore_command=false"
    run_as_server("pg_ctl", "-D", data, "-w", "-l", first / "recovery", "-o", settings, "start")
    run_as_server("pg_ctl", "-D", data, "-w", "stop")
    run_tool("/usr/bin/patronictl", "-c", first / "patroni.json", "remove", "kite", input="kite\nYes I am aware\n")
    cluster.start(heir)
    check(cluster.find("primary") == heir, "another one is the primary")  # before one without data begins an empty database
    cluster.check_healed()
