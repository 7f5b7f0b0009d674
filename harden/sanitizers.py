"""The tests under the sanitizers."""

import re

from harden import builds

REPORT = re.compile(r"ERROR: \w+Sanitizer|WARNING: ThreadSanitizer|runtime error:")
TESTS = """-m pytest -q -x -p no:cacheprovider --timeout 600 tests --ignore-glob=tests/test_command*
    --ignore=tests/test_models.py --deselect tests/test_page.py::test_ctrl_c_ends_a_long_page""".split()
# The interpreter itself leaks what threads that outlive it hold.
LEAKING = "test_life or test_system"


def asan(short: bool) -> str:
    unchecked = builds.ASAN.environment | {"ASAN_OPTIONS": "detect_leaks=0"}
    checked = tests(builds.ASAN, "-k", f"not ({LEAKING} or in_proportion or long_page)")
    leaking = tests(builds.ASAN._replace(environment=unchecked), "-k", LEAKING)
    return f"{checked}; without leak check {leaking}"


def tsan(short: bool) -> str:
    return tests(builds.TSAN, "-k", "threads or system or daemon or surface")


def tests(build: builds.Build, *options: str) -> str:
    return without_report(builds.python(build, *TESTS, *options)).splitlines()[-1].strip("= ")


def without_report(output: str) -> str:
    if REPORT.search(output):
        raise builds.Failed(output[-4000:])
    return output
