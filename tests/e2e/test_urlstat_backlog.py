"""What urlstat says of logs that wait, against the log files themselves, and whether it minds the
service."""

import json
import os
import re
import time
from collections import Counter

from programs import LIMIT, PAUSE, WINDOWS, count, run, seen
from world import TINY, World

LABEL = r'[a-zA-Z_]\w*="(?:[^"\\\n]|\\["\\n])*"'
SAMPLE = re.compile(rf'([a-zA-Z_:][\w:]*)(?:\{{({LABEL}(?:,{LABEL})*)\}})? ([0-9]+)')
Nodes = dict[tuple[str, str, str], tuple[int, int, int]]  # counted up to, files and bytes that wait


def config(world: World) -> tuple[str, str]:
    return "--config", seen(world.home / "config/urlstat.ini")


def ask(world: World, *arguments: str) -> list[str]:
    code, lines = run("urlstat", "backlog", *config(world), *arguments)
    assert code == 0, lines
    return lines


def told(world: World, *arguments: str) -> Nodes:
    rows = json.loads("\n".join(ask(world, *arguments, "--format", "json")))
    return {(row["account"], row["device"], row["date"].replace("-", "")):
            (row["counted_up_to"], row["waiting_files"], row["waiting_bytes"])
            for row in rows if row["device"]}


def expected(world: World, reached: dict[str, int]) -> Nodes:
    """Of nodes counted up to these log files."""
    nodes: Nodes = {}
    for node in world.counts.nodes:
        last = reached.get(node, -1)
        waiting = [path.stat().st_size for path in (world.log_data / node).glob("A/*/*.dat")
                   if int(path.stem) > last]
        account, device, day = node.split("/")
        nodes[account, device, day] = last, len(waiting), sum(waiting)
    return nodes


def metrics(world: World) -> dict[tuple[str, str | None], int]:
    lines = ask(world, "--format", "prometheus")
    values = {}
    for line in lines:
        words = line.split(" ", 3)
        if words[:2] == ["#", "TYPE"]:
            name = words[2]
            assert words[3] == "gauge" and lines.count(line) == 1
        elif words[0] != "#":
            sample = SAMPLE.fullmatch(line)
            assert sample and sample[1] == name, line
            assert (name, sample[2]) not in values
            values[name, sample[2]] = int(sample[3])
    return values


def of(values: dict, name: str) -> dict[str | None, int]:
    return {labels: value for (metric, labels), value in values.items()
            if metric == f"kestrine_{name}"}


def test_backlog_before_beside_and_after_the_service(world: World) -> None:
    world.generate(visits=3000, **TINY | {"accounts": 2, "devices": 2})
    world.configure(daycrcsortInterval=36000, weekmoncrcsortInterval=36000)
    before = world.files()
    assert told(world) == expected(world, {})
    assert ask(world)[-1].startswith("service not running; 16 log files (")
    assert of(metrics(world), "up") == {None: 0}
    assert world.files() == before

    service = world.start()
    assert service.reaches(PAUSE), service.story()
    reached = dict(world.counts.nodes)
    assert told(world) == {}
    assert told(world, "--all") == expected(world, reached)
    assert ask(world)[-1] == "service running; 0 log files (0 bytes) wait; 0 new-day files wait"
    # Counted in the next pass, and merged with the next start only.
    world.append(1000)
    assert service.reaches(PAUSE, count(service.lines, PAUSE) + 2), service.story()
    files = Counter(path.parts[-4] for path in world.stat_root.glob("*/new/*/*"))
    assert files
    assert told(world, "--all") == expected(world, world.counts.nodes)
    values = metrics(world)
    assert of(values, "up") == {None: 1}
    assert of(values, "waiting_new_day_files") == {f'account="{account}"': number
                                                   for account, number in files.items()}
    world.stop(service)

    reached = dict(world.counts.nodes)
    world.append(1000)
    waiting = {node: row for node, row in expected(world, reached).items() if row[1]}
    assert waiting and told(world) == waiting
    # Of each node the newest, which was just written, is left alone for so long.
    world.configure(settleTime=86400)
    rows = json.loads("\n".join(ask(world, "--format", "json")))
    assert {(row["account"], row["device"], row["date"].replace("-", "")):
            row["waiting_files"] + 1 for row in rows if row["settling_files"] == 1} == {
        node: number for node, (_, number, _) in waiting.items()}
    world.configure()
    logs = list(world.log_data.glob("alice/devid_*/*/A/0/*.dat"))
    os.utime(max(logs, key=lambda path: int(path.stem)), (0, time.time() - 5000))
    sums: Counter[str] = Counter()
    for (account, device, _), (_, number, _) in waiting.items():
        sums[f'account="{account}",device="{device}"'] += number
    values = metrics(world)
    assert of(values, "waiting_log_files") == sums
    assert 5000 <= max(of(values, "oldest_waiting_log_seconds").values()) < 5000 + LIMIT

    world.one_pass()
    visits: Counter[str] = Counter()
    for name, (records, _) in world.counts.tree().items():
        if name.endswith("moncrcsort"):
            visits[f'account="{name.partition("/")[0]}"'] += sum(r.visits for r in records)
    if not WINDOWS:
        (world.log_data / 'o"d\\\n/devid_1/20121230/A').mkdir(parents=True)
        visits[r'account="o\"d\\\\\\x0a"'] = 0
    assert told(world) == {}
    assert of(metrics(world), "counted_visits") == visits

    path = world.stat_root / "alice/20121229/daycrcsort"
    path.write_bytes(path.read_bytes()[:-5])
    code, lines = run("urlstat", "backlog", *config(world))
    assert code == 1 and count(lines, "daycrcsort: is damaged") == 1
