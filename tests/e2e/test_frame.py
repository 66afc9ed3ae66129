"""The frame of the service: answers, refusals, settings, arguments, log file and console."""

import fcntl
import re
from pathlib import Path

from log_files import add_visits
from programs import DRIVE, FAILED, PAUSE, VERSION, count, run, seen, start
from statistics_tree import differences, read_tree
from world import TINY, World


def test_programs_answer_without_a_start(world: World) -> None:
    world.generate("--older-accounts", visits=300, **TINY)  # a start would rewrite the account file
    world.configure(maxHashMemory=0, exportPersent="70x")
    before = world.files()
    account = f"{seen(world.log_data)}/alice: devices 1, dates 2, 20121229 to 20121230"
    rows = [
        (world.program, "debug=1 --version --help", 0, [f"kestrine {VERSION}"]),
        (world.program, "--help", 0, ["  --check ", "  config/urlstat.ini ", "Exit codes:"]),
        (world.program, "--unknown --check", 0,
         ['maxHashMemory = 102400 KiB (default, since "0" is out of range)', "sleepTime = 1 s (set)",
          'exportPersent = 70 % (set by "70x")', "settleTime = 0 s (default)",
          f"statistics root: {seen(world.stat_root)} (not there)", account, "nothing is wrong"]),
        ("urlstat", "--version", 0, [f"urlstat {VERSION}"]),
        ("urlstat", "--help", 0, ["status"]),
        ("urlstat", "status missing", 1, ["urlstat: missing: cannot be opened"]),
        ("urlstat", "", 2, ["subcommand is required"]),
        ("urlstat", "export here --unknown", 2, ["--unknown"]),
        ("mklogdata", "--version", 0, [f"mklogdata {VERSION}"]),
        ("mklogdata", "new --unknown", 109, ["--unknown"]),
    ]
    for name, arguments, expected, parts in rows:
        code, lines = run(name, *arguments.split(), directory=world.home)
        assert code == expected, (name, arguments)
        for part in parts:
            assert count(lines, part) == 1, (part, lines)
    assert world.files() == before


def refuses(world: World, line: str) -> None:
    """Neither the check nor the service starts anything, and both say why."""
    code, lines = world.run("--check")
    assert code == 1
    assert count(lines, line) >= 1, (line, lines)
    service = world.start()
    assert service.wait() == FAILED, service.story()
    assert count(service.errors(), line) >= 1, (line, service.lines)
    assert any(error.endswith(" init work thread fail") for error in service.errors())


def test_refuses_to_start(world: World) -> None:
    world.generate(visits=300, **TINY)
    before = world.files()
    # One separator at the end of the setting is taken off.
    for memory_disk in (seen(world.log_data), seen(world.root / "data"),
                        seen(world.stat_root) + "/", DRIVE + "//"):
        world.configure(memoryDiskPath=memory_disk)
        refuses(world, " refused")
    world.configure()
    world.stat_root.mkdir()
    with (world.stat_root / ".kestrine.lock").open("wb") as lock:
        # As a service in another container holds it; on Windows a byte that no file has.
        fcntl.flock(lock, fcntl.LOCK_EX)
        fcntl.lockf(lock, fcntl.LOCK_EX, 1, 0x7FFFFFFF << 32)
        refuses(world, f" is running on {seen(world.stat_root)}")
    world.data_path_file.write_text("[mysql]\n")
    refuses(world, f" empty config in {seen(world.data_path_file)}")
    world.data_path_file.unlink()
    refuses(world, f" load {seen(world.data_path_file)} fail")
    after = world.files()
    assert all(after[name] == data for name, data in before.items() if "/data/" in name)


def test_root_is_named(world: World) -> None:
    """Then neither the working directory nor the place of the program matters."""
    world.generate(visits=300, **TINY)
    world.settings["urlStatRoot"] = "results\\"
    arguments = world.name_root()
    world.configure()
    before = world.files()
    root, results = world.home, world.home / "results"
    for directory, named in ((Path("/"), seen(root)), (world.root, root.name)):
        code, lines = run(world.program, "--check", "--root", named, directory=directory)
        assert code == 0, lines
        for part in (f"  root: {seen(root)}", f"log files: {seen(root)}/log/kestrine (not there)",
                     f"statistics root: {seen(results)} (not there)",
                     f"account file: {seen(root)}/config/syncaccount.dat"):
            assert count(lines, part) == 1, (part, lines)
    for words in (["--root"], ["--root", "--check"], ["--root", "", "--check"],
                  ["--check", "--root", "missing"], ["--root", seen(root / "mysql_path.ini")]):
        code, lines = run(world.program, *words, directory=world.root)
        assert code == FAILED
        assert len(lines) == 1 and lines[0].startswith("kestrine: --root "), lines
    assert world.files() == before
    (root / "do_not_delete_daycrcsortnew").touch()
    service = start([str(world.program), *arguments], Path("/"))
    assert service.reaches(PAUSE), service.story()
    world.stop(service)
    assert service.errors() == []
    world.stat_root = results
    assert world.differences() != []
    assert world.differences(new_day_files_kept=True) == []
    assert len(logged_lines(root / "log")) == len(service.lines)
    code, lines = run("urlstat", "periods", "--config", seen(root / "config/urlstat.ini"))
    assert code == 0 and count(lines, "alice") > 0, lines


def logged_lines(log: Path) -> list[str]:
    """The lines of the log files, as the console shows them."""
    lines = []
    for path in log.rglob("*"):
        if path.is_dir():
            continue
        assert re.fullmatch(r"kestrine/kestrine\d{8}\.txt", path.relative_to(log).as_posix())
        for line in path.read_text(errors="replace").splitlines():
            parts = re.fullmatch(r" ([ied]) [ \d]\d:[ \d]\d:[ \d]\d (.+)", line)
            assert parts, line
            lines.append(f"{parts[1].upper()}:{parts[2]}")
    return lines


def test_settings_and_arguments_are_taken_and_every_line_is_logged(world: World) -> None:
    world.generate(visits=300, **TINY)
    add_visits(world, "alice/devid_77/20121229", (b"h" * 2000, 1))  # a long line, which is cut
    memory_disk, results = world.root / "fast/memory", world.root / "results"
    world.configure(memoryDiskPath=seen(memory_disk) + "\\", urlStatRoot=seen(results) + "\\",
                    maxHashMemory=0)
    service = world.start("xdebug=3", "debug=7", "--unknown")
    assert service.reaches(PAUSE), service.story()
    assert memory_disk.exists()
    assert service.lines[0].endswith(f" kestrine {VERSION}")
    code, lines = world.run("--check")
    assert code == 1
    assert count(lines, f"memory disk: {seen(memory_disk)}") == 1
    assert lines[-2:] == ["wrong: 1", "  the service is running"]
    world.stop(service)
    assert not memory_disk.exists()
    assert not world.stat_root.exists()
    found = read_tree(results, seen(world.log_data), seen(results))
    assert differences(world.counts.tree(), found) == []
    default = " m_maxHashMemory out of range 0 min 1 max 1048576, set to default 102400"
    assert any(line.endswith(default) for line in service.lines)
    # The signal's line may stand between the two of another report.
    console = sorted(line[:1024] for line in service.lines)
    assert sorted(logged_lines(world.home / "log")) == console
