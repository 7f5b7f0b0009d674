"""Every allocation of every road fails, once and from then on: the interpreter's and C++ `new`; the module's own
import is one of the roads. The debug interpreter counts the references meanwhile."""

import _testcapi
import ctypes
import dataclasses
import gc
import itertools
import re
import sys
import tempfile
from collections.abc import Callable, Iterable
from pathlib import Path

from support import outcome

from harden import builds
from harden.roads import IN_DEBUG_INTERPRETER, Road, dataclass, roads

# Far more than a road makes; without an end, the interpreter retries some of its own for ever.
FROM_THEN_ON = 50_000
# What the interpreter makes of a failed allocation of its own, besides MemoryError.
INTERPRETERS_OWN = [
    r"\w+Error: ('|$)",  # the message could not be made
    "RuntimeError: can't allocate (read )?lock",
]
# `list.extend` leaks what it could not copy.
INTERPRETERS_LEAK = "lint"
# The debug interpreter takes roads that keep clear of these.
LIBRARYS_OWN = [
    "TypeError: .* not (PosixPath|HostPath)",  # `os.fspath` in `pathlib`
    "SystemError: .*without (setting an exception|exception set)",  # a frame that could not be linked
]
HANDLED = re.compile("|".join(["MemoryError", *INTERPRETERS_OWN, *([] if IN_DEBUG_INTERPRETER else LIBRARYS_OWN)]))


def failing(hook: Callable[[int, int], None], unhook: Callable[[], None], first: int, last: int, road: Road) -> str:
    """What came of a road on which those allocations failed."""
    error: BaseException | None = None
    result: object = None
    sys._getframe()  # without a frame object to link another to, the interpreter loses an error
    try:
        hook(first, last)
        result = road()
    except BaseException as raised:
        unhook()
        error = raised.with_traceback(None)
    unhook()
    if error is None:
        return outcome(lambda: result)
    cause = error.__cause__ or error.__context__
    return f"{type(error).__qualname__}: {error}" + (f" because of {type(cause).__qualname__}" if cause else "")


def undisturbed(road: Road) -> str:
    return failing(lambda _first, _last: None, lambda: None, 0, 0, road)


class Exhaustion:
    """Fails every allocation of a road in turn, and writes down what should not have happened."""

    def __init__(self, hook: Callable[[int, int], None], unhook: Callable[[], None], step: int) -> None:
        self.hook, self.unhook, self.step = hook, unhook, step
        self.complaints: list[str] = []
        self.failures = 0

    def run(self, name: str, road: Road) -> None:
        expected = undisturbed(road)
        last = self._fail_each(name, road, expected, itertools.count(0, self.step), for_ever=True)
        self._fail_each(name, road, expected, range(0, last, self.step), for_ever=False)

    def _fail_each(self, name: str, road: Road, expected: str, places: Iterable[int], for_ever: bool) -> int:
        right = 0
        for place in places:
            last = place + (FROM_THEN_ON if for_ever else 1)
            got, delta = self._measured(road, place, last)
            seen = [got] * (got != expected and not HANDLED.search(got))
            seen += [f"{delta} references ({got})"] * (delta > 0 and name != INTERPRETERS_LEAK)
            seen += [f"the next call: {after}" for after in [undisturbed(road)] if after != expected]
            self.complaints += [f"{name}: allocation {place} to {last}: {what:.300}" for what in seen]
            self.failures += 1
            right = right + 1 if got == expected else 0
            if for_ever and right == 5:
                break
        return place

    def _measured(self, road: Road, first: int, last: int) -> tuple[str, int]:
        """What came of it, and how many references it leaves behind every time."""
        for _ in range(8):
            gc.collect()
            before = total()
            got = failing(self.hook, self.unhook, first, last, road)
            gc.collect()
            delta = total() - before
            if delta <= 0:
                break
        return got, delta


def total() -> int:
    return sys.gettotalrefcount() if IN_DEBUG_INTERPRETER else 0


def new_hooks() -> tuple[Callable[[int, int], None], Callable[[], None]]:
    fail_new = ctypes.CDLL(None).fail_new
    fail_new.argtypes = ctypes.c_long, ctypes.c_int
    return lambda first, last: fail_new(first, last - first > 1), lambda: fail_new(-1, 0)


def main() -> None:
    from quenlow.workers.wiki import citation_check

    what, step = sys.argv[1], int(sys.argv[2])
    hooks = new_hooks() if what == "new" else (_testcapi.set_nomemory, _testcapi.remove_mem_hooks)
    exhaustion = Exhaustion(*hooks, step)
    with tempfile.TemporaryDirectory() as folder:
        root = Path(folder).resolve()
        (root / "src").mkdir()
        (root / "src/app.py").write_text("one\r\ntwo\nthree\n")
        (root / "loop").symlink_to("loop")
        (root / "away").symlink_to("/etc/passwd")
        table = roads(citation_check, root)
        dataclasses.dataclass = dataclass
        gc.freeze()
        for name, road in table.items():
            exhaustion.run(name, road)
    print(f"{exhaustion.failures} on {len(table)} roads")
    if exhaustion.complaints:
        sys.exit("\n".join(exhaustion.complaints))


def run(short: bool) -> str:
    step = "25" if short else "1"
    figures = [
        f"{name} {builds.python(build, '-m', 'harden.allocations', what, step_, preload=preload).strip()}"
        for name, build, what, step_, preload in (
            ("with references counted", builds.DEBUG, "memory", step, None),
            ("with the library", builds.RELEASE, "memory", step, None),
            ("C++ new", builds.DEBUG, "new", "1", builds.shim("failing_new.cpp")),
        )
    ]
    return "failed allocations: " + ", ".join(figures)


if __name__ == "__main__":
    main()
