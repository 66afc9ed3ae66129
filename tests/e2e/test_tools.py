"""The programs beside the service, as their users call them."""

from programs import count, run, seen
from world import TINY, World


def test_mklogdata_tells_what_it_wrote_and_overwrites_nothing(world: World) -> None:
    options = {"first_date": 20131231, "days": 2, "hosts": 900}
    for visits, lines in [(3000, world.generate(visits=3000, **options)),
                          (1000, world.append(1000, hosts=900))]:
        assert count(lines, f"total visits {visits}") == 1
        assert count(lines, "account ") == 4
        assert count(lines, "files 8") == 1
    before = world.files()
    code, lines = run("mklogdata", seen(world.root), "--visits=1000")
    assert code == 1
    assert count(lines, " exists already") == 1
    assert world.files() == before
    world.one_pass()
    assert world.differences() == []


def test_urlstat_shows_files_and_tells_good_from_damaged(world: World) -> None:
    world.generate(visits=2000, **TINY | {"first_date": 20121230, "days": 1, "long_hosts": 0})
    world.one_pass()
    for name, (records, _) in world.counts.tree().items():
        path = seen(world.stat_root / name)
        shown = [f"{key:016x} {visits} {type} {host.decode()}"
                 for key, visits, type, host in records]
        assert run("urlstat", "dump", path) == (0, shown)
        code, lines = run("urlstat", "top", path, "-n", "7")
        assert (code, len(lines)) == (0, 8)
        code, lines = run("urlstat", "status", path)
        visits = sum(record.visits for record in records)
        assert (code, count(lines, f"visits       {visits}")) == (0, 1)
    for name in ("20121230/daycrcsort", "mon20121201_20121231/moncrcsort", "20121230/topn/all.top"):
        path = world.stat_root / "alice" / name
        good = path.read_bytes()
        for at in (60, -12, -3):  # first block, status, end position
            damaged = bytearray(good)
            damaged[at] ^= 0x20
            path.write_bytes(damaged)
            for command in ("top", "status", "dump"):
                assert run("urlstat", command, seen(path))[0] == 1, (command, name, at)
