# Exported besides the module's own names are the imported ones that its functions look up when they run:
# a host that replaces one here changes what they do.
from __future__ import annotations as annotations

import logging
import re as re
import threading as threading
from collections.abc import Callable, Iterator, Mapping
from concurrent.futures import ThreadPoolExecutor as ThreadPoolExecutor
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any

from quenlow.engines.decision import (
    CITATION_QUESTION_VERSION as CITATION_QUESTION_VERSION,
    CitationAnswer,
    DecisionClient,
    RunBudget,
    citation_answer as citation_answer,
    citation_request as citation_request,
)
from quenlow.engines.decision_text import source_consented as source_consented
from quenlow.workers.wiki.repo_facts import _norm as _norm
from quenlow.workers.wiki.types import _CITATION_RE as _CITATION_RE, citation_key as citation_key
from quenlow.workers.wiki_types import _FENCE_RE as _FENCE_RE

logger: logging.Logger

_PASSAGE_CHARS: int
_CLAIM_MIN_CHARS: int
_SENTENCE_END_RE: re.Pattern[str]
_LIST_MARK_RE: re.Pattern[str]

@dataclass(frozen=True)
class CitedClaim:
    claim: str
    path: str
    start: int
    end: int

    @property
    def ref(self) -> str: ...

@dataclass(frozen=True)
class CheckedClaim:
    claim: CitedClaim
    answer: CitationAnswer

_VERDICT_FINDINGS: dict[str, tuple[str, str, str]]
_DETAIL_CLAIM_CHARS: int
_FAILURE_CHARS: int

@dataclass
class CitationCheck:
    checked: list[CheckedClaim] = field(default_factory=list)
    skipped: int = 0

    @property
    def score(self) -> float | None: ...
    def findings(self, page_id: str) -> list[dict[str, Any]]: ...
    def warnings(self) -> list[str]: ...

def _prose_blocks(markdown: str) -> Iterator[str]: ...
def _claim_text(sentence: str) -> str: ...
def cited_claims(markdown: str) -> list[CitedClaim]: ...
def cited_lines(text: str, start: int, end: int) -> str: ...

class CitedSources:
    root: Path
    _texts: dict[str, str]

    def __init__(self, repo_root: Path) -> None: ...
    def passage(self, claim: CitedClaim) -> str: ...
    def _read(self, path: str) -> str: ...

def check_citations(
    client: DecisionClient,
    markdown: str,
    repo_root: Path,
    *,
    max_questions: int,
    budget: RunBudget | None = None,
) -> CitationCheck: ...

class CitationChecker:
    client: DecisionClient
    repo_root: Path
    budget: RunBudget
    failure: str | None
    _failed: bool
    _lock: threading.Lock

    def __init__(
        self, client: DecisionClient, repo_root: Path, *, should_stop: Callable[[], bool] | None = None
    ) -> None: ...
    @classmethod
    def enabled(
        cls,
        client: DecisionClient | None,
        repo_root: Path,
        should_stop: Callable[[], bool] | None = None,
    ) -> CitationChecker | None: ...
    def check(self, markdown: str) -> CitationCheck | None: ...

class CitationCheckMixin:
    repo_root: Path
    should_stop: Callable[[], bool]
    decision_client: DecisionClient | None = None
    _citation_checker: CitationChecker | None = None

    def _citation_check(self, markdown: str) -> CitationCheck | None: ...

def citation_lint_findings(
    client: DecisionClient | None,
    texts: Mapping[str, str],
    repo_root: Path,
    should_stop: Callable[[], bool] | None = None,
) -> list[dict[str, Any]]: ...
