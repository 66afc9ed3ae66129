"""A world of log data with an installation of the service in it, and what must be counted of it."""

from __future__ import annotations

import shutil
import struct
from pathlib import Path
from signal import SIGHUP, SIGINT, SIGTERM

from programs import PAUSE, Process, count, program, run, seen, start
from statistics_tree import Counts, differences, read_tree

# Small files of two accounts with one device each, from a Saturday to the last day of a year.
FILES = {"hosts": 1500, "long_hosts": 12, "files_per_node": 2, "blocks_per_file": 2, "threads": 1}
LAYOUT = {"accounts": 2, "devices": 1, "first_date": 20121229, "days": 3, "long_node_files": 0}
# One account and two dates, so that a pass is short.
TINY = {"accounts": 1, "days": 2}
SHORT_INTERVALS = {"sleepTime": 1, "daycrcsortInterval": 1, "weekmoncrcsortInterval": 1}


class World:
    def __init__(self, root: Path) -> None:
        self.root = root
        self.log_data = root / "data/log_data"
        self.stat_root = self.log_data / "_urlstat"
        self.home = root / "install/ml"
        self.data_path_file = root / "install/mysql_path.ini"
        self.program = self.home / program("kestrine").name
        self.counts = Counts()
        self.settings: dict[str, object] = dict(SHORT_INTERVALS)
        self._seed = 0
        self._service: Process | None = None

    def generate(self, *flags: str, **options: float) -> list[str]:
        """Makes log data, and returns what its maker prints; `append` adds to it."""
        lines = self._make(LAYOUT | options, *flags)
        self._install()
        return lines

    def append(self, visits: int, **options: float) -> list[str]:
        return self._make({"visits": visits} | options, "--append")

    def _make(self, options: dict[str, float], *flags: str) -> list[str]:
        self._seed += 1
        totals = self.root / "totals"
        words = [f"--{name}={value}".replace("_", "-") for name, value in (FILES | options).items()]
        code, lines = run("mklogdata", seen(self.root), f"--seed={self._seed}",
                          f"--totals={seen(totals)}", *words, *flags)
        assert code == 0, lines
        for line in totals.read_bytes().splitlines():
            account, day, type, visits, host = line.split(b" ")
            self.counts.visit(account.decode(), day.decode(), host, int(type), int(visits))
        for path in self.log_data.glob("*/devid_*/*/A/*/*.dat"):
            node = path.parents[2].relative_to(self.log_data).as_posix()
            self.counts.nodes[node] = max(int(path.stem), self.counts.nodes.get(node, -1))
        return lines

    def make_accounts(self, *names: str) -> None:
        """An installation alone, for log data written otherwise."""
        for directory in (self.home / "config", self.log_data):
            directory.mkdir(parents=True)
        records = b"".join(struct.pack("<40x36s5586x", b"\\" + name.encode()) for name in names)
        header = struct.pack("<4I", 0x87512546, len(names), 0x10010, 0)
        (self.home / "config/syncaccount.dat").write_bytes(header + records)
        self.data_path_file.write_text(f"[mysql]\nlogdatapath={seen(self.root / 'data')}\n")
        self._install()

    def _install(self) -> None:
        for name in ("kestrine", "urlbuild"):
            shutil.copy(program(name), self.home)
        self.configure()

    def name_root(self) -> list[str]:
        """Makes a root of the installation, with its settings behind a link, and moves the program
        to a place of its own. Returns the arguments that it is to be started with."""
        root, place = self.root / "the root", self.root / "the program"
        for directory in (root, place):
            directory.mkdir()
        (root / "config").symlink_to(self.home / "config")
        self.data_path_file = self.data_path_file.rename(root / "mysql_path.ini")
        self.program = self.program.rename(place / self.program.name)
        self.home = root
        return ["--root", seen(root)]

    def configure(self, **settings: object) -> None:
        """Sets these, and those that the world was made with, for the next start."""
        lines = [f"{key}={value}\n" for key, value in (self.settings | settings).items()]
        (self.home / "config/urlstat.ini").write_text("[urlstat]\n" + "".join(lines))

    def start(self, *arguments: str) -> Process:
        self.close()
        self._service = start([str(self.program), *arguments], self.home)
        return self._service

    def run(self, *arguments: str) -> tuple[int, list[str]]:
        """Starts the service beside one that may be running."""
        return run(self.program, *arguments, directory=self.home)

    def unit(self, *arguments: str) -> tuple[int, list[str]]:
        """Exit code and lines, but those for hosts without an end, which every world has."""
        code, lines = run(self.home / program("urlbuild").name, *arguments, directory=self.home)
        return code, [line for line in lines if "cannot find </_f> in" not in line]

    def start_unit(self, *arguments: str) -> Process:
        self.close()
        command = [str(self.home / program("urlbuild").name), *arguments]
        self._service = start(command, self.home)
        return self._service

    def stop(self, service: Process, signal: int = SIGINT) -> None:
        """Requests a stop and checks that the end is an orderly one."""
        service.request(signal)
        assert service.wait() == 0, service.story()
        received = SIGTERM if signal == SIGHUP else signal
        assert count(service.lines, "Recv signal:") == 1
        assert count(service.lines, f"Recv signal:{received:d} ... ") == 1
        assert service.lines[-1].endswith(" exit normally"), service.story()
        assert not (self.log_data / "_memdisk").exists()

    def one_pass(self) -> None:
        service = self.start()
        assert service.reaches(PAUSE), service.story()
        self.stop(service)
        assert service.errors() == []

    def close(self) -> None:
        """Kills the service."""
        if self._service is not None:
            self._service.kill()

    def differences(self, new_day_files_kept: bool = False) -> list[str]:
        """New-day files are gone after a pass, unless they are kept."""
        found = read_tree(self.stat_root, seen(self.log_data), seen(self.stat_root))
        if new_day_files_kept:
            found = {name: file for name, file in found.items() if "/new/" not in name}
        return differences(self.counts.tree(), found)

    def set_aside(self) -> list[str]:
        """Damaged files that were set aside: "DIRECTORY/NAME", without the time before the name."""
        return [f"{path.parent.name}/{path.name.partition('_')[2]}"
                for path in (self.stat_root / "debug").rglob("*_*") if path.is_file()]

    def files(self, log: bool = True) -> dict[str, bytes]:
        return {str(path): path.read_bytes() for path in self.root.rglob("*")
                if path.is_file() and (log or "/log/" not in str(path))}
