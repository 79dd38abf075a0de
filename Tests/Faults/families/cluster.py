"""Collectors that share a database: whatever dies, stands still or is cut off, every acknowledged event is stored once."""

import random
import signal
import time
from collections import Counter

from harness import Run, case, check, eventually
from harness.client import sample
from harness.cluster import Cluster, Feeder, Sender, control

LONGEST_FAILOVER = 30  # seconds without an acknowledgement after a primary's death


def kill_collector(cluster: Cluster, random_: random.Random):
    cluster.strike(f"collector{random_.randint(1, 3)}", signal.SIGKILL)
    time.sleep(random_.uniform(0, 5))


def kill_replica(cluster: Cluster, random_: random.Random):
    cluster.strike(cluster.find("replica"), signal.SIGKILL)
    time.sleep(random_.uniform(0, 10))


def kill_etcd(cluster: Cluster, random_: random.Random):
    cluster.strike(cluster.find("etcd"), signal.SIGKILL)
    time.sleep(random_.uniform(0, 10))


def wait_for_another(cluster: Cluster, primary: str):
    check(eventually(lambda: cluster.find("primary") != primary, LONGEST_FAILOVER * 2, 0.2), f"{primary} is not replaced")


def kill_primary(cluster: Cluster, random_: random.Random):
    """Often it is started again before it has been replaced."""
    primary = cluster.find("primary")
    cluster.strike(primary, signal.SIGKILL)
    if random_.random() < 0.7:
        wait_for_another(cluster, primary)
    time.sleep(random_.uniform(0, 3))


def kill_primary_and_collector(cluster: Cluster, random_: random.Random):
    primary = cluster.find("primary")
    cluster.strike(f"collector{random_.randint(1, 3)}", signal.SIGKILL)
    cluster.strike(primary, signal.SIGKILL)
    wait_for_another(cluster, primary)


def stop_primary(cluster: Cluster, random_: random.Random, seconds: float = 60):
    """It stands still while another takes its place, and then goes on as if nothing had happened."""
    primary = cluster.find("primary")
    cluster.strike(primary, signal.SIGSTOP)
    time.sleep(seconds)
    others = set(cluster.find("primary") for _ in range(3))
    check(primary not in others, f"{primary} stands still and is not replaced")
    cluster.strike(primary, signal.SIGCONT)
    time.sleep(random_.uniform(0, 3))


def stop_primary_briefly(cluster: Cluster, random_: random.Random):
    """About as long as its lease lasts."""
    primary = cluster.find("primary")
    cluster.strike(primary, signal.SIGSTOP)
    time.sleep(random_.uniform(5, 15))
    cluster.strike(primary, signal.SIGCONT)
    time.sleep(random_.uniform(0, 3))


def stop_patroni(cluster: Cluster, random_: random.Random):
    """The primary's server goes on, and does not know that it has been replaced."""
    primary = cluster.find("primary")
    cluster.strike(primary, signal.SIGSTOP, leaves_server=True)
    wait_for_another(cluster, primary)
    time.sleep(random_.uniform(20, 40))
    cluster.strike(primary, signal.SIGCONT)


def restart_in_turn(cluster: Cluster, _: random.Random):
    """One member after the other, each once the one before it is well again."""
    for name in control.MEMBERS:
        cluster.end(name)
        cluster.start(name)
        cluster.check_healed()


# How many of a hundred; the last four take a minute.
FAULTS = {kill_collector: 22, kill_primary: 30, kill_replica: 12, kill_etcd: 12, kill_primary_and_collector: 14,
          stop_primary: 4, stop_patroni: 2, stop_primary_briefly: 2, restart_in_turn: 2}
NAMES = {kill_collector: "collectors killed", kill_primary: "primaries killed", kill_replica: "replicas killed",
         kill_etcd: "leaders of etcd killed", kill_primary_and_collector: "primaries killed with a collector",
         stop_primary: "primaries halted for a minute", stop_primary_briefly: "primaries halted for seconds",
         stop_patroni: "halts of a primary's Patroni alone", restart_in_turn: "restarts of all in turn"}
KILLS_OF_PRIMARY = (kill_primary, kill_primary_and_collector)


def schedule(run: Run) -> list:
    if run.is_smoke:
        return [kill_collector, kill_primary, kill_etcd][:run.count]
    faults = [fault for fault, times in FAULTS.items() for _ in range(times)]
    run.random().shuffle(faults)
    return faults[:run.count]


@case("cluster", "kills, halts and restarts under load", full=100, smoke=3)
def random_faults(run: Run) -> dict:
    """Two hosts and a client send without pause. After each fault every member is started again and heals."""
    done: Counter = Counter()
    gaps, halts, event = [0.0], [0.0], sample(run)
    with Cluster(run) as cluster, Feeder(run, cluster, "first") as first, Feeder(run, cluster, "second") as second, \
            Sender(cluster, event) as sender:
        for feeder in (first, second):
            check(eventually(feeder.check, 60, 1), "a host's events do not arrive")
        for number, fault in enumerate(schedule(run)):
            begin, now = time.monotonic(), time.time()
            fault(cluster, run.random(number))
            cluster.check_healed()
            check(eventually(lambda: sender.answered_at and sender.answered_at[-1] > time.monotonic() - 1, 30),
                  f"{NAMES[fault]}: nothing is acknowledged after it healed")
            gap = max(sender.longest_gap(begin), cluster.longest_gap(now))
            (gaps if fault in KILLS_OF_PRIMARY else halts).append(gap)
            check(fault not in KILLS_OF_PRIMARY or gap <= LONGEST_FAILOVER,
                  f"{gap:.1f} s without an acknowledgement, fault {number}: {NAMES[fault]}")
            for feeder in (first, second):
                feeder.check()
            done[NAMES[fault]] += 1
            run.tick()
        sender.end()
        emptied = [feeder.finish() for feeder in (first, second)]
        sender.check(cluster.ids())
        return dict(done) | {
            "events of hosts": first.oracle.tracked + second.oracle.tracked,
            "acknowledged to the client": len(sender.acknowledged),
            "s without an acknowledgement after a primary's death": round(max(gaps), 1),
            "s after other faults": round(max(halts), 1), "s until the queues were empty": round(max(emptied), 1)}
