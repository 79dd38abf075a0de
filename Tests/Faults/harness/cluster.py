"""Three collectors over three PostgreSQL servers (scripts/cluster), and who sends to them without pause."""

import contextlib
import http.client
import itertools
import json
import os
import pathlib
import pwd
import shutil
import sys
import tempfile
import threading
import time

from . import stores
from .case import KEY, Failed, NotRun, Run, check
from .client import Client
from .host import Host
from .lines import eventually
from .oracle import Oracle

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[3] / "scripts"))

from localcluster import cluster as control  # noqa: E402
from localcluster import database, processes  # noqa: E402
from localcluster.layout import NUMBERS, READER, Layout, user_of_processes  # noqa: E402
from localcluster.problem import Problem  # noqa: E402

SECOND = 100 + os.getpid() % 150  # of its addresses, beside a cluster that a developer tries and those of other runs
HEALED = 240


def need_cluster():
    missing = control.missing_packages()
    if missing:
        raise NotRun(f"{', '.join(missing)} not installed (scripts/setup --cluster)")
    try:
        pwd.getpwnam(user_of_processes() or pwd.getpwuid(os.getuid()).pw_name)
    except KeyError as error:
        raise NotRun(str(error)) from None


def roomy_memory() -> str | None:
    """Where three databases write side by side, a disk's queue would be what is measured."""
    memory = "/dev/shm"
    is_roomy = os.path.isdir(memory) and shutil.disk_usage(memory).free > 4 << 30
    return memory if is_roomy else None


class Cluster:
    """One that is up, until the end of the block. `prepared(layout, stack)` may change its folder and the network before
    the start; what it enters into the stack is left after the end."""

    def __init__(self, run: Run, prepared=lambda layout, stack: None, has_namespaces: bool = False):
        need_cluster()
        self._stack = contextlib.ExitStack()
        self.run = run
        self._folder = pathlib.Path(tempfile.mkdtemp(prefix="kite-cluster-", dir=roomy_memory()))
        self._programs = pathlib.Path(tempfile.mkdtemp(prefix="kite-cluster-"))  # memory may refuse to run programs
        try:
            network = f"{10 if has_namespaces else 127}.{SECOND}"
            self.layout = control.prepare(self._folder / "all", self._copied(run.kite), network, KEY, has_namespaces)
            prepared(self.layout, self._stack)
            control.up(self.layout)
        except Problem as problem:
            logs = self._save_logs()
            self._end()
            raise Failed(f"the cluster does not start: {problem} ({logs})") from None
        except BaseException:
            self._end()
            raise

    def __enter__(self) -> "Cluster":
        return self

    def __exit__(self, kind, *_):
        if kind is not None:
            self._save_logs()
        self._end()

    def _copied(self, kite: pathlib.Path) -> pathlib.Path:
        """Where the user of the processes finds it."""
        for folder in (self._folder, self._programs):
            folder.chmod(0o755)
        return pathlib.Path(shutil.copy2(kite, self._programs))

    def _save_logs(self) -> pathlib.Path:
        saved = self.run.folder()
        for log in (self._folder / "all").glob("*/log"):
            shutil.copyfile(log, saved / f"{log.parent.name}.log")
        return saved

    def _end(self):
        if (self._folder / "all").exists():
            control.down(Layout(self._folder / "all", pathlib.Path(), "", ""), keep=True)
        self._stack.close()
        for folder in (self._folder, self._programs):
            shutil.rmtree(folder, ignore_errors=True)

    # -- what is in it

    def query(self, sql: str, user: str = READER) -> list[str]:
        """On the primary; tries again while there is none."""
        refusals: list[str] = []

        def ask():
            try:
                return [database.query(self.layout, sql, user)]
            except Problem as problem:
                refusals.append(str(problem))
                return None

        found = eventually(ask, 60, 0.5)
        check(found, f"the database cannot be read: {refusals[-1:]}")
        return found[0]

    def events(self, oracle: Oracle) -> list[dict]:
        """Those of one stream, in its order."""
        info = "data -> 'action_info'"
        rows = self.query(f"SELECT json_build_object('id', id, 'data', data) FROM events "
                          f"WHERE {info} ->> 'stream' = '{oracle.stream}' ORDER BY ({info} ->> 'serial')::bigint")
        return [json.loads(row) for row in rows]

    def ids(self) -> list[str]:
        return self.query("SELECT id FROM events")

    def longest_gap(self, begin: float) -> float:
        """Seconds in which the hosts' events did not arrive, since that moment."""
        (text,) = self.query(
            "SELECT coalesce(max(gap), 0) FROM (SELECT received_at, received_at - lag(received_at) OVER (ORDER BY received_at) "
            f"AS gap FROM events WHERE data -> 'action_info' ? 'stream' AND received_at > {begin - 10}) AS gaps "
            f"WHERE received_at > {begin}")
        return float(text)

    # -- what befalls it

    def find(self, kind: str) -> str:
        """The name of a member that is meant by "primary", "replica", "etcd" (its leader)."""
        found: list[str] = []

        def look():
            try:
                found.append(control.member(self.layout, kind, None))
            except Problem:
                return False
            return True

        check(eventually(look, HEALED), f"there is no {kind}")
        return found[-1]

    def strike(self, name: str, number, leaves_server: bool = False):
        """With `leaves_server` a database's Patroni alone."""
        processes.strike(self.layout, name, number, leaves_server=leaves_server)

    def end(self, name: str):
        """In good order."""
        processes.end(self.layout, name)

    def start(self, name: str):
        control.start(self.layout, name)

    def start_missing(self):
        for name in control.MEMBERS:
            if not processes.is_running(self.layout, name):
                self.start(name)

    def check_healed(self):
        """Everything that is down is started, and all is well again in time."""
        deadline = time.monotonic() + HEALED
        self.start_missing()
        while not control.is_healthy(self.layout):
            if time.monotonic() > deadline:
                raise Failed(f"it does not heal: {control.status(self.layout)}")
            time.sleep(0.5)
            self.start_missing()  # a collector that found no primary has ended


class Feeder:
    """A host that knows all endpoints, and tracks numbered events without pause."""

    def __init__(self, run: Run, cluster: Cluster, name: str, endpoints: list[str] | None = None, pause: float = 0.05):
        self.oracle = Oracle(name)
        self.state = run.folder() / "state"
        self._run, self._cluster, self._pause = run, cluster, pause
        first, *others = endpoints or [cluster.layout.endpoint(number) for number in NUMBERS]
        self.host = Host(run.kite, self.state, endpoint=first, secondary=others, ca=cluster.layout.ca,
                         start_in_background=True, sync_on_session_end=True).start()
        self._problem: Exception | None = None
        self._is_over = threading.Event()
        self._thread = threading.Thread(target=self._work, daemon=True)
        self._thread.start()

    def __enter__(self) -> "Feeder":
        return self

    def __exit__(self, *_):
        self.stop()
        self.host.close()

    def _work(self):
        try:
            while not self._is_over.wait(self._pause):
                self.oracle.track(self.host)
        except Failed as failure:
            self._problem = failure

    def stop(self):
        """Tracks no more; goes on uploading."""
        self._is_over.set()
        self._thread.join()

    def account(self):
        """The queue is read first: what leaves it meanwhile is found in the database."""
        queued = stores.queue(self._run.kite, self.state)
        return self.oracle.account(queued, self._cluster.events(self.oracle))

    def check(self) -> int:
        """No event that was once queued is neither queued nor stored: how many are stored."""
        if self._problem:
            raise self._problem
        deadline = time.monotonic() + 30
        while True:
            account = self.account()
            try:
                self.oracle.demand_prefix(account)
                return len(account.collected)
            except Failed:  # a primary that was replaced a moment ago shows what it had
                if time.monotonic() > deadline:
                    raise
                time.sleep(1)

    def finish(self) -> float:
        """All that was tracked is stored, once, soon after the end: how soon."""
        self.stop()
        begin = time.monotonic()
        is_empty = eventually(lambda: not stores.queue(self._run.kite, self.state), 60, 0.5)
        seconds = time.monotonic() - begin
        check(is_empty, f"the queue of {self.oracle.stream} is not empty after {seconds:.0f} s: {self.host.stderr[-5:]}")
        self.check()
        collected = len(self._cluster.events(self.oracle))
        check(collected == self.oracle.tracked, f"{collected} events are stored of {self.oracle.tracked}")
        return seconds


class Sender:
    """A client that sends a batch to one collector after the other, and notes what was answered 200, and when."""

    def __init__(self, cluster: Cluster, sample, size: int = 5, pause: float = 0.1):
        self.acknowledged: set[str] = set()
        self.sent: set[str] = set()
        self.answered_at: list[float] = []
        self._size, self._pause = size, pause
        urls = [cluster.layout.endpoint(number) for number in NUMBERS]
        self._clients = [Client(url, cluster.layout.ca, *sample, 5) for url in urls]
        self._is_over = threading.Event()
        self._thread = threading.Thread(target=self._work, daemon=True)
        self._thread.start()

    def __enter__(self) -> "Sender":
        return self

    def __exit__(self, *_):
        self.end()

    def _work(self):
        for client in itertools.cycle(self._clients):
            if self._is_over.wait(self._pause):
                break
            ids, body = client.batch(self._size)
            self.sent |= set(ids)
            try:
                status, _ = client.post(body)
            except (OSError, http.client.HTTPException):
                continue
            if status == 200:
                self.acknowledged |= set(ids)
                self.answered_at.append(time.monotonic())

    def end(self):
        self._is_over.set()
        self._thread.join()
        for client in self._clients:
            client.close()

    def longest_gap(self, begin: float) -> float:
        """Seconds between two answers, since that moment."""
        moments = [begin, *(moment for moment in self.answered_at if moment > begin), time.monotonic()]
        return max(later - earlier for earlier, later in itertools.pairwise(moments))

    def check(self, stored: list[str]):
        """Of all that are stored: every acknowledged event, and none twice."""
        check(len(stored) == len(set(stored)), f"{len(stored) - len(set(stored))} events are stored twice")
        missing = self.acknowledged - set(stored)
        check(not missing, f"{len(missing)} events that were answered 200 are not stored")
