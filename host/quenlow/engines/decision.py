"""The decision client: puts questions to the decision model, within the user's limits."""

import hashlib
import json
import threading
import time
from collections.abc import Callable, Mapping, MutableMapping
from contextlib import suppress
from dataclasses import dataclass

from quenlow.engines.model import Answer, DecisionError, Model, Question, State

_CHARS_PER_TOKEN = 4
_IN_A_ROW = 20  # questions without an answer, then no other is asked

CITATION_QUESTION_VERSION = 1
_CITATION_QUESTION = Question(
    "citation",
    "Do the cited lines support the sentence, contradict it, or say nothing about it?",
    ("supports", "contradicts", "says_nothing"),
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
    reason: str = ""


class RunBudget:
    """What one run may spend on the decision model until it is asked to stop; all its threads share it."""

    def __init__(self, config: DecisionConfig, should_stop: Callable[[], bool] | None) -> None:
        self._config = config
        self.should_stop = should_stop or (lambda: False)
        self.calls = 0
        self.input_tokens = 0
        self._lock = threading.Lock()

    def charge(self, input_tokens: int) -> None:
        """Spend one call, or raise DecisionError and spend nothing."""
        with self._lock:
            if self.calls >= self._config.max_calls_per_batch:
                raise DecisionError("the run's calls are spent (max_calls_per_batch)")
            if self.input_tokens + input_tokens > self._config.max_input_tokens_per_batch:
                raise DecisionError("the run's input tokens are spent (max_input_tokens_per_batch)")
            self.calls += 1
            self.input_tokens += input_tokens


class DecisionClient:
    """Asks one model under one configuration. An answer is kept, and given again at no cost."""

    def __init__(
        self, config: DecisionConfig, model: Model, answers: MutableMapping[bytes, str] | None = None
    ) -> None:
        self.config = config
        self.model = model
        self.decisions = 0  # given so far, kept answers included
        self.asked = 0  # questions that the model has dealt with
        self.unanswered: dict[State, str] = {}  # what it gave no usable answer about, and why
        self._in_a_row: list[str] = []  # why the last questions were left without an answer
        self._answers = {} if answers is None else answers
        self._lock = threading.Lock()

    def feature_enabled(self, name: str) -> bool:
        """Whether the switch `qep.<name>` is on."""
        return bool(getattr(self.config, name, False))

    def new_budget(self, *, should_stop: Callable[[], bool] | None = None) -> RunBudget:
        return RunBudget(self.config, should_stop)

    def decide(
        self, state: State, question: Question, *, question_version: object, budget: RunBudget | None = None
    ) -> Mapping[str, str]:
        """The model's choice and reason, empty without. Without a budget the interactive deadline holds."""
        deadline = time.monotonic() + self.config.interactive_seconds
        should_stop = budget.should_stop if budget else lambda: time.monotonic() >= deadline
        if should_stop():
            raise DecisionError("the run was asked to stop")
        asked = json.dumps([question_version, self.model.name, state, question], default=str)
        key = hashlib.sha256(asked.encode()).digest()
        answer = None
        with suppress(TypeError, ValueError):  # what is damaged or of another form is no answer
            answer = Answer(*map(str, json.loads(self._answers.get(key, "null"))))
        if answer is None or answer.choice not in question.choices:
            if len(row := self._in_a_row) >= _IN_A_ROW:
                raise DecisionError(f"{_IN_A_ROW} questions in a row left unanswered: {row[-1]}")
            if budget and self.model.costs:
                texts = [*dict(state).values(), question.text]
                budget.charge(sum(len(text) // _CHARS_PER_TOKEN + 1 for text in texts))
            answer = self.model.answer(state, question, should_stop)
            with self._lock:
                self.asked += 1
                if answer.choice not in question.choices:
                    self.unanswered[state] = answer.reason
                    self._in_a_row.append(answer.reason)
                    return {}
                self._in_a_row = []  # the old one may be in use
            self._answers[key] = json.dumps(answer)
        with self._lock:
            self.decisions += 1
        return {question.key: answer.choice, "reason": answer.reason}


def citation_request(claim_text: str, passage: str) -> tuple[State, Question]:
    return (("sentence", claim_text), ("cited lines", passage)), _CITATION_QUESTION


def citation_answer(result: Mapping[str, str]) -> CitationAnswer | None:
    """The answer to the citation question, None when the model gave none."""
    verdict = result.get(_CITATION_QUESTION.key)
    return None if verdict is None else CitationAnswer(verdict, result.get("reason", ""))
