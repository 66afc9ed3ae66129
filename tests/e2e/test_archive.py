"""The archive for Windows: what is in it, unpacked and set up as its text says, counts."""

import subprocess
import zipfile

from programs import BIN, PAUSE, VERSION, run, seen
from world import TINY, World


def test_archive_unpacked_and_set_up(world: World) -> None:
    packages = world.root / "packages"
    subprocess.run(["cpack", "--config", BIN.parent / "CPackConfig.cmake", "-B", packages],
                   check=True)
    name = f"kestrine-{VERSION}-windows-x86_64"
    zipfile.ZipFile(packages / f"{name}.zip").extractall(world.root)
    home = world.root / name
    for text in ("README.txt", "CHANGELOG.txt", "mysql_path.ini", "config/urlstat.ini"):
        data = (home / text).read_bytes()
        assert data.count(b"\r\n") == data.count(b"\n") > 0, text

    world.generate(visits=300, **TINY)
    world.program, root = home / "kestrine.exe", ("--root", seen(home))
    accounts = world.home / "config/syncaccount.dat"
    accounts.rename(home / "config/syncaccount.dat")
    # A line of the file as it comes, with its line end.
    path = home / "mysql_path.ini"
    path.write_bytes(path.read_bytes().replace(b"D:\\logs", seen(world.root / "data").encode()))

    for program in ("kestrine", "urlstat", "mklogdata"):
        code, lines = run(home / f"{program}.exe", "--version")
        assert (code, lines[0]) == (0, f"{program} {VERSION}")
    code, lines = world.run(*root, "--check")
    assert (code, lines[-1]) == (0, "nothing is wrong"), lines
    service = world.start(*root)
    assert service.reaches(PAUSE), service.story()
    world.stop(service)
    assert world.differences() == []
    code, lines = run(home / "urlstat.exe", "verify", "--config", seen(home / "config/urlstat.ini"))
    assert code == 0, lines
