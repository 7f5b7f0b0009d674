"""One run of the check over pages.

A first look at a page asks only what is kept or costs nothing. Pages with other questions are then checked
side by side, each with its share of the limits set aside in the order of the pages: speed changes no report.
"""

import sys
import threading
from argparse import Namespace
from collections import deque
from collections.abc import Callable, Generator, Iterable, Iterator, Sequence
from concurrent.futures import Future, ThreadPoolExecutor
from contextlib import closing, nullcontext, suppress
from typing import Any, TypeAlias

from command.answers import decision_client
from command.page_check import judged
from command.pages import Page, read_page
from command.report import CHECK_FAILED, Finding, PageCheck
from command.terminal import CommandError
from quenlow.engines.decision import DecisionClient, DecisionConfig, RunBudget
from quenlow.engines.model import DecisionError
from quenlow.workers.wiki import citation_check
from quenlow.workers.wiki.citation_check import check_citations

ShouldStop: TypeAlias = Callable[[], bool]
Checks: TypeAlias = Generator[PageCheck, None, None]


class _Questions(threading.local):
    """Asks the questions of the page that a thread checks, in the place of the pool that it would have."""

    ask_all: Callable[..., Iterable[Any]]

    def map(self, ask: Callable[[Any], Any], asked: Sequence[Any]) -> Iterable[Any]:
        self.asked = asked
        return self.ask_all(ask, asked)


_questions = _Questions()
setattr(citation_check, "ThreadPoolExecutor", lambda **_limits: nullcontext(_questions))


def check_pages(pages: list[Page], options: Namespace, should_stop: ShouldStop, looks: Any) -> Checks:
    """The checks in the order of the pages, up to one that ended the run; of later pages their cost."""
    run = _Run(options, should_stop)
    taken = looks(pages, options, should_stop, run.client)
    with closing(taken), run.question_threads, run.page_threads:
        try:
            for check in run.in_order(pages, taken):
                yield check
                if check.ended_the_run:
                    break
        finally:
            run.ended_at = -1
        for check in run.settled(wait=True):
            yield PageCheck(questions=check.questions, input_tokens=check.input_tokens)


class _Costs(BaseException):
    """No kept answer spares this question. It is no Exception: one would fail the page."""


class _FirstLook(RunBudget):
    """Spends nothing, and counts what there is to spend."""

    def charge(self, input_tokens: int) -> None:
        self.calls += 1
        self.input_tokens += input_tokens
        raise _Costs

    def ask_all(self, ask: Callable[[Any], Any], asked: Sequence[Any]) -> list[Any]:
        answers = []
        for question in asked:
            with suppress(_Costs):
                answers.append(ask(question))
        if self.calls:
            raise _Costs
        return answers


def first_looks(pages: list[Page], options: Namespace, is_over: ShouldStop, client: DecisionClient) -> Checks:
    """The checks of pages without questions that cost, and of the other pages what these would cost."""
    for page in pages:
        dry, look, asked_before = options.dry_run, _FirstLook(client.config, is_over), client.asked
        try:
            check = _check(page, client, options, look, look.ask_all)
            if dry and check.whole:
                raise _Costs
            if not client.model.costs:  # and is asked by this thread alone
                check.questions = client.asked - asked_before
        except _Costs:
            check = PageCheck(0, look.calls, look.input_tokens, file=page.shown, whole=dry, unasked=not dry)
        yield check


def _check(page: Page, client: DecisionClient, options: Namespace, budget: RunBudget, ask: Any) -> PageCheck:
    _questions.ask_all = ask
    cap = options.wiki_check_citations_per_page
    try:
        markdown = read_page(page.file)
        result = check_citations(client, markdown, options.repo, max_questions=cap, budget=budget)
        return judged(page, markdown, result, dict(_questions.asked), client, options)
    except CommandError as error:
        kind, detail = "page-unreadable", str(error)
    except Exception as error:
        why = str(error) if isinstance(error, DecisionError) else f"{type(error).__name__}: {error}"
        kind, detail = CHECK_FAILED, f"the check ended here: {why}"
    finding = Finding("medium", kind, detail, page.id, page.shown)
    return PageCheck(file=page.shown, findings=[finding], ended_the_run=kind == CHECK_FAILED)


class _Run:
    def __init__(self, options: Namespace, should_stop: ShouldStop) -> None:
        self.options, self.should_stop = options, should_stop
        self.client = decision_client(options)
        at_once = options.max_parallel_calls
        self.page_threads, self.question_threads = ThreadPoolExecutor(at_once), ThreadPoolExecutor(at_once)
        self.under_way = deque[tuple[PageCheck, Future[PageCheck] | None]]()  # the looks, and what follows
        self.ended_at = sys.maxsize  # the number of a page that failed
        self.calls_left = options.max_calls_per_batch  # neither spent nor set aside
        self.input_tokens_left = options.max_input_tokens_per_batch

    def in_order(self, pages: list[Page], looks: Iterable[PageCheck]) -> Iterator[PageCheck]:
        for number, (page, look) in enumerate(zip(pages, looks)):
            is_within = look.questions <= self.calls_left and look.input_tokens <= self.input_tokens_left
            if look.unasked and not is_within:
                # The pages under way may leave something: two may have asked the same.
                yield from self.settled(wait=True)
            self.under_way.append((look, self._start(number, page, look) if look.unasked else None))
            yield from self.settled(wait=look.ended_the_run)
        yield from self.settled(wait=True)

    def settled(self, wait: bool) -> Iterator[PageCheck]:
        """The checks that are done, in their order; or all that are under way."""
        while self.under_way and (wait or (future := self.under_way[0][1]) is None or future.done()):
            look, follows = self.under_way.popleft()
            check = follows.result() if follows else look
            self.calls_left += look.questions - check.questions
            self.input_tokens_left += look.input_tokens - check.input_tokens
            yield check

    def _start(self, number: int, page: Page, look: PageCheck) -> Future[PageCheck]:
        limits = DecisionConfig(
            max_calls_per_batch=min(look.questions, self.calls_left),
            max_input_tokens_per_batch=min(look.input_tokens, self.input_tokens_left))
        self.calls_left -= look.questions
        self.input_tokens_left -= look.input_tokens
        budget = RunBudget(limits, lambda: self.ended_at < number or self.should_stop())

        def check() -> PageCheck:
            check = _check(page, self.client, self.options, budget, self.question_threads.map)
            check.questions, check.input_tokens = budget.calls, budget.input_tokens
            if check.ended_the_run:
                self.ended_at = min(self.ended_at, number)
            return check

        return self.page_threads.submit(check)
