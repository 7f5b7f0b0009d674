"""One run of the check over pages, in this process."""

from collections.abc import Callable, Iterator, Mapping
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any, cast

from command.client import RunClient, Settings, run_client
from command.locate import places
from command.pages import read_page
from command.report import CommandError, skipped_in_words
from quenlow.workers.wiki import citation_check
from quenlow.workers.wiki.citation_check import CitationCheck, CitationChecker, CitedClaim, CitedSources

Advance = Callable[[int, int, int], None]
"""Told how many pages, questions and findings a run has gained."""


@dataclass
class Outcome:
    """What a run came to, in the order of its pages.

    Attributes:
        pages: The counts of each page that was checked to its end.
        findings: The lint pass's own; one about a sentence tells its place and what it cites as well.
        notes: What else there is to say of a page, in the form of a finding.
    """

    calls: int = 0
    input_tokens: int = 0
    out_of_budget: bool = False
    pages: list[dict[str, Any]] = field(default_factory=list)
    findings: list[dict[str, Any]] = field(default_factory=list)
    notes: list[dict[str, Any]] = field(default_factory=list)

    @property
    def stopped_at(self) -> str | None:
        """The page that the check failed on: the last finding says so."""
        failed = [each["pages"][0] for each in self.findings[-1:] if each["kind"] == "citation-check-failed"]
        return failed[0] if failed else None


def check_pages(
    files: Mapping[str, Path], settings: Settings, should_stop: Callable[[], bool], advance: Advance
) -> Outcome:
    client = run_client(settings)
    pages = _Pages(files, settings, client, advance)
    # The lint pass makes its checker from whatever the module holds under this name.
    setattr(citation_check, "CitationChecker", _Checker)
    texts = cast(Mapping[str, str], pages)
    outcome = pages.outcome
    outcome.findings = citation_check.citation_lint_findings(client, texts, settings.repo_root, should_stop)
    for finding, place in zip(outcome.findings, pages.places):
        finding.update(place)
    outcome.calls = client.budget.calls
    outcome.input_tokens = client.budget.input_tokens
    outcome.out_of_budget = client.budget.refused
    return outcome


class _Checker(CitationChecker):
    """Leaves each page's result with the client: findings alone do not tell what was skipped, nor where."""

    client: RunClient

    def check(self, markdown: str) -> CitationCheck | None:
        result = super().check(markdown)
        if result is not None:
            self.client.result = result
        return result


class _Pages:
    """The pages' texts, each read when the check comes to it, and looked over once it is checked."""

    def __init__(
        self, files: Mapping[str, Path], settings: Settings, client: RunClient, advance: Advance
    ) -> None:
        self._files = files
        self._settings = settings
        self._client = client
        self._advance = advance
        self.outcome = Outcome()
        self.places: list[dict[str, Any]] = []
        """What is to be added to each finding."""

    def items(self) -> Iterator[tuple[str, str]]:
        for page, file in self._files.items():
            try:
                markdown = read_page(file)
            except CommandError as error:
                self._note(page, "page-unreadable", str(error))
                continue
            calls, findings = self._client.budget.calls, len(self.places)
            yield page, markdown
            # Nobody asks for the page after the one that failed.
            calls = self._client.budget.calls - calls
            skipped = self._look_over(page, markdown)
            self.outcome.pages.append({"pages": [page], "questions": calls, **skipped})
            self._advance(1, calls, len(self.places) - findings)

    def _look_over(self, page: str, markdown: str) -> dict[str, int]:
        """Find the places of the page's findings, and count the claims that were skipped."""
        result = self._client.result
        verdicts = citation_check._VERDICT_FINDINGS
        doubted = [item.claim for item in result.checked if item.answer.verdict in verdicts]
        if not (doubted or result.skipped):
            return {"over_cap": 0, "unreadable": 0}
        sources = CitedSources(self._settings.repo_root)
        unreadable = self._unreadable(markdown, sources) if result.skipped else []
        found = places(markdown)

        def place(claim: CitedClaim) -> dict[str, Any]:
            line, column = found.get(claim, (None, None))
            cited = {"cited_lines": sources.passage(claim)} if self._settings.show_lines else {}
            lines = {"path": claim.path, "start": claim.start, "end": claim.end}
            return {"line": line, "column": column} | lines | cited

        self.places += map(place, doubted)
        for claim in unreadable:
            self._note(page, "citation-unreadable", f"{claim.ref} has no lines to read", **place(claim))
        skipped = {"over_cap": result.skipped - len(unreadable), "unreadable": len(unreadable)}
        if result.skipped:
            self._note(page, "citations-skipped", skipped_in_words(**skipped))
        return skipped

    def _unreadable(self, markdown: str, sources: CitedSources) -> list[CitedClaim]:
        """The claims that were skipped although the cap had room for them."""
        room = self._settings.config.wiki_check_citations_per_page
        unreadable = []
        for claim in citation_check.cited_claims(markdown):
            if room <= 0:
                break
            if sources.passage(claim).strip():
                room -= 1
            else:
                unreadable.append(claim)
        return unreadable

    def _note(self, page: str, kind: str, detail: str, **place: Any) -> None:
        note = {"severity": "low", "kind": kind, "pages": [page], "detail": detail}
        self.outcome.notes.append(note | place)
