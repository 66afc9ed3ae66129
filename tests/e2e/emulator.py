"""A Ctrl-C for a program in the emulator, given such that the emulator survives it.

It takes a Unix signal for one and starts a thread in the handler, which allocates memory. A handler
that meets the C library in the middle of an allocation destroys the heap. So the program is held
first, and let go on when it stands there."""

from __future__ import annotations

import os
import time
from pathlib import Path
from signal import SIGCONT, SIGINT, SIGSTOP

# Calls of the system that allocations make: mmap, mprotect, munmap, brk, mremap, madvise.
ALLOCATING = {"9", "10", "11", "12", "25", "28"}


def may_allocate(process: Path) -> bool:
    """Whether a process that is held stands in a Unix library, or in a call that allocates."""
    call, *_, address = (process / "syscall").read_text().split()
    if call != "-1":
        return call in ALLOCATING
    for line in (process / "maps").read_text().splitlines():
        begin, _, end = line.partition(" ")[0].partition("-")
        if int(begin, 16) <= int(address, 16) < int(end, 16):
            return ".so" in line
    return True


def state(process: Path) -> str:
    return (process / "stat").read_text().rpartition(")")[2].split()[0]


def interrupt(pid: int) -> None:
    """Of a program that has ended and was not waited for, too."""
    process = Path("/proc", str(pid))
    waiting = True
    while waiting:
        os.kill(pid, SIGSTOP)
        while state(process) not in "TZ":
            time.sleep(0.0001)
        waiting = state(process) == "T" and may_allocate(process)
        if not waiting:
            os.kill(pid, SIGINT)
        os.kill(pid, SIGCONT)
        time.sleep(0.0001)
