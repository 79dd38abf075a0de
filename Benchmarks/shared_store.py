#!/usr/bin/env python3
"""What an event costs at each stage when collectors share a PostgreSQL database, and how many a second they take in.

The server is one of its own, with what makes a commit durable switched on, in a folder on the disk that goes afterwards.
"""

import argparse
import contextlib
import json
import os
import pathlib
import shutil
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import time

from run import Failure, machine, machine_line, number, processor_ticks, stolen_share

PROGRAMS = "/usr/lib/postgresql/15/bin"
SETTINGS = {"listen_addresses": "127.0.0.1", "shared_buffers": "1GB", "max_wal_size": "4GB", "max_connections": "60"}
TICKS_A_SECOND = os.sysconf("SC_CLK_TCK")
SIZES = """SELECT pg_current_wal_lsn() - '0/0',
  (SELECT coalesce(sum(pg_total_relation_size(inhrelid)), 0) FROM pg_inherits WHERE inhparent = 'events'::regclass),
  pg_total_relation_size('identifiers'),
  pg_database_size(current_database())"""


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def without_root(command):
    """The server refuses to be root's."""
    return ["setpriv", "--reuid=nobody", "--regid=nogroup", "--clear-groups", *command] if os.geteuid() == 0 else command


class Server:
    def __init__(self, folder):
        self.port = free_port()
        if os.geteuid() == 0:
            shutil.chown(folder, "nobody", "nogroup")
        data = folder / "data"
        run(without_root([f"{PROGRAMS}/initdb", "--auth=trust", "--username=kite", "--encoding=UTF8", "--locale=C.UTF-8",
                          "--data-checksums", "-D", str(data)]))
        settings = [word for name, value in SETTINGS.items() for word in ("-c", f"{name}={value}")]
        self._process = subprocess.Popen(
            without_root([f"{PROGRAMS}/postgres", "-D", str(data), "-k", str(folder), "-p", str(self.port), *settings]),
            stderr=subprocess.DEVNULL)
        try:
            self._wait()
        except BaseException:
            self.close()
            raise

    def _wait(self):
        for _ in range(300):
            if subprocess.run([f"{PROGRAMS}/pg_isready", "-q", "-h", "127.0.0.1", "-p", str(self.port)]).returncode == 0:
                return
            time.sleep(0.1)
        raise Failure("the database does not start")

    def address(self, database):
        return f"postgresql://kite@127.0.0.1:{self.port}/{database}"

    def ask(self, database, sql):
        return run(["psql", "-XAtq", "-F", " ", self.address(database), "-c", sql]).split()

    def processor_seconds(self):
        """Of all its processes, also those that have ended."""
        ticks = 0
        for process in pathlib.Path("/proc").glob("[0-9]*"):
            with contextlib.suppress(OSError):
                fields = (process / "stat").read_text().rpartition(")")[2].split()
                parent, own, ended = int(fields[1]), fields[11:13], fields[13:15]
                if int(process.name) == self._process.pid:
                    ticks += sum(map(int, own + ended))
                elif parent == self._process.pid:
                    ticks += sum(map(int, own))
        return ticks / TICKS_A_SECOND

    def close(self):
        self._process.send_signal(signal.SIGINT)
        self._process.wait()


def run(command, **environment):
    done = subprocess.run(command, capture_output=True, text=True, env=os.environ | environment, cwd="/")
    if done.returncode != 0:
        raise Failure(f"{command[0]}: exit code {done.returncode}\n{done.stderr}")
    return done.stdout


def state_of(server, database):
    return [float(each) for each in server.ask(database, SIZES)] + [server.processor_seconds()]


def measure(build, server, database, collectors, events):
    """So many events into an empty database: what one of them costs."""
    server.ask("postgres", f"CREATE DATABASE {database}")
    run([str(build / "kite"), "collect", "migrate", "--db", server.address(database)])
    server.ask(database, "CHECKPOINT")
    before = state_of(server, database)
    printed = run([str(build / "Benchmarks" / "kite_bench"), "--benchmark_filter=^collect/", "--benchmark_format=json"],
                  KITE_BENCH_DATABASE=server.address(database), KITE_BENCH_COLLECTORS=str(collectors),
                  KITE_BENCH_EVENTS=str(events))
    after = state_of(server, database)
    stored = int(server.ask(database, "SELECT count(*) FROM events")[0])
    done = json.loads(printed)["benchmarks"][0]
    if done.get("error_occurred"):
        raise Failure(done["error_message"])
    log, rows, identifiers, whole, processor = [(later - earlier) / stored for earlier, later in zip(before, after)]
    return {"events a second": done["events_per_second"], "request, bytes": done["bytes_per_event"],
            "client, us of CPU": done["client_cpu_us_per_event"], "collector, us of CPU": done["cpu_us_per_event"],
            "database, us of CPU": processor * 1e6, "log, bytes": log, "events, bytes on disk": rows,
            "identifiers, bytes on disk": identifiers, "all tables, bytes on disk": whole}


def medians(runs):
    return {name: statistics.median(each[name] for each in runs) for name in runs[0]}


def print_table(columns):
    print(f"{'collectors':28}" + "".join(f"{count:>12}" for count in columns))
    for name in next(iter(columns.values())):
        print(f"{name:28}" + "".join(f"{number(column[name]):>12}" for column in columns.values()))


def parse_arguments():
    parser = argparse.ArgumentParser(prog="scripts/bench_shared_store", description=__doc__.split("\n")[0])
    parser.add_argument("--build", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--events", type=int, default=200_000, help="in each run (200,000)")
    parser.add_argument("--repeat", type=int, default=3, help="runs of which the median is printed (3)")
    parser.add_argument("--collectors", type=int, nargs="+", default=[1, 2, 4], help="how many, each with a client (1 2 4)")
    return parser.parse_args()


def main():
    arguments = parse_arguments()
    build, facts, ticks = arguments.build.resolve(), machine(), processor_ticks()
    folder = pathlib.Path(tempfile.mkdtemp(prefix="kite-store-", dir="/var/tmp"))
    try:
        with contextlib.closing(Server(folder)) as server:
            columns = {count: medians([measure(build, server, f"bench_{count}_{run_number}", count, arguments.events)
                                       for run_number in range(arguments.repeat)]) for count in arguments.collectors}
    except Failure as failure:
        print(f"bench: {failure}", file=sys.stderr)
        return 1
    finally:
        shutil.rmtree(folder, ignore_errors=True)
    facts["stolen"] = stolen_share(ticks, processor_ticks())
    print(f"{machine_line(facts)}; per event:")
    print_table(columns)
    return 0


if __name__ == "__main__":
    sys.exit(main())
