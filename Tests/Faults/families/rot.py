"""Rot: bytes flipped, files cut short, emptied, destroyed, exchanged and missing, over every file of
the stores. What is lost is told, and is no more than what stood where the damage is."""

import functools
import json
import pathlib
import random
import shutil
from dataclasses import dataclass, field

from harness import (Collector, Failed, Host, HostDied, HostHung, Oracle, Run, case, check,
                     eventually, records, run, stores, total)

EVENTS = 80
DELIVERED = 12
EARLIER_PROFILE = {"plan": "silver", "age": 40}
PROFILE = {"plan": "gold", "age": 41, "nested": {"list": [1, 2.5, "three"]}}
OWN_TYPES = {"Session", "Install", "UserInfoUpdated"}  # what a start may record by itself
# The reads of single values, and the folders of the stores that these are in.
PLACES = {"userInfo": {"secrets"}, "keychainId": {"secrets"}, "userDefaultsId": {"app"},
          "firstInstallTimestamp": {"app", "secrets"}}
HOLD_VALUES = ("kv.values.log", "secrets.values.log", "master.key")
TOLD = ("damaged", "Damaged", "set aside")
PAGE = 4096


@dataclass
class Sound:
    """A state folder as it was before anything happened to it, and what is true of it."""
    state: pathlib.Path
    queue: list[dict]
    delivered: list[dict]  # and removed from the queue
    values: dict[str, object]  # of the reads
    raw: dict[tuple[bool, str], str]  # of `kite store`
    earlier: dict[tuple[bool, str], set[str]]  # what these have ever been
    files: list[pathlib.Path]
    rows: dict[str, list[tuple[records.Record, str]]] = field(default_factory=dict)

    def __post_init__(self):
        for file in stores.segments(self.state):
            self.rows[file.name] = [(record, json.loads(record.payload)["id"])
                                    for record in records.records_of(file)
                                    if record.kind == records.ROW]

    def rows_in(self, harm: "Harm") -> set[str]:
        """The events that damage there may cost."""
        return {event for row, event in self.rows.get(harm.file.name, [])
                if row.begin < harm.end and row.end > harm.begin}


@dataclass(frozen=True)
class Harm:
    """What was done to which bytes of a file."""
    what: str
    file: pathlib.Path
    begin: int
    end: int
    is_flip: bool = False

    def may_cost_value(self, folders: set[str]) -> bool:
        """One that such stores hold. A single byte costs none that is written twice."""
        name = self.file.name
        return self.file.parent.name in folders and name in HOLD_VALUES and (
            not self.is_flip or name == "master.key")


def read_values(host: Host) -> dict[str, object]:
    """Of the profile what the host has given."""
    values = {name: host.call(name) for name in PLACES}
    profile = values["userInfo"] or {}
    return values | {"userInfo": {key: profile[key] for key in PROFILE if key in profile}}


def text_of(serial: int) -> str:
    return "x" * (12_000 if serial % 20 == 19 else 40 * (serial % 7))


def deliver_some(run_: Run, state: pathlib.Path, oracle: Oracle) -> list[dict]:
    """Leaves the remains of a queue that was delivered, and earlier values."""
    with Collector(run_.kite, run_.folder()) as collector:
        with Host(run_.kite, state, collector=collector, start_in_background=True) as host:
            host.start()
            host.call("updateUserInfo", **{"with": EARLIER_PROFILE})
            oracle.post(host, DELIVERED)
            host.drain()
            is_removed = eventually(lambda: collector.count() >= DELIVERED and
                                    not stores.queue(run_.kite, state))
            check(is_removed, "nothing is delivered")
            host.quit()
        return collector.events()


def make_sound(run_: Run, is_killed: bool, text=text_of) -> Sound:
    """A queue of small and large events and all values."""
    state = run_.folder() / "state"
    oracle = Oracle()
    delivered = deliver_some(run_, state, oracle)
    with Host(run_.kite, state, start_in_background=True) as host:
        host.start()
        host.call("updateUserInfo", **{"with": PROFILE})
        for serial in range(EVENTS):
            oracle.post(host, text=text(serial))
        host.drain()
        host.post("wait", seconds=0.5)
        host.drain()
        values = read_values(host)
        host.kill() if is_killed else host.quit()
    queue = stores.queue(run_.kite, state)
    oracle.demand_all(oracle.account(queue, delivered))
    raw = {(secrets, key): stores.value(run_.kite, state, key, secrets)
           for secrets in (False, True) for key in stores.keys(run_.kite, state, secrets)
           if key != stores.PENDING}
    files = [file.relative_to(state) for file in stores.files(state)]
    sound = Sound(state, queue, delivered, values, raw, earlier_values(run_, state), files)
    check_sound(run_, sound)
    return sound


def earlier_values(run_: Run, state: pathlib.Path) -> dict[tuple[bool, str], set[str]]:
    """Read after every change, with the log cut behind it."""
    earlier: dict[tuple[bool, str], set[str]] = {}
    copy = run_.folder() / "state"
    for secrets in (False, True):
        shutil.copytree(state, copy, dirs_exist_ok=True)
        log = stores.values_file(copy, secrets)
        for record in reversed(records.records_of(log)):
            with log.open("r+b") as file:
                file.truncate(record.end)
            key = records.key_of(record)
            if key and key != stores.PENDING:
                value = stores.value(run_.kite, copy, key, secrets)
                earlier.setdefault((secrets, key), set()).add(value)
    return earlier


def check_sound(run_: Run, sound: Sound) -> None:
    """Where nothing is lost, nothing is told."""
    state = run_.folder() / "state"
    shutil.copytree(sound.state, state)
    outcome = start_over(run_, sound, state, Harm("nothing", state / "nothing", 0, 0))
    check(not outcome["without any loss"] == 0 and not outcome["told"], f"a sound store: {outcome}")


# -- what befalls a file

def flip(path: pathlib.Path, random_: random.Random) -> Harm:
    """One bit, or all bits, of one byte; half of them among the first of a file, where its
    structures are, on which everything hangs."""
    data = bytearray(path.read_bytes())
    near = random_.random() < 0.5
    at = random_.randrange(min(len(data), 1024) if near else len(data))
    data[at] ^= random_.choice([1 << random_.randrange(8), 0xFF, random_.randrange(1, 256)])
    path.write_bytes(data)
    return Harm(f"byte {at} of {path.name} set to {data[at]:#04x}", path, at, at + 1, is_flip=True)


def truncate(path: pathlib.Path, random_: random.Random) -> Harm:
    size = path.stat().st_size
    return cut(random_.choice([random_.randrange(size), random_.randrange(size) // PAGE * PAGE,
                               random_.randrange(min(size, 256))]), path, random_)


def cut(to: int, path: pathlib.Path, _) -> Harm:
    size = path.stat().st_size
    with path.open("r+b") as file:
        file.truncate(to)
    return Harm(f"{path.name} cut from {size} to {to}", path, to, size)


def miss(path: pathlib.Path, _) -> Harm:
    size = path.stat().st_size
    path.unlink()
    return Harm(f"{path.name} is missing", path, 0, size)


def destroy(is_beginning: bool, is_empty: bool, path: pathlib.Path,
            random_: random.Random) -> Harm:
    """A page of zeros, or of anything."""
    data = path.read_bytes()
    begin = 0 if is_beginning else max(0, len(data) - PAGE)
    end = min(len(data), begin + PAGE)
    page = bytes(end - begin) if is_empty else random_.randbytes(end - begin)
    path.write_bytes(data[:begin] + page + data[end:])
    return Harm(f"{path.name} destroyed from {begin} to {end}", path, begin, end)


def exchange(other: Sound, path: pathlib.Path, _) -> Harm:
    size = path.stat().st_size
    name = path.name if (other.state / path.parent.name / path.name).exists() else "kv.rows-1.log"
    shutil.copy(other.state / path.parent.name / name, path)
    return Harm(f"{path.name} is another store's", path, 0, size)


# -- what may come of it

def check_events(sound: Sound, harm: Harm, queue: list[dict]) -> dict:
    """How many are missing or have come back; fails when one is not what it was, or out of place."""
    truth = {event["id"]: event for event in sound.queue}
    delivered = {event["id"]: event for event in sound.delivered}
    order = {identifier: place for place, identifier in enumerate([*delivered, *truth])}
    places = []
    for event in queue:
        identifier = event.get("id")
        if identifier in truth:
            check(event == truth[identifier], f"an event has changed: {event}")
        elif identifier in delivered:
            check(event["data"] == delivered[identifier]["data"], f"an event has changed: {event}")
        else:
            check(event.get("type") in OWN_TYPES and action_of(event) is None,
                  f"an event that nobody tracked: {json.dumps(event)[:300]}")
            continue
        places.append(order[identifier])
    check(places == sorted(set(places)), "events are doubled or out of order")
    lost = truth.keys() - {event.get("id") for event in queue}
    returned = sum(place < len(delivered) for place in places)
    beyond = lost - sound.rows_in(harm)
    check(not beyond, f"{len(beyond)} events are lost that are not where the damage is")
    check(len(lost) <= 1 or not harm.is_flip, f"a byte has cost {len(lost)} events")
    check(not returned or not harm.is_flip and harm.file.name in sound.rows,
          f"{returned} delivered events have come back")
    return {"events lost": len(lost), "events come back": returned}


def action_of(event: dict):
    return (event.get("data") or {}).get("action_info")


def is_akin(found: object, true: object) -> bool:
    """Nearly the same: an altered text instead of a new one."""
    if not isinstance(found, str) or not isinstance(true, str) or len(found) != len(true):
        return False
    return sum(a != b for a, b in zip(found, true)) <= len(true) // 4


def check_values(sound: Sound, harm: Harm, values: dict[str, object]) -> int:
    """Every value is the true one, an earlier one, or it is as if there had never been one. How many
    are not the true ones."""
    for key, value in values["userInfo"].items():
        check(value in (PROFILE.get(key), EARLIER_PROFILE.get(key)),
              f"the profile has changed: {values['userInfo']}")
    lost = {name for name, value in values.items() if value != sound.values[name]}
    for name in lost:
        found, true = values[name], sound.values[name]
        check(harm.may_cost_value(PLACES[name]), f"{name} was {true} and reads {found}")
        check(name != "firstInstallTimestamp" or found is None or found > true,
              f"{name} was {true} and reads {found}")
        check(not is_akin(found, true), f"{name} was {true} and reads {found}")
    return len(lost)


def check_raw(sound: Sound, harm: Harm, tool: pathlib.Path, state: pathlib.Path,
              key: tuple[bool, str]) -> None:
    done = run([tool, "store", "--state", state, *(["--secrets"] if key[0] else []), "get", key[1]])
    check_exit(done)
    found = done.stdout if done.returncode == 0 else None
    allowed = {sound.raw[key]}
    if harm.may_cost_value({"secrets" if key[0] else "app"}):
        allowed |= {None} | sound.earlier[key]
    check(found in allowed, f"{key[1]} was {sound.raw[key]!r} and reads {found!r}: {done.stderr}")


def check_exit(done) -> None:
    check(done.returncode in (0, 1) and "Sanitizer" not in done.stderr,
          f"status {done.returncode}:\n{done.stderr[-3000:]}")
    check(len(done.stderr.splitlines()) <= 4, f"more than a few lines:\n{done.stderr}")


def read_beside(run_: Run, sound: Sound, state: pathlib.Path, harm: Harm, item: int) -> None:
    """What the tools that only read make of it; they repair nothing."""
    done = run([run_.asan, "queue", "--state", state])
    check_exit(done)
    check(done.returncode == 0 or harm.file == stores.values_file(state), done.stderr)
    if done.returncode == 0:
        check_events(sound, harm, json.loads(done.stdout))
    check_raw(sound, harm, run_.asan, state, list(sound.raw)[item % len(sound.raw)])


def start_over(run_: Run, sound: Sound, state: pathlib.Path, harm: Harm) -> dict:
    """A host begins with the damaged stores. What is lost must be told on the console."""
    with Host(run_.asan, state, start_in_background=True) as host:
        try:
            host.start()
            values = check_values(sound, harm, read_values(host))
            host.call("trackUserAction", name="after", data={})
            eventually(lambda: any(map(is_after, stores.queue(run_.kite, state))), 5)
            status = host.quit()
        except (HostDied, HostHung) as error:
            raise Failed(f"{error}\n" + "\n".join(host.stderr[-40:])) from None
    report = "\n".join(host.stderr)
    check(status == 0 and "Sanitizer" not in report, f"status {status}:\n{report[-3000:]}")
    # The text of an event is checked when it is read, and whoever reads it is told.
    told: list[str] = []
    queue = stores.queue(run_.kite, state, told)
    check(sum(map(is_after, queue)) == 1, "what was tracked after the damage is not in the queue")
    events = check_events(sound, harm, [event for event in queue if not is_after(event)])
    is_changed = values > 0 or any(events.values())
    is_told = is_trouble(host.stderr + told)
    check(is_told or not is_changed, f"{events}, {values} values lost in silence:\n{report}")
    return events | {"values lost": values, "without any loss": int(not is_changed),
                     "told": int(is_told)}


def is_trouble(lines: list[str]) -> bool:
    return any(word in line for line in lines for word in TOLD)


def start_once_more(run_: Run, state: pathlib.Path) -> None:
    """The first start has mended it: the next one finds the same, and tells nothing but of a damaged
    text, which stays where it is until it is read and dropped."""
    found = stores.queue(run_.kite, state)
    with Host(run_.asan, state, start_in_background=True) as host:
        host.start()
        host.quit()
    unmended = [line for line in host.stderr if "Damaged elements were dropped" not in line]
    check(not is_trouble(unmended), "\n".join(["told at the second start, too:", *host.stderr]))
    check(stores.queue(run_.kite, state)[:len(found)] == found, "the queue of the second start")


def is_after(event: dict) -> bool:
    return (event.get("data") or {}).get("action_kind") == "after"


def make_sounds(run_: Run) -> list[Sound]:
    """After an end, after a kill, and a queue of two segments."""
    makers = [functools.partial(make_sound, run_, False), functools.partial(make_sound, run_, True),
              functools.partial(make_sound, run_, True, lambda _: "x" * 60_000)]
    return run_.each(makers, lambda make: make(), ticks=False)


def strike(run_: Run, sound: Sound, file: pathlib.Path, damage, item: int) -> dict:
    """`damage(path, random) -> Harm` befalls one file of a copy."""
    state = run_.folder() / "state"
    shutil.copytree(sound.state, state)
    harm = damage(state / file, run_.random(item))
    try:
        if item % 4 == 0:
            read_beside(run_, sound, state, harm, item // 4)
        counts = start_over(run_, sound, state, harm)
        if item % 4 == 1 and file.name != "master.key":
            start_once_more(run_, state)
    except Failed as failure:
        raise Failed(f"{harm.what} (trial {item}): {failure}; see {state}") from None
    shutil.rmtree(state.parent)
    return counts


def at_random(run_: Run, damage) -> dict:
    sounds = make_sounds(run_)

    def trial(item: int) -> dict:
        sound = sounds[2 if item % 5 == 4 else item % 2]
        return strike(run_, sound, run_.random(item).choice(sound.files), damage, item)

    return total(run_.each(range(run_.count), trial))


@case("rot", "single-byte flips", full=4000, smoke=25, asan=True)
def flips(run_: Run) -> dict:
    """Each costs one event at most, and no value but those whose key it is in."""
    return {"flips": run_.count} | at_random(run_, flip)


@case("rot", "truncations", full=4000, smoke=25, asan=True)
def truncations(run_: Run) -> dict:
    return {"truncations": run_.count} | at_random(run_, truncate)


@case("rot", "files missing, emptied, cut, destroyed, exchanged", full=2000, smoke=40, asan=True)
def files(run_: Run) -> dict:
    """Every file; cuts at every 512 bytes, or, of a queue of two segments, 64 KiB. `count` at
    most."""
    sounds = make_sounds(run_)
    trials = []
    for number, sound in enumerate(sounds):
        damages = [miss, functools.partial(exchange, sounds[number - 1]),
                   *(functools.partial(destroy, is_beginning, is_empty)
                     for is_beginning in (True, False) for is_empty in (True, False))]
        step = 64 << 10 if number == 2 else 512
        for file in sound.files:
            cuts = range(0, (sound.state / file).stat().st_size, step)
            trials += [(sound, file, damage) for damage in damages]
            trials += [(sound, file, functools.partial(cut, to)) for to in cuts]
    run_.random().shuffle(trials)
    run_.count = len(trials := trials[:run_.count])
    return {"faults": run_.count} | total(run_.each(
        enumerate(trials), lambda trial: strike(run_, *trial[1], trial[0])))
