"""How fast a wiki of clean pages is linted when all answers are kept, beside another checkout of the project.

    bench/warm_lint.py OTHER_CHECKOUT [PAGES [ROUNDS]]
"""

import os
import subprocess
import sys
import time
from pathlib import Path
from tempfile import TemporaryDirectory

HERE = Path(__file__).resolve().parent.parent
_FILES, _LINES, _CITATIONS = 100, 200, 3


def write_wiki(folder: Path, pages: int) -> None:
    (folder / "repo").mkdir()
    for file in range(_FILES):
        lines = (f"def worker_{line}(): return limit({file}, {line})\n" for line in range(1, _LINES + 1))
        (folder / f"repo/module{file}.py").write_text("".join(lines))
    (folder / "wiki").mkdir()
    for page in range(pages):
        text = f"# Page {page}\n\n"
        for number in range(page * _CITATIONS, (page + 1) * _CITATIONS):
            file, line = number % _FILES, number // _FILES % _LINES + 1
            text += f"The worker returns the limit of {file} and {line} [module{file}.py:L{line}].\n\n"
        (folder / f"wiki/page{page}.md").write_text(text)


def lint(checkout: Path, folder: Path) -> float:
    paths = {"PYTHONPATH": f"{checkout / 'host'}:{checkout}", "CITATION_CHECK_BUILD": str(HERE / "build")}
    cache = folder / f"cache-{'here' if checkout == HERE else 'other'}"
    options = ["--repo", "repo", "--consent", "--cache", cache, "--max-calls-per-batch", "1000000"]
    call = [sys.executable, "-P", "-m", "command", "lint", "wiki", *options, "--format", "text"]
    begun = time.perf_counter()
    ended = subprocess.run(call, cwd=folder, env=os.environ | paths, stdout=subprocess.PIPE, timeout=300)
    seconds = time.perf_counter() - begun
    if ended.returncode or b", 0 findings" not in ended.stdout:
        sys.exit(f"{checkout}: {ended.stdout[-500:].decode()}")
    return seconds


def main(other: str, pages: str = "10000", rounds: str = "5") -> None:
    checkouts = {"here": HERE, "there": Path(other).resolve()}
    with TemporaryDirectory() as folder:
        write_wiki(Path(folder), int(pages))
        seconds = {name: [lint(checkout, Path(folder))] for name, checkout in checkouts.items()}
        for _ in range(int(rounds)):
            for name, checkout in checkouts.items():
                seconds[name].append(lint(checkout, Path(folder)))
    rates = {name: int(pages) / min(each[1:]) for name, each in seconds.items()}
    for name, rate in rates.items():
        print(f"{name:>6}: {rate:6.0f} pages a second (the first run: {seconds[name][0]:.1f} s)")
    print(f"{rates['here'] / rates['there']:.2f} times as fast")


if __name__ == "__main__":
    main(*sys.argv[1:])
