"""What urlstat tells of a tree, read back by programs that are not ours, against what the logs hold."""

import csv
import json
import shutil
import subprocess
from collections import Counter
from io import StringIO
from pathlib import Path

import pytest
from log_files import add_visits
from printed import bytes_of
from programs import WINDOWS, program, run, seen
from statistics_tree import Record
from world import TINY, World

ODD_HOSTS = (b"a,b\"c\\d", b"\xc3\xbcml\xc3\xa4ut", b"\xff\xfe", b"=1+1", b"<script>", b"\xc2\x85")
JQ = shutil.which("jq")
SQLITE = shutil.which("sqlite3")


@pytest.fixture
def counted(world: World) -> World:
    world.generate(visits=3000, **TINY | {"accounts": 2, "first_date": 20121230, "days": 2,
                                    "long_hosts": 0})
    add_visits(world, "alice/devid_77/20121230", *((host, 5) for host in ODD_HOSTS))
    world.one_pass()
    assert world.differences() == []
    return world


def ask(world: World, *arguments: str) -> str:
    code, lines = run("urlstat", "--root", seen(world.stat_root), *arguments)
    assert code == 0, lines
    return "\n".join(lines) + "\n"


def records(rows: list[dict]) -> list[tuple[int, int, int, bytes]]:
    return [Record(int(row["key"], 16), int(row["visits"]), int(row["type"]), bytes_of(row["host"]))
            for row in rows]


def test_every_format_gives_the_records_back(counted: World, tmp_path: Path) -> None:
    for name, (expected, _) in counted.counts.tree().items():
        path = seen(counted.stat_root / name)
        texts = {form: ask(counted, "export", path, "--format", form)
                 for form in ("csv", "json", "ndjson")}
        assert records(list(csv.DictReader(StringIO(texts["csv"])))) == expected, name
        assert records(json.loads(texts["json"])) == expected
        assert records([json.loads(line) for line in texts["ndjson"].splitlines()]) == expected
        hosts = [bytes_of(line.split("  ")[-1]) for line in ask(counted, "export", path).splitlines()]
        assert hosts[1:] == [record.host for record in expected]
    visits = sum(record.visits for record in expected)
    if JQ:
        assert int(subprocess.check_output([JQ, "map(.visits)|add"], input=texts["json"],
                                           text=True)) == visits
    if SQLITE:
        (tmp_path / "file.csv").write_text(texts["csv"])
        query = f".import --csv {tmp_path}/file.csv t\nselect count(*), sum(visits) from t;\n"
        answer = subprocess.check_output([SQLITE, ":memory:"], input=query, text=True)
        assert answer == f"{len(expected)}|{visits}\n"


def test_top_of_lists_and_of_merged_files(counted: World) -> None:
    days: dict[str, Counter[bytes]] = {}
    for name, (expected, _) in counted.counts.tree().items():
        days[name] = Counter()
        for record in expected:
            days[name][record.host] += record.visits
    alice = days["alice/20121230/daycrcsort"] + days["alice/20121231/daycrcsort"]
    both = alice + days["bob/20121230/daycrcsort"] + days["bob/20121231/daycrcsort"]
    month = ("--month", "2012-12")
    for counts, choice in [
            (days["alice/20121231/daycrcsort"], ("--day", "20121231", "--account", "alice")),
            (days["alice/mon20121201_20121231/moncrcsort"], (*month, "--account", "alice")),
            (alice, ("--from", "2012-12-01", "--to", "2013-01-05", "--account", "alice")),
            (both, ("--week", "2012-12-31", "--all-accounts"))]:
        rows = json.loads(ask(counted, "top", *choice, "-n", "12", "--format", "json"))
        expected = sorted(counts.values(), reverse=True)[:12]
        assert [row["visits"] for row in rows] == expected
        assert all(counts[bytes_of(row["host"])] == row["visits"] for row in rows)
        assert rows[-1]["cumulative"] == pytest.approx(sum(expected) / counts.total())
    odd = json.loads(ask(counted, "top", *month, "--account", "alice", "--type", "5", "-n", "20000",
                         "--format", "json"))
    assert {bytes_of(row["host"]) for row in odd} >= set(ODD_HOSTS)
    rows = json.loads(ask(counted, "periods", "--all-accounts", "--format", "json"))
    assert [(row["visits"], row["hosts"]) for row in rows if row["kind"] == "month"] == [
        (counts.total(), len(counts)) for name, counts in sorted(days.items())
        if name.endswith("moncrcsort")]


def test_says_what_is_wrong_in_one_line(counted: World) -> None:
    tree = ("--root", seen(counted.stat_root))
    for code, text, arguments in [
            (2, "accounts; choose with", ("top", "--day", "20121230", *tree)),
            (2, "is no date", ("top", "--day", "20121232", "--account", "bob", *tree)),
            (2, "choose one of", ("top", "--account", "bob", *tree)),
            (2, "--root", ("periods",)),
            (2, "--help", ("periods", "--nothing")),
            (2, "--nothing: unknown option", ("--nothing",)),
            (2, "tip: unknown subcommand", ("tip", "--day", "20121230")),
            (1, "has no account eve", ("periods", "--account", "eve", *tree)),
            (1, "has nothing of", ("top", "--day", "20121229", "--account", "bob", *tree)),
            (1, "cannot be opened", ("top", "/etc/nothing"))]:
        found, lines = run("urlstat", *arguments)
        assert (found, len(lines)) == (code, 1), lines
        assert lines[0].startswith("urlstat: ") and text in lines[0]
    path = counted.stat_root / "alice/20121230/daycrcsort"
    good = path.read_bytes()
    for at in (60, -12, -3):  # first block, status, end position
        damaged = bytearray(good)
        damaged[at] ^= 0x20
        path.write_bytes(damaged)
        for command in ("top", "status", "export"):
            assert run("urlstat", command, seen(path))[0] == 1, (command, at)
    assert WINDOWS or subprocess.run(f"exec 2>&1; {program('urlstat')} export "
                                     f"{counted.stat_root}/bob/20121230/daycrcsort | head -1",
                                     shell=True, capture_output=True).stdout.count(b"\n") == 1
