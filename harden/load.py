"""64 host threads share one checker over 20,000 pages; once all goes well, once every question fails from a
random page on."""

import os
import random
import re
import sys
import tempfile
import threading
from concurrent.futures import ThreadPoolExecutor
from logging.handlers import BufferingHandler
from pathlib import Path
from typing import Any

from support import Client

from harden import builds

THREADS, LINES = 64, 50


class CountingClient(Client):
    """Supports every sentence up to the page from which on it refuses; its budget counts."""

    def __init__(self, failing_page: int) -> None:
        super().__init__()
        self.failing_page = failing_page
        self.lock = threading.Lock()

    def new_budget(self, **_named: object) -> dict[str, int]:
        return {"calls": 0, "refused": 0}

    def decide(
        self, state: Any, _questions: object, *, question_version: object, budget: Any
    ) -> dict[str, str]:
        (_name, sentence), (_other, lines) = state
        assert lines.startswith("line "), lines
        refused = int(sentence.split()[3]) >= self.failing_page
        with self.lock:
            budget["calls"] += 1
            budget["refused"] += refused
        if refused:
            raise ValueError(f"refused: {sentence}")
        return {"citation": "supports"}


def page(number: int) -> str:
    first, second = number % LINES + 1, (number * 7) % LINES + 1
    return (
        f"So says page {number} first [f:L{first}]. So says page {number} second [f:L{second}]."
        " And nothing says so [gone:L1]."
    )


def check_all(repo: Path, pages: int, failing_page: int) -> str:
    from quenlow.workers.wiki import citation_check

    log = BufferingHandler(capacity=10**6)
    citation_check.logger.handlers = [log]
    citation_check.logger.propagate = False
    checker = citation_check.CitationChecker.enabled(CountingClient(failing_page), repo)
    before = os.listdir("/proc/self/fd"), threading.active_count()
    with ThreadPoolExecutor(THREADS) as hosts:
        results = list(hosts.map(checker.check, map(page, range(pages))))
    assert (
        os.listdir("/proc/self/fd"),
        threading.active_count(),
    ) == before, "a descriptor or a thread is left"
    answered = [result for result in results if result is not None]
    for result in answered:
        assert (len(result.checked), result.skipped, result.score) == (2, 1, 1.0), result
    refused = checker.budget["refused"]
    assert checker.budget["calls"] == 2 * len(answered) + refused, checker.budget
    errors = [str(record.exc_info[1]) for record in log.buffer]
    if failing_page == pages:
        assert len(answered) == pages and checker.failure is None and not errors, checker.failure
        return f"{pages} pages answered"
    failure = re.fullmatch(r"ValueError: (refused: So says page \d+ (first|second)\.)", checker.failure)
    assert failure and errors == [failure[1]], (checker.failure, errors)
    assert results[failing_page:] == [None] * (pages - failing_page) and checker.check(page(0)) is None
    return f"{len(answered)} answered and {refused} questions refused from page {failing_page} on"


def run(short: bool) -> str:
    seed = str(random.randrange(1000))
    pages = 2_000 if short else 20_000
    usual = builds.python(builds.RELEASE, "-m", "harden.load", str(pages), seed)
    watched = builds.python(builds.TSAN, "-m", "harden.load", str(pages // 10), seed)
    return f"{THREADS} threads (seed {seed}): {usual}; under the thread sanitizer: {watched}"


if __name__ == "__main__":
    count = int(sys.argv[1])
    with tempfile.TemporaryDirectory() as folder:
        Path(folder, "f").write_text("".join(f"line {number}\n" for number in range(1, LINES + 1)))
        failing = random.Random(sys.argv[2]).randrange(count // 4, count)
        print(check_all(Path(folder), count, count), check_all(Path(folder), count, failing), sep=", ")
