"""Log files written byte by byte, whole and damaged."""

from __future__ import annotations

import struct
import zlib
from pathlib import Path

from world import World

MAGIC = 0xABCDABCD
USER_BUFFER = 10  # the type of a record that may be a visit


def field(name: bytes, value: bytes) -> bytes:
    return struct.pack("<I", len(name) + len(value) + 2) + name + b":" + value + b"\0"


def record(host: bytes, type: int, record_type: int = USER_BUFFER, crc: int | None = None) -> bytes:
    content = field(b"method", b"GET") + field(b"host", host)
    payload = struct.pack("<64x3I286xI4x", type, 1, 2, len(content)) + content
    crc = zlib.crc32(payload) if crc is None else crc
    return struct.pack("<3I", record_type, len(payload), crc) + payload


def block(*records: bytes, packed: bool = False, block_type: int = 1) -> bytes:
    raw = b"".join(records)
    stored = zlib.compress(raw) if packed else raw
    return struct.pack("<4I16x", block_type, len(stored), len(raw), packed) + stored


def log_file(*blocks: bytes, magic: int = MAGIC) -> bytes:
    return struct.pack("<I24x", magic) + b"".join(blocks)


def write(node: Path, number: int, data: bytes) -> None:
    path = node / f"A/{number // 100}/{number}.dat"
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(data)


def add_visits(world: World, node: str, *visits: tuple[bytes, int]) -> None:
    """A new node's only file, of visits to hosts with a type."""
    account, _, day = node.split("/")
    for host, type in visits:
        world.counts.visit(account, day, host, type)
    world.counts.nodes[node] = 0
    records = [record(host, type) for host, type in visits]
    write(world.log_data / node, 0, log_file(block(*records)))
