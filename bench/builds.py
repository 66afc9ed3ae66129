"""The programs of this revision, and the service of another one to measure it beside."""

from __future__ import annotations

import os
import subprocess
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path

REPOSITORY = Path(__file__).resolve().parent.parent
PROGRAMS = ["kestrine", "kestrine_bench", "mklogdata", "urlstat"]


def call(*command: str | Path) -> str:
    """What the command prints; it is shown when the command fails."""
    done = subprocess.run(command, cwd=REPOSITORY, stdin=subprocess.DEVNULL, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    if done.returncode != 0:
        raise RuntimeError(f"{' '.join(map(str, command))} failed:\n{done.stdout}")
    return done.stdout


def compile_targets(directory: Path, targets: list[str]) -> Path:
    """Returns where the programs lie."""
    call("cmake", "--build", directory, "--target", *targets, "-j", str(os.cpu_count()))
    return directory / "bin"


def build_this() -> Path:
    call("cmake", "--preset", "linux-release")
    return compile_targets(REPOSITORY / "build/linux-release", PROGRAMS)


def commit_of(revision: str) -> str:
    return call("git", "rev-parse", "--verify", "--short", revision + "^{commit}").strip()


@contextmanager
def build_of(commit: str) -> Iterator[Path]:
    """The service of another revision, for as long as it is measured."""
    home = REPOSITORY / "build/base"
    remove(home)
    try:
        call("git", "worktree", "add", "--force", "--detach", home, commit)
        call("cmake", "-S", home, "-B", home / "build", "-G", "Ninja",
             "-DCMAKE_BUILD_TYPE=Release", "-DBUILD_TESTING=OFF")
        yield compile_targets(home / "build", ["kestrine"]) / "kestrine"
    finally:
        remove(home)


def remove(worktree: Path) -> None:
    if worktree.exists():
        call("git", "worktree", "remove", "--force", worktree)
