"""Whole passes over generated worlds: everything is counted once, wherever it has to go through."""

import pytest
from log_files import add_visits
from programs import PAUSE, count
from world import TINY, World


def test_one_pass_over_a_year_end_counts_every_visit(world: World) -> None:
    world.generate("--older-accounts", visits=60000, hosts=20000, zipf=0.25, long_hosts=60,
                   devices=2, days=4, long_node_files=103)
    world.one_pass()
    assert world.differences() == []
    assert world.set_aside() == []
    month = world.counts.tree()["alice/mon20121201_20121231/moncrcsort"]
    assert len(month.records) > 10100, "no list was cut"

    before = world.files()
    world.one_pass()
    assert [name for name, data in world.files().items()
            if "/_urlstat/" in name and before.get(name) != data] == []
    world.counts.visit("bob", "20121231", b"one.more.example", 1)
    assert world.differences() != [], "the comparison sees nothing"


def test_rounds_of_new_log_data_are_added_while_running(world: World) -> None:
    """New files, dates and devices, across restarts. In the last run the intervals are long:
    new-day files wait, until the first pass after a start folds them in."""
    runs = [[{"new_days": 1}, {"new_devices": 1}], [{"new_days": 1, "new_devices": 1}], [{}]]
    world.generate(visits=3000, first_date=20121230, days=2)
    for rounds in runs:
        waits = rounds == [{}]
        if waits:
            world.configure(daycrcsortInterval=36000, weekmoncrcsortInterval=172800)
        service = world.start()
        assert service.reaches(PAUSE), service.story()
        for options in rounds:
            world.append(1500, **options)
            # The pass after the next pause has seen everything.
            assert service.reaches(PAUSE, count(service.lines, PAUSE) + 2), service.story()
        assert service.errors() == []
        world.stop(service)
        assert bool(world.differences()) == waits
    world.one_pass()
    assert world.differences() == []
    assert world.set_aside() == []


# The memory disk keeps 1024 K free.
@pytest.mark.parametrize(("settings", "visits", "spills"), [
    ({"maxHashMemory": 1}, 40000, 2000),
    ({"maxHashMemory": 8, "exportPersent": 30, "memoryDiskSize": 1040}, 12000, 100),
], ids=["hash", "memory-disk"])
def test_tiny_budgets_lose_nothing(world: World, settings: dict[str, int], visits: int,
                                   spills: int) -> None:
    world.settings |= settings
    world.generate(visits=visits, **TINY)
    giant = b"g" * 3000  # longer than the smallest budget
    add_visits(world, "alice/devid_77/20121230", (b"a.example", 1), (giant, 7), (giant, 7),
               (giant, 7), (b"z.example", 1))
    service = world.start()
    assert service.reaches(PAUSE), service.story()
    assert service.errors() == []
    assert count(service.lines, ".temp") - count(service.lines, "diskTemp") >= spills
    world.stop(service)
    assert world.differences() == []
