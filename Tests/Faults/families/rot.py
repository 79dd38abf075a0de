"""Rot: single bytes flipped and files cut short, over every file of the stores."""

import json
import pathlib
import random
import shutil
from dataclasses import dataclass

from harness import (Failed, Host, HostDied, HostHung, Oracle, Run, case, check, eventually, run,
                     stores, total)

EVENTS = 80
PROFILE = {"plan": "gold", "age": 41, "nested": {"list": [1, 2.5, "three"]}}
OWN_TYPES = {"Session", "Install", "UserInfoUpdated"}  # what a start may record by itself
SINGLE_READS = ("keychainId", "userDefaultsId", "firstInstallTimestamp")


@dataclass
class Sound:
    """A state folder as it was before anything happened to it, and what is true of it."""
    state: pathlib.Path
    queue: list[dict]
    values: dict[str, object]  # of the reads
    raw: dict[tuple[bool, str], str]  # of `kite store`
    files: list[pathlib.Path]


def read_values(host: Host) -> dict[str, object]:
    return {name: host.call(name) for name in ("userInfo", *SINGLE_READS)}


def make_sound(run_: Run, is_killed: bool) -> Sound:
    """A queue of small and large events and all values; after a kill the logs are there, too."""
    state = run_.folder() / "state"
    oracle = Oracle()
    with Host(run_.kite, state, start_in_background=True) as host:
        host.start()
        host.call("updateUserInfo", **{"with": PROFILE})
        for serial in range(EVENTS):
            oracle.post(host, text="x" * (12_000 if serial % 20 == 19 else 40 * (serial % 7)))
        host.drain()
        host.post("wait", seconds=0.5)
        host.drain()
        values = read_values(host)
        host.kill() if is_killed else host.quit()
    read = run_.folder() / "state"  # a reader leaves files of its own
    shutil.copytree(state, read)
    queue = stores.queue(run_.kite, read)
    oracle.demand_all(oracle.account(queue))
    raw = {(secrets, key): stores.value(run_.kite, read, key, secrets)
           for secrets in (False, True) for key in stores.keys(run_.kite, read, secrets)
           if key != stores.PENDING}
    files = [file.relative_to(state) for file in stores.files(state) if file.stat().st_size > 0]
    return Sound(state, queue, values, raw, files)


def flip(path: pathlib.Path, random_: random.Random) -> str:
    """One bit, or all bits, of one byte; half of them among the first of a file, where its
    structures are, on which everything hangs."""
    data = bytearray(path.read_bytes())
    near = random_.random() < 0.5
    at = random_.randrange(min(len(data), 1024) if near else len(data))
    data[at] ^= random_.choice([1 << random_.randrange(8), 0xFF, random_.randrange(1, 256)])
    path.write_bytes(data)
    return f"byte {at} of {path.name} set to {data[at]:#04x}"


def truncate(path: pathlib.Path, random_: random.Random) -> str:
    size = path.stat().st_size
    to = random_.choice([random_.randrange(size), random_.randrange(size) // 4096 * 4096,
                         random_.randrange(min(size, 256))])
    with path.open("r+b") as file:
        file.truncate(to)
    return f"{path.name} cut from {size} to {to}"


def lost_events(sound: Sound, queue: list[dict]) -> int:
    """How many of the events are missing; fails when one is not what it was, or out of place."""
    truth = {event["id"]: event for event in sound.queue}
    order = {event["id"]: place for place, event in enumerate(sound.queue)}
    places = []
    for event in queue:
        if event.get("id") in truth:
            check(event == truth[event["id"]], f"an event has changed: {event}")
            places.append(order[event["id"]])
        else:
            check(event.get("type") in OWN_TYPES and serial_of_action(event) is None,
                  f"an event that nobody tracked: {json.dumps(event)[:300]}")
    check(places == sorted(set(places)), "events are doubled or out of order")
    return len(truth) - len(places)


def serial_of_action(event: dict):
    return (event.get("data") or {}).get("action_info")


def is_akin(found: object, true: object) -> bool:
    """Nearly the same: an altered text instead of a new one."""
    if not isinstance(found, str) or not isinstance(true, str) or len(found) != len(true):
        return False
    return sum(a != b for a, b in zip(found, true)) <= len(true) // 4


def check_values(sound: Sound, values: dict[str, object]) -> None:
    """Every value is the true one, or it is as if there had never been one."""
    profile = values["userInfo"]
    for key, value in PROFILE.items():
        check(key not in profile or profile[key] == value, f"the profile has changed: {profile}")
    for name in SINGLE_READS:
        found, true = values[name], sound.values[name]
        if found == true:
            continue
        check(name != "firstInstallTimestamp" or found is None or found > true,
              f"{name} was {true} and reads {found}")
        check(not is_akin(found, true), f"{name} was {true} and reads {found}")


def check_raw(sound: Sound, tool: pathlib.Path, state: pathlib.Path, key: tuple[bool, str]) -> None:
    done = run([tool, "store", "--state", state, *(["--secrets"] if key[0] else []), "get", key[1]])
    check_exit(done)
    check(done.returncode != 0 or done.stdout == sound.raw[key],
          f"{key[1]} was {sound.raw[key]!r} and reads {done.stdout!r}")


def check_exit(done) -> None:
    check(done.returncode in (0, 1) and "Sanitizer" not in done.stderr,
          f"status {done.returncode}:\n{done.stderr[-3000:]}")
    check(len(done.stderr.splitlines()) <= 4, f"more than a few lines:\n{done.stderr}")


def read_beside(run_: Run, sound: Sound, state: pathlib.Path, item: int) -> None:
    """What the tools that only read make of it; they repair nothing, so events may be missing."""
    done = run([run_.asan, "queue", "--state", state])
    check_exit(done)
    if done.returncode == 0:
        lost_events(sound, json.loads(done.stdout))
    check_raw(sound, run_.asan, state, list(sound.raw)[item % len(sound.raw)])


def start_over(run_: Run, sound: Sound, state: pathlib.Path) -> int:
    """A host begins with the damaged stores; how many events the queue has lost."""
    with Host(run_.asan, state, start_in_background=True) as host:
        try:
            host.start()
            check_values(sound, read_values(host))
            host.call("trackUserAction", name="after", data={})
            eventually(lambda: any(map(is_after, stores.queue(run_.kite, state))), 5)
            status = host.quit()
        except (HostDied, HostHung) as error:
            raise Failed(f"{error}\n" + "\n".join(host.stderr[-40:])) from None
    report = "\n".join(host.stderr)
    check(status == 0 and "Sanitizer" not in report, f"status {status}:\n{report[-3000:]}")
    queue = stores.queue(run_.kite, state)
    after = [event for event in queue if is_after(event)]
    check(len(after) == 1, "what was tracked after the damage is not in the queue")
    return lost_events(sound, [event for event in queue if not is_after(event)])


def is_after(event: dict) -> bool:
    return (event.get("data") or {}).get("action_kind") == "after"


def damage(run_: Run, harm, most_lost: int | None) -> dict:
    sounds = [make_sound(run_, is_killed) for is_killed in (False, True)]

    def trial(item: int) -> dict:
        random_ = run_.random(item)
        sound = sounds[item % 2]
        folder = run_.folder()
        state = folder / "state"
        shutil.copytree(sound.state, state)
        what = harm(state / random_.choice(sound.files), random_)
        try:
            if item % 4 == 0:
                read_beside(run_, sound, state, item // 4)
            lost = start_over(run_, sound, state)
            if most_lost is not None:
                check(lost <= most_lost, f"{lost} events are lost")
        except Failed as failure:
            raise Failed(f"{what} ({'after a kill' if item % 2 else 'after an end'}, trial {item})"
                         f": {failure}; see {state}") from None
        shutil.rmtree(folder)
        return {"events lost": lost, "without any loss": int(lost == 0)}

    return total(run_.each(range(run_.count), trial))


@case("rot", "single-byte flips", full=2000, smoke=25, asan=True)
def flips(run_: Run) -> dict:
    return {"flips": run_.count} | damage(run_, flip, most_lost=1)


@case("rot", "truncations", full=2000, smoke=25, asan=True)
def truncations(run_: Run) -> dict:
    return {"truncations": run_.count} | damage(run_, truncate, most_lost=None)
