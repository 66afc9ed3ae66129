"""urlstat finds what is wrong with a tree, wherever it is, and nothing in a tree that is good."""

import json
import shutil
import struct
from collections.abc import Callable
from pathlib import Path

from programs import PAUSE, run, seen
from statistics_tree import BLOCK, FRAME, RECORD, Record, host_key, read_file
from world import TINY, World

# Of an account: two dates of one week and one month.
DAY, OTHER_DAY = "20121230/daycrcsort", "20121231/daycrcsort"
WEEK, MONTH = "week20121230_20130105/weekcrcsort", "mon20121201_20121231/moncrcsort"
LISTS = "20121230/topn"
WAITING = "new/20121231/2.daycrcsortnew"


def flip(at: int) -> Callable[[Path], None]:
    def harm(path: Path) -> None:
        data = bytearray(path.read_bytes())
        data[at] ^= 0x10
        path.write_bytes(data)
    return harm


def put(content: bytes) -> Callable[[Path], object]:
    return lambda path: path.write_bytes(content)


def rewrite(change: Callable[[list[Record]], object]) -> Callable[[Path], None]:
    """A file that is good in itself, with other records."""
    def harm(path: Path) -> None:
        records = read_file(path)[0]
        change(records)
        data = path.read_bytes()
        body = bytearray(data[int.from_bytes(data[-8:], "little") + FRAME.size : -8])
        keys, visits = [record.key for record in records], sum(record.visits for record in records)
        raw = b"".join(RECORD.pack(*record[:3], len(record.host) + 1) + record.host + b"\0"
                       for record in records)
        struct.pack_into("<Q", body, 4 if path.suffix == ".top" or path.name == "daycrcsort" else 0,
                         visits)
        blocks = BLOCK.pack(min(keys), max(keys), visits, len(raw), len(raw), 0, len(keys)) + raw
        status = FRAME.pack(host_key(bytes(body)), len(body)) + body
        path.write_bytes(blocks + status + struct.pack("<q", len(blocks)))
    return harm


def edit(place: int, **fields: int) -> Callable[[list[Record]], None]:
    def change(records: list[Record]) -> None:
        records[place] = records[place]._replace(**fields)
    return change


def rows(*arguments: str) -> tuple[int, list[dict]]:
    code, lines = run("urlstat", *arguments, "--format", "json")
    return code, json.loads("\n".join(lines))


def test_every_fault_is_told_and_nothing_else(world: World) -> None:
    world.generate(visits=3000, **TINY | {"first_date": 20121230})
    world.one_pass()
    account = world.stat_root / "alice"
    old_week = (account / WEEK).read_bytes()
    world.append(1000)
    world.one_pass()
    (world.home / "do_not_delete_daycrcsortnew").touch()
    world.append(1000)
    service = world.start()
    verify = ("verify", "--root", seen(world.stat_root))
    for _ in range(4):  # beside the service at work
        assert rows(*verify) == (0, [])
    assert service.reaches(PAUSE), service.story()
    world.stop(service)
    assert world.differences(new_day_files_kept=True) == []
    code, lines = run("urlstat", *verify)
    good = [name for name in world.counts.tree() if not name.endswith(".top")]
    hosts = sum(len(read_file(path)[0]) for path in
                [*(world.stat_root / name for name in good), *account.glob("new/*/*")])
    waiting = len(list(account.glob("new/*/*")))
    assert waiting == 2 and (account / WAITING).is_file()
    assert (code, lines[-1]) == (
        0, f"{len(good) + waiting} files, {hosts} hosts, nothing is wrong")

    saved = Path(shutil.copytree(world.stat_root, world.root / "saved"))
    other = {name: (account / name).read_bytes() for name in ("20121231/topn/all.top", OTHER_DAY)}
    all_top = LISTS + "/all.top"
    for harms in [  # those of a row do not touch each other
            [(DAY, flip(60), "block 0 is damaged", "restored from its backup"),
             (MONTH, flip(36), "block 0", "set aside"),
             (WEEK, flip(-12), "checksum of the status", "set aside"),
             (WAITING, flip(60), "block 0 is damaged", "logs are read again")],
            [(DAY, flip(-3), "the status is damaged", "set aside"),
             (OTHER_DAY, rewrite(edit(-1, key=2**64 - 1)), "the key of record", "set aside"),
             (WAITING, put(other[OTHER_DAY][:-9]), "the status is damaged", "logs are read again")],
            [(all_top, flip(60), "block 0 is damaged", "made again"),
             (LISTS + "/1.top", Path.unlink, "is missing", "made again"),
             (WEEK, put(old_week), "lacks visits of 2012-12-30", "counted anew")],
            [(all_top, put(other["20121231/topn/all.top"]), "place 1:", "made again"),
             (WEEK, rewrite(lambda records: records.pop(5)), "its dates make", "counted anew"),
             (MONTH, rewrite(edit(7, visits=999)), "its dates make", "keeps it")],
            [(all_top, rewrite(lambda records: records.pop()), "holds ", "made again"),
             (OTHER_DAY, rewrite(lambda records: records.reverse()), "record 1 is", "set aside")],
            [(all_top, rewrite(edit(0, type=9)), "place 1:", "made again"),
             (OTHER_DAY, Path.unlink, "its backup is there", "renames")],
            [(DAY, put(other[OTHER_DAY]), "another account or date", "set aside")]]:
        for name, harm, _, _ in harms:
            harm(account / name)
        code, found = rows(*verify)
        assert code == 1
        for name, _, text, meaning in harms:
            told = next((row for row in found if row["file"] == f"alice/{name}"), None)
            assert told and text in told["fault"] and meaning in told["meaning"], (name, text, found)
            (account / name).write_bytes((saved / "alice" / name).read_bytes())
        # The lists beside a file that was changed are wrong, too.
        names = [f"alice/{name}" for name, *_ in harms]
        places = [name.rpartition("/")[0] + "/topn/" for name in names]
        assert [row for row in found if row["file"] not in names
                and not row["file"].startswith(tuple(places))] == []
    assert rows("verify", seen(account / "20121230"), seen(account / WAITING)) == (0, [])
    assert run("urlstat", "verify", seen(account / "nothing"))[0] == 1

    pair = ("diff", seen(saved), seen(world.stat_root))
    assert rows(*pair) == (0, [])
    records = read_file(account / DAY)[0]
    rewrite(lambda records: (edit(2, visits=777)(records), edit(3, type=99)(records),
                             records.pop(0)))(account / DAY)
    (account / WEEK).unlink()
    code, found = rows(*pair)
    keys = [(row["key"] and int(row["key"], 16), row["left_visits"], row["right_visits"])
            for row in found]
    assert code == 1 and keys == [
        (records[0].key, records[0].visits, None), (records[2].key, records[2].visits, 777),
        (records[3].key, records[3].visits, records[3].visits),
        (None, sum(record.visits for record in read_file(saved / "alice" / WEEK)[0]), None)]
    assert rows(*pair, "-n", "2") == (1, found[:2])
    flip(60)(account / DAY)
    assert [row["difference"] for row in rows(*pair)[1]] == [
        "cannot be read", "only left has the file"]
    # A day that was removed is no fault, nor are lists that are still to be made.
    shutil.copy(saved / "alice" / WEEK, account / WEEK)
    shutil.rmtree(account / "20121230")
    shutil.rmtree(account / "20121231/topn")
    assert rows(*verify) == (0, [])
