"""What is due, carried out by Dask's own scheduler and workers, which are killed meanwhile."""

import os
import socket
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path

import pytest
from programs import LIMIT, Process, program, seen, start
from world import World

DRIVER = Path(__file__).parents[2] / "cluster/urlbuild-dask"
# Two accounts, a week in two months.
HISTORY = {"accounts": 2, "devices": 1, "first_date": 20121127, "days": 8, "files_per_node": 1}
POISONED = "day alice 20121130"
# As many as the scheduler takes for chance in one round.
DEATHS = 3


def driver(world: World, urlbuild: Path, *arguments: str) -> Process:
    return start([str(DRIVER), f"--urlbuild={urlbuild}", f"--patience={LIMIT}", *arguments],
                 world.home)


def ends_exactly(world: World, process: Process) -> None:
    assert process.wait() == 0, process.story()
    assert process.lines[-1] == "nothing is due"
    assert world.differences() == []


@contextmanager
def dask(world: World, *command: str) -> Iterator[Process]:
    process = start(list(command), world.home)
    try:
        yield process
    finally:
        process.kill()


def free_port() -> int:
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return int(probe.getsockname()[1])


@pytest.fixture
def urlbuild(world: World) -> Path:
    world.generate(**HISTORY)
    return world.home / program("urlbuild").name


def test_workers_of_this_machine(world: World, urlbuild: Path) -> None:
    process = driver(world, urlbuild, "--jobs=2")
    ends_exactly(world, process)
    done = [line for line in process.lines if line.startswith(("day", "week", "month"))]
    assert len(done) == 2 * (8 + 2 + 2)
    world.append(visits=1000)
    ends_exactly(world, driver(world, urlbuild, "--jobs=1"))
    # Of another version: refused by every unit, and the statistics stay as they are.
    other = world.home / "other"
    other.write_text(f"""#!/bin/bash
        set -o pipefail
        {urlbuild} "$@" | sed 's/"--expect","/&9/'
        """)
    other.chmod(0o755)
    world.append(visits=1000)
    before = world.files(log=False)
    refused = driver(world, other, "--jobs=1", "--retries=0")
    assert refused.wait() == 1 and "the plan is of 9" in "\n".join(refused.lines), refused.story()
    assert {path: data for path, data in before.items() if "_urlstat" in path} == {
        path: data for path, data in world.files(log=False).items() if "_urlstat" in path}


def test_deaths_of_workers_and_of_the_scheduler(world: World, urlbuild: Path) -> None:
    # It kills its worker before it begins, and the last time goes on without it.
    deadly = world.home / "deadly"
    deadly.write_text(f"""#!/bin/bash
        exec {{lock}}>deaths.lock
        flock $lock
        deaths=$(($(cat deaths 2>/dev/null) + 0))
        if [[ "$*" == *"{POISONED}"* ]] && ((deaths < {DEATHS})); then
            echo $((deaths + 1)) >deaths
            kill -KILL $PPID
            ((deaths + 1 == {DEATHS})) || exit
        fi
        exec {{lock}}>&-
        sleep 0.3
        exec {urlbuild} "$@"
        """)
    deadly.chmod(0o755)
    address = f"tcp://127.0.0.1:{free_port()}"
    scheduler = ["dask-scheduler", "--no-dashboard", "--host", address]
    workers = ["dask-worker", address, "--nworkers=2", "--nthreads=1", "--no-dashboard"]
    with dask(world, *scheduler) as first, dask(world, *workers) as lost:
        process = driver(world, deadly, f"--scheduler={address}")
        assert process.reaches("week bob"), process.story()
        first.kill()
        lost.kill()
        with dask(world, *scheduler), dask(world, *workers):
            assert process.reaches("everything is begun anew"), process.story()
            ends_exactly(world, process)
    assert (world.home / "deaths").read_text() == f"{DEATHS}\n"
