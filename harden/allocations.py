"""Every allocation of every way fails, once and from then on: the interpreter's, and C++ `new`, with
references counted meanwhile. (The debug interpreter itself does not survive that its frames fail.)"""

import _testcapi
import ctypes
import gc
import itertools
import re
import sys
from collections.abc import Callable, Iterator
from pathlib import Path
from tempfile import TemporaryDirectory
from typing import Any

from support import outcome
from test_life import START

from harden import builds
from harden.memory import total
from harden.ways import repository, ways

Way = Callable[[], Any]
# Far more than a way makes; without an end, the interpreter retries some of its own for ever.
FROM_THEN_ON = 50_000
# What the interpreter makes of its own failures: a message, a lock, or a frame's object that is missing.
HANDLED = "^(?!SystemError).*MemoryError|^\\w+Error: $|can.{1,2}t allocate (read )?lock"
HANDLED += "|^SystemError: error return without exception set$"
# And what it makes of them where pathlib is called: in `os.fspath`, and for a frame that could not be linked.
PATHLIB = "TypeError: [^']* not PosixPath|SystemError: [^']*without (setting an )?exception"
# Ways that handle errors in Python meanwhile, which the interpreter does not survive. C++ `new` fails on all.
HANDLING = "passages|results|mixin|run|import"

# Making the error of an allocation that failed collects what never lets its thread go on.
DYING = START + """
import ctypes
fail_new = ctypes.CDLL(None).fail_new
spent = [MemoryError() for _ in range(99)]  # of which the interpreter has some in store
def work():
    gc.collect()
    gc.set_threshold(10**6)
    dead = dying(stay)
    dead.cycle = dead
    del dead
    try: raise KeyError  # which becomes the context of an object that is made at once
    except KeyError:
        fail_new(0, 0)
        gc.set_threshold(gc.get_count()[0] + int(sys.argv[3]))
        try: module.cited_claims(page)
        except MemoryError: inside.release()
daemons(work, 1)"""

hook, unhook = _testcapi.set_nomemory, _testcapi.remove_mem_hooks


def failing(first: int, last: int, way: Way) -> str:
    """What came of a way on which those allocations failed; none when there are no such."""
    error: BaseException | None = None
    result: object = None
    sys._getframe()  # without a frame object to link another to, the interpreter loses an error
    try:
        if first < last:
            hook(first, last)
        result = way()
    except BaseException as raised:
        unhook()
        error = raised.with_traceback(None)
    unhook()
    if error is None:
        return outcome(lambda: result)
    cause = error.__cause__ or error.__context__
    return f"{type(error).__qualname__}: {error}" + f" because of {type(cause).__qualname__}" * bool(cause)


def growth(first: int, last: int, way: Way) -> tuple[str, int]:
    """What came of it, and how many references it leaves behind every time."""
    for _ in range(8):
        gc.collect()
        before = total()
        got = failing(first, last, way)
        gc.collect()
        delta = total() - before
        if delta <= 0:
            break
    return got, delta


def exhaust(way: Way, expected: str, handled: str) -> Iterator[str]:
    """Fails every allocation in turn; a line for each says what should not have happened, if anything."""
    right = 0
    for place in itertools.count():
        for last in (place + FROM_THEN_ON, place + 1):
            got, delta = growth(place, last, way)
            seen = got if got != expected and not re.search(handled, got) else ""
            seen += f" {delta} references" if delta > 0 else ""
            seen += " the next call differs" if failing(0, 0, way) != expected else ""
            yield seen and f"allocation {place} to {last}: {seen:.300}"
        # What fails once may pass unseen, but not what fails from then on.
        right = right + 1 if failing(place, place + FROM_THEN_ON, way) == expected else 0
        if right == 5:
            return


def main(folder: str) -> None:
    global hook, unhook
    from quenlow.workers.wiki import citation_check

    table = ways(citation_check, repository(Path(folder) / "repo"))
    if "new" in sys.argv:
        fail_new = ctypes.CDLL(None).fail_new
        fail_new.argtypes = ctypes.c_long, ctypes.c_int
        hook, unhook = lambda first, last: fail_new(first, last - first > 1), lambda: fail_new(-1, 0)
    else:
        table = {name: way for name, way in table.items() if not re.search(HANDLING, name)}
    gc.freeze()
    seen = {}
    for name, way in table.items():
        handled = f"{HANDLED}|{PATHLIB}" if re.search("reading|check|lint", name) else HANDLED
        seen[name] = list(exhaust(way, failing(0, 0, way), handled))
    print(f"{sum(map(len, seen.values()))} on {len(table)} ways")
    sys.exit("\n".join(f"{name}: {line}" for name, lines in seen.items() for line in lines if line) or None)


def run(short: bool) -> str:
    counted = builds.python(builds.RELEASE, "-m", "harden.allocations")
    library = str(builds.ready(builds.DEBUG) / "failing_new.so")
    builds.command("g++", *"-O1 -g -Wall -Wextra -shared -fPIC -o".split(), library, "harden/failing_new.cpp")
    failing_new = builds.DEBUG._replace(preload=(library,))
    new = builds.python(failing_new, "-m", "harden.allocations", "new")
    for later in range(5):
        builds.python(failing_new, "-c", DYING, "load_module", ".", str(later))
    return f"failures: {counted}; of C++ new {new}"


if __name__ == "__main__":
    with TemporaryDirectory() as folder:
        main(folder)
