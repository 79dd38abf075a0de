"""Secrets: the signing key stays where it is, tampering shows, and nothing outside is touched."""

import base64
import json
import os
import pathlib
import random
import re
import shutil
import socket
import stat
import urllib.parse
from dataclasses import dataclass
from functools import partial

from harness import (Collector, Failed, Host, Run, case, check, eventually, need, need_root, records,
                     run, stores)
from harness.case import survey
from harness.certificates import Authority
from harness.hostile import GOOD_REPLY, Connection, Hostile, Request, over_https

# -- the canary


def canary(random_: random.Random, size: int) -> str:
    """A key in which every encoding shows."""
    letters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"
    return "".join(random_.choices(letters, k=size)) + "?/+ ~\"\\é" + "".join(
        random_.choices(letters, k=12))


def encodings(key: str) -> dict[str, bytes]:
    """What the key looks like in the common ones. Of the longer ones a part is enough."""
    raw = key.encode()
    forms = {
        "as it is": raw[:20], "its end": raw[-12:], "backwards": raw[::-1][:20],
        "hexadecimal": raw.hex().encode()[:40], "HEXADECIMAL": raw.hex().upper().encode()[:40],
        "URL": urllib.parse.quote(key).encode()[-24:], "UTF-16": key.encode("utf-16-le")[:40],
        "UTF-16 of the other order": key.encode("utf-16-be")[:40],
        "UTF-32": key.encode("utf-32-le")[:80],
        "decimal bytes": ",".join(map(str, raw[:12])).encode(),
        "decimal bytes with blanks": ", ".join(map(str, raw[:12])).encode(),
        "octal": "".join(f"\\{byte:03o}" for byte in raw[:12]).encode(),
        "hexadecimal escapes": "".join(f"\\x{byte:02x}" for byte in raw[:12]).encode()}
    for offset in range(3):  # where it stands in the text that is encoded
        text = base64.b64encode(b"\0" * offset + raw)[4 if offset else 0:][:28]
        forms[f"base 64, {offset}"] = text
        forms[f"base 64 of URLs, {offset}"] = text.replace(b"+", b"-").replace(b"/", b"_")
        forms[f"base 32, {offset}"] = base64.b32encode(b"\0" * offset + raw)[8:][:32]
    return forms


class Search:
    def __init__(self, key: str):
        self._forms = encodings(key)
        self.places = 0
        self.size = 0

    def look(self, place: str, data: bytes) -> None:
        self.places += 1
        self.size += len(data)
        for name, form in self._forms.items():
            at = data.find(form)
            check(at < 0, f"the key is in {place} ({name}): {data[max(0, at - 80):at + 80]!r}")

    def look_into(self, folder: pathlib.Path) -> None:
        for path in folder.rglob("*"):
            if path.is_file():
                self.look(str(path), path.read_bytes())


def said(connection: Connection, request: Request) -> None:
    """Answers of all kinds, one after the other."""
    number = len(connection.visit.requests) % 5
    replies = [(400, b'{"error_code":603,"message":"wrong"}'), (200, GOOD_REPLY), (500, b"<html>"),
               (422, b'{"error_code":101,"message":"x"}'), (200, b"")]
    connection.reply(*replies[number])


def system_calls(trace: bytes) -> tuple[bytes, bytes]:
    """The texts of the calls that hand the key over, which start the program; and of all others."""
    parts: tuple[list[bytes], list[bytes]] = ([], [])
    for line in trace.split(b"\n"):
        parts[b"execve(" not in line].append(line)
    begin, calls = (re.sub(rb"\\x([0-9a-f]{2})", lambda found: bytes([int(found[1], 16)]),
                           b"\n".join(lines)) for lines in parts)
    return begin, calls


@case("secrets", "the signing key as a canary", full=4, smoke=1)
def key_canary(run_: Run) -> dict:
    need("strace")
    certificate = Authority(run_.folder()).issue("service")

    def trial(item: int) -> Search:
        key = canary(run_.random(item), 40 if item % 2 else 160)
        search = Search(key)
        folder = run_.folder()
        trace, console = folder / "trace", folder / "console"
        prefix = ["strace", "-f", "-xx", "-s", "10000000", "-o", trace, "sh", "-c",
                  f'exec "$@" 2>{console}', "sh"]
        with Hostile(over_https(said), certificate) as server:
            with Host(run_.kite, folder / "state", endpoint=server.url(), ca=certificate.ca,
                      key=key, prefix=prefix, sessions="manual", seconds=60,
                      secondary=["https://127.0.0.1:1/v4/events"]) as host:
                drive(host, server)
                replies = json.dumps(host.drain()).encode()
                host.quit()
            search.look("the replies of the host", replies)
            for request in server.requests():
                search.look("a request", request.head + json.dumps(request.json()).encode()
                            + request.body)
        search.look("the console", console.read_bytes())
        search.look_into(folder / "state")
        begin, calls = system_calls(trace.read_bytes())
        check(key.encode() in begin and b"kv.values.log" in calls, "the trace shows nothing")
        search.look("a system call", calls)
        for wrong in (["--bogus"], ["--endpoint", "nonsense"], ["--state", "/dev/null/x", "/none"]):
            done = run([run_.kite, "host", "--key", key, *wrong])
            search.look("a complaint", (done.stdout + done.stderr).encode())
        search_collector(run_, search, key)
        return search

    searches = run_.each(range(run_.count), trial)
    return {"keys": run_.count, "places": sum(search.places for search in searches),
            "bytes": sum(search.size for search in searches)}


def drive(host: Host, server: Hostile) -> None:
    """All that makes requests, records and console lines."""
    host.start()
    for serial in range(6):
        host.call("trackUserAction", name="proof", data={"serial": serial})
        host.call("trackDebugEvent", severity="Error", message="m", category="c")
        host.call("triggerSessionStart" if serial % 2 == 0 else "triggerSessionEnd")
    host.call("updateUserInfo", **{"with": {"plan": "gold"}})
    host.call("triggerSessionStart")
    check(server.wait_for_event(5, 60), f"no upload: {host.stderr}")


def search_collector(run_: Run, search: Search, key: str) -> None:
    folder = run_.folder()
    with Collector(run_.kite, folder, key=key) as service:
        with Host(run_.kite, run_.folder() / "state", collector=service, key=key) as host:
            host.start()
            check(service.wait_for(1), "nothing arrives")
        with Host(run_.kite, run_.folder() / "state", collector=service, key="another") as host:
            host.start()
            check(eventually(lambda: any("Wicket" in line for line in host.stderr)),
                  f"a wrong key is not refused: {host.stderr}")
            search.look("the console", "\n".join(host.stderr).encode())
    search.look("the collector's lines", json.dumps(service.requests).encode()
                + "\n".join(service.stderr).encode())
    search.look_into(folder)


# -- tampering

class Sealed:
    """A secrets store that somebody edits who knows its form, but not its key."""

    def __init__(self, run_: Run):
        self._kite = run_.kite
        self.state = run_.folder() / "state"
        with Host(run_.kite, self.state) as host:
            host.start()
            host.call("updateUserInfo", **{"with": {"plan": "gold"}})
            host.quit()
        self._file = stores.values_file(self.state, secrets=True)
        self.rows = records.values_of(self._file)
        self.truth = {key: self.read(key) for key in self.rows}
        check(len(self.rows) >= 3 and all(self.truth.values()), f"too few rows: {self.truth}")

    def write(self, changes: dict[str, tuple[int, bytes]]) -> None:
        """With checksums that are right."""
        records.write_values(self._file, self.rows | changes)

    def read(self, key: str) -> str | None:
        done = run([self._kite, "store", "--state", self.state, "--secrets", "get", key])
        check(done.returncode in (0, 1), f"status {done.returncode}: {done.stderr}")
        return done.stdout if done.returncode == 0 else None

    def check_absent(self, changed: set[str], beside: int | None = None) -> None:
        """With `beside` only so many of the others are looked at."""
        others = [key for key in self.truth if key not in changed]
        for key in [*changed, *others[:beside]]:
            true = self.truth[key]
            found = self.read(key)
            check(found == (None if key in changed else true), f"{key} reads {found!r}")


@case("secrets", "tampering with sealed records", full=600, smoke=40)
def tampering(run_: Run) -> dict:
    sealed = Sealed(run_)
    random_ = run_.random()
    sealed.write({})
    sealed.check_absent(set())  # writing alone changes nothing
    keys = list(sealed.rows)
    pairs = [(a, b) for a in keys for b in keys if a < b]
    for _ in range(run_.count):
        kind, data = sealed.rows[key := random_.choice(keys)]
        at = random_.randrange(8 * len(data))
        changed = bytearray(data)
        changed[at // 8] ^= 1 << at % 8
        damage = random_.choice([bytes(changed), bytes(changed), data[:at // 8], data + b"\0",
                                 data[at // 8:]] if at // 8 else [bytes(changed)])
        sealed.write({key: (kind, damage)})
        sealed.check_absent({key}, beside=1)
        run_.tick()
    for one, other in pairs:
        sealed.write({one: sealed.rows[other], other: sealed.rows[one]})
        sealed.check_absent({one, other})
    sealed.write({key: (kind, data[:-1]) for key, (kind, data) in sealed.rows.items()})
    with Host(run_.kite, sealed.state) as host:  # all records are gone, and it goes on
        host.start()
        check(host.call("userInfo").get("plan") is None, "a tampered profile was read")
        check(sum("Damaged values" in line for line in host.stderr) == 1, f"{host.stderr}")
        host.quit()
    return {"changed records": run_.count, "swapped pairs": len(pairs)}


# -- what is on the medium, and when

CALL = re.compile(r"^(?P<thread>\d+) +(?P<moment>[\d.]+) (?P<name>\w+)\((?P<rest>.*)$", re.MULTILINE)
MEDIUM_SECONDS = 1.0


@dataclass(frozen=True)
class Call:
    thread: int
    moment: float
    name: str
    rest: str

    def concerns(self, *ends: str) -> bool:
        return any(f"{end}>" in self.rest or f'{end}"' in self.rest for end in ends)


def calls_of(trace: pathlib.Path) -> list[Call]:
    return [Call(int(found["thread"]), float(found["moment"]), found["name"], found["rest"])
            for found in CALL.finditer(trace.read_text(errors="replace"))]


def place(calls: list[Call], name: str, *ends: str) -> int:
    """Of the first such call."""
    for at, call in enumerate(calls):
        if call.name.startswith(name) and call.concerns(*ends):
            return at
    raise Failed(f"no {name} of {ends}")


def check_key_first(calls: list[Call]) -> None:
    """The key is on the medium under its name before a value is written that it seals."""
    values = "secrets.values.log"
    order = [place(calls, "write", "master.key.new"), place(calls, "fsync", "master.key.new"),
             place(calls, "rename", "master.key"), place(calls, "fsync", "/secrets")]
    first = next(at for at, call in enumerate(calls) if call.name == "pwrite64"
                 and call.concerns(values) and not call.rest.endswith(", 0) = 96"))
    check([*order, first] == sorted([*order, first]), f"out of order: {order}, {first}")


def check_synced(calls: list[Call]) -> int:
    """Every write of a value is followed by a sync of its file, by a thread that nobody waits for.
    How many writes there were."""
    writes = [call for call in calls if call.name == "pwrite64"
              and call.concerns("secrets.values.log")]
    syncs = [call for call in calls if call.name == "fdatasync"
             and call.concerns("secrets.values.log")]
    check(not {call.thread for call in writes} & {call.thread for call in syncs},
          "who writes a secret waits for the medium")
    for write in writes:
        late = min((sync.moment - write.moment for sync in syncs if sync.moment > write.moment),
                   default=float("inf"))
        check(late < MEDIUM_SECONDS, f"a secret waits {late:.2f} s for its sync")
    return len(writes)


@case("secrets", "syncs of the key and of what it seals", full=20, smoke=2)
def syncs(run_: Run) -> dict:
    need("strace")

    def trial(item: int) -> int:
        random_, folder = run_.random(item), run_.folder()
        trace = folder / "trace"
        prefix = ["strace", "-f", "-y", "-ttt", "-s", "8", "-o", trace, "-e",
                  "trace=write,pwrite64,rename,renameat,renameat2,fsync,fdatasync"]
        with Host(run_.kite, folder / "state", prefix=prefix, start_in_background=True) as host:
            host.start()
            for number in range(8):
                host.call("updateUserInfo", **{"with": {"proof": number}})
                host.post("wait", seconds=random_.uniform(0, 0.4))
            host.post("wait", seconds=MEDIUM_SECONDS)
            host.drain()
            host.quit()
        calls = calls_of(trace)
        check_key_first(calls)
        return check_synced(calls)

    return {"hosts": run_.count, "secrets written": sum(run_.each(range(run_.count), trial))}


# -- files that somebody else has prepared

@dataclass(frozen=True)
class Trap:
    """Something in the place of one of Kite's files or folders."""
    kind: str
    place: str


class Victim:
    """What lies outside and must stay as it is."""

    def __init__(self, folder: pathlib.Path):
        folder.mkdir()
        self.folder = folder
        self.file = folder / "precious"
        self.file.write_bytes(b"precious bytes\n" * 100)
        self.file.chmod(0o644)
        self.missing = folder / "not there"
        (folder / "inside").mkdir(mode=0o755)
        self._before = self._look()

    def _look(self) -> dict[str, tuple]:
        seen = {}
        for path in [self.folder, *sorted(self.folder.rglob("*"))]:
            status = path.lstat()
            content = path.read_bytes() if path.is_file() else b""
            seen[str(path)] = (status.st_mode, status.st_uid, status.st_size, content,
                               status.st_mtime_ns if path != self.folder else 0)
        return seen

    def check_untouched(self) -> None:
        now = self._look()
        changed = [path for path in self._before.keys() | now.keys()
                   if self._before.get(path) != now.get(path)]
        check(not changed, f"touched outside: {changed}")


FILES = ("app/kv.lock", "app/kv.state", "app/kv.values.log", "app/kv.values.log.new",
         "app/kv.rows-1.log", "app/kv.rows-1.log.new", "secrets/secrets.lock",
         "secrets/secrets.state", "secrets/secrets.values.log", "secrets/secrets.values.log.new",
         "secrets/master.key", "secrets/master.key.new")
FILE_KINDS = ("symbolic link", "symbolic link to nothing", "hard link", "FIFO", "socket", "folder",
              "wrong mode", "wrong owner")
FOLDER_KINDS = ("symbolic link", "symbolic link to nothing", "file", "FIFO", "wrong mode",
                "wrong owner")


def traps() -> list[Trap]:
    return [Trap(kind, place) for place in FILES for kind in FILE_KINDS] + [
        Trap(kind, "app/kv.sqlite") for kind in ("symbolic link", "FIFO", "folder")] + [
        Trap(kind, place) for place in ("app", "secrets") for kind in FOLDER_KINDS]


def lay(trap: Trap, place: pathlib.Path, victim: Victim) -> None:
    is_folder = "/" not in trap.place
    old = place.read_bytes() if place.is_file() else b""
    if trap.kind not in ("wrong mode", "wrong owner") or not place.exists():
        if place.is_dir():
            shutil.rmtree(place)
        place.unlink(missing_ok=True)
    if trap.kind == "symbolic link":
        place.symlink_to(victim.folder / "inside" if is_folder else victim.file)
    elif trap.kind == "symbolic link to nothing":
        place.symlink_to(victim.missing)
    elif trap.kind == "hard link":
        os.link(victim.file, place)
    elif trap.kind == "FIFO":
        os.mkfifo(place)
    elif trap.kind == "socket":
        with socket.socket(socket.AF_UNIX) as made:
            here = os.open(place.parent, os.O_RDONLY)
            made.bind(f"/proc/self/fd/{here}/{place.name}")
            os.close(here)
    elif trap.kind == "folder" or is_folder and not place.exists() and trap.kind != "file":
        place.mkdir()
    elif not place.exists():
        place.write_bytes(old)
    if trap.kind.startswith("wrong"):
        if trap.kind == "wrong mode":
            place.chmod(0o777 if is_folder else 0o666)
        else:
            os.chown(place, 65534, 65534)


def modes(state: pathlib.Path) -> dict[str, str]:
    """Of all that is open to others."""
    wrong = {}
    for path in [state / "app", state / "secrets", *state.glob("*/*")]:
        if not path.exists() or path.is_symlink() or ".new" in path.name or ".unus" in path.name:
            continue  # what it neither reads nor writes stays as it is
        status = path.lstat()
        allowed = 0o700 if stat.S_ISDIR(status.st_mode) else 0o600
        if stat.S_IMODE(status.st_mode) & ~allowed:
            wrong[path.name] = oct(stat.S_IMODE(status.st_mode))
    return wrong


def spring(run_: Run, trap: Trap, sound: pathlib.Path | None) -> None:
    folder = run_.folder()
    victim = Victim(folder / "outside")
    state = folder / "state"
    if sound:
        shutil.copytree(sound, state)
    else:
        (state / trap.place).parent.mkdir(parents=True, mode=0o700)
        if "/" in trap.place:
            (state / trap.place).parent.chmod(0o700)
    lay(trap, state / trap.place, victim)
    with Host(run_.kite, state, start_in_background=True, seconds=5) as host:
        host.start()
        host.call("trackUserAction", name="proof", data={})
        host.call("updateUserInfo", **{"with": {"plan": "gold"}})
        host.post("wait", seconds=0.05)
        host.drain()
        status = host.quit()
    check(status == 0, f"status {status}: {host.stderr}")
    victim.check_untouched()
    store = "key-value store" if trap.place.startswith("app") else "secrets store"
    lines = [line for line in host.stderr if store in line]
    most = 2 if "master.key" in trap.place else 1  # without their key its values are lost, too
    check(len(lines) <= most, f"too many lines about it: {lines}")
    if trap.kind == "wrong mode":
        check(not modes(state), f"open to others: {modes(state)}")
        check(not lines or not sound, f"a wrong mode is no trouble, it is set right: {lines}")


@case("secrets", "files and folders prepared by somebody else", full=222, smoke=30)
def prepared_files(run_: Run) -> dict:
    need_root()
    sound = run_.folder() / "state"
    with Host(run_.kite, sound, start_in_background=True) as host:
        host.start()
        host.call("updateUserInfo", **{"with": {"plan": "gold"}})
        host.quit()
    trials = [(trap, base) for trap in traps() for base in (None, sound)]
    trials = trials[:: max(1, len(trials) // run_.count)][:run_.count]

    return survey(run_, {
        f"{trap.kind} as {trap.place} {'over a store' if base else 'in a new folder'}":
            partial(spring, run_, trap, base) for trap, base in trials})


@case("secrets", "a umask of 0", full=2, smoke=1)
def umask(run_: Run) -> dict:
    seen = 0
    for _ in range(run_.count):
        state = run_.folder() / "deep" / "state"
        with Host(run_.kite, state, start_in_background=True,
                  prefix=["sh", "-c", 'umask 0; exec "$@"', "sh"]) as host:
            host.start()
            host.call("updateUserInfo", **{"with": {"plan": "gold"}})
            check(len(list(state.glob("*/*.values.log"))) == 2, "no logs to look at")
            wrong = modes(state)
            host.quit()
        wrong |= modes(state)
        for made in (state, state.parent):
            if stat.S_IMODE(made.stat().st_mode) != 0o700:
                wrong[made.name] = oct(made.stat().st_mode)
        check(not wrong, f"open to others: {wrong}")
        seen += len(list(state.rglob("*")))
    return {"files and folders": seen}


# -- line breaks and escape bytes

BREAKS = ("a\r\nX-Evil: 1", "a\nX-Evil: 1", "a\rX-Evil: 1", "\r\n\r\nGET /evil HTTP/1.1\r\n", "a\n",
          "\n", "a\r\n X-Evil: 1", "a\r\nContent-Length: 0\r\n\r\nPOST /evil HTTP/1.1\r\n\r\n")


@case("secrets", "line breaks in header values", full=2 * len(BREAKS), smoke=4)
def header_breaks(run_: Run) -> dict:
    certificate = Authority(run_.folder()).issue("service")

    def trial(item: int) -> None:
        value, is_client = BREAKS[item // 2], item % 2
        state = run_.folder() / "state"
        options = {} if is_client else {"lumo_id": value}
        if is_client:  # the identifier is a stored value
            file = run_.folder() / "value"
            file.write_text(json.dumps(value))
            done = run([run_.kite, "store", "--state", state, "put", "Kite-User-Defaults-Id", file,
                        "--as", "json"])
            check(done.returncode == 0, done.stderr)
        with Hostile(over_https(lambda c, r: c.reply(200, GOOD_REPLY)), certificate) as server, \
                Host(run_.kite, state, endpoint=server.url(), ca=certificate.ca,
                     start_in_background=True, **options) as host:
            host.start()
            check(eventually(lambda: any("ERROR" in line for line in host.stderr)
                             or server.requests()), "no attempt has ended")
            for request in server.requests():
                check(b"evil" not in request.head.lower(), f"smuggled in: {request.head!r}")
                check(request.is_whole and request.path == "/v4/events", f"a torn request: "
                      f"{request.head!r}")
            check(host.call("userInfo") is not None, "the host does not answer")

    run_.each(range(run_.count), trial)
    return {"values": run_.count}


ESCAPES = ("\x1b[2J\x1b[H", "a\nb", "a\r\nb", "\r[KITE] Events sent successfully to kite", "\0",
           "\x07\x08\x7f", "\u009b31m", "\u0085", "\u2028\u2029", "\u202eabc", "\ufeff",
           "\x1b]0;title\x07", "x" * 100_000, "\ud800", "\x0b\x0c")


@case("secrets", "escape bytes in a server's messages", full=len(ESCAPES), smoke=5)
def escapes(run_: Run) -> dict:
    certificate = Authority(run_.folder()).issue("service")

    def trial(item: int) -> int:
        reply = json.dumps({"error_code": 101, "message": f"begin{ESCAPES[item]}end"}).encode()
        if item % 2:  # as they are instead of \u....
            reply = json.dumps({"error_code": 101, "message": f"begin{ESCAPES[item]}end"},
                               ensure_ascii=False).encode("utf-8", "surrogatepass")
        console = run_.folder() / "console"
        with Hostile(over_https(lambda c, r: c.reply(422, reply)), certificate) as server, \
                Host(run_.kite, run_.folder() / "state", endpoint=server.url(), ca=certificate.ca,
                     start_in_background=True,
                     prefix=["sh", "-c", f'exec "$@" 2>{console}', "sh"]) as host:
            host.start()
            check(eventually(lambda: "ERROR".encode() in console.read_bytes()), "no attempt failed")
            host.quit()
        text = console.read_bytes().decode("utf-8")
        check_console(text)
        return text.count("\n")

    lines = run_.each(range(run_.count), trial)
    return {"messages": run_.count, "console lines": sum(lines)}


def check_console(text: str) -> None:
    """One line stays one line, and nothing in it moves a terminal's cursor or turns its text."""
    for line in text.split("\n"):
        check(line == "" or line.startswith("[KITE] ") or line.startswith("{"),
              f"a line of somebody else's: {line[:200]!r}")
    found = [character for character in text if character != "\n" and not is_harmless(character)]
    check(not found, f"on the console: {found[:5]!r}")


def is_harmless(character: str) -> bool:
    code = ord(character)
    return code >= 0x20 and not 0x7f <= code <= 0x9f and code not in (0x2028, 0x2029, 0x202e)
