"""What is measured: each function makes some rows of the table."""

from __future__ import annotations

import os
import shutil
import subprocess
from collections import defaultdict
from collections.abc import Iterator
from contextlib import contextmanager
from dataclasses import dataclass
from pathlib import Path

from service import Pass, World
from table import Row, ratio

MIB = 1048576
THIS = ""


@dataclass(frozen=True)
class Plan:
    programs: Path  # where those of this revision lie
    services: dict[str, Path]  # those to measure: this build's, by THIS, and others by their names
    directory: Path
    scale: float  # of sizes, 1: all
    rounds: int

    def scaled(self, number: int) -> int:
        return int(number * self.scale)

    @contextmanager
    def world(self, settings: dict[str, int] | None = None, **options: float) -> Iterator[World]:
        world = World(self.directory / "world", self.programs / "mklogdata", settings, **options)
        yield world
        world.remove()


def labelled(what: str, service: str) -> str:
    return f"{what}, {service}" if service != THIS else what


@dataclass
class Rounds:
    """Passes over one world, and what its log files take to be decoded, measured in turn."""

    passes: dict[str, list[Pass]]  # by service
    decoding: dict[str, list[float]]  # CPU seconds by codec


def measure(plan: Plan, world: World) -> Rounds:
    rounds = Rounds(defaultdict(list), defaultdict(list))
    for _ in range(plan.rounds):
        for name, service in plan.services.items():
            rounds.passes[name].append(world.run(service))
        for codec, seconds in decode(plan, world).items():
            rounds.decoding[codec].append(seconds)
    return rounds


def decode(plan: Plan, world: World) -> dict[str, float]:
    return timed([plan.programs / "kestrine_bench", "decode", world.log_data])


def timed(command: list[str | Path]) -> dict[str, float]:
    """Lines of a name and CPU seconds."""
    lines = subprocess.run(command, check=True, text=True, stdout=subprocess.PIPE).stdout
    return {name: float(seconds) for name, seconds in
            (line.split("\t") for line in lines.splitlines())}


def cpu_of(command: list[str | Path]) -> float:
    """CPU seconds of a program that succeeds."""
    before = os.times()
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
    after = os.times()
    return sum(after[2:4]) - sum(before[2:4])


def pass_rows(what: str, rounds: Rounds) -> list[Row]:
    seconds = {name: [one.cpu for one in passes] for name, passes in rounds.passes.items()}
    against = {f"decoding its log blocks ({codec})": others
               for codec, others in rounds.decoding.items()}
    against |= {f"the same by {name}": others for name, others in seconds.items() if name != THIS}
    rows = [Row(what, name, ratio([a / b for a, b in zip(seconds[THIS], others)]))
            for name, others in against.items()]
    if len(seconds) == 1:
        rows.append(Row(what, "the same by another build", "not measured: --base REVISION"))
    return rows


def pass_in_memory(plan: Plan) -> list[Row]:
    with plan.world(visits=plan.scaled(600000), hosts=200000, zipf=1, accounts=1, devices=2,
                    days=1) as world:
        what = f"whole pass, {world.compression:.1f} : 1 logs, map in memory"
        return pass_rows(what, measure(plan, world))


def pass_with_spills(plan: Plan) -> list[Row]:
    budget = 8 * MIB  # some seven spills
    with plan.world({"maxHashMemory": budget // 1024}, visits=1000000, hosts=2000000, zipf=0.3,
                    accounts=1, devices=2, days=1) as world:
        rounds = measure(plan, world)
    what = f"whole pass, many hosts, maxHashMemory of {budget // MIB} MiB, several spills"
    rows = pass_rows(what, rounds)
    for name, passes in rounds.passes.items():
        peaks = [one.peak / budget for one in passes]
        rows.append(Row(labelled("peak resident memory there", name), "maxHashMemory",
                        ratio(peaks)))
    return rows


def memory_of_accounts(plan: Plan) -> list[Row]:
    accounts = plan.scaled(500)
    few = resident(plan, 1)
    many = resident(plan, accounts)
    rows = []
    for name in plan.services:
        each = (many[name] - few[name]) / 1024 / (accounts - 1)
        rows.append(Row(labelled(f"resident memory of {accounts} accounts that were read", name),
                        "one account, for each further one", f"{each:.1f} KiB"))
    return rows


def resident(plan: Plan, accounts: int) -> dict[str, int]:
    """Bytes in the pause after a pass, by service."""
    with plan.world(visits=200 * accounts, accounts=accounts, devices=1, days=1) as world:
        return {name: world.run(service).resident for name, service in plan.services.items()}


def parts(plan: Plan) -> list[Row]:
    """Merge, spill and top lists, inside one process."""
    command = [plan.programs / "kestrine_bench", "rows", plan.directory,
               f"--rounds={plan.rounds}", f"--hosts={plan.scaled(1000000)}"]
    lines = subprocess.run(command, check=True, text=True, stdout=subprocess.PIPE).stdout
    rows = []
    for line in lines.splitlines():
        what, against, *values = line.split("\t")
        rows.append(Row(what, against, ratio([float(value) for value in values])))
    return rows


def views(plan: Plan) -> list[Row]:
    root = plan.directory / "month"
    root.mkdir()
    bench = plan.programs / "kestrine_bench"
    subprocess.run([bench, "make-month", root, f"--hosts={plan.scaled(300000)}"], check=True)
    commands = {
        "urlstat top over 31 days": ["top", "--from=20240301", "--to=20240331"],
        "urlstat verify of 31 days": ["verify", *sorted(root.glob("*/*/daycrcsort"))],
        "urlstat host in 31 days": ["host", "www.example.com"],
    }
    seconds = defaultdict(list)
    least = defaultdict(list)
    for _ in range(min(plan.rounds, 3)):
        for what, command in commands.items():
            seconds[what].append(cpu_of([plan.programs / "urlstat", "--root", root, *command]))
        for name, value in timed([bench, "month", root]).items():
            least[name].append(value)
    shutil.rmtree(root)
    return [Row(what, name, ratio([a / b for a, b in zip(ours, others)]))
            for what, ours in seconds.items() for name, others in least.items()]


def size_of_log(plan: Plan) -> list[Row]:
    devices = plan.scaled(10000)
    with plan.world(visits=devices * 6, accounts=1, devices=devices, days=3,
                    files_per_node=1) as world:
        logs = {name: world.run(service).log for name, service in plan.services.items()}
    return [Row(labelled(f"log file of one pass over {devices} devices x 3 dates", name), "bytes",
                f"{size} ({size / devices:.1f} for each device)") for name, size in logs.items()]


ALL = {
    "whole pass, map in memory": pass_in_memory,
    "whole pass, several spills": pass_with_spills,
    "memory of accounts": memory_of_accounts,
    "merge, spill, top lists": parts,
    "views": views,
    "log file": size_of_log,
}
