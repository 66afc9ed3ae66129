"""Passes of the real service over made-up log data."""

from __future__ import annotations

import os
import re
import shutil
import subprocess
from dataclasses import dataclass
from pathlib import Path
from signal import SIGKILL, SIGTERM

PAUSE = "wait to find new data"

# Small blocks, for the compression of real logs; nothing but visits, since the service reports
# records that are damaged.
LOGS = {"seed": 1, "files_per_node": 4, "long_node_files": 0, "block_bytes": 23000,
        "raw_percent": 0, "skip_per_mille": 0}


@dataclass(frozen=True)
class Pass:
    cpu: float  # seconds, from start to stop
    peak: int  # bytes of memory
    resident: int  # bytes, in the pause behind it
    log: int  # bytes of the log file


class World:
    def __init__(self, root: Path, mklogdata: Path, settings: dict[str, int] | None = None,
                 **options: float) -> None:
        self.root = root
        self.log_data = root / "data/log_data"
        words = [f"--{name}={value}".replace("_", "-") for name, value in (LOGS | options).items()]
        words += [f"--set={key}={value}" for key, value in (settings or {}).items()]
        printed = subprocess.run([mklogdata, root, *words], check=True, text=True,
                                 stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout
        raw, stored = (int(re.search(rf"^{kind} bytes (\d+)$", printed, re.M).group(1))
                       for kind in ("raw", "stored"))
        self.compression = raw / stored

    def run(self, program: Path) -> Pass:
        """One pass over all the log data, which has not been read."""
        home = self.root / "install/ml"
        shutil.copy(program, home / "kestrine")
        child = subprocess.Popen([home / "kestrine"], cwd=home, stdin=subprocess.DEVNULL,
                                 stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                                 errors="replace")
        try:
            resident = resident_at_pause(child)
            child.send_signal(SIGTERM)
            child.stdout.read()
            cpu, peak = wait(child)
        finally:
            if child.returncode is None:
                child.send_signal(SIGKILL)
                child.wait()
            child.stdout.close()
        log = sum(path.stat().st_size for path in (home / "log").rglob("*.txt"))
        shutil.rmtree(home / "log")
        shutil.rmtree(self.log_data / "_urlstat")
        return Pass(cpu, peak, resident, log)

    def remove(self) -> None:
        shutil.rmtree(self.root)


def resident_at_pause(child: subprocess.Popen) -> int:
    last: list[str] = []
    for line in child.stdout:
        if PAUSE in line:
            status = Path(f"/proc/{child.pid}/status").read_text()
            return 1024 * int(re.search(r"^VmRSS:\s*(\d+) kB$", status, re.M).group(1))
        last = [*last[-9:], line]
    raise RuntimeError("the service ended before its first pass was finished:\n" + "".join(last))


def wait(child: subprocess.Popen) -> tuple[float, int]:
    """CPU seconds and peak memory in bytes, when the service has stopped in order."""
    _, status, usage = os.wait4(child.pid, 0)
    child.returncode = os.waitstatus_to_exitcode(status)
    if child.returncode != 0:
        raise RuntimeError(f"the service ended with exit code {child.returncode}")
    return usage.ru_utime + usage.ru_stime, 1024 * usage.ru_maxrss
