"""The programs beside the service, as their users call them."""

from programs import count, run, seen
from world import World


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
