"""The peak memory of a process that does nothing but lint a wiki with one contestant."""

from __future__ import annotations

import re
import sys
from pathlib import Path

from bench.client import InstantClient
from bench.load import load_module, load_plain


def main(which: str, pages: str, repo: str) -> None:
    module = {"plain": load_plain, "module": load_module}[which]()
    texts = {str(file): file.read_text(encoding="utf-8") for file in sorted(Path(pages).rglob("*.md"))}
    module.citation_lint_findings(InstantClient(), texts, Path(repo))
    # Not ru_maxrss: a new process starts with that of the one it was forked from.
    print(re.search(r"VmHWM:\s*(\d+)", Path("/proc/self/status").read_text())[1])


if __name__ == "__main__":
    main(*sys.argv[1:])
