"""Runs the `wiki` command: its report, its errors and its exit status."""

import os
import sys
from argparse import Namespace
from contextlib import nullcontext

from tqdm import tqdm

from command.arguments import parsed
from command.baseline import Baseline
from command.formats import FORMATS
from command.pages import find_pages
from command.report import FAILING, UNCHECKED, Report
from command.run import check_pages, first_looks
from command.terminal import CommandError, complain, replacing, stop_on_signals

CLEAN, FOUND, INCOMPLETE = 0, 1, 2


def main() -> int:
    try:
        status = _run(parsed(sys.argv[1:]))
        sys.stdout.flush()
        return status
    except (CommandError, OSError) as error:
        if not isinstance(error, BrokenPipeError):  # the reader of the report has seen enough
            complain(error)
    # What could not be written must not be tried again at the end.
    os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
    return INCOMPLETE


def _run(options: Namespace) -> int:
    if options.write_baseline and not options.baseline:
        raise CommandError("--write-baseline needs --baseline FILE")
    pages, unreadable = find_pages(options)
    report = Report(pages=len(pages), findings=unreadable, dry_run=options.dry_run)
    baseline = Baseline(options.baseline, options.write_baseline) if options.baseline else None
    needed = {os.path.realpath(file) for file in (options.baseline or "", *(page.file for page in pages))}
    if options.output and ((file := os.path.realpath(options.output)) in needed or file.endswith(".md")):
        raise CommandError(f"the report would replace, or be, a page or the baseline: {options.output}")
    if options.format == "html":
        import command.html_report  # its libraries must not be missed at the end
    looks = first_looks
    if options.scheduler or options.workers:
        from command.cluster import looks
    # Opened first: a report that cannot be written must not cost a question.
    with replacing(options.output) if options.output else nullcontext(sys.stdout) as out:
        checks = check_pages(pages, options, stop_on_signals(), looks)
        for check in tqdm(checks, total=len(pages), unit=" pages", leave=False, disable=None):
            report.add(check, baseline.knows if baseline else lambda _finding: False)
        report.conclude(options.repo)
        if baseline and not options.dry_run:
            report.notes += baseline.settle(check.file for check in report.checks)
        FORMATS[options.format](report, out)
    if any(finding.kind in UNCHECKED for finding in report.findings):
        return INCOMPLETE
    return FOUND if any(one.severity in FAILING[options.fail_on] for one in report.findings) else CLEAN
