"""`wiki check`: what saving a page would warn of, and the page's score."""

from argparse import Namespace

from command.client import Settings, run_client
from command.interrupt import stop_on_interrupt
from command.pages import read_page
from command.report import CLEAN, FOUND, INCOMPLETE, complain, counted, printable
from quenlow.workers.wiki.citation_check import CitationChecker, citation_lint_findings


def check(options: Namespace, settings: Settings) -> int:
    markdown = read_page(options.target)
    client = run_client(settings)
    with stop_on_interrupt() as should_stop:
        checker = CitationChecker.enabled(client, settings.repo_root, should_stop)
        if checker is None:
            [skipped] = citation_lint_findings(client, {}, settings.repo_root)
            print(f"{skipped['kind']}: {skipped['detail']}")
            return INCOMPLETE
        result = checker.check(markdown)
    if result is None:
        complain(f"the citation check failed ({checker.failure})")
        return INCOMPLETE
    warnings = result.warnings()
    for warning in warnings:
        print(printable(warning))
    score = "none" if result.score is None else f"{result.score:.2f}"
    print(f"score {score}, {counted(len(result.checked), 'sentence')} checked, {result.skipped} skipped")
    return FOUND if warnings or result.skipped else CLEAN
