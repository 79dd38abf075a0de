"""The collector, held to the same: hostile clients, kills while it writes, a full disk."""

import gzip
import http.client
import itertools
import os
import pathlib
import socket
import sqlite3
import ssl
import subprocess
import threading
import time
import zlib
from collections.abc import Callable
from contextlib import contextmanager

from harness import Collector, Failed, NotRun, Run, case, check, eventually, need, need_root
from harness.client import Client, sample

MOST_GROWTH = 256 * 1024  # kB; a body may have 32 MiB on the wire, and more unpacked


def status_of(pid: int, name: str) -> int:
    lines = pathlib.Path(f"/proc/{pid}/status").read_text().splitlines()
    return next(int(line.split()[1]) for line in lines if line.startswith(name))


def descriptors(pid: int) -> int:
    return len(os.listdir(f"/proc/{pid}/fd"))


class Served:
    """A collector, and a well-behaved client that must be served whatever others do."""

    def __init__(self, run: Run):
        self._event, self._headers = sample(run)
        self.service = Collector(run.kite, run.folder())
        self.good = self.client()
        self.acknowledged: set[str] = set()
        self.serve()
        self.before = status_of(self.service.pid, "VmRSS")
        self.descriptors = descriptors(self.service.pid)

    def __enter__(self) -> "Served":
        return self

    def __exit__(self, *_: object) -> None:
        self.good.close()
        self.service.close()

    def client(self, seconds: float = 30) -> Client:
        return Client(self.service.url, self.service.ca, self._event, self._headers, seconds)

    def serve(self, size: int = 3) -> float:
        """A good batch is accepted, and in time: how long it took."""
        ids, body = self.good.batch(size)
        begin = time.monotonic()
        status, reply = self.good.post(body)
        seconds = time.monotonic() - begin
        check(status == 200, f"a good batch was answered {status} {reply[:200]!r}")
        check(seconds < 5, f"a good batch took {seconds:.1f} s")
        self.acknowledged |= set(ids)
        return seconds

    def check_sound(self) -> None:
        """It lives, serves, has stored what it accepted, and has given back what it took."""
        check(self.service.process.poll() is None, f"it has ended: {self.service.stderr[-5:]}")
        self.serve()
        growth = status_of(self.service.pid, "VmHWM") - self.before
        check(growth < MOST_GROWTH, f"memory grew by {growth} kB")
        missing = self.acknowledged - {event["id"] for event in self.service.events()}
        check(not missing, f"{len(missing)} acknowledged events are not in the database")


# -- hostile requests

def bomb(size: int, levels: int = 1) -> bytes:
    """Zeros, packed once or more."""
    packer = zlib.compressobj(9, zlib.DEFLATED, 31)
    block = b"\0" * (1 << 20)
    body = b"".join(packer.compress(block) for _ in range(size >> 20)) + packer.flush()
    for _ in range(levels - 1):
        body = gzip.compress(body)
    return body


def json_bombs(client: Client) -> dict[str, bytes]:
    _, body = client.batch(1)
    text = gzip.decompress(body)
    cut = text.index(b'"events"')
    return {
        "deep arrays": gzip.compress(text[:cut] + b'"events":' + b"[" * 8_000_000),
        "deep data": gzip.compress(text.replace(b'"padding": ""', b'"padding":' + b"[" * 400_000
                                                + b"]" * 400_000)),
        "a million keys": gzip.compress(text.replace(b'"padding": ""', b",".join(
            b'"%d":0' % n for n in range(1_000_000)))),
        "a hundred thousand events": gzip.compress(b'{"events":[' + b",".join([b"{}"] * 100_000)
                                                   + b"]}"),
        "an unfinished text": gzip.compress(b'{"events":["' + b"x" * 10_000_000),
        "not UTF-8": gzip.compress(b'{"events":["\xff"]}'),
        "bytes behind the stream": body + b"\0" * 1_000_000,
        "half a stream": body[:-10], "a thousand streams": body * 1000, "nothing": b"",
        "no gzip": b"{}" * 1000, "10 GB of zeros": bomb(2 << 30),
        "a bomb in a bomb": bomb(1 << 30, 2),
    }


@case("collector", "gzip bombs and bodies that are no batch", full=13, smoke=4)
def bombs(run: Run) -> dict:
    with Served(run) as served:
        bodies = list(json_bombs(served.good).items())[:run.count]
        for name, body in bodies:
            client = served.client()
            try:
                status, _ = client.post(body)
                check(status < 500, f"{name} was answered {status}")
            except (OSError, http.client.HTTPException):
                pass  # it may hang up
            finally:
                client.close()
            try:
                served.check_sound()
            except Failed as failure:
                raise Failed(f"{name}: {failure}") from None
            run.tick()
    return {"bodies": len(bodies)}


def endless(first: bytes, piece: bytes, most: int = 1 << 30) -> Callable[[ssl.SSLSocket], None]:
    def send(stream: ssl.SSLSocket) -> None:
        stream.sendall(first)
        sent = 0
        while sent < most:
            stream.sendall(piece)
            sent += len(piece)
        raise Failed("it went on reading for ever")

    return send


def request_head(*lines: bytes) -> bytes:
    return b"\r\n".join([b"POST /v4/events HTTP/1.1", b"Host: x", *lines]) + b"\r\n\r\n"


ENDLESS = {
    "a body": endless(request_head(b"Content-Length: 999999999999"), b"x" * 65536),
    "a body of 64 bits": endless(request_head(b"Content-Length: 18446744073709551615"),
                                 b"x" * 65536),
    "chunks": endless(request_head(b"Transfer-Encoding: chunked"), b"10000\r\n" + b"x" * 65536
                      + b"\r\n"),
    "one chunk": endless(request_head(b"Transfer-Encoding: chunked") + b"ffffffffff\r\n",
                         b"x" * 65536),
    "headers": endless(b"POST /v4/events HTTP/1.1\r\n", b"X-Y: " + b"z" * 1000 + b"\r\n"),
    "a header": endless(b"POST /v4/events HTTP/1.1\r\nX: ", b"z" * 65536),
    "a request line": endless(b"POST /", b"z" * 65536),
    "line breaks": endless(b"", b"\r\n" * 10_000),
    "zero bytes": endless(b"", b"\0" * 65536),
}


@case("collector", "endless requests", full=len(ENDLESS), smoke=4)
def endless_requests(run: Run) -> dict:
    with Served(run) as served:
        for name, send in list(ENDLESS.items())[:run.count]:
            try:
                with served.client(seconds=20).socket() as stream:
                    try:
                        send(stream)
                    except OSError:
                        pass  # it hung up
                served.check_sound()
            except Failed as failure:
                raise Failed(f"{name} without end: {failure}") from None
    return {"kinds of request": min(run.count, len(ENDLESS))}


def idle_plain(served: Served) -> socket.socket:
    address = served.service.address.split(":")
    return socket.create_connection((address[0], int(address[1])), 10)


@case("collector", "200 connections at once", full=200, smoke=200)
def crowd(run: Run) -> dict:
    """A quarter says nothing, a quarter stops after the handshake, a quarter within the headers, a
    quarter within the body; the good client is served beside them."""
    with Served(run) as served:
        opened: list[socket.socket] = []
        begin = time.monotonic()
        for number in range(run.count):
            if number % 4 == 0:
                opened.append(idle_plain(served))
                continue
            stream = served.client().socket()
            opened.append(stream)
            if number % 4 > 1:
                stream.sendall(b"POST /v4/events HTTP/1.1\r\nHost: x\r\n")
            if number % 4 > 2:
                stream.sendall(b"Content-Length: 1000\r\n\r\n" + b"x" * 999)
        seconds = [served.serve() for _ in range(20)]
        held = descriptors(served.service.pid)
        check(held >= run.count, f"it holds {held} descriptors for {run.count} connections")
        batches = concurrent_batches(served, 50, 4)
        for stream in opened:
            stream.close()
        check(eventually(lambda: descriptors(served.service.pid) <= served.descriptors + 1, 10),
              "connections that were closed are held on to")
        served.check_sound()
    return {"connections": run.count, "batches beside them": batches + 20,
            "slowest in ms": round(max(seconds) * 1000),
            "seconds": round(time.monotonic() - begin, 1)}


def concurrent_batches(served: Served, clients: int, each: int) -> int:
    """Good clients, all at the same time."""
    problems: list[str] = []
    lock = threading.Lock()

    def work() -> None:
        client = served.client()
        for _ in range(each):
            ids, body = client.batch(2)
            status, reply = client.post(body)
            with lock:
                if status == 200:
                    served.acknowledged |= set(ids)
                else:
                    problems.append(f"{status} {reply[:100]!r}")
        client.close()

    threads = [threading.Thread(target=work) for _ in range(clients)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join(60)
    check(not problems, f"good batches were refused: {problems[:3]}")
    return clients * each


@case("collector", "slow clients", full=40, smoke=None)
def slow_clients(run: Run) -> dict:
    """They send a byte now and then or nothing at all. Those that are silent are hung up on."""
    with Served(run) as served:
        streams = [served.client(seconds=45).socket() for _ in range(run.count)]
        slow, silent = streams[::2], streams[1::2]
        text = itertools.cycle(b"POST /v4/events HTTP/1.1\r\nX: ")
        begin = time.monotonic()
        gone: set[ssl.SSLSocket] = set()
        while len(gone) < len(silent) and time.monotonic() - begin < 45:
            byte = bytes([next(text)])
            for stream in slow:
                try:
                    stream.sendall(byte)
                except OSError:
                    pass
            for stream in silent:
                stream.settimeout(0.001)
                try:
                    if stream not in gone and not stream.recv(1):
                        gone.add(stream)
                except TimeoutError:
                    pass
                except OSError:
                    gone.add(stream)
            served.serve(1)
            time.sleep(0.4)
        for stream in streams:
            stream.close()
        check(len(gone) == len(silent), f"{len(silent) - len(gone)} silent ones are still held")
        served.check_sound()
    return {"slow": len(slow), "silent": len(silent), "good batches beside them":
            len(served.acknowledged) - 6}


# -- kills and a full disk

class Sender:
    """Sends batch after batch and notes which were acknowledged."""

    def __init__(self, make: Callable[[], Client]):
        self.acknowledged: set[str] = set()
        self.sent: set[str] = set()
        self.refused = 0
        self._make = make
        self._is_over = threading.Event()
        self._thread = threading.Thread(target=self._work)
        self._thread.start()

    def _work(self) -> None:
        client = self._make()
        while not self._is_over.is_set():
            ids, body = client.batch(20, "x" * 100)
            self.sent |= set(ids)
            try:
                status, _ = client.post(body)
            except (OSError, http.client.HTTPException):
                client.close()
                client = self._make()
                continue
            if status == 200:
                self.acknowledged |= set(ids)
            else:
                self.refused += 1
        client.close()

    def end(self) -> None:
        self._is_over.set()
        self._thread.join(60)


def stored_ids(database: pathlib.Path) -> set[str]:
    connection = sqlite3.connect(f"file:{database}?mode=ro", uri=True, timeout=30)
    try:
        return {row[0] for row in connection.execute("SELECT id FROM events")}
    finally:
        connection.close()


@case("collector", "SIGKILL while it writes", full=200, smoke=15)
def kills(run: Run) -> dict:
    """What it acknowledged is in its database; a batch is there whole, or not at all."""
    event, headers = sample(run)
    folder = run.folder()
    service = Collector(run.kite, folder)
    address, url, ca = service.address, service.url, service.ca
    sender = Sender(lambda: Client(url, ca, event, headers, 10))
    random_ = run.random()
    try:
        for trial in range(run.count):
            time.sleep(random_.uniform(0, 0.03))
            before = len(sender.acknowledged)
            if trial % 5 == 0:
                eventually(lambda n=before: len(sender.acknowledged) > n, 10, 0.001)
            service.kill()
            known = set(sender.acknowledged)
            missing = known - stored_ids(service.db)
            check(not missing, f"kill {trial}: {len(missing)} acknowledged events are not there")
            service = Collector(run.kite, folder, listen=address)
            run.tick()
    finally:
        sender.end()
        service.close()
    stored = stored_ids(service.db)
    check(sender.acknowledged <= stored, "acknowledged events are not there at the end")
    check(stored <= sender.sent, "events that nobody sent")
    check(len(stored) % 20 == 0, "a batch is there in part")
    check(len(sender.acknowledged) > run.count, "hardly anything was acknowledged between kills")
    return {"kills": run.count, "events acknowledged": len(sender.acknowledged),
            "events lost": len(sender.acknowledged - stored)}


@contextmanager
def small_disk(folder: pathlib.Path, size: str):
    """A file system in memory that is soon full."""
    need("mount", "umount")
    folder.mkdir(exist_ok=True)
    done = subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size}", "tmpfs", str(folder)],
                          capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise NotRun(f"mount: {done.stderr.strip()}")
    try:
        yield folder
    finally:
        subprocess.run(["umount", "-l", str(folder)], check=False)


@case("collector", "a full disk", full=5, smoke=1)
def full_disk(run: Run) -> dict:
    """It refuses what it cannot store, says so, and goes on when there is space again."""
    need_root()
    event, headers = sample(run)
    acknowledged: set[str] = set()
    refused = 0
    for _ in range(run.count):
        with small_disk(run.folder() / "disk", "4m") as disk:
            ballast = disk / "ballast"
            ballast.write_bytes(b"b" * (1 << 20))
            with Collector(run.kite, disk) as service:
                client = Client(service.url, service.ca, event, headers)
                known = send_until(client, 500)
                refused += 1
                for size in (20, 10, 5, 1):  # a smaller batch may still find its place
                    ids, body = client.batch(size, "y" * 200)
                    status, reply = client.post(body)
                    check(status == 200 or status == 500 and b"database" in reply,
                          f"{status} {reply!r}")
                    known |= set(ids) if status == 200 else set()
                    refused += status == 500
                check(known <= stored_ids(service.db), "acknowledged events are not there")
                ballast.unlink()
                ids, body = client.batch(5)
                status, reply = client.post(body)
                check(status == 200, f"with space again: {status} {reply!r}")
                known |= set(ids)
                client.close()
                service.kill()
                check(known <= stored_ids(service.db), "acknowledged events are not there")
            acknowledged |= known
    return {"times full": run.count, "events acknowledged": len(acknowledged),
            "batches refused": refused}


def send_until(client: Client, wanted: int) -> set[str]:
    """Batches until one is answered so; the identifiers of all that were accepted."""
    known: set[str] = set()
    for _ in range(10_000):
        ids, body = client.batch(20, "x" * 500)
        status, reply = client.post(body)
        if status == wanted:
            return known
        check(status == 200, f"{status} {reply!r}")
        known |= set(ids)
    raise Failed("the disk does not get full")
