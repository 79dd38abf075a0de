"""The parts that the families of faults share."""

from . import disks, records, stores, strace
from .case import KEY, Failed, NotRun, Run, case, check, need, need_root, survey, total
from .collector import Collector
from .host import NOWHERE, Host, HostDied, HostHung
from .lines import eventually, run
from .oracle import Account, Oracle, serial_of

__all__ = ["KEY", "NOWHERE", "Account", "Collector", "Failed", "Host", "HostDied", "HostHung",
           "NotRun", "Oracle", "Run", "case", "check", "disks", "eventually", "need", "need_root",
           "records", "run", "serial_of", "stores", "strace", "survey", "total"]
