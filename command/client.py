"""The decision client that the command checks with."""

import logging
import os
import sys
from argparse import Namespace
from collections import Counter
from collections.abc import Callable
from functools import lru_cache
from types import SimpleNamespace
from typing import Any

from command.cache import AnswerCache
from command.terminal import CommandError
from quenlow.engines.decision import DecisionClient, DecisionConfig, RunBudget
from quenlow.engines.word_model import WordModel

KEY_VARIABLE = "WIKI_MODEL_KEY"
LIMITS = {
    "wiki_check_citations_per_page": "questions for each page",
    "max_parallel_calls": "questions under way at the same time",
    "max_calls_per_batch": "questions asked in the whole run",
    "max_input_tokens_per_batch": "input tokens of the whole run",
}


class RunClient(DecisionClient):
    """The client of one run: all that is checked with it draws on one budget."""

    def __init__(self, options: Namespace, should_stop: Callable[[], bool]) -> None:
        # A failed check is a finding of its own: its log record would say it twice.
        logging.getLogger("quenlow").setLevel(logging.ERROR)
        limits = {limit: getattr(options, limit) for limit in LIMITS}
        model = _model(options.model_url, options.model)
        if options.dry_run:
            limits |= {"max_calls_per_batch": sys.maxsize, "max_input_tokens_per_batch": sys.maxsize}
            # Answers kept for the model count, and every other question stays open.
            model = SimpleNamespace(name=model.name, answer=lambda *_asked: None)
        config = DecisionConfig(wiki_check_citations=True, allow_source_upload=options.consent, **limits)
        super().__init__(config, model, AnswerCache(options.cache) if options.cache else None)
        self.budget = super().new_budget(should_stop=should_stop)

    def new_budget(self, *, should_stop: Callable[[], bool] | None = None) -> RunBudget:
        return self.budget

    def counts(self) -> Counter[str]:
        spent = {"questions": self.budget.calls, "input_tokens": self.budget.input_tokens}
        return Counter(sentences=self.decisions, **spent)


@lru_cache(maxsize=1)  # with its connections to the server
def _model(url: str | None, name: str | None) -> Any:
    if not url and not name:
        return WordModel()
    if not url or not name:
        raise CommandError("--model-url and --model go together: which server, and which of its models")
    from quenlow.engines.chat_model import ChatModel

    try:
        return ChatModel(url, name, os.environ.get(KEY_VARIABLE, "").strip())
    except ValueError as error:
        raise CommandError(error) from error
