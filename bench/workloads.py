"""What is measured: each workload gives every contestant its run over the same input, prepared beforehand."""

from __future__ import annotations

import py_compile
import sys
from collections.abc import Callable
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from types import ModuleType
from typing import Any

from bench.client import InstantClient
from bench.corpus import Wiki, distinct_claims
from bench.load import PLAIN, ROOT, load_file, load_module, load_plain

Runs = dict[str, Callable[[], object]]
"""The contestants' runs by name: "plain" and "module", and "floor" where there is one."""

py_compile.compile(str(PLAIN), doraise=True)  # so that neither contestant is compiled while it is measured
plain, module = load_plain(), load_module()
BOTH = {"plain": plain, "module": module}
floor = load_file("citation_check_floor", next((ROOT / "build/bench").glob("citation_check_floor.*.so")))
client = InstantClient()
SYNTAX = (plain._FENCE_RE, plain._CITATION_RE, plain.citation_key, plain._norm)


def extraction(pages: list[str]) -> Runs:
    def run(contestant: ModuleType) -> object:
        return [contestant.cited_claims(page) for page in pages]

    cut = [_cut(page) for page in pages]
    return _runs(run) | {"floor": lambda: floor.extract(cut, *SYNTAX)}


def distinct(pages: list[str], count: int) -> Runs:
    return extraction([distinct_claims(((claim.claim, claim.path) for claim in _claims(pages)), count)])


def lines(wiki: Wiki, pages: list[str]) -> Runs:
    sources = plain.CitedSources(wiki.repo)
    cited = [claim for claim in _claims(pages) if sources.passage(claim)]
    return _cut_lines([(sources._texts[claim.path], claim.start, claim.end) for claim in cited])


def far_lines(scale: int) -> Runs:
    """Ten lines near the end of a file that grows with the scale, from half a million characters."""
    text = "".join(f"{number}: a line of some length\n" for number in range(16_000 * scale))
    return _cut_lines([(text, 16_000 * scale - 50, 16_000 * scale - 40)])


def _cut_lines(given: list[tuple[str, int, int]]) -> Runs:
    def run(contestant: ModuleType) -> object:
        return [contestant.cited_lines(*lines) for lines in given]

    return _runs(run)


def passages(wiki: Wiki, pages: list[str]) -> Runs:
    sources = {contestant: contestant.CitedSources(wiki.repo) for contestant in BOTH.values()}
    claims = {contestant: _claims(pages, contestant) for contestant in BOTH.values()}

    def run(contestant: ModuleType) -> object:
        passage = sources[contestant].passage
        return [passage(claim) for claim in claims[contestant]]

    for contestant in BOTH.values():
        run(contestant)
    return _runs(run)


def reading(wiki: Wiki, pages: list[str]) -> Runs:
    claims = {
        contestant: list({claim.path: claim for claim in _claims(pages, contestant)}.values())
        for contestant in BOTH.values()
    }

    def run(contestant: ModuleType) -> object:
        sources = contestant.CitedSources(wiki.repo)
        return [sources.passage(claim) for claim in claims[contestant]]

    return _runs(run)


def page_check(wiki: Wiki, pages: list[str]) -> Runs:
    cap = client.config.wiki_check_citations_per_page

    def run(contestant: ModuleType) -> object:
        return [contestant.check_citations(client, page, wiki.repo, max_questions=cap) for page in pages]

    owed = [_owed(wiki, page, cap) for page in pages]
    return _runs(run) | {"floor": lambda: [floor.check(*page) for page in owed]}


def importing() -> Runs:
    """The module made anew, with all that it imports in place."""

    def run(contestant: ModuleType) -> object:
        name = contestant.__name__.rpartition(".")[2]
        kept = sys.modules.pop(contestant.__name__)
        try:
            return load_file(name, PLAIN if contestant is plain else Path(str(contestant.__file__)))
        finally:
            sys.modules[contestant.__name__] = kept

    return _runs(run)


def lint_findings(contestant: ModuleType, wiki: Wiki) -> list[dict[str, object]]:
    return contestant.citation_lint_findings(client, wiki.pages, wiki.repo)


def count_claims(wiki: Wiki) -> int:
    return len(_claims(list(wiki.pages.values())))


def _runs(run: Callable[[ModuleType], object]) -> Runs:
    return {name: lambda contestant=contestant: run(contestant) for name, contestant in BOTH.items()}


def _claims(pages: list[str], contestant: ModuleType = plain) -> list[Any]:
    return [claim for page in pages for claim in contestant.cited_claims(page)]


def _cut(page: str) -> tuple[list[str], list[tuple[str, int]]]:
    """A page's lines, and its sentences with what each carries, as the floor takes them."""
    sentences = []
    for block in plain._prose_blocks(page):
        for sentence in plain._SENTENCE_END_RE.split(block):
            cited = plain._CITATION_RE.search(sentence) is not None
            claims = cited and len(plain._claim_text(sentence)) >= plain._CLAIM_MIN_CHARS
            sentences.append((sentence, cited + claims))
    return page.split("\n"), sentences


def _owed(wiki: Wiki, page: str, cap: int) -> tuple[object, ...]:
    sources = plain.CitedSources(wiki.repo)
    asked: list[tuple[str, str]] = []
    for claim in plain.cited_claims(page):
        passage = sources.passage(claim) if len(asked) < cap else ""
        if passage.strip():
            asked.append((claim.claim, passage))
    files = [str(wiki.repo / path) for path, text in sources._texts.items() if text]
    workers = max(1, min(client.config.max_parallel_calls, len(asked)))
    settings = {"max_workers": workers, "thread_name_prefix": "wiki-cite"}
    collaborators = (plain.citation_request, plain.citation_answer, plain.CITATION_QUESTION_VERSION, None)
    question = (client, *collaborators, "decide", ("question_version", "budget"))
    return _cut(page), *SYNTAX, files, ThreadPoolExecutor, settings, question, asked
