"""What the decision client requires of a decision model."""

from collections.abc import Callable, Mapping
from typing import NamedTuple, Protocol, TypeAlias


class Question(NamedTuple):
    """One question with a closed list of answers."""

    key: str
    text: str
    choices: tuple[str, ...]


State: TypeAlias = tuple[tuple[str, str], ...]
"""What the questions are about: named texts."""

Decision: TypeAlias = Mapping[str, str]
"""The choice made for each question, by its key; a question left out has no answer."""


QuestionKey: TypeAlias = tuple[object, str, State, tuple[Question, ...]]
"""What an answer is kept under: question version, model, state and questions."""


class Answers(Protocol):
    """Where answers are kept; used from several threads at once."""

    def get(self, key: QuestionKey, /) -> Decision | None: ...

    def __setitem__(self, key: QuestionKey, decision: Decision, /) -> None: ...


class DecisionError(Exception):
    """A decision could not be had: a refusal, a spent budget, an unusable answer, a stopped run."""


class Model(Protocol):
    """A decision model. It is asked from several threads at once.

    Attributes:
        name: What tells this model from any other: answers are kept under it.
    """

    @property
    def name(self) -> str: ...

    def answer(
        self, state: State, questions: tuple[Question, ...], should_stop: Callable[[], bool]
    ) -> Decision:
        """Choose an answer to each question; a model that waits gives up once `should_stop` is true."""
