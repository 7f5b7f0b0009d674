"""Arguments, errors and exit status of the `wiki` command."""

import argparse
import io
import logging
import os
import sys
from collections.abc import Callable, Sequence
from pathlib import Path
from typing import NoReturn

from command.check import check
from command.lint import lint
from command.report import INCOMPLETE, CommandError, complain

_ABOUT = """\
Check the sentences of a wiki against the source lines that they cite, as in
[src/app.py:L10-L12]. The embedded model compares words and numbers, not meaning.
"""

_EXIT_STATUS = """\
exit status:
  0  every page was checked and nothing was found
  1  something was found
  2  the check did not run to its end: it failed, was stopped or skipped,
     or the call was wrong
"""

_CONSENT = "the cited source lines may be given to the decision model (nothing is checked without it)"


class _Parser(argparse.ArgumentParser):
    def error(self, message: str) -> NoReturn:
        complain(f"{message} (see {self.prog} --help)")
        sys.exit(INCOMPLETE)


def _parser() -> argparse.ArgumentParser:
    parser = _Parser(
        prog="wiki",
        description=_ABOUT,
        epilog=_EXIT_STATUS + "\nexample:\n  wiki lint docs/wiki --repo . --consent\n",
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    commands = parser.add_subparsers(title="commands", required=True, metavar="COMMAND")

    def add(name: str, run: Callable[[Path, Path, bool], int], page: str, page_help: str, about: str) -> None:
        command = commands.add_parser(
            name,
            help=about,
            description=about[0].upper() + about[1:] + ".",
            epilog=_EXIT_STATUS,
            formatter_class=argparse.RawDescriptionHelpFormatter,
        )
        command.add_argument("target", metavar=page, type=Path, help=page_help)
        command.add_argument(
            "--repo", metavar="ROOT", type=_folder, required=True, help="the repository that the pages cite"
        )
        command.add_argument("--consent", action="store_true", help=_CONSENT)
        command.set_defaults(run=run)

    add("lint", lint, "WIKI_DIR", "the wiki's folder", "check every *.md page below a folder")
    add("check", check, "PAGE.md", "the page", "check one page: what saving it would warn of, and its score")
    return parser


def _folder(path: str) -> Path:
    if not os.path.isdir(path):
        raise argparse.ArgumentTypeError(f"no such folder: {path}")
    return Path(path)


def main(arguments: Sequence[str] | None = None) -> int:
    # A page or a file name may hold what the terminal's encoding lacks.
    if isinstance(sys.stdout, io.TextIOWrapper):
        sys.stdout.reconfigure(errors="backslashreplace")
    # The failed check is a finding of its own: its log record would say it twice.
    logging.getLogger("quenlow").addHandler(logging.NullHandler())
    options = _parser().parse_args(arguments)
    try:
        status: int = options.run(options.target, options.repo, options.consent)
        print(end="", flush=True)
    except BrokenPipeError:  # the reader of the report has seen enough
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return INCOMPLETE
    except (CommandError, OSError) as error:
        complain(error)
        return INCOMPLETE
    return status
