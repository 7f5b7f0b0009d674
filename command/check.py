"""`wiki check`: what saving a page would warn of, and the page's score."""

from pathlib import Path

from command.client import decision_client
from command.interrupt import stop_on_interrupt
from command.pages import read_page
from command.report import CLEAN, FOUND, INCOMPLETE, complain, counted, printable
from quenlow.workers.wiki.citation_check import CitationChecker, citation_lint_findings


def check(file: Path, repo_root: Path, consent: bool) -> int:
    markdown = read_page(file)
    client = decision_client(consent)
    with stop_on_interrupt() as should_stop:
        checker = CitationChecker.enabled(client, repo_root, should_stop)
        if checker is None:
            [skipped] = citation_lint_findings(client, {}, repo_root)
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
    return FOUND if warnings else CLEAN
