"""SIGKILL at random moments, and at every single call of a write."""

import dataclasses
import json
import pathlib
import random
import struct
import time

from harness import (Collector, Failed, Host, Oracle, Run, case, check, eventually, need, records,
                     stores, strace, total)

ROUNDS_OF_A_LIFE = 10  # kills of one state folder
DIVISOR = 100  # of all periods: the queue is written every tenth of a second
FLUSH_PERIOD = 10.0
TROUBLE = ("damaged", "Damaged", "set aside", "memory only", "cannot be")


def timed_host(run: Run, state, **options) -> Host:
    return Host(run.program("timed_host"), state, arguments=(), **options)


def check_console(host: Host):
    """A store that was killed has to open as if nothing had happened."""
    trouble = [line for line in host.stderr if any(word in line for word in TROUBLE)]
    check(not trouble, "after a kill: " + "\n".join(trouble))


class Value:
    """A number that is written again and again: after a kill it is the last one that was answered,
    or one that was sent after it."""

    def __init__(self, read):
        self._read = read
        self.sent = self.answered = 0

    def next(self) -> int:
        self.sent += 1
        return self.sent

    def check(self, run: Run, state):
        found = self._read(run, state)
        check(self.answered <= found <= self.sent,
              f"a value is {found}, neither the old {self.answered} nor the new {self.sent}")
        self.sent = self.answered = found


def stored_profile(run: Run, state) -> int:
    data = json.loads(stores.value(run.kite, state, "Kite-User-Info", secrets=True))["data"]
    return data.get("proof", 0)


def stored_session(run: Run, state) -> int:
    text = stores.value(run.kite, state, "Kite-Last-Session")
    found = json.loads(text).get("session_data", {})
    return found.get("proof", 0)


@dataclasses.dataclass
class Life:
    """A state folder, and the collector that it sends to, through many kills."""

    run: Run
    folder: pathlib.Path
    random: random.Random
    collector: Collector
    oracles: list[Oracle] = dataclasses.field(default_factory=list)
    profile: Value = dataclasses.field(default_factory=lambda: Value(stored_profile))

    @property
    def state(self) -> pathlib.Path:
        return self.folder / "state"

    def begin_round(self) -> Oracle:
        self.oracles.append(Oracle(f"round {len(self.oracles)}"))
        return self.oracles[-1]

    def server(self) -> dict:
        """Half of the rounds send what they have, the others keep it."""
        return {"collector": self.collector} if self.random.random() < 0.5 else {}

    def change_profile(self, host: Host):
        value = self.profile.next()
        host.call("updateUserInfo", with_={"proof": value})
        self.profile.answered = value

    def check_round(self, safe) -> int:
        """How many events were lost, all of them at the end and none of them safe."""
        oracle = self.oracles[-1]
        account = oracle.account(stores.queue(self.run.kite, self.state), self.collector.events())
        oracle.demand(account, safe)
        oracle.demand_prefix(account)
        self.profile.check(self.run, self.state)
        self.run.tick()
        return len(account.lost)

    def deliver_all(self) -> int:
        """What is in the queue in the end reaches the collector, once. How many there are."""
        queued = stores.queue(self.run.kite, self.state)
        known = {event["id"] for event in queued} | {row["id"] for row in self.collector.events()}
        sender = timed_host(self.run, self.state, collector=self.collector, divide=DIVISOR)
        with sender as host:
            host.start()
            arrived = eventually(
                lambda: known <= {row["id"] for row in self.collector.events()}, 60)
            check(arrived, "\n".join(["the queue is not delivered after the last kill",
                                      *host.stderr[-6:]]))
            check_console(host)
        rows = self.collector.events()
        for oracle in self.oracles:
            oracle.account([], rows)
        check(not stores.set_aside(self.state), "a file of a store was set aside")
        return sum(oracle.tracked for oracle in self.oracles)


def lives(run: Run, round_of) -> dict:
    """Plays `count` rounds `round_of(life) -> events lost`, in lives of some rounds each."""
    whole, rest = divmod(run.count, ROUNDS_OF_A_LIFE)
    sizes = [ROUNDS_OF_A_LIFE] * whole + [rest] * bool(rest)
    if len(sizes) == 1 and run.count > 1:
        sizes = [run.count // 2, run.count - run.count // 2]

    def play(item) -> dict:
        number, rounds = item
        folder = run.folder()
        with Collector(run.kite, folder) as collector:
            life = Life(run, folder, run.random(number), collector)
            lost = sum(round_of(life) for _ in range(rounds))
            return {"kills": rounds, "events": life.deliver_all(), "lost within the promise": lost}

    return total(run.each(enumerate(sizes), play, ticks=False))


def wait_until_queued(life: Life, oracle: Oracle) -> range:
    """All events until now, once they are seen in the queue or at the collector."""
    safe = range(oracle.tracked)

    def is_kept() -> bool:
        queued = stores.queue(life.run.kite, life.state)
        return set(safe) <= oracle.account(queued, life.collector.events()).kept

    check(eventually(is_kept, 20), "events in the background do not reach the queue")
    return safe


def background_round(life: Life) -> int:
    """The tool, or a host that can tell when all that was tracked has reached the queue."""
    oracle, is_tool = life.begin_round(), life.random.random() < 0.5
    if is_tool:
        host = Host(life.run.kite, life.state, start_in_background=True, **life.server())
    else:
        host = timed_host(life.run, life.state, start_in_background=1, divide=1, **life.server())
    with host:
        host.start()
        check_console(host)
        life.change_profile(host)
        safe = range(0)
        for _ in range(1 if is_tool else life.random.randint(0, 6)):
            oracle.post(host, life.random.randint(1, 8))
            host.drain()
            if is_tool:
                safe = wait_until_queued(life, oracle)
            else:
                host.call("settle")
                safe = range(oracle.tracked)
        oracle.post(host, 40)
        host.post("updateUserInfo", with_={"proof": life.profile.next()})
        oracle.post(host, 10)
        for _ in range(life.random.randint(0, 51)):
            host.receive()
        if host.owed < 11:
            life.profile.answered = life.profile.sent
        time.sleep(life.random.uniform(0, 0.004))
        host.kill()
    return life.check_round(safe)


@case("kill", "SIGKILL in the background", full=1000, smoke=20)
def background(run: Run) -> dict:
    """Nothing is lost that had reached the queue before the kill."""
    return lives(run, background_round)


def foreground_round(life: Life) -> int:
    oracle, clock = life.begin_round(), life.folder / "clock"
    clock.unlink(missing_ok=True)
    session = Value(stored_session)
    tracked_at = []
    with timed_host(life.run, life.state, divide=DIVISOR, clock=clock, **life.server()) as host:
        host.start()
        check_console(host)
        end = time.monotonic() + life.random.uniform(0, 3.5 * FLUSH_PERIOD / DIVISOR)
        while time.monotonic() < end:
            tracked_at.append(host.send("trackUserAction", **oracle.action())["at"])
            chance = life.random.random()
            if chance < 0.02:
                life.change_profile(host)
            elif chance < 0.1:
                host.call("addSessionData", key="proof", value=session.next())
                session.answered = session.sent
        host.kill()
    (done_until,) = struct.unpack("d", clock.read_bytes())
    session.check(life.run, life.state)
    return life.check_round([serial for serial, moment in enumerate(tracked_at)
                             if moment + FLUSH_PERIOD <= done_until])


@case("kill", "SIGKILL in the foreground, periods of a hundredth", full=1000, smoke=20)
def foreground(run: Run) -> dict:
    """Nothing is lost that is older than the period in which the queue is written."""
    return lives(run, foreground_round)


@case("kill", "SIGKILL in the foreground, in real time", full=40, smoke=None)
def foreground_in_real_time(run: Run) -> dict:
    """As above, with the tool: a host that tracks now and then, for up to 25 seconds."""
    grace = 1.0  # for a write that is under way on a busy machine

    def trial(number: int) -> dict:
        random_, folder, oracle = run.random(number), run.folder(), Oracle()
        answered_at = []
        with Collector(run.kite, folder) as collector:
            server = {"collector": collector} if number % 2 else {}
            with Host(run.kite, folder / "state", **server).start() as host:
                end = time.monotonic() + random_.uniform(10, 25)
                while time.monotonic() < end:
                    oracle.track(host)
                    answered_at.append(time.monotonic())
                    time.sleep(0.05)
                killed_at = time.monotonic()
                host.kill()
            queued = stores.queue(run.kite, folder / "state")
            account = oracle.account(queued, collector.events())
        oracle.demand(account, [serial for serial, moment in enumerate(answered_at)
                                if killed_at - moment > FLUSH_PERIOD + grace])
        oracle.demand_prefix(account)
        return {"kills": 1, "events": oracle.tracked, "lost within the promise": len(account.lost)}

    return total(run.each(range(run.count), trial, workers=20))


@dataclasses.dataclass
class Attempt:
    """One run of a scene that is killed at its N-th call."""

    run: Run
    folder: pathlib.Path
    inject: str
    oracle: Oracle = dataclasses.field(default_factory=Oracle)
    profile: Value = dataclasses.field(default_factory=lambda: Value(stored_profile))
    session: Value = dataclasses.field(default_factory=lambda: Value(stored_session))
    safe: range = range(0)
    may_be_damaged: bool = False
    collected: list[dict] = dataclasses.field(default_factory=list)

    @property
    def state(self) -> pathlib.Path:
        return self.folder / "state"

    @property
    def log(self) -> pathlib.Path:
        return self.folder / "strace"

    def keep(self, host: Host, count: int):
        """Events that are on the disk before the fault."""
        host.call("didEnterBackground")
        for _ in range(count):
            self.oracle.track(host)
        host.call("settle")
        self.safe = range(self.oracle.tracked)

    def struck(self, host: Host, deed) -> None:
        """`deed(host)` under strace, which kills the host in its midst or not at all."""
        with strace.Strace(host.pid, self.state, self.log, inject=self.inject):
            try:
                deed(host)
            except Failed:
                check(host.wait() == -9, "the host ended otherwise than by the kill")


def scene_begin(attempt: Attempt):
    """The stores are made."""
    prefix = strace.prefix(attempt.state, attempt.log, inject=attempt.inject)
    with timed_host(attempt.run, attempt.state, prefix=prefix, start_in_background=1) as host:
        try:
            host.start()
            host.call("settle")
        except Failed:
            check(host.wait() == -9, "the host ended otherwise than by the kill")
    strace.ended(attempt.log)


def scene_flush(attempt: Attempt):
    """New events are appended in the foreground."""
    with timed_host(attempt.run, attempt.state).start() as host:
        attempt.keep(host, 5)
        host.call("willEnterForeground")
        attempt.oracle.post(host, 20)
        host.drain()
        attempt.struck(host, lambda host: host.call("fire", period=FLUSH_PERIOD))


def scene_background(attempt: Attempt):
    """The session ends; an event is written through."""

    def deed(host):
        host.call("didEnterBackground")
        attempt.oracle.post(host, 3)
        host.drain()
        host.call("settle")

    with timed_host(attempt.run, attempt.state).start() as host:
        attempt.keep(host, 5)
        host.call("willEnterForeground")
        attempt.oracle.post(host, 5)
        host.drain()
        attempt.struck(host, deed)


def scene_removal(attempt: Attempt):
    """A batch that has arrived is removed."""

    def deed(host):
        host.call("fire", period=2.0)
        is_removed = eventually(lambda: host.process.poll() is not None or
                                not stores.queue(attempt.run.kite, attempt.state), 20)
        check(is_removed, "a batch that arrived is not removed")
        host.call("settle")

    with Collector(attempt.run.kite, attempt.folder) as collector:
        with timed_host(attempt.run, attempt.state).start() as host:
            attempt.keep(host, 20)
        sender = timed_host(attempt.run, attempt.state, collector=collector, start_in_background=1,
                            sync_on_session_end=1)
        with sender as host:
            attempt.struck(host, lambda host: deed(host.start()))
        attempt.collected = collector.events()


def scene_profile(attempt: Attempt):
    """The profile changes."""

    def deed(host):
        host.call("updateUserInfo", with_={"proof": attempt.profile.next()})
        attempt.profile.answered = attempt.profile.sent

    with timed_host(attempt.run, attempt.state).start() as host:
        attempt.keep(host, 3)
        deed(host)
        attempt.struck(host, deed)


REWRITTEN_FROM, FULL_SEGMENT = 64 << 10, 4 << 20
PADDING = "x" * 50_000


def scene_rewrite(attempt: Attempt):
    """The log of the values has grown and is replaced by one that holds the living ones."""
    log = stores.values_file(attempt.state)

    def add(host):
        host.call("addSessionData", key="proof", value=attempt.session.next())
        attempt.session.answered = attempt.session.sent

    def deed(host):
        size = log.stat().st_size
        while log.stat().st_size >= size:
            add(host)

    with timed_host(attempt.run, attempt.state).start() as host:
        attempt.keep(host, 5)
        host.call("willEnterForeground")
        while log.stat().st_size < REWRITTEN_FROM - 2000:
            add(host)
        attempt.struck(host, deed)


def scene_next_segment(attempt: Attempt):
    """A segment is full, and the next one is begun."""
    with timed_host(attempt.run, attempt.state).start() as host:
        attempt.keep(host, 5)
        while stores.segments(attempt.state)[-1].stat().st_size < FULL_SEGMENT:
            attempt.oracle.track(host, padding=PADDING)
            host.call("settle")
        attempt.safe = range(attempt.oracle.tracked)
        attempt.struck(host, lambda host: attempt.keep(host, 2))


def scene_drop(attempt: Attempt):
    """All rows of a segment have arrived, and it goes."""
    first, second = (attempt.state / "app" / f"kv.rows-{number}.log" for number in (1, 2))

    def deed(host):
        host.start()
        is_dropped = eventually(lambda: host.send("fire", period=2.0) and not first.exists(), 20)
        check(is_dropped, "a segment without rows stays")

    with Collector(attempt.run.kite, attempt.folder) as collector:
        with timed_host(attempt.run, attempt.state).start() as host:
            while not second.exists():
                attempt.oracle.post(host, padding=PADDING)
                host.drain()
                attempt.keep(host, 0)
            attempt.keep(host, 2)
        sender = timed_host(attempt.run, attempt.state, collector=collector, start_in_background=1)
        with sender as host:
            attempt.struck(host, deed)
        attempt.collected = collector.events()


def start_struck(attempt: Attempt):
    prefix = strace.prefix(attempt.state, attempt.log, inject=attempt.inject)
    with timed_host(attempt.run, attempt.state, prefix=prefix) as host:
        try:
            host.start()
        except Failed:
            check(host.wait() == -9, "the host ended otherwise than by the kill")
    strace.ended(attempt.log)


def keep_then_harm(attempt: Attempt, harm):
    """`harm()` befalls what a host has left, so that the next start has to mend it."""
    attempt.may_be_damaged = True
    with timed_host(attempt.run, attempt.state).start() as host:
        attempt.keep(host, 3)
        attempt.oracle.track(host, padding=PADDING)
        attempt.keep(host, 3)
        attempt.profile.answered = attempt.profile.next()
        host.call("updateUserInfo", with_={"proof": attempt.profile.sent})
    harm()


def scene_mend(attempt: Attempt):
    """A wrong byte in each log: what lives in them is moved to new ones."""

    def harm():
        for log in (*stores.segments(attempt.state), stores.values_file(attempt.state),
                    stores.values_file(attempt.state, secrets=True)):
            flip(log, next(record for record in records.records_of(log, may_be_cut=True)
                           if record.kind in (records.LIST_BEGUN, records.VALUE)))

    keep_then_harm(attempt, harm)
    start_struck(attempt)


def flip(file: pathlib.Path, record: records.Record):
    """The last byte of a record."""
    with open(file, "r+b") as opened:
        opened.seek(record.end - 1)
        byte = opened.read(1)[0]
        opened.seek(record.end - 1)
        opened.write(bytes([byte ^ 1]))


def scene_set_aside(attempt: Attempt):
    """A file is none of the store's: it is set aside. The other files keep what is in them."""
    keep_then_harm(attempt, lambda: stores.values_file(attempt.state).write_bytes(bytes(4096)))
    start_struck(attempt)


SCENES = (scene_begin, scene_flush, scene_background, scene_removal, scene_profile, scene_rewrite,
          scene_next_segment, scene_drop, scene_mend, scene_set_aside)


def play(run: Run, scene, inject: str) -> Attempt:
    attempt = Attempt(run, run.folder(), inject)
    scene(attempt)
    return attempt


def check_attempt(attempt: Attempt):
    """The store opens, holds what it held, and works. What is damaged is told at most twice: by the
    start that was killed and by the one after it."""
    run, oracle = attempt.run, attempt.oracle
    if attempt.session.sent:  # before a start begins another one
        attempt.session.check(run, attempt.state)
    with timed_host(run, attempt.state).start() as host:
        if not attempt.may_be_damaged:
            check_console(host)
        account = oracle.account(stores.queue(run.kite, attempt.state), attempt.collected)
        oracle.demand(account, attempt.safe)
        oracle.demand_prefix(account)
        if attempt.profile.sent:
            attempt.profile.check(run, attempt.state)
        host.call("didEnterBackground")
        last = oracle.track(host)
        host.call("settle")
    account = oracle.account(stores.queue(run.kite, attempt.state), attempt.collected)
    oracle.demand(account, [*attempt.safe, last])
    with timed_host(run, attempt.state).start() as host:
        check_console(host)


@case("kill", "SIGKILL at every call of a write in turn", full=1000, smoke=4)
def every_call(run: Run) -> dict:
    """`count` calls of each scene at most."""
    need("strace")
    trials = []
    for scene in SCENES:
        rehearsal = play(run, scene, "")
        check_attempt(rehearsal)
        calls = [(name, number) for name, most in strace.calls(rehearsal.log).items()
                 for number in range(1, most + 1)]
        check(calls, f"{scene.__name__} makes no call")
        step = max(1, len(calls) // run.count)
        trials += [(scene, *call) for call in calls[::step]]
    run.count = len(trials)

    def trial(item) -> dict:
        scene, call, number = item
        attempt = play(run, scene, f"{call}:signal=SIGKILL:when={number}")
        is_killed = "killed by SIGKILL" in strace.text(attempt.log)
        try:
            check_attempt(attempt)
        except Failed as failure:
            raise Failed(f"{scene.__name__}, {call} {number}: {failure}") from None
        return {"kills": int(is_killed), "calls": 1}

    counts = total(run.each(trials, trial)) | {"scenes": len(SCENES)}
    check(counts["kills"] > 0.9 * counts["calls"], f"too few calls were struck: {counts}")
    return counts
