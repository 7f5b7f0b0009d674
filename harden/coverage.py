"""Which lines and branches of the module are reached: by its tests, and by the runs that make things fail."""

import json
import tempfile
from collections import Counter, defaultdict
from pathlib import Path
from typing import Any, NamedTuple

from harden import builds, memory

SOURCES = "citation_check/"
UNREACHED = Path(__file__).with_name("unreached.txt")
FLAGS = "-O0 -g -DNDEBUG --coverage -fprofile-update=atomic"
BUILD = builds.Build("build-coverage", ("-DCMAKE_BUILD_TYPE=None", f"-DCMAKE_CXX_FLAGS={FLAGS}"))
# The tests that run the module in this very process; an attacker is faster than a module that counts.
TESTS = (
    "-m pytest -q -x -p no:cacheprovider -k not(attackers) tests --ignore-glob=tests/test_command*"
    " --ignore=tests/test_types.py --ignore=tests/test_wiki_docs.py"
).split()
UNFORESEEN = """
import ctypes
from quenlow.workers.wiki import citation_check
for what, error in (1, MemoryError), (2, SystemError), (3, SystemError):
    try:
        ctypes.CDLL(None).throw_from_new(what)
        print(what, citation_check.cited_claims("Reads files [a:L1]."))
    except error:
        pass
"""


class Line(NamedTuple):
    file: str
    number: int

    def text(self) -> str:
        return (builds.ROOT / self.file).read_text().splitlines()[self.number - 1].strip()

    def name(self) -> str:
        return f"{self.file.removeprefix(SOURCES)}: {self.text()}"


class Reached:
    """How often each line ran, and each way out of each branch."""

    def __init__(self) -> None:
        self.lines: Counter[Line] = Counter()
        # The instances of one template are added up, as far as they have the same branches.
        self.branches: defaultdict[tuple[Line, int], list[int]] = defaultdict(list)

    def add(self, file: str, line: dict[str, Any]) -> None:
        at = Line(file, line["line_number"])
        # What a brace alone holds is the going of local objects.
        if at.text() == "}":
            return
        self.lines[at] += line["count"]
        ways = ways_out(line["branches"])
        known = self.branches[at, len(ways)] or [0] * len(ways)
        self.branches[at, len(ways)] = [sum(pair) for pair in zip(known, ways, strict=True)]


def ways_out(branches: list[dict[str, Any]]) -> list[int]:
    """Without those of a call, which returns or throws."""
    ways: list[int] = []
    for branch in branches:
        if branch["throw"]:
            ways.pop()
        else:
            ways.append(branch["count"])
    return ways


def exercise(folder: Path, short: bool) -> None:
    for record in folder.rglob("*.gcda"):
        record.unlink()
    new, calls = map(builds.shim, ("failing_new.cpp", "failing_calls.c"))
    cases, seed = ("4000", "1") if short else ("40000", "2")
    builds.python(BUILD, *TESTS)
    builds.python(BUILD, "-m", "bench.compare", "--cases", cases, "--seed", seed)
    builds.python(BUILD, "-m", "harden.allocations", "memory", "1")
    builds.python(BUILD, "-m", "harden.allocations", "new", "1", preload=new)
    builds.python(BUILD, "-m", "harden.syscalls", preload=calls)
    if unforeseen := builds.python(BUILD, "-c", UNFORESEEN, preload=new):
        raise builds.Failed(f"thrown, but not noticed: {unforeseen}")
    with tempfile.TemporaryDirectory() as repo:
        builds.python(BUILD, "-c", memory.TWICE, memory.repository(repo))


def measure(folder: Path) -> Reached:
    records = sorted(folder.rglob("*.gcda"))
    output = builds.command("gcov", "--json-format", "--branch-probabilities", "--stdout", *records, cwd=folder)
    reached = Reached()
    for document in filter(lambda line: line.startswith("{"), output.splitlines()):
        for file in json.loads(document)["files"]:
            if file["file"].startswith(SOURCES):
                for line in file["lines"]:
                    reached.add(file["file"], line)
    return reached


def known() -> set[str]:
    """The lines of the table, without the reasons above them. Each is still a line of its file."""
    entries = {line.strip() for line in UNREACHED.read_text().splitlines() if line.startswith("    ")}
    for entry in entries:
        file, text = entry.split(": ", 1)
        if text not in map(str.strip, (builds.ROOT / SOURCES / file).read_text().splitlines()):
            raise builds.Failed(f"{UNREACHED.name} names a line that is no longer there: {entry}")
    return entries


def run(short: bool) -> str:
    folder, excused = builds.ready(BUILD), known()
    exercise(folder, short)
    reached = measure(folder)
    missed = [line for line, count in reached.lines.items() if not count]
    unreached = [(at, ways.count(0)) for (at, _), ways in reached.branches.items() if 0 in ways]
    complaints = [f"{at.file}:{at.number} is not reached: {at.text()}" for at in sorted(missed)]
    complaints += [
        f"{at.file}:{at.number}: {count} ways out are not reached: {at.text()}"
        for at, count in sorted(unreached)
        if at.name() not in excused and at not in missed
    ]
    if complaints:
        raise builds.Failed("\n".join(["", *complaints]))
    ways, without = sum(map(len, reached.branches.values())), sum(count for _, count in unreached)
    return (
        f"{len(reached.lines)} of {len(reached.lines)} lines, {ways - without} of {ways} branches;"
        f" {without} with a reason on {len(unreached)} lines"
    )
