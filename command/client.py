"""The decision client that the command checks with."""

import logging
import os
import sys
from collections.abc import Callable
from dataclasses import dataclass, replace
from pathlib import Path

from command.report import CommandError
from quenlow.engines.decision import DecisionClient, DecisionConfig, RunBudget
from quenlow.engines.model import Decision, Model, Question, State
from quenlow.engines.word_model import WordModel
from quenlow.workers.wiki.citation_check import CitationCheck

KEY_VARIABLE = "WIKI_MODEL_KEY"


@dataclass(frozen=True)
class Settings:
    """How pages are checked. The model's key is no part of it: it stays in the environment."""

    repo_root: Path
    config: DecisionConfig
    model_url: str | None = None
    model: str | None = None
    cache: Path | None = None
    dry_run: bool = False
    show_lines: bool = False


class RunClient(DecisionClient):
    """The client of one run, which can tell how far the run has come."""

    budget = RunBudget(0, 0, None)
    result = CitationCheck()
    """Of the page that was checked last."""

    def new_budget(self, *, should_stop: Callable[[], bool] | None = None) -> RunBudget:
        self.budget = super().new_budget(should_stop=should_stop)
        return self.budget


class _Undecided:
    """Leaves every question open, in the name of another model."""

    def __init__(self, name: str) -> None:
        self.name = name

    def answer(
        self, state: State, questions: tuple[Question, ...], should_stop: Callable[[], bool]
    ) -> Decision:
        return {}


def run_client(settings: Settings) -> RunClient:
    # A failed check is a finding of its own: its log record would say it twice.
    logging.getLogger("quenlow").setLevel(logging.ERROR)
    config, model = settings.config, _model(settings)
    if settings.dry_run:
        model = _Undecided(model.name)
        config = replace(config, max_calls_per_batch=sys.maxsize, max_input_tokens_per_batch=sys.maxsize)
    if settings.cache is None:
        return RunClient(config, model)
    from command.cache import AnswerCache

    return RunClient(config, model, AnswerCache(settings.cache))


def _model(settings: Settings) -> Model:
    if settings.model_url is None or settings.model is None:
        return WordModel()
    from quenlow.engines.chat_model import ChatModel

    try:
        return ChatModel(settings.model_url, settings.model, os.environ.get(KEY_VARIABLE, "").strip())
    except ValueError as error:
        raise CommandError(error) from error
