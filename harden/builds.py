"""The module's builds, and Python programs run with one of them."""

import os
import subprocess
from pathlib import Path
from typing import NamedTuple

ROOT = Path(__file__).resolve().parent.parent
SCRATCH = ROOT / "build-harden"


# The tests of the command, of the types and of the documents say little about the module and take long.
WITHOUT_HOST = [
    "--ignore-glob=tests/test_command*",
    "--ignore=tests/test_types.py",
    "--ignore=tests/test_wiki_docs.py",
]


class Failed(Exception):
    """A row does not hold; the message says what was seen."""


class Build(NamedTuple):
    folder: str
    options: tuple[str, ...]
    python: str = "/usr/bin/python3.11"
    preload: tuple[str, ...] = ()
    environment: dict[str, str] = {}


def _flags(flags: str) -> tuple[str, ...]:
    return "-DCMAKE_BUILD_TYPE=None", f"-DCMAKE_CXX_FLAGS=-O1 -g -fno-omit-frame-pointer {flags}"


RELEASE = Build("build", ())
DEBUG = Build(
    "build-debug", ("-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_COMPILER=clang++"), "/usr/bin/python3.11d"
)
# Without libstdc++ in front the first exception aborts; without the plain malloc an overflow passes unseen.
ASAN = Build(
    "build-asan",
    _flags("-fsanitize=address,undefined -fno-sanitize-recover=undefined"),
    preload=("libasan.so", "libstdc++.so"),
    environment={"PYTHONMALLOC": "malloc", "ASAN_OPTIONS": "detect_leaks=1"},
)
TSAN = Build(
    "build-tsan",
    _flags("-fsanitize=thread"),
    preload=("libtsan.so", "libstdc++.so"),
    environment={"TSAN_OPTIONS": "exitcode=66"},
)


def command(*words: str | Path, cwd: Path = ROOT, **environment: str) -> str:
    """The output of a command; Failed with the last of it when it does not end well."""
    run = subprocess.run(
        words, cwd=cwd, env=os.environ | environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
        text=True, errors="replace", stdin=subprocess.DEVNULL,
    )  # fmt: skip
    if run.returncode != 0:
        raise Failed(f"{' '.join(map(str, words))} ended with {run.returncode}:\n{run.stdout[-4000:]}")
    return run.stdout


def ready(build: Build) -> Path:
    """The folder of a build that is up to date."""
    folder = ROOT / build.folder
    command("cmake", "-S", ".", "-B", folder, f"-DPython_EXECUTABLE={build.python}", *build.options)
    command("cmake", "--build", folder, "--parallel", str(os.cpu_count()))
    return folder


def environment(build: Build) -> dict[str, str]:
    paths = os.pathsep.join(str(ROOT / name) for name in ("host", "", "tests"))
    libraries = [command("g++", f"-print-file-name={name}").strip() for name in build.preload]
    return {
        "PYTHONPATH": paths,
        "PYTHONDONTWRITEBYTECODE": "1",
        "CITATION_CHECK_BUILD": str(ready(build)),
        "LD_PRELOAD": " ".join(libraries),
    } | build.environment


def python(build: Build, *arguments: str | Path, preload: Path | None = None) -> str:
    """The output of a program run by Debian's interpreter with that build of the module."""
    variables = environment(build)
    if preload:
        variables["LD_PRELOAD"] += f" {preload}"
    return command(build.python, *arguments, **variables).strip()


def test(build: Build, *options: str) -> str:
    """The output of the test-suite."""
    return python(build, "-m", "pytest", "-q", "-x", "-p", "no:cacheprovider", "tests", *options)


def shim(source: str) -> Path:
    """A library to be preloaded, built from a source file beside this one."""
    SCRATCH.mkdir(exist_ok=True)
    library = SCRATCH / Path(source).with_suffix(".so").name
    compiler = "g++" if source.endswith(".cpp") else "gcc"
    command(
        compiler,
        "-O1",
        "-g",
        "-Wall",
        "-Wextra",
        "-shared",
        "-fPIC",
        "-o",
        library,
        f"harden/{source}",
        "-ldl",
    )
    return library
