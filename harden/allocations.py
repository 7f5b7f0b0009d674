"""Every allocation of every road fails, once and from then on: the interpreter's and C++ `new`; the module's import
is one of the roads. The debug interpreter counts the references meanwhile."""

import _testcapi
import ctypes
import dataclasses
import gc
import itertools
import re
import sys
import tempfile
from collections.abc import Callable, Iterator
from pathlib import Path

from support import outcome

from harden import builds
from harden.roads import IN_DEBUG_INTERPRETER, Road, roads

# Far more than a road makes; without an end, the interpreter retries some of its own for ever.
FROM_THEN_ON = 50_000
HANDLED = [
    "^(?!SystemError).*MemoryError",
    # What the interpreter makes of a failed allocation of its own: a message or a lock that could not be made.
    r"\w+Error: ('|$)",
    "RuntimeError: can't allocate (read )?lock",
]
if not IN_DEBUG_INTERPRETER:
    # And what the library makes of it: `os.fspath` in `pathlib`, and a frame that could not be linked.
    HANDLED += ["TypeError: .* not (PosixPath|HostPath)", "SystemError: .*without (setting an )?exception"]
# `list.extend` leaks what it could not copy.
INTERPRETERS_LEAK = "lint"

hook, unhook = _testcapi.set_nomemory, _testcapi.remove_mem_hooks


def failing(first: int, last: int, road: Road) -> str:
    """What came of a road on which those allocations failed; none when there are no such."""
    error: BaseException | None = None
    result: object = None
    sys._getframe()  # without a frame object to link another to, the interpreter loses an error
    try:
        if first < last:
            hook(first, last)
        result = road()
    except BaseException as raised:
        unhook()
        error = raised.with_traceback(None)
    unhook()
    if error is None:
        return outcome(lambda: result)
    cause = error.__cause__ or error.__context__
    return f"{type(error).__qualname__}: {error}" + (
        f" because of {type(cause).__qualname__}" if cause else ""
    )


def growth(first: int, last: int, road: Road) -> tuple[str, int]:
    """What came of it, and how many references it leaves behind every time."""
    for _ in range(8):
        gc.collect()
        before = total()
        got = failing(first, last, road)
        gc.collect()
        delta = total() - before
        if delta <= 0:
            break
    return got, delta


def total() -> int:
    return sys.gettotalrefcount() if IN_DEBUG_INTERPRETER else 0


def exhaust(road: Road, expected: str, leaks: bool) -> Iterator[str]:
    """Fails every allocation in turn; gives a line for each, with what should not have happened, if anything."""
    right = 0
    for place in itertools.count():
        for last in (place + FROM_THEN_ON, place + 1):
            got, delta = growth(place, last, road)
            seen = got if got != expected and not re.search("|".join(HANDLED), got) else ""
            seen += f" {delta} references" if delta > 0 and not leaks else ""
            seen += " the next call differs" if failing(0, 0, road) != expected else ""
            yield seen and f"allocation {place} to {last}: {seen:.300}"
        # What fails once may pass unseen, but not what fails from then on.
        right = right + 1 if failing(place, place + FROM_THEN_ON, road) == expected else 0
        if right == 5:
            return


def fail_new() -> None:
    """Makes C++ `new` fail in the place of the interpreter's allocations."""
    global hook, unhook
    shim = ctypes.CDLL(None).fail_new
    shim.argtypes = ctypes.c_long, ctypes.c_int
    hook, unhook = lambda first, last: shim(first, last - first > 1), lambda: shim(-1, 0)


def dataclass(class_: type | None = None, frozen: bool = False) -> object:
    """Stands in for the library's, at whose closures and compilations the interpreter crashes for want of memory."""
    return dataclass if class_ is None else class_


def main(repo: Path) -> None:
    from quenlow.workers.wiki import citation_check

    if "new" in sys.argv:
        fail_new()
    (repo / "src").mkdir()
    (repo / "src/app.py").write_text("one\r\ntwo\nthree\n")
    for name, target in {"loop": "loop", "away": "/etc/passwd"}.items():
        (repo / name).symlink_to(target)
    table = roads(citation_check, repo)
    dataclasses.dataclass = dataclass
    gc.freeze()
    seen = {
        name: list(exhaust(road, failing(0, 0, road), leaks=name == INTERPRETERS_LEAK))
        for name, road in table.items()
    }
    print(f"{sum(map(len, seen.values()))} on {len(table)} roads")
    sys.exit("\n".join(f"{name}: {line}" for name, lines in seen.items() for line in lines if line) or None)


def run(short: bool) -> str:
    shim = builds.shim("failing_new.cpp")
    counted = builds.python(builds.DEBUG, "-m", "harden.allocations")
    with_library = builds.python(builds.RELEASE, "-m", "harden.allocations")
    new = builds.python(builds.DEBUG, "-m", "harden.allocations", "new", preload=shim)
    return f"failures: {counted}; with the library's own {with_library}; of C++ new {new}"


if __name__ == "__main__":
    with tempfile.TemporaryDirectory() as folder:
        main(Path(folder).resolve())
