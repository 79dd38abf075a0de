"""What befalls the primary's machine: its disk is full or slow, or its network is cut."""

import contextlib
import random
import shutil
import time

from harness import Run, case, check, disks, eventually, need_root
from harness.client import sample
from harness.cluster import NUMBERS, Cluster, Feeder, Sender, need_cluster
from harness.networks import Networks


@contextlib.contextmanager
def load(run: Run, cluster: Cluster):
    """A host and a client that send without pause; at the end everything must have arrived."""
    with Feeder(run, cluster, "host") as feeder, Sender(cluster, sample(run), size=20) as sender:
        yield sender
        cluster.check_healed()
        sender.end()
        feeder.finish()
        sender.check(cluster.ids())


def goes_on(sender: Sender) -> bool:
    now = time.monotonic()
    return bool(eventually(lambda: sender.answered_at and sender.answered_at[-1] > now, 60))


@case("cluster", "a full disk under the primary", full=5, smoke=None)
def full_disk(run: Run) -> dict:
    """Nobody can write until there is space again, or another server is the primary."""
    need_root()
    need_cluster()

    def prepared(layout, stack):
        for number in NUMBERS:
            stack.enter_context(disks.mounted(layout.member(f"db{number}"), "-t", "tmpfs", "-o", "size=400m,mode=0755", "none"))

    longest = 0.0
    with Cluster(run, prepared) as cluster, load(run, cluster) as sender:
        for _ in range(run.count):
            filler = cluster.layout.member(cluster.find("primary")) / "filler"
            begin = time.monotonic()
            with open(filler, "wb", buffering=0) as file, contextlib.suppress(OSError):
                while file.write(bytes(1 << 16)):
                    pass
            is_refused = eventually(lambda: sender.longest_gap(begin) > 5, 60, 0.5)  # once the log's last file is full
            check(is_refused and shutil.disk_usage(filler.parent).free < 1 << 20, "the disk does not get full")
            filler.unlink()
            cluster.check_healed()
            check(goes_on(sender), "nothing is acknowledged although there is space again")
            longest = max(longest, sender.longest_gap(begin))
            run.tick()
    return {"times full": run.count, "acknowledged to the client": len(sender.acknowledged),
            "s without an acknowledgement": round(longest, 1)}


def write_slowly(disk: disks.PoweredDisk, seconds: float, random_: random.Random):
    """Writes wait for up to two seconds, longer than an upload may take."""
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        with disk.frozen():
            time.sleep(random_.uniform(0.2, 2))
        time.sleep(0.02)


@case("cluster", "a slow disk under the primary", full=5, smoke=None)
def slow_disk(run: Run) -> dict:
    """The other databases' disks are as fast as ever."""
    need_root()
    need_cluster()
    slow: dict[str, disks.PoweredDisk] = {}

    def prepared(layout, stack):
        for number in NUMBERS:
            member = layout.member(f"db{number}")
            slow[member.name] = stack.enter_context(disks.PoweredDisk(run.folder(), 800, at=member))

    longest = 0.0
    with Cluster(run, prepared) as cluster, load(run, cluster) as sender:
        for number in range(run.count):
            begin = time.monotonic()
            write_slowly(slow[cluster.find("primary")], 25, run.random(number))
            gap = sender.longest_gap(begin)
            check(gap > 0.5, "the disk does not get slow")
            cluster.check_healed()
            check(goes_on(sender), "nothing is acknowledged although the disk is fast again")
            longest = max(longest, gap)
            run.tick()
    return {"times slow": run.count, "acknowledged to the client": len(sender.acknowledged),
            "s without an acknowledgement": round(longest, 1)}


@case("cluster", "a network split around the primary", full=5, smoke=None)
def split(run: Run) -> dict:
    """The primary is cut off from the other databases, from etcd and from the collectors, and comes back."""
    need_root()
    need_cluster()
    networks: list[Networks] = []

    def prepared(layout, stack):
        networks.append(stack.enter_context(contextlib.closing(Networks(layout, NUMBERS))))

    longest = 0.0
    with Cluster(run, prepared, has_namespaces=True) as cluster, load(run, cluster) as sender:
        for _ in range(run.count):
            primary = cluster.find("primary")
            space, begin = cluster.layout.namespace(int(primary[-1])), time.monotonic()
            networks[0].cut_off(space)
            is_replaced = eventually(lambda: cluster.find("primary") != primary, 60, 0.2)
            goes = goes_on(sender)
            longest = max(longest, sender.longest_gap(begin))
            networks[0].let_in(space)
            check(is_replaced and goes, "the primary that is cut off is not replaced")
            cluster.check_healed()
            run.tick()
    return {"splits": run.count, "acknowledged to the client": len(sender.acknowledged),
            "s without an acknowledgement": round(longest, 1)}
