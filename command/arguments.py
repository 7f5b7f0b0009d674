"""The arguments of the `wiki` command."""

import argparse
import os
import re
import sys
from pathlib import Path
from typing import Any, NoReturn

from command.check import check
from command.client import KEY_VARIABLE
from command.formats import FORMATS
from command.lint import lint
from command.report import INCOMPLETE, complain
from quenlow.engines.decision import DecisionConfig

_ABOUT = """\
Check the sentences of a wiki against the source lines that they cite, as in
[src/app.py:L10-L12]. The embedded model compares words and numbers, not meaning;
with --model-url a language model is asked.
"""

_END = f"""\
examples:
  wiki lint docs/wiki --repo . --consent --show-lines
  wiki lint docs/wiki --repo . --dry-run
  wiki lint docs/wiki --repo . --consent --format json --output report.json
  {KEY_VARIABLE}=... wiki lint docs/wiki --repo . --consent --cache ~/.cache/wiki \\
      --model-url https://models.example/v1 --model small
  wiki lint docs/wiki --repo . --consent --workers 2
  wiki check docs/wiki/overview.md --repo . --consent

The workers of a --scheduler need the same files and, in their PYTHONPATH, this
command's folder and its `host`.

exit status:
  0  every cited sentence was checked and nothing was found
  1  something was found, or cited sentences were skipped
  2  the check did not run to its end: it failed, was stopped or skipped,
     or the call was wrong
"""

LIMITS = {
    "wiki_check_citations_per_page": "questions for each page",
    "max_parallel_calls": "questions under way at the same time",
    "max_calls_per_batch": "questions asked in the whole run",
    "max_input_tokens_per_batch": "input tokens of the whole run",
}


class _Parser(argparse.ArgumentParser):
    def __init__(self, **texts: Any) -> None:
        super().__init__(epilog=_END, formatter_class=argparse.RawDescriptionHelpFormatter, **texts)

    def error(self, message: str) -> NoReturn:
        complain(f"{message} (see {self.prog} --help)")
        sys.exit(INCOMPLETE)


def parser() -> argparse.ArgumentParser:
    wiki = _Parser(prog="wiki", description=_ABOUT)
    wiki.add_argument("--version", action="version", version=f"wiki {_version()}")
    commands = wiki.add_subparsers(title="commands", required=True, metavar="COMMAND")
    for name, run, target, about in (
        ("lint", lint, "WIKI_DIR", "check every *.md page below a folder"),
        ("check", check, "PAGE.md", "check one page: what saving it would warn of, and its score"),
    ):
        command = commands.add_parser(name, help=about, description=f"{about.capitalize()}.")
        command.set_defaults(run=run, dry_run=False, show_lines=False)
        command.add_argument("target", metavar=target, type=_path)
        _add_common_options(command)
        if run is lint:
            _add_lint_options(command)
    return wiki


def _add_common_options(command: argparse.ArgumentParser) -> None:
    add = command.add_argument
    add("--repo", metavar="ROOT", type=_folder, required=True, help="the repository that the pages cite")
    add("--consent", action="store_true", help="let the decision model have the cited source lines")
    add("--cache", metavar="DIR", type=_path, help="keep the answers in DIR, and ask only what is new")
    add("--model-url", metavar="URL", help="a chat-completions server, as in http://localhost:8080/v1")
    add("--model", metavar="NAME", help=f"the model of that server; {KEY_VARIABLE} may hold the key to it")
    limits = command.add_argument_group("limits")
    for name, about in LIMITS.items():
        default = getattr(DecisionConfig, name)
        option = f"--{name.replace('_', '-')}"
        limits.add_argument(option, metavar="N", type=_count, default=default, help=f"{about} ({default})")


def _add_lint_options(command: argparse.ArgumentParser) -> None:
    add = command.add_argument
    add("--dry-run", action="store_true", help="say how many questions each page would ask, and ask none")
    add("--show-lines", action="store_true", help="quote the cited lines below each finding")
    add("--format", choices=FORMATS, default="text", help="the report as text, JSON or GitHub annotations")
    add("--output", metavar="FILE", type=_path, help="write the report to FILE")
    spread = command.add_mutually_exclusive_group()
    add = spread.add_argument
    add("--workers", metavar="N", type=_count, default=0, help="spread the pages over N processes")
    add("--scheduler", metavar="ADDRESS", help="spread the pages over a Dask cluster")


def _folder(path: str) -> Path:
    if not os.path.isdir(path):
        raise argparse.ArgumentTypeError(f"no such folder: {path}")
    return _path(path)


def _path(path: str) -> Path:
    """A path that means the same to workers in other folders."""
    return Path(path).absolute()


def _count(number: str) -> int:
    if not re.fullmatch("[0-9]{1,18}", number):
        raise argparse.ArgumentTypeError(f"not a count: {number}")
    return int(number)


def _version() -> str:
    project = (Path(__file__).resolve().parent.parent / "CMakeLists.txt").read_text(encoding="utf-8")
    version = re.search(r"project\(\S+ VERSION (\S+)", project)
    return version[1] if version else "unknown"
