"""What the compilers and analysers say about the sources: nothing."""

import json
import re

from harden import builds

STRICT = ("-DCMAKE_BUILD_TYPE=None", "-DCMAKE_CXX_FLAGS=-O2", "-DCMAKE_COMPILE_WARNING_AS_ERROR=ON")
COMPILERS = "g++", "clang++"
CPPCHECK = "--std=c++20 --library=python --enable=warning,performance,portability".split()
# It takes what a lambda throws to be thrown by the function around it; clang-tidy's check sees that right.
MISTAKEN = "throwInNoexceptFunction"
LISTED = re.compile(r'^ {4}\S+$|severity="(?:error|warning|performance|portability)"', re.MULTILINE)


def run(short: bool) -> str:
    for compiler in COMPILERS:
        options = *STRICT, f"-DCMAKE_CXX_COMPILER={compiler}"
        folder = builds.ready(builds.Build(f"build-harden/{compiler}", options))
    # Both analysers read clang's own commands.
    database = folder / "compile_commands.json"
    builds.command("run-clang-tidy", "-quiet", "-p", folder)
    builds.command(
        "cppcheck", *CPPCHECK, f"--suppress={MISTAKEN}", "--inline-suppr", "--quiet", "--error-exitcode=1",
        f"--project={database}",
    )  # fmt: skip
    tidy, cppcheck = _count("clang-tidy", "--list-checks"), _count("cppcheck", *CPPCHECK, "--errorlist")
    return (
        f"{len(json.loads(database.read_text()))} files: 0 warnings of {' and '.join(COMPILERS)},"
        f" 0 findings of {tidy} checks of clang-tidy and {cppcheck} of cppcheck"
    )


def _count(*listing: str) -> int:
    return len(LISTED.findall(builds.command(*listing)))
