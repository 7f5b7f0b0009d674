"""What the decision client requires of a decision model."""

from collections.abc import Callable
from typing import NamedTuple, Protocol, TypeAlias

State: TypeAlias = tuple[tuple[str, str], ...]  # what a question is about: named texts


class Question(NamedTuple):
    key: str
    text: str
    choices: tuple[str, ...]  # all the answers that there are


class DecisionError(Exception):
    """A decision could not be had: a refusal, a spent budget, a model that cannot be asked, a stopped run."""


class Answer(NamedTuple):
    choice: str  # one of the question's, or empty: the model gave no usable answer
    reason: str  # for whoever reads the answer, why there is none included; may be empty


class Model(Protocol):
    """A decision model. It is asked from several threads at once, and its answers are kept under its name."""

    name: str
    costs: bool  # whether its answers count against the user's limits

    def answer(self, state: State, question: Question, should_stop: Callable[[], bool], /) -> Answer:
        """Choose an answer. DecisionError: no other question should be put to it, or the run should stop."""
