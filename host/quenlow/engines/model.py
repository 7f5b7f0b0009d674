"""What the decision client requires of a decision model."""

from collections.abc import Callable
from typing import NamedTuple, Protocol, TypeAlias

State: TypeAlias = tuple[tuple[str, str], ...]  # what a question is about: named texts


class Question(NamedTuple):
    key: str
    text: str
    choices: tuple[str, ...]  # all the answers that there are


class DecisionError(Exception):
    """A decision could not be had: a refusal, a spent budget, an unusable answer, a stopped run."""


class Model(Protocol):
    """A decision model. It is asked from several threads at once, and its answers are kept under its name."""

    name: str

    def answer(self, state: State, question: Question, should_stop: Callable[[], bool], /) -> str | None:
        """Choose an answer, or none; a model that waits gives up once `should_stop` is true."""
