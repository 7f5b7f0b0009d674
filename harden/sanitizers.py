"""The whole test-suite under the address, undefined-behaviour and leak sanitizers, and under the thread sanitizer."""

import re

from harden import builds


def run_asan(short: bool) -> str:
    return _run(builds.ASAN)


def run_tsan(short: bool) -> str:
    return _run(builds.TSAN)


def _run(build: builds.Build) -> str:
    output = builds.python(build, "-m", "pytest", "-q", "-x", "-p", "no:cacheprovider", "tests")
    if re.search(r"ERROR: \w+Sanitizer|WARNING: ThreadSanitizer|runtime error:", output):
        raise builds.Failed(output[-4000:])
    return output.splitlines()[-1].strip("= ")
