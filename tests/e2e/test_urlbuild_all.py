"""Everything that is due, in many processes: what is planned, and what becomes of it."""

import json
import os
import random
import re
import shutil
import time
from pathlib import Path
from signal import SIGINT, SIGKILL, SIGTERM

from programs import FAILED as SERVICE_FAILED
from programs import LIMIT, PAUSE, WINDOWS, Process, count, run, seen
from statistics_tree import files_of
from world import World

FAILED, REFUSED = 1, 3
# Around the end of a year: three months, and weeks in two of them.
MONTHS = {"accounts": 3, "devices": 2, "first_date": 20121128, "days": 10 if WINDOWS else 40,
          "files_per_node": 1}
DATES = re.compile("[0-9]{8}")
Unit = dict[str, object]


def build(world: World, *arguments: str, code: int = 0) -> list[str]:
    got, lines = world.unit(*arguments)
    assert got == code, lines
    return lines


def plan(world: World) -> dict[str, Unit]:
    """Read, and looked at as a whole: each unit stands behind what it needs."""
    lines = build(world, "plan", "--json")
    end = next(i for i, line in enumerate(lines) if line.endswith("]}")) + 1
    assert all("cannot be looked at as it is" in line or line.startswith("E:")
               for line in lines[end:])
    parsed = json.loads("\n".join(lines[:end]))
    assert parsed["format"] == 1 and parsed["program"] == "urlbuild"
    units: dict[str, Unit] = {}
    for unit in parsed["units"]:
        words = [word for word in (unit["account"], unit.get("begin")) if word]
        assert unit["id"] == "/".join([unit["kind"], *words])
        assert unit["arguments"] == [unit["kind"], *words, "--expect", parsed["version"]]
        assert set(unit["needs"]) <= set(units) and unit["id"] not in units
        units[unit["id"]] = unit
    return units


def follows(units: dict[str, Unit], days: set[tuple[str, str]]) -> None:
    """Exactly these days are due, the periods that hold them, and the checks of their accounts;
    and all that overlap need each other."""
    expected = {f"check/{account}": (None, None) for account, _ in days}
    for account, date in days:
        expected[f"day/{account}/{date}"] = (date, date)
        for kind, name in zip(("week", "month"), files_of(date)[1:], strict=True):
            begin, end = DATES.findall(name)
            expected[f"{kind}/{account}/{begin}"] = (begin, end)
    assert {name: (unit.get("begin"), unit.get("end"))
            for name, unit in units.items()} == expected
    order = ["check", "day", "week", "month"]
    for unit in units.values():
        needs = {name for name, other in units.items()
                 if other["account"] == unit["account"]
                 and order.index(other["kind"]) < order.index(unit["kind"])
                 and (other["kind"] == "check" or
                      other["begin"] <= unit["end"] and unit["begin"] <= other["end"])}
        assert set(unit["needs"]) == needs, unit["id"]


def backlog(world: World) -> dict[tuple[str, str], list[int]]:
    """Files and bytes of logs that wait, by account and date."""
    config = seen(world.home / "config/urlstat.ini")
    code, lines = run("urlstat", "backlog", "--format", "json", "--config", config)
    assert code == 0, lines
    waiting: dict[tuple[str, str], list[int]] = {}
    for row in json.loads("\n".join(lines)):
        if row["device"]:
            sums = waiting.setdefault((row["account"], row["date"].replace("-", "")), [0, 0])
            sums[0] += row["waiting_files"]
            sums[1] += row["waiting_bytes"]
    return waiting


def state(world: World) -> dict[str, tuple[int, int, bytes]]:
    return {str(path): (path.stat().st_mtime_ns, path.stat().st_ino,
                        path.read_bytes() if path.is_file() else b"")
            for path in world.root.rglob("*")}


def done(world: World) -> None:
    """All is counted, once, and nothing is due."""
    assert world.differences() == []
    assert plan(world) == {}
    assert build(world, "all") == ["nothing is due"]
    assert not list(world.stat_root.rglob("*.temp"))


def children(process: Process) -> list[int]:
    path = Path(f"/proc/{process.pid}/task/{process.pid}/children")
    return [int(word) for word in path.read_text().split()] if path.exists() else []


def test_the_result_is_that_of_the_service(world: World) -> None:
    world.generate(visits=20_000, **MONTHS)
    before = state(world)
    waiting = backlog(world)
    units = plan(world)
    follows(units, set(waiting))
    for (account, date), (files, size) in waiting.items():
        unit = units[f"day/{account}/{date}"]
        assert (unit["files"], unit["bytes"]) == (files, size)
        assert unit["steps"] == ["read", "merge", "lists"]
    table = build(world, "plan")
    assert len(table) == len(units) + 2
    files = sum(unit["files"] for unit in units.values())
    assert table[-1].startswith(f"{len(units)} units are due, which read {files} files of ")
    assert state(world) == before, "a plan only reads"

    lines = build(world, "all", "-j", "2", "--verbose")
    visits = sum(visits for hosts in world.counts.hosts.values() for visits, _ in hosts.values())
    assert lines[-1].startswith(f"{len(units)} units done, {visits} visits read in ")
    done(world)
    # The service, into a tree of its own, and on its way from here.
    own = world.root / "own"
    world.configure(urlStatRoot=seen(own))
    world.one_pass()
    code, lines = run("urlstat", "diff", seen(own), seen(world.stat_root))
    assert code == 0, lines
    world.configure()
    world.append(3000)
    world.one_pass()
    done(world)
    # And back.
    world.append(3000)
    waiting = backlog(world)
    units = plan(world)
    follows(units, {key for key, (files, _) in waiting.items() if files})
    for (account, date), (files, size) in waiting.items():
        if files:
            size += (world.stat_root / account / date / "daycrcsort").stat().st_size
            unit = units[f"day/{account}/{date}"]
            assert (unit["files"], unit["bytes"]) == (files + 1, size)
    build(world, "all", "-j", "3")
    done(world)
    # Lists alone.
    lists = sorted(world.stat_root.glob("*/*/topn"))
    shutil.rmtree(random.Random(5).choice(lists))
    shutil.rmtree(lists[0].parent / "topn", ignore_errors=True)
    steps = [unit["steps"] for unit in plan(world).values() if unit["kind"] != "check"]
    assert steps and all(names == ["lists"] for names in steps)
    build(world, "all")
    done(world)


def test_killed_at_any_moment(world: World) -> None:
    world.generate(visits=20_000, **MONTHS)
    seed = time.time_ns()
    print("seed", seed)
    dice = random.Random(seed)
    for kill in range(4 if WINDOWS else 12):
        process = world.start_unit("all", "-j", "2")
        time.sleep(dice.uniform(0.05, 1) * (4 if WINDOWS else 1))
        victims = children(process)
        if not WINDOWS and victims and kill % 3:
            # One of its units: the others go on, and the next round mends it.
            try:
                os.kill(dice.choice(victims), SIGKILL)
            except ProcessLookupError:
                pass
            if kill % 3 == 1:
                assert process.wait() == 0, process.story()
                assert world.differences() == []
                world.append(2000)
                continue
        if WINDOWS:
            process.kill()
        else:
            os.kill(process.pid, SIGKILL)
            process.wait()
            end = time.monotonic() + LIMIT
            while any(Path(f"/proc/{pid}/exe").exists() for pid in victims):
                assert time.monotonic() < end, "a unit outlives its parent"
        plan(world)
    build(world, "all")
    done(world)


def test_a_stop_is_an_orderly_end(world: World) -> None:
    world.generate(visits=20_000, **MONTHS)
    for signal in [SIGINT] if WINDOWS else [SIGINT, SIGTERM]:
        process = world.start_unit("all", "-j", "2", "--verbose")
        assert process.reaches(" visits read"), process.story()
        process.request(signal)
        assert process.wait() == REFUSED, process.story()
        assert process.lines[-1] == 'urlbuild: stopped; "urlbuild all" goes on from here'
        assert count(process.lines, " killed") == 0
        assert plan(world)
    build(world, "all")
    done(world)


def test_a_unit_that_fails_keeps_the_others_going(world: World) -> None:
    """One that always does, and one that always finds more to do: directories stand in place of
    a file."""
    world.generate(visits=3000, accounts=2, days=3)
    lock = world.stat_root / "alice/.urlbuild.lock"
    lock.mkdir(parents=True)
    lines = build(world, "all", "-j", "2", code=FAILED)
    assert count(lines, "urlbuild: check/alice: failed: ") == 1 == count(lines, "failed: ")
    assert count(lines, "urlbuild: 6 units were left out") == 1
    assert all(name.startswith("alice/") for name in world.differences())
    assert all("alice" in name for name in plan(world))
    lock.rmdir()

    log = next(world.log_data.glob("alice/devid_*/20121230/A/0/1.dat"))
    away = world.root / "away"
    log.rename(away)
    log.mkdir()
    lines = build(world, "all", "-j", "2", code=FAILED)
    due = "was carried out and is still due"
    assert count(lines, f"urlbuild: day/alice/20121230: {due}") == 1 == count(lines, due)
    assert plan(world).keys() == {"check/alice", "day/alice/20121230", "week/alice/20121230",
                                  "month/alice/20121201"}
    log.rmdir()
    away.rename(log)
    build(world, "all")
    done(world)


def test_damage_shows_in_rounds(world: World) -> None:
    """Of an account with a damaged file only the check can be planned; behind it comes the rest."""
    world.generate(visits=3000, accounts=2, days=3)
    build(world, "all")
    path = world.stat_root / "alice/20121229/daycrcsort"
    path.write_bytes(path.read_bytes()[:-5])
    world.append(1000)
    before = state(world)
    units = plan(world)
    assert [name for name in units if "alice" in name] == ["check/alice"]
    assert state(world) == before
    build(world, "all", "-j", "2")
    done(world)


def test_an_installation_without_accounts_is_told(world: World) -> None:
    world.generate(visits=500, accounts=1, days=1)
    for command in ("plan", "all"):
        empty = world.root / "empty"
        empty.mkdir(exist_ok=True)
        shutil.copy(world.data_path_file, empty)
        lines = build(world, command, "--root", seen(empty), code=FAILED)
        assert "syncaccount.dat: names no account" in lines[-1]


def test_beside_the_service(world: World) -> None:
    world.generate(visits=3000, accounts=1, days=2)
    service = world.start()
    assert service.reaches(PAUSE), service.story()
    lines = build(world, "all", code=REFUSED)
    assert "the service runs on it" in lines[-1]
    world.stop(service)
    world.append(1000)
    process = world.start_unit("all")
    if not WINDOWS:
        # As long as it lives, also between two units.
        while not children(process):
            assert process.running(), process.story()
        os.kill(process.pid, 19)
        code, lines = world.run()
        os.kill(process.pid, 18)
        assert code == SERVICE_FAILED and count(lines, "another instance is running on") == 1, lines
    assert process.wait() == 0, process.story()
    done(world)
