"""Replies: whatever a service answers, the batch is kept or finished as promised; all goes on."""

import itertools
import pathlib
import random
import socket
from collections.abc import Callable, Iterator
from dataclasses import dataclass
from functools import partial

from harness import Failed, Host, Run, case, check, eventually, stores
from harness.case import survey
from harness.certificates import Authority, Certificate
from harness.hostile import (GOOD_REPLY, Connection, Hostile, Request, Script, head,
                             over_https)

MOST_GROWTH = 4096  # kB
LONGEST = 1 << 20  # bytes of a reply
MOST_GROWTH_TO_READ = 8 * LONGEST >> 10  # kB; an index of the body is larger than the body
MOST_SECONDS = 60
MARGIN = 2.5  # for two busy cores
OUTCOMES = ("[KITE] Events sent successfully", "[KITE] ❌ ERROR")
HTML = b"<!DOCTYPE html><html><body>Bad gateway</body></html>"
ERROR = b'{"error_code":101,"message":"no such event"}'
DEEP = b'{"delta":' + b"[" * 100_000


def closing(connection: Connection, request: Request) -> None:
    """Accepts and ends the connection, so that the next request needs a new one."""
    connection.reply(200, GOOD_REPLY, (("Connection", "close"),))
    connection.close_orderly()


class Subject:
    """A host that has delivered all it had, and its server, which then turns hostile."""

    def __init__(self, run: Run, certificate: Certificate, *, secondaries: tuple[str, ...] = (),
                 path: str = "/v4/events"):
        self._kite = run.kite
        self._state = run.folder() / "state"
        self._serials = itertools.count(1)
        self.server = Hostile(over_https(closing), certificate)
        self.host = Host(run.kite, self._state, endpoint=self.server.url(path),
                         ca=certificate.ca, start_in_background=True, sessions="manual",
                         secondary=[self.server.url(each) for each in secondaries])
        self.host.start()
        self.deliver()
        check(self.settles(), "the queue is not emptied by a service that accepts all")
        check(eventually(lambda: self.outcomes() == len(self.server.bodies()), 10),
              "the console does not tell of every batch")

    def __enter__(self) -> "Subject":
        return self

    def __exit__(self, *_: object) -> None:
        self.host.close()
        self.server.close()

    def track(self, **data: object) -> int:
        serial = next(self._serials)
        self.host.call("trackUserAction", name="proof", data={"serial": serial} | data)
        return serial

    def sync(self) -> None:
        self.host.call("triggerSessionStart")

    def deliver(self) -> int:
        """Tracks an event and waits until it has arrived."""
        serial = self.track()
        self.sync()
        check(self.server.wait_for_event(serial), f"no further upload: {self.host.stderr[-5:]}")
        return serial

    def queue(self) -> list[dict]:
        return stores.queue(self._kite, self._state)

    def settles(self) -> bool:
        return bool(eventually(lambda: not self.queue(), 10))

    def is_pending(self, serial: int) -> bool:
        return any(((event.get("data") or {}).get("action_info") or {}).get("serial") == serial
                   for event in self.queue())

    def numbers(self) -> tuple[float, float] | None:
        """What the store holds of the service's last reply."""
        kept = stores.keys(self._kite, self._state)
        if "delta" not in kept or "last_event_timestamp" not in kept:
            return None
        try:
            return tuple(float(stores.value(self._kite, self._state, key))
                         for key in ("delta", "last_event_timestamp"))
        except Failed:  # deleted in between
            return None

    def outcomes(self) -> int:
        """How many batches have come to an end, as the console tells."""
        return sum(line.startswith(OUTCOMES) for line in self.host.stderr)

    def memory(self) -> int:
        """Resident, in kB; from now on `peak` counts anew."""
        pathlib.Path(f"/proc/{self.host.pid}/clear_refs").write_text("5")
        return self._status("VmRSS")

    def peak(self) -> int:
        return self._status("VmHWM")

    def _status(self, name: str) -> int:
        lines = pathlib.Path(f"/proc/{self.host.pid}/status").read_text().splitlines()
        return next(int(line.split()[1]) for line in lines if line.startswith(name))


@dataclass(frozen=True)
class Rudeness:
    """A way to answer, and what must become of the batch."""
    name: str
    script: Script
    is_delivered: bool = False
    stores: tuple[float, float] | None = None  # what the next body must give back
    data: dict | None = None
    copies: int = 1
    growth: int | None = MOST_GROWTH
    seconds: float = MOST_SECONDS


def endure(subject: Subject, rude: Rudeness) -> dict:
    """One attempt against a rude answer, then one against a service that accepts."""
    before, finished = subject.memory(), subject.outcomes()
    subject.server.become(rude.script)
    serials = [subject.track(**(rude.data or {})) for _ in range(rude.copies)]
    subject.sync()
    check(eventually(lambda: subject.outcomes() > finished, rude.seconds + MARGIN, 0.02),
          f"an attempt lasts longer than {rude.seconds} s: {subject.host.stderr[-5:]}")
    growth = subject.peak() - before
    check(rude.growth is None or growth < rude.growth, f"memory grew by {growth} kB")
    judge_batch(subject, rude, serials)
    check_echo(subject, rude)
    check(subject.settles(), "the queue is not emptied afterwards")
    return {"events": len(serials) + 1}


def judge_batch(subject: Subject, rude: Rudeness, serials: list[int]) -> None:
    for serial in serials:
        if rude.is_delivered:
            check(eventually(lambda s=serial: not subject.is_pending(s), 5), "it is still pending")
        is_pending = subject.is_pending(serial)
        check(is_pending or serial in subject.server.read_serials(),
              "events count as delivered that the server never read")
        check(is_pending or rude.is_delivered, "the batch was not kept")


def check_echo(subject: Subject, rude: Rudeness) -> None:
    """The two numbers of the reply are kept, and forgotten when there are none."""
    check(eventually(lambda: subject.numbers() == rude.stores, 5),
          f"the numbers are {subject.numbers()} instead of {rude.stores}")
    bodies = len(subject.server.bodies())
    subject.server.become(over_https(closing))
    subject.deliver()
    body = subject.server.bodies()[bodies]
    echo = (body["delta"], body["last_event_timestamp"]) if "delta" in body else None
    check(echo == rude.stores, f"the next body gives back {echo} instead of {rude.stores}")


def all_endure(run: Run, rudenesses: list[Rudeness], workers: int) -> dict:
    certificate = Authority(run.folder()).issue("service")
    chosen = rudenesses[:: max(1, len(rudenesses) // run.count)][:run.count]

    def trial(rude: Rudeness) -> dict:
        with Subject(run, certificate) as subject:
            return endure(subject, rude)

    return survey(run, {rude.name: partial(trial, rude) for rude in chosen}, workers)


# -- every status

STATUS_BODIES: dict[str, bytes] = {
    "none": b"", "good": GOOD_REPLY, "error": ERROR, "html": HTML, "deep": DEEP}
INTERIM_ENDS: dict[str, Callable[[Connection, bytes], None]] = {
    "ended": lambda c, interim: c.send(interim),
    "repeated": lambda c, interim: c.send(interim * 3),
    "filled": lambda c, interim: c.send(interim + GOOD_REPLY),
    "reset": lambda c, interim: (c.send(interim), c.reset()),
    "failing": lambda c, interim: (c.send(interim), c.reply(503, HTML)),
}


def answer_by_path(connection: Connection, request: Request) -> None:
    """/status/kind: that status with that kind of body."""
    _, status, kind = request.path.split("/")
    code = int(status)
    if code < 200:
        INTERIM_ENDS[kind](connection, head(code))
        connection.close_orderly()
    elif code in (204, 304):  # whatever follows the headers would be taken for the next reply
        connection.reply(code, STATUS_BODIES[kind], (("Connection", "close"),))
        connection.close_orderly()
    else:
        connection.reply(code, STATUS_BODIES[kind])


def refused_statuses(run: Run, certificate: Certificate, paths: list[str]) -> int:
    """One batch goes from endpoint to endpoint, each of which answers with another failure."""
    with Subject(run, certificate, secondaries=tuple(paths[1:]), path=paths[0]) as subject:
        before, finished = subject.memory(), subject.outcomes()
        seen = len(subject.server.requests())
        subject.server.become(over_https(answer_by_path))
        serial = subject.track()
        subject.sync()
        check(eventually(lambda: subject.outcomes() > finished, 120), "the round does not end")
        check(subject.is_pending(serial), "a batch was not kept after failures alone")
        visited = [request.path for request in subject.server.requests()[seen:]
                   if serial in request.serials()]
        first_round = visited[:len(paths)]
        missed = sorted(set(paths) - set(first_round))
        check(not missed, f"an answer ended the round: never asked: {missed[:5]}")
        growth = subject.peak() - before
        check(growth < MOST_GROWTH, f"memory grew by {growth} kB")
        subject.server.become(over_https(closing))
        subject.deliver()
        check(subject.settles(), "the queue is not emptied afterwards")
    run.tick(len(paths))
    return len(paths)


def accepted_statuses(run: Run, certificate: Certificate, kinds: list[tuple[int, str]]) -> int:
    """Batch after batch is accepted, each with another status and body."""
    with Subject(run, certificate) as subject:
        answers = {}

        def answer(connection: Connection, request: Request) -> None:
            request.path = "/{}/{}".format(*answers[max(answers)]) if answers else "/200/good"
            answer_by_path(connection, request)

        subject.server.become(over_https(answer))
        serials = []
        for kind in kinds:
            answers[next_serial(subject)] = kind
            serials.append(subject.deliver())
            check(eventually(lambda: not subject.is_pending(serials[-1]), 5, 0),
                  f"a batch is still pending after {kind}")
            has_numbers = kind[1] == "good" and kind[0] != 204
            check(eventually(lambda: (subject.numbers() is not None) == has_numbers, 5, 0),
                  f"after {kind} the numbers are {subject.numbers()}")
    run.tick(len(kinds))
    return len(kinds)


def next_serial(subject: Subject) -> int:
    upcoming = next(subject._serials)
    subject._serials = itertools.chain([upcoming], subject._serials)
    return upcoming


@case("replies", "statuses from 100 to 599 with five bodies each", full=2500, smoke=250)
def statuses(run: Run) -> dict:
    certificate = Authority(run.folder()).issue("service")
    step = max(1, 2500 // run.count)
    refused = [f"/{status}/{kind}" for status in itertools.chain(range(100, 200), range(300, 600))
               for kind in (INTERIM_ENDS if status < 200 else STATUS_BODIES)][::step]
    accepted = [(status, kind) for status in range(200, 300) for kind in STATUS_BODIES][::step]
    chunk = 250
    parts = [lambda paths=refused[at:at + chunk]: refused_statuses(run, certificate, paths)
             for at in range(0, len(refused), chunk)]
    parts += [lambda kinds=accepted[at:at + chunk]: accepted_statuses(run, certificate, kinds)
              for at in range(0, len(accepted), chunk)]
    done = sum(run.each(parts, lambda part: part(), ticks=False))
    return {"replies": done, "that accept": len(accepted)}


# -- rude replies

def after_request(say: Callable[[Connection], object]) -> Script:
    """Reads the whole request, then says something of its own."""

    def script(connection: Connection) -> None:
        connection.handshake()
        if connection.read_request():
            say(connection)

    return script


def replying(body: bytes, status: int = 200, headers: tuple[tuple[str, str], ...] = (),
             length: int | None = None) -> Script:
    def say(connection: Connection) -> None:
        connection.reply(status, body, (*headers, ("Connection", "close")), length)
        connection.close_orderly()

    return after_request(say)


def raw(data: bytes) -> Script:
    """Any bytes in the place of a reply."""
    return after_request(lambda c: (c.send(data), c.close_orderly()))


def endless(first: bytes, piece: bytes) -> Script:
    return after_request(lambda c: c.pour(itertools.chain([first], itertools.repeat(piece))))


def header_lines() -> Iterator[bytes]:
    yield b"HTTP/1.1 200 OK\r\n"
    for number in itertools.count():
        yield f"X-{number}: {'y' * 100}\r\n".encode()


def at_phase(phase: str, leave: Callable[[Connection], object]) -> Script:
    """Leaves at some moment of the exchange."""

    def script(connection: Connection) -> None:
        if phase == "at once":
            return leave(connection)
        if phase == "within the handshake":
            connection.read_raw(100)
            return leave(connection)
        connection.handshake()
        if phase == "after the handshake":
            return leave(connection)
        request = connection.read_head()
        if not request or phase == "after the request's headers":
            return leave(connection)
        connection.read_body(request, 40 if phase == "within the request's body" else None)
        reply = head(200, (("Content-Length", "1000"),)) + GOOD_REPLY
        sent = {"within the status line": 7, "after the status line": 17, "within the headers": 30,
                "within the body": len(reply)}
        connection.send(reply[:sent.get(phase, 0)])
        return leave(connection)

    return script


PHASES = ("at once", "within the handshake", "after the handshake", "after the request's headers",
          "within the request's body", "after the request", "within the status line",
          "after the status line", "within the headers", "within the body")


def leaving() -> list[Rudeness]:
    ways = {"a reset": Connection.reset, "an end": Connection.close_orderly,
            "a cut": Connection.close}
    return [Rudeness(f"{way} {phase}", at_phase(phase, leave))
            for phase in PHASES for way, leave in ways.items()]


def lengths() -> list[Rudeness]:
    good = len(GOOD_REPLY)
    chunked = (("Transfer-Encoding", "chunked"),)

    def chunks(text: bytes) -> Script:
        return raw(head(200, chunked) + text)

    one = b"%x\r\n%s\r\n" % (good, GOOD_REPLY)
    huge = b"HTTP/1.1 200 OK\r\nContent-Length: 10737418240\r\n\r\n"
    return [
        Rudeness("an endless body", endless(head(200, (("Connection", "close"),)), b"x" * 65536),
                 is_delivered=True),
        Rudeness("an endless chunked body", endless(head(200, chunked), b"1000\r\n" + b"x" * 4096
                                                    + b"\r\n"),
                 is_delivered=True),
        Rudeness("10 GB announced", raw(huge + GOOD_REPLY)),
        Rudeness("10 GB announced and begun", endless(huge, b"x" * 65536), is_delivered=True),
        Rudeness("an endless failure", endless(head(500, (("Connection", "close"),)),
                                               b"x" * 65536)),
        Rudeness("a body that is too long by a byte", replying(b" " * (LONGEST + 1)), is_delivered=True),
        Rudeness("a failure that is too long by a byte", replying(b" " * (LONGEST + 1), 500)),
        Rudeness("a length too long", replying(GOOD_REPLY, length=good + 1)),
        Rudeness("a length too short", replying(GOOD_REPLY, length=good - 1), is_delivered=True),
        Rudeness("a negative length", raw(b"HTTP/1.1 200 OK\r\nContent-Length: -5\r\n\r\n"
                                          + GOOD_REPLY)),
        # Counts as no length, so that the end of the connection ends the reply.
        Rudeness("a length beyond 64 bits", raw(b"HTTP/1.1 200 OK\r\nContent-Length: " + b"9" * 30
                                                + b"\r\n\r\n" + GOOD_REPLY),
                 is_delivered=True, stores=(0.25, 1700000000.5)),
        Rudeness("a length that is no number", raw(b"HTTP/1.1 200 OK\r\nContent-Length: many\r\n"
                                                   b"\r\n" + GOOD_REPLY)),
        Rudeness("no length", raw(head(200, (("Connection", "close"),)) + GOOD_REPLY),
                 is_delivered=True, stores=(0.25, 1700000000.5)),
        Rudeness("chunks", chunks(one + b"0\r\n\r\n"), is_delivered=True,
                 stores=(0.25, 1700000000.5)),
        Rudeness("chunks without an end", chunks(one)),
        Rudeness("a chunk of a negative size", chunks(b"-1\r\n" + GOOD_REPLY)),
        Rudeness("a chunk beyond 64 bits", chunks(b"f" * 20 + b"\r\n" + GOOD_REPLY)),
        Rudeness("a chunk's size that is no number", chunks(b"zz\r\n" + GOOD_REPLY)),
        Rudeness("a chunk cut short", chunks(b"ffff\r\n" + GOOD_REPLY)),
        Rudeness("a trailer without end", after_request(lambda c: c.pour(itertools.chain(
            [head(200, chunked) + one + b"0\r\n"], itertools.repeat(b"X-Y: " + b"z" * 500
                                                                    + b"\r\n"))))),
    ]


def floods() -> list[Rudeness]:
    return [
        Rudeness("headers without end", after_request(lambda c: c.pour(header_lines()))),
        Rudeness("one header without end", endless(b"HTTP/1.1 200 OK\r\nX: ", b"y" * 65536)),
        Rudeness("a status line without end", endless(b"HTTP/1.1 200 ", b"y" * 65536)),
        Rudeness("interim replies without end", endless(b"", head(100))),
        Rudeness("cookies without end", endless(b"HTTP/1.1 200 OK\r\n",
                                                b"Set-Cookie: a=" + b"b" * 4000 + b"\r\n")),
        Rudeness("200 kB of headers", after_request(lambda c: c.send(
            b"HTTP/1.1 200 OK\r\n" + b"".join(b"X-%d: %s\r\n" % (n, b"y" * 90)
                                              for n in range(2000))
            + b"Connection: close\r\n\r\n")),
                 is_delivered=True),
        Rudeness("line breaks without end", endless(b"HTTP/1.1 200 OK\r\n", b" \r\n" * 1000)),
        Rudeness("zero bytes without end", endless(b"", b"\0" * 65536)),
    ]


def not_http() -> list[Rudeness]:
    texts = {"nothing but a body": GOOD_REPLY, "random bytes": bytes(range(256)) * 8,
             "an unknown protocol": b"ICY 200 OK\r\n\r\n",
             "the status 99": b"HTTP/1.1 99 X\r\n\r\n",
             "the status 2000": b"HTTP/1.1 2000 X\r\n\r\n", "the status 20": b"HTTP/1.1 20\r\n\r\n",
             "the status 2OO": b"HTTP/1.1 2OO OK\r\n\r\n", "no status": b"HTTP/1.1\r\n\r\n",
             "a negative status": b"HTTP/1.1 -200 OK\r\n\r\n",
             "the status 600": b"HTTP/1.1 600 X\r\nContent-Length: 0\r\n\r\n",
             "the status 999": b"HTTP/1.1 999 X\r\nContent-Length: 0\r\n\r\n",
             "HTTP/3.7": b"HTTP/3.7 200 OK\r\n\r\n",
             "HTTP/2 frames": b"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n" + b"\0\0\x12\4\0\0\0\0\0" * 9,
             "a protocol switch": b"HTTP/1.1 101 S\r\nUpgrade: h2c\r\nConnection: Upgrade\r\n\r\n",
             "a request": b"POST / HTTP/1.1\r\nHost: you\r\n\r\n"}
    return [Rudeness(name, raw(text)) for name, text in texts.items()]


def bodies() -> list[Rudeness]:
    """Accepted, with a body that means nothing: the batch is finished, the numbers forgotten."""
    texts = {
        "deep arrays": b"[" * (LONGEST // 2) + b"]" * (LONGEST // 2),
        "deep objects": b'{"a":' * (LONGEST // 5),
        "a deep delta": DEEP, "HTML": HTML, "UTF-16": GOOD_REPLY.decode().encode("utf-16"),
        "a byte-order mark": b"\xef\xbb\xbf" + GOOD_REPLY,
        "bytes": bytes(range(256)) * (LONGEST // 256),
        "a long text": b'"' + b"x" * (LONGEST - 2) + b'"', "zero bytes": b"\0" * LONGEST,
        "many keys": b"{" + b",".join(b'"%06d":0' % n for n in range(LONGEST // 11 - 1)) + b"}",
        "an escape cut short": b'{"delta":1.0,"last_event_timestamp":1.0,"x":"\\ud8',
        "one number": b"17", "two documents": GOOD_REPLY * 2, "half of it": GOOD_REPLY[:20],
        "one of the two": b'{"delta":1.5}', "the other": b'{"last_event_timestamp":1.5}',
    }
    rude = [Rudeness(f"a body of {name}", replying(text), is_delivered=True,
                     growth=MOST_GROWTH_TO_READ)
            for name, text in texts.items()]
    packed = (("Content-Encoding", "gzip"),)
    rude.append(Rudeness("a body that claims to be packed", replying(GOOD_REPLY, headers=packed),
                         is_delivered=True, stores=(0.25, 1700000000.5)))
    return rude


def numbers() -> list[Rudeness]:
    """Hostile numbers. What has a double's value comes back, all else is as if it were absent."""
    plain = {"0": 0.0, "-0.0": -0.0, "5e-324": 5e-324, "1e308": 1e308, "-1e308": -1e308,
             "1.7976931348623157e308": 1.7976931348623157e308, "9223372036854775807": 2.0 ** 63,
             "-9223372036854775808": -(2.0 ** 63), "18446744073709551615": 2.0 ** 64,
             "1e-400": 0.0, "0." + "3" * 1000: 1 / 3}
    bad = ["1e400", "-1e400", "1e99999999999999999999", "NaN", "Infinity", "-Infinity", "nan",
           '"1.5"', "null", "true", "[1.0]", '{"a":1}', "1.", ".5", "+1", "01", "0x10", "1e", "--1",
           "1_000", "", "١"]
    rude = []
    for text, number in plain.items():
        body = '{"delta":%s,"last_event_timestamp":%s}' % (text, text)
        rude.append(Rudeness(f"the number {text[:30]}", replying(body.encode()), is_delivered=True,
                             stores=(number, number)))
    for text in bad:
        body = '{"delta":%s,"last_event_timestamp":1.0}' % text
        rude.append(Rudeness(f"the number {text!r}", replying(body.encode()), is_delivered=True))
    return rude


def hasty(status: int) -> Script:
    """Answers as soon as it has the headers, and leaves without having read the body."""

    def script(connection: Connection) -> None:
        connection.handshake()
        if connection.read_head():
            connection.reply(status, GOOD_REPLY, (("Connection", "close"),))
            connection.reset()

    return script


def large() -> dict:
    """Members of an event that hardly pack."""
    return {"text": "".join(random.choices("0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNO"
                                           "PQRSTUVWXYZ", k=1_000_000))}


def hasty_replies() -> list[Rudeness]:
    return [Rudeness(f"{status} before the body was read", hasty(status), data=large(), copies=14,
                     growth=None) for status in (200, 503)]


def plain_alert() -> Script:
    return lambda connection: connection.send_raw(b"\x15\x03\x03\x00\x02\x02\x28")


def below_tls() -> list[Rudeness]:
    hello = b"\x16\x03\x03"
    scripts = {"a TLS alert": plain_alert(),
               "an empty record": lambda c: c.send_raw(hello + b"\0\0"),
               "a record of 64 kB": lambda c: c.send_raw(hello + b"\xff\xff" + b"z" * 65535),
               "records without end": lambda c: c.pour_raw(itertools.repeat(hello + b"\x10\0"
                                                                            + b"\2" * 4096)),
               "text": lambda c: c.send_raw(b"HTTP/1.1 200 OK\r\n\r\n" + GOOD_REPLY)}
    return [Rudeness(f"{name} in the place of a handshake", script)
            for name, script in scripts.items()]


def rudenesses() -> list[Rudeness]:
    return [*leaving(), *lengths(), *floods(), *not_http(), *bodies(), *numbers(), *below_tls(),
            *hasty_replies()]


@case("replies", "rude replies", full=130, smoke=40)
def rude_replies(run: Run) -> dict:
    return all_endure(run, rudenesses(), workers=2)


# -- slow replies

def slow_handshake(connection: Connection) -> None:
    connection.read_raw(100)
    connection.pause(3600)


def dripping(first: bytes, pieces: bytes, pause: float) -> Script:
    """A byte now and then, without end."""

    def say(connection: Connection) -> None:
        connection.send(first)
        for piece in itertools.cycle(pieces):
            connection.send(bytes([piece]))
            connection.pause(pause)

    return after_request(say)


def dripping_handshake(connection: Connection) -> None:
    for byte in itertools.chain(b"\x16\x03\x03\x40\x00\x02\x00\x3f\xfc", itertools.repeat(0)):
        connection.send_raw(bytes([byte]))
        connection.pause(0.5)


def never_reading(connection: Connection) -> None:
    connection.handshake()
    connection.pause(3600)


def slowly_reading(connection: Connection) -> None:
    connection.handshake()
    while connection.read(64):
        connection.pause(0.5)


def slow_hops(connection: Connection) -> None:
    """Redirects, each after a while: they count together."""
    connection.handshake()
    while request := connection.read_request():
        connection.pause(18)
        connection.reply(307, b"", (("Location", request.path + "x"),))


def slow_kinds() -> list[Rudeness]:
    announced = head(200, (("Content-Length", "100000"),))
    silence = after_request(lambda c: c.pause(3600))
    scripts = {
        "silent before the headers": silence,
        "silent within the status line": after_request(lambda c: (c.send(b"HTTP/1.1 2"),
                                                                  c.pause(3600))),
        "silent within the headers": after_request(lambda c: (c.send(announced[:-9]),
                                                              c.pause(3600))),
        "silent after the headers": after_request(lambda c: (c.send(announced), c.pause(3600))),
        "silent within the body": after_request(lambda c: (c.send(announced + GOOD_REPLY),
                                                           c.pause(3600))),
        "silent after an interim reply": after_request(lambda c: (c.send(head(103)),
                                                                  c.pause(3600))),
        "a byte of the status line now and then": dripping(b"", b"HTTP/1.1 200 OK", 3),
        "a byte of a header now and then": dripping(b"HTTP/1.1 200 OK\r\nX: ", b"y", 0.3),
        "a byte of the body now and then": dripping(announced, b"z", 0.3),
        "a chunk now and then": dripping(head(200, (("Transfer-Encoding", "chunked"),)),
                                         b"1\r\nz\r\n", 0.2),
        "an interim reply now and then": dripping(b"", head(102), 0.05),
        "hops that take their time": slow_hops,
        "nothing read": never_reading,
    }
    slow = [Rudeness(name, script) for name, script in scripts.items()]
    much = {"data": large(), "copies": 14, "growth": None, "seconds": 70}  # packing takes its time
    slow += [Rudeness("nothing read of a long request", never_reading, **much),
             Rudeness("a long request read slowly", slowly_reading, **much)]
    slow += [Rudeness("silent in the handshake", slow_handshake, seconds=15),
             Rudeness("a byte of the handshake now and then", dripping_handshake, seconds=15)]
    return slow


def unanswered_connect(run: Run) -> dict:
    """The port takes no connection: packets vanish in a queue that is full."""
    certificate = Authority(run.folder()).issue("service")
    with socket.socket() as full, Subject(run, certificate) as subject:
        full.bind(("127.0.0.1", 0))
        full.listen(0)
        address = full.getsockname()
        crowd = [socket.socket() for _ in range(8)]
        for each in crowd:
            each.setblocking(False)
            each.connect_ex(address)
        state = run.folder() / "state"
        with Host(run.kite, state, endpoint=f"https://127.0.0.1:{address[1]}/v4/events",
                  secondary=[subject.server.url()], ca=certificate.ca,
                  start_in_background=True) as host:
            host.start()
            host.call("trackUserAction", name="proof", data={"serial": "fallback"})
            check(subject.server.wait_for_event("fallback", 15 + MARGIN + 5),
                  f"no fallback after a connection that never came: {host.stderr[-5:]}")
        for each in crowd:
            each.close()
    return {"events": 2}


@case("replies", "slow replies, a minute for each", full=18, smoke=None)
def slow_replies(run: Run) -> dict:
    """They wait side by side: none of them costs anything but time."""
    kinds = slow_kinds()
    certificate = Authority(run.folder()).issue("service")

    def trial(rude: Rudeness) -> dict:
        with Subject(run, certificate) as subject:
            return endure(subject, rude)

    return survey(run, {rude.name: partial(trial, rude) for rude in kinds}
                  | {"a port that takes no connection": partial(unanswered_connect, run)},
                  len(kinds) + 1)


# -- redirects

@dataclass(frozen=True)
class Redirect:
    """Where the first answer points to, and whether the batch may get there."""
    name: str
    location: Callable[["Places"], str | None]
    arrives: bool
    statuses: tuple[int, ...] = (301, 302, 303, 307, 308)


@dataclass
class Places:
    """The servers that a redirect may name."""
    start: Hostile
    other: Hostile
    plain: Hostile
    stranger: Hostile


def redirect_kinds() -> list[Redirect]:
    def hops(count: int) -> Callable[[Places], str]:
        return lambda places: f"/hops/{count - 1}"

    return [
        Redirect("a path", lambda p: "/elsewhere", True),
        Redirect("a relative path", lambda p: "elsewhere?a=b#c", True),
        Redirect("the same host", lambda p: p.start.url("/elsewhere"), True),
        Redirect("another port", lambda p: p.other.url("/elsewhere"), True),
        Redirect("another name", lambda p: p.other.url("/elsewhere", "localhost"), True),
        Redirect("no scheme", lambda p: f"//127.0.0.1:{p.other.port}/elsewhere", True),
        Redirect("a scheme in capitals", lambda p: p.other.url("/e").replace("https:", "HTTPS:"),
                 True),
        Redirect("five hops", hops(5), True),
        Redirect("six hops", hops(6), False),
        Redirect("a loop", lambda p: "/loop", False),
        Redirect("HTTP", lambda p: p.plain.url("/elsewhere"), False),
        Redirect("HTTP in capitals", lambda p: p.plain.url("/e").replace("http", "HTTP"), False),
        Redirect("HTTP on the TLS port", lambda p: p.start.url("/e").replace("https", "http"),
                 False),
        Redirect("a stranger's certificate", lambda p: p.stranger.url("/elsewhere"), False),
        Redirect("a file", lambda p: "file:///etc/passwd", False, (302, 307)),
        Redirect("FTP", lambda p: f"ftp://127.0.0.1:{p.plain.port}/x", False, (302, 307)),
        Redirect("gopher", lambda p: f"gopher://127.0.0.1:{p.plain.port}/x", False, (302, 307)),
        Redirect("telnet", lambda p: f"telnet://127.0.0.1:{p.plain.port}/x", False, (302, 307)),
        Redirect("a dictionary", lambda p: f"dict://127.0.0.1:{p.plain.port}/x", False, (302, 307)),
        Redirect("mail", lambda p: f"smtp://127.0.0.1:{p.plain.port}/x", False, (302, 307)),
        Redirect("a script", lambda p: "javascript:alert(1)", False, (302, 307)),
        Redirect("nothing", lambda p: "", False),
        Redirect("no Location", lambda p: None, False),
        Redirect("a port beyond 65535", lambda p: "https://127.0.0.1:99999/", False, (302, 307)),
        Redirect("a closed port", lambda p: "https://127.0.0.1:1/", False, (302, 307)),
        Redirect("60 kB of path", lambda p: p.start.url("/" + "x" * 60_000), True, (302, 307)),
        Redirect("control characters", lambda p: p.start.url("/a\x1b[2Jb\x01"), False, (302, 307)),
    ]


def redirecting(places: Places, status: int, location: str | None) -> Script:
    def answer(connection: Connection, request: Request) -> None:
        def send_to(target: str | None) -> None:
            headers = () if target is None else (("Location", target),)
            connection.reply(status, HTML, (*headers, ("Connection", "close")))
            connection.close_orderly()

        if request.path == "/v4/events":
            send_to(location)
        elif request.path == "/loop":
            send_to("/loop")
        elif request.path.startswith("/hops/") and request.path != "/hops/0":
            send_to(f"/hops/{int(request.path[6:]) - 1}")
        else:
            closing(connection, request)

    return over_https(answer)


def follow(run: Run, certificate: Certificate, stranger: Certificate, kind: Redirect,
           status: int) -> dict:
    with Subject(run, certificate) as subject, \
            Hostile(over_https(closing), certificate) as other, \
            Hostile(over_https(closing), None) as plain, \
            Hostile(over_https(closing), stranger) as foreign:
        places = Places(subject.server, other, plain, foreign)
        finished, seen = subject.outcomes(), len(subject.server.requests())
        subject.server.become(redirecting(places, status, kind.location(places)))
        serial = subject.track()
        subject.sync()
        check(eventually(lambda: subject.outcomes() > finished, 30), "no attempt has ended")
        if kind.arrives:
            check(eventually(lambda: not subject.is_pending(serial), 5), "it is still pending")
        check(subject.is_pending(serial) != kind.arrives,
              "it was kept" if kind.arrives else "it was not kept")
        hops = [request for request in [*subject.server.requests()[seen:], *other.requests()]
                if request.method != "POST" or serial in request.serials() or not request.is_whole]
        check_hops(hops, kind)
        check(not plain.visits or not any(visit.bytes_read for visit in plain.visits),
              "something went out in the clear")
        check(not foreign.requests(), "a stranger got a request")
        subject.server.become(over_https(closing))
        if not kind.arrives:
            check(subject.server.wait_for_event(serial), "the batch does not come again")
    return {"requests": len(hops)}


def check_hops(hops: list[Request], kind: Redirect) -> None:
    for hop in hops:
        check(hop.method == "POST" and hop.is_whole, f"a hop was {hop.method} {hop.path}")
    attempts: dict[str, list[Request]] = {}
    for hop in hops:
        attempts.setdefault(hop.header("Wicket-Request-Id") or "", []).append(hop)
    for attempt in attempts.values():
        check(len(attempt) <= 6, f"{len(attempt) - 1} redirects were followed")
        check(len({hop.body for hop in attempt}) == 1, "the body changed on its way")
    check(kind.arrives == any(len(attempt) > 1 for attempt in attempts.values())
          or not kind.arrives, "it arrived without the redirect")


@case("replies", "redirects", full=102, smoke=20)
def redirects(run: Run) -> dict:
    certificate = Authority(run.folder()).issue("service")
    stranger = Authority(run.folder()).issue("stranger")
    trials = [(kind, status) for kind in redirect_kinds() for status in kind.statuses]
    trials = trials[:: max(1, len(trials) // run.count)][:run.count]

    return survey(run, {f"{status} to {kind.name}":
                        partial(follow, run, certificate, stranger, kind, status)
                        for kind, status in trials})
