"""Programs that a test starts: directly, or the Windows ones through an emulator."""

from __future__ import annotations

import ctypes
import os
import subprocess
import time
from pathlib import Path
from signal import SIGINT, SIGKILL
from threading import Thread

import emulator

BIN = Path(os.environ["KESTRINE_BIN"])
VERSION = os.environ["KESTRINE_VERSION"]
EMULATOR = [part for part in os.environ.get("KESTRINE_EMULATOR", "").split(":") if part]
WINDOWS = bool(EMULATOR)
DRIVE = "Z:" if WINDOWS else ""  # the emulator's name of the root directory
STOPS = [SIGINT] if WINDOWS else [1, 2, 15]  # of the events of a console, one can be brought about
FAILED = 255  # exit code -1
LIMIT = 180  # seconds for whatever is waited for
PAUSE = " 0s elapsed, wait to find new data"
LIBC = ctypes.CDLL(None)


def program(name: str) -> Path:
    return BIN / (name + (".exe" if WINDOWS else ""))


def seen(path: Path) -> str:
    """The path as the programs see it."""
    return DRIVE + str(path)


def count(lines: list[str], part: str) -> int:
    return sum(part in line for line in lines)


def die_with_parent() -> None:
    LIBC.prctl(1, SIGKILL)  # PR_SET_PDEATHSIG


class Process:
    """A program in a process group of its own, with the lines that it has printed so far."""

    def __init__(self, command: list[str], directory: Path) -> None:
        self.lines: list[str] = []
        self._child = subprocess.Popen(
            EMULATOR + command, cwd=directory, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT, text=True, errors="replace", start_new_session=True,
            preexec_fn=die_with_parent)
        self._reader = Thread(target=self._read, daemon=True)
        self._reader.start()

    def _read(self) -> None:
        for line in self._child.stdout:
            self.lines.append(line.rstrip("\n"))
        self._child.stdout.close()

    def reaches(self, part: str, times: int = 1) -> bool:
        """Waits for so many lines with the text; false when the program ends before."""
        end = time.monotonic() + LIMIT
        while count(self.lines, part) < times and time.monotonic() < end:
            if not self._reader.is_alive():
                break
            time.sleep(0.003)
        return count(self.lines, part) >= times

    def story(self) -> str:
        return f"exit code {self._child.poll()}, last lines {self.lines[-12:]}"

    def running(self) -> bool:
        return self._child.poll() is None

    @property
    def pid(self) -> int:
        return self._child.pid

    def request(self, signal: int) -> None:
        if WINDOWS:
            emulator.interrupt(self._child.pid)
        else:
            self._child.send_signal(signal)

    def kill(self) -> None:
        """Ends it at once, and the commands that it runs with it. Returns when it is dead."""
        if self._child.poll() is None:
            os.killpg(self._child.pid, SIGKILL)
        self.wait()

    def wait(self) -> int:
        """The exit code, below 0 for the signal that ended it."""
        code = self._child.wait(LIMIT)
        self._reader.join()
        return code

    def errors(self) -> list[str]:
        """Error lines, but those for hosts without an end, which every generated world has."""
        return [line for line in self.lines
                if line.startswith("E:") and "cannot find </_f> in" not in line]


def start(command: list[str], directory: Path) -> Process:
    """The emulator itself fails now and then, with exit code 1 and no line: once in some hundred
    programs. Then it is tried again."""
    process = Process(command, directory)
    for _ in range(4 if WINDOWS else 0):
        if process.reaches("") or process.wait() != 1:
            break
        process = Process(command, directory)
    return process


def run(name: str | Path, *arguments: str, directory: Path = Path("/")) -> tuple[int, list[str]]:
    path = name if isinstance(name, Path) else program(name)
    process = start([str(path), *arguments], directory)
    return process.wait(), process.lines
