"""Consoles that nobody reads, or not any more, stop nothing."""

import os
import subprocess
import time

import pytest
from programs import LIMIT, PAUSE, WINDOWS, die_with_parent
from world import TINY, World


def log_says(world: World, part: str) -> bool:
    for _ in range(600):
        logs = (world.home / "log").rglob("*.txt")
        if any(part.encode() in path.read_bytes() for path in logs):
            return True
        time.sleep(0.1)
    return False


@pytest.mark.skipif(WINDOWS, reason="the emulator waits for the readers of pipes")
@pytest.mark.parametrize("reader", ["idle", "gone"])
def test_unread_console_stops_nothing(world: World, reader: str) -> None:
    world.generate(visits=500, **TINY)
    for i in range(1500):  # a line each, far more than a pipe holds
        (world.stat_root / f"alice/other{i}").mkdir(parents=True)
    read_end, write_end = os.pipe()
    service = subprocess.Popen(str(world.program), cwd=world.home, stdout=write_end,
                               preexec_fn=die_with_parent)
    os.close(write_end)
    if reader == "gone":
        os.close(read_end)
    try:
        assert log_says(world, PAUSE)
        service.terminate()
        assert service.wait(LIMIT) == 0
    finally:
        service.kill()
        service.wait()
    assert log_says(world, "exit normally")
    assert world.differences() == []
    if reader == "idle":
        os.close(read_end)
