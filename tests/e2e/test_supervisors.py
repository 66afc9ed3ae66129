"""What systemd and the service manager of Windows see of the service, and what it does for them."""

from __future__ import annotations

import os
import random
import socket
import time
from collections.abc import Callable
from pathlib import Path
from signal import SIGCONT, SIGKILL, SIGSTOP, SIGTERM

import pytest
from programs import FAILED, LIMIT, PAUSE, WINDOWS, count, run, seen
from world import TINY, World

on_linux = pytest.mark.skipif(WINDOWS, reason="systemd")
on_windows = pytest.mark.skipif(not WINDOWS, reason="the service manager of Windows")


class Supervisor:
    """The socket of one, whose name the service finds in its environment, and what it was told."""

    def __init__(self, monkeypatch: pytest.MonkeyPatch, name: str, patience: float) -> None:
        self.told: list[str] = []
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.bind(name.replace("@", "\0"))
        monkeypatch.setenv("NOTIFY_SOCKET", name)
        monkeypatch.setenv("WATCHDOG_USEC", f"{patience * 1e6:.0f}")

    def listen(self, seconds: float, until: str = "") -> bool:
        """Takes what comes; true when the line came."""
        end = time.monotonic() + seconds
        while (left := end - time.monotonic()) > 0:
            self._socket.settimeout(left)
            try:
                lines = self._socket.recv(4096).decode().splitlines()
            except TimeoutError:
                break
            self.told += lines
            if until in lines:
                return True
        return False

    def hears(self, line: str) -> bool:
        return self.listen(LIMIT, line)

    def forget(self) -> None:
        while self.listen(0.01):
            pass
        self.told = []


@on_linux
@pytest.mark.parametrize("abstract", [False, True])
def test_systemd_is_told(world: World, monkeypatch: pytest.MonkeyPatch, abstract: bool) -> None:
    world.generate(visits=300, **TINY)
    accounts = world.home / "config/syncaccount.dat"
    accounts.rename(accounts.with_suffix(".later"))
    name = f"@kestrine-test-{os.getpid()}" if abstract else str(world.root / "notify")
    supervisor = Supervisor(monkeypatch, name, 0.4)
    account = world.log_data / "alice"
    service = world.start()
    assert supervisor.hears("STATUS=waiting for a first account"), service.story()
    assert supervisor.told[:2] == ["READY=1", "STATUS=started"]
    for _ in range(3):  # in a wait of a minute
        assert supervisor.hears("WATCHDOG=1"), service.story()
    world.stop(service, SIGTERM)
    assert supervisor.hears("STOPPING=1")

    accounts.with_suffix(".later").rename(accounts)
    supervisor.forget()
    service = world.start()
    assert supervisor.hears("STATUS=waiting for new data"), service.story()
    assert [line for line in supervisor.told if line != "WATCHDOG=1"] == [
        "READY=1", "STATUS=started", f"STATUS=checking the statistics of {account}",
        f"STATUS=counting the visits of {account}", "STATUS=waiting for new data"]
    service.request(SIGSTOP)
    supervisor.listen(0.2)
    supervisor.told = []
    supervisor.listen(1)
    assert supervisor.told == []
    service.request(SIGCONT)
    assert supervisor.hears("WATCHDOG=1")
    world.stop(service, SIGTERM)
    assert supervisor.hears("STOPPING=1")
    assert count(supervisor.told, "STOPPING=1") == 1
    assert world.differences() == []


@on_linux
def test_systemd_is_not_told_of_a_start_that_fails(world: World,
                                                   monkeypatch: pytest.MonkeyPatch) -> None:
    """Nor of signs of life meant for another process; and one that hears nothing stops nothing."""
    world.generate(visits=300, **TINY)
    supervisor = Supervisor(monkeypatch, str(world.root / "notify"), 0.04)
    world.configure(memoryDiskPath=seen(world.root))
    assert world.start().wait() == FAILED
    supervisor.listen(0.1)
    assert "READY=1" not in supervisor.told
    world.configure()
    monkeypatch.setenv("WATCHDOG_PID", "1")
    service = world.start()
    assert supervisor.hears("STATUS=waiting for new data"), service.story()
    supervisor.listen(0.3)
    world.stop(service)
    assert "WATCHDOG=1" not in supervisor.told
    monkeypatch.setenv("NOTIFY_SOCKET", str(world.root / "nobody"))
    service = world.start()
    assert service.reaches(PAUSE), service.story()
    world.stop(service)
    assert count(service.errors(), "tell supervisor fail") == len(service.errors()) == 1
    code, lines = world.run("--install")
    assert code == FAILED
    assert count(lines, "use a systemd unit") == len(lines) == 1


# ---- the service manager of Windows

NET = Path("C:\\windows\\system32\\net.exe")


def eventually(condition: Callable[[], bool]) -> bool:
    end = time.monotonic() + LIMIT
    while not (met := condition()) and time.monotonic() < end:
        time.sleep(0.02)
    return met


class ManagedService:
    """A service of the world's root that the service manager runs: neither its output nor its exit
    code comes here, but there are its log and its process."""

    def __init__(self, world: World) -> None:
        self.name = f"Kestrine test {os.getpid()}"
        self._world = world
        self._root = world.name_root()

    def command(self, *words: str) -> tuple[int, list[str]]:
        return run(self._world.program, *words, "--name", self.name)

    def install(self) -> tuple[int, list[str]]:
        return self.command("--install", *self._root)

    def log(self, part: str) -> int:
        return sum(path.read_text(errors="replace").count(part)
                   for path in (self._world.home / "log").rglob("*.txt"))

    def processes(self) -> list[int]:
        found = []
        for path in Path("/proc").glob("[0-9]*/cmdline"):
            try:
                words = path.read_bytes()
            except OSError:
                continue
            if b"--service" in words and self._world.root.name.encode() in words:
                found.append(int(path.parent.name))
        return found

    def is_running(self) -> bool:
        return any(self.name in line for line in run(NET, "start")[1])

    def start(self) -> None:
        starts = self.log("urlstat start running")
        # The manager learns of an end a moment later than this test.
        assert eventually(lambda: run(NET, "start", self.name)[0] == 0)
        assert eventually(lambda: self.log("urlstat start running") > starts)

    def stop(self) -> None:
        ends = self.log("exit normally")
        assert run(NET, "stop", self.name)[0] == 0
        assert eventually(lambda: not self.processes())
        assert self.log("exit normally") == ends + 1

    def kill(self) -> None:
        for process in self.processes():
            os.kill(process, SIGKILL)
        assert eventually(lambda: not self.processes())


@on_windows
def test_service_manager_runs_the_service(world: World) -> None:
    """Installed, stopped and killed at random moments while logs keep coming, uninstalled."""
    choices = random.Random(int(os.environ.get("KESTRINE_SEED", 1)))
    world.settings["maxHashMemory"] = 16
    world.generate(visits=6000, **TINY)
    service = ManagedService(world)
    world.configure()
    try:
        assert service.command("--uninstall") == (FAILED, [f"kestrine: there is no service "
                                                           f"{service.name}"])
        assert service.install()[0] == 0
        assert service.install() == (FAILED, [f"kestrine: service {service.name} is installed "
                                              f"already"])
        for i in range(6):
            service.start()
            time.sleep(choices.random())
            if i % 2 == 0:
                service.kill()
            else:
                assert eventually(service.is_running)
                service.stop()
            world.append(2000)
        assert service.log("Recv signal:15") == 3
        passes = service.log(PAUSE)
        service.start()
        assert eventually(lambda: service.log(PAUSE) > passes)
        code, lines = service.command("--uninstall")
        assert (code, count(lines, "is running; stop it first")) == (FAILED, 1), lines
        service.stop()
        assert world.differences() == []
        assert world.set_aside() == []
        # A start that fails: it ends, and can be tried again.
        world.configure(memoryDiskPath=seen(world.root))
        service.start()
        assert eventually(lambda: service.log("init work thread fail") == 1)
        assert eventually(lambda: not service.processes())
        # The manager learns of its end a moment later.
        assert eventually(lambda: service.command("--uninstall")[0] == 0)
    finally:
        service.kill()
        service.command("--uninstall")


@on_windows
def test_only_own_services_are_changed(world: World) -> None:
    world.generate(visits=300, **TINY)
    rows = [("--uninstall --name EventLog", "service EventLog is another program's"),
            ("--install --name a/b", '"a/b" is no name for a service'),
            ("--install --name a%b", "may hold"),
            ("--install --name", "--name needs a value"),
            ("--install --root missing", "--root missing: no directory"),
            ("--service x", "--service is for the service manager")]
    for words, part in rows:
        code, lines = run(world.program, *words.split(), directory=world.root)
        assert code == FAILED, words
        assert len(lines) == 1 and part in lines[0], lines
