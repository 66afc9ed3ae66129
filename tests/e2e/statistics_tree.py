"""What a statistics tree must hold, counted from log data, and what its files do hold.

Written from the formats alone: no line of the programs takes part in it.
"""

from __future__ import annotations

import struct
import zlib
from collections import defaultdict
from datetime import date, timedelta
from functools import cache
from itertools import zip_longest
from pathlib import Path
from typing import NamedTuple

HOST_BYTES = 259  # longer hosts are kept with their first bytes, under the key of the whole
LIST_LENGTH = 10000
WORD = 0xFFFFFFFF

# All integers of the files are little-endian.
BLOCK = struct.Struct("<QQqiiIi")  # lowest key, highest key, visits, stored, raw, zlib, records
RECORD = struct.Struct("<QQII")  # key, visits, type, bytes of the host with its zero
FRAME = struct.Struct("<QI")  # key of the body, bytes of the body
DAY_HEAD = struct.Struct("<iQI")  # new counter, visits, entries
DAY_ENTRY = struct.Struct("<260siQ")  # node, newest log file, offset in it
WEEK_MONTH_HEAD = struct.Struct("<QI")
WEEK_MONTH_ENTRY = struct.Struct("<260si")  # directory of new-day files, new counter


class Record(NamedTuple):
    key: int
    visits: int
    type: int
    host: bytes


class StatFile(NamedTuple):
    """Status: the newest log file of each node; of a week or month, for each date's directory of
    new-day files, how far its counter is from the day file's."""

    records: list[Record]  # in stored order
    status: dict[str, int]


@cache
def host_key(host: bytes) -> int:
    """hashlittle2 of Bob Jenkins' lookup3, both seeds 0, the primary result in the upper half."""
    a = b = c = (0xDEADBEEF + len(host)) & WORD
    if not host:
        return c << 32 | b
    words = struct.unpack(f"<{(len(host) + 11) // 12 * 3}I", host + bytes(-len(host) % 12))

    def turned(value: int, bits: int) -> int:
        return value << bits & WORD | value >> (32 - bits)

    for at in range(0, len(words), 3):
        a, b, c = ((x + y) & WORD for x, y in zip((a, b, c), words[at : at + 3]))
        if at + 3 < len(words):
            for bits in (4, 6, 8, 16, 19, 4):
                a, c = (a - c & WORD) ^ turned(c, bits), c + b & WORD
                a, b, c = b, c, a
    for bits in (14, 11, 25, 16, 4, 14, 24):
        a, b, c = b, (c ^ b) - turned(b, bits) & WORD, a
    return b << 32 | a


def files_of(day: str) -> list[str]:
    """The files that hold a date. One that is none of the calendar is in no week and no month."""
    names = [f"{day}/daycrcsort"]
    try:
        known = date.fromisoformat(day)
    except ValueError:
        return names
    sunday = known - timedelta(known.isoweekday() % 7)
    first = known.replace(day=1)
    last = (first + timedelta(31)).replace(day=1) - timedelta(1)
    names.append(f"week{sunday:%Y%m%d}_{sunday + timedelta(6):%Y%m%d}/weekcrcsort")
    names.append(f"mon{first:%Y%m%d}_{last:%Y%m%d}/moncrcsort")
    return names


class Counts:
    """The visits of some log data."""

    def __init__(self) -> None:
        self.hosts: dict[str, dict[bytes, tuple[int, int]]] = defaultdict(dict)  # visits, type
        self.nodes: dict[str, int] = {}  # newest log file read, by "alice/devid_9/20120303"

    def visit(self, account: str, day: str, host: bytes, type: int, visits: int = 1) -> None:
        hosts = self.hosts[f"{account}/{day}"]
        before, type = hosts.get(host, (0, type))
        hosts[host] = before + visits, type

    def tree(self) -> dict[str, StatFile]:
        """Every file of the statistics between two passes, by its name below the root."""
        sums, status = Counts(), defaultdict(dict)
        for node, newest in self.nodes.items():
            account, _, day = node.split("/")
            status[f"{account}/{day}/daycrcsort"][node] = newest
        for name in list(status):
            account, day, _ = name.split("/")
            for holder in files_of(day):
                if holder != f"{day}/daycrcsort":
                    status[f"{account}/{holder}"][f"{account}/new/{day}"] = 0
                for host, (visits, type) in self.hosts[f"{account}/{day}"].items():
                    sums.visit(account, holder, host, type, visits)
        tree = {}
        for name in status:
            records = sorted(Record(host_key(host), visits, type, host[:HOST_BYTES])
                             for host, (visits, type) in sums.hosts[name].items())
            tree[name] = StatFile(records, status[name])
            tree |= top_lists(name.rpartition("/")[0], records)
        return tree


def top_lists(directory: str, records: list[Record]) -> dict[str, StatFile]:
    lists = defaultdict(list, {f"{directory}/topn/all.top": []})
    for record in sorted(records, key=lambda record: (-record.visits, record.key)):
        for name in ("all", record.type):
            lists[f"{directory}/topn/{name}.top"].append(record)
    return {name: StatFile(top[:LIST_LENGTH], {"just for test": 0}) for name, top in lists.items()}


def require(condition: bool, what: str) -> None:
    if not condition:
        raise ValueError(what)


def read_block(data: bytes, at: int) -> tuple[list[Record], int]:
    """The records of the block there, and where the next one begins."""
    *summary, stored, raw_size, packed, number = BLOCK.unpack_from(data, at)
    end = at + BLOCK.size + stored
    raw = data[at + BLOCK.size : end]
    raw = zlib.decompress(raw) if packed else raw
    require(len(raw) == raw_size, f"{len(raw)} bytes in a block of {raw_size}")
    records, at = [], 0
    while at < raw_size:
        key, visits, type, length = RECORD.unpack_from(raw, at)
        host = raw[at + RECORD.size : at + RECORD.size + length]
        require(len(host) == length and host.endswith(b"\0"), "a host without its end")
        records.append(Record(key, visits, type, host[:-1]))
        at += RECORD.size + length
    keys = [record.key for record in records]
    require(summary == [min(keys), max(keys), sum(record.visits for record in records)]
            and number == len(records), "a header that does not fit its block")
    return records, end


def read_file(path: Path) -> tuple[list[Record], dict[str, int], int]:
    """The records, the entries of the status, and the new counter (week and month: -1)."""
    data = path.read_bytes()
    status_at = int.from_bytes(data[-8:], "little")
    checksum, length = FRAME.unpack_from(data, status_at)
    body = data[status_at + FRAME.size : -8]
    require(len(body) == length and host_key(body) == checksum, "a wrong status")
    records, at = [], 0
    while at < status_at:
        block, at = read_block(data, at)
        records += block
    long = path.name in ("weekcrcsort", "moncrcsort")
    head, entry = (WEEK_MONTH_HEAD, WEEK_MONTH_ENTRY) if long else (DAY_HEAD, DAY_ENTRY)
    *counter, visits, number = head.unpack_from(body)
    require(visits == sum(record.visits for record in records), "a wrong total")
    require(number * entry.size == len(body) - head.size, "a wrong number of entries")
    status = {fields[0].rstrip(b"\0").decode(): fields[1]
              for fields in entry.iter_unpack(body[head.size :])}
    return records, status, counter[0] if counter else -1


def stored_block(records: list[Record], packed: int) -> bytes:
    raw = b"".join(RECORD.pack(key, visits, type, len(host) + 1) + host + b"\0"
                   for key, visits, type, host in records)
    stored = min(zlib.compress(raw), raw, key=len) if packed else raw
    visits = sum(record.visits for record in records)
    return BLOCK.pack(records[0].key, records[-1].key, visits, len(stored), len(raw),
                      stored is not raw, len(records)) + stored


def write_file(path: Path, file: StatFile, records_a_block: int) -> None:
    """Blocks are compressed and raw in turn."""
    records = file.records
    data = b"".join(stored_block(records[at : at + records_a_block], at // records_a_block % 2)
                    for at in range(0, len(records), records_a_block))
    visits, entries = sum(record.visits for record in records), file.status.items()
    if path.name in ("weekcrcsort", "moncrcsort"):
        body = WEEK_MONTH_HEAD.pack(visits, len(entries))
        body += b"".join(WEEK_MONTH_ENTRY.pack(name.encode(), number) for name, number in entries)
    else:
        body = DAY_HEAD.pack(-1, visits, len(entries))
        body += b"".join(DAY_ENTRY.pack(name.encode(), number, 0) for name, number in entries)
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(data + FRAME.pack(host_key(body), len(body)) + body
                     + len(data).to_bytes(8, "little"))


def read_tree(root: Path, log_data: str, seen_root: str) -> dict[str, StatFile | str]:
    """The files below `root`, backups and what was set aside left out. The other two are the
    directories as the service knows them. A file that cannot be read or has no place there between
    two passes is a text."""
    tree: dict[str, StatFile | str] = {}
    counters: dict[str, int] = {}  # of the days, whose files come first
    for path in sorted(path for path in root.rglob("*") if path.is_file()):
        name = path.relative_to(root).as_posix()
        if name.startswith("debug/") or name.endswith(("_backup", ".lock")):
            continue
        if path.name not in ("daycrcsort", "weekcrcsort", "moncrcsort") and path.suffix != ".top":
            tree[name] = "unexpected"
            continue
        try:
            records, entries, counter = read_file(path)
        except (ValueError, struct.error, zlib.error) as damage:
            tree[name] = f"damaged: {damage!r}"
            continue
        account = name.partition("/")[0]
        counters[f"{account}/new/{path.parent.name}"] = counter
        status = {}
        for entry, number in entries.items():
            entry = entry.removeprefix(seen_root + "/").removeprefix(log_data + "/")
            status[entry] = number - counters.get(entry, 0)
        if path.suffix == ".top":
            status = dict.fromkeys(status, 0)
        tree[name] = StatFile(records, status)
    return tree


def differences(expected: dict, found: dict) -> list[str]:
    """The first few, one a file."""
    texts = []
    for name in sorted(expected.keys() | found.keys()):
        pair = [tree.get(name, "no such file") for tree in (expected, found)]
        if pair[0] != pair[1]:
            if all(isinstance(file, StatFile) for file in pair):
                parts = [[*file.records, *sorted(file.status.items())] for file in pair]
                pair = next(two for two in zip_longest(*parts) if two[0] != two[1])
            texts.append(f"{name}: expected {pair[0]!s:.200}, found {pair[1]!s:.200}")
    return texts[:6]
