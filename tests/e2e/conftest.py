import subprocess
import tempfile
from collections.abc import Iterator
from pathlib import Path

import pytest
from programs import EMULATOR, WINDOWS
from world import World


@pytest.fixture(scope="session", autouse=True)
def emulator() -> Iterator[None]:
    """Keeps the emulator's system processes, which come with the first program and hold its output
    open, apart from the programs of the tests."""
    if not WINDOWS:
        yield
        return
    shell = [*EMULATOR, "C:\\windows\\system32\\cmd.exe"]
    with subprocess.Popen(shell, stdin=subprocess.PIPE, stdout=subprocess.PIPE) as running:
        running.stdout.readline()
        yield


@pytest.fixture
def world() -> Iterator[World]:
    with tempfile.TemporaryDirectory(prefix="kestrine-test-") as directory:
        world = World(Path(directory))
        yield world
        world.close()
