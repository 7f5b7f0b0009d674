"""Runs the `wiki` command: its errors and its exit status."""

import io
import os
import sys
from argparse import Namespace
from collections.abc import Sequence

from command.arguments import LIMITS, parser
from command.client import Settings
from command.report import INCOMPLETE, CommandError, complain
from quenlow.engines.decision import DecisionConfig


def main(arguments: Sequence[str] | None = None) -> int:
    # A page or a file name may hold what the terminal's encoding lacks.
    for stream in (sys.stdout, sys.stderr):
        if isinstance(stream, io.TextIOWrapper):
            stream.reconfigure(errors="backslashreplace")
    options = parser().parse_args(arguments)
    try:
        status: int = options.run(options, _settings(options))
        print(end="", flush=True)
    except BrokenPipeError:  # the reader of the report has seen enough
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return INCOMPLETE
    except ImportError as error:
        complain(f"a library is missing, which scripts/setup --all installs: {error}")
        return INCOMPLETE
    except (CommandError, OSError) as error:
        complain(error)
        return INCOMPLETE
    return status


def _settings(options: Namespace) -> Settings:
    if (options.model_url is None) != (options.model is None):
        raise CommandError("--model-url and --model go together: which server, and which of its models")
    config = DecisionConfig(
        wiki_check_citations=True,
        allow_source_upload=options.consent or options.dry_run,  # a dry run gives nobody anything
        **{limit: getattr(options, limit) for limit in LIMITS},
    )
    names = ("model_url", "model", "cache", "dry_run", "show_lines")
    return Settings(options.repo, config, **{name: getattr(options, name) for name in names})
