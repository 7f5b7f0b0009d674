"""The tests, and random input, under the sanitizers."""

import random
import re

from harden import builds

REPORT = re.compile(r"ERROR: \w+Sanitizer|WARNING: ThreadSanitizer|runtime error:")
# What leaks without the module too: the interpreter, of threads that outlive it, `distributed` by its import, mypy.
LEAKING = "daemon_threads or cluster or test_types"


def asan(short: bool) -> str:
    no_leak_check = builds.ASAN._replace(
        environment=builds.ASAN.environment | {"ASAN_OPTIONS": "detect_leaks=0"}
    )
    not_leaking = "--ignore=tests/test_command_cluster.py", "-k", f"not ({LEAKING})"
    checked = _tests(builds.ASAN, short, *not_leaking)
    return f"{checked}; without leak check {_tests(no_leak_check, short, '-k', LEAKING)}"


def tsan(short: bool) -> str:
    return _tests(builds.TSAN, short)


def random_input(short: bool) -> str:
    seed = random.randrange(10_000)
    cases = "20000" if short else "1000000"
    output = builds.python(builds.ASAN, "-m", "bench.compare", "--cases", cases, "--seed", str(seed))
    return f"seed {seed}: {_without_report(output)}"


def _tests(build: builds.Build, short: bool, *options: str) -> str:
    output = builds.test(build, *(builds.WITHOUT_HOST if short else []), *options)
    return _without_report(output).splitlines()[-1].strip("= ")


def _without_report(output: str) -> str:
    if REPORT.search(output):
        raise builds.Failed(output[-4000:])
    return output
