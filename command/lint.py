"""`wiki lint`: the report on a whole wiki."""

import sys
from argparse import Namespace
from collections.abc import Callable, Mapping
from contextlib import ExitStack
from functools import partial
from pathlib import Path

from command.client import Settings
from command.formats import FORMATS, report
from command.interrupt import stop_on_interrupt
from command.pages import page_files
from command.report import CLEAN, FOUND, INCOMPLETE, complain
from command.run import Outcome, check_pages
from command.terminal import progress


def lint(options: Namespace, settings: Settings) -> int:
    files = page_files(options.target)
    with ExitStack() as closing:
        out = sys.stdout
        if options.output is not None:
            # Opened first: a report that cannot be written must not cost a question.
            out = closing.enter_context(open(options.output, "w", errors="backslashreplace"))
        outcome = _outcome(files, settings, options)
        FORMATS[options.format](report(outcome, files, settings.dry_run), out)
    if not settings.config.allow_source_upload:
        complain("nothing was checked: --consent lets the decision model have the cited source lines")
        return INCOMPLETE
    if len(outcome.pages) < len(files):
        return INCOMPLETE
    return FOUND if (outcome.findings or outcome.notes) and not settings.dry_run else CLEAN


def _outcome(files: Mapping[str, Path], settings: Settings, options: Namespace) -> Outcome:
    with ExitStack() as closing:
        check: Callable[..., Outcome] = check_pages
        # Without consent there is nothing to check, and no need of others to say so.
        if (options.scheduler or options.workers) and settings.config.allow_source_upload:
            from command.cluster import check_on, cluster

            check = partial(check_on, closing.enter_context(cluster(options.scheduler, options.workers)))
        should_stop = closing.enter_context(stop_on_interrupt())
        outcome = check(files, settings, should_stop, closing.enter_context(progress(len(files))))
    return outcome
