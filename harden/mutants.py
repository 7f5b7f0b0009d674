"""Faults put into the sources, one at a time: the tests or the runs notice them."""

import hashlib
import os
import re
import shutil
from collections import Counter
from collections.abc import Iterator
from concurrent.futures import ThreadPoolExecutor
from itertools import zip_longest
from pathlib import Path
from queue import SimpleQueue
from typing import NamedTuple

from harden import builds, memory

SCRATCH = builds.SCRATCH / "mutants"
CLEAN = SCRATCH / "clean"
EQUIVALENT = Path(__file__).with_name("equivalent.txt")
FLAGS = "-O0 -g0 -D_GLIBCXX_ASSERTIONS -Werror=return-type"
ENOUGH = 0.95
NOT_COMPILED, UNNOTICED = "does not compile", "unnoticed"
# The variables of each run.
Environments = dict[str, dict[str, str]]

FLIPPED = {"==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">", "&&": "||"}

# What is replaced by what: the match, or the group `at` of it. Texts and comments are out of sight.
OPERATORS = {
    "release": [
        (r"\bPy_(X?DECREF|CLEAR)\([^()]*\);|\bPy_VISIT\(.*?\);", ";"),
        (r"^\s*(const )?Ref (?P<name>\w+) = .*;(?P<at>)[\s~]*$", r" Py_XINCREF(\g<name>.get());"),
        (r"\.release\(\)", ".get()"),
    ],
    "comparison": [
        *((f" {one} ", f" {FLIPPED[one]} ") for one in FLIPPED),
        (r" \|\| ", " && "),
        (r"(?<=[( ])!(?=[\w(])", ""),
    ],
    "check": [
        (r"^\s*(?P<at>if \(.*\) (throw|return|continue|break|raise|py::raise)\b.*;)", ";"),
        (r"^\s*(?P<at>throw\b.*;)", ";"),
        (r"(py::)?\bcheck\(", "("),
        (r"(py::)?\bsteal\(", "py::take("),
    ],
    "constant": [
        (r"\btrue\b", "false"),
        (r"\bfalse\b", "true"),
        (r"(?<![\w.])(?P<at>)\d", "1 + "),
    ],
}
HIDDEN = re.compile(r'"(?:\\.|[^"\\])*"|\'(?:\\.|[^\'\\])+\'|//.*')

# A fault may make the module loop for ever, or read a device that has no end.
BOUNDED = f"prlimit --as={8 << 30} timeout --kill-after=5 180 {builds.DEBUG.python}".split()
# What may notice, the quickest first, with the library that makes something fail.
TESTS = ["-m pytest -q -x -p no:cacheprovider tests", *builds.WITHOUT_HOST]
# These are among the runs, or use a build of their own.
TESTS += ["--ignore=tests/test_compare.py", "--deselect=tests/test_interpreters.py::test_no_reference_grows"]
RUNS = {
    "random": ("-m bench.compare --cases 3000", None),
    "references": (f"tests/drive.py {SCRATCH} 3", None),
    "syscalls": ("-m harden.syscalls", "failing_calls.c"),
    "new": ("-m harden.allocations new", "failing_new.cpp"),
    "allocations": ("-m harden.allocations", None),
    "tests": (" ".join(TESTS), None),
}


class Mutant(NamedTuple):
    file: str
    number: int
    line: str
    changed: str

    def __str__(self) -> str:
        line, changed = (" ".join(re.sub(r" //.*", "", text).split()) for text in (self.line, self.changed))
        return f"{self.file}: {line} => {changed}"

    def rank(self) -> str:
        """By chance, and the same for as long as the line is."""
        return hashlib.sha256(str(self).encode()).hexdigest()


def mutants(operator: str) -> Iterator[Mutant]:
    for file in sorted(CLEAN.glob("citation_check/**/*.[ch]*")):
        for number, line in enumerate(file.read_text().splitlines()):
            seen = HIDDEN.sub(lambda hidden: "~" * len(hidden[0]), line)
            if seen.startswith("#") and not seen.startswith("#define"):
                continue
            for pattern, new in OPERATORS[operator]:
                for match in re.finditer(pattern, seen):
                    begin, end = match.span("at" if "at" in match.re.groupindex else 0)
                    changed = line[:begin] + match.expand(new) + line[end:]
                    yield Mutant(str(file.relative_to(CLEAN)), number, line, changed)


def excused(names: list[str]) -> set[str]:
    """What the table names, one change or all of a line: no faults, for the reason above them."""
    entries = re.findall(r"^ {4}(.*)", EQUIVALENT.read_text(), re.MULTILINE)
    named = {entry: {name for name in names if is_named(name, entry)} for entry in entries}
    if stale := [entry for entry in entries if not named[entry]]:
        raise builds.Failed("\n".join([f"{EQUIVALENT.name} names what is not there any more:", *stale]))
    return set().union(*named.values())


def is_named(name: str, entry: str) -> bool:
    return f"{name} => ".startswith(f"citation_check/{entry} => ")


def candidates() -> list[Mutant]:
    """In the order in which they are tried: each operator in turn."""
    found = [{str(mutant): mutant for mutant in mutants(operator)} for operator in OPERATORS]
    known = excused([name for one in found for name in one])
    ranked = [sorted((one[name] for name in one.keys() - known), key=Mutant.rank) for one in found]
    return [mutant for turn in zip_longest(*ranked) for mutant in turn if mutant]


class Worker:
    """A copy of the sources with a build of its own, as it was before each fault."""

    def __init__(self, number: int) -> None:
        self.folder, self.built = SCRATCH / f"worker{number}", SCRATCH / f"built{number}"
        shutil.rmtree(self.built, ignore_errors=True)
        self._restore(CLEAN)
        debug = f"-DPython_EXECUTABLE={builds.DEBUG.python}", "-DCMAKE_BUILD_TYPE=None"
        builds.command("cmake", "-B", "build", *debug, f"-DCMAKE_CXX_FLAGS={FLAGS}", cwd=self.folder)
        self._build()
        shutil.copytree(self.folder, self.built)

    def _restore(self, source: Path) -> None:
        shutil.rmtree(self.folder, ignore_errors=True)
        shutil.copytree(source, self.folder)

    def _build(self) -> None:
        builds.command("cmake", "--build", "build", cwd=self.folder)

    def try_out(self, mutant: Mutant, environments: Environments) -> str:
        """What notices the fault."""
        self._restore(self.built)
        source = self.folder / mutant.file
        lines = source.read_text().splitlines()
        lines[mutant.number] = mutant.changed
        source.write_text("\n".join([*lines, ""]))
        try:
            self._build()
        except builds.Failed:
            return NOT_COMPILED
        return self.noticed_by(environments)

    def noticed_by(self, environments: Environments) -> str:
        for name, (arguments, _) in RUNS.items():
            environment = environments[name] | {"CITATION_CHECK_BUILD": str(self.folder / "build")}
            try:
                builds.command(*BOUNDED, *arguments.split(), **environment)
            except builds.Failed:
                return name
        return UNNOTICED


def try_out(wanted: int, environments: Environments) -> dict[Mutant, str]:
    """What notices each of so many faults that compile."""
    idle: SimpleQueue[Worker] = SimpleQueue()
    verdicts: dict[Mutant, str] = {}

    def by_some_worker(mutant: Mutant) -> str:
        worker = idle.get()
        try:
            return worker.try_out(mutant, environments)
        finally:
            idle.put(worker)

    with ThreadPoolExecutor(os.cpu_count()) as pool:
        for worker in pool.map(Worker, range(os.cpu_count() or 1)):
            idle.put(worker)
        faults = candidates()
        without_fault = pool.submit(by_some_worker, faults[0]._replace(changed=faults[0].line))
        untried = iter(faults)
        while len(verdicts) < wanted:
            tried = [next(untried) for _ in range(wanted - len(verdicts))]
            found = zip(tried, pool.map(by_some_worker, tried), strict=True)
            verdicts |= {mutant: verdict for mutant, verdict in found if verdict != NOT_COMPILED}
        if without_fault.result() != UNNOTICED:
            raise builds.Failed(f"{without_fault.result()} fails without a fault")
    return verdicts


def run(short: bool) -> str:
    shutil.rmtree(SCRATCH, ignore_errors=True)
    shutil.copytree(builds.ROOT / "citation_check", CLEAN / "citation_check")
    shutil.copy(builds.ROOT / "CMakeLists.txt", CLEAN)
    memory.repository(str(SCRATCH))
    environment = builds.environment(builds.DEBUG)
    environments = {
        name: environment | ({"LD_PRELOAD": str(builds.shim(shim))} if shim else {})
        for name, (_, shim) in RUNS.items()
    }
    verdicts = try_out(6 if short else 150, environments)
    counts = Counter(verdicts.values())
    unnoticed = [f"\n  unnoticed: {mutant}" for mutant in verdicts if verdicts[mutant] == UNNOTICED]
    by = ", ".join(f"{counts[name]} by {name}" for name in RUNS)
    noticed = len(verdicts) - len(unnoticed)
    files = len({mutant.file for mutant in verdicts})
    figures = f"{noticed} of {len(verdicts)} faults in {files} files noticed: {by}{''.join(unnoticed)}"
    if noticed < ENOUGH * len(verdicts):
        raise builds.Failed(figures)
    return figures
