"""Checking cited sentences against the lines they cite (``qep.wiki_check_citations``).

A page's cited claims are put to the decision model with the lines they cite; a claim the lines do not
support is a warning at ``save_page`` and a finding in ``wiki lint``. The first failure of the check
ends it and is a finding of its own. Off by default; every question is bounded and cached.
"""

from __future__ import annotations

import logging
import re
import threading
from collections.abc import Callable, Iterator, Mapping
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any

from quenlow.engines.decision import (
    CITATION_QUESTION_VERSION,
    CitationAnswer,
    DecisionClient,
    RunBudget,
    citation_answer,
    citation_request,
)
from quenlow.engines.decision_text import source_consented
from quenlow.workers.wiki.repo_facts import _norm
from quenlow.workers.wiki.types import _CITATION_RE, citation_key
from quenlow.workers.wiki_types import _FENCE_RE

logger = logging.getLogger(__name__)

_PASSAGE_CHARS = 2200
_CLAIM_MIN_CHARS = 12
_SENTENCE_END_RE = re.compile(r"(?<=[.!?\]])\s+(?=[A-Z`*_])")
_LIST_MARK_RE = re.compile(r"^(?:[-*+]|\d+[.)])\s+")

# `native`, a variable of all definitions below, holds their bodies in C++: freeze.py binds it.


@dataclass(frozen=True)
class CitedClaim:
    """One sentence of a page and one citation it carries.

    Attributes:
        claim: The sentence without its citations.
        path: The cited file, repository-relative.
        start: The first cited line (1-based).
        end: The last cited line.
    """

    claim: str
    path: str
    start: int
    end: int

    @property
    def ref(self) -> str:
        """The citation as a page writes it."""
        return native.ref(self)


@dataclass(frozen=True)
class CheckedClaim:
    """A cited sentence and how its cited lines relate to it."""

    claim: CitedClaim
    answer: CitationAnswer


_VERDICT_FINDINGS = {
    "contradicts": ("medium", "citation-contradicted", "the cited lines contradict"),
    "says_nothing": ("low", "citation-unsupported", "the cited lines say nothing about"),
}
_DETAIL_CLAIM_CHARS = 160
_FAILURE_CHARS = 200


@dataclass
class CitationCheck:
    """What the decision model said about a page's cited sentences.

    Attributes:
        checked: The sentences asked about, with their answers, in page order.
        skipped: Cited sentences not asked about: over the per-page cap, or whose cited lines
            could not be read.
    """

    checked: list[CheckedClaim] = field(default_factory=list)
    skipped: int = 0

    @property
    def score(self) -> float | None:
        """The share of checked sentences whose cited lines support them; None with none."""
        return native.score(self)

    def findings(self, page_id: str) -> list[dict[str, Any]]:
        """Lint findings: one per sentence its cited lines contradict or say nothing about."""
        return native.findings(self, page_id)

    def warnings(self) -> list[str]:
        """The findings as ``save_page`` warnings (``kind: detail``)."""
        return native.warnings(self)


def _prose_blocks(markdown: str) -> Iterator[str]:
    """The paragraphs and list items of a page, each on one line: fenced code, headings, tables
    and quotes are left out, and a wrapped line joins the block it continues."""
    scan = native.begin_scan(markdown)
    while (block := native.next_block(scan)) is not None:
        yield block


def _claim_text(sentence: str) -> str:
    return native.claim_text(sentence)


def cited_claims(markdown: str) -> list[CitedClaim]:
    """Every sentence of a page's prose that carries a citation of lines, one record per
    citation, in page order. Sentences without a citation, file-level citations (``L0``) and
    citations in code, tables and headings are not claims to check."""
    return native.cited_claims(markdown)


def cited_lines(text: str, start: int, end: int) -> str:
    """Lines ``start``-``end`` (1-based) of a file's text, cut at the passage limit."""
    return native.cited_lines(text, start, end)


class CitedSources:
    """The stored files a page cites, read once each; none outside the repository (the cited
    lines the citation check shows the model, and the evaluation kit's dataset freezes)."""

    def __init__(self, repo_root: Path) -> None:
        native.init_sources(self, repo_root)

    def passage(self, claim: CitedClaim) -> str:
        return native.passage(self, claim)

    def _read(self, path: str) -> str:
        return native.read(self, path)


def check_citations(
    client: DecisionClient,
    markdown: str,
    repo_root: Path,
    *,
    max_questions: int,
    budget: RunBudget | None = None,
) -> CitationCheck:
    """Ask how the cited lines of each cited sentence of a page relate to it.

    Args:
        client: The decision client to ask (the caller checks its switch).
        markdown: The page as saved.
        repo_root: Where the cited files are stored.
        max_questions: At most this many sentences are asked about; the rest are skipped.
        budget: A batch pass's budget; None: each call ends by the interactive deadline.

    Returns:
        The answers, in page order.

    Raises:
        DecisionError: A call failed; no later question of the page is asked.
    """
    sources = CitedSources(repo_root)
    asked, skipped, _last = native.select_claims(sources, markdown, max_questions)
    failed = threading.Event()

    def ask(item: tuple[CitedClaim, str]) -> CitationAnswer | None:
        return native.ask(item, client, budget, failed)

    return native.put_questions(ask, asked, skipped, client)


class CitationChecker:
    """Checks pages' cited sentences with one client, while ``qep.wiki_check_citations`` is on.

    A checker is one run of a batch pass (a lint, a generation, a saved page): its calls share
    one batch budget (``client.new_budget``), so they are bounded by ``qep.max_calls_per_batch``,
    ``qep.max_input_tokens_per_batch`` and the run's stop, not by the interactive deadline that a
    batch of parallel calls would spend waiting on each other. The first failure (a refusal, a
    spent budget, an invalid answer, a bug) is logged once and ends the checking for this run: its
    callers keep the identifier check instead.

    Attributes:
        failure: What the first failure was (its type and message), None while none has failed.
        budget: The run's batch budget.
    """

    def __init__(
        self, client: DecisionClient, repo_root: Path, *, should_stop: Callable[[], bool] | None = None
    ) -> None:
        native.init_checker(self, client, repo_root, should_stop)

    @classmethod
    def enabled(
        cls,
        client: DecisionClient | None,
        repo_root: Path,
        should_stop: Callable[[], bool] | None = None,
    ) -> CitationChecker | None:
        """A checker for ``client``, or None when there is none, its switch is off, or the
        consent to upload the cited source lines (``qep.allow_source_upload``) is not given.

        Args:
            client: The decision client.
            repo_root: Where the cited files are stored.
            should_stop: True once the run is asked to stop: its calls and retries end.
        """
        return native.enabled(cls, client, repo_root, should_stop)

    def check(self, markdown: str) -> CitationCheck | None:
        """The page's answers, or None once a check has failed."""
        return native.check(self, markdown)


class CitationCheckMixin:
    """The citation check of a generator's pages, mixed into ``VerifyMixin``: one checker per
    generator, so one batch budget and one first failure per run."""

    repo_root: Path
    should_stop: Callable[[], bool]
    decision_client: DecisionClient | None = None
    _citation_checker: CitationChecker | None = None

    def _citation_check(self, markdown: str) -> CitationCheck | None:
        """The citation check of a page, or None while it is off or after it failed."""
        return native.citation_check(self, markdown)


def citation_lint_findings(
    client: DecisionClient | None,
    texts: Mapping[str, str],
    repo_root: Path,
    should_stop: Callable[[], bool] | None = None,
) -> list[dict[str, Any]]:
    """Lint findings of the citation check over pages (``page_id -> markdown``); none while
    ``qep.wiki_check_citations`` is off. The first failure ends the check, and is a finding of its
    own on the page it stopped at (``citation-check-failed``): the pages left were not checked.
    The pages share one batch budget, which ``should_stop`` (the lint's stop) ends."""
    return native.citation_lint_findings(client, texts, repo_root, should_stop)
