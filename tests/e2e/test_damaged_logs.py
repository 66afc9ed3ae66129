"""Damaged, unfinished and late log files: what lies before the damage and in later files counts,
the rest of a damaged file does not, and nothing is read twice."""

import log_files
from log_files import block, log_file, record
from programs import PAUSE
from world import World

DATE = "20121230"
NO_DATE = "20121399"  # none of the calendar, so in no week and no month
TYPE = 3

VISITS = {"g": 4, "c": 4, "t": 2, "u": 2}


def file_of(kind: str, host: bytes) -> bytes:
    """A (g)ood file, of four visits to the host; one with a bad (c)rc behind them, or a bad (t)ype
    of block or a (u)nfinished one behind two; one with nothing to (s)ee; and ones that cannot be
    read: (m)agic number, (h)alf a header, (e)mpty."""
    visit, never = record(host, TYPE), record(b"never." + host, TYPE)
    two, rest = block(visit, visit), block(never, never)
    packed = block(visit, visit, packed=True)
    return {
        "g": log_file(two, packed),
        "c": log_file(two, block(visit, visit, record(b"never." + host, TYPE, crc=1), packed=True),
                      rest),
        "t": log_file(two, block(never, packed=True, block_type=7), rest),
        "u": log_file(two, rest)[:-1],
        "s": log_file(block(record(host, TYPE, record_type=3), b"")),
        "m": log_file(rest, magic=log_files.MAGIC - 1),
        "h": log_file()[:-1],
        "e": b"",
    }[kind]


class Node:
    """A device's log files of a date, by number; "-" stands for none."""

    def __init__(self, world: World, device: int, day: str) -> None:
        self._world = world
        self._name = f"alice/devid_{device}/{day}"
        self._day = day
        self._newest = -1  # that was read

    def bring(self, files: str) -> None:
        """Writes what the node has now, and expects what is not read yet."""
        counts = self._world.counts
        reached = files[: files.find("-")] if "-" in files else files
        for i in range(self._newest + 1, len(files)):
            host = f"{i}.{self._name.replace('/', '.')}".encode()
            if files[i] != "-":
                log_files.write(self._world.log_data / self._name, i, file_of(files[i], host))
            if i < len(reached):
                if files[i] in VISITS:
                    counts.visit("alice", self._day, host, TYPE, VISITS[files[i]])
                if files[i] in [*VISITS, "s"]:
                    self._newest = i
        # A node without a readable file is looked at, if its date has a day file.
        if self._newest >= 0 or (self._day == DATE and reached):
            counts.nodes[self._name] = self._newest


def test_damaged_logs_lose_the_rest_of_their_file_alone(world: World) -> None:
    rows = [(DATE, "gh", "gg"), (DATE, "-g", "gg"), (DATE, "g-g", "ggg"), ("20121231", "m", "mg"),
            ("20130101", "s", "s"), (NO_DATE, "g", "g")]
    rows += [(DATE, files, files + "g")
             for bad in "ctumhe" for files in (bad + "g", "g" + bad + "g", "g" + bad, bad)]
    world.make_accounts("alice")
    nodes = [Node(world, device, day) for device, (day, _, _) in enumerate(rows)]
    for now in (1, 2):
        for node, row in zip(nodes, rows):
            node.bring(row[now])
        service = world.start()
        assert service.reaches(PAUSE, 2), service.story()  # the second finds nothing to do
        world.stop(service)
        # New-day files of no date are never deleted.
        assert world.differences(new_day_files_kept=True) == []
    assert world.set_aside() == []
