"""The decision client: puts questions to the decision model, within the user's limits."""

import threading
import time
from collections.abc import Callable
from dataclasses import dataclass

from quenlow.engines.model import Answers, Decision, DecisionError as DecisionError, Model, Question, State

_CHARS_PER_TOKEN = 4

CITATION_QUESTION_VERSION = 1
_CITATION_QUESTION = Question(
    key="citation",
    text="How do the cited lines relate to the sentence: do they support it, contradict it, or say nothing"
    " about it?",
    choices=("supports", "contradicts", "says_nothing"),
)


@dataclass
class DecisionConfig:
    """The user's settings (`qep.*`)."""

    wiki_check_citations: bool = False
    allow_source_upload: bool = False
    wiki_check_citations_per_page: int = 200
    max_parallel_calls: int = 4
    max_calls_per_batch: int = 20_000
    max_input_tokens_per_batch: int = 20_000_000
    interactive_seconds: float = 30.0


@dataclass(frozen=True, slots=True)
class CitationAnswer:
    """How the cited lines relate to the sentence: "supports", "contradicts" or "says_nothing"."""

    verdict: str


class RunBudget:
    """What one run may spend on the decision model. Shared by all threads of the run.

    Attributes:
        refused: Whether a call was refused because it would have gone beyond the limits.
    """

    def __init__(self, max_calls: int, max_input_tokens: int, should_stop: Callable[[], bool] | None) -> None:
        self.max_calls = max_calls
        self.max_input_tokens = max_input_tokens
        self.should_stop = should_stop or (lambda: False)
        self.calls = 0
        self.input_tokens = 0
        self.refused = False
        self._lock = threading.Lock()

    def charge(self, input_tokens: int) -> None:
        """Spend one call, or raise DecisionError and spend nothing."""
        with self._lock:
            if self.calls >= self.max_calls:
                self.refused = True
                raise DecisionError("the run's calls are spent (max_calls_per_batch)")
            if self.input_tokens + input_tokens > self.max_input_tokens:
                self.refused = True
                raise DecisionError("the run's input tokens are spent (max_input_tokens_per_batch)")
            self.calls += 1
            self.input_tokens += input_tokens


class DecisionClient:
    """Asks one model under one configuration. An answer is kept, and given again at no cost.

    Answers are kept as long as the client lives, or wherever `answers` keeps them.

    Attributes:
        decisions: How many decisions were given, kept answers included.
    """

    def __init__(self, config: DecisionConfig, model: Model, answers: Answers | None = None) -> None:
        self.config = config
        self.model = model
        self.decisions = 0
        self._answers: Answers = {} if answers is None else answers
        self._lock = threading.Lock()

    def feature_enabled(self, name: str) -> bool:
        """Whether the switch `qep.<name>` is on."""
        return bool(getattr(self.config, name, False))

    def new_budget(self, *, should_stop: Callable[[], bool] | None = None) -> RunBudget:
        """A budget for one run, of the configured size; the run's calls end once `should_stop` is true."""
        return RunBudget(self.config.max_calls_per_batch, self.config.max_input_tokens_per_batch, should_stop)

    def decide(
        self,
        state: State,
        questions: tuple[Question, ...],
        *,
        question_version: object,
        budget: RunBudget | None = None,
    ) -> Decision:
        """The model's choices. Without a budget the call ends by the interactive deadline."""
        should_stop = self._deadline() if budget is None else budget.should_stop
        if should_stop():
            raise DecisionError("the run was asked to stop")
        key = (question_version, self.model.name, state, questions)
        decision = self._answers.get(key)
        if decision is None or not _complete(decision, questions):
            if budget is not None:
                budget.charge(_input_tokens(state, questions))
            decision = self.model.answer(state, questions, should_stop)
            _require_usable(decision, questions)
            if _complete(decision, questions):
                self._answers[key] = decision
        with self._lock:
            self.decisions += 1
        return decision

    def _deadline(self) -> Callable[[], bool]:
        end = time.monotonic() + self.config.interactive_seconds
        return lambda: time.monotonic() >= end


def _input_tokens(state: State, questions: tuple[Question, ...]) -> int:
    texts = [text for _name, text in state] + [question.text for question in questions]
    return sum(len(text) // _CHARS_PER_TOKEN + 1 for text in texts)


def _complete(decision: Decision, questions: tuple[Question, ...]) -> bool:
    return all(decision.get(question.key) in question.choices for question in questions)


def _require_usable(decision: Decision, questions: tuple[Question, ...]) -> None:
    for question in questions:
        choice = decision.get(question.key)
        if choice is not None and choice not in question.choices:
            raise DecisionError(f"unusable answer to the question {question.key!r}: {choice!r:.80}")


def citation_request(claim_text: str, passage: str) -> tuple[State, tuple[Question, ...]]:
    """The citation question about a sentence and the lines that it cites."""
    return (("sentence", claim_text), ("cited lines", passage)), (_CITATION_QUESTION,)


def citation_answer(result: Decision) -> CitationAnswer | None:
    """The answer to the citation question, None when the model gave none."""
    verdict = result.get(_CITATION_QUESTION.key)
    return None if verdict is None else CitationAnswer(verdict)
