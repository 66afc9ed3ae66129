"""The pages of urlstat report: read by a parser and by a browser, against what the logs hold."""

import json
import re
import shutil
import subprocess
import tempfile
from collections import Counter, defaultdict
from collections.abc import Iterator
from html import unescape
from html.parser import HTMLParser
from itertools import pairwise
from pathlib import Path

import pytest
from log_files import add_visits
from programs import count, run, seen
from test_urlstat_views import bytes_of
from world import World

SCRIPT = b"<script>document.title='run'</script>"
CHROMIUM = shutil.which("chromium")
VOID = {"meta", "link", "input", "br", "img"}
# Opens a page at a width and tells what it is like there, and what its script does.
FRAME = """<!DOCTYPE html><iframe src="{page}" style="border:0;width:{width}px;height:900px"></iframe>
<script>onload = () => {{
  const page = document.querySelector("iframe").contentDocument;
  const told = {{width: page.documentElement.scrollWidth, title: page.title,
    scripts: page.scripts.length}};
  const table = page.querySelector("table.sortable");
  if (table) {{
    const first = () => table.tBodies[0].rows[0].cells[1].textContent;
    table.tHead.rows[0].cells[1].firstChild.click();
    told.lowest = first();
    const input = page.querySelector(".tools input");
    input.value = "<SCRIPT>";
    input.dispatchEvent(new Event("input"));
    told.found = Array.from(table.tBodies[0].rows).filter(row => row.offsetHeight > 0).length;
  }}
  document.body.textContent = JSON.stringify(told);
}}</script>"""


class Page(HTMLParser):
    """Tables by the heading before them, as rows of texts; fails where elements are not nested."""

    def __init__(self, path: Path) -> None:
        super().__init__()
        self.tables: dict[str, list[list[str]]] = defaultdict(list)
        self.starts: list[tuple[str, dict[str, str | None]]] = []
        self.figures: list[str] = []  # of the head
        self._open: list[str] = []
        self._heading = ""
        self.feed(path.read_text("utf-8"))
        self.close()
        assert self._open == []

    def handle_starttag(self, tag: str, attrs: list) -> None:
        self.starts.append((tag, dict(attrs)))
        self._open += [] if tag in VOID else [tag]
        if tag in ("h1", "h2", "h3"):
            self._heading = ""
        elif tag == "tr":
            self.tables[self._heading].append([])
        elif tag in ("td", "th"):
            self.tables[self._heading][-1].append("")

    def handle_endtag(self, tag: str) -> None:
        assert self._open.pop() == tag

    def handle_data(self, text: str) -> None:
        if {"h1", "h2", "h3"} & set(self._open):
            self._heading += text
        elif {"td", "th"} & set(self._open):
            self.tables[self._heading][-1][-1] += text
        elif self._open[-1:] == ["strong"]:
            self.figures.append(text)

    def check(self) -> None:
        ids = [attrs["id"] for _, attrs in self.starts if "id" in attrs]
        assert len(ids) == len(set(ids))
        levels = [int(tag[1]) for tag, _ in self.starts if tag in ("h1", "h2", "h3")]
        assert levels[0] == 1 and levels.count(1) == 1
        assert all(after <= before + 1 for before, after in pairwise(levels))
        for tag, attrs in self.starts:
            assert not {"src", "srcset", "data", "action", "onclick"} & attrs.keys()
            assert set(attrs.get("aria-labelledby", "").split()) <= set(ids)
            assert tag not in ("link", "base", "object", "iframe", "img")
            assert tag != "th" or "scope" in attrs
            assert tag != "svg" or attrs["role"] == "img" and attrs["aria-label"]
        assert ("html", {"lang": "en"}) in self.starts


def number(text: str) -> int:
    return int(text.replace(",", "").replace("\N{MINUS SIGN}", "-"))


@pytest.fixture(scope="module")
def site() -> Iterator[tuple[World, Path]]:
    with tempfile.TemporaryDirectory(prefix="kestrine-test-") as directory:
        world = World(Path(directory))
        world.generate("--account=alice", "--account=r&d", visits=9000, first_date=20121228, days=6,
                       accounts=2)
        add_visits(world, "alice/devid_77/20130102", *[(SCRIPT, 5)] * 200, *[(b"\xff<&", 7)] * 199)
        add_visits(world, "alice/devid_77/20121231", *[(b"gone.example", 3)] * 150)
        world.one_pass()
        pages = world.root / "pages & more"
        code, lines = run("urlstat", "--root", seen(world.stat_root), "report", "--index", seen(pages))
        assert code == 0, lines
        yield world, pages


def test_pages_tell_what_the_logs_hold(site: tuple[World, Path]) -> None:
    world, pages = site
    tree = world.counts.tree()
    overview = Page(pages / "index.html")
    overview.check()
    links = [attrs["href"] for tag, attrs in overview.starts if tag == "a"]
    assert {*links, "index.html"} == {path.name for path in pages.iterdir()}
    assert links == [f"{name}-{month}.html" for name in ("alice", "r~26d")
                     for month in ("2013-01", "2012-12")]
    name = "r&d/mon20130101_20130131/moncrcsort"
    assert overview.tables["r&d"][1][2:] == [f"{sum(r.visits for r in tree[name].records):,}",
                                             f"{len(tree[name].records):,}"]
    for link in links:
        Page(pages / link).check()

    page = Page(pages / "alice-2013-01.html")
    records = tree["alice/mon20130101_20130131/moncrcsort"].records
    earlier = tree["alice/mon20121201_20121231/moncrcsort"].records
    now, before = [Counter({record.key: record.visits for record in each})
                   for each in (records, earlier)]
    assert [number(text) for text in page.figures[:3]] == [now.total(), len(now), now.total() // 2]

    assert len(page.tables["Distinct hosts per day"]) == 1 + 31
    for day in (1, 2):
        found = tree[f"alice/2013010{day}/daycrcsort"].records
        assert page.tables["Distinct hosts per day"][day] == [
            f"{day} January", "Tuesday Wednesday".split()[day - 1],
            f"{sum(record.visits for record in found):,}", f"{len(found):,}"]

    expected = sorted(records, key=lambda record: (-record.visits, record.key))[:200]
    rows = page.tables["The first 200 hosts"][1:]
    assert [(bytes_of(row[1]), number(row[2]), int(row[4])) for row in rows] == [
        (record.host, record.visits, record.type) for record in expected]
    assert [row[:3] for row in page.tables["The 20 busiest hosts"][1:]] == [
        row[:3] for row in rows[:20]]
    assert SCRIPT.decode() in [row[1] for row in rows]

    types = Counter()
    for record in records:
        types[record.type] += record.visits
    assert [(int(row[0]), number(row[1]), row[2]) for row in page.tables["Record types"][1:]] == [
        (type, visits, f"{visits / now.total():.1%}") for type, visits in types.most_common()]

    weeks = [tree[f"alice/week{week}/weekcrcsort"].records
             for week in ("20121223_20121229", "20121230_20130105")]
    visits, hosts = [[sum(r.visits for r in week) for week in weeks], [len(week) for week in weeks]]
    rises = [f"{after / before - 1:+.1%}".replace("-", "\N{MINUS SIGN}") for before, after in (visits, hosts)]
    assert page.tables["Week against week"][1:] == [
        ["30 Dec \N{EN DASH} 5 Jan", "4", f"{visits[1]:,}", rises[0], f"{hosts[1]:,}", rises[1]]]

    changes = {(record.host, now[record.key] - before[record.key]) for record in records + earlier}
    for heading, sign in (("Risen most", 1), ("Fallen most", -1)):
        rows = [(bytes_of(row[0]), number(row[2])) for row in page.tables[heading][1:]]
        assert set(rows) <= changes
        assert [row[1] for row in rows] == sorted((now[key] - before[key] for key in now | before),
                                                  key=lambda change: -change * sign)[:10]
    assert "Against November 2012" not in Page(pages / "alice-2012-12.html").tables


@pytest.mark.skipif(not CHROMIUM, reason="the package chromium is not installed")
@pytest.mark.parametrize("width", [390, 1280])
def test_pages_fit_a_browser(site: tuple[World, Path], tmp_path: Path, width: int) -> None:
    world, pages = site
    for page in ("index.html", "alice-2013-01.html"):
        frame = tmp_path / "frame.html"
        frame.write_text(FRAME.format(page=(pages / page).as_uri(), width=width))
        text = subprocess.check_output(
            [CHROMIUM, "--headless", "--no-sandbox", "--hide-scrollbars", "--allow-file-access-from-files",
             f"--user-data-dir={tmp_path}", f"--window-size={width + 100},1000", "--dump-dom",
             frame.as_uri()], stderr=subprocess.DEVNULL, timeout=120, text=True)
        told = json.loads(unescape(re.search(r"<body>(\{.*\})</body>", text, re.DOTALL)[1]))
        assert told["width"] == width, page
        assert ": " in told["title"]
        if page != "index.html":
            assert (told["scripts"], told["found"]) == (1, 1)
            shown = [row[1] for row in Page(pages / page).tables["The first 200 hosts"][1:]]
            assert told["lowest"] == min(shown)


def test_tells_what_cannot_be_read(site: tuple[World, Path], tmp_path: Path) -> None:
    world, pages = site
    tree = tmp_path / "_urlstat"
    shutil.copytree(world.stat_root, tree)
    ask = ("urlstat", "--root", seen(tree), "report")
    one = (*ask, "--account", "alice", "--month", "2013-01")
    page = (pages / "alice-2013-01.html").read_text("utf-8")
    (tree / "alice/mon20130101_20130131/moncrcsort").unlink()  # not merged yet: its days tell
    code, lines = run(*one)
    assert code == 0 and count(lines, "counted from its days") == 1
    assert page.split("<main>")[1].split("</main>")[0].splitlines() == (
        "\n".join(lines).split("<main>")[1].split("</main>")[0].splitlines())
    damaged = tree / "alice/mon20121201_20121231/moncrcsort"
    data = bytearray(damaged.read_bytes())
    data[60] ^= 0x20  # in the first block
    damaged.write_bytes(data)
    code, lines = run(*one)
    assert (code, count(lines, "The statistics of December 2012 cannot be read")) == (1, 1)
    assert (count(lines, "Risen most"), count(lines, "urlstat: ")) == (0, 1)
    code, lines = run(*ask, "--index", seen(tmp_path / "pages"))
    assert (code, count(lines, "alice-2012-12.html"), count(lines, "alice-2013-01.html")) == (1, 0, 1)
    row = Page(tmp_path / "pages/index.html").tables["alice"][2]
    assert row == ["December 2012", "cannot be read"]
    for arguments in ((), ("--month", "2013-01"), ("-o", "a", "--index", "b"), ("--month", "2013-13")):
        assert run(*ask, *arguments)[0] == 2
