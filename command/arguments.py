"""The options of the `wiki` command, on its command line and in a file of the repository."""

import os
import re
import sys
import tomllib
from argparse import ArgumentParser, ArgumentTypeError, Namespace
from collections.abc import Iterator, Sequence
from functools import partial
from pathlib import Path
from typing import NoReturn

from command.answers import KEY_VARIABLE
from command.formats import FORMATS
from command.report import FAILING
from command.terminal import complain
from quenlow.engines.decision import DecisionConfig

# Where source lines and the key go, and which files are written, the user says and not the repository.
_OF_THE_USER = "repo consent cache model-url model scheduler workers output write-baseline dry-run".split()
_ABOUT = "Check the sentences of a wiki against the source lines that they cite, as in [src/app.py:L10-L12]."
_END = """Options may also stand in the repository's wiki.toml, or in its pyproject.toml under [tool.wiki].
Status 0: nothing was found; 1: something was found that --fail-on names; 2: the check is not complete."""


class _Parser(ArgumentParser):
    source = ""  # of the options that are parsed, if it is not the command line

    def error(self, message: str) -> NoReturn:
        complain(f"{self.source}{message} (see {self.prog} --help)")
        sys.exit(2)


def parsed(arguments: Sequence[str]) -> Namespace:
    """The options of the command line, and those of the repository's file that it does not override."""
    wiki = _Parser("wiki", None, _ABOUT, _END, allow_abbrev=False)
    _add_arguments(wiki)
    options = wiki.parse_args(arguments)
    if not options.repo.is_dir():
        wiki.error(f"no such folder: {options.repo}")
    if missing := [target for target in options.targets if not target.exists()]:
        wiki.error(f"no such folder or page: {missing[0]}")
    if options.command == "check" and (len(options.targets) > 1 or options.targets[0].is_dir()):
        wiki.error("check takes one page, and not a folder")
    if not options.consent and not options.dry_run:  # which gives nobody anything
        wiki.error("nothing is checked without --consent, which lets the decision model have the cited lines")
    options = wiki.parse_args([*_settings(wiki, options), *arguments])
    options.show_lines |= options.format == "html"
    options.run = os.urandom(8)  # tells the runs that a cluster's workers take looks for apart
    return options


def _add_arguments(wiki: ArgumentParser) -> None:
    add = wiki.add_argument
    add("command", choices=("lint", "check"), help="lint any pages, or check one page and tell its score")
    add("targets", metavar="WIKI", nargs="+", type=_path, help="a page, or a folder of *.md pages")
    add("--repo", metavar="ROOT", type=_path, required=True, help="the repository that the pages cite")
    add("--consent", action="store_true", help="let the decision model have the cited source lines")
    add("--exclude", metavar="GLOB", action="append", default=[], help="leave such pages and folders out")

    add("--format", choices=FORMATS, default="text", help="of the report")
    add("--output", metavar="FILE", type=_path, help="write the report to FILE")
    add("--show-lines", action="store_true", help="quote the cited lines below each finding")
    add("--fail-on", choices=FAILING, default="low", help="what makes the status 1")
    add("--baseline", metavar="FILE", type=_path, help="do not tell of the findings that FILE has")
    add("--write-baseline", action="store_true", help="write what is found now to the baseline's FILE")
    add("--dry-run", action="store_true", help="say how many questions each page would ask, and ask none")

    add("--cache", metavar="DIR", type=_path, help="keep the answers in DIR, and ask only what is new")
    add("--model-url", metavar="URL", help="a chat-completions server, as in http://localhost:8080/v1")
    add("--model", metavar="NAME", help=f"the model of that server; {KEY_VARIABLE} may hold the key to it")
    some = partial(_count, least=1)
    add("--timeout", metavar="SECONDS", type=some, default=60, help="for one attempt to ask it (60)")
    add("--max-parallel-calls", metavar="N", type=some, default=4, help="questions under way at once (4)")
    for name, about in (("wiki-check-citations-per-page", "questions for each page"),
                        ("max-calls-per-batch", "questions of the whole run to a model that costs something"),
                        ("max-input-tokens-per-batch", "input tokens of these questions")):
        default = getattr(DecisionConfig, name.replace("-", "_"))
        add(f"--{name}", metavar="N", type=_count, default=default, help=f"limit: {about} ({default})")
    add = wiki.add_mutually_exclusive_group().add_argument
    add("--workers", metavar="N", type=some, help="spread the pages over N processes")
    add("--scheduler", metavar="ADDRESS", help="the same over a Dask cluster with these files and PYTHONPATH")


def _settings(wiki: _Parser, options: Namespace) -> Iterator[str]:
    """The arguments that `wiki.toml` stands for, or `[tool.wiki]` in `pyproject.toml`."""
    own = options.repo / "wiki.toml"
    file = own if own.exists() else options.repo / "pyproject.toml"
    try:
        table = tomllib.loads(file.read_text("utf-8")) if file.exists() else {}
        settings = (table if file is own else table.get("tool", {}).get("wiki", {})).items()
    except (AttributeError, OSError, RecursionError, ValueError) as error:
        wiki.error(f"cannot read {file}: {error}")
    wiki.source = f"{file}: "
    for key, value in settings:
        option = key.replace("_", "-")
        default = "" if option == "baseline" else wiki.get_default(option.replace("-", "_"))
        if option in _OF_THE_USER:
            wiki.error(f"{key} is for the command line alone")
        if default is None:
            wiki.error(f"unknown key: {key}")
        if type(value) is not type(default) or option == "exclude" and {str, *map(type, value)} != {str}:
            wiki.error(f"{key} takes a value of type {type(default).__name__}, not {value!r}")
        for one in value if option == "exclude" else [value] * (value is not False):
            given = options.repo / one if option == "baseline" else one
            yield f"--{option}" if value is True else f"--{option}={given}"


def _path(path: str) -> Path:
    return Path(path).absolute()  # so that it means the same to workers in other folders


def _count(number: str, least: int = 0) -> int:
    if not re.fullmatch("[0-9]{1,18}", number) or int(number) < least:
        raise ArgumentTypeError(f"not a count of at least {least}: {number}")
    return int(number)
