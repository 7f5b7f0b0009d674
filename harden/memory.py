"""What the drive through every entry point leaves behind: references, memory, uninitialised reads."""

import tempfile
from pathlib import Path

from harden import builds

ROUNDS = 20
VALGRIND = (
    "valgrind -q --error-exitcode=9 --leak-check=full --show-leak-kinds=definite"
    " --errors-for-leak-kinds=definite --num-callers=30"
).split()
TWICE = """
import sys
from pathlib import Path
from drive import roads
from support import outcome
from quenlow.workers.wiki import citation_check
table = roads(citation_check, Path(sys.argv[1]))
for _name, road in table * 2:
    outcome(road)
print(len(table))
"""


def references(short: bool) -> str:
    with tempfile.TemporaryDirectory() as folder:
        builds.python(builds.DEBUG, "tests/drive.py", repository(folder), str(ROUNDS))
        roads = builds.python(builds.DEBUG, "-c", TWICE, repository(folder))
    return f"{roads} roads, {ROUNDS} rounds each: delta 0"


def valgrind(short: bool) -> str:
    with tempfile.TemporaryDirectory() as folder:
        arguments = [*VALGRIND, builds.RELEASE.python, "-c", TWICE, repository(folder)]
        roads = builds.command(
            *arguments, **builds.environment(builds.RELEASE), PYTHONMALLOC="malloc"
        ).split()[0]
    return f"{roads} roads: no definite leak, no uninitialised read"


def repository(folder: str) -> Path:
    """The repository that the drive's pages cite."""
    file = Path(folder) / "src/app.py"
    file.parent.mkdir(exist_ok=True)
    file.write_text("".join(f"line {number}\n" for number in range(1, 10)))
    return Path(folder)
