"""Runs the `wiki` command: its report, its errors and its exit status."""

import os
import sys
from argparse import Namespace
from collections import Counter
from collections.abc import Callable, Iterator
from contextlib import ExitStack

from tqdm import tqdm

from command.arguments import parser
from command.formats import FORMATS, report
from command.run import Files, PageCheck, check_pages
from command.terminal import CommandError, complain, stop_on_interrupt

CLEAN, FOUND, INCOMPLETE = 0, 1, 2


def main() -> int:
    try:
        status = _run(parser().parse_args())
        sys.stdout.flush()
        return status
    except BrokenPipeError:  # the reader of the report has seen enough
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
    except ImportError as error:
        complain(f"a library is missing, which scripts/setup --all installs: {error}")
    except (CommandError, OSError) as error:
        complain(error)
    return INCOMPLETE


def _run(options: Namespace) -> int:
    files = options.pages(options.target)
    options.consent |= options.dry_run  # which gives nobody anything
    with ExitStack() as closing:
        out = sys.stdout
        if options.output:
            # Opened first: a report that cannot be written must not cost a question.
            out = closing.enter_context(open(options.output, "w", errors="backslashreplace"))
        told = report(_checks(files, options), files, options.dry_run)
        FORMATS[options.format](told, out)
    if not options.consent:
        complain("nothing was checked: --consent lets the decision model have the cited source lines")
    if told["summary"]["checked"] < len(files):
        return INCOMPLETE
    return FOUND if told["messages"] and not options.dry_run else CLEAN


def _checks(files: Files, options: Namespace) -> list[PageCheck]:
    checks: list[PageCheck] = []
    total = Counter[str]()
    with ExitStack() as closing:
        check: Callable[..., Iterator[PageCheck]] = check_pages
        # Without consent there is nothing to check, and no need of others to say so.
        if options.consent and (options.scheduler or options.workers):
            from command.cluster import cluster

            check = closing.enter_context(cluster(options.scheduler, options.workers))
        bar = closing.enter_context(tqdm(total=len(files), unit=" pages", leave=False, disable=None))
        for done in check(files, options, stop_on_interrupt()):
            checks.append(done)
            total.update(done.counts)
            bar.set_postfix(questions=total["questions"], findings=total["findings"], refresh=False)
            bar.update()
    return checks
