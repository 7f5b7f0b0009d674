"""The arguments of the `wiki` command."""

import re
import sys
from argparse import ArgumentParser, ArgumentTypeError, RawDescriptionHelpFormatter
from pathlib import Path
from typing import Any, NoReturn

from command.client import KEY_VARIABLE, LIMITS
from command.pages import page_files
from command.terminal import complain
from quenlow.engines.decision import DecisionConfig

_ABOUT = """\
Check the sentences of a wiki against the source lines that they cite, as in
[src/app.py:L10-L12]. The embedded model compares words and numbers, not meaning;
with --model-url a language model is asked.
"""
_END = f"""\
examples:
  wiki lint docs/wiki --repo . --consent --show-lines
  wiki lint docs/wiki --repo . --consent --format json --output report.json
  {KEY_VARIABLE}=... wiki lint docs/wiki --repo . --consent --cache ~/.cache/wiki \\
      --model-url https://models.example/v1 --model small
  wiki check docs/wiki/overview.md --repo . --consent

The workers of a --scheduler need the same files and, in their PYTHONPATH, this
command's folder and its `host`. A cluster is given up after 30 s without workers.

The exit status is 0 when every cited sentence was checked and nothing was found,
1 when something was found or skipped, 2 when the check did not run to its end.
"""


class _Parser(ArgumentParser):
    def __init__(self, **texts: Any) -> None:
        super().__init__(epilog=_END, formatter_class=RawDescriptionHelpFormatter, **texts)

    def error(self, message: str) -> NoReturn:
        complain(f"{message} (see {self.prog} --help)")
        sys.exit(2)


def parser() -> ArgumentParser:
    project = (Path(__file__).resolve().parent.parent / "CMakeLists.txt").read_text(encoding="utf-8")
    version = "".join(re.findall(r"project\(\S+ VERSION (\S+)", project))
    wiki = _Parser(prog="wiki", description=_ABOUT)
    wiki.add_argument("--version", action="version", version=f"wiki {version}")
    commands = wiki.add_subparsers(title="commands", required=True, metavar="COMMAND")

    lint = commands.add_parser("lint", help="check every *.md page below a folder")
    lint.set_defaults(pages=page_files)
    lint.add_argument("target", metavar="WIKI_DIR", type=_folder)
    _add_common_options(lint)
    add = lint.add_argument
    add("--dry-run", action="store_true", help="say how many questions each page would ask, and ask none")
    add("--show-lines", action="store_true", help="quote the cited lines below each finding")
    add("--format", choices=("text", "json", "github"), default="text", help="github: annotations of pages")
    add("--output", metavar="FILE", type=_path, help="write the report to FILE")
    add = lint.add_mutually_exclusive_group().add_argument
    add("--workers", metavar="N", type=_count, help="spread the pages over N processes")
    add("--scheduler", metavar="ADDRESS", help="spread the pages over a Dask cluster")

    check = commands.add_parser("check", help="check one page: what saving it would warn of, and its score")
    check.set_defaults(pages=lambda file: {file.stem: file}, format="warnings", output=None)
    check.set_defaults(dry_run=False, show_lines=False, workers=None, scheduler=None)
    check.add_argument("target", metavar="PAGE.md", type=_path)
    _add_common_options(check)
    return wiki


def _add_common_options(command: ArgumentParser) -> None:
    add = command.add_argument
    add("--repo", metavar="ROOT", type=_folder, required=True, help="the repository that the pages cite")
    add("--consent", action="store_true", help="let the decision model have the cited source lines")
    add("--cache", metavar="DIR", type=_path, help="keep the answers in DIR, and ask only what is new")
    add("--model-url", metavar="URL", help="a chat-completions server, as in http://localhost:8080/v1")
    add("--model", metavar="NAME", help=f"the model of that server; {KEY_VARIABLE} may hold the key to it")
    for name, about in LIMITS.items():
        default = getattr(DecisionConfig, name)
        about = f"limit: {about} ({default})"
        add(f"--{name.replace('_', '-')}", metavar="N", type=_count, default=default, help=about)


def _path(path: str) -> Path:
    return Path(path).absolute()  # so that it means the same to workers in other folders


def _folder(path: str) -> Path:
    if not _path(path).is_dir():
        raise ArgumentTypeError(f"no such folder: {path}")
    return _path(path)


def _count(number: str) -> int:
    if not re.fullmatch("[0-9]{1,18}", number):
        raise ArgumentTypeError(f"not a count: {number}")
    return int(number)
