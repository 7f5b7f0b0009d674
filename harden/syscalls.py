"""Each call of the file system fails, in turn, with each error: a passage or none, and no descriptor left open."""

import ctypes
import errno
import itertools
import os
import sys
import tempfile
from pathlib import Path

from harden import builds
from harden.confinement import INSIDE, Layout

CALLS = "open fstat stat read readlink".split()
ERRORS = "EIO EMFILE EACCES EINTR ENOENT ELOOP".split()
PATHS = "f src/f to-f to-src/f to-f-absolute here/f nowhere/../f out-and-in/f src missing away loop ../secret".split()
# What resolving a path may raise is let through.
DOCUMENTED = (OSError, RuntimeError)


def main() -> None:
    from quenlow.workers.wiki import citation_check

    shim = ctypes.CDLL(None)
    shim.fail_call.argtypes = ctypes.c_char_p, ctypes.c_long, ctypes.c_int, ctypes.c_int
    failures, complaints = 0, []
    with tempfile.TemporaryDirectory() as folder:
        layout = Layout(Path(folder))
        sources = citation_check.CitedSources(layout.repo)
        for path, call, error, for_ever in itertools.product(PATHS, CALLS, ERRORS, (False, True)):
            if error == "EINTR" and for_ever:
                continue  # is tried again for ever, as it should be
            expected, name = outcome(sources._read, path), call.encode()
            # The library takes an interrupted call for a failed one.
            tried_again = error == "EINTR" and expected == INSIDE and path != "nowhere/../f"
            for count in itertools.count():
                before = os.listdir("/proc/self/fd")
                shim.fail_call(name, count, getattr(errno, error), for_ever)
                got = outcome(sources._read, path)
                failed = shim.end_failures()
                where = f"{path}: {call} {count} {error}{' for ever' * for_ever}: {got!r}"
                right = (expected,) if tried_again else (expected, "", *DOCUMENTED)
                complaints += [where] * (got not in right)
                complaints += [f"{where}: a descriptor is left"] * (os.listdir("/proc/self/fd") != before)
                if not failed:
                    break
                failures += 1
    print(f"{failures} failed calls on {len(PATHS)} paths")
    if complaints:
        sys.exit("\n".join(complaints))


def outcome(read, path: str) -> object:
    try:
        return read(path)
    except DOCUMENTED as error:
        return next(kind for kind in DOCUMENTED if isinstance(error, kind))


def run(short: bool) -> str:
    return builds.python(builds.RELEASE, "-m", "harden.syscalls", preload=builds.shim("failing_calls.c"))


if __name__ == "__main__":
    main()
