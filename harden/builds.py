"""The module's builds, and Python programs run with one of them."""

import os
import subprocess
from pathlib import Path
from typing import NamedTuple

ROOT = Path(__file__).resolve().parent.parent


class Failed(Exception):
    """A row does not hold; the message says what was seen."""


class Build(NamedTuple):
    folder: str
    options: tuple[str, ...]
    python: str = "/usr/bin/python3.11"
    preload: tuple[str, ...] = ()
    environment: dict[str, str] = {}


def sanitizer(folder: str, flags: str, library: str, **environment: str) -> Build:
    flags = f"-DCMAKE_CXX_FLAGS=-O1 -g -fno-omit-frame-pointer {flags}"
    # Without libstdc++ in front the first exception aborts.
    preload = library, "libstdc++.so"
    return Build(folder, ("-DCMAKE_BUILD_TYPE=None", flags), preload=preload, environment=environment)


RELEASE = Build("build", ())
DEBUG_OPTIONS = "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_COMPILER=clang++"
DEBUG = Build("build-debug", DEBUG_OPTIONS, "/usr/bin/python3.11d")
# Without the plain malloc an overflow passes unseen.
ASAN = sanitizer("build-asan", "-fsanitize=address,undefined -fno-sanitize-recover=undefined", "libasan.so",
                 PYTHONMALLOC="malloc", ASAN_OPTIONS="detect_leaks=1")  # fmt: skip
TSAN = sanitizer("build-tsan", "-fsanitize=thread", "libtsan.so", TSAN_OPTIONS="exitcode=66")


def command(*words: str | Path, **environment: str) -> str:
    """The output of a command; Failed with the last of it when it does not end well."""
    run = subprocess.run(
        words, cwd=ROOT, env=os.environ | environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
        text=True, errors="replace", stdin=subprocess.DEVNULL,
    )  # fmt: skip
    if run.returncode != 0:
        raise Failed(f"{' '.join(map(str, words))} ended with {run.returncode}:\n{run.stdout[-4000:]}")
    return run.stdout.strip()


def ready(build: Build) -> Path:
    """The folder of a build that is up to date."""
    folder = ROOT / build.folder
    command("cmake", "-S", ".", "-B", folder, f"-DPython_EXECUTABLE={build.python}", *build.options)
    command("cmake", "--build", folder, "--parallel", str(os.cpu_count()))
    return folder


def python(build: Build, *arguments: str, runner: str = "") -> str:
    """The output of a program run by Debian's interpreter with that build of the module."""
    libraries = (command("g++", f"-print-file-name={name}") for name in build.preload)
    variables = {
        "PYTHONPATH": os.pathsep.join(str(ROOT / name) for name in ("host", "", "tests")),
        "PYTHONDONTWRITEBYTECODE": "1",
        "CITATION_CHECK_BUILD": str(ready(build)),
        "LD_PRELOAD": " ".join(libraries),
    }
    return command(*runner.split(), build.python, *arguments, **variables | build.environment)
