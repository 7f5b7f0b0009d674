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
        lines = f"L{self.start}" if self.start == self.end else f"L{self.start}-L{self.end}"
        return f"[{self.path}:{lines}]"


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
        if not self.checked:
            return None
        return sum(1 for item in self.checked if item.answer.verdict == "supports") / len(self.checked)

    def findings(self, page_id: str) -> list[dict[str, Any]]:
        """Lint findings: one per sentence its cited lines contradict or say nothing about."""
        out: list[dict[str, Any]] = []
        for item in self.checked:
            entry = _VERDICT_FINDINGS.get(item.answer.verdict)
            if entry is None:
                continue
            severity, kind, wording = entry
            claim = item.claim
            detail = f'{claim.ref} {wording}: "{claim.claim[:_DETAIL_CLAIM_CHARS]}"'
            out.append({"severity": severity, "kind": kind, "pages": [page_id], "detail": detail})
        return out

    def warnings(self) -> list[str]:
        """The findings as ``save_page`` warnings (``kind: detail``)."""
        return [f"{finding['kind']}: {finding['detail']}" for finding in self.findings("")]


def _prose_blocks(markdown: str) -> Iterator[str]:
    """The paragraphs and list items of a page, each on one line: fenced code, headings, tables
    and quotes are left out, and a wrapped line joins the block it continues."""
    block: list[str] = []
    in_fence = False
    for line in markdown.split("\n"):
        stripped = line.strip()
        fence = bool(_FENCE_RE.match(line))
        if fence:
            in_fence = not in_fence
        prose = not (fence or in_fence or not stripped or stripped.startswith(("#", "|", ">")))
        if block and (not prose or _LIST_MARK_RE.match(stripped)):
            yield " ".join(block)
            block = []
        if prose:
            block.append(_LIST_MARK_RE.sub("", stripped))
    if block:
        yield " ".join(block)


def _claim_text(sentence: str) -> str:
    text = _CITATION_RE.sub("", sentence)
    text = re.sub(r"\s+([.,;:!?])", r"\1", text)
    return re.sub(r"\s{2,}", " ", text).strip()


def cited_claims(markdown: str) -> list[CitedClaim]:
    """Every sentence of a page's prose that carries a citation of lines, one record per
    citation, in page order. Sentences without a citation, file-level citations (``L0``) and
    citations in code, tables and headings are not claims to check."""
    out: list[CitedClaim] = []
    for block in _prose_blocks(markdown):
        for sentence in _SENTENCE_END_RE.split(block):
            matches = list(_CITATION_RE.finditer(sentence))
            claim = _claim_text(sentence) if matches else ""
            if len(claim) < _CLAIM_MIN_CHARS:
                continue
            for match in matches:
                path, start, end = citation_key(match)
                record = CitedClaim(claim, _norm(path), start, end)
                if start >= 1 and record not in out:
                    out.append(record)
    return out


def cited_lines(text: str, start: int, end: int) -> str:
    """Lines ``start``-``end`` (1-based) of a file's text, cut at the passage limit."""
    return "\n".join(text.splitlines()[start - 1 : end])[:_PASSAGE_CHARS]


class CitedSources:
    """The stored files a page cites, read once each; none outside the repository (the cited
    lines the citation check shows the model, and the evaluation kit's dataset freezes)."""

    def __init__(self, repo_root: Path) -> None:
        self.root = repo_root.resolve()
        self._texts: dict[str, str] = {}

    def passage(self, claim: CitedClaim) -> str:
        if claim.path not in self._texts:
            self._texts[claim.path] = self._read(claim.path)
        return cited_lines(self._texts[claim.path], claim.start, claim.end)

    def _read(self, path: str) -> str:
        target = (self.root / path).resolve()
        if not target.is_relative_to(self.root):
            return ""
        try:
            return target.read_text(encoding="utf-8", errors="replace")
        except OSError:
            return ""


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
    asked: list[tuple[CitedClaim, str]] = []
    skipped = 0
    for claim in cited_claims(markdown):
        passage = sources.passage(claim) if len(asked) < max_questions else ""
        if passage.strip():
            asked.append((claim, passage))
        else:
            skipped += 1
    failed = threading.Event()

    def ask(item: tuple[CitedClaim, str]) -> CitationAnswer | None:
        if failed.is_set():
            return None
        claim, passage = item
        state, questions = citation_request(claim.claim, passage)
        try:
            result = client.decide(
                state, questions, question_version=CITATION_QUESTION_VERSION, budget=budget
            )
            return citation_answer(result)
        except Exception:
            failed.set()
            raise

    workers = max(1, min(int(client.config.max_parallel_calls), len(asked)))
    with ThreadPoolExecutor(max_workers=workers, thread_name_prefix="wiki-cite") as pool:
        answers = list(pool.map(ask, asked))
    checked = [
        CheckedClaim(claim, answer) for (claim, _passage), answer in zip(asked, answers) if answer is not None
    ]
    return CitationCheck(checked=checked, skipped=skipped)


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
        self.client = client
        self.repo_root = repo_root
        self.budget = client.new_budget(should_stop=should_stop)
        self.failure: str | None = None
        self._failed = False
        self._lock = threading.Lock()

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
        if client is None or not client.feature_enabled("wiki_check_citations"):
            return None
        if not source_consented(client):
            return None
        return cls(client, repo_root, should_stop=should_stop)

    def check(self, markdown: str) -> CitationCheck | None:
        """The page's answers, or None once a check has failed."""
        if self._failed:
            return None
        try:
            return check_citations(
                self.client,
                markdown,
                self.repo_root,
                max_questions=self.client.config.wiki_check_citations_per_page,
                budget=self.budget,
            )
        except Exception as exc:
            with self._lock:
                first = not self._failed
                self._failed = True
            if first:
                self.failure = f"{type(exc).__name__}: {exc}"[:_FAILURE_CHARS]
                logger.warning(
                    "Wiki citation check failed; the identifier check stays in force "
                    "for the rest of this run",
                    exc_info=True,
                )
            return None


class CitationCheckMixin:
    """The citation check of a generator's pages, mixed into ``VerifyMixin``: one checker per
    generator, so one batch budget and one first failure per run."""

    repo_root: Path
    should_stop: Callable[[], bool]
    decision_client: DecisionClient | None = None
    _citation_checker: CitationChecker | None = None

    def _citation_check(self, markdown: str) -> CitationCheck | None:
        """The citation check of a page, or None while it is off or after it failed."""
        checker = self._citation_checker
        if checker is None or checker.client is not self.decision_client:
            checker = CitationChecker.enabled(self.decision_client, self.repo_root, self.should_stop)
            self._citation_checker = checker
        return None if checker is None else checker.check(markdown)


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
    checker = CitationChecker.enabled(client, repo_root, should_stop)
    if checker is None:
        if client is None or not client.feature_enabled("wiki_check_citations"):
            return []
        detail = (
            "qep.wiki_check_citations is on, but the check uploads the cited source lines and "
            "qep.allow_source_upload is off: the identifier check stays"
        )
        return [{"severity": "low", "kind": "citation-check-skipped", "pages": [], "detail": detail}]
    out: list[dict[str, Any]] = []
    for page_id, markdown in texts.items():
        check = checker.check(markdown)
        if check is None:
            detail = (
                f"the citation check stopped here ({checker.failure}); "
                "this page and the ones after it were not checked"
            )
            out.append(
                {"severity": "low", "kind": "citation-check-failed", "pages": [page_id], "detail": detail}
            )
            break
        out.extend(check.findings(page_id))
    return out
