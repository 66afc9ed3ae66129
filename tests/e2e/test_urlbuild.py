"""The units of the service's work, carried out by urlbuild: they equal the service, keep out of
each other's way and of the service's, and a kill does them no harm."""

from __future__ import annotations

import os
import random
import time
from pathlib import Path
from signal import SIGINT

import pytest
from programs import FAILED, PAUSE, VERSION, Process, run, seen
from world import World

NOT_NOW = 3


def units(world: World) -> list[tuple[str, ...]]:
    """All that there can be, in an order in which they can be run."""
    dates = sorted({tuple(node.split("/")[::2]) for node in world.counts.nodes})
    days = [("day", account, f"{day[:4]}-{day[4:6]}-{day[6:]}") for account, day in dates]
    checks = sorted({("check", account) for account, _ in dates})
    return [*checks, *days, *(("week", *day[1:]) for day in days),
            *(("month", *day[1:]) for day in days)]


def run_units(world: World, *options: str, killed: bool = False) -> list[str]:
    lines = []
    for unit in units(world):
        code, printed = world.unit(*unit, *options)
        if killed:  # lists half written are told of when they are thrown away
            printed = [line for line in printed
                       if not (line.startswith("E:") and "/topn.temp" in line)]
        assert code == 0 and len(printed) == 1, (unit, code, printed)
        lines += printed
    return lines


def reaches(condition, unit: Process) -> None:
    end = time.monotonic() + 60
    while not condition():
        assert unit.running() and time.monotonic() < end, unit.story()
        time.sleep(0.002)


def test_units_equal_the_service_and_both_go_on_from_the_other(world: World) -> None:
    other = World(world.root / "other")
    other.root.mkdir()
    for each in (world, other):
        each.generate(visits=6000, devices=2)
    lines = run_units(world, "--expect", VERSION)
    assert lines[:2] == ["check alice: done", "check bob: done"]
    assert sum(int(line.split()[3]) for line in lines if " visits read, 1 file merged" in line) == (
        sum(visits for hosts in world.counts.hosts.values() for visits, _ in hosts.values()))
    assert world.differences() == []
    other.one_pass()
    assert run("urlstat", "diff", seen(world.stat_root), seen(other.stat_root))[0] == 0

    before = world.files()
    assert all(line.endswith((": nothing due", ": done")) for line in run_units(world))
    assert world.files() == before

    world.append(3000, new_days=1)
    world.one_pass()
    assert world.differences() == []
    world.append(3000, new_days=1, new_devices=1)
    run_units(world)
    assert world.differences() == []
    assert world.set_aside() == []


def test_units_keep_out_of_each_others_way(world: World) -> None:
    """A unit that spills all the time works long enough for whatever comes beside it."""
    world.settings["maxHashMemory"] = 1
    world.generate(visits=60000, accounts=1, days=1)
    world.append(200, new_days=1)
    day, other = ("day", "alice", "20121229"), ("day", "alice", "20121230")
    spills = world.log_data / "_memdisk/alice/20121229"

    unit = world.start_unit(*day)
    reaches(spills.is_dir, unit)
    beside = world.unit(*other)
    assert beside[0] == 0 and unit.running(), (beside, unit.story())
    for refused in (day, ("week", *day[1:]), ("month", *day[1:]), ("check", "alice")):
        code, lines = world.unit(*refused)
        assert code == NOT_NOW and "another unit is at work" in lines[0], (refused, lines)
    code, lines = world.run()
    assert code == FAILED and any("another instance is running on" in line for line in lines)
    code, lines = world.run("--check")
    assert code == 1 and any("units of the service's work are running" in line for line in lines)
    unit.request(SIGINT)
    assert unit.wait() == NOT_NOW, unit.story()
    assert not spills.exists()

    world.configure(maxHashMemory=1000)
    service = world.start()
    assert service.reaches(PAUSE), service.story()
    world.append(100)
    before = world.files(log=False)
    code, lines = world.unit(*day)
    assert code == NOT_NOW and "the service runs on it" in lines[-1], lines
    assert world.files(log=False).keys() >= before.keys()
    world.stop(service)
    world.one_pass()
    assert world.differences() == []


def test_kills_at_random_moments_lose_nothing(world: World) -> None:
    """Between them new logs come."""
    rounds = int(os.environ.get("KESTRINE_ROUNDS", 20))
    seed = int(os.environ.get("KESTRINE_SEED", time.time_ns() % 100000))
    print("KESTRINE_SEED", seed)
    choices = random.Random(seed)
    world.settings["maxHashMemory"] = 16
    world.generate(visits=6000, accounts=1, days=2)
    begin = time.monotonic()
    run_units(world)
    each = (time.monotonic() - begin) / len(units(world))
    for i in range(rounds):
        if i % 4 == 0:
            world.append(3000, new_days=int(i == 8))
        for unit in units(world):
            process = world.start_unit(*unit)
            time.sleep(each * choices.random() * 1.5)
            process.kill()
        if i % 5 == 4 or i + 1 == rounds:
            run_units(world, killed=True)
            assert world.differences() == [], (seed, i)
    assert world.set_aside() == []


@pytest.mark.parametrize(("arguments", "code", "text"), [
    (("day", "alice", "20121229", "--expect", "0.9"), 2, f"this is {VERSION}, the plan is of 0.9"),
    (("day", "alice", "2012-13-29x"), 2, "is no date"),
    (("week", "alice", "20121232"), 2, "is no date"),
    (("day", "alice"), 2, "DATE"),
    (("day", "nobody", "20121229"), 1, "nobody: is no account"),
    (("check", "alice"), 1, "the log data is not there"),
])
def test_what_cannot_be_done_is_said_in_one_line(world: World, arguments: tuple[str, ...],
                                                 code: int, text: str) -> None:
    world.generate(visits=500, accounts=1, days=1)
    run_units(world)
    if "not there" in text:
        away: Path = world.root / "elsewhere"
        world.configure(urlStatRoot=seen(world.root / "stat"),
                        memoryDiskPath=seen(world.root / "mem"))
        world.log_data.rename(away)
    before = world.files()
    result, lines = world.unit(*arguments)
    assert result == code and len(lines) == 1, lines
    assert lines[0].startswith("urlbuild: ") and text in lines[0], lines
    assert world.files() == before

