"""64 host threads share one checker over 20,000 pages; once all goes well, once a question of a random page fails."""

import logging
import os
import random
import sys
import tempfile
import threading
from collections.abc import Callable
from pathlib import Path

from quenlow.engines.decision import DecisionClient, DecisionConfig, DecisionError

from harden import builds

THREADS, LINES = 64, 50


class Model:
    """Supports every sentence, but for the one that it fails on."""

    def __init__(self, failing_page: int) -> None:
        self.failing_page = failing_page
        self.asked = 0
        self._lock = threading.Lock()

    def answer(self, state: tuple[tuple[str, str], ...], _questions: object, _stop: object) -> dict[str, str]:
        with self._lock:
            self.asked += 1
        (_name, sentence), (_other, lines) = state
        if f"page {self.failing_page} " in sentence:
            raise DecisionError(f"refused page {self.failing_page}")
        assert lines.startswith("line "), lines
        return {"citation": "supports"}


class Records(logging.Handler):
    def __init__(self) -> None:
        super().__init__()
        self.records: list[logging.LogRecord] = []

    def emit(self, record: logging.LogRecord) -> None:
        self.records.append(record)


def page(number: int) -> str:
    first, second = number % LINES + 1, (number * 7) % LINES + 1
    return f"So says page {number} first [f:L{first}]. So says page {number} second [f:L{second}]. None [gone:L1]."


def side_by_side(work: Callable[[int], object], pages: int) -> list[object]:
    """What `work` made of each page; the threads take one page after the other."""
    results: list[object] = [Ellipsis] * pages
    numbers = iter(range(pages))

    def take_pages() -> None:
        for number in numbers:
            results[number] = work(number)

    threads = [threading.Thread(target=take_pages) for _ in range(THREADS)]
    for step in (threading.Thread.start, threading.Thread.join):
        for thread in threads:
            step(thread)
    return results


def check_all(repo: Path, pages: int, failing_page: int) -> str:
    from quenlow.workers.wiki import citation_check

    model, records = Model(failing_page), Records()
    citation_check.logger.addHandler(records)
    citation_check.logger.propagate = False
    config = DecisionConfig(wiki_check_citations=True, allow_source_upload=True, max_calls_per_batch=10**9)
    checker = citation_check.CitationChecker.enabled(DecisionClient(config, model), repo)
    before = os.listdir("/proc/self/fd"), threading.active_count()
    results = side_by_side(lambda number: checker.check(page(number)), pages)
    assert (os.listdir("/proc/self/fd"), threading.active_count()) == before, "a descriptor or a thread is left"
    citation_check.logger.removeHandler(records)
    answered = [result for result in results if result is not None]
    for result in answered:
        assert (len(result.checked), result.skipped, result.score) == (2, 1, 1.0), result
    assert checker.budget.calls == model.asked, f"{checker.budget.calls} calls charged, {model.asked} made"
    if failing_page < 0:
        assert (len(answered), model.asked, checker.failure, records.records) == (pages, 2 * pages, None, [])
        return f"{pages} pages answered"
    assert checker.failure == f"DecisionError: refused page {failing_page}", checker.failure
    assert len(records.records) == 1 and results[failing_page] is None is checker.check("")
    assert 2 * len(answered) <= model.asked <= 2 * (len(answered) + THREADS), (len(answered), model.asked)
    return f"{len(answered)} answered before the failure on page {failing_page}"


def main() -> None:
    pages, seed = int(sys.argv[1]), int(sys.argv[2])
    with tempfile.TemporaryDirectory() as folder:
        repo = Path(folder)
        (repo / "f").write_text("".join(f"line {number}\n" for number in range(1, LINES + 1)))
        failing_page = random.Random(seed).randrange(pages // 4, pages)
        print(f"{check_all(repo, pages, -1)}, {check_all(repo, pages, failing_page)}")


def run(short: bool) -> str:
    seed = random.randrange(1000)
    pages = 2_000 if short else 20_000
    loads = [(builds.RELEASE, pages), (builds.TSAN, pages // 10)]
    figures = [builds.python(build, "-m", "harden.load", str(some), str(seed)).strip() for build, some in loads]
    return f"{THREADS} threads (seed {seed}): {figures[0]}; under the thread sanitizer: {figures[1]}"


if __name__ == "__main__":
    main()
