"""Damaged and lost statistics files before a start of the real program: at most a few starts later
the totals are exact again, and what was damaged can be looked at."""

from pathlib import Path

import pytest
from programs import FAILED, PAUSE
from world import TINY, World

# Dates 20121230 and 20121231: one week, one month.
DAY = "20121230/daycrcsort"
WEEK = "week20121230_20130105/weekcrcsort"
MONTH = "mon20121201_20121231/moncrcsort"
NEW_DAY = "20121230/2.daycrcsortnew"


def flip(path: Path) -> None:
    data = bytearray(path.read_bytes())
    assert data[32] == 1, "not compressed"
    data[60] ^= 0x10
    path.write_bytes(data)


def truncate(path: Path) -> None:
    data = path.read_bytes()
    path.write_bytes(data[: len(data) * 2 // 3])


def run_until_a_pass(world: World) -> None:
    """The run that gets through one is killed, which is quicker than a stop."""
    for _ in range(4):
        service = world.start()
        if service.reaches(PAUSE):
            world.close()
            return
        assert service.wait() == FAILED, service.story()
    assert False, service.story()


@pytest.mark.parametrize(("harms", "set_aside", "new_logs"), [
    # The new-day file that was kept waits beyond a gap then.
    ([(DAY, truncate), (DAY + "_backup", flip), (WEEK, Path.unlink)], [DAY, DAY, NEW_DAY], True),
    ([(MONTH, flip), ("new/" + NEW_DAY, truncate)], [MONTH, NEW_DAY], False),
], ids=["day", "month"])
def test_damaged_statistics_are_made_exact_again(
        world: World, harms: list, set_aside: list[str], new_logs: bool) -> None:
    world.generate(visits=3000, **TINY | {"first_date": 20121230})
    world.one_pass()
    world.append(1500)
    world.one_pass()
    (world.home / "do_not_delete_daycrcsortnew").touch()
    world.append(1000)
    world.one_pass()
    for name, harm in harms:
        harm(world.stat_root / "alice" / name)
    if new_logs:  # between damage and restart
        world.append(1500)
    run_until_a_pass(world)
    assert world.differences(new_day_files_kept=True) == []
    found = world.set_aside()
    for name in set_aside:
        found.remove(name)
