"""The power is cut: what a device holds at a random moment is mounted and checked."""

import json
import pathlib
import threading
import time

from harness import Host, Oracle, Run, case, check, disks, stores

COMMIT_SECONDS = 5  # of ext4's journal
FLUSH_PERIOD = 10.0
SECRET_SECONDS = 1 + 1  # until a secret is on the medium, and how late a busy machine may be
TROUBLE = ("damaged", "Damaged", "belongs to", "set aside", "memory only", "cannot be")
SHORT = ("ends too early", "is empty", "is missing", "are missing")


def window() -> float:
    """For how long Linux may hold back what was written without being synchronised."""
    seconds = sum(int(pathlib.Path(f"/proc/sys/vm/dirty_{name}_centisecs").read_text()) / 100
                  for name in ("expire", "writeback"))
    return seconds + COMMIT_SECONDS


class Writer:
    """A host in the background that tracks and changes its profile until it is stopped."""

    def __init__(self, run: Run, state):
        self.oracle = Oracle()
        self.answered_at: list[float] = []
        self.profile_sent = 0
        self.profile_answered_at: list[float] = []  # by its numbers, which begin at 1
        self.failure: Exception | None = None
        self._host = Host(run.kite, state, start_in_background=True)
        self._is_stopped = threading.Event()
        self._thread = threading.Thread(target=self._work)

    def __enter__(self):
        self._host.start()
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._is_stopped.set()
        self._thread.join()
        self._host.close()

    def _work(self):
        try:
            while not self._is_stopped.wait(0.01):
                self.oracle.track(self._host)
                self.answered_at.append(time.monotonic())
                if self.oracle.tracked % 7 == 0:
                    self.profile_sent += 1
                    self._host.call("updateUserInfo", with_={"proof": self.profile_sent})
                    self.profile_answered_at.append(time.monotonic())
        except Exception as failure:  # pylint: disable=broad-except  # raised by the case
            self.failure = failure


def open_copy(run: Run, state) -> int:
    """The stores of a copy open and work. Whether their console line tells that files end early:
    that is all that a power cut does to them."""
    with Host(run.kite, state, start_in_background=True).start() as host:
        check(host.call("keychainId"), "there is no identifier")
        lines = [line for line in host.stderr if any(word in line for word in (*TROUBLE, *SHORT))]
    for line in lines:
        _, _, files = line.partition("what could be read was kept: ")
        check(files and all(file.endswith(SHORT) for file in files.split(", ")),
              "\n".join(["after a power failure:", *lines]))
    check(not stores.set_aside(state), "a file of a store was set aside")
    return int(bool(lines))


@case("power", "copies of the device while writing", full=50, smoke=4)
def copies(run: Run) -> dict:
    """Of the profile at most the last second is lost; of the events at most those that the system had
    not written yet, which are the last ones."""
    random, folder = run.random(), run.folder()
    checked, lost, short, image = 0, 0, 0, folder / "copy.image"
    with disks.PoweredDisk(folder) as disk, Writer(run, disk.folder / "state") as writer:
        for number in range(run.count):
            time.sleep(random.uniform(0, 3))
            cut_at = time.monotonic()
            profile = sum(cut_at - moment > SECRET_SECONDS
                          for moment in list(writer.profile_answered_at))
            old = [serial for serial, moment in enumerate(writer.answered_at)
                   if cut_at - moment > window()]
            disk.copy(image)
            profile_end, tracked = writer.profile_sent, writer.oracle.tracked
            with disks.on_loop(image, folder / f"copy{number}") as copy:
                short += open_copy(run, copy / "state")
                account = writer.oracle.account(stores.queue(run.kite, copy / "state"))
                text = stores.value(run.kite, copy / "state", "Kite-User-Info", secrets=True)
            found = json.loads(text)["data"].get("proof", 0)
            check(profile <= found <= profile_end,
                  f"the profile is {found}, neither the old {profile} nor the new {profile_end}")
            writer.oracle.demand(account, old)
            writer.oracle.demand_prefix(account)
            if writer.failure:
                raise writer.failure
            checked += len(old)
            lost += tracked - len(account.kept)
            run.tick()
        events = writer.oracle.tracked
    return {"copies": run.count, "events": events, "events older than the window": checked,
            "lost within the promise": lost, "told": short}


@case("power", "copies after a flush or a session's end", full=40, smoke=4)
def after_a_flush(run: Run) -> dict:
    """All that was tracked until then is on the medium."""
    random, folder, oracle = run.random(), run.folder(), Oracle()
    image = folder / "copy.image"
    with disks.PoweredDisk(folder) as disk, \
            Host(run.program("timed_host"), disk.folder / "state", arguments=()).start() as host:
        for number in range(run.count):
            host.call("willEnterForeground")
            oracle.post(host, random.randint(1, 20), padding="x" * random.randint(0, 20_000))
            host.drain()
            if number % 2:
                host.call("fire", period=FLUSH_PERIOD)
            else:
                host.call("didEnterBackground")
                host.call("settle")
            disk.copy(image)
            with disks.on_loop(image, folder / f"copy{number}") as copy:
                told = open_copy(run, copy / "state")
                oracle.demand_all(oracle.account(stores.queue(run.kite, copy / "state")))
                check(not told, "a file of a store ends early")
            run.tick()
    return {"copies": run.count, "events": oracle.tracked, "events lost": 0}


@case("power", "copies while the stores are made", full=30, smoke=3)
def first_start(run: Run) -> dict:
    """The first start of all is no moment of danger either."""
    random, folder = run.random(), run.folder()
    image, short = folder / "copy.image", 0
    with disks.PoweredDisk(folder) as disk:
        for number in range(run.count):
            state = f"state{number}"
            with Host(run.kite, disk.folder / state, start_in_background=True) as host:
                host.post("start")
                time.sleep(random.uniform(0, 0.08))
                disk.copy(image)
                host.drain()
            with disks.on_loop(image, folder / f"copy{number}") as copy:
                short += open_copy(run, copy / state)
            run.tick()
    return {"copies": run.count, "told": short}
