"""What the ways through the module leave behind: references, memory, uninitialised reads."""

import gc
import sys
from collections.abc import Callable
from pathlib import Path
from tempfile import TemporaryDirectory

from support import outcome

from harden import builds
from harden.ways import repository, ways

VALGRIND = """env PYTHONMALLOC=malloc valgrind -q --error-exitcode=9 --leak-check=full
    --show-leak-kinds=definite --errors-for-leak-kinds=definite --num-callers=30"""
# Only the debug interpreter counts them.
total = getattr(sys, "gettotalrefcount", lambda: 0)


def growth(way: Callable[[], object], rounds: int) -> list[int]:
    """How many references each round leaves behind, after three to warm up."""
    deltas = []
    for _ in range(3 + rounds):
        gc.collect()
        before = total()
        outcome(way)
        gc.collect()
        after = total()  # a statement of its own: what is looked up for the next one counts
        deltas.append(after - before)
    return deltas[3:]


def valgrind(short: bool) -> str:
    told = builds.python(builds.RELEASE, "-m", "harden.memory", "1", runner=VALGRIND)
    return f"{told.splitlines()[-1]}: no definite leak, no uninitialised read"  # after what valgrind remarks


if __name__ == "__main__":
    from quenlow.workers.wiki import citation_check

    with TemporaryDirectory() as folder:
        table = ways(citation_check, repository(Path(folder) / "repo"))
        gc.freeze()  # what is there by now need not be looked at again
        deltas = {name: growth(way, int(sys.argv[1])) for name, way in table.items()}
    # A round may end with less: what a cache of the library held.
    grown = [f"{name}: {growth}" for name, growth in deltas.items() if sum(growth) > 0]
    sys.exit("\n".join(grown) or print(f"{len(table)} ways"))
