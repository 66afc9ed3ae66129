"""The programs beside the service, as their users call them."""

import re
import subprocess
from pathlib import Path

from programs import count, run, seen
from world import World

DOC = Path(__file__).parents[2] / "doc"
OPTION = re.compile(r"^  (-[-a-z][-\w,]*)", re.MULTILINE)
COMMAND = re.compile(r"^  (\w+) ", re.MULTILINE)
# What bash offers after the words that it is given.
COMPLETE = """source "$0"; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); "_$1"
printf '%s\\n' "${COMPREPLY[@]}" """


def test_mklogdata_tells_what_it_wrote_and_overwrites_nothing(world: World) -> None:
    options = {"first_date": 20131231, "days": 2, "hosts": 900}
    for visits, lines in [(3000, world.generate(visits=3000, **options)),
                          (1000, world.append(1000, hosts=900))]:
        assert count(lines, f"total visits {visits}") == 1
        assert count(lines, "account ") == 4
        assert count(lines, "files 8") == 1
    before = world.files()
    code, lines = run("mklogdata", seen(world.root), "--visits=1000")
    assert code == 1
    assert count(lines, " exists already") == 1
    assert world.files() == before
    world.one_pass()
    assert world.differences() == []


def options_of(*command: str) -> tuple[str, set[str]]:
    """The help of a command, and the options in it, of two names the longer one."""
    code, lines = run(*command, "--help")
    assert code == 0, lines
    text = "\n".join(lines)
    return text, {names.split(",")[-1] for names in OPTION.findall(text)}


def offered(name: str, *words: str) -> set[str]:
    script = DOC / f"completion/{name}.bash"
    return set(subprocess.check_output(["bash", "-c", COMPLETE, script, name, *words],
                                       text=True).split())


def test_manuals_and_completions_know_every_command_and_option() -> None:
    manuals = {path.stem: path.read_text().replace("Fl ", "Fl -")
               for path in (DOC / "man").iterdir()}
    for name in manuals:
        text, common = options_of(name)
        assert {option for option in common if f"Fl {option}" not in manuals[name]} == set(), name
        for command in COMMAND.findall(text.partition("Subcommands:")[2]):
            zsh = (DOC / f"completion/_{name}").read_text()
            own = options_of(name, command)[1]
            assert re.search(rf"^\.It Cm {command}\b", manuals[name], re.MULTILINE), command
            assert command in offered(name, "") and f"'{command}:" in zsh
            assert own | common - {"--version"} <= offered(name, command, "-"), command
            assert {option for option in own
                    if f"Fl {option}" not in manuals[name] or f"{option}[" not in zsh} == set()
