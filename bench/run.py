"""Builds, measures and prints the table; what bench.sh starts."""

from __future__ import annotations

import argparse
import os
import shutil
import signal
import subprocess
import sys
import tempfile
from pathlib import Path

import rows
from builds import build_of, build_this, commit_of
from table import Row, draw

ROOM = 6 << 30  # bytes: the service waits until 5 GiB are free, and the log data takes some


def parsed() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="./bench.sh", description="Prints a table of ratios.")
    parser.add_argument("--quick", action="store_true", help="smaller, and fewer rounds")
    parser.add_argument("--base", metavar="REVISION", help="measure that revision's service, too")
    return parser.parse_args()


def directory_with_room() -> str:
    """In memory, where the disk has no part in what is measured."""
    for place in ("/dev/shm", tempfile.gettempdir()):
        if os.access(place, os.W_OK) and shutil.disk_usage(place).free > ROOM:
            return place
    raise RuntimeError("more than 6 GiB must be free in /dev/shm or in TMPDIR")


def say(text: str) -> None:
    print(f"== {text}", file=sys.stderr, flush=True)


def measure(quick: bool, programs: Path, services: dict[str, Path]) -> list[Row]:
    found = []
    with tempfile.TemporaryDirectory(prefix="kestrine-bench-", dir=directory_with_room()) as place:
        plan = rows.Plan(programs, services, Path(place), scale=0.3 if quick else 1,
                         rounds=3 if quick else 9)
        for name, measured in rows.ALL.items():
            say(name)
            found += measured(plan)
    return found


def main() -> None:
    arguments = parsed()
    base = commit_of(arguments.base) if arguments.base else None
    say("build")
    programs = build_this()
    services = {rows.THIS: programs / "kestrine"}
    if base is None:
        print(draw(measure(arguments.quick, programs, services)))
        return
    say(f"build {base}")
    with build_of(base) as service:
        print(draw(measure(arguments.quick, programs, services | {base: service})))


def stop(number: int, _: object) -> None:
    raise SystemExit(128 + number)


for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
    signal.signal(number, stop)
try:
    main()
except (RuntimeError, subprocess.CalledProcessError) as error:
    sys.exit(f"bench.sh: {error}")
