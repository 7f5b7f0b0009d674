"""One run of the check over pages, in this process."""

from argparse import Namespace
from collections import Counter
from collections.abc import Callable, Iterator, Mapping
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any, TypeAlias

from command.client import RunClient
from command.locate import places
from command.pages import read_page
from command.terminal import CommandError, counted
from quenlow.workers.wiki import citation_check
from quenlow.workers.wiki.citation_check import CitedClaim, CitedSources

Files: TypeAlias = Mapping[str, Path]
ShouldStop: TypeAlias = Callable[[], bool]
# A finding, or in its form what else there is to say of a page; with the place in the page, if it has one.
Message: TypeAlias = dict[str, Any]

COUNTS = ("sentences", "questions", "input_tokens", "findings", "over_cap", "unreadable")


@dataclass
class PageCheck:
    """What the check of one page came to."""

    page: str
    messages: list[Message] = field(default_factory=list)
    counts: Counter[str] = field(default_factory=Counter)
    to_its_end: bool = False
    ended_the_run: bool = False
    out_of_budget: bool = False


def check_pages(files: Files, options: Namespace, should_stop: ShouldStop) -> Iterator[PageCheck]:
    """Checks the pages in their order, up to the one that ends the run."""
    client = RunClient(options, should_stop)
    if not options.consent:
        findings = citation_check.citation_lint_findings(client, {}, options.repo)
        yield PageCheck("", findings, Counter(findings=1))
        return
    for page, file in files.items():
        check = PageCheck(page)
        try:
            _check_page(check, read_page(file), client, options)
        except CommandError as error:
            check.messages.append(_note(page, "page-unreadable", str(error)))
        yield check
        if check.ended_the_run:
            return


def _check_page(check: PageCheck, markdown: str, client: RunClient, options: Namespace) -> None:
    before = client.counts()
    check.messages = citation_check.citation_lint_findings(client, {check.page: markdown}, options.repo)
    check.counts = client.counts()
    check.counts.subtract(before)
    check.counts.update(findings=len(check.messages), over_cap=0, unreadable=0)
    check.ended_the_run = any(finding["kind"] == "citation-check-failed" for finding in check.messages)
    check.out_of_budget = client.budget.refused
    check.to_its_end = not check.ended_the_run
    skipped = len(citation_check.cited_claims(markdown)) - check.counts["sentences"]
    if check.to_its_end and (check.messages or skipped):
        _look_over(check, markdown, skipped, options)


def _look_over(check: PageCheck, markdown: str, skipped: int, options: Namespace) -> None:
    """Find the places of the page's findings, and tell of the claims that were skipped."""
    sources, found = CitedSources(options.repo), places(markdown)

    def place(claim: CitedClaim) -> Message:
        quoted = {"cited_lines": sources.passage(claim)} if options.show_lines else {}
        return {**found[claim], "path": claim.path, "start": claim.start, "end": claim.end, **quoted}

    claims = iter(found)  # in the order of their findings
    for finding in check.messages:
        finding |= place(next(claim for claim in claims if _tells_of(finding["detail"], claim)))
    if skipped:
        unreadable = [claim for claim in found if not sources.passage(claim).strip()]
        for claim in unreadable:
            note = _note(check.page, "citation-unreadable", f"{claim.ref} has no lines to read")
            check.messages.append(note | place(claim))
        check.counts.update(over_cap=max(0, skipped - len(unreadable)), unreadable=len(unreadable))
        check.messages.append(_note(check.page, "citations-skipped", skipped_in_words(check.counts)))
    check.messages.sort(key=lambda message: message.get("line", float("inf")))


def _tells_of(detail: str, claim: CitedClaim) -> bool:
    return detail.startswith(f"{claim.ref} ") and claim.claim[: citation_check._DETAIL_CLAIM_CHARS] in detail


def _note(page: str, kind: str, detail: str) -> Message:
    return {"severity": "low", "kind": kind, "pages": [page], "detail": detail}


def skipped_in_words(counts: Counter[str]) -> str:
    claims = counted(counts["over_cap"] + counts["unreadable"], "claim")
    return f"{claims} skipped ({counts['over_cap']} over the cap, {counts['unreadable']} unreadable)"
