"""Single hosts, domains and comparisons by urlstat, over files of many small blocks."""

import json
from collections import Counter, defaultdict
from pathlib import Path
from random import Random

import pytest
from printed import bytes_of, text_of
from programs import run, seen
from statistics_tree import Counts, host_key, write_file

DAYS = ("20121229", "20121230", "20121231", "20130101")
KINDS = {"day": "daycrcsort", "week": "weekcrcsort", "month": "moncrcsort"}
LONG = b"x" * 290 + b".example.com"
ODD = (b"", b"a b\"c\\d", b"\xff\xfe\\x41", LONG[-259:], LONG, b"y" * 10 + LONG)
DOMAIN = (b"example.com", b"www.example.com", b"notexample.com", b"example.com.org", b".example.com")
BLOCK = 37  # records


class Tree:
    """Files of two accounts, and what they hold of each host: `hosts[kind][account, begin]`."""

    def __init__(self, root: Path) -> None:
        self.root = root
        random, counts, pages = Random(1), Counts(), Counts()
        for account in ("alice", "bob"):
            for day in DAYS:
                counts.nodes[f"{account}/devid_1/{day}"] = 0
                for host in [*ODD, *DOMAIN, *random.sample(range(500), 300)]:
                    host = host if isinstance(host, bytes) else b"host%d.example.org" % host
                    counts.visit(account, day, host, 7, random.randrange(1, 99))
        self.files = {name: file for name, file in counts.tree().items() if "topn" not in name}
        names = {host_key(host): host for hosts in counts.hosts.values() for host in hosts}
        self.hosts: dict[str, dict] = defaultdict(dict)
        for name, file in self.files.items():
            write_file(root / name, file, BLOCK)
            account, directory, kind = name.split("/")
            begin = directory.strip("weekmon")[:8]
            self.hosts[kind][account, f"{begin[:4]}-{begin[4:6]}-{begin[6:]}"] = Counter(
                {names[record.key]: record.visits for record in file.records})

    def run(self, *arguments: str) -> tuple[int, list[str]]:
        return run("urlstat", *arguments, "--root", seen(self.root))

    def rows(self, *arguments: str) -> list[dict]:
        code, lines = self.run(*arguments, "--format", "json")
        assert code == 0, lines
        return json.loads("".join(lines))


@pytest.fixture(scope="module")
def tree(tmp_path_factory: pytest.TempPathFactory) -> Tree:
    return Tree(tmp_path_factory.mktemp("tree"))


def test_hosts_over_time(tree: Tree) -> None:
    names = [*ODD, *DOMAIN, b"absent.org", *(b"host%d.example.org" % i for i in range(0, 500, 9))]
    for by, file in KINDS.items():
        rows = tree.rows("host", "--by", by, "--all-accounts", *map(text_of, names))
        assert [(row["account"], bytes_of(row["host"]), row["begin"], row["visits"], row["share"])
                for row in rows] == [
            (account, name, begin, hosts[name], pytest.approx(hosts[name] / hosts.total()))
            for wanted in ("alice", "bob") for name in names
            for (account, begin), hosts in sorted(tree.hosts[file].items()) if account == wanted]
    rows = tree.rows("host", "example.com", "--by", "week", "--account", "bob",
                     "--from", "2012-12-29", "--to", "2012-12-30")
    assert [(row["begin"], row["end"]) for row in rows] == [("2012-12-23", "2012-12-29"),
                                                            ("2012-12-30", "2013-01-05")]


def test_no_other_blocks_are_decoded(tree: Tree) -> None:
    last = max(DOMAIN, key=host_key)
    places = [[record.host for record in file.records].index(last) // BLOCK
              for name, file in tree.files.items() if name.endswith("/daycrcsort")]
    code, lines = tree.run("host", text_of(last), "--all-accounts", "--verbose")
    assert code == 0 and min(places) > 0
    assert lines[-1] == (f"decoded {len(places)} of {sum(places) + len(places)} blocks whose headers "
                         "were read")


def test_domains(tree: Tree) -> None:
    code, lines = tree.run("host", "--suffix", "example.com", "--account", "alice")
    cut = sum(hosts[name] for (account, _), hosts in tree.hosts["daycrcsort"].items()
              for name in hosts if account == "alice" and len(name) > 259)
    assert f"not known of {cut} visits: of hosts longer than 259 bytes the ending is not stored" in lines
    rows = tree.rows("host", "--suffix", "example.com", "--suffix=.org", "--by", "month",
                     "--account", "alice")
    expected = []
    for domain in (b"example.com", b"org"):
        for (account, begin), hosts in sorted(tree.hosts["moncrcsort"].items()):
            found = [visits for host, visits in hosts.items() if len(host) <= 259
                     and (host == domain or host.endswith(b"." + domain))]
            if account == "alice":
                expected.append((domain.decode(), begin, len(found), sum(found)))
    assert [(row["domain"], row["begin"], row["hosts"], row["visits"]) for row in rows] == expected


def test_what_changed_between_two_periods(tree: Tree) -> None:
    bob_days = [tree.hosts["daycrcsort"]["bob", f"2012-12-{day}"] for day in (30, 31)]
    months = [sum((tree.hosts["moncrcsort"][account, f"{month}-01"] for account in ("alice", "bob")),
                  Counter()) for month in ("2012-12", "2013-01")]
    for (before, after), least, arguments in [
            (bob_days, 0, ("20121230", "day:2012-12-31", "--account", "bob", "-n", "5")),
            (bob_days, 60, ("20121230", "20121231", "--account", "bob", "-n", "100")),
            (months, 0, ("2012-12", "month:20130115", "--all-accounts", "-n", "1000"))]:
        ranked: dict[str, list] = {"rose": [], "fell": [], "new": [], "gone": []}
        for host in before.keys() | after.keys():
            was, now = before[host], after[host]
            if was != now and max(was, now) >= least:
                kind = "new" if not was else "gone" if not now else "rose" if now > was else "fell"
                ranked[kind].append((-abs(now - was), host_key(host), was, now, host[:259]))
        number = int(arguments[-1])
        expected = [(kind, was, now, now - was, now / was if was else None, host)
                    for kind, hosts in ranked.items()
                    for _, _, was, now, host in sorted(hosts)[:number]]
        rows = tree.rows("compare", *arguments, "--min-visits", str(least))
        assert [(row["change"], row["before"], row["after"], row["difference"], row["ratio"],
                 bytes_of(row["host"])) for row in rows] == expected
    rows = tree.rows("compare", *arguments, "--kind", "gone")
    assert [row["before"] for row in rows] == [change[2] for change in sorted(ranked["gone"])]


@pytest.mark.parametrize("block", [0, 1])  # raw, compressed
def test_a_damaged_block_takes_its_row_alone(tree: Tree, block: int) -> None:
    name = "alice/20121230/daycrcsort"
    good = (tree.root / name).read_bytes()
    at = 40 + block * (40 + int.from_bytes(good[24:28], "little"))  # data of the block
    damaged = bytearray(good)
    damaged[at + 10] ^= 0x20
    (tree.root / name).write_bytes(damaged)
    host = tree.files[name].records[block * BLOCK + 9].host
    for subject in ((text_of(host),), ("--suffix", "example.com")):
        code, lines = tree.run("host", *subject, "--account", "alice", "--format", "ndjson")
        rows = [json.loads(line) for line in lines if line.startswith("{")]
        assert [row["visits"] is None for row in rows] == [False, True, False, False]
        assert (code, lines[-1]) == (1, f"urlstat: {seen(tree.root / name)}: is damaged; "
                                        "\"urlstat verify\" says what that means")
    (tree.root / name).write_bytes(good)


def test_says_what_is_wrong(tree: Tree) -> None:
    for text, arguments in [("a backslash begins", ("host", "a\\b")), ("name hosts", ("host",)),
                            ("is after", ("host", "a", "--from", "20130101", "--to", "20121231"))]:
        code, lines = tree.run(*arguments, "--account", "bob")
        assert code == 2 and len(lines) == 1 and text in lines[0], lines
